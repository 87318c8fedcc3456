#!/usr/bin/env bash
# Runs every script program beside this file and compares what it prints with NAME.out. usage: SOURCE BUILD [NAME...]
# Where NAME.out says "N checks", that stands for N lines "ok LABEL"; anything else that is printed shows.
set -uo pipefail
source_dir=$1 build=$2
shift 2
here=$source_dir/tests/scripts
server=$build/bin/quillsrv
[ -x "$server" ] || { echo "no $server" >&2; exit 1; }
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failed=0 count=0
[ $# -gt 0 ] || set -- $(cd "$here" && printf '%s\n' *.out | sed 's/\.out$//')

for name in "$@"; do
  scratch=$work/$name
  mkdir -p "$scratch/bad"
  : >"$scratch/bad/plain"
  : >"$scratch/bad/"$'latin\xe4'
  : >"$scratch/bad/back\\slash"
  QUILL_SCRATCH=$scratch QUILL_SCRIPTS=$here QUILL_CHECK=$here/lib/check.py LC_ALL=C.UTF-8 TZ=CET-1CEST,M3.5.0,M10.5.0/3 \
    timeout 120 "$server" --custom "$here/$name.py" </dev/null 2>"$work/$name.err" | tr -d '\r' >"$work/$name.got"
  code=${PIPESTATUS[0]}
  count=$((count + 1))
  if grep -q '^[0-9]* checks$' "$here/$name.out"; then
    passed=$(grep -c '^ok ' "$work/$name.got")
    sed -i '/^ok /d' "$work/$name.got"
    echo "$passed checks" >>"$work/$name.got"
  fi
  if [ "$code" -ne 0 ] || [ -s "$work/$name.err" ] || ! diff -u "$here/$name.out" "$work/$name.got"; then
    echo "FAILED $name (exit code $code)"
    sed 's/^/  stderr: /' "$work/$name.err" | head -20
    failed=$((failed + 1))
  fi
done
echo "$((count - failed)) of $count script programs pass"
[ "$failed" -eq 0 ]
