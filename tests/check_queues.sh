#!/usr/bin/env bash
# A served program with queues, timers and the log: records arrive in one dictionary a second, the timers tick, and
# SIGTERM under load ends the server within three seconds with nothing of the log lost. usage: SOURCE BUILD
. "$(dirname "$0")/checks.sh"
own_server "$work/bin"
mkdir "$work/ipe"

cat >"$work/ipe/startup.py" <<'PROGRAM'
class startup:

import ipe.thread
for name in ["logger", "pulse_1", "pulse_7", "load", "sleeper", "feeder"]:
    ipe.thread.queue(name, {"settings": {"out": name + ".out"}})
    ipe.thread.queue(name).set_threads(1)
ipe.thread.queue("load").set_threads(3)
ipe.thread.queue("load").set_priority("lower")
ipe.thread.queue("sleeper").enqueue({})
ipe.thread.queue("feeder").enqueue({})

class tools:

def say(file, text):
    out = open(file, "a")
    out.write(text + "\n")
    out.close()

class threads.logger:

import tools

def job(job, settings):
    tools.say(settings.out, "jobs " + str(len(job.logevents)))
    for record in job.logevents:
        tools.say(settings.out, record.name + " " + str(record.levelno) + " " + record.msg.split("\n")[0])

class threads.pulse_1:

import tools
import ipe.logger

def job(job, settings):
    tools.say(settings.out, "tick")
    log = ipe.logger.get()
    for i in [1, 2, 3]:
        log.addrecord({"name": "test", "levelno": 10, "pathname": "", "lineno": i, "excinfo": None, "msg": "record", "args": ()})

class threads.pulse_7:

import tools

def job(job, settings):
    tools.say(settings.out, "tick")

class threads.sleeper:

def job(job, settings):
    timeout().sleep(600000)

class threads.load:

def job(job, settings):
    if job.number == 1000: raise Wrong, "on purpose"
    i = 0
    while i < 20:
        i = i + 1

class threads.feeder:

import ipe.thread

def job(job, settings):
    queue = ipe.thread.queue("load")
    i = 0
    while True:
        i = i + 1
        if ipe.thread.queue().load.waiting < 5000:
            queue.enqueue({"number": i})
PROGRAM

(cd "$work/bin" && exec ./quillsrv --standalone) >"$work/out" 2>"$work/err" </dev/null &
pid=$!
for _ in $(seq 300); do
  [ "$(grep -c '^jobs 3$\|^jobs 4$' "$work/bin/logger.out" 2>/dev/null)" -ge 3 ] 2>/dev/null && break
  sleep 0.1
done
begin=$(date +%s%N)
kill -TERM "$pid"
wait "$pid"
code=$?
pid=
spent=$((($(date +%s%N) - begin) / 1000000))

fail() { echo "FAILED: $1"; head -40 "$work/bin/"*.out "$work/err"; exit 1; }
[ "$code" -eq 0 ] || fail "exit code $code"
[ "$spent" -lt 3000 ] || fail "it took $spent ms to end"
ticks=$(grep -c tick "$work/bin/pulse_1.out")
[ "$ticks" -ge 3 ] || fail "$ticks ticks"
[ "$(grep -c tick "$work/bin/pulse_7.out")" -eq $(((ticks + 7) / 8)) ] || fail "the slow timer's ticks beside $ticks"
# Every batch holds what one tick logged; the load's error joined one of them.
[ "$(grep -c '^jobs 3$\|^jobs 4$' "$work/bin/logger.out")" -ge 3 ] || fail "the batches of the log"
grep -q '^dev 40 Queue load: Wrong: on purpose$' "$work/bin/logger.out" || fail "the error of a job is not in the log"
# What the last second logged went to the queue or, at the end, to the debug stream.
served=$(grep -c '^test 10 record$' "$work/bin/logger.out")
left=$(grep -c 'test 10 (.*): record$' "$work/err")
whole=$((served + left))
# A machine with a system log has them there. The last tick may have been cut short,
# and the records of a log job that was are written out again.
[ -w /dev/log ] || { [ "$whole" -le $((ticks * 3 + 4)) ] && [ "$whole" -ge $((ticks * 3 - 3)) ]; } || fail "of $((ticks * 3)) records $served were served and $left written out"
echo "$ticks ticks, $served records served, $left written at the end; ended in $spent ms"
