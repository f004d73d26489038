#!/usr/bin/env bash
# Draws the README's picture of the rack with `taskrack demo --screenshots` on a private X server
# and puts it in docs/images/. Run it again whenever the rack's look changes; never edit the
# picture by hand.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
out="$root/docs/images"
"$root/scripts/build.sh" app >/dev/null
work=$(mktemp -d)
xvfb=
cleanup() {
    [ -n "$xvfb" ] && kill "$xvfb" 2>/dev/null && wait "$xvfb" 2>/dev/null
    rm -rf "$work"
}
trap cleanup EXIT

exec 5>"$work/display"
Xvfb -displayfd 5 -screen 0 1280x800x24 -nolisten tcp -noreset 2>/dev/null &
xvfb=$!
exec 5>&-
for _ in $(seq 200); do
    [ -s "$work/display" ] && break
    sleep 0.05
done
[ -s "$work/display" ] || { echo "Xvfb did not start" >&2; exit 1; }

mkdir -p "$out"
# A private home: nothing of the person's own (settings, shortcuts) changes the picture.
mkdir -p "$work/home"
DISPLAY=":$(head -n1 "$work/display")" QT_QPA_PLATFORM=xcb HOME="$work/home" \
    XDG_CONFIG_HOME="$work/home/.config" XDG_DATA_HOME="$work/home/.local/share" \
    "$root/build-app/app/taskrack" demo --scenario activity --screenshots "$work/shots" >/dev/null
cp "$work/shots/activity.png" "$out/rack.png"
echo "$out/rack.png"
