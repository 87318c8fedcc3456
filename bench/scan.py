#!/usr/bin/env python3
"""Measures quillscan beside ncdu, find and duc on the same trees in one run and prints the tables.

usage: scan.py --scan PATH --dump PATH [--rounds N] [--files N] [--dir DIR] [--work DIR] [--markdown FILE]

Two trees: DIR (default /usr) and a generated one of N files (default 1,000,000) under the work folder, removed afterwards.
The first round warms the caches and does not count; the others run interleaved, and the best counts: by the clock, and
in processor seconds, user and system of the whole process. The census is written beside the generated tree and
synchronised to disk; ncdu and find write to /dev/null. Tools that are not installed are left out.
"""

import argparse
import os
import random
import re
import shutil
import subprocess
import sys
import tempfile
import time

FIELDS = r"%p\0%y\0%s\0%b\0%n\0%i\0%D\0%m\0%U\0%G\0%T@\0%A@\0%C@\0%l\0"


def make_tree(root, files):
    """Always the same: folders of 20 to 180 files on three levels, names of several kinds, sizes without blocks."""
    source = random.Random(20240101)
    extensions = ["txt", "jpg", "py", "pdf", "log", "so", "html", "tar.gz", "xlsx", "mp4"]
    words = ["report", "photo", "draft", "invoice", "module", "backup", "index", "notes", "track", "sample"]
    made = folder = 0
    while made < files:
        path = os.path.join(root, "area%d" % (folder // 400), "team%d" % (folder // 20 % 20), "project%04d" % folder)
        os.makedirs(path)
        folder += 1
        begin = 1200000000 + source.randrange(500000000)
        for i in range(min(source.randrange(20, 181), files - made)):
            name = "%s_%05d.%s" % (source.choice(words), source.randrange(100000), source.choice(extensions))
            fd = os.open(os.path.join(path, "%d%s" % (i, name)), os.O_CREAT | os.O_WRONLY)
            os.ftruncate(fd, int(2 ** source.uniform(0, 24)))
            os.utime(fd, (begin + source.randrange(1000000), begin + source.randrange(1000000)))
            os.close(fd)
            made += 1


def run(command):
    """Seconds by the clock and of the processor."""
    begin = time.monotonic()
    process = subprocess.Popen(command, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    _, status, usage = os.wait4(process.pid, 0)
    process.returncode = os.waitstatus_to_exitcode(status)
    if process.returncode != 0:
        raise SystemExit("%s ended with %d" % (command, process.returncode))
    return time.monotonic() - begin, usage.ru_utime + usage.ru_stime, usage.ru_maxrss / 1024


def measure(commands, rounds):
    """For each command the best of each figure, memory its most."""
    best = {name: (float("inf"), float("inf"), 0.0) for name in commands}
    for turn in range(rounds + 1):
        for name, command in commands.items():
            wall, cpu, memory = run(command)
            if turn > 0:
                known = best[name]
                best[name] = (min(known[0], wall), min(known[1], cpu), max(known[2], memory))
    return best


def columns(dump, census):
    """{table: (rows, {column: bytes})} of a census."""
    tables, rows, column = {}, 0, None
    for line in subprocess.check_output([dump, census], text=True, errors="replace").splitlines():
        if match := re.match(r'table "(\w+)": (\d+) rows', line):
            rows = int(match[2])
            table = tables[match[1]] = (rows, {})
        elif match := re.match(r'  field \d+ "(\w+)".* codec (\w+)', line):
            column = "%s (%s)" % (match[1], match[2])
            table[1][column] = 0
        elif (match := re.search(r" (\d+) in the file$", line)) and tables:
            table[1][column] += int(match[1])
    return tables


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--scan", required=True)
    parser.add_argument("--dump", required=True)
    parser.add_argument("--rounds", type=int, default=5)
    parser.add_argument("--files", type=int, default=1000000)
    parser.add_argument("--dir", default="/usr")
    parser.add_argument("--work", help="folder for the tree and the files (default: a new one)")
    parser.add_argument("--markdown", help="write the tables into this file, between their headings")
    options = parser.parse_args()
    work = tempfile.mkdtemp(dir=options.work)
    out = ["## Scans", "",
           "Warm, best of %d interleaved runs; entries are directories and everything in them. `quillscan` with LZ4, its census"
           % options.rounds,
           "on disk at the end; the ratio is of clock times, below 1 `quillscan` with one thread is faster.", ""]
    try:
        tree = os.path.join(work, "tree")
        make_tree(tree, options.files)
        sizes, counts = [], {}
        for label, root in (("`%s`" % options.dir, options.dir), ("a tree of {:,} files".format(options.files), tree)):
            census, packed, index = (os.path.join(work, name) for name in ("lz4.smf", "zlib.smf", "duc.db"))
            commands = {
                "quillscan, 1 thread": [options.scan, "-x", "--threads", "1", "-o", census, root],
                "quillscan, 2 threads": [options.scan, "-x", "--threads", "2", "-o", census, root],
                "quillscan, 2 threads, zlib": [options.scan, "-x", "--compress", "zlib", "-o", packed, root],
                "ncdu -0 -x -o /dev/null": ["ncdu", "-0", "-x", "-o", "/dev/null", root],
                "find -printf, all fields": ["find", root, "-xdev", "-printf", FIELDS],
                "duc index -x": ["duc", "index", "-x", "-q", "-d", index, root],
            }
            commands = {name: command for name, command in commands.items() if shutil.which(command[0])}
            best = measure(commands, options.rounds)
            tables = columns(options.dump, packed)
            entries = tables["Path"][0] + tables["File"][0]
            counts[label] = (entries, tables)
            out += ["%s, {:,} entries:".format(entries) % label, "",
                    "| Scanner | seconds | entries a second | processor seconds | ratio | memory (MB) |", "|---|---|---|---|---|---|"]
            own = best["quillscan, 1 thread"][0]
            for name, (wall, cpu, memory) in best.items():
                out.append("| {} | {:.2f} | {:,.0f} | {:.2f} | {:.2f} | {:.0f} |".format(
                    name, wall, entries / wall, cpu, own / wall, memory))
            out.append("")
            for name, file in (("census, LZ4", census), ("census, zlib", packed), ("duc", index)):
                if os.path.exists(file):
                    sizes.append("| %s | %s | %.1f |" % (label, name, os.path.getsize(file) / entries))
                    os.unlink(file)
    finally:
        shutil.rmtree(work)
    out += ["| Tree | File | bytes an entry |", "|---|---|---|"] + sizes + [""]
    out += ["Columns of the census with zlib, bytes an entry, those above 0.02 in either tree:", "",
            "| Table | Column | %s |" % " | ".join(counts), "|---|---|---|---|"]
    first = next(iter(counts.values()))[1]
    for table, (_, fields) in first.items():
        for field in fields:
            shares = [tables[table][1].get(field, 0) / entries for entries, tables in counts.values()]
            if max(shares) > 0.02:
                out.append("| %s | %s | %s |" % (table, field, " | ".join("%.2f" % share for share in shares)))
    print("\n".join(out))
    if options.markdown:
        text = open(options.markdown, encoding="utf-8").read() if os.path.exists(options.markdown) else ""
        before, _, behind = text.partition(out[0] + "\n")
        rest = behind.partition("\n## ")
        if before and not before.endswith("\n\n"):
            before += "\n"
        with open(options.markdown, "w", encoding="utf-8") as file:
            file.write(before + "\n".join(out) + "\n" + ("\n## " + rest[2] if rest[1] else ""))


if __name__ == "__main__":
    sys.exit(main())
