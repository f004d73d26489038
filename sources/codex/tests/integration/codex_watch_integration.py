#!/usr/bin/env python3
"""End-to-end checks of `taskrack watch --json` on the Codex side.

--provider fake   `codex` on PATH is a scripted stand-in for the app-server. Checks that the live
                  list and a live status notification reach the output, that a rollout line
                  appended on disk reaches it through the file watcher, and that SIGTERM leaves no
                  `codex` child behind, also when the child ignores SIGTERM and its input closing.
--provider real   the real Codex CLI (pinned, from npm), fully offline against a mock Responses API
                  on 127.0.0.1: while `codex exec` runs a turn, the thread shows as working, then
                  as completed; SIGTERM leaves no child behind.

Exit codes: 0 passed, 1 failed, 77 skipped (the real CLI could not be installed from the npm
registry; when the environment variable CI is set that is a failure instead).
"""

import argparse
import contextlib
import datetime
import json
import os
import queue
import signal
import sqlite3
import subprocess
import sys
import tempfile
import threading
import time
import traceback

from codexoffline import CONFIG, SKIP, Failure, check, install_codex


def log(message):
    print(f"[codex-watch] {message}", flush=True)


def iso(moment):
    return moment.strftime("%Y-%m-%dT%H:%M:%S.") + f"{moment.microsecond // 1000:03d}Z"


def clean_environment(home, codex_home, path_prefix):
    env = {key: value for key, value in os.environ.items()
           if not key.startswith(("OPENAI_", "CODEX_"))}
    for proxy in ("HTTP_PROXY", "HTTPS_PROXY", "ALL_PROXY", "http_proxy", "https_proxy", "all_proxy"):
        env.pop(proxy, None)
    env.update(HOME=home, CODEX_HOME=codex_home, MOCK_API_KEY="dummy-not-a-secret",
               NO_PROXY="127.0.0.1", no_proxy="127.0.0.1", XDG_CONFIG_HOME=os.path.join(home, ".config"),
               XDG_DATA_HOME=os.path.join(home, ".local/share"),
               PATH=path_prefix + os.pathsep + env.get("PATH", "/usr/bin:/bin"))
    return env


def children_of(pid):
    """Every live descendant of pid, from /proc."""
    parents = {}
    for entry in os.listdir("/proc"):
        if not entry.isdigit():
            continue
        with contextlib.suppress(OSError, ValueError, IndexError):
            with open(f"/proc/{entry}/stat") as stat:
                fields = stat.read().rsplit(")", 1)[1].split()
            if fields[0] != "Z":  # a zombie has ended; it only waits to be reaped
                parents.setdefault(int(fields[1]), []).append(int(entry))
    found, pending = [], [pid]
    while pending:
        for child in parents.get(pending.pop(), []):
            found.append(child)
            pending.append(child)
    return found


def alive(pid):
    try:
        with open(f"/proc/{pid}/stat") as stat:
            return stat.read().rsplit(")", 1)[1].split()[0] != "Z"
    except OSError:
        return False


class Watch:
    """`taskrack watch --json`, its output read line by line on a thread."""

    def __init__(self, taskrack, home, env):
        self.process = subprocess.Popen([taskrack, "watch", "--json", "--home", home], env=env,
                                        stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                        stderr=subprocess.PIPE, text=True)
        self.lines = queue.Queue()
        self.errors = []
        self.seen_children = set()
        threading.Thread(target=self._read, daemon=True).start()
        # Drained all along: a full pipe would stall the process being watched.
        threading.Thread(target=lambda: self.errors.extend(self.process.stderr), daemon=True).start()

    def _read(self):
        for line in self.process.stdout:
            with contextlib.suppress(ValueError):
                self.lines.put((time.monotonic(), json.loads(line)))

    def stderr_tail(self):
        return "".join(self.errors)[-2000:]

    def wait_for(self, predicate, timeout, what):
        """The first printed rack for which predicate holds; a safety limit, not a timing bet."""
        deadline = time.monotonic() + timeout
        while time.monotonic() < deadline:
            self.seen_children.update(children_of(self.process.pid))
            with contextlib.suppress(queue.Empty):
                moment, rack = self.lines.get(timeout=0.05)
                if predicate(rack):
                    return moment, rack
            check(self.process.poll() is None,
                  f"taskrack watch exited with {self.process.returncode} while waiting for {what}: "
                  f"{self.stderr_tail()}")
        raise Failure(f"timed out waiting for {what}")

    def terminate(self):
        """SIGTERM, then checks that the process and every child it ever had are gone."""
        self.seen_children.update(children_of(self.process.pid))
        started = time.monotonic()
        self.process.send_signal(signal.SIGTERM)
        try:
            code = self.process.wait(timeout=15)
        except subprocess.TimeoutExpired:
            self.process.kill()
            raise Failure("taskrack watch did not end within 15 s of SIGTERM")
        log(f"taskrack watch ended {time.monotonic() - started:.2f} s after SIGTERM with {code}")
        check(code == 0, f"taskrack watch exit code {code}: {self.stderr_tail()}")
        survivors = [pid for pid in self.seen_children if alive(pid)]
        for pid in survivors:
            with contextlib.suppress(OSError):
                os.kill(pid, signal.SIGKILL)
        check(not survivors, f"children survived taskrack: {survivors}")
        return code


