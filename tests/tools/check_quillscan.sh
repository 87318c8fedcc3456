#!/usr/bin/env bash
# quillscan on seeded trees: every row beside what find tells, sums beside du, whatever the number of threads; trees that
# change, folders that cannot be read, mounts, signals, a full disk. usage: SOURCE BUILD
. "$1/tests/checks.sh"
export LC_ALL=C.UTF-8 TZ=Europe/Berlin
scan=$2/bin/quillscan dump=$2/bin/storedump
[ -x "$scan" ] && [ -x "$dump" ] || { echo "no $scan or no $dump" >&2; exit 1; }
chmod 755 "$work"
tree=$work/tree scans=$work/scans census=$work/scans/census.smf
mkdir -m 777 "$scans"

# The model: what find tells of the roots, and what must hold for any census.
cat >"$work/model.py" <<'PY'
import os, re, subprocess, sys, time
dump, census, command = sys.argv[1:4]
def text(cell):
    return re.sub(rb"\\(x..|.)", lambda m: {b"t": b"\t", b"n": b"\n", b"\\": b"\\"}.get(m[1]) or bytes([int(m[1][1:], 16)]), cell)
def table(name):
    lines = subprocess.check_output([dump, "--rows", "9999999", "--table", name, census]).split(b"\n")[1:-1]
    heads = lines[0].decode().split("\t")
    return [dict(zip(heads, map(text, line.split(b"\t")))) for line in lines[1:]]
number = lambda row, *names: [int(row[n]) for n in names]
paths, files, roots, problems = map(table, ("Path", "File", "Root", "Problem"))
entities = {int(e["Number"]): (e["Type"], int(e["ID"])) for e in table("Entity")}
# Order: row n has number n, a parent is on the open branch, files stand by path.
full, branch = {0: b""}, []
for at, row in enumerate(paths, 1):
    n, parent = number(row, "Number", "Parent")
    while branch and branch[-1] != parent: branch.pop()
    assert n == at and (branch or at == 1), (at, row)
    branch.append(n)
    full[n] = b"/" if n == 1 else full[parent].rstrip(b"/") + b"/" + row["Name"]
assert len(set(full.values())) == len(full) and paths[0]["Name"] == b"/"
order = [int(f["PathNumber"]) for f in files]
assert order == sorted(order)
moment = lambda seconds: time.strftime("%Y-%m-%d %H:%M:%S", time.localtime(int(seconds.split(b".")[0]))).encode()
def entry(kind, row, path):
    return (path, kind, *number(row, "Mode", "Links", "Inode", "Device"), entities[int(row["Owner"])], entities[int(row["Group"])],
            row["Modified"], row["Accessed"], row["Changed"], row.get("Target", b""))
def join(n, name): return full[n].rstrip(b"/") + b"/" + name
rootPaths = [r["Path"].rstrip(b"/") or b"/" for r in roots]
def isInside(path): return any(path == r or path.startswith(r.rstrip(b"/") + b"/") for r in rootPaths)
if command == "compare":  # find's arguments follow
    out = subprocess.check_output(["find", *rootPaths, *sys.argv[4:], "-printf",
        r"%p\0%y\0%m\0%n\0%i\0%D\0%U\0%G\0%T@\0%A@\0%C@\0%l\0%s\0%b\0"]).split(b"\0")[:-1]
    want, sizes = set(), {}
    for i in range(0, len(out), 14):
        p, y, m, n, ino, dev, u, g, t, a, c, link, size, blocks = out[i:i + 14]
        want.add((p, y, int(m, 8), int(n), int(ino), int(dev), (b"user", int(u)), (b"group", int(g)),
                  moment(t), moment(a), moment(c), link))
        sizes[p] = (int(size), int(blocks) * 512)
    got = set(entry(b"d", row, full[int(row["Number"])]) for row in paths if isInside(full[int(row["Number"])]))
    got |= set(entry(row["Type"], row, join(int(row["PathNumber"]), row["Name"])) for row in files)
    assert got == want, (sorted(got - want)[:3], sorted(want - got)[:3])
    assert len(files) + len([p for p in full.values() if p and isInside(p)]) == len(want), "rows that come twice"
    seen = set()
    for row in files:
        key = tuple(number(row, "Device", "Inode"))
        own, link = number(row, "Size", "Space"), number(row, "LinkSize", "LinkSpace")
        figures = sizes[join(int(row["PathNumber"]), row["Name"])]
        first = int(row["Links"]) < 2 or key not in seen
        seen.add(key)
        assert int(row["Counted"]) == first and (own, link) == ((list(figures), [0, 0]) if first else ([0, 0], list(figures))), row
    for root, path in zip(roots, rootPaths):
        below = [n for n, p in full.items() if p == path or p.startswith(path.rstrip(b"/") + b"/")]
        mine = [f for f in files if int(f["PathNumber"]) in set(below)]
        total = lambda field, rows: sum(int(r[field]) for r in rows)
        assert number(root, "Folders", "Files", "Size", "Space") == [len(below), len(mine), total("Size", mine), total("Space", mine)], root
    # du counts directories too, and links once over all its arguments.
    if len(sys.argv) == 4:
        du = lambda *o: int(subprocess.check_output(["du", "-sc", *o, *rootPaths]).split(b"\n")[-2].split()[0])
        folders = [row for row in paths if isInside(full[int(row["Number"])])]
        assert du("-b") == total("Size", files) + total("OwnSize", folders)
        assert du("-B1") == total("Space", files) + total("OwnSpace", folders)
