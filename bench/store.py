#!/usr/bin/env python3
"""Measures the store beside DuckDB and SQLite on the same rows in one run and prints the table.

usage: store.py --bench PATH [--files N] [--rounds N] [--work DIR] [--markdown FILE]

One thread, warm: each question is asked --rounds times of an open file and the best counts. The answers must agree.
DuckDB comes as a package of npm (bench/store/package.json); without npm its column stays empty.
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
    "sums": "sum of size and of space",
    "largest": "200 largest with a filter on time, owner and extension",
    "extensions": "count, size and space by lower-cased extension",
    "days": "size by day of modification",
    "substring": "substring of the name, case exact",
    "substring_nocase": "substring of the name, any case",
    "regex": "regular expression on the name",
    "folder": "all rows of one directory",
}
# The text behind the last full stop; SQLite has no function for it.
EXTENSION = "case when instr(name, '.') then lower(replace(name, rtrim(name, replace(name, '.', '')), '')) else '' end"
SQL = {
    "sums": "select sum(size), sum(space) from files",
    "largest": "select size, name from files where modified >= 1420070400 and owner like '%7' and lower(name) like '%.jpg'"
               " order by size desc, rowid limit 200",
    "extensions": "select " + EXTENSION + " as e, count(*), sum(size), sum(space) from files group by e order by e",
    "days": "select modified / 86400, sum(size) as s from files group by 1 having s <> 0",
    "substring": "select count(*) from files where instr(name, 'invoice')",
    "substring_nocase": "select count(*) from files where name like '%photo%'",
    "folder": "select count(*), sum(size), sum(length(name)) from files where path = 31337",
}


def sqlite_answers(csv, database, rounds):
    out = {}
    begin = time.monotonic()
    connection = sqlite3.connect(database)
    connection.execute("pragma synchronous = off")
    connection.execute("pragma cache_size = -2000000")
    connection.execute("create table files (path integer, name text, size integer, space integer, created integer,"
                       " modified integer, accessed integer, owner text)")
    with open(csv, encoding="utf-8") as file:
        next(file)
        connection.executemany("insert into files values (?, ?, ?, ?, ?, ?, ?, ?)",
                               (line.rstrip("\n").split(",") for line in file))
    connection.execute("create index folder on files (path)")
    connection.commit()
    out["load"] = {"ms": (time.monotonic() - begin) * 1000, "answer": ""}
    for name, sql in SQL.items():
        best = float("inf")
        for _ in range(min(rounds, 2)):
            begin = time.monotonic()
            rows = connection.execute(sql).fetchall()
            best = min(best, time.monotonic() - begin)
        if name == "days":
            check = 0
            for _, size in rows:
                check ^= size
            answer = "%d days %d" % (len(rows), check)
        elif name in ("extensions", "largest"):
            answer = "".join(" ".join(map(str, row)) + "\n" for row in rows)
        else:
            answer = " ".join(map(str, rows[0]))
        out[name] = {"ms": best * 1000, "answer": answer}
    return out


def duckdb_answers(csv, database, rounds, work):
    if not shutil.which("npm"):
        return {}
    folder = os.path.join(work, "duckdb")
    os.makedirs(folder, exist_ok=True)
    for name in ("package.json", "duckdb.mjs"):
        shutil.copy(os.path.join(HERE, "store", name), folder)
    if subprocess.run(["npm", "install", "--silent", "--no-audit", "--no-fund"], cwd=folder,
                      stdout=subprocess.DEVNULL).returncode:
        print("npm install failed: no figures of DuckDB", file=sys.stderr)
        return {}
    return json.loads(subprocess.check_output(["node", "duckdb.mjs", csv, database, str(rounds)], cwd=folder))


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--bench", required=True)
    parser.add_argument("--files", type=int, default=5000000)
    parser.add_argument("--rounds", type=int, default=5)
    parser.add_argument("--work", help="folder for the files; kept when given")
    parser.add_argument("--markdown", help="write the table into this file, between its headings")
    options = parser.parse_args()
    work = options.work or tempfile.mkdtemp()
    os.makedirs(work, exist_ok=True)
    os.environ["TZ"] = "UTC"
    files = ["--files", str(options.files)]
    path = lambda name: os.path.join(work, name)
    run = lambda *arguments: subprocess.check_output([options.bench, *arguments])
    try:
        lz4 = json.loads(run("write", path("lz4.smf"), *files))
        zlib = json.loads(run("write", path("zlib.smf"), "--zlib", *files))
        if not os.path.exists(path("files.csv")):
            run("csv", path("files.csv"), *files)
        ours = json.loads(run("query", path("lz4.smf"), "--rounds", str(options.rounds)))
        for name in ("duck.db", "lite.db"):
            if os.path.exists(path(name)):
                os.unlink(path(name))
        duck = duckdb_answers(path("files.csv"), path("duck.db"), options.rounds, work)
        lite = sqlite_answers(path("files.csv"), path("lite.db"), options.rounds)
        duck_size, lite_size = (os.path.getsize(path(name)) if os.path.exists(path(name)) else 0
                                for name in ("duck.db", "lite.db"))
    finally:
        if not options.work:
            shutil.rmtree(work)

    out = ["## Store beside DuckDB and SQLite", "",
           "%d files in 54,325 folders, one thread, warm, best of %d; milliseconds. A ratio below 1 means that the store"
           % (options.files, options.rounds), "is faster.", "",
           "| Question | store | DuckDB | ratio | SQLite | ratio |", "|---|---|---|---|---|---|"]
    differing = []
    for name, title in TITLES.items():
        cells = ["%.1f" % ours[name]["ms"]]
        for peer, label in ((duck, "DuckDB"), (lite, "SQLite")):
            if name not in peer:
                cells += ["", ""]
                continue
            cells += ["%.1f" % peer[name]["ms"], "%.2f" % (ours[name]["ms"] / peer[name]["ms"])]
            if peer[name]["answer"] != ours[name]["answer"]:
                differing.append("%s: %s answers differently" % (name, label))
        out.append("| %s | %s |" % (title, " | ".join(cells)))
    out += ["", "| Writing | seconds | bytes a row |", "|---|---|---|"]
    for label, figures in (("store, LZ4", lz4), ("store, zlib", zlib)):
        out.append("| %s | %.2f | %.1f |" % (label, figures["seconds"], figures["bytes"] / figures["rows"]))
    for label, peer, size in (("DuckDB, from CSV", duck, duck_size), ("SQLite, from CSV, with an index", lite, lite_size)):
        if "load" in peer:
            out.append("| %s | %.2f | %.1f |" % (label, peer["load"]["ms"] / 1000, size / options.files))
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