def status_of(rack, thread_id):
    for thread in rack.get("threads", []):
        if thread.get("id") == "codex:" + thread_id:
            return thread.get("status")
    return None


# ---- the scripted app-server ----

def write_state_database(codex_home, rollout, rows, now):
    """The state database as Codex lays it out, with one row per (id, rollout, seconds ago)."""
    os.makedirs(os.path.dirname(rollout), exist_ok=True)
    with open(rollout, "w") as f:
        f.write(json.dumps({"timestamp": iso(now - datetime.timedelta(seconds=30)),
                            "type": "session_meta", "payload": {}}) + "\n")
    database = sqlite3.connect(os.path.join(codex_home, "state_5.sqlite"))
    database.execute("PRAGMA journal_mode=WAL")
    database.execute(
        "CREATE TABLE threads (id TEXT PRIMARY KEY, rollout_path TEXT NOT NULL, created_at INTEGER,"
        " updated_at INTEGER NOT NULL, source TEXT, cwd TEXT, title TEXT, archived INTEGER NOT NULL"
        " DEFAULT 0, git_origin_url TEXT, updated_at_ms INTEGER, thread_source TEXT, preview TEXT"
        " NOT NULL DEFAULT '', recency_at INTEGER NOT NULL DEFAULT 0, recency_at_ms INTEGER NOT NULL"
        " DEFAULT 0, name TEXT)")
    for thread_id, path, age in rows:
        seconds = int(now.timestamp()) - age
        database.execute(
            "INSERT INTO threads (id, rollout_path, created_at, updated_at, source, cwd, title,"
            " updated_at_ms, thread_source, recency_at, recency_at_ms) VALUES (?,?,?,?,?,?,?,?,?,?,?)",
            (thread_id, path, seconds, seconds, "exec", codex_home, "Task " + thread_id,
             seconds * 1000, "user", seconds, seconds * 1000))
    database.commit()
    database.close()


def touch_database(codex_home, thread_id):
    """What Codex does when a turn starts: the thread's row moves on."""
    database = sqlite3.connect(os.path.join(codex_home, "state_5.sqlite"))
    seconds = int(time.time())
    database.execute("UPDATE threads SET updated_at = ?, updated_at_ms = ? WHERE id = ?",
                     (seconds, seconds * 1000, thread_id))
    database.commit()
    database.close()


def append_event(rollout, kind):
    with open(rollout, "a") as f:
        f.write(json.dumps({"timestamp": iso(datetime.datetime.now(datetime.timezone.utc)),
                            "type": "event_msg", "payload": {"type": kind}}) + "\n")


def fake_script(local_id, live_id, now):
    def payload(thread_id, age, status):
        return {"id": thread_id, "name": "Task " + thread_id, "preview": "", "cwd": "/tmp",
                "updatedAt": int(now.timestamp()) - age, "recencyAt": int(now.timestamp()) - age,
                "source": "exec", "status": {"type": status}, "parentThreadId": None,
                "gitInfo": None}
    # Listed from the same state database the local side reads, as the real server does.
    listing = {"data": [payload(local_id, 30, "notLoaded"), payload(live_id, 60, "idle")],
               "nextCursor": None}
    approval = {"method": "thread/status/changed",
                "params": {"threadId": live_id,
                           "status": {"type": "active", "activeFlags": ["waitingOnApproval"]}}}
    # The first listing is followed by a status change, as when an approval is asked for.
    return {"methods": {"thread/list": [[{"result": listing}, {"notify": approval}],
                                        [{"result": listing}]]}}


def run_fake(args, root, stubborn):
    home = os.path.join(root, "home")
    codex_home = os.path.join(home, ".codex")
    bin_dir = os.path.join(root, "bin")
    os.makedirs(codex_home)
    os.makedirs(bin_dir)
    now = datetime.datetime.now(datetime.timezone.utc)
    local_id, live_id = "0000-local", "0000-live"
    rollout = os.path.join(codex_home, "sessions", "2026", "01", "01", f"rollout-{local_id}.jsonl")
    write_state_database(codex_home, rollout, [(local_id, rollout, 30), (live_id, "", 60)], now)
    script = os.path.join(root, "script.json")
    with open(script, "w") as f:
        json.dump(fake_script(local_id, live_id, now), f)
    pids = os.path.join(root, "pids.txt")
    flags = " --ignore-term --ignore-eof" if stubborn else ""
    launcher = os.path.join(bin_dir, "codex")
    with open(launcher, "w") as f:
        f.write(f"#!/bin/sh\nexec {sys.executable} {os.path.abspath(args.fake_app_server)} --script {script}"
                f" --log {os.path.join(root, 'requests.jsonl')} --pids {pids}{flags} \"$@\"\n")
    os.chmod(launcher, 0o755)

    env = clean_environment(home, codex_home, bin_dir)
    watch = Watch(args.taskrack, home, env)
    try:
        watch.wait_for(lambda rack: status_of(rack, live_id) == "requiresInput", 30,
                       "the live approval request")
        log("live status notification reached the rack")

        append_event(rollout, "task_started")
        touch_database(codex_home, local_id)
        watch.wait_for(lambda rack: status_of(rack, local_id) == "working", 30,
                       "the turn start recorded in the database and the rollout")
        # The running rollout is watched now: its next line alone is enough.
        appended = time.monotonic()
        append_event(rollout, "task_complete")
        moment, rack = watch.wait_for(lambda rack: status_of(rack, local_id) == "completed", 30,
                                      "the appended task_complete line")
        check(status_of(rack, live_id) == "requiresInput",
              "local snapshots keep the live status of the other thread")
        log(f"a rollout line reached the output after {(moment - appended) * 1000:.0f} ms")
    finally:
        if watch.process.poll() is None:
            watch.terminate()
    with open(pids) as f:
        spawned = [int(line) for line in f if line.strip()]
    check(spawned, "taskrack started the app-server")
    check(not any(alive(pid) for pid in spawned), f"app-server survived: {spawned}")
    log(f"PASS ({'stubborn' if stubborn else 'well-behaved'} app-server)")


