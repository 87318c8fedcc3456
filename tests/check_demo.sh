#!/usr/bin/env bash
# Runs the usage report on a made tree and on /usr/share, and compares every figure with what find, sort and awk count.
# usage: SOURCE BUILD
. "$(dirname "$0")/checks.sh"
export LC_ALL=C.UTF-8 TZ=Europe/Berlin

# Root reads every folder, so root drops its capabilities where the system lets it.
drop=()
if [ "$(id -u)" -eq 0 ] && setpriv --inh-caps=-all --bounding-set=-all true 2>/dev/null; then
  drop=(setpriv --inh-caps=-all --bounding-set=-all)
fi

report() { # DIR: the whole report, line ends and digit groups plain
  "${drop[@]}" "$server" --top 1000000 --dir "$1" --custom "$source_dir/ipe/usage.py" 2>"$work/errors" </dev/null |
    tr -d , >"$work/report"
  code=${PIPESTATUS[0]}
  [ ! -s "$work/errors" ] || { echo "FAILED: $1 writes on standard error"; head -5 "$work/errors"; failed=1; }
}

figures() { # LABEL: the numbers of a line of the summary, one blank between
  grep -a -- "  $1" "$work/report" | head -1 | sed "s/  $1.*//" | xargs
}

section() { # TITLE: the rows of a table as "name files bytes allocated", sorted
  awk -v title="$1" '$0 == title { on = 1; getline; next } on && $0 == "" { exit } on && $1 > 0 {
    name = $0; sub(/^ *[0-9]+ +[0-9]+ +[0-9]+  /, "", name); print name " " $1 " " $2 " " $3 }' "$work/report" | sort
}

# What find tells of the regular files, one line each: device:inode links size blocks owner year path. A line end in a
# name becomes \001, and files with several names keep the first.
files() {
  "${drop[@]}" find "$1" -xdev -type f -printf '%D:%i %n %s %b %u %TY %P\0' 2>/dev/null | tr '\n\0' '\001\n' |
    LC_ALL=C awk '$2 == 1 || !seen[$1]++' >"$work/files"
}

