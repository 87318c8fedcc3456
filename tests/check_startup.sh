#!/usr/bin/env bash
# The serving program: says that it serves, ends on --once with exit code 0 and on SIGTERM soon. usage: SOURCE BUILD
. "$(dirname "$0")/checks.sh"
says "--once" 0 '^quillsrv serves on .*, running, since [0-9-]* [0-9:]*$' timeout 60 "$server" --standalone --once
same "its end" "$(tail -1 "$work/out")" "quillsrv ends on request"

"$server" --standalone >"$work/serving" 2>&1 </dev/null &
pid=$!
for _ in $(seq 600); do
  grep -q 'quillsrv serves' "$work/serving" && break
  sleep 0.1
done
grep -q 'quillsrv serves' "$work/serving" || fail "it does not say that it serves"
sleep 1
kill -TERM "$pid" || fail "it does not stay"
wait "$pid"
same "SIGTERM" "$?" 0
pid=
exit "$failed"
