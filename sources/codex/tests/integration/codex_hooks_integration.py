#!/usr/bin/env python3
"""Live Codex status through Codex's own hooks, end to end with the real Codex CLI (pinned, from
npm), offline against a mock Responses API on 127.0.0.1, under the caller's dbus-run-session.

1. `taskrack hooks enable --provider codex` adds the entries; `hooks status` says Codex does not
   trust them yet.
2. The person's part, done the way a person does it: the real TUI (in tmux, --no-daemon) shows
   "Hooks need review" and the test picks "Trust all and continue". Nothing else writes the trust.
3. A running `taskrack watch --json` shows the TUI's task as requiresInput while the approval
   prompt is on screen and unanswered, then working once it is approved, then completed.

Exit codes: 0 passed, 1 failed, 77 skipped (no npm registry or no tmux; with CI set a failure).
"""

import argparse
import os
import shutil
import subprocess
import sys
import tempfile
import time
import traceback

from codex_watch_integration import Watch, clean_environment
from codexoffline import CONFIG, SKIP, Failure, check, install_codex

APPROVAL_PROMPT = "Would you like to run the following command?"


def log(message):
    print(f"[codex-hooks] {message}", flush=True)


class Terminal:
    """One tmux server of the test's own, with one window running a command."""

    def __init__(self, root, env):
        self.socket = os.path.join(root, "tmux.sock")
        self.env = env
        self.root = root

    def tmux(self, *args):
        return subprocess.run(["tmux", "-S", self.socket, *args], env=self.env,
                              capture_output=True, text=True, timeout=30)

    def start(self, name, argv, cwd):
        script = os.path.join(self.root, name + ".sh")
        with open(script, "w") as f:
            f.write("#!/bin/sh\ncd '%s' && exec %s\n" % (cwd, " ".join("'%s'" % a for a in argv)))
        os.chmod(script, 0o755)
        result = self.tmux("new-session", "-d", "-s", name, "-x", "200", "-y", "50", script)
        check(result.returncode == 0, f"tmux could not start {name}: {result.stderr}")

    def screen(self, name):
        return self.tmux("capture-pane", "-p", "-t", name).stdout

    def wait_screen(self, name, text, timeout):
        deadline = time.monotonic() + timeout
        while time.monotonic() < deadline:
            if text in self.screen(name):
                return
            time.sleep(0.2)
        raise Failure(f"timed out waiting for “{text}” on the {name} screen:\n{self.screen(name)}")

    def keys(self, name, *keys):
        self.tmux("send-keys", "-t", name, *keys)

    def alive(self, name):
        return self.tmux("has-session", "-t", name).returncode == 0

    def quit_codex(self, name):
        self.keys(name, "-l", "/quit")
        time.sleep(0.3)  # the composer's completion menu opens on "/"; Enter picks the command
        self.keys(name, "Enter")
        deadline = time.monotonic() + 20
        while self.alive(name) and time.monotonic() < deadline:
            time.sleep(0.2)
        if self.alive(name):
            self.tmux("kill-session", "-t", name)

    def close(self):
        self.tmux("kill-server")


def hooks(taskrack, home, env, action):
    result = subprocess.run([taskrack, "hooks", action, "--provider", "codex", "--home", home],
                            env=env, capture_output=True, text=True, timeout=120)
    check(result.returncode == 0, f"hooks {action} failed: {result.stdout}{result.stderr}")
    return result.stdout


def thread_with(rack, status):
    for thread in rack.get("threads", []):
        if thread.get("id", "").startswith("codex:") and thread.get("status") == status:
            return thread["id"]
    return None


def status_of(rack, thread_id):
    for thread in rack.get("threads", []):
        if thread.get("id") == thread_id:
            return thread.get("status")
    return None


