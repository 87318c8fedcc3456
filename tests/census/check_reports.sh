#!/usr/bin/env bash
# What a user meets of ipe/report.py beside right rows: complaints and exit codes, runs that are kept and superseded,
# progress on a terminal, disks that are full or read-only, the bundle, and the server that makes reports for clients.
# usage: SOURCE BUILD
set -uo pipefail
[ -x "$2/bin/quillsrv" ] && [ -x "$2/bin/quillscan" ] || { echo "no quillsrv or no quillscan in $2/bin" >&2; exit 1; }
export LC_ALL=C.UTF-8 TZ=Europe/Berlin
work=$(realpath "$(mktemp -d)")
trap 'umount "$work"/mount* 2>/dev/null; rm -rf "$work"' EXIT
timeout 250 python3 - "$(realpath "$1")" "$(realpath "$2")" "$work" <<'PROGRAM'
import json, os, pty, re, resource, shlex, shutil, signal, socket, sqlite3, subprocess, sys, time

source, build, work = sys.argv[1:4]
server, scan, script = f"{build}/bin/quillsrv", f"{build}/bin/quillscan", f"{source}/ipe/report.py"
failures, os.environ["XDG_CACHE_HOME"] = [], f"{work}/cache"
def same(what, got, want):
    if got != want:
        if isinstance(got, tuple) and isinstance(want, tuple):
            got, want = ([x for x, y in zip(a, b) if x != y] for a, b in ((got, want), (want, got)))
            if len(got) == 1 and isinstance(got[0], str): got, want = (set(a[0].split("\n")) - set(b[0].split("\n")) for a, b in ((got, want), (want, got)))
        failures.append(what)
        print(f"FAILED {what}\n  got    {str(got)[:800]}\n  wanted {str(want)[:800]}")
def call(*args, **more):
    done = subprocess.run([server, *args, "--custom", script], stdin=subprocess.DEVNULL, capture_output=True, text=True, **more)
    return done.returncode, done.stdout, done.stderr
def scanned(name, *folders):
    subprocess.run([scan, *folders, "-o", f"{work}/{name}"], check=True, stderr=subprocess.DEVNULL)
    return f"{work}/{name}"
def rows(database, sql):
    with sqlite3.connect(database) as db: return db.execute(sql).fetchall()

os.makedirs(f"{work}/tree/sub")
for i in range(5): open(f"{work}/tree/sub/f{i}.txt", "w").write("x" * i)
census, big = scanned("tree.smf", f"{work}/tree"), scanned("big.smf", "/usr/share")
slow = " or ".join(f"Name = '(.*)(.*)(.*)(.*)[{c}%]$'" for c in "#@!~")  # a while for each name

# --- Complaints: one line, for a query the query below it; exit code 1, or 2 for the command line
open(f"{work}/text", "w").write("no census")
open(f"{work}/cut.smf", "wb").write(open(big, "rb").read(300000))
open(f"{work}/other.sqlite", "w").write("no database, but longer than a hundred bytes" * 9)
largest = ["--census", census, "--report", "file_largest"]
group, loop = (["--census", census, "--report", name] for name in ("group_by_pcre", "iterate"))
for code, complaint, args in (
        (1, r"\[Errno 2\] No such file or directory: '.*absent.smf'", ["--census", f"{work}/absent.smf"]),
        (1, r"'.*text' is not a census: The database has a corrupt header", ["--census", f"{work}/text"]),
        (1, r"'.*cut.smf' is not a census: The database has a corrupt header", ["--census", f"{work}/cut.smf"]),
        (1, r"\[Errno 21\] Is a directory: '.*'", ["--census", work]),
        (1, r"file_largest: The path \(/nowhere\) does not exist", largest + ["--path", "/nowhere"]),
        (1, r"file_largest: Path \\x passed to locate\(\)", largest + ["--path", "\\x"]),
        (1, "file_largest: Expecting a number or a field\n    Size >> 5\n +\\?", largest + ["--filter", "Size >> 5"]),
        (1, "file_largest: missing closing parenthesis", largest + ["--filter", "Name = '(('"]),
        (1, "file_largest: There is no script named 'none'", largest + ["--filter", "exec none()"]),
        (1, "file_largest: the column Name holds no numbers", largest + ["--field", "name"]),
        (1, "iterate: unexpected symbol near <eof> .*", loop + ["--set", "script=x("]),
        (1, "iterate: the script must fill the global totals, .*",
         loop + ["--set", "script=function before() totals = {a = 1} end function during() end function after() end"]),
        (1, r".*/none/x.sqlite: unable to open database file", largest + ["--out", f"{work}/none/x.sqlite"]),
        (1, r".*/other.sqlite: file is not a database", largest + ["--out", f"{work}/other.sqlite"]),
        (2, "count wants a number from 1 to 100000", largest + ["--count", "0"]),
        (2, "count wants a number, not '5x'", largest + ["--count", "5x"]),
        (2, "count wants a number from 1 to 100000", largest + ["--set", "count=100001"]),
        (2, "there is no option 'cuont'", largest + ["--set", "cuont=1"]),
        (2, "epoch wants seconds or a date such as 2025-12-31, not '2025-02-30'", largest + ["--epoch", "2025-02-30"]),
        (2, "unknown option '--fliter'", largest + ["--fliter", "x"]),
        (2, "--path wants a value", largest + ["--path"]),
        (2, "--census FILE is missing", ["--report", "file_ages"]),
        (2, "there is no report named 'none'; --list tells them", ["--census", census, "--report", "none"]),
        (2, "--csv and --json want one report: --report NAME", ["--census", census, "--csv"])):
    got = call(*args)
    same(f"{args}", (got[0], bool(re.fullmatch(f"report: {complaint}\n", got[2])), got[2]), (code, True, got[2]))
