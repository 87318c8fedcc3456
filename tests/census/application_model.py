"""The reports beside a recount of the same tree: os.lstat for every figure; only the order of rows, the dates of birth
and the numbers of paths come from the census, flat as storedump prints it. usage: SOURCE BUILD WORK"""
import base64, csv, hashlib, io, json, math, os, random, re, sqlite3, subprocess, sys, time
from collections import Counter, defaultdict

source, build, work = sys.argv[1:4]
server, scan, dump = (f"{build}/bin/{name}" for name in ("quillsrv", "quillscan", "storedump"))
census, database, failures = f"{work}/tree.smf", f"{work}/out.sqlite", []

def same(what, got, want):
    if got == want: return
    failures.append(what)
    if isinstance(got, (list, dict)) and isinstance(want, type(got)):
        a, b = (Counter(map(repr, x.items() if isinstance(x, dict) else x)) for x in (got, want))
        if a != b: got, want = list((a - b))[:4], list((b - a))[:4]
        else:
            at = next((n for n, (x, y) in enumerate(zip(got, want)) if x != y), 0)
            got, want = got[at], want[at]
    print(f"FAILED {what}\n  got    {str(got)[:1500]}\n  wanted {str(want)[:1500]}")

# --- The tree
random.seed(11)
tree = os.fsencode(f"{work}/tree")
odd = [b"plain.txt", b"two words.tar.gz", b"quote's \"x\".TXT", b"comma, semi;.csv", "größe 世界.Txt".encode(), b"star*?[x].md",
       b"back\\slash.txt", b"new\nline.log", b"tab\t.log", b"latin\xef.txt", b"\xff\xfe", b".hidden", b"trailing.", b"x" * 200 + b".bin", b"a~"]
folders = [tree]
os.mkdir(tree)
for i in range(60):
    parent = random.choice(folders[-12:] if i < 30 else folders)
    folders.append(parent + b"/" + random.choice([b"dir%d" % i, b"Mixed Case %d" % i, b"\xe4%d" % i, b"cache", b"empty%d" % i]))
    if folders[-1] in folders[:-1]: folders[-1] += b"%d" % i
    os.mkdir(folders[-1])
regular = []
for i in range(900):
    folder = random.choice([f for f in folders if b"empty" not in f.rsplit(b"/")[-1]])
    name = random.choice(odd) if i < 150 else b"f%d." % i + random.choice([b"txt", b"TXT", b"log", b"jpg", b"so", b"tar.gz", b"c"])
    path = folder + b"/" + name
    if os.path.lexists(path): continue
    with open(path, "wb") as f:
        f.write(b"x" * random.choice([0, 1, 100, 100, 4096, random.randrange(60000)]))
        if i % 40 == 0: f.truncate(random.randrange(3 << 20))
    if os.geteuid() == 0: os.chown(path, random.choice([0, 0, 1, 54321]), 0)
    regular.append(path)
for i in range(12):  # further links, in the same folder and in others
    path = random.choice(regular)
    os.link(path, (os.path.dirname(path) if i % 2 else random.choice(folders)) + b"/link%d.dat" % i)
for i in range(6): os.symlink([b"nowhere", b"..", b"plain.txt"][i % 3], random.choice(folders) + b"/soft%d" % i)
os.mkfifo(folders[3] + b"/pipe")
for copy in (b"/twin one", b"/twin two"):  # equal in names, sizes and times
    os.makedirs(tree + copy + b"/deep")
    for name, size in ((b"/same.iso", 2 << 20), (b"/deep/b.iso", 7 << 20)):
        with open(tree + copy + name, "wb") as f: f.truncate(size)
        os.utime(tree + copy + name, (1500000000, 1600000000))
for folder, _, names in os.walk(tree):
    for name in names:
        if not name.endswith(b".iso"):
            at = [random.randrange(1262304000, 1767225600) for _ in (1, 2)]
            os.utime(folder + b"/" + name, tuple(at), follow_symlinks=False)
for folder in folders: os.chmod(folder, random.choice([0o755, 0o700, 0o777, 0o775]))
os.chmod(tree, 0o755)
# Reading a symbolic link, as the scan does, changes when it was read.
stats = {d + b"/" + n: os.lstat(d + b"/" + n) for d, below, names in os.walk(tree) for n in below + names}
subprocess.run([scan, tree, "-o", census], check=True, stderr=subprocess.DEVNULL)

