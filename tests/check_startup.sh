#!/usr/bin/env bash
# The serving program: says that it serves, ends on --once with exit code 0 and on SIGTERM soon. usage: SOURCE BUILD
. "$(dirname "$0")/checks.sh"

timeout 60 "$server" --standalone --once >"$work/once" 2>&1 </dev/null
code=$?
if [ "$code" -ne 0 ] || ! grep -q '^quillsrv serves on .*, running, since [0-9-]* [0-9:]*$' "$work/once" ||
  ! grep -q '^quillsrv ends on request$' "$work/once"; then
  echo "FAILED --once: exit code $code"; cat "$work/once"; exit 1
fi

"$server" --standalone >"$work/serving" 2>&1 </dev/null &
pid=$!
for _ in $(seq 600); do
  grep -q 'quillsrv serves' "$work/serving" && break
  sleep 0.1
done
grep -q 'quillsrv serves' "$work/serving" || { echo "FAILED: it does not say that it serves"; cat "$work/serving"; exit 1; }
sleep 1
kill -0 "$pid" || { echo "FAILED: it does not stay"; cat "$work/serving"; exit 1; }
kill -TERM "$pid"
wait "$pid"
code=$?
pid=
[ "$code" -eq 0 ] || { echo "FAILED SIGTERM: exit code $code"; cat "$work/serving"; exit 1; }