# ---- the real Codex CLI ----

def run_real(args, root):
    codex = install_codex(args.installer)
    if codex is None:
        if os.environ.get("CI"):
            log("FAIL: the Codex CLI could not be installed from the npm registry (CI is set)")
            return 1
        log("SKIP: the npm registry cannot be reached, so the Codex CLI is not installed")
        return SKIP
    home = os.path.join(root, "home")
    codex_home = os.path.join(home, ".codex")
    repo = os.path.join(root, "repo")
    os.makedirs(codex_home)
    os.makedirs(repo)
    env = clean_environment(home, codex_home, os.path.dirname(codex))
    mock = subprocess.Popen([sys.executable, args.mock_server, "--max-seconds", "600",
                             "--slow-seconds", "4", "--delta-interval", "0.25"],
                            stdout=subprocess.PIPE, text=True)
    try:
        port = int(mock.stdout.readline().strip())
        with open(os.path.join(codex_home, "config.toml"), "w") as config:
            config.write(CONFIG.format(port=port))
        watch = Watch(args.taskrack, home, env)
        exec_process = None
        try:
            watch.wait_for(lambda rack: rack.get("dataState") in ("empty", "live", "cached"), 60,
                           "the first refresh")
            exec_process = subprocess.Popen(
                [codex, "exec", "--json", "--skip-git-repo-check", "SCENARIO:slow Take your time."],
                cwd=repo, env=env, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                stderr=subprocess.PIPE, text=True)

            def exec_thread(rack, status):
                for thread in rack.get("threads", []):
                    if thread.get("provider") == "codex" and thread.get("status") == status:
                        return thread
                return None

            _, rack = watch.wait_for(lambda rack: exec_thread(rack, "working"), 120,
                                     "the exec thread to show as working")
            thread_id = exec_thread(rack, "working")["id"]
            log("the running turn shows as working")
            watch.wait_for(lambda rack: any(t.get("id") == thread_id and t.get("status") == "completed"
                                            for t in rack.get("threads", [])), 120,
                           "the exec thread to show as completed")
            log("the finished turn shows as completed")
            out, err = exec_process.communicate(timeout=120)
            check(exec_process.returncode == 0, f"codex exec failed: {err[-2000:]}")
            check(any(child for child in watch.seen_children),
                  "taskrack ran an app-server child while watching")
        finally:
            if exec_process and exec_process.poll() is None:
                exec_process.kill()
                exec_process.wait()
            if watch.process.poll() is None:
                watch.terminate()
        log("PASS (real Codex CLI)")
        return 0
    finally:
        mock.terminate()
        with contextlib.suppress(subprocess.TimeoutExpired):
            mock.wait(timeout=10)
        if mock.poll() is None:
            mock.kill()


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--provider", choices=("fake", "real"), required=True)
    parser.add_argument("--taskrack", required=True)
    parser.add_argument("--fake-app-server", help="sources/codex/tests/codexappserver_fake.py")
    parser.add_argument("--installer", help="testing/providers/install-provider.sh")
    parser.add_argument("--mock-server", help="testing/providers/mock_responses_server.py")
    parser.add_argument("--keep", action="store_true", help="keep the temporary folder")
    args = parser.parse_args()
    root = tempfile.mkdtemp(prefix="taskrack-codex-watch-")
    try:
        if args.provider == "fake":
            run_fake(args, os.path.join(root, "plain"), stubborn=False)
            run_fake(args, os.path.join(root, "stubborn"), stubborn=True)
            return 0
        return run_real(args, root)
    except Failure as failure:
        log(f"FAIL: {failure}")
        log(f"temporary folder kept at {root}")
        args.keep = True
        return 1
    except Exception:  # an unexpected error is a failure, never a skip
        traceback.print_exc()
        args.keep = True
        return 1
    finally:
        if not args.keep:
            subprocess.run(["rm", "-rf", root], check=False)


if __name__ == "__main__":
    sys.exit(main())
