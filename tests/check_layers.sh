#!/usr/bin/env bash
# The floors of the house: the sources obey them, and the check sees an arrow that runs up. usage: SOURCE BUILD
set -uo pipefail
check=$1/tools/check-layers
"$check" "$1" || { echo "the sources break the floors" >&2; exit 1; }

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir -p "$work"/src/{platform,runtime/streams,ipe/values,ipe/language,attic}
echo '#include "platform/low.h"' >"$work/src/runtime/mid.h"
: >"$work/src/platform/low.h"
echo '#include <vector>' >"$work/src/ipe/language/high.h"
"$check" "$work" || { echo "a house in order is refused" >&2; exit 1; }

refused() { # FILE LINE: a file with that line must fail the check, and be named
  printf '%s\n' "$2" >"$work/$1"
  if said=$("$check" "$work") || ! grep -q "^$1:" <<<"$said"; then
    echo "not refused: $2 in $1" >&2
    exit 1
  fi
  rm "$work/$1"
}
refused src/platform/bad.cpp '#include "runtime/mid.h"'
refused src/runtime/bad.cpp '  #  include "ipe/language/high.h"'
refused src/ipe/values/bad.cpp '#include "ipe/language/high.h"'
: >"$work/src/runtime/streams/stream.h"
refused src/runtime/bad.cpp '#include "runtime/streams/stream.h"'
refused src/runtime/bad.cpp '#include "runtime/absent.h"'
refused src/attic/bad.cpp 'int x;'