elif command == "paths":
    for n, row in enumerate(paths, 1):
        if isInside(full[n]): print(os.fsdecode(full[n]), int(row["Error"]))
elif command == "names":
    for row in files: print(os.fsdecode(join(int(row["PathNumber"]), row["Name"])))
elif command == "rights":
    for row in table("PathDACL"):
        if full[int(row["Path"])] == os.fsencode(sys.argv[4]):
            print(os.fsdecode(b" ".join((row["Type"], str(entities.get(int(row["Entity"]), ("-", 0))[1]).encode(), row["Rights"], row["Text"]))))
elif command == "problems":
    for row in problems: print(full[int(row["Path"])].decode(), row["Name"].decode(), row["Call"].decode(), row["Error"].decode(), row["Message"].decode())
PY
model() { python3 "$work/model.py" "$dump" "$census" "$@"; }
rows() { # without what two scans may differ in: directories above the tree, and when it was
  for table in File PathDACL Entity Problem; do "$dump" --rows 9999999 --table $table "$census"; done
  "$dump" --rows 9999999 --table Path "$census" | tail -n "+$(($(tr -dc / <<<"$tree" | wc -c) + 3))"
  "$dump" --rows 9 --table Root "$census" | cut -f 1-6,9-
}
compare() { model compare "$@" || fail "$what"; }

# --- A tree with everything
python3 - "$tree" <<'PY'
import os, random, sys
random.seed(7)
root = os.fsencode(sys.argv[1])
def write(path, size):
    with open(path, "wb") as f: f.write(b"x" * size)
    os.utime(path, ns=(random.randrange(2**60), random.randrange(2**60)))
folders = [root]
os.makedirs(root)
for i in range(300):
    path = random.choice(folders) + b"/d%d" % i
    os.mkdir(path, random.choice((0o755, 0o700, 0o2775, 0o1777)))
    folders.append(path)
for i in range(3000): write(random.choice(folders) + b"/file%d.%s" % (i, random.choice((b"txt", b"so", b"o", b"py"))), random.choice((0, 5, 4096, 70000)))
odd = root + b"/odd"
os.mkdir(odd)
for name in (b"new\nline", b"tab\tback\\slash", b"\xff\xfe.txt", b"x" * 255, b"\xc3\xa4" * 127, b"-rf", b" ", b"\x01\x7f", b".hidden", b"a.b.c."):
    write(odd + b"/" + name, 10)
    os.mkdir(odd + b"/" + (b"\xe9 dir " + name)[:255])
os.symlink(b"../d0", odd + b"/link")
os.symlink(b"/nowhere/\xff" + b"n" * 3000, odd + b"/dangling")
os.mkfifo(odd + b"/fifo")
with open(odd + b"/sparse", "wb") as f: f.truncate(1 << 33)
os.mkdir(root + b"/big")
for i in range(18000): os.close(os.open(root + b"/big/n%x" % (i * 2654435761 % 2**32), os.O_CREAT | os.O_WRONLY))
for i in range(40): os.mkdir(root + b"/big/sub%d" % i)
files = [p + b"/" + n for p in folders for n in os.listdir(p) if os.path.isfile(p + b"/" + n)]
for i in range(60): os.link(random.choice(files), random.choice(folders) + b"/hard%d" % i)
os.chdir(root + b"/odd")
for i in range(2000):
    os.mkdir(b"deep%d" % i)
    os.chdir(b"deep%d" % i)
write(b"bottom", 3)
PY
find "$tree" -printf %l >/dev/null # access times move once, now
for threads in 1 2 4; do
  what="$threads threads"
  says "$what" 0 "" "$scan" --threads $threads -o "$census" "$tree"
  rows >"$work/rows$threads"
  cmp -s "$work/rows1" "$work/rows$threads" || fail "$what: other rows than one thread"
