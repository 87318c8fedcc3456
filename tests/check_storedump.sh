#!/usr/bin/env bash
# storedump on the store that the script program `stores` leaves: the list, rows, and damage of every kind that the
# check must find. usage: SOURCE BUILD
. "$(dirname "$0")/checks.sh"
dump=$2/bin/storedump
[ -x "$dump" ] || { echo "no $dump" >&2; exit 1; }
export LC_ALL=C.UTF-8 TZ=Europe/Berlin
QUILL_SCRATCH=$work QUILL_CHECK=$source_dir/tests/scripts/lib/check.py "$server" \
  --custom "$source_dir/tests/scripts/stores.py" >/dev/null 2>&1 </dev/null
store=$work/every.dat
[ -s "$store" ] || { echo "no store was made" >&2; exit 1; }

# --- The list and the rows
says "the file" 0 "every.dat: $(stat -c %s "$store") bytes, columns, compressed option on, 4 tables$" "$dump" "$store"
same "tables and fields" "$(grep -E '^(table| +field)' "$work/out" | head -10 | sed 's/, tags.*//')" 'table "File": 25 rows, 9 fields, block size 4096, zero interval 10
  field 0 "Name": String, codec AFBD
  field 1 "Owner": String, codec ADBD
  field 2 "Count": I32, codec DMAD
  field 3 "Size": I64, codec ESAD
  field 4 "Made": Date, codec FDAD
  field 5 "Modified": DateTime, codec JDAD
  field 6 "Attributes": Flag, codec HDAD
  field 7 "Branch": Tree, codec ISBD
  field 8 "_order": I64, codec ESAD'
same "streams of a table of each kind" "$(grep -cE '^      data: lz4, 1 blocks of 4096, ' "$work/out") $(grep -cE '^      data: zlib' "$work/out")" "12 12"
says "options" 0 "^  options {'root': '/data'}$" "$dump" "$store"
same "rows as text" "$("$dump" --rows 2 --table File "$store")" "$(printf '# File\nName\tOwner\tCount\tSize\tMade\tModified\tAttributes\tBranch\t_order
file0.txt\troot\t0\t0\t2000-02-01\t2000-02-01 12:30:00\tR\tusr/share/d0\t0
file1.txt\tgröße\t1000\t1000000\t2001-02-02\t2001-02-02 12:30:01\tH,S\tusr/share/d1\t1')"
same "rows of all tables" "$("$dump" --rows 100 "$store" | wc -l)" $((4 * 2 + 25 + 25 + 1))

# --- Faults
says "a sound store" 0 "no fault, $((25 * 9 + 25 + 1)) values$" "$dump" --verify "$store"
cut() { head -c "$1" "$store" >"$work/cut.dat"; }
cut $(($(stat -c %s "$store") - 1))
says "a cut header of the main stream" 1 "cut.dat: .*DatabaseError" "$dump" --verify "$work/cut.dat"
# Every thirteenth byte flipped in turn: a fault or a sound file, never anything else, and both kinds of place are met.
: >"$work/faults"
size=$(stat -c %s "$store")
for ((at = 0; at < size; at += 13)); do
  cp "$store" "$work/flip.dat"
  byte=$(od -An -tu1 -j"$at" -N1 "$store")
  printf "\\x$(printf %02x $((byte ^ 0x15)))" | dd of="$work/flip.dat" bs=1 seek="$at" conv=notrunc status=none
  timeout 20 "$dump" --verify "$work/flip.dat" >>"$work/faults" 2>>"$work/faults" </dev/null
  code=$?
  [ "$code" -le 1 ] || fail "byte $at flipped: exit code $code"
done
for pattern in 'table "File", field "[A-Za-z]*": .*block 0 of ' 'table "File", field "[A-Za-z]*", row [0-9]*: DatabaseError: ' \
  'DatabaseError: The database has a corrupt header'; do
  grep -q "flip.dat: .*$pattern" "$work/faults" || fail "no fault like '$pattern'"
done

# --- The command line
says "help" 0 "^usage: storedump" "$dump" --help
says "no file" 2 "no file is named" "$dump"
says "an unknown option" 2 "unknown option '--row'" "$dump" --row 5 "$store"
says "a bad number" 2 "wants a number" "$dump" --rows 5x "$store"
says "two files" 2 "one file" "$dump" "$store" "$store"
says "a missing file" 1 "No such file or directory: '$work/absent'" "$dump" "$work/absent"
says "a missing table" 1 'no table "Absent"' "$dump" --rows 1 --table Absent "$store"

[ "$failed" -eq 0 ] && echo "storedump tells what is there"
exit "$failed"
