#!/usr/bin/env python3
"""Measures the line server of ipe/serve.py beside one of Python's asyncio: short requests a second over loopback.

usage: serve.py --server PATH --client PATH [--connections N] [--seconds S] [--markdown FILE]

Both answer "pong" to "ping"; the same client asks both, one after the other, in three rounds; the best counts.
"""

import argparse
import asyncio
import json
import os
import signal
import subprocess
import sys
import tempfile


async def answer(reader, writer):
    try:
        while line := await reader.readline():
            word, _, rest = line.decode().strip().partition(" ")
            text = {"ping": "pong", "echo": rest}.get(word, "error: unknown word")
            writer.write(text.encode() + b"\n")
            await writer.drain()
    finally:
        writer.close()


async def peer():
    server = await asyncio.start_server(answer, "127.0.0.1", 0)
    print(server.sockets[0].getsockname()[1], flush=True)
    await server.serve_forever()


def ours(server, work):
    process = subprocess.Popen([server, "--serve", "--port", "0", "--log", os.path.join(work, "log")],
                               stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
    line = process.stdout.readline()
    return process, line.rstrip().rstrip("/").rsplit(":", 1)[1]


def theirs():
    process = subprocess.Popen([sys.executable, os.path.abspath(__file__), "--peer"], stdout=subprocess.PIPE, text=True)
    return process, process.stdout.readline().strip()


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--server")
    parser.add_argument("--client")
    parser.add_argument("--connections", type=int, default=50)
    parser.add_argument("--seconds", type=float, default=3)
    parser.add_argument("--markdown", help="write the table into this file, between its headings")
    parser.add_argument("--peer", action="store_true", help=argparse.SUPPRESS)
    options, _ = parser.parse_known_args()
    if options.peer:
        asyncio.run(peer())
        return 0
    best = {"quillsrv": 0, "asyncio": 0}
    with tempfile.TemporaryDirectory() as work:
        for _ in range(3):
            for name, start in (("quillsrv", lambda: ours(options.server, work)), ("asyncio", theirs)):
                process, port = start()
                try:
                    figures = json.loads(subprocess.check_output(
                        [options.client, port, str(options.connections), str(options.seconds)]))
                finally:
                    process.send_signal(signal.SIGTERM)
                    process.wait(10)
                if figures["wrong"]:
                    sys.exit("%s: %d wrong answers" % (name, figures["wrong"]))
                best[name] = max(best[name], figures["requests"])
    out = ["## Line server beside asyncio", "",
           "%d connections over loopback, one request in flight on each, client on the same machine." % options.connections,
           "", "| Server | requests a second |", "|---|---|",
           "| quillsrv, `ipe/serve.py` | {:,.0f} |".format(best["quillsrv"]),
           "| Python asyncio | {:,.0f} |".format(best["asyncio"]),
           "| **ratio** | **%.2f** |" % (best["quillsrv"] / best["asyncio"])]
    print("\n".join(out))
    if options.markdown:
        text = open(options.markdown, encoding="utf-8").read() if os.path.exists(options.markdown) else ""
        before, _, behind = text.partition(out[0] + "\n")
        rest = behind.partition("\n## ")
        tail = "\n## " + rest[2] if rest[1] else ""
        with open(options.markdown, "w", encoding="utf-8") as file:
            file.write((before.rstrip("\n") + "\n\n" if before else "") + "\n".join(out) + "\n" + tail)
    return 0


if __name__ == "__main__":
    sys.exit(main())
