#!/usr/bin/env bash
# Screenshots of the tray item in Debian's trayer under a private Xvfb and session bus: every
# badge state on a light and a dark panel at 16 and 22 pixels, then the real application's
# menu opened by an XTest right click.
#   tray_screenshots.sh BUILD_DIR OUT_DIR
set -euo pipefail
if [ -z "${DBUS_SESSION_BUS_ADDRESS:-}" ]; then
    exec dbus-run-session -- "$0" "$@"
fi
build=$(cd "$1" && pwd)
out=$(mkdir -p "$2" && cd "$2" && pwd)
work=$(mktemp -d)
pids=()
cleanup() {
    for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null || true; done
    wait 2>/dev/null || true
    rm -rf "$work"
}
trap cleanup EXIT

exec 5>"$work/display"
Xvfb -displayfd 5 -screen 0 640x480x24 -nolisten tcp -noreset 2>/dev/null &
pids+=($!)
until [ -s "$work/display" ]; do sleep 0.05; done
export DISPLAY=":$(head -n1 "$work/display")"
export QT_QPA_PLATFORM=xcb
render="$build/app/taskrack-icon-render"

# Runs $@ in the background and waits for its first line to say "ready".
start_ready() {
    local fifo="$work/ready.$RANDOM"
    mkfifo "$fifo"
    "$@" >"$fifo" 2>/dev/null &
    pids+=($!)
    read -r -t 20 line <"$fifo"
    [ "$line" = ready ]
}

for size in 16 22; do
    for tint in light:0xf2f2f2 dark:0x202226; do
        name=${tint%%:*}
        trayer --edge top --align left --widthtype request --height "$size" --iconspacing 4 \
            --tint "${tint#*:}" --transparent true --alpha 0 --SetDockType true 2>/dev/null &
        trayer_pid=$!
        pids+=($trayer_pid)
        start_ready "$render" --tray plain input errors done working
        tray_pid=${pids[-1]}
        "$render" --grab "$out/tray-$name-$size.png" 150 $((size + 4)) 5
        kill "$tray_pid" "$trayer_pid"
        wait "$tray_pid" "$trayer_pid" 2>/dev/null || true
    done
done

# The application's own item and its menu, on a light 22-pixel panel.
trayer --edge top --align left --widthtype request --height 22 --tint 0xf2f2f2 \
    --transparent true --alpha 0 --SetDockType true 2>/dev/null &
pids+=($!)
home="$work/home"
mkdir -p "$home/.config/taskrack" "$work/run"
chmod 700 "$work/run"
# Not the first launch: the rack stays hidden, the screen shows the tray and its menu.
printf '[General]\nhasCompletedFirstLaunch=true\n' >"$home/.config/taskrack/taskrack.conf"
HOME="$home" XDG_RUNTIME_DIR="$work/run" "$build/app/taskrack" 2>/dev/null &
app=$!
pids+=($app)
# The item sits at the panel's left end once embedded.
for _ in $(seq 100); do
    xdotool search --classname taskrack >/dev/null 2>&1 && break
    sleep 0.1
done
# The item's own window, then the menu's once it is open.
for _ in $(seq 100); do
    [ "$(xdotool search --onlyvisible --classname taskrack 2>/dev/null | wc -l)" -ge 1 ] && break
    sleep 0.1
done
xdotool mousemove 11 11 click 3
for _ in $(seq 100); do
    [ "$(xdotool search --onlyvisible --classname taskrack 2>/dev/null | wc -l)" -ge 2 ] && break
    sleep 0.1
done
"$render" --grab "$out/tray-menu.png"
# Settings… from the open menu, where the menu drew it.
xdotool mousemove 70 135 click 1
for _ in $(seq 100); do
    xdotool search --onlyvisible --name 'Taskrack Settings' >/dev/null 2>&1 && break
    sleep 0.1
done
"$render" --grab "$out/settings.png"
HOME="$home" XDG_RUNTIME_DIR="$work/run" "$build/app/taskrack" quit
wait "$app"

# Both alerts: a copy in Downloads, and a lock file that is a symbolic link.
alert() {
    local name=$1
    shift
    HOME="$home" XDG_RUNTIME_DIR="$work/run" "$@" 2>/dev/null &
    local pid=$!
    local window=
    for _ in $(seq 100); do
        window=$(xdotool search --onlyvisible --name Taskrack 2>/dev/null | head -n1) && [ -n "$window" ] && break
        sleep 0.1
    done
    "$render" --grab "$out/$name.png"
    xdotool windowfocus --sync "$window" key Escape
    wait "$pid" || true
}
mkdir -p "$home/Downloads"
cp "$build/app/taskrack" "$home/Downloads/taskrack"
alert alert-install "$home/Downloads/taskrack"
rm -f "$work/run/com.quillon.Taskrack.instance.lock"
ln -s "$work/elsewhere" "$work/run/com.quillon.Taskrack.instance.lock"
alert alert-lock "$build/app/taskrack"
# A notification drawn by Debian's dunst: a Codex task finishes while Taskrack runs.
dunst >/dev/null 2>&1 &
pids+=($!)
nhome="$work/nhome"
mkdir -p "$nhome/.config/taskrack" "$nhome/web-shop" "$work/nrun"
chmod 700 "$work/nrun"
printf '[General]\nhasCompletedFirstLaunch=true\n' >"$nhome/.config/taskrack/taskrack.conf"
codex_tests="$(cd "$(dirname "$0")/.." && pwd)/sources/codex/tests/integration"
fixture() {
    /usr/bin/python3 - "$codex_tests" "$nhome" "$1" <<'PY'
import datetime, os, sqlite3, sys
sys.path.insert(0, sys.argv[1])
from codex_watch_integration import append_event, touch_database, write_state_database
home = sys.argv[2]
codex = os.path.join(home, ".codex")
rollout = os.path.join(codex, "sessions", "rollout-0000-local.jsonl")
if sys.argv[3] == "create":
    write_state_database(codex, rollout, [("0000-local", rollout, 30)],
                         datetime.datetime.now(datetime.timezone.utc))
    database = sqlite3.connect(os.path.join(codex, "state_5.sqlite"))
    database.execute("UPDATE threads SET cwd = ?", (os.path.join(home, "web-shop"),))
    database.commit()
else:
    append_event(rollout, "task_started")
    append_event(rollout, "task_complete")
    touch_database(codex, "0000-local")
PY
}
fixture create
HOME="$nhome" CODEX_HOME="$nhome/.codex" XDG_RUNTIME_DIR="$work/nrun" TASKRACK_VERBOSE=1 \
    "$build/app/taskrack" 2>"$work/notify.log" &
app=$!
pids+=($app)
for _ in $(seq 100); do
    grep -q "Taskrack runtime started" "$work/notify.log" && break
    sleep 0.1
done
fixture finish
for _ in $(seq 100); do
    xdotool search --onlyvisible --classname dunst >/dev/null 2>&1 && break
    sleep 0.1
done
"$render" --grab "$out/notification.png"
HOME="$nhome" XDG_RUNTIME_DIR="$work/nrun" "$build/app/taskrack" quit
wait "$app"
echo "screenshots in $out"
