#!/usr/bin/env python3
"""Measures reports on a census beside DuckDB and SQLite doing the same work in one run, and prints the tables.

usage: reports.py --server PATH --maker PATH [--files N] [--rounds N] [--scale] [--work DIR] [--markdown FILE]

One thread, warm. A report's time is that of the whole call: census and index opened, rows inserted into a new SQLite
database and committed. The peers write equal rows into a table of their own database; DuckDB comes as a package of npm
(bench/store/package.json). --scale adds the figures of 500 thousand and 50 million files.
"""

import argparse
import json
import os
import shutil
import sqlite3
import subprocess
import sys
import tempfile
import time

HERE = os.path.dirname(os.path.abspath(__file__))
TITLES = {
    "file_largest": "file_largest: 200, with a filter on time and name",
    "file_ages": "file_ages: three dates",
    "group_by_pcre": "group_by_pcre: extensions",
    "file_search": "file_search: regular expression, every folder",
    "tree_summary": "tree_summary: 54,325 rows",
    "spacemap": "spacemap of everything",
}
OWN = {
    "file_index_build": ("file index, built", "ms"),
    "paths_index_build": ("paths index, built", "ms"),
    "file_index_open": ("file index, opened", "ms"),
    "paths_index_open": ("paths index, opened", "ms"),
    "locate": ("a path located by text, report included", "us"),
}
# SQLite has no function for the text behind the last full stop.
EXTENSION = "case when instr(name, '.') then lower(replace(name, rtrim(name, replace(name, '.', '')), '')) else '(none)' end"
SQL = {
    "file_largest": ["create table r as select f.size, p.path, f.name from files f join paths p on p.number = f.path where"
                     " f.modified >= 1420070400 and f.name like '%.jpg' order by f.size desc, f.path desc, f.name desc limit 200",
                     "select count(*), sum(size) from r"],
    "file_ages": ["create table r as select d, sum(c) as c, sum(a) as a, sum(m) as m from ("
                  "select created / 86400 as d, sum(size) as c, 0 as a, 0 as m from files group by 1 union all "
                  "select accessed / 86400, 0, sum(size), 0 from files group by 1 union all "
                  "select modified / 86400, 0, 0, sum(size) from files group by 1) group by d",
                  "select count(*), sum(c) from r"],
    "group_by_pcre": ["create table r as select " + EXTENSION + " as v, sum(size) as size, sum(space) as space, count(*) as n"
                      " from files group by v", "select count(*), sum(size) from r"],
    "tree_summary": ["create table r as with own as materialized (select path, sum(size) as size, sum(space) as space, count(*) as n,"
                     " max(created) as c, max(modified) as m, max(accessed) as a from files group by path order by path)"
                     " select p.path, p.name, sum(t.size) as size, sum(t.space), sum(t.n), max(t.c), max(t.m), max(t.a), p.number"
                     " from paths p left join up u on u.above = p.number left join own t on t.path = u.number group by p.number",
                     "select count(*), sum(size) from r"],
}


def sqlite_answers(paths, files, database, rounds):
    connection = sqlite3.connect(database, isolation_level=None)
    connection.execute("pragma cache_size = -2000000")
    connection.execute("begin")
    connection.execute("create table paths (number integer primary key, parent integer, last integer, levels integer, name text, path text)")
    connection.execute("create table files (path integer, name text, size integer, space integer, created integer,"
                       " modified integer, accessed integer, owner integer)")
    for table, source in (("paths", paths), ("files", files)):
        with open(source, encoding="utf-8") as file:
            marks = ",".join("?" * len(next(file).split(",")))
            connection.executemany("insert into %s values (%s)" % (table, marks),
                                   (line.rstrip("\n").split(",") for line in file))
    connection.execute("create index folder on files (path)")
    # Every folder with each folder above it, itself included, so that trees are a join.
    connection.execute("create table up as with recursive u(number, above) as (select number, number from paths union all"
                       " select u.number, p.parent from u join paths p on p.number = u.above where p.parent > 0)"
                       " select above, number from u order by above, number")
    connection.execute("create index above on up (above, number)")
    connection.execute("commit")
    out = {}
    for name, (sql, check) in SQL.items():
        best = float("inf")
        for _ in range(min(rounds, 2)):
            connection.execute("drop table if exists r")
            begin = time.monotonic()
            connection.execute("begin")
            connection.execute(sql)
            connection.execute("commit")
            best = min(best, time.monotonic() - begin)
        out[name] = {"ms": best * 1000, "answer": " ".join(map(str, connection.execute(check).fetchone()))}
    return out


def duckdb_answers(paths, files, database, rounds, work):
    if not shutil.which("npm"):
        return {}
    folder = os.path.join(work, "duckdb")
    os.makedirs(folder, exist_ok=True)
    shutil.copy(os.path.join(HERE, "store", "package.json"), folder)
    shutil.copy(os.path.join(HERE, "census", "duckdb.mjs"), folder)
    if subprocess.run(["npm", "install", "--silent", "--no-audit", "--no-fund"], cwd=folder,
                      stdout=subprocess.DEVNULL).returncode:
        print("npm install failed: no figures of DuckDB", file=sys.stderr)
        return {}
    return json.loads(subprocess.check_output(["node", "duckdb.mjs", paths, files, database, str(rounds)], cwd=folder))


