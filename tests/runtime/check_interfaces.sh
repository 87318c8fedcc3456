#!/usr/bin/env bash
# The global ipaddress_list on a machine with several interfaces, built in a network namespace. usage: SOURCE BUILD
# Without the right to make a namespace only the list of this machine is looked at.
. "$(dirname "$0")/../checks.sh"
cat >"$work/list.py" <<'SCRIPT'
class startup_custom:

out = open("/dev/stdout", "a")
for address in global_get("ipaddress_list"):
    out.write(address + "\n")
SCRIPT
export server work
list() { timeout 60 "$server" --custom "$work/list.py" </dev/null; }
export -f list

if ! unshare -n true 2>/dev/null; then
  echo "no network namespaces for this user: the machine's own list alone"
  list >"$work/got" || exit 1
  ! grep -Evx '([0-9]+\.){3}[0-9]+/[0-9]+' "$work/got" && ! grep -E '^(127\.0\.0\.1|0\.0\.0\.0)/' "$work/got"
  exit
fi
command -v ip >/dev/null || { echo "ip is missing; script/bootstrap installs it" >&2; exit 1; }
unshare -n bash -eu <<'NAMESPACE' || exit 1
want() {
  if ! diff -u <(printf '%s\n' "$@" | sed '/^$/d') <(list | sort); then
    echo "FAILED: ipaddress_list" >&2
    exit 1
  fi
}
want ""
ip link set lo up
want ""
ip link add left0 type veth peer name right0
ip link add left1 type veth peer name right1
ip address add 10.1.2.3/24 dev left0
ip address add 10.1.2.4/24 dev left0
ip address add 172.20.0.1/12 dev right0
ip address add 192.0.2.9/31 dev left1
ip address add 198.51.100.7/32 dev right1
ip address add fd00::1/64 dev left1
ip address add 127.0.0.5/8 dev lo
for device in left0 right0 left1; do ip link set "$device" up; done
want 10.1.2.3/24 10.1.2.4/24 127.0.0.5/8 172.20.0.1/12 192.0.2.9/31 198.51.100.7/32
echo "six addresses on five interfaces"
NAMESPACE
