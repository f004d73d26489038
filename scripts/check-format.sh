#!/usr/bin/env bash
# Fails when a tracked C++ file differs from what clang-format makes of it; with --fix, formats
# them in place. The whole tree is checked: a clean clone has no base to diff against.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"
mapfile -t files < <(git ls-files '*.cpp' '*.h')
if [ "${1:-}" = --fix ]; then
    clang-format -i "${files[@]}"
else
    clang-format --dry-run --Werror "${files[@]}"
fi