def our_answers(server, census, rounds, work):
    return json.loads(subprocess.check_output([server, "--census", census, "--rounds", str(rounds), "--work", work, "--custom",
                                               os.path.join(HERE, "census", "reports.py")]))


def forget_indexes(census):
    folder, name = os.path.split(census)
    for entry in os.listdir(folder):
        if entry.startswith(name + ":"):
            os.unlink(os.path.join(folder, entry))


def scale_table(options, work):
    """Milliseconds of each report for three sizes, and nanoseconds a row."""
    out = ["", "| Report, ms (ns a row) | 500 thousand | 5 million | 50 million |", "|---|---|---|---|"]
    columns = []
    for files in (500000, 5000000, 50000000):
        census = os.path.join(work, "scale.smf")
        subprocess.check_call([options.maker, census, "-", "-", "--files", str(files)])
        forget_indexes(census)
        answers = our_answers(options.server, census, 3, work)
        columns.append((files, answers))
        os.unlink(census)
        forget_indexes(census)
    for name in ["file_index_build", *TITLES]:
        cells = ["%.1f (%.1f)" % (a[name]["ms"], a[name]["ms"] * 1e6 / n) for n, a in columns]
        out.append("| %s | %s |" % (name, " | ".join(cells)))
    out.append("| peak of memory, MB | %s |" % " | ".join("%.0f" % a["memory"]["ms"] for _, a in columns))
    return out


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--server", required=True)
    parser.add_argument("--maker", required=True)
    parser.add_argument("--files", type=int, default=5000000)
    parser.add_argument("--rounds", type=int, default=5)
    parser.add_argument("--scale", action="store_true")
    parser.add_argument("--work", help="folder for the files; kept when given")
    parser.add_argument("--markdown", help="write the table into this file, between its headings")
    options = parser.parse_args()
    work = options.work or tempfile.mkdtemp()
    os.makedirs(work, exist_ok=True)
    os.environ["TZ"] = "UTC"
    path = lambda name: os.path.join(work, name)
    try:
        if not os.path.exists(path("census.smf")):
            subprocess.check_call([options.maker, path("census.smf"), path("paths.csv"), path("files.csv"), "--files",
                                   str(options.files)])
        forget_indexes(path("census.smf"))
        ours = our_answers(options.server, path("census.smf"), options.rounds, work)
        for name in ("duck.db", "lite.db"):
            if os.path.exists(path(name)):
                os.unlink(path(name))
        duck = duckdb_answers(path("paths.csv"), path("files.csv"), path("duck.db"), options.rounds, work)
        lite = sqlite_answers(path("paths.csv"), path("files.csv"), path("lite.db"), options.rounds)
        scale = scale_table(options, work) if options.scale else []
    finally:
        if not options.work:
            shutil.rmtree(work)

    out = ["## Reports beside DuckDB and SQLite", "",
           "%d files in 54,325 folders, one thread, warm, best of %d; milliseconds, from the opening of the census to the"
           % (options.files, options.rounds),
           "commit of the result rows. A ratio below 1 means that the report is faster.", "",
           "| Report | quillsrv | DuckDB | ratio | SQLite | ratio |", "|---|---|---|---|---|---|"]
    differing = []
    for name, title in TITLES.items():
        cells = ["%.1f" % ours[name]["ms"]]
        for peer, label in ((duck, "DuckDB"), (lite, "SQLite")):
            if name not in peer:
                cells += ["", ""]
                continue
            cells += ["%.1f" % peer[name]["ms"], "%.2f" % (ours[name]["ms"] / peer[name]["ms"])]
            if peer[name]["answer"] != ours[name]["answer"]:
                differing.append("%s: %s says %s, not %s" % (name, label, peer[name]["answer"], ours[name]["answer"]))
        out.append("| %s | %s |" % (title, " | ".join(cells)))
    out += ["", "| Index | |", "|---|---|"]
    for name, (title, unit) in OWN.items():
        out.append("| %s | %.2f %s |" % (title, ours[name]["ms"], unit))
    out.append("| peak of memory over all of it | %.0f MB |" % ours["memory"]["ms"])
    out += scale
    print("\n".join(out))
    for line in differing:
        print(line, file=sys.stderr)
    if options.markdown:
        text = open(options.markdown, encoding="utf-8").read() if os.path.exists(options.markdown) else ""
        before, _, behind = text.partition(out[0] + "\n")
        rest = behind.partition("\n## ")
        tail = "\n## " + rest[2] if rest[1] else ""
        if not before.endswith("\n\n") and before:
            before += "\n"
        with open(options.markdown, "w", encoding="utf-8") as file:
            file.write(before + "\n".join(out) + "\n" + tail)
    return 1 if differing else 0


if __name__ == "__main__":
    sys.exit(main())