same("nothing is made for a wrong command", [f for f in os.listdir(work) if "sqlite" in f], ["other.sqlite"])
out = f"{work}/failed.sqlite"
same("a failing report beside a good one", (call("--census", census, "--report", "file_largest,file_ages", "--field", "Nope", "--quiet", "--out", out)[0],
     rows(out, "select report from runs"), [t for (t,) in rows(out, "select name from sqlite_master where type = 'table' order by 1")]),
     (1, [("file_ages",)], ["about", "file_ages", "runs"]))
if os.geteuid() == 0:
    os.chmod(census, 0o600)
    same("an unreadable census", call(*largest, user=65534, group=65534, extra_groups=[])[::2], (1, f"report: [Errno 13] Permission denied: '{census}'\n"))
    os.chmod(census, 0o644)
for where, words in (("/dev/full", "No space left on device"),):
    with open(where, "w") as sink:
        done = subprocess.run([server, *largest, "--csv", "--custom", script], stdout=sink, stderr=subprocess.PIPE, text=True)
        same(where, (done.returncode, done.stderr), (1, f"report: [Errno 28] {words}: '/dev/stdout'\n"))
same("a reader that has seen enough", subprocess.run(["bash", "-o", "pipefail", "-c", f"{server} --census {big} --report tree_summary --csv --custom {script} | head -1"],
     capture_output=True).stderr, b"")
for args, wanted in ((["--help"], "usage: quillsrv --census FILE"), (["--list"], "tree_summary        Trees\n")):
    same(f"{args}", call(*args)[:3:2] + (call(*args)[1].startswith(wanted),), (0, "", True))

# --- Disks
def limited(): resource.setrlimit(resource.RLIMIT_FSIZE, (200000, 200000))
big_summary = ["--census", big, "--report", "tree_summary", "--quiet"]
call(*big_summary)  # makes the indexes
out = f"{work}/limit.sqlite"
same("a limit on files", call(*big_summary, "--out", out, preexec_fn=limited)[::2], (1, f"report: tree_summary: {out}: disk I/O error\n"))
same("nothing is left", [f for f in os.listdir(work) if f.startswith("limit")], [])
same("a run before", call("--census", big, "--report", "file_ages", "--quiet", "--out", out)[0], 0)
before = rows(out, "select * from file_ages")
same("a limit on a database with tables", call(*big_summary, "--out", out, preexec_fn=limited)[0], 1)
same("the former rows stand", (rows(out, "select * from file_ages"), rows(out, "select report from runs")), (before, [("file_ages",)]))
def mounted(name, *command):
    os.mkdir(f"{work}/{name}")
    return os.geteuid() == 0 and subprocess.run(["mount", *command, f"{work}/{name}"], stderr=subprocess.DEVNULL).returncode == 0
