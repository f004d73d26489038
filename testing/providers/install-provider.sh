#!/usr/bin/env bash
# Installs a pinned provider CLI from the npm registry into a cache folder outside the source
# tree and prints the path of its executable. Exit 0: installed (or already there). Exit 77:
# the registry could not be reached, so the caller may skip (CI turns that into a failure).
#
#   install-provider.sh codex   -> @openai/codex@0.169.0
#   install-provider.sh claude  -> @anthropic-ai/claude-code@2.1.330
set -euo pipefail
which_tool=${1:?usage: install-provider.sh codex|claude}
case "$which_tool" in
codex) package=@openai/codex version=0.169.0 bin=codex ;;
claude) package=@anthropic-ai/claude-code version=2.1.330 bin=claude ;;
*) echo "unknown provider: $which_tool" >&2; exit 2 ;;
esac
cache=${TASKRACK_PROVIDER_CACHE:-${XDG_CACHE_HOME:-$HOME/.cache}/taskrack/providers}
dir="$cache/$which_tool-$version"
exe="$dir/node_modules/.bin/$bin"
if [ -x "$exe" ]; then
    echo "$exe"
    exit 0
fi
command -v npm >/dev/null || { echo "npm is not installed" >&2; exit 77; }
mkdir -p "$dir"
lock="$dir.lock"
exec 9>"$lock"
flock 9
if [ ! -x "$exe" ]; then
    (cd "$dir" && [ -f package.json ] || echo '{"name":"taskrack-provider-cache","private":true}' >package.json)
    if ! (cd "$dir" && timeout 600 npm install --no-audit --no-fund --loglevel=error \
        --cache "$cache/npm-cache" "$package@$version" >&2); then
        echo "could not install $package@$version from the npm registry" >&2
        exit 77
    fi
fi
echo "$exe"
