#!/usr/bin/env python3
"""Measures the script queues inside a serving quillsrv and prints a table.

usage: queues.py --server PATH [--jobs N] [--rounds N] [--markdown FILE]

Throughput: one script thread puts N empty jobs into a queue that two workers serve with a function that returns at
once; the clock runs until the last job is taken. Latency: a job every 3 ms to an idle worker, from the call of
`enqueue` to the first line of the job. Log: records that one script thread adds, until the last call has returned.
The best of the rounds counts.
"""

import argparse
import os
import shutil
import subprocess
import tempfile

PROGRAM = """
class startup:

import ipe.thread
for name in ["empty", "late", "driver", "logger"]:
    ipe.thread.queue(name, {"module": "bench." + name})
ipe.thread.queue("empty").set_threads(2)
ipe.thread.queue("late").set_threads(1)
ipe.thread.queue("logger").set_threads(1)
ipe.thread.queue("driver").set_threads(1)
ipe.thread.queue("driver").enqueue({"jobs": JOBS, "rounds": ROUNDS})

class bench.empty:

def job(work):
    return

class bench.logger:

def job(work):
    for record in work.logevents:
        if record.name == "dev":
            out = open("errors", "a")
            out.write(record.msg + "\\n")
            out.close()
            sys_exit()

class bench.late:

times = []

def job(work):
    times.append(timer(work.sent))
    if len(times) == work.count:
        global_set("late", times)
        _G.times = []

class bench.driver:

import ipe.thread
import ipe.logger

def pause(milliseconds):
    timeout().sleep(milliseconds)

def say(name, value):
    out = open("figures", "a")
    out.write(name + " " + str(value) + "\\n")
    out.close()

def throughput(count):
    queue = ipe.thread.queue("empty")
    work = {}
    begin = timer()
    i = 0
    while i < count:
        queue.enqueue(work)
        i = i + 1
    put = timer(begin)
    while ipe.thread.queue().empty.waiting > 0:
        pass
    done = timer(begin)
    if count == JOBS:
        say("put", 1.0 * count / put)
        say("jobs", 1.0 * count / done)

def latency(count):
    queue = ipe.thread.queue("late")
    i = 0
    while i < count:
        pause(3)
        queue.enqueue({"sent": timer(), "count": count})
        i = i + 1
    while not "late" in global_get():
        pause(10)
    times = global_get("late")
    global_delete("late")
    times.sort()
    say("latency", times[250] * 1000000.0)

def records(count):
    log = ipe.logger.get()
    record = {"name": "bench", "levelno": 10, "pathname": "x.py", "lineno": 1, "excinfo": None, "msg": "text", "args": ()}
    begin = timer()
    i = 0
    while i < count:
        log.addrecord(record)
        i = i + 1
    say("records", 1.0 * count / timer(begin))

def job(work):
    throughput(20000)
    i = 0
    while i < work.rounds:
        throughput(work.jobs)
        records(200000)
        pause(1500)
        i = i + 1
    for i in [1, 2, 3]:
        latency(501)
    for line in open("/proc/self/status").readlines():
        if line.match("VmHWM:*"): say("memory", line.split(":")[1].strip().split(" ")[0])
    sys_exit()
"""


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--server", required=True)
    parser.add_argument("--jobs", type=int, default=500000)
    parser.add_argument("--rounds", type=int, default=5)
    parser.add_argument("--markdown", help="replace the chapter on queues in this file")
    options = parser.parse_args()
    with tempfile.TemporaryDirectory() as folder:
        os.mkdir(os.path.join(folder, "bin"))
        os.mkdir(os.path.join(folder, "ipe"))
        server = os.path.join(folder, "bin", "quillsrv")
        shutil.copy(options.server, server)
        with open(os.path.join(folder, "ipe", "startup.py"), "w", encoding="utf-8") as file:
            file.write(PROGRAM.replace("JOBS", str(options.jobs)).replace("ROUNDS", str(options.rounds)))
        subprocess.run([server, "--standalone"], check=True, timeout=600, stdin=subprocess.DEVNULL)
        if os.path.exists(os.path.join(folder, "bin", "errors")):
            with open(os.path.join(folder, "bin", "errors"), encoding="utf-8") as file:
                raise SystemExit(file.read())
        figures = {}
        with open(os.path.join(folder, "bin", "figures"), encoding="utf-8") as file:
            for line in file:
                name, value = line.split()
                figures.setdefault(name, []).append(float(value))
    text = "\n".join([
        "## Queues", "",
        "One script thread queues %d empty jobs for two workers; best of %d rounds (`bench/queues.py`)."
        % (options.jobs, options.rounds), "",
        "| Measure | quillsrv | Aim |", "|---|---|---|",
        "| jobs queued and taken a second | %d | 300000 |" % max(figures["jobs"]),
        "| jobs queued a second | %d | |" % max(figures["put"]),
        "| median from `enqueue` to the job's first line, idle worker | %.1f us | 30 us |" % min(figures["latency"]),
        "| log records taken a second | %d | 200000 |" % max(figures["records"]),
        "| most memory resident meanwhile | %d MB | |" % (max(figures["memory"]) / 1024), ""])
    print(text)
    if options.markdown:
        with open(options.markdown, encoding="utf-8") as file:
            old = file.read()
        begin = old.find("## Queues\n")
        if begin < 0:
            new = old.rstrip("\n") + "\n\n" + text
        else:
            end = old.find("\n## ", begin)
            new = old[:begin] + text + (old[end:] if end >= 0 else "")
        with open(options.markdown, "w", encoding="utf-8") as file:
            file.write(new)


if __name__ == "__main__":
    main()
