#!/usr/bin/env bash
# Installs what the tests need, builds Taskrack with its tests and runs the whole suite.
#   test.sh           the suite in a debug build
#   test.sh asan      the suite under AddressSanitizer + UndefinedBehaviorSanitizer
# Tests that need a session bus or a display get their own from dbus-run-session and Xvfb.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
flavour=${1:-debug}
"$root/scripts/install-deps.sh"
"$root/scripts/build.sh" "$flavour"
# The integration tests run the pinned provider CLIs; install them up front so no single test
# spends its time limit on npm. Without the registry they skip (and fail in CI).
for provider in codex claude; do
    "$root/testing/providers/install-provider.sh" "$provider" >/dev/null ||
        echo "note: could not install the $provider CLI; its integration tests will skip" >&2
done
cd "$root/build-$flavour"
labels=()
if [ "$flavour" = asan ]; then
    # The real-provider integration runs take minutes and exercise the same code as the debug
    # pass; under the sanitizers the unit and end-to-end suites are what find memory faults.
    labels=(-LE integration)
    export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=0:abort_on_error=1}
    export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}
fi
exec dbus-run-session -- xvfb-run -a -s "-screen 0 1280x800x24 -noreset" \
    ctest --output-on-failure -j "$(nproc)" --timeout 600 "${labels[@]}"