done
what="every row as find tells it"
compare
what="few descriptors"
(ulimit -n 44; "$scan" --threads 4 -o "$census" "$tree") || fail "$what"
cmp -s "$work/rows1" <(rows) || fail "$what: other rows"
what="zlib blocks"
"$scan" --compress zlib -o "$census" "$tree" && "$dump" --verify "$census" >/dev/null && cmp -s "$work/rows1" <(rows) || fail "$what"

# --- Roots, patterns, the output in its tree
what="several roots, one inside another, one twice"
mkdir -p "$tree/d0/in" "$tree/d0.x"
ln "$tree/odd/fifo" "$tree/d0.x/second"
says "$what" 0 "" "$scan" -o "$census" "$tree/odd/../odd/" "$tree/d0.x" "$tree/d0/in" "$tree/d0" "$tree/odd"
compare
same "$what: roots" "$("$dump" --rows 9 --table Root "$census" | tail -n +3 | cut -f 2,3)" \
  "$(printf '%s/\t%s\n' "$tree/d0" d0 "$tree/d0.x" d0.x "$tree/odd" odd)"
what="patterns"
printf '# comment\n\n%s/odd/deep0/\n[a-h]ard*\n' "$tree" >"$work/patterns"
says "$what" 0 "" "$scan" -o "$census" --exclude '*.o' --exclude big --exclude "$tree/d*/d*/*.so" --exclude-from "$work/patterns" "$tree"
compare -not '(' -name '*.o' -o -path "$tree/big*" -o -path "$tree/d*/d*/*.so" -o -path "$tree/odd/deep0*" -o -name '[a-h]ard*' ')'
what="the output is left out"
touch "$tree/d0/out.smf"
says "$what" 0 "directories.* files.*entries/s" "$scan" -v -o "$tree/d0/out.smf" "$tree/d0"
census=$tree/d0/out.smf model names | grep -q 'out\.smf' && fail "$what"
census=$tree/d0/out.smf compare -not -name out.smf
rm "$tree/d0/out.smf"

# --- Access lists
if setfacl -m u:1234:rx,g:2345:w,d:u::rwx,d:g::-,d:o::x "$tree/d0" 2>/dev/null; then
  "$scan" -o "$census" "$tree/d0"
  same "access list" "$(model rights "$tree/d0")" "$(printf '%s\n' "owner $(id -u) 7 rwx" 'user 1234 5 r-x' "group $(id -g) $(getfacl -cp "$tree/d0" |
    sed -n 's/^group::\(...\).*/\1/p' | sed 's/r-x/5 r-x/; s/---/0 ---/; s/rwx/7 rwx/')" 'named group 2345 2 -w-' 'mask 0 7 rwx' \
    "other 0 $(getfacl -cp "$tree/d0" | sed -n 's/^other::\(...\).*/\1/p' | sed 's/r-x/5 r-x/; s/---/0 ---/')" \
    "default owner $(id -u) 7 rwx" "default group $(id -g) 0 ---" 'default other 0 1 --x')"
else
  echo "no access lists here: skipped"
fi