def run(args, root):
    codex = install_codex(args.installer)
    if codex is None or not shutil.which("tmux"):
        if os.environ.get("CI"):
            log("FAIL: the Codex CLI or tmux is missing (CI is set)")
            return 1
        log("SKIP: the Codex CLI could not be installed, or tmux is missing")
        return SKIP
    home = os.path.join(root, "home")
    codex_home = os.path.join(home, ".codex")
    repo = os.path.join(root, "repo")
    os.makedirs(codex_home)
    os.makedirs(repo)
    env = clean_environment(home, codex_home, os.path.dirname(codex))
    env["TERM"] = "xterm-256color"
    mock = subprocess.Popen([sys.executable, args.mock_server, "--max-seconds", "600",
                             "--slow-seconds", "3", "--delta-interval", "0.2"],
                            stdout=subprocess.PIPE, text=True)
    terminal = Terminal(root, env)
    watch = None
    try:
        port = int(mock.stdout.readline().strip())
        config = CONFIG.format(port=port).replace(
            'approval_policy = "never"', 'approval_policy = "on-request"').replace(
            'sandbox_mode = "danger-full-access"', 'sandbox_mode = "read-only"')
        # The folder's own trust (not the hooks'): the TUI asks it once per folder otherwise.
        config += f'\n[projects."{repo}"]\ntrust_level = "trusted"\n'
        with open(os.path.join(codex_home, "config.toml"), "w") as f:
            f.write(config)

        enabled = hooks(args.taskrack, home, env, "enable")
        check("Live Codex status is on." in enabled, f"enable said: {enabled}")
        check(enabled.count(": untrusted") == 8, f"new entries are untrusted: {enabled}")
        log("enabled; Codex reports the entries untrusted")

        terminal.start("trust", [codex, "--no-daemon"], repo)
        terminal.wait_screen("trust", "Hooks need review", 60)
        terminal.keys("trust", "Down")
        terminal.wait_screen("trust", "› 2. Trust all and continue", 10)
        terminal.keys("trust", "Enter")
        terminal.wait_screen("trust", "Ask Codex", 30)
        terminal.quit_codex("trust")
        status = hooks(args.taskrack, home, env, "status")
        check(status.count(": trusted") == 8, f"entries trusted after the review: {status}")
        log("trusted through the TUI's review screen")

        watch = Watch(args.taskrack, home, env)
        watch.wait_for(lambda rack: rack.get("dataState") in ("empty", "live", "cached"), 60,
                       "the first refresh")
        terminal.start("turn", [codex, "--no-daemon", "SCENARIO:toolesc run the command"], repo)
        _, rack = watch.wait_for(lambda rack: thread_with(rack, "requiresInput"), 90,
                                 "the task to need input")
        thread = thread_with(rack, "requiresInput")
        terminal.wait_screen("turn", APPROVAL_PROMPT, 30)
        check(APPROVAL_PROMPT in terminal.screen("turn"), "the prompt is still unanswered")
        log("requiresInput while the approval prompt waits")
        terminal.keys("turn", "Enter")
        watch.wait_for(lambda rack: status_of(rack, thread) == "working", 60,
                       "work to go on after the approval")
        watch.wait_for(lambda rack: status_of(rack, thread) == "completed", 60,
                       "the turn to complete")
        log("working after the approval, then completed")
        terminal.quit_codex("turn")
        watch.terminate()
        watch = None
        log("PASS")
        return 0
    finally:
        terminal.close()
        if watch and watch.process.poll() is None:
            watch.process.kill()
        mock.terminate()
        mock.wait(timeout=10)


def main():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--taskrack", required=True)
    parser.add_argument("--installer", required=True)
    parser.add_argument("--mock-server", required=True)
    args = parser.parse_args()
    root = tempfile.mkdtemp(prefix="taskrack-codex-hooks-")
    try:
        return run(args, root)
    except Failure as failure:
        log(f"FAIL: {failure}")
        return 1
    except Exception:  # noqa: BLE001 - any crash is a failure with its trace
        traceback.print_exc()
        return 1
    finally:
        shutil.rmtree(root, ignore_errors=True)


if __name__ == "__main__":
    sys.exit(main())
