#!/usr/bin/env bash
# Every C++ source is formatted as .clang-format says. usage: SOURCE BUILD
set -uo pipefail
cd "$1"
command -v clang-format >/dev/null || { echo "clang-format is missing; script/bootstrap installs it" >&2; exit 1; }
find src administration tests bench fuzz tools -name '*.cpp' -o -name '*.h' -o -name '*.inc' | sort |
  xargs -d '\n' clang-format --dry-run -Werror
