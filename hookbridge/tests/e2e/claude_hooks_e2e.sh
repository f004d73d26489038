#!/usr/bin/env bash
# The real Claude Code runs Taskrack's hooks: enable the integration in a scratch home, run
# `claude -p` against a mock Messages API on 127.0.0.1, and check that the events reach a
# running listener; then remove the integration and check that the person's settings are as
# they were. Runs under dbus-run-session. Exit 77 = skipped (the provider could not be
# installed); under CI a skip is a failure.
#
#   claude_hooks_e2e.sh TOOL BRIDGE SOURCE_DIR [TASKRACK]
# With TASKRACK, `taskrack hooks ...` itself enables and removes the integration (its helper
# must be BRIDGE); TOOL always runs the listener.
set -euo pipefail
tool=$(realpath "${1:?tool}")
bridge=$(realpath "${2:?bridge}")
source_dir=$(realpath "${3:?source dir}")
taskrack=${4:+$(realpath "$4")}

skip() {
    echo "SKIP: $*" >&2
    if [ -n "${CI:-}" ]; then exit 1; fi
    exit 77
}
fail() {
    echo "FAIL: $*" >&2
    exit 1
}

[ -n "${DBUS_SESSION_BUS_ADDRESS:-}" ] || fail "run me under dbus-run-session"
status=0
claude=$("$source_dir/testing/providers/install-provider.sh" claude) || status=$?
[ "$status" -eq 77 ] && skip "Claude Code could not be installed from the npm registry"
[ "$status" -eq 0 ] || fail "installing Claude Code failed ($status)"

scratch=$(mktemp -d)
pids=()
cleanup() {
    for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null || true; done
    wait 2>/dev/null || true
    if [ -n "${TASKRACK_E2E_KEEP:-}" ]; then echo "kept $scratch" >&2; else rm -rf "$scratch"; fi
}
trap cleanup EXIT

home=$scratch/home
work=$scratch/work
mkdir -p "$home/.claude" "$work" "$scratch/config"
export XDG_CONFIG_HOME=$scratch/config

# The person's own settings, which must come back unchanged.
cat >"$home/.claude/settings.json" <<'JSON'
{
  "model": "opus",
  "env": { "TASKRACK_E2E_NOTE": "kept/as/is" },
  "hooks": {
    "Stop": [ { "hooks": [ { "type": "command", "command": "true" } ] } ],
    "StopFailure": [ { "hooks": [ { "type": "command", "command": "true" } ] } ],
    "PreToolUse": [ { "matcher": "Bash", "hooks": [ { "type": "command", "command": "true" } ] } ]
  }
}
JSON
cp "$home/.claude/settings.json" "$scratch/original.json"

# Bounded wait for a condition, never a fixed sleep.
wait_for() {
    local what=$1 seconds=$2
    shift 2
    local deadline=$((SECONDS + seconds))
    until "$@"; do
        [ $SECONDS -lt $deadline ] || fail "timed out waiting for $what"
        sleep 0.2
    done
}

hooks() {
    if [ -n "$taskrack" ]; then
        "$taskrack" hooks "$1" --home "$home"
    else
        "$tool" hooks "$1" "$home" "$bridge"
    fi
}

hooks enable | grep -qx "Live status is connected" || fail "enable"
hooks status | grep -qx "Live status is connected" || fail "status"

python3 "$source_dir/testing/providers/mock_messages_server.py" --max-seconds 500 >"$scratch/mock.port" &
pids+=($!)
wait_for "the mock server" 20 test -s "$scratch/mock.port"
port=$(head -1 "$scratch/mock.port")

"$tool" listen "$home" "$bridge" >"$scratch/events.jsonl" 2>"$scratch/listen.err" &
pids+=($!)
wait_for "the listener" 30 grep -q '^ready' "$scratch/events.jsonl"

# The application itself listens too: `taskrack watch` refreshes the integration at start and
# forwards every accepted event to the Claude source (its informational log names each one).
if [ -n "$taskrack" ]; then
    TASKRACK_VERBOSE=1 "$taskrack" watch --json --home "$home" \
        >"$scratch/watch.jsonl" 2>"$scratch/watch.err" &
    pids+=($!)
    wait_for "taskrack watch" 60 test -s "$scratch/watch.jsonl"
fi
watch_saw() {
    [ -z "$taskrack" ] || grep -q "Claude hook event received: $1\$" "$scratch/watch.err"
}