# --- The recount
def unescaped(cell):
    return re.sub(rb"\\(x..|.)", lambda m: {b"t": b"\t", b"n": b"\n", b"\\": b"\\"}.get(m[1]) or bytes([int(m[1][1:], 16)]), cell)
def flat(name):
    lines = subprocess.check_output([dump, "--rows", "999999", "--table", name, census]).split(b"\n")[1:-1]
    return [dict(zip(lines[0].decode().split("\t"), map(unescaped, line.split(b"\t")))) for line in lines[1:]]
day = lambda seconds: time.strftime("%Y-%m-%d", time.localtime(seconds))
class File: pass
class Folder:
    def __init__(self, number, parent, text):
        self.number, self.parent, self.text, self.files, self.folders, self.rights = number, parent, text, [], [], []
        self.name = text.split(b"/")[-2] if text != b"/" else b""
        self.depth = text.count(b"/") - 1
    def tree(self):
        yield self
        for below in self.folders: yield from below.tree()
    def below(self): return [f for folder in self.tree() for f in folder.files]
paths, files, seen = {}, [], set()
for row in flat("Path"):
    n, p = int(row["Number"]), int(row["Parent"])
    paths[n] = Folder(n, paths.get(p), paths[p].text + row["Name"] + b"/" if n > 1 else b"/")
    if n > 1: paths[p].folders.append(paths[n])
for number, row in enumerate(flat("File"), 1):
    f, f.row, f.name = File(), number, row["Name"]
    f.folder = paths[int(row["PathNumber"])]
    s = stats[f.folder.text + f.name]
    f.counted = s.st_nlink == 1 or (s.st_dev, s.st_ino) not in seen
    seen.add((s.st_dev, s.st_ino))
    f.size, f.space = (s.st_size, s.st_blocks * 512) if f.counted else (0, 0)
    f.modified, f.accessed, f.owner, f.mode = int(s.st_mtime), int(s.st_atime), s.st_uid, s.st_mode
    f.born = row["Created"].decode()
    f.folder.files.append(f)
    files.append(f)
rights = flat("PathDACL")
for row in rights: paths[int(row["Path"])].rights.append(row)
top = next(p for p in paths.values() if p.text == tree + b"/")
same("every entry is there", sorted(f.folder.text + f.name for f in files),
     sorted(d + b"/" + n for d, _, names in os.walk(tree) for n in names + [s for s in _ if os.path.islink(d + b"/" + s)]))
total = lambda what, rows: sum(getattr(f, what) for f in rows)

# --- Running
def call(*args, env=None, **more):
    done = subprocess.run([server, "--census", census, *args, "--custom", f"{source}/ipe/report.py"], stdin=subprocess.DEVNULL,
                          stdout=subprocess.PIPE, stderr=subprocess.PIPE, env=env, **more)
    return done.returncode, done.stdout, done.stderr
def query(sql, *values):
    db = sqlite3.connect(database)
    db.text_factory = bytes
    return db.execute(sql, values).fetchall()
def report(name, *args, columns="*", part="", path=(top.text,)):
    "The chosen columns of a run's rows."
    args = [a for p in path for a in ("--path", p)] + list(args)
    code, out, err = call("--report", name, *args, "--out", database, "--quiet")
    if (code, out, err) != (0, b"", b""): same(f"{name} {args}", (code, out, err), (0, b"", b""))
    table = name + ("_digests" if "--digests" in args else "") + part
    [(cache,)] = query("select cache from runs where report = ? order by rowid desc limit 1", name)
    return query(f"select {columns} from {table} where cache = ? order by rowid", cache.decode())

# --- Files
def largest(rows, what, count):
    return sorted((getattr(f, what) for f in rows), reverse=True)[:count]