# --- What cannot be read
lower=()
[ "$(id -u)" -ne 0 ] || lower=(setpriv --reuid 65534 --regid 65534 --clear-groups)
if ! "${lower[@]}" test -x "$scan"; then cp "$scan" "$work/quillscan" && scan=$work/quillscan; fi
closed=$work/closed
mkdir -p "$closed/none/sub" "$closed/list/sub" "$closed/open" && touch "$closed/list/file" "$closed/open/file"
[ ${#lower[@]} -eq 0 ] || chown -R 65534:65534 "$closed"
chmod 000 "$closed/none" && chmod 444 "$closed/list"
says "unreadable folders" 0 "3 things could not be read" "${lower[@]}" "$scan" -o "$census" "$closed"
same "unreadable folders: rows" "$(model paths)" "$(printf '%s\n' "$closed 0" "$closed/list 0" "$closed/none 13" "$closed/open 0")"
same "unreadable folders: problems" "$(model problems)" "$(printf '%s Permission denied\n' "$closed/list file statx 13" \
  "$closed/list sub openat 13" "$closed/none  openat 13")"
says "--strict" 3 "none: Permission denied" "${lower[@]}" "$scan" --strict -o "$census" "$closed"

# --- Mounts
mounts=$work/mounts
mkdir -p "$mounts/a/other" "$mounts/a/loop" "$mounts/tiny"
space=(unshare -m)
[ "$(id -u)" -eq 0 ] || space=(unshare -rm)
if "${space[@]}" mount -t tmpfs none "$mounts/tiny" 2>/dev/null; then
  "${space[@]}" bash -c "cd '$mounts' && mount -t tmpfs none a/other && touch a/other/file && mount --bind a a/loop &&
    '$scan' -o '$scans/all.smf' a; '$scan' -x -o '$scans/x.smf' a; '$scan' -x -o '$scans/both.smf' a a/other
    mount -t tmpfs -o size=32k none tiny && '$scan' -o tiny/c.smf '$tree'; echo code \$?; ls -A tiny" >"$work/out" 2>&1
  same "a full disk" "$(grep -c 'No space left on device' "$work/out") $(tail -1 "$work/out")" "1 code 1"
  for kind in "all 1" "x 0" "both 1"; do
    set -- $kind
    same "mounts, $1" "$(census=$scans/$1.smf model paths; census=$scans/$1.smf model names | wc -l)" \
      "$(printf '%s\n' "$mounts/a 0" "$mounts/a/loop 40" "$mounts/a/other 0" "$2")"
  done
else
  echo "no mounts here: skipped"
fi

# --- A tree that changes
moving=$work/moving
mkdir -p "$moving" "$work/outside/below"
touch "$work/outside/SECRET" "$work/outside/below/SECRET"
python3 - "$moving" "$work/outside" <<'PY' &
import os, random, shutil, sys, time
root, outside = sys.argv[1:]
random.seed(3)
end = time.time() + 20
while time.time() < end and os.path.isdir(root):
    path = root + "/%d" % random.randrange(40)
    try:
        if os.path.islink(path) or os.path.isfile(path): os.unlink(path)
        elif os.path.isdir(path): os.rename(path, root + "/gone"); shutil.rmtree(root + "/gone")
        elif random.random() < 0.4: os.symlink(outside, path)
        elif random.random() < 0.4: open(path, "w").close()
        else: os.makedirs(path + "/a/b"); open(path + "/a/file", "w").close()
    except OSError: pass
PY
mover=$!
for i in $(seq 15); do
  "$scan" --threads $((1 + i % 3)) -o "$census" "$moving" 2>/dev/null || fail "a tree that changes: exit code $?"
  model names | grep -q SECRET && fail "a link was followed"
done
kill $mover
wait $mover 2>/dev/null

# --- Ends
rm -f "$census"
for signal in TERM INT KILL; do
  # A shell without job control starts background work with SIGINT ignored.
  python3 -c 'import signal, os, sys; signal.signal(signal.SIGINT, signal.SIG_DFL); os.execv(sys.argv[1], sys.argv[1:])' \
    "$scan" -o "$census" / --exclude proc --exclude sys &
  victim=$!
  for ((i = 0; i < 1000; ++i)); do [ -e "$census.part-$victim" ] && break; sleep 0.01; done
  [ -e "$census.part-$victim" ] || fail "$signal: no part file"
  kill -$signal $victim
  wait $victim 2>/dev/null
  same "$signal: exit code" $? $((128 + $(kill -l $signal)))
  [ ! -e "$census" ] || fail "$signal left a census"
  [ $signal == KILL ] || [ -z "$(ls -A "$scans" | grep part)" ] || fail "$signal left a part file"
done
rm -f "$scans"/*
echo old >"$census"
chmod 640 "$census"
(ulimit -f 20; says "a limit of the file's size" 1 "File too large" "$scan" -o "$census" "$tree"; exit $failed) || failed=1
same "the old file stays" "$(cat "$census") $(ls -A "$scans")" "old census.smf"
"$scan" -o "$census" "$tree/d0" && same "a file is replaced" "$(stat -c %a "$census") $(model paths | sed -n 1p)" "640 $tree/d0 0"
ln -s census.smf "$scans/link"
"$scan" -o "$scans/link" "$tree/odd" && same "a link leads on" "$(model paths | sed -n 1p) $(readlink "$scans/link")" "$tree/odd 0 census.smf"

# --- The command line
same "the manual page" "$(mandoc -T lint -W warning "$source_dir/man/quillscan.1" 2>&1)" ""
says "help" 0 "^usage: quillscan" "$scan" --help
says "version" 0 "^quillscan [0-9]" "$scan" --version
for wrong in "" "--threads 0 ." "--threads 2x ." "--compress gzip ." "--bogus ." "-q ." "-o"; do
  says "'$wrong'" 2 "^quillscan: .*[a-z]" "$scan" $wrong
done
says "a missing root" 1 "No such file.*absent" "$scan" -o "$census" "$work/absent"
says "a root that is a file" 1 "Not a directory" "$scan" -o "$census" "$census"
says "no folder for the output" 1 "No such file" "$scan" -o "$work/absent/c.smf" "$tree"
says "a device as output" 1 "Invalid argument.*/dev/null" "$scan" -o /dev/null "$tree"

[ "$failed" -eq 0 ] && echo "quillscan tells what is there"
exit "$failed"