if mounted("mount1", "-t", "tmpfs", "-o", "size=300k", "none"):
    same("a full disk", call(*big_summary, "--out", f"{work}/mount1/x.sqlite")[::2], (1, f"report: tree_summary: {work}/mount1/x.sqlite: database or disk is full\n"))
    same("nothing is left on it", os.listdir(f"{work}/mount1"), [])
os.mkdir(f"{work}/kept")
shutil.copy(census, f"{work}/kept/tree.smf")
if mounted("mount2", "--bind", "-o", "ro", f"{work}/kept"):
    got = call("--census", f"{work}/mount2/tree.smf", "--report", "file_largest", "--csv")
    same("beside a read-only census", (got[0], got[2], got[1].count("\n"), len(os.listdir(f"{work}/cache/quillsrv"))), (0, "", 6, 1))

# --- Runs that are kept
out = f"{work}/kept.sqlite"
def kept(what, new, *args):
    "Runs, and tells whether that was a new run, by the moment and the time it took."
    before = set(rows(out, "select cache, finished, seconds from runs")) if os.path.exists(out) else set()
    same(what, call("--census", census, "--quiet", "--out", out, *args)[::2], (0, ""))
    same(f"{what}: new", len(set(rows(out, "select cache, finished, seconds from runs")) - before), new)
    same(f"{what}: every row belongs to a run", rows(out, "select count(*) from file_largest where cache not in (select cache from runs)"), [(0,)])
one = ["--report", "file_largest"]
kept("the first", 1, *one)
kept("the second", 0, *one)
kept("another option", 1, *one, "--count", "3")
kept("another filter", 1, *one, "--filter", "Size > 1b")
kept("masked", 1, *one, "--hide-paths")
kept("both of before", 0, *one, "--count", "3")
kept("`now` is never kept", 1, *one, "--filter", "Modified <= now")
kept("`now` again", 1, *one, "--filter", "Modified <= now")
kept("`exec` is never kept", 1, *one, "--filter", "exec older('Modified', 0)")
kept("`exec` again", 1, *one, "--filter", "exec older('Modified', 0)")
same("a run that is never kept stands once", rows(out, "select count(*) from runs"), [(6,)])
kept("digests beside none", 2, "--report", "tree_summary,path_summary", "--digests")
kept("none beside digests", 2, "--report", "tree_summary,path_summary")
with sqlite3.connect(out) as db: db.execute("update runs set version = version - 1 where report = 'tree_summary'")
kept("a version that has gone", 1, "--report", "tree_summary", "--count", "2")
same("its runs have gone", rows(out, "select report, count(*) from runs where report like 'tree%' group by 1"), [("tree_summary", 1)])
same("their rows have gone", rows(out, "select count(*) from tree_summary_digests"), [(0,)])
for n in range(1, 26): call("--census", census, "--quiet", "--out", out, *one, "--count", str(n))
same("at most so many runs", rows(out, "select count(*) from runs where report = 'file_largest'"), [(20,)])
scanned("tree.smf", f"{work}/tree")
kept("another census", 1, *one)
same("the runs of the former have gone", rows(out, "select count(*) from runs where report = 'file_largest'"), [(1,)])
same("and their rows", rows(out, "select count(*) from file_largest"), [(5,)])
same("and theirs in `about`", rows(out, "select count(*) from about where cache not in (select cache from runs)"), [(0,)])

shared = [subprocess.Popen([server, "--census", census, "--out", f"{work}/shared.sqlite", "--quiet", "--custom", script], stderr=subprocess.PIPE) for _ in range(3)]
same("three at once on one database", [(p.communicate()[1], p.returncode) for p in shared], [(b"", 0)] * 3)
same("each run is made once", rows(f"{work}/shared.sqlite", "select count(*), (select count(*) from file_largest), (select count(*) from about) from runs"), [(15, 5, 15)])

# --- Progress
def watched(command):
    "What comes on a terminal that is standard error; and the exit code."
    master, slave = pty.openpty()
    child = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=slave)
    os.close(slave)
    seen = b""
    while True:
        try: piece = os.read(master, 65536)
        except OSError: break
        if not piece: break
        seen += piece
    child.stdout.read()
    return child.wait(), seen.decode()
def screen(text):
    "What is left on the line."
    line, at = [], 0
    for c in re.sub("\x1b\\[K", "\0", text):
        if c == "\r": at = 0
        elif c == "\n": line, at = [], 0
        elif c == "\0": line = line[:at]
        else: line[at:at + 1], at = [c], at + 1
    return "".join(line).strip()
