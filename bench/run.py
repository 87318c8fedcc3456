#!/usr/bin/env python3
"""Measures quillsrv beside CPython in one run and prints the tables.

usage: run.py --server PATH [--pools PATH] [--rounds N] [--only NAME] [--markdown FILE]

Every pair of programs does equal work and must print equal output. Pairs run interleaved on one processor core; the
figure is the best of the rounds, of user and system time of the whole process, start included.
"""

import argparse
import datetime
import math
import os
import platform
import re
import shutil
import subprocess
import sys
import tempfile
import time

HERE = os.path.dirname(os.path.abspath(__file__))
PROGRAMS = os.path.join(HERE, "programs")
# What the mean counts, and what is shown apart.
MEAN = ["integer_loop", "nested_loops", "calls", "recursion", "methods", "attributes", "dicts", "lists", "sieve",
        "strings", "words", "grouping"]
APART = ["exceptions", "sort_by_locale"]


def pinned(command):
    """The command on the last core that this process may use, where that can be asked for."""
    if shutil.which("taskset"):
        return ["taskset", "-c", str(max(os.sched_getaffinity(0)))] + command
    return command


def read_text(path):
    """The text of a file, empty when there is none."""
    if not os.path.exists(path):
        return ""
    with open(path, encoding="utf-8") as file:
        return file.read()


def run(command, env):
    """Standard output and processor seconds of one run."""
    with tempfile.TemporaryFile() as errors:
        process = subprocess.Popen(pinned(command), env=env, stdout=subprocess.PIPE, stderr=errors)
        text = process.stdout.read()
        _, status, usage = os.wait4(process.pid, 0)
        process.returncode = os.waitstatus_to_exitcode(status)
        if process.returncode != 0:
            errors.seek(0)
            raise SystemExit("%s ended with %d: %r" % (command, process.returncode, errors.read()))
    return text.replace(b"\r", b""), usage.ru_utime + usage.ru_stime


def recorded_rows(path, count=200000):
    """Rows of files as a listing tells them: name, size, allocated, owner, year, tree. Always the same."""
    seed = 20240101
    extensions = ["so", "py", "txt", "h", "cpp", "gz", "html", "png", "mo", "conf"] + ["x%d" % i for i in range(190)]

    def number(below):
        nonlocal seed
        seed = (seed * 6364136223846793005 + 1442695040888963407) % 2**64
        return (seed >> 33) % below

    with open(path, "w", encoding="utf-8") as file:
        for i in range(count):
            name = "file%d" % i
            if number(10):
                name += "." + extensions[min(number(200), number(200))]
            size = number(1 << (4 + number(24))) + 1
            space = (size + 4095) // 4096 * 4096
            row = (name, size, space, [0, 0, 0, 1000, 33, 1001][number(6)], 2008 + number(17), "tree%d" % number(12))
            file.write("\t".join(map(str, row)) + "\n")


def programs(server, names, rounds, env):
    """Rows of (name, our seconds, CPython's seconds)."""
    rows = []
    for name in names:
        ours = [server, "--custom", os.path.join(PROGRAMS, name + ".py")]
        theirs = [sys.executable, os.path.join(PROGRAMS, name + ".cpython.py")]
        best = [math.inf, math.inf]
        outputs = [None, None]
        for _ in range(rounds):
            for side, command in enumerate([ours, theirs]):
                text, seconds = run(command, env)
                best[side] = min(best[side], seconds)
                outputs[side] = text
        if outputs[0] != outputs[1]:
            raise SystemExit("%s: outputs differ\nours: %r\nCPython: %r" % (name, outputs[0][-500:], outputs[1][-500:]))
        rows.append((name, best[0], best[1]))
        print("  %-16s %8.3f %8.3f %7.2f" % (name, best[0], best[1], best[0] / best[1]), flush=True)
    return rows


def geometric_mean(rows):
    return math.exp(sum(math.log(ours / theirs) for _, ours, theirs in rows) / len(rows))


