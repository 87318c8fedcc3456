#!/usr/bin/env bash
# The small server of ipe/serve.py on a free port of this machine: the line protocol, HTTP, peers that misbehave, and
# SIGTERM under load within three seconds with the log written. usage: SOURCE BUILD
. "$(dirname "$0")/checks.sh"
own_server "$work/bin"
ln -s "$(cd "$1" && pwd)/ipe" "$work/ipe"

timeout 60 python3 - "$work" <<'PROGRAM'
import json, select, signal, socket, subprocess, sys, threading, time

work = sys.argv[1]
log, failures = work + "/serve.log", []
# Standard error is a socket, as under a service manager: the file gets its records all the same.
errors = socket.socketpair()
server = subprocess.Popen([work + "/bin/quillsrv", "--serve", "--port", "0", "--timeout", "500", "--log", log],
                          stdout=subprocess.PIPE, stderr=errors[0].fileno(), stdin=subprocess.DEVNULL, text=True)
port = int(server.stdout.readline().rstrip("/\n").rsplit(":", 1)[1])

def connect(): return socket.create_connection(("127.0.0.1", port), 5)
def rest(peer):
    data = b""
    try:
        while piece := peer.recv(65536): data += piece
    except ConnectionError:
        pass
    return data.decode()
def ask(text, coding="utf-8"):
    with connect() as peer:
        peer.sendall(text.encode(coding))
        return rest(peer)
def same(what, got, want):
    if got != want: failures.append(f"{what}: {got!r:.300}, wanted {want!r:.100}")
def http(text):
    head, _, body = ask(text + "Connection: close\r\n\r\n").partition("\r\n\r\n")
    return head.split("\r\n")[0], dict(line.split(": ", 1) for line in head.split("\r\n")[1:]), body

same("lines", ask("ping\nPING\r\necho a  b\necho / HTTP/1.1\nwhat\nquit\n"), "pong\npong\na  b\n/ HTTP/1.1\nerror: unknown word, ask help\nbye\n")
same("the longest line", ask("echo " + "x" * 8187 + "\nquit\n"), "x" * 8187 + "\nbye\n")
status, headers, body = http("GET / HTTP/1.1\r\nHost: a\r\n")
same("page", (status, headers["Content-Length"], body[:15]), ("HTTP/1.1 200 OK", str(len(body)), "<!doctype html>"))
status, headers, body = http("GET /status.json?a=b HTTP/1.1\r\n")
same("status", (headers["Content-Type"], json.loads(body)["refused"]), ("application/json", 0))
status, headers, body = http("HEAD / HTTP/1.1\r\n")
same("HEAD", (status, int(headers["Content-Length"]) > 100, body), ("HTTP/1.1 200 OK", True, ""))
for line, code in [("GET /no HTTP/1.1", "404"), ("POST / HTTP/1.1", "405"), ("GET  / HTTP/1.1", "400"), ("GET / HTTP/1.x", "400"),
                   ("GET / HTTP/1.1" + "\r\na: b" * 101, "431")]:
    same(line, http(line + "\r\n")[0].split(" ")[1], code)

# More misbehaving peers than there are workers; each worker then serves as before.
for _ in range(70):
    same("a line too long", ask("x" * 8300), "")
    same("a header too long", ask("GET / HTTP/1.1\r\na: " + "b" * 8300), "")
    same("after it", ask("ping\nGET /no HTTP/1.1\r\nConnection: close\r\n\r\n")[:18], "pong\nHTTP/1.1 404 ")
same("no text", ask("\xff\xfe\n", "latin-1"), "")
begin = time.monotonic()
same("a silent peer", ask(""), "")
same("its time", 0.4 < time.monotonic() - begin < 2, True)
with connect() as peer:
    sent = 0
    while sent < 200 and not select.select([peer], [], [], 0.01)[0]: sent += peer.send(b"e")
same("a slow peer", sent < 200, True)
time.sleep(1.2)  # until the log has all of this

answers, wrong = [0] * 100, []
def load(i):
    try:
        with connect() as peer:
            stream, line = peer.makefile("rb"), b"pong\n"
            while line == b"pong\n":
                if answers[i] % 20 == 0: peer.sendall(b"ping\n" * 20)
                line = stream.readline()
                answers[i] += 1
            if not b"pong\n".startswith(line): wrong.append(line)
    except ConnectionError:
        pass

loads = [threading.Thread(target=load, args=(i,)) for i in range(100)]
for each in loads: each.start()
time.sleep(1)
begin = time.monotonic()
server.send_signal(signal.SIGTERM)
same("exit code", server.wait(), 0)
spent = time.monotonic() - begin
same("prompt end", spent < 3, True)
for each in loads: each.join()
same("wrong answers", wrong, [])
same("answers under load", sum(answers) > 1000, True)
text = open(log).read()
for record, least in [("serves on 127.0.0.1", 1), ("sent a line without end", 140), ("no UTF-8", 1), ("slow connection", 1)]:
    same(record, text.count(record) >= least, True)
same("errors in the log", [line for line in text.split("\n") if " error " in line], [])
print("\n".join("FAILED " + each for each in failures) or f"{sum(answers)} answers under load; ended in {spent * 1000:.0f} ms")
sys.exit(bool(failures))
PROGRAM