for args, keep, what, count in (((), lambda f: True, "size", 200), (("--count", "7"), lambda f: True, "size", 7),
        (("--field", "Space", "--count", "100000"), lambda f: True, "space", 100000),
        (("--filter", "Size >= 5kb and not Name.end in ['txt', 'bin']"),
         lambda f: f.size >= 5120 and f.name.split(b".")[-1].lower() not in (b"txt", b"bin") , "size", 200),
        (("--filter", "Owner = '^root$'"), lambda f: f.owner == 0, "size", 200),
        (("--filter", "Path = '/cache'"), lambda f: b"/cache" in f.folder.text.lower(), "size", 200),
        (("--filter", "Depth > 5 or Path.Levels < 4"), lambda f: f.folder.depth > 5 or f.folder.depth < 4, "size", 200),
        (("--filter", "Modified within 400 days", "--epoch", "1767225600"), lambda f: f.modified >= 1767225600 - 400 * 86400, "size", 200),
        (("--filter", "FolderFiles > 20"), lambda f: len(f.folder.files) > 20, "size", 200)):
    rows, passing = report("file_largest", *args, columns="value, ipath, path, name"), [f for f in files if keep(f)]
    same(f"file_largest {args}", [r[0] for r in rows], largest(passing, what, count))
    known = {(getattr(f, what), f.folder.number, f.folder.text, f.name) for f in passing}
    same(f"file_largest {args}, rows that are none", [r for r in rows if r not in known], [])
    if len(rows) > 1: same(f"file_largest {args}, rows twice", len(set(rows)), len(rows))
within = report("file_largest", "--filter", "Modified within 4000 days", "--count", "100000", columns="value")
same("without --epoch, the end of the scan counts", len(within), len([f for f in files if f.modified >= int(os.stat(census).st_mtime) - 4000 * 86400]))

for mode, amount in (("size", lambda f: f.size), ("space", lambda f: f.space), ("count", lambda f: 1)):
    want = defaultdict(lambda: [0, 0, 0])
    for f in files:
        for at, date in enumerate((f.born[:10], day(f.accessed), day(f.modified))): want[date.encode()][at] += amount(f)
    got = report("file_ages", "--set", f"mode={mode}", columns="date, created, accessed, modified")
    same(f"file_ages {mode}", sorted(got), sorted((d, *v) for d, v in want.items()))

def runs(rows, keep, row, folder):
    "Runs of rows that pass; a run ends with its folder."
    found = []
    for f in rows:
        if not keep(f): continue
        if found and found[-1][0] + found[-1][1] == row(f) and found[-1][2] is folder(f): found[-1][1] += 1
        else: found.append([row(f), 1, folder(f)])
    return [(r, n) for r, n, _ in found]
log = lambda f: f.name.lower().endswith((b".log", b".so"))
found = report("file_search", "--filter", "Name = '[.](log|so)$'", "--set", "preview_cap=2",
               columns="path, size, space, count, filteredsize, filteredspace, filteredcount, ipath")
same("file_search", found, [(p.text, total("size", p.files), total("space", p.files), len(p.files), total("size", filter(log, p.files)),
                             total("space", filter(log, p.files)), len([*filter(log, p.files)]), p.number) for p in top.tree()])
again = ("--filter", "Name = '[.](log|so)$'", "--set", "preview_cap=2")
same("file_search offsets", report("file_search", *again, columns="offset, count", part="_offsets"),
     runs(files, log, lambda f: f.row, lambda f: f.folder))
same("file_search preview", report("file_search", *again, columns="ipath, path, name", part="_preview"),
     [(p.number, p.text, f.name) for p in top.tree() for f in [*filter(log, p.files)][:2]])

def groups(rows, key):
    want = defaultdict(lambda: [0, 0, 0])
    for f in rows:
        if (k := key(f)) is not None:
            for at, v in enumerate((f.size, f.space, 1)): want[k][at] += v
    return sorted((k, *v) for k, v in want.items())
def extension(f):
    m = re.search(rb"\.([^./]+)$", f.name)
    return m[1].lower() if m else b"(none)"
same("group_by_pcre", sorted(report("group_by_pcre", columns="value, size, space, count")), groups(files, extension))
branches = sorted(top.folders, key=lambda p: -len(p.below()))[:3]
got = report("group_by_pcre", "--set", "perpath=1", "--set", r"regex=^(?:f\d+)?\.", "--set", "regex_dvalue=", path=[b.text for b in branches],
             columns="ipath, value, size, space, count")
whole = lambda f: m[0] if (m := re.search(rb"^(?:f\d+)?\.", f.name)) else b""
same("group_by_pcre perpath", sorted(got), sorted((b.number, *g) for b in branches for g in groups(b.below(), whole)))
kinds = dict(re.findall(r'\["([^"]+)"\] = "([^"]+)"', open(f"{source}/ipe/Includes/kind_of_file.lua").read()))
kind_of = {e.encode(): k.encode() for k, es in kinds.items() for e in es.split()}
def kind(f):
    m = re.search(rb"\.([A-Za-z0-9_]+)(?:\.[0-9]+)*$", f.name)
    return kind_of.get(m[1].lower(), b"other") if m else b"other"