def generated_source(path, lines):
    """A source of many modules, with what sources hold: functions, calls, strings, comments, blank lines."""
    body = ['def function_%d(first, second=%d, *rest):', '    "Adds up what it is given."', "    total = first + second",
            "    for item in rest:", "        if item > total and item < 1000:", "            total = total + item * 2",
            '        elif item in [1, 2, 3]: print "item", item, total', "    # the rest of the work",
            '    table = {"total": total, "name": "function"}', "    return table.total", ""]
    written = 0
    with open(path, "w", encoding="utf-8") as file:
        file.write('class startup_custom:\n\ninterpreter("load", fs("get_env", "BENCH_OUTPUT"))\nimport bench_output\n'
                   'started = timer()\ninterpreter("load", fs("get_env", "BENCH_SOURCE"))\nprint timer(started)\n')
    with open(path + ".lines", "w", encoding="utf-8") as file:
        while written < lines:
            if written % 1100 == 0:
                file.write("class bench.module_%d:\n" % written)
                written += 1
            for line in body:
                file.write((line % (written, written) if "%d" in line else line) + "\n")
                written += 1
    return written


def measure_loading(server, env, folder, rounds):
    path = os.path.join(folder, "loading.py")
    lines = generated_source(path, 110000)
    env = dict(env, BENCH_SOURCE=path + ".lines")
    best = min(float(run([server, "--custom", path], env)[0].split()[-1]) for _ in range(rounds))
    return lines, best


def measure_literal(server, env, folder, rounds):
    """Seconds of `eval` and of `ast.literal_eval` for one text of 5 MB, without start and reading."""
    item = "{'name': 'file %d', 'sizes': [%d, %d.5, -%d], 'flags': (True, None, 'it\\'s'), 'more': {'k': 'v'}}"
    items, size = [], 0
    while size < 5 * 1024 * 1024:
        items.append(item % (len(items), len(items) * 7919, len(items), len(items)))
        size += len(items[-1]) + 2
    text = "[" + ", ".join(items) + "]"
    data = os.path.join(folder, "literal.txt")
    with open(data, "w", encoding="utf-8") as file:
        file.write(text)
    ours = os.path.join(folder, "literal.py")
    with open(ours, "w", encoding="utf-8") as file:
        file.write('class startup_custom:\n\ninterpreter("load", fs("get_env", "BENCH_OUTPUT"))\nimport bench_output\n'
                   'file = open(fs("get_env", "BENCH_LITERAL"))\ntext = file.readline()\nstarted = timer()\n'
                   "value = eval(text)\nprint len(value), timer(started)\n")
    theirs = os.path.join(folder, "literal.cpython.py")
    with open(theirs, "w", encoding="utf-8") as file:
        file.write("import ast, os, time\ntext = open(os.environ['BENCH_LITERAL']).readline()\n"
                   "started = time.perf_counter()\nvalue = ast.literal_eval(text)\n"
                   "print(len(value), time.perf_counter() - started)\n")
    env = dict(env, BENCH_LITERAL=data)
    best = [math.inf, math.inf]
    for _ in range(rounds):
        for side, command in enumerate([[server, "--custom", ours], [sys.executable, theirs]]):
            count, seconds = run(command, env)[0].split()
            if int(count) != len(items):
                raise SystemExit("the literal came back with %d items" % int(count))
            best[side] = min(best[side], float(seconds))
    return len(text), best[0], best[1]


def measure_start(server, env, folder, rounds):
    """Milliseconds from starting the process to its first script line, and the most MB resident, asked from inside:
    what the system counts for a child includes the parent's memory before the new program is loaded."""
    path = os.path.join(folder, "start.py")
    with open(path, "w", encoding="utf-8") as file:
        file.write('class startup_custom:\n\nout = open("/dev/stdout", "a")\nout.write("first\\n")\nout.close()\n'
                   'for line in open("/proc/self/status").readlines():\n    if line.match("VmHWM:*"):\n'
                   '        out = open("/dev/stdout", "a")\n        out.write(line)\n        out.close()\n')
    best, memory = math.inf, 0
    for _ in range(max(rounds * 4, 20)):
        started = time.perf_counter()
        with subprocess.Popen([server, "--custom", path], env=env, stdout=subprocess.PIPE) as process:
            process.stdout.readline()
            best = min(best, time.perf_counter() - started)
            memory = max(memory, int(process.stdout.read().split()[1]))
    return best * 1000, memory / 1024


def measure_pools(path):
    """Rows of (what, our nanoseconds, malloc's nanoseconds) of the pools benchmark."""
    text = subprocess.run(pinned([path, "--benchmark_format=csv", "--benchmark_min_time=0.2"]), check=True,
                          stdout=subprocess.PIPE, stderr=subprocess.DEVNULL).stdout.decode()
    times = {}
    for line in text.splitlines():
        match = re.match(r'"(\w+?)_(pools|malloc)(/\d+)?[^"]*",\d+,([\d.e+]+),([\d.e+]+)', line)
        if match:
            times.setdefault(match.group(1) + (match.group(3) or ""), {})[match.group(2)] = float(match.group(4))
    return [(name, pair["pools"], pair["malloc"]) for name, pair in times.items() if len(pair) == 2]


