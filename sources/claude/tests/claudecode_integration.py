#!/usr/bin/env python3
"""Runs the real Claude Code offline against the mock Messages API and checks what
`taskrack list --json` and `taskrack watch --json` make of its sessions.

usage: claudecode_integration.py TASKRACK_EXECUTABLE SOURCE_DIR

Exit 77 skips (the provider could not be installed); with CI set in the environment a skip is a
failure instead.
"""

import datetime
import glob
import json
import os
import subprocess
import sys
import tempfile
import threading
import time

SKIP = 77


def fail(message):
    print("FAIL: " + message, file=sys.stderr)
    sys.exit(1)


def skip(message):
    if os.environ.get("CI"):
        fail(message + " (CI is set, so this cannot be skipped)")
    print("SKIP: " + message, file=sys.stderr)
    sys.exit(SKIP)


def parse_time(text):
    return datetime.datetime.strptime(text.replace("Z", "+0000"), "%Y-%m-%dT%H:%M:%S.%f%z").timestamp()


class Watch:
    """`taskrack watch --json` in the background, its lines kept as parsed objects."""

    def __init__(self, command, env):
        self.errors = tempfile.TemporaryFile(mode="w+")
        self.process = subprocess.Popen(command, env=env, stdout=subprocess.PIPE, stderr=self.errors, text=True)
        self.lines = []
        self.arrivals = []
        self.lock = threading.Lock()
        self.reader = threading.Thread(target=self.read, daemon=True)
        self.reader.start()

    def read(self):
        for line in self.process.stdout:
            try:
                parsed = json.loads(line)
            except ValueError:
                continue
            with self.lock:
                self.lines.append(parsed)
                self.arrivals.append(time.time())

    def statuses_of(self, title):
        with self.lock:
            seen = []
            for rack in self.lines:
                for thread in rack.get("threads", []):
                    if thread.get("title") == title and (not seen or seen[-1] != thread.get("status")):
                        seen.append(thread.get("status"))
            return seen

    def first_seen(self, title, status):
        """When a line first showed the thread titled `title` with `status`."""
        with self.lock:
            for rack, arrival in zip(self.lines, self.arrivals):
                if any(t.get("title") == title and t.get("status") == status for t in rack.get("threads", [])):
                    return arrival
        return None

    def wait_for(self, title, predicate, seconds):
        deadline = time.time() + seconds
        while time.time() < deadline:
            if predicate(self.statuses_of(title)):
                return True
            time.sleep(0.01)
        return False

    def describe(self):
        """What the last line held, for a failure message."""
        with self.lock:
            last = self.lines[-1] if self.lines else {}
            count = len(self.lines)
        self.errors.seek(0)
        return "%d lines; last: %s; stderr: %s" % (
            count, [(t.get("title"), t.get("status")) for t in last.get("threads", [])], self.errors.read()[-2000:])

    def stop(self):
        self.process.terminate()
        try:
            self.process.wait(timeout=10)
        except subprocess.TimeoutExpired:
            self.process.kill()


