#!/bin/bash
# Runs the script that calls every built-in function; its exit code counts the differences.
set -u
server="$2/quillsrv"
timeout 60 "$server" --custom "$1/tests/scripts/builtins_all.py"
code=$?
[ $code -eq 0 ] || { echo "builtins_all.py ended with $code"; exit 1; }