same("group_by_pcre xform", sorted(report("group_by_pcre", "--set", "xform=kind_of_file", columns="value, size, space, count")), groups(files, kind))
epoch = 1577880000  # 2020-01-01: later dates count as this month
months = defaultdict(lambda: defaultdict(lambda: [0, 0]))
for f in files:
    m = months[extension(f)][time.strftime("%Y-%m", time.localtime(min(f.modified, epoch)))]
    m[0], m[1] = m[0] + f.size, m[1] + f.space
got = report("group_by_pcre_date", "--set", f"epoch={epoch}", "--set", "pivot=modified", "--set", r"regex=\.([^./]+)$", "--set", "regex_dvalue=(none)", columns="value, size, space, object")
same("group_by_pcre_date", {v: (s, p, eval(o)) for v, s, p, o in got},
     {k: (sum(v[0] for v in m.values()), sum(v[1] for v in m.values()), {d: tuple(v) for d, v in m.items()}) for k, m in months.items()})

twins = defaultdict(list)
for f in files:
    if f.size >= 1 << 20: twins[f.modified, f.size, f.name].append(f)
same("file_duplicated", sorted(report("file_duplicated", columns="copies, size, wasted, name, path")),
     sorted((len(t), s, s * (len(t) - 1), n, min(f.folder.text for f in t)) for (_, s, n), t in twins.items() if len(t) > 1))
everyone = lambda r: r["Type"] == b"other" and int(r["Rights"]) in (2, 3, 6, 7)
same("dacl_search", report("dacl_search", columns="path, count, filteredcount, ipath"),
     [(p.text, len(p.rights), len([*filter(everyone, p.rights)]), p.number) for p in top.tree()])
numbered = [(n, r) for n, r in enumerate(rights, 1) if int(r["Path"]) >= top.number]
same("dacl_search offsets", report("dacl_search", columns="offset, count", part="_offsets"),
     runs(numbered, lambda n: everyone(n[1]), lambda n: n[0], lambda n: paths[int(n[1]["Path"])]))
owners = Counter(f.owner for f in files)
got = report("iterate", columns="files, size")
same("iterate", sorted(got), sorted((n, total("size", [f for f in files if f.owner == o])) for o, n in owners.items()))
same("iterate without subdirs", sum(g[0] for g in report("iterate", "--set", "subdirs=0", columns="files")), len(top.files))
same("iterate, so many rows", sum(g[0] for g in report("iterate", "--set", "maxrows=37", columns="files")), 37)
count_types = """function before(options) totals = {} end function after() end function during(path, value, values, row)
    local t = totals[values[1]] or {0, 0} totals[values[1]] = {t[1] + 1, t[2] + row} end"""
types, kinds_of = defaultdict(lambda: [0, 0]), {0o100000: b"f", 0o120000: b"l", 0o010000: b"p"}
for f in files:
    t = types[kinds_of[f.mode & 0o170000]]
    t[0], t[1] = t[0] + 1, t[1] + f.row
same("iterate, another script", sorted(report("iterate", "--set", f"script={count_types}", "--set", "fields=['Type']", columns="name, files, size")),
     sorted((k, *v) for k, v in types.items()))
same("hide_users", report("iterate", "--hide-users", columns="name, files, size"), [(b"hidden", len(files), total("size", files))])

# --- Folders
zero = b"0000-00-00 00:00:00"
def stamp(rows, what):
    if not rows: return zero
    if what == "born": return max(f.born for f in rows).encode()
    return time.strftime("%Y-%m-%d %H:%M:%S", time.localtime(max(getattr(f, what) for f in rows))).encode()
def figures(own, p, keep=lambda f: True):
    rows, below = own(p), [*filter(keep, p.below())]
    mine = [*filter(keep, rows)]
    return (total("size", mine), total("space", mine), len(rows), stamp(below, "born"), stamp(below, "modified"), stamp(below, "accessed"))
summary = "size, space, files, lastcreated, lastmodified, lastaccessed"
big = lambda f: f.size > 10240
for args, keep in (((), lambda f: True), (("--filter", "Size > 10kb"), big)):
    same(f"tree_summary {args}", report("tree_summary", *args, columns="path, ipath, name, " + summary),
         [(p.text, p.number, p.name, *figures(Folder.below, p, keep)) for p in top.tree()])
    same(f"path_summary {args}", report("path_summary", *args, columns="path, ipath, " + summary),
         [(p.text, p.number, *figures(lambda q: q.files, p, keep)) for p in top.tree()])
