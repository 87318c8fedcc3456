# Sourced by the checks with SOURCE BUILD: the server, a scratch folder that goes at the end, and a comparison. A check
# ends with `exit "$failed"`.
set -uo pipefail
source_dir=$1 server=$2/bin/quillsrv failed=0 pid=
[ -x "$server" ] || { echo "no $server" >&2; exit 1; }
work=$(realpath "$(mktemp -d)")
trap '[ -z "$pid" ] || kill -KILL "$pid" 2>/dev/null; chmod -R u+rwx "$work" 2>/dev/null; rm -rf "$work"' EXIT

own_server() { # FOLDER: the program in a folder of its own
  mkdir -p "$1"
  ln "$server" "$1/quillsrv" 2>/dev/null || cp "$server" "$1/quillsrv"
  server=$1/quillsrv
}

fail() { echo "FAILED $*"; failed=1; }

same() { # WHAT GOT WANT
  [ "$2" == "$3" ] && return
  fail "$1"
  diff <(printf '%s\n' "$3") <(printf '%s\n' "$2") | head -20
}

says() { # WHAT CODE PATTERN COMMAND...: its exit code, and a line of its output, which stays in $work/out; "" for any
  local what=$1 want=$2 pattern=$3
  shift 3
  "$@" >"$work/out" 2>&1 </dev/null
  same "$what: exit code" "$?" "$want"
  [ -z "$pattern" ] || grep -q -- "$pattern" "$work/out" || { fail "$what: nothing like '$pattern'"; head -5 "$work/out"; }
}
