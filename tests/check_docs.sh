#!/usr/bin/env bash
# Runs every example of docs/scripting.md that is followed by its output, and compares. usage: SOURCE BUILD
. "$(dirname "$0")/checks.sh"

# An example is a fenced block "python" with a block "text" right behind it: N.py and N.want. One that prints by
# itself needs no output from the library of the tests.
awk -v dir="$work" '
  /^```python$/ { n++; file = dir "/" n ".py"; line[n] = NR; print NR > (dir "/" n ".line")
                  printf "class startup_custom:\n\ninterpreter(\"load\", fs(\"get_env\", \"QUILL_CHECK\"))\nimport check\n" > file
                  next }
  /^```text$/ { file = dir "/" n ".want"; printf "" > file; next }
  /^```/ { if (file) close(file); file = ""; next }
  file { print > file }
' "$source_dir/docs/scripting.md"

count=0
for want in "$work"/*.want; do
  name=$(basename "$want" .want)
  mkdir "$work/$name.d"
  QUILL_SCRATCH=$work/$name.d QUILL_CHECK=$source_dir/tests/scripts/lib/check.py LC_ALL=C.UTF-8 \
    timeout 60 "$server" --custom "$work/$name.py" </dev/null 2>"$work/$name.err" | tr -d '\r' >"$work/$name.got"
  count=$((count + 1))
  if [ -s "$work/$name.err" ] || ! diff -u "$want" "$work/$name.got"; then
    echo "FAILED: the example at line $(cat "$work/$name.line") of docs/scripting.md"
    head -20 "$work/$name.err"
    failed=$((failed + 1))
  fi
done
# A guide that lost its examples would pass for nothing.
[ "$count" -ge 20 ] || { echo "only $count examples found" >&2; exit 1; }
echo "$((count - failed)) of $count examples agree"
[ "$failed" -eq 0 ]