same("several paths", report("path_summary", columns="path", path=[b.text for b in branches]), [(p.text,) for b in branches for p in b.tree()])
for name in ("tree_summary", "path_summary"):
    digests = dict(report(name, "--digests", columns="path, digest"))
    a, b = (digests[top.text + t] for t in (b"twin one/", b"twin two/"))
    full = {p.text: repr(sorted((f.folder.text[len(p.text):], f.name, f.size, f.modified) for f in (p.below() if name[0] == "t" else p.files)))
            + repr(sorted(q.text[len(p.text):] for q in p.tree()) * (name[0] == "t")) for p in top.tree()}
    same(f"{name}: equal digests, equal contents", (a == b, len(set(digests.values()))), (True, len(set(full.values()))))
got = report("path_largest", "--count", "9", columns="value, path, ipath")
sums = {p.text: total("size", p.files) for p in top.tree()}
same("path_largest", [g[0] for g in got], sorted(sums.values(), reverse=True)[:9])
same("path_largest, rows that are none", [g for g in got if sums.get(g[1]) != g[0] or paths[g[2]].text != g[1]], [])
same("path_largest TreeFiles", [g[0] for g in report("path_largest", "--field", "TreeFiles", columns="value")],
     sorted((len(p.below()) for p in top.tree()), reverse=True)[:200])
same("path_search", report("path_search", columns="path, totalcount, filteredcount, ipath"),
     [(top.text, len([*top.tree()]), len([p for p in top.tree() if not p.below()]), top.number)])
same("path_search offsets", report("path_search", columns="offset, count", part="_offsets"),
     runs([*top.tree()], lambda p: not p.below(), lambda p: p.number, lambda p: top))
same("path_names", report("path_names", "--filter", "Path = '/cache/' and Levels > 3", columns="ipath, path"),
     [(p.number, p.text) for p in top.tree() if b"/cache/" in p.text.lower() and p.depth > 3])
skip = top.folders[0]
same("path_names leaves out a tree", report("path_names", "--filter", "exec leave_out(\"%s\")" % os.fsdecode(skip.text), columns="ipath"),
     [(p.number,) for p in top.tree() if p not in [*skip.tree()]])
same("path_index", report("path_index", path=[b.text for b in branches], columns="number, path, start, count"),
     [(n, b.text, b.number, len([*b.tree()]) - 1) for n, b in enumerate(branches)])
masked = lambda n: n[:1] + (b"_" + base64.b64encode(hashlib.sha1(n).digest())[:8].replace(b"/", b"-") + b"_" if len(n) > 2 else b"") + (n[-1:] if len(n) > 1 else b"")
hidden = lambda p: b"".join(b"/" + (masked(n) if at > 4 else n) for at, n in enumerate(p.text.split(b"/")[1:-1], 1)) + b"/"
plain = [p for p in top.tree() if all(c < 128 for c in p.text)]
got = report("tree_summary", "--hide-paths", columns="path, ipath")
same("hide_paths", [g for g in got if paths[g[1]] in plain], [(hidden(p), p.number) for p in plain])
same("base", report("path_names", "--base", "srv", "--filter", "Levels > 1", columns="path"), [(b"/srv" + p.text,) for p in top.tree()])