# Claude Code kills asynchronous hooks still running when a print-mode session exits (in
# production a lost event only means the transcript watcher notices a moment later). By default
# each turn is a plain `claude -p PROMPT` whose input is closed, so the helper has to post within
# the moments between the event and Claude's exit. With TASKRACK_E2E_HOLD_INPUT=1 each turn
# instead reads its prompt from a pipe that stays open until the expected event has arrived.
turn() {
    local prompt=$1 what=$2 condition=$3
    shift 3
    local claude_env=(env -i PATH=/usr/bin:/bin HOME="$home"
        DBUS_SESSION_BUS_ADDRESS="$DBUS_SESSION_BUS_ADDRESS"
        ANTHROPIC_BASE_URL="http://127.0.0.1:$port" ANTHROPIC_API_KEY=dummy
        DISABLE_TELEMETRY=1 CLAUDE_CODE_DISABLE_NONESSENTIAL_TRAFFIC=1 DISABLE_AUTOUPDATER=1
        DISABLE_ERROR_REPORTING=1 CLAUDE_CODE_MAX_RETRIES=0 timeout 180 "$claude" -p)
    if [ -z "${TASKRACK_E2E_HOLD_INPUT:-}" ]; then
        (cd "$work" && "${claude_env[@]}" "$prompt" --output-format stream-json --verbose "$@" \
            </dev/null >>"$scratch/claude.out" 2>>"$scratch/claude.err") || true
        # Claude has exited: the helper either posted by now or was killed. The wait only
        # covers the listener's own delivery.
        wait_for "$what" 20 has_event "$condition"
        return
    fi
    local input=$scratch/input.$RANDOM
    mkfifo "$input"
    (cd "$work" && "${claude_env[@]}" --input-format stream-json --output-format stream-json \
        --verbose "$@" <"$input" >>"$scratch/claude.out" 2>>"$scratch/claude.err") &
    local pid=$!
    exec 3>"$input"
    python3 -c 'import json, sys; print(json.dumps({"type": "user", "message": {"role": "user", "content": sys.argv[1]}}))' "$prompt" >&3
    wait_for "$what" 90 has_event "$condition"
    exec 3>&-
    wait "$pid" || true
}

# Events are JSON lines; this asks whether one matches a Python condition on `e`.
has_event() {
    python3 - "$scratch/events.jsonl" "$1" <<'PY'
import json, sys
events = [json.loads(l) for l in open(sys.argv[1]) if l.startswith("{")]
sys.exit(0 if any(eval(sys.argv[2], {}, {"e": e}) for e in events) else 1)
PY
}

# A plain turn: the prompt is submitted, the turn stops.
turn "Say hello. SCENARIO=text" "Stop" \
    'e["hook_event_name"] == "Stop" and e["background_task_count"] == 0 and not e["is_agent"]'
has_event 'e["hook_event_name"] == "UserPromptSubmit"' || fail "no UserPromptSubmit"

# A failing turn ends in StopFailure.
turn "Fail please. SCENARIO=error500" "StopFailure" 'e["hook_event_name"] == "StopFailure"'

# A background command is still running when the turn stops.
turn "Background job. SCENARIO=bgbash" "Stop with a background task" \
    'e["hook_event_name"] == "Stop" and (e["background_task_count"] or 0) >= 1' --allowedTools Bash

# Every event names its session by the transcript's file name, and nothing else leaked.
python3 - "$scratch/events.jsonl" <<'PY' || fail "event contents"
import json, os, sys
events = [json.loads(l) for l in open(sys.argv[1]) if l.startswith("{")]
assert events, "no events"
for e in events:
    assert set(e) == {"session_id", "hook_event_name", "notification_type", "transcript_path",
                      "background_task_count", "is_agent"}, e
    if e["transcript_path"]:
        assert os.path.basename(e["transcript_path"]) == e["session_id"] + ".jsonl", e
print("events:", " ".join(e["hook_event_name"] for e in events))
PY

if [ -n "$taskrack" ]; then
    for name in UserPromptSubmit Stop StopFailure; do
        wait_for "taskrack watch to receive $name" 20 watch_saw "$name"
    done
    # The session the turns ran in is on the rack that watch prints.
    python3 - "$scratch/watch.jsonl" <<'PY' || fail "taskrack watch did not list the Claude session"
import json, sys
racks = [json.loads(l) for l in open(sys.argv[1]) if l.startswith("{")]
assert any(t["provider"] == "claude" for rack in racks for t in rack["threads"]), racks[-1:]
PY
fi

hooks remove | grep -qx "Live status is off" || fail "remove"
python3 - "$scratch/original.json" "$home/.claude/settings.json" <<'PY' || fail "settings after remove differ from the original"
import json, sys
assert json.load(open(sys.argv[1])) == json.load(open(sys.argv[2]))
PY
cmp -s "$scratch/original.json" "$home/.claude/settings.json.taskrack-backup" || fail "backup"
echo "PASS"
