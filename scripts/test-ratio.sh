#!/usr/bin/env bash
# Prints the lines of test code (every tests/ and xcbtests/ folder, testing/, fuzz/) against the
# lines of the rest of the tracked C++ and Python sources, and their ratio.
set -euo pipefail
cd "$(dirname "$0")/.."
mapfile -t files < <(git ls-files '*.cpp' '*.h' '*.py')
tests=0
code=0
for file in "${files[@]}"; do
    lines=$(wc -l <"$file")
    case "$file" in
    */tests/* | */xcbtests/* | testing/* | fuzz/*) tests=$((tests + lines)) ;;
    *) code=$((code + lines)) ;;
    esac
done
awk -v t="$tests" -v c="$code" 'BEGIN { printf "tests %d, code %d, ratio %.3f\n", t, c, t / c }'
