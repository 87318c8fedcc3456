#!/usr/bin/env bash
# The reports of ipe/report.py on a seeded tree, each beside an independent recount (application_model.py), and the
# totals of /usr/share beside find and du. usage: SOURCE BUILD
set -uo pipefail
[ -x "$2/bin/quillsrv" ] && [ -x "$2/bin/quillscan" ] || { echo "no quillsrv or no quillscan in $2/bin" >&2; exit 1; }
export LC_ALL=C.UTF-8 TZ=Europe/Berlin
work=$(realpath "$(mktemp -d)")
trap 'rm -rf "$work"' EXIT
timeout 200 python3 "$1/tests/census/application_model.py" "$(realpath "$1")" "$(realpath "$2")" "$work"