# --- The space map
def spacemap(field, budget):
    measure = {"size": lambda f: f.size, "savings": lambda f: f.size - f.space}.get(field, lambda f: f.space)
    rows, queue = [], [(None, top, float(budget))]
    for parent, p, b in queue:
        items = []
        for q in p.folders:
            below = q.below()
            size, space = total("size", below), total("space", below)
            m = {"size": size, "space": space, "files": len(below), "savings": size - space, "rights": sum(len(x.rights) for x in q.tree())}[field]
            if field == "rights": items.append((m, q.name, 1, stamp(below, "accessed")[:10], 0, 0, q))
            elif m: items.append((m, q.name, 1, stamp(below, "accessed")[:10], size, space, q))
        if field == "files": items.append((len(p.files), b"Files", 0, None, 0, 0, None))
        elif field == "rights": items += [(1, b"entry", 0, b"", 0, 0, None) for _ in p.rights]
        else: items += [(measure(f), f.name, 0, day(f.accessed).encode(), f.size, f.space, None) for f in p.files]
        t, s, sp = (sum(i[n] for i in items) for n in (0, 4, 5))
        fixed, room = float(t), b - 17 * math.sqrt(b)
        if parent is None:
            rows.append((p.text, None, p.text, t, 1, stamp(p.below(), "accessed")[:10], s, sp))
        for m, name, kind, accessed, size, space, q in items:
            share = m / fixed * room if fixed else 0
            if share > (128 if kind else 64):
                rows.append((p.text, p.text, name, m, kind, accessed, size, space))
                t, s, sp = t - m, s - size, sp - space
                if kind: queue.append((p, q, int(share)))
        if t: rows.append((p.text, p.text, b"", t, 2, None, s, sp))
    return rows
for field in ("size", "space", "files", "rights", "savings", "FILES"):
    for budget in (2000, 60000):
        got = report("spacemap", "--field", field, "--set", f"threshold={budget}", columns="id, parent_id, path, name, size, mode, accessed, psize, pspace")
        ids = {0: None, **{g[0]: g[2] + g[3] + b"/" if g[1] else g[2] for g in got}}
        name = lambda g: b"entry" if field == "rights" and g[5] == 0 else g[3]
        rows = [(g[2], ids[g[1]], name(g), *g[4:]) for g in got]
        same(f"spacemap {field} {budget}", Counter(rows), Counter(spacemap(field.lower(), budget)))
        same(f"spacemap {field} {budget}: ids", ([g[0] for g in got], all(g[1] < g[0] for g in got)), ([*range(1, len(got) + 1)], True))

# --- The forms of output
columns = [c[1].decode() for c in query("pragma table_info(file_largest)")][1:]
rows = report("file_largest", "--count", "100000")
marked = lambda b: re.sub("[\udc80-\udcff]", lambda m: "\U0010fff02%02X" % (ord(m[0]) - 0xDC00), b.decode(errors="surrogateescape"))
code, out, err = call("--report", "file_largest", "--count", "100000", "--path", top.text, "--json")
same("json: code", (code, err), (0, b""))
same("json", [tuple(r[c] for c in columns) for r in json.loads(out)],
     [tuple(marked(v) if isinstance(v, bytes) else v for v in r[1:]) for r in rows])
code, out, err = call("--report", "file_largest", "--count", "100000", "--path", top.text, "--csv")
table = list(csv.reader(io.StringIO(out.decode(errors="surrogateescape"), newline="")))
same("csv", (code, err, table[0], table[1:]), (0, b"", columns, [[str(v.decode(errors="surrogateescape") if isinstance(v, bytes) else v) for v in r[1:]] for r in rows]))
code, out, err = call("--report", "all", "--top", "3", "--path", top.text)
same("text", (code, err, b"\t" in out, [l for l in out.split(b"\n") if len(l) > 500 or l != l.rstrip()]), (0, b"", False, []))
same("title", call("--report", "path_names", "--path", "/", "--filter", "Levels = 0")[1].split(b"\n")[-4:], [b"path_names: Levels = 0", b"  path", b"  /", b""])

# --- A real tree
census = f"{work}/share.smf"
subprocess.run([scan, "/usr/share", "-o", census], check=True, stderr=subprocess.DEVNULL)
find = lambda *a: subprocess.check_output(["find", "/usr/share", *a]).split(b"\0")[:-1]
want = {l.split(b" ")[0]: [*map(int, l.split(b" ")[1:])] for l in find("!", "-type", "d", "-printf", r"%D:%i %s %b\0")}
names = len(find("!", "-type", "d", "-printf", r"x\0"))
figures = (sum(v[0] for v in want.values()), sum(v[1] * 512 for v in want.values()), names)
[root] = [r for r in report("tree_summary", columns="size, space, files, path", path=("/usr/share",)) if r[3] == b"/usr/share/"]
same("/usr/share beside find", root[:3], figures)
du = int(subprocess.check_output(["du", "-s", "-B1", "/usr/share"]).split()[0])
own = sum(int(b) * 512 for b in find("-type", "d", "-printf", r"%b\0"))
same("/usr/share beside du", root[1], du - own)
print("every row agrees" if not failures else f"{len(failures)} comparisons failed")
sys.exit(bool(failures))