quick = "Name = '(.*)(.*)[#%]$'"
for path in os.listdir(work):
    if path.startswith("big.smf:"): os.remove(f"{work}/{path}")
code, seen = watched([server, "--census", big, "--report", "file_largest", "--filter", quick, "--custom", script])
same("progress of a report", (code, bool(re.search(r"\rfile_largest: Indexing Files - \d+%", seen)),
     len(set(re.findall(r"file_largest: (\d+)% Finding the report threshold", seen))) > 20, screen(seen)), (0, True, True, ""))
for _ in range(9):  # a quick machine may be done before there is any
    code, seen = watched([scan, "/usr", "-x", "-o", f"{work}/watched.smf"])
    if shown := re.search(r"\r\x1b\[K[\d,]+ entries, [\d,]+/s  /usr/", seen): break
same("progress of a scan", (code, bool(shown),
     bool(re.search(r"\r\x1b\[K[\d,]+ directories, [^\r\n]*\r\n$", seen))), (0, True, True))
same("none without a terminal", call("--census", big, "--report", "file_ages", "--filter", quick)[2], "")

# --- From a bundle: no source beside it, its scripts out of the resources
app = f"{work}/app/bin"
os.makedirs(app)
shutil.copy(server, app)
ipe = f"{source}/ipe"
packed = subprocess.run([server, "--output", f"{app}/app.dat", "--source", ipe, "--under", "Schemas", "--resource", f"{ipe}/Schemas", "--under", "Includes",
                         "--resource", f"{ipe}/Includes", "--custom", f"{source}/tools/bundle.py"], capture_output=True, text=True)
same("packing", (packed.returncode, packed.stderr), (0, ""))
for args in (["--report", "group_by_pcre_date", "--json"], ["--path", "/usr/share/doc"], largest[2:] + ["--filter", "exec older('Modified', 0)", "--csv"], ["--report", "none"]):
    done = subprocess.run([f"{app}/quillsrv", "--standalone", "--census", big, *args], stdin=subprocess.DEVNULL, capture_output=True, text=True)
    same(f"a bundle {args}", (done.returncode, done.stdout, done.stderr), call("--census", big, *args))

# --- What the guide says
guide, out = open(f"{source}/docs/reports.md").read(), f"{work}/guide.sqlite"
same("all reports", call("--census", big, "--quiet", "--out", out)[::2], (0, ""))
for sql in re.findall("```sql\n(.*?)```", guide, re.S):
    same(f"a query of the guide: {sql}", len(rows(out, sql)) > 0 or "tenth" in guide and "/ 10" in sql, True)
asked = re.findall(r"^\|[^|`]+\| `(--report .*)` \|$", guide, re.M)
same("examples of the guide", len(asked) > 8, True)
for line in asked:
    args = shlex.split(re.sub("/home(/anna|/bert)?", "/usr/share/doc", line))
    same(line, call("--census", big, "--quiet", *args)[::2], (0, ""))
for page in ("quillscan", "quillsrv-report"):
    lint = subprocess.run(["mandoc", "-T", "lint", "-W", "warning", f"{source}/man/{page}.1"], capture_output=True, text=True)
    same(f"the manual page {page}", lint.stdout + lint.stderr, "")
manual = open(f"{source}/man/quillsrv-report.1").read().replace("Fl -", "--")
for option in set(re.findall("--[a-z-]+", call("--help")[1])) - {"--custom"}:
    same(f"the manual page tells of {option}", bool(re.search(f"{option}( |$)", manual, re.M)), True)

# --- Reports for clients
def serve(*args):
    child = subprocess.Popen([server, "--serve", "--port", "0", "--census", big, "--out", f"{work}/served.sqlite", "--log", f"{work}/serve.log", *args],
                             stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, stdin=subprocess.DEVNULL, text=True)
    return child, int(child.stdout.readline().rstrip("/\n").rsplit(":", 1)[1])
class Client:
    def __init__(self, port): self.lines = socket.create_connection(("127.0.0.1", port), 20).makefile("rw", newline="\n")
    def ask(self, text):
        self.lines.write(text + "\n")
        self.lines.flush()
        return json.loads(self.lines.readline())
    def finish(self, number):
        for _ in range(1000):
            job = self.ask(f"job {number}")
            if job["state"] in ("done", "failed"): return job
            time.sleep(0.02)