def main():
    if len(sys.argv) != 3:
        print(__doc__, file=sys.stderr)
        return 2
    taskrack, source_dir = sys.argv[1], sys.argv[2]
    providers = os.path.join(source_dir, "testing", "providers")

    installed = subprocess.run(["bash", os.path.join(providers, "install-provider.sh"), "claude"],
                               stdout=subprocess.PIPE, text=True, timeout=900)
    if installed.returncode == SKIP:
        skip("Claude Code could not be installed from the npm registry")
    if installed.returncode != 0:
        fail("install-provider.sh claude exited with %d" % installed.returncode)
    claude = installed.stdout.strip().splitlines()[-1]

    scratch = tempfile.TemporaryDirectory(prefix="taskrack-claude-")
    root = os.path.realpath(scratch.name)
    home = os.path.join(root, "home")
    os.makedirs(home)

    mock = subprocess.Popen([sys.executable, os.path.join(providers, "mock_messages_server.py"),
                             "--max-seconds", "600", "--slow-seconds", "4", "--log", os.path.join(root, "mock.log")],
                            stdout=subprocess.PIPE, text=True)
    port = mock.stdout.readline().strip()
    if not port.isdigit():
        fail("the mock server printed no port")

    taskrack_env = dict(os.environ, XDG_DATA_HOME=os.path.join(root, "data"),
                        XDG_CONFIG_HOME=os.path.join(root, "config"), QT_QPA_PLATFORM="offscreen")
    claude_env = {"PATH": "/usr/bin:/bin", "HOME": home, "ANTHROPIC_BASE_URL": "http://127.0.0.1:" + port,
                  "ANTHROPIC_API_KEY": "dummy", "DISABLE_TELEMETRY": "1",
                  "CLAUDE_CODE_DISABLE_NONESSENTIAL_TRAFFIC": "1", "DISABLE_AUTOUPDATER": "1",
                  "DISABLE_ERROR_REPORTING": "1", "CLAUDE_CODE_MAX_RETRIES": "0"}

    def run_claude(folder, prompt, *extra):
        workdir = os.path.join(root, "work", folder)
        os.makedirs(workdir, exist_ok=True)
        started = time.time()
        result = subprocess.run([claude, "-p", prompt, *extra], cwd=workdir, env=claude_env,
                                stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, timeout=180)
        return workdir, started, time.time(), result

    def list_threads():
        result = subprocess.run([taskrack, "list", "--json", "--home", home], env=taskrack_env,
                                stdout=subprocess.PIPE, text=True, timeout=60)
        if result.returncode != 0:
            fail("taskrack list exited with %d" % result.returncode)
        rack = json.loads(result.stdout)
        for key in ("dataState", "sourceDescription", "sourceFailures", "mode", "threads", "projects"):
            if key not in rack:
                fail("list --json lacks %r" % key)
        return {thread["title"]: thread for thread in rack["threads"]}

    watch = Watch([taskrack, "watch", "--json", "--home", home], taskrack_env)
    failures = []
    try:
        time.sleep(1.0)  # let watch read its first (empty) rack and start its watchers
        turns = [
            ("slow_text", "Say hello slowly. SCENARIO=slow", (), "completed"),
            ("tool_turn", "Run echo hi. SCENARIO=tool", ("--allowedTools", "Bash"), "completed"),
            ("failing_turn", "Fail please. SCENARIO=error500", (), "error"),
        ]
        results = {}
        for folder, prompt, extra, expected in turns:
            workdir, started, ended, result = run_claude(folder, prompt, *extra)
            if folder != "failing_turn" and result.returncode != 0:
                fail("claude -p for %s exited with %d: %s" % (folder, result.returncode, result.stdout[-500:]))
            results[prompt] = (workdir, started, ended, expected)

        threads = list_threads()
        for prompt, (workdir, started, ended, expected) in results.items():
            thread = threads.get(prompt)
            if thread is None:
                failures.append("no thread titled %r in %s" % (prompt, sorted(threads)))
                continue
            checks = {
                "provider": (thread["provider"], "claude"),
                "status": (thread["status"], expected),
                "workspacePath": (thread["workspacePath"], workdir),
                "project": (thread["projectIdentity"]["name"], os.path.basename(workdir)),
                "source": (thread["source"], "Claude Code"),
            }
            for name, (actual, wanted) in checks.items():
                if actual != wanted:
                    failures.append("%s: %s is %r, expected %r" % (prompt, name, actual, wanted))
            if not thread["id"].startswith("claude:") or thread["id"] != "claude:" + thread["providerThreadID"]:
                failures.append("%s: unexpected id %r" % (prompt, thread["id"]))
            recency = parse_time(thread["recencyAt"])
            if not (started - 1 <= recency <= ended + 1):
                failures.append("%s: recencyAt %s is outside the run" % (prompt, thread["recencyAt"]))

        # watch saw the slow session appear while it ran and then finish.
        slow = "Say hello slowly. SCENARIO=slow"
        if not watch.wait_for(slow, lambda seen: "completed" in seen, 30):
            failures.append("watch never showed %r completed (saw %s)" % (slow, watch.statuses_of(slow)))
        seen = watch.statuses_of(slow)
        went_from_working = "working" in seen and "completed" in seen and seen.index("working") < seen.index("completed")
        if not went_from_working:
            failures.append("watch did not see %r go from working to completed (saw %s)" % (slow, seen))
        print("watch saw %r as %s" % (slow, " -> ".join(seen)))
        # From the moment Claude Code stamped the turn's last line to the watch line showing it.
        finished = watch.first_seen(slow, "completed")
        slow_id = threads[slow]["providerThreadID"] if finished and slow in threads else "-"
        for path in glob.glob(os.path.join(home, ".claude", "projects", "*", "%s.jsonl" % slow_id)):
            stamps = [json.loads(line)["timestamp"] for line in open(path) if '"end_turn"' in line]
            print("watch showed the finished turn %.0f ms after its line was stamped" % (
                (finished - parse_time(stamps[-1])) * 1000))
        failing = "Fail please. SCENARIO=error500"
        if not watch.wait_for(failing, lambda seen: "error" in seen, 30):
            failures.append("watch never showed %r as error (saw %s)" % (failing, watch.statuses_of(failing)))

        # A CLI killed in the middle of a tool call leaves its turn open in the transcript and its
        # entry in the live registry; the dead process must take "working" away, fast.
        killed = "Sleep a minute. SCENARIO=longtool"
        workdir = os.path.join(root, "work", "killed_turn")
        os.makedirs(workdir, exist_ok=True)
        victim = subprocess.Popen([claude, "-p", killed, "--allowedTools", "Bash"], cwd=workdir, env=claude_env,
                                  stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, start_new_session=True)
        try:
            if not watch.wait_for(killed, lambda seen: "working" in seen, 60):
                failures.append("watch never showed %r working (saw %s)" % (killed, watch.statuses_of(killed)))
            registry = os.path.join(home, ".claude", "sessions")
            deadline = time.time() + 30
            while time.time() < deadline and not os.path.exists(os.path.join(registry, "%d.json" % victim.pid)):
                time.sleep(0.05)
            killed_at = time.time()
            victim.kill()
            victim.wait()
        finally:
            if victim.poll() is None:
                victim.kill()
        if not watch.wait_for(killed, lambda seen: seen and seen[-1] != "working", 30):
            failures.append("watch kept %r working after its CLI was killed (saw %s)" % (killed, watch.statuses_of(killed)))
        else:
            print("watch dropped 'working' %.2f s after kill -9 (saw %s; registry entry %s)" % (
                time.time() - killed_at, " -> ".join(watch.statuses_of(killed)),
                "left behind" if os.path.exists(os.path.join(registry, "%d.json" % victim.pid)) else "removed"))
    finally:
        watch.stop()
        mock.terminate()

    for failure in failures:
        print("FAIL: " + failure, file=sys.stderr)
    if failures:
        print("watch: " + watch.describe(), file=sys.stderr)
        print("list: %s" % [(t, v["status"]) for t, v in list_threads().items()], file=sys.stderr)
    if failures:
        return 1
    print("ok: %d Claude Code sessions listed and watched" % 3)
    return 0


if __name__ == "__main__":
    sys.exit(main())
