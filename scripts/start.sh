#!/usr/bin/env bash
# Installs what Taskrack needs, builds it and starts it. Extra arguments go to taskrack.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/install-deps.sh"
"$root/scripts/build.sh" app
exec "$root/build-app/app/taskrack" "$@"
