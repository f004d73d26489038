#!/usr/bin/env bash
# Configures and builds one flavour of Taskrack into build-<flavour>/.
#   build.sh app       optimised, only the programs a person runs (what start.sh builds)
#   build.sh release   optimised, everything including the benchmarks
#   build.sh debug     with the tests
#   build.sh asan      the tests under AddressSanitizer + UndefinedBehaviorSanitizer
#   build.sh fuzz      the libFuzzer targets (clang)
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
flavour=${1:-debug}
dir="$root/build-$flavour"
args=(-G Ninja -DCMAKE_EXPORT_COMPILE_COMMANDS=ON)
case "$flavour" in
app) args+=(-DCMAKE_BUILD_TYPE=Release -DTASKRACK_TESTS=OFF -DTASKRACK_BENCH=OFF) ;;
release) args+=(-DCMAKE_BUILD_TYPE=Release) ;;
debug) args+=(-DCMAKE_BUILD_TYPE=Debug -DTASKRACK_BENCH=OFF) ;;
asan) args+=(-DCMAKE_BUILD_TYPE=Debug -DTASKRACK_SANITIZE=ON -DTASKRACK_BENCH=OFF) ;;
fuzz) args+=(-DCMAKE_BUILD_TYPE=RelWithDebInfo -DTASKRACK_FUZZ=ON
             -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++) ;;
*) echo "unknown flavour: $flavour" >&2; exit 2 ;;
esac
cmake -S "$root" -B "$dir" "${args[@]}" >/dev/null
targets=()
[ "$flavour" = fuzz ] && targets=(--target fuzz_targets)
[ "$flavour" = app ] && targets=(--target programs)
cmake --build "$dir" -j "$(nproc)" "${targets[@]}"
