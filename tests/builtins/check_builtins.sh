#!/bin/bash
# Runs the script that calls every built-in function. Its exit code counts the differences; an error ends it
# early, so its last words count too.
set -u
words=$(timeout 60 "$2/bin/quillsrv" --custom "$1/tests/builtins/all.py" 2>&1)
code=$?
echo "$words"
[ $code -eq 0 ] && [ "$words" = "builtins: every function called" ]