sums() { # AWK: totals by the key that the awk text computes from the fields
  LC_ALL=C awk "{ path = \$0; sub(/^[^ ]+ [^ ]+ [^ ]+ [^ ]+ [^ ]+ [^ ]+ /, \"\", path)
    name = path; sub(/.*\\//, \"\", name); $1
    n[key]++; s[key] += \$3; b[key] += \$4 * 512 }
    END { for (key in n) printf \"%s %d %d %d\\n\", key, n[key], s[key], b[key] }" "$work/files" | sort
}

count() { "${drop[@]}" find "$@" -printf x 2>/dev/null | wc -c; }

compare() { # DIR BY_NAME: the second says whether names of hard links may differ in extension or tree
  report "$1"
  files "$1"
  same "$1: files" "$(figures 'files: ')" "$(sums 'key = "all"' | cut -d' ' -f2-)"
  same "$1: folders" "$(figures 'folders below')" \
    "$("${drop[@]}" find "$1" -xdev -mindepth 1 -type d -printf '%b\n' 2>/dev/null | awk '{ n++; b += $1 * 512 } END { printf "%d %d", n, b }')"
  same "$1: links" "$(figures 'symbolic links')" "$(count "$1" -xdev -mindepth 1 -type l)"
  same "$1: special files" "$(figures 'special files')" "$(count "$1" -xdev -mindepth 1 ! -type f ! -type d ! -type l)"
  same "$1: further names" "$(figures 'further names' | cut -d' ' -f1)" \
    "$(($(count "$1" -xdev -type f) - $(wc -l <"$work/files")))"
  same "$1: by owner" "$(section 'By owner')" "$(sums 'key = $5')"
  same "$1: by year" "$(section 'By year of the last change')" "$(sums 'key = $6')"
  same "$1: largest" "$(awk '$0 == "Largest files" { on = 1; next } on && $0 == "" { exit } on { print $1 }' "$work/report" | head -50)" \
    "$(cut -d' ' -f3 "$work/files" | sort -rn | head -50)"
  if [ "$2" = yes ]; then
    same "$1: by extension" "$(section 'By extension')" "$(sums '
      key = "(none)"; sub(/^\./, "", name); if (name ~ /\.[^.]+$/) { key = tolower(name); sub(/.*\./, "", key) }')"
    same "$1: by tree" "$(section 'By first-level tree')" "$(sums '
      if (path ~ /\//) { key = path; sub(/\/.*/, "", key) } else key = "(files of the folder itself)"')"
  fi
}

# --- A tree with everything that is odd
tree=$work/tree
mkdir -p "$tree"/{alpha/deep/deeper,beta,"with blank",empty,closed/inner,.hidden}
head -c 100000 /dev/zero >"$tree/alpha/big.bin"
head -c 4097 /dev/zero >"$tree/alpha/deep/page.BIN"
head -c 1 /dev/zero >"$tree/alpha/deep/deeper/one.txt"
: >"$tree/alpha/nothing"
: >"$tree/.bashrc"
printf 'in the top' >"$tree/top.txt"
printf '12345' >"$tree/with blank/two words.tar.gz"
printf 'x' >"$tree/beta/trailing."
printf 'xy' >"$tree/beta/..two"
printf 'secret' >"$tree/.hidden/file.txt"
printf 'latin' >"$tree/beta/"$'na\xefve.txt'
printf 'only bytes' >"$tree/beta/"$'\xff\xfe'
printf 'backslash' >"$tree/beta/"'back\slash.txt'
printf 'newline' >"$tree/beta/"$'new\nline.txt'
printf 'star' >"$tree/beta/"'*?[x].txt'
printf 'wide' >"$tree/beta/größe 世界.txt"
truncate -s 50M "$tree/beta/sparse.img"
head -c 5000 /dev/zero >"$tree/beta/linked.dat"
ln "$tree/beta/linked.dat" "$tree/beta/again.dat"
ln "$tree/beta/linked.dat" "$tree/beta/third.dat"
ln -s ../alpha "$tree/beta/to-folder"
ln -s big.bin "$tree/alpha/to-file"
ln -s nowhere "$tree/alpha/broken"
ln -s .. "$tree/alpha/deep/circle"
mkfifo "$tree/alpha/pipe"
printf 'unseen' >"$tree/closed/inner/file"
mkdir "$tree/beta/"$'dir\xff'
printf 'inside' >"$tree/beta/"$'dir\xff/file.txt'
touch -d '2001-02-03 04:05:06' "$tree/alpha/big.bin"
touch -d '1999-12-31 23:59:59' "$tree/top.txt"
touch -d '2000-01-01 00:00:00' "$tree/beta/linked.dat"
[ "$(id -u)" -ne 0 ] || chown 54321 "$tree/beta/linked.dat"
chmod 000 "$tree/closed/inner"

stored() { # DIR: the report while a store is made, and out of the store, is the one without
  local store=$work/store.dat run
  for run in made answered; do
    "${drop[@]}" "$server" --top 1000000 --dir "$1" --store "$store" --custom "$source_dir/ipe/usage.py" \
      2>"$work/errors" </dev/null | tr -d , >"$work/$run"
    same "$1: exit code, store $run" "${PIPESTATUS[0]}" "$code"
    [ ! -s "$work/errors" ] || { echo "FAILED: $1, store $run, writes on standard error"; head -5 "$work/errors"; failed=1; }
    same "$1: store $run" "$(grep -av '^As it was on ' "$work/$run")" "$(cat "$work/report")"
  done
  same "$1: the day of the store" "$(grep -ac "^As it was on $(date -r "$store" +%F) .* kept in $store" "$work/answered")" 1
  rm "$store"
}

compare "$tree" yes
stored "$tree"
unread=$("${drop[@]}" find "$tree" -type d ! -readable -printf x 2>/dev/null | wc -c)
same "unreadable folders" "$(figures 'folders that could')" "$unread"
same "exit code" "$code" "$([ "$unread" -gt 0 ] && echo 1 || echo 0)"
[ "$unread" -gt 0 ] || [ "$(id -u)" -eq 0 ] || { echo "FAILED: find reads a closed folder"; failed=1; }
if [ "$unread" -gt 0 ]; then
  same "the unreadable folder is named" "$(grep -c "^    $tree/closed/inner: " "$work/report")" 1
fi
same "a name with a line end keeps to its line" "$(grep -c 'new\\nline.txt$' "$work/report")" 1
same "a name with a backslash" "$(grep -c 'beta/back\\slash.txt$' "$work/report")" 1
chmod 700 "$tree/closed/inner"

# --- A mounted file system is not entered
if mkdir "$work/mounts" "$work/mounts/point" && mount -t tmpfs none "$work/mounts/point" 2>/dev/null; then
  echo x >"$work/mounts/point/inside"
  echo y >"$work/mounts/outside"
  report "$work/mounts"
  same "mounts" "$(figures 'mounted file systems')/$(figures 'files: ' | cut -d' ' -f1)/$(grep -c "^    $work/mounts/point$" "$work/report")" "1/1/1"
  umount "$work/mounts/point"
fi

# --- A real tree
compare /usr/share "$([ "$(count /usr/share -xdev -type f -links +1)" -eq 0 ] && echo yes || echo no)"
stored /usr/share

# --- The command line
expect() { # WHAT CODE PATTERN ARGUMENTS...
  says "${@:1:3}" "$server" "${@:4}" --custom "$source_dir/ipe/usage.py"
}
expect "a missing folder" 2 "No such file or directory '$work/absent'" --dir "$work/absent"
expect "a bad number" 2 "wants a number" --top 0x --dir "$work"
expect "an option in the place of a value" 2 "store wants a value" --dir "$tree/beta" --store

# --- Stores that do not answer
answers() { # WHAT CODE PATTERN ARGUMENTS...: as `expect`, with the store
  expect "${@:1:3}" --store "$work/kept.dat" "${@:4}"
}
printf 'not a store' >"$work/kept.dat"
answers "a foreign file" 2 "kept.dat' does not hold a walk: The database has a corrupt header" --dir "$tree/beta"
same "a foreign file stays as it is" "$(cat "$work/kept.dat")" "not a store"
answers "a scan anew" 0 "^Usage of $tree/beta" --dir "$tree/beta" --rescan
answers "the folder from the store" 0 "^As it was on " --top 3
answers "another folder" 2 "does not hold a walk: it is of '$tree/beta'" --dir "$tree/alpha"
"$server" --store "$work/kept.dat" --custom "$source_dir/ipe/usage.py" >"$work/sound" 2>/dev/null </dev/null
cp "$work/kept.dat" "$work/whole.dat"
for part in 1 2 3 4 5 6 7 8 9; do
  cp "$work/whole.dat" "$work/kept.dat"
  printf 'damaged' | dd of="$work/kept.dat" bs=1 seek=$(($(stat -c %s "$work/whole.dat") * part / 10)) conv=notrunc status=none
  "$server" --store "$work/kept.dat" --custom "$source_dir/ipe/usage.py" >"$work/out" 2>"$work/errors" </dev/null
  code=$?
  [ "$code" -eq 2 ] && grep -q "does not hold a walk" "$work/errors" || cmp -s "$work/out" "$work/sound" ||
    { echo "FAILED: damage at $part tenths of a store: exit code $code"; head -3 "$work/out" "$work/errors"; failed=1; }
done
head -c $(($(stat -c %s "$work/kept.dat") / 2)) "$work/kept.dat" >"$work/cut" && mv "$work/cut" "$work/kept.dat"
answers "a cut store" 2 "does not hold a walk"
expect "a store that cannot be made" 2 "No such file or directory: '$work/absent/x.dat.part'" --dir "$tree/beta" \
  --store "$work/absent/x.dat"
if mount -t tmpfs -o size=100k none "$work/mounts/point" 2>/dev/null; then
  expect "a full disk" 2 "No space left on device" --dir /usr/share --store "$work/mounts/point/x.dat"
  same "nothing is left of the store" "$(ls -A "$work/mounts/point")" ""
  umount "$work/mounts/point"
fi
(cd "$tree" && expect "a relative folder" 0 "^Usage of $tree/beta" --dir beta; exit "$failed") || failed=1

# --- The whole demo: a scan, every report, tables
mkdir "$work/demo"
for run in first second; do
  (cd "$work/demo" && QUILL_BIN=$(realpath "$2/bin") "$source_dir/script/demo" "$tree" --top 5) >"$work/out" 2>"$work/errors"
  same "the demo, $run run" "$?/$(cat "$work/errors")" 0/
  same "its totals" "$(grep -A2 '^Trees$' "$work/out" | tail -1 | awk '{ print $5, $NF }')" "$(count "$tree" ! -type d) $tree/"
  same "its sections" "$(grep -c '^$' "$work/out")/$(grep -A1 '^Space map$' "$work/out" | grep -c '100.0% ########')" 16/1
  same "its files" "$(cd "$work/demo" && ls | grep -v :)" "$(printf 'demo.smf\ndemo.sqlite')"
  same "its tables" "$(sqlite3 "$work/demo/demo.sqlite" 'select count(*), count(distinct report) from runs')" "15|15"
done

[ "$failed" -eq 0 ] && echo "every figure agrees"
exit "$failed"