for path in os.listdir(work):
    if path.startswith("big.smf:"): os.remove(f"{work}/{path}")
child, port = serve("--report-workers", "3", "--hide-users")
a, b = Client(port), Client(port)
query = json.dumps({"filter": "Size >= 1kb", "paths": ["/usr/share/doc"]})
jobs = [c.ask("report tree_summary " + query)["job"] for c in (a, b)]
done = [a.finish(n) for n in jobs]
same("two clients ask for one index", [(d["state"], d.get("error")) for d in done], [("done", None)] * 2)
same("both get the rows", [a.ask(f"rows {n} 0 10000")["rows"] for n in jobs][1], b.ask(f"rows {jobs[0]} 0 10000")["rows"])
same("one run made them", rows(f"{work}/served.sqlite", "select count(*) from runs"), [(1,)])
want = json.loads(call("--census", big, "--report", "tree_summary", "--filter", "Size >= 1kb", "--path", "/usr/share/doc", "--json")[1])
got = a.ask(f"rows {jobs[0]} 0 10000")
same("the rows of the program", [dict(zip(got["columns"], r)) for r in got["rows"]], want[:10000])
same("a page", a.ask(f"rows {jobs[0]} 2 3")["rows"], got["rows"][2:5])
for args, complaint in ((["--census", big], "--census wants --out FILE.sqlite for the reports"), (["--census", f"{work}/text", "--out", out],
                        f"'{work}/text' is not a census: The database has a corrupt header"), (["--workers", "x"], "--workers wants a number, got x")):
    done = subprocess.run([server, "--serve", "--port", "0", *args], stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=20)
    same(f"serving {args}", (done.returncode, done.stderr), (2, f"quillsrv: {complaint}\n"))
number = a.ask("report file_largest " + json.dumps({"count": 5, "paths": ["/usr/share/doc"]}))["job"]
same("another report", (a.finish(number)["state"], len(a.ask(f"rows {number}")["rows"])), ("done", 5))
for text, error in (("report none", "there is no report named 'none'"), ("report iterate {\"script\": \"os.execute('id')\"}", "there is no option 'script'"),
                    ("report file_largest {", "the options are no JSON"), ("report file_largest [1]", "the options are no object"),
                    ("report file_largest {\"dcursor\": 1}", "there is no option 'dcursor'"), ("report file_largest {\"count\": -1}", "count wants a number from 1 to 100000"),
                    ("job 99", "there is no job 99"), ("rows x", "a job wants a number, not 'x'")):
    same(text, a.ask(text), {"error": error})
number = a.ask("report iterate")["job"]
same("masked for clients", (a.finish(number)["state"], [r[0] for r in a.ask(f"rows {number}")["rows"]]), ("done", ["hidden"]))
failed = a.finish(a.ask("report file_largest " + json.dumps({"filter": "Size >>"}))["job"])
same("a failed job", (failed["state"], failed["error"].startswith("Expecting a number or a field\n    Size >>")), ("failed", True))
running = [a.ask("report file_largest " + json.dumps({"filter": slow, "count": n}))["job"] for n in (1, 2, 3, 4)]
progress, until = set(), time.time() + 20
while len(progress) < 2 and time.time() < until:
    time.sleep(0.02)
    progress |= {s for n in running if re.fullmatch(r"\d+% Finding the report threshold", s := a.ask(f"job {n}").get("progress", ""))}
same("progress", len(progress) >= 2, True)
time.sleep(1.5)  # the log is written once a second
same("still at it", [a.ask(f"job {n}")["state"] for n in running], ["running"] * 3 + ["waiting"])
begun = time.time()
child.send_signal(signal.SIGTERM)
code = child.wait(20)
same("SIGTERM in the middle", (code, time.time() - begun < 3), (0, True))
same("what was done stays, what was not leaves nothing", rows(f"{work}/served.sqlite", "select count(*) from runs"), [(3,)])
same("the log tells of progress", bool(re.search(r"report job \d+: \d+% Finding", open(f"{work}/serve.log").read())), True)

print("users meet what they should" if not failures else f"{len(failures)} checks failed")
sys.exit(bool(failures))
PROGRAM