def machine():
    model = "unknown processor"
    with open("/proc/cpuinfo", encoding="utf-8") as file:
        for line in file:
            if line.startswith("model name"):
                model = line.split(":", 1)[1].strip()
                break
    return "%s, %d cores, Linux %s, CPython %s" % (model, os.cpu_count(), platform.release(), platform.python_version())


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--server", required=True)
    parser.add_argument("--pools", help="the built bench_pools")
    parser.add_argument("--rounds", type=int, default=5)
    parser.add_argument("--only", action="append", help="run this program alone")
    parser.add_argument("--markdown", help="write the tables to this file")
    options = parser.parse_args()
    server = os.path.abspath(options.server)
    out = []

    def say(text=""):
        print(text, flush=True)
        out.append(text)

    with tempfile.TemporaryDirectory() as folder:
        rows_path = os.path.join(folder, "rows.txt")
        recorded_rows(rows_path)
        env = dict(os.environ, BENCH_ROWS=rows_path, BENCH_OUTPUT=os.path.join(PROGRAMS, "output.py"), LC_ALL="C.UTF-8",
                   PYTHONDONTWRITEBYTECODE="1")
        print("program            quillsrv  CPython   ratio")
        if options.only:
            programs(server, options.only, options.rounds, env)
            return
        mean_rows = programs(server, MEAN, options.rounds, env)
        apart_rows = programs(server, APART, options.rounds, env)
        print()
        say("# Benchmarks")
        say()
        say("%s; %s." % (datetime.date.today().isoformat(), machine()))
        say()
        say("Best of %d interleaved runs on one core: processor seconds of the whole process. A ratio below 1 means that"
            % options.rounds)
        say("quillsrv is faster. Written by `script/bench --markdown docs/benchmarks.md`.")
        say()
        say("## Programs beside CPython")
        say()
        say("| Program | quillsrv (s) | CPython (s) | Ratio |")
        say("|---|---|---|---|")
        for name, ours, theirs in mean_rows:
            say("| %s | %.3f | %.3f | %.2f |" % (name, ours, theirs, ours / theirs))
        say("| **geometric mean** | | | **%.2f** |" % geometric_mean(mean_rows))
        say()
        say("Apart from the mean:")
        say()
        say("| Program | quillsrv (s) | CPython (s) | Ratio |")
        say("|---|---|---|---|")
        for name, ours, theirs in apart_rows:
            say("| %s | %.3f | %.3f | %.2f |" % (name, ours, theirs, ours / theirs))
        say()
        say("## Loading, literals, start")
        say()
        say("| Measure | quillsrv | Compared with |")
        say("|---|---|---|")
        lines, seconds = measure_loading(server, env, folder, options.rounds)
        say("| loading a source of %d lines | %d lines a second | aim: 100000 |" % (lines, lines / seconds))
        size, ours, theirs = measure_literal(server, env, folder, min(options.rounds, 3))
        say("| `eval` of a literal of %.1f MB | %.3f s | `ast.literal_eval`: %.3f s, ratio %.2f |"
            % (size / 1e6, ours, theirs, ours / theirs))
        start, memory = measure_start(server, env, folder, options.rounds)
        say("| start to the first script line | %.1f ms | aim: 15 ms |" % start)
        say("| resident memory of that run | %.1f MB | aim: 20 MB |" % memory)
        if options.pools:
            say()
            say("## Pools")
            say()
            say("Allocate and free on a worker thread, beside the C library, nanoseconds for each pair of calls.")
            say()
            say("| Pattern | pools | malloc | Ratio |")
            say("|---|---|---|---|")
            for name, ours, theirs in measure_pools(options.pools):
                say("| %s | %.1f | %.1f | %.2f |" % (name, ours, theirs, ours / theirs))
    if options.markdown:
        # What stands behind the tables of this program comes from others and stays.
        text = read_text(options.markdown)
        others = [at for at in (text.find("\n## " + name) for name in ("Store", "Queues", "Line server", "Scans", "XML", "Fuzz")) if at >= 0]
        heading, kept = "", text[min(others):] if others else ""
        with open(options.markdown, "w", encoding="utf-8") as file:
            file.write("\n".join(out) + "\n" + heading + kept)


if __name__ == "__main__":
    main()
