#!/usr/bin/env python3
"""End-to-end check of the local Codex readers against the real Codex CLI.

Runs `codex exec` fully offline (a mock Responses API on 127.0.0.1, a temporary HOME and
CODEX_HOME) for a text turn, an interrupted turn and a failed turn, and checks what
`taskrack list --json` shows for each: status, title, project, recency.

Exit codes: 0 passed, 1 failed, 77 skipped (the Codex CLI could not be installed from the npm
registry; when the environment variable CI is set that is a failure instead).
"""

import argparse
import contextlib
import datetime
import json
import os
import signal
import sqlite3
import subprocess
import sys
import tempfile
import time
import traceback

from codexoffline import CONFIG, SKIP, Failure, check, install_codex
ORIGIN = "https://git.example.invalid/acme/widgets.git"
PROMPTS = {
    "text": "SCENARIO:text Please say hello.",
    "slow": "SCENARIO:slow Take your time.",
    "failed": "SCENARIO:failed This turn must fail.",
}


def log(message):
    print(f"[codex-local] {message}", flush=True)


def parse_arguments():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--taskrack", required=True, help="the taskrack executable")
    parser.add_argument("--installer", required=True, help="testing/providers/install-provider.sh")
    parser.add_argument("--mock-server", required=True, help="testing/providers/mock_responses_server.py")
    parser.add_argument("--keep", action="store_true", help="keep the temporary folder")
    return parser.parse_args()


def iso_ms(text):
    check(text.endswith("Z") and len(text) == 24, f"not an ISO 8601 UTC time with ms: {text!r}")
    moment = datetime.datetime.strptime(text, "%Y-%m-%dT%H:%M:%S.%fZ")
    return int(moment.replace(tzinfo=datetime.timezone.utc).timestamp() * 1000 + 0.5)


def wait_for(condition, timeout, what):
    """Polls a condition until it holds; a safety limit, not a timing assumption."""
    deadline = time.monotonic() + timeout
    while time.monotonic() < deadline:
        value = condition()
        if value:
            return value
        time.sleep(0.1)
    raise Failure(f"timed out waiting for {what}")


class Scenario:
    def __init__(self, codex, args, root):
        self.codex = codex
        self.args = args
        self.root = root
        self.home = os.path.join(root, "home")
        self.codex_home = os.path.join(self.home, ".codex")
        self.repo = os.path.join(root, "repo")
        self.mock_log = os.path.join(root, "mock_requests.jsonl")
        self.mock = None
        os.makedirs(self.codex_home)
        os.makedirs(self.repo)

    def environment(self):
        env = {key: value for key, value in os.environ.items()
               if not key.startswith(("OPENAI_", "CODEX_"))}
        env.update(HOME=self.home, CODEX_HOME=self.codex_home, MOCK_API_KEY="dummy-not-a-secret",
                   NO_PROXY="127.0.0.1", no_proxy="127.0.0.1")
        for proxy in ("HTTP_PROXY", "HTTPS_PROXY", "ALL_PROXY", "http_proxy", "https_proxy",
                      "all_proxy"):
            env.pop(proxy, None)
        return env

    def prepare_repository(self):
        git = ["git", "-c", "user.name=Taskrack Test", "-c", "user.email=test@example.invalid"]
        for command in (["init", "-q", "-b", "main"], ["remote", "add", "origin", ORIGIN]):
            subprocess.run(git + command, cwd=self.repo, check=True, env=self.environment())
        with open(os.path.join(self.repo, "README"), "w") as readme:
            readme.write("scratch\n")
        subprocess.run(git + ["add", "README"], cwd=self.repo, check=True, env=self.environment())
        subprocess.run(git + ["commit", "-q", "-m", "scratch"], cwd=self.repo, check=True,
                       env=self.environment())

    def start_mock(self):
        self.mock = subprocess.Popen(
            [sys.executable, self.args.mock_server, "--log", self.mock_log, "--max-seconds", "600",
             "--slow-seconds", "120"],
            stdout=subprocess.PIPE, text=True)
        port = int(self.mock.stdout.readline().strip())
        with open(os.path.join(self.codex_home, "config.toml"), "w") as config:
            config.write(CONFIG.format(port=port))
        log(f"mock Responses API on 127.0.0.1:{port}")

    def stop_mock(self):
        if self.mock and self.mock.poll() is None:
            self.mock.terminate()
            with contextlib.suppress(subprocess.TimeoutExpired):
                self.mock.wait(timeout=10)
            if self.mock.poll() is None:
                self.mock.kill()

    def exec_command(self, prompt):
        return [self.codex, "exec", "--json", "--skip-git-repo-check", prompt]

    def run_turn(self, scenario):
        """Runs one turn to its end and returns (exit code, thread id)."""
        started = time.time()
        result = subprocess.run(self.exec_command(PROMPTS[scenario]), cwd=self.repo,
                                env=self.environment(), stdin=subprocess.DEVNULL,
                                stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
                                timeout=180)
        thread_id = self.thread_id(result.stdout)
        log(f"{scenario} turn: exit {result.returncode} after {time.time() - started:.1f} s")
        check(thread_id, f"{scenario} turn printed no thread id; stderr: {result.stderr[-2000:]}")
        return result.returncode, thread_id

    @staticmethod
    def thread_id(stdout):
        for line in stdout.splitlines():
            with contextlib.suppress(ValueError):
                event = json.loads(line)
                if event.get("type") == "thread.started":
                    return event.get("thread_id")
        return None

    def mock_saw(self, scenario):
        if not os.path.exists(self.mock_log):
            return False
        with open(self.mock_log) as requests:
            return any(json.loads(line).get("scenario") == scenario for line in requests)

    def list_rack(self):
        result = subprocess.run([self.args.taskrack, "list", "--json", "--home", self.home],
                                env=self.environment(), stdin=subprocess.DEVNULL,
                                stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
                                timeout=60)
        check(result.returncode == 0,
              f"taskrack list failed with {result.returncode}: {result.stderr[-2000:]}")
        return json.loads(result.stdout)

    def database_rows(self):
        uri = "file:" + os.path.join(self.codex_home, "state_5.sqlite") + "?mode=ro"
        with contextlib.closing(sqlite3.connect(uri, uri=True)) as db:
            db.row_factory = sqlite3.Row
            return {row["id"]: dict(row) for row in db.execute("SELECT * FROM threads")}


def by_title(rack, title):
    matches = [thread for thread in rack["threads"] if thread["title"] == title]
    return matches[0] if len(matches) == 1 else None


def run(args):
    codex = install_codex(args.installer)
    if codex is None:
        if os.environ.get("CI"):
            log("FAIL: the Codex CLI could not be installed from the npm registry (CI is set)")
            return 1
        log("SKIP: the npm registry cannot be reached, so the Codex CLI is not installed")
        return SKIP
    log(f"Codex CLI at {codex}")

    root = tempfile.mkdtemp(prefix="taskrack-codex-local-")
    scenario = Scenario(codex, args, root)
    try:
        scenario.prepare_repository()
        scenario.start_mock()
        run_started_ms = int(time.time() * 1000)

        # A finished turn.
        code, text_id = scenario.run_turn("text")
        check(code == 0, f"text turn exited with {code}")

        # A turn interrupted while the model streams: working while it runs, error after.
        slow = subprocess.Popen(scenario.exec_command(PROMPTS["slow"]), cwd=scenario.repo,
                                env=scenario.environment(), stdin=subprocess.DEVNULL,
                                stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
                                start_new_session=True)
        try:
            wait_for(lambda: scenario.mock_saw("slow"), 120, "the slow turn to reach the model")
            running = wait_for(
                lambda: (lambda thread: thread if thread and thread["status"] == "working" else None)(
                    by_title(scenario.list_rack(), PROMPTS["slow"])),
                60, "the running turn to show as working")
            log("slow turn shows as working while it streams")
            os.killpg(slow.pid, signal.SIGINT)  # what Ctrl-C in a terminal sends
            slow_out, slow_err = slow.communicate(timeout=60)
        finally:
            if slow.poll() is None:
                os.killpg(slow.pid, signal.SIGKILL)
                slow.wait()
        slow_id = scenario.thread_id(slow_out)
        check(slow_id == running["providerThreadID"], "the running thread is the interrupted one")
        log(f"slow turn interrupted: exit {slow.returncode}")

        # A turn the model fails.
        code, failed_id = scenario.run_turn("failed")
        check(code != 0, "the failed turn exits with an error")

        rack = scenario.list_rack()
        listed_ms = int(time.time() * 1000)
        rows = scenario.database_rows()
        codex_failures = [failure for failure in rack["sourceFailures"]
                          if failure.get("provider") == "codex" or failure["sourceName"] == "Codex"]
        # No codex on PATH here, so no app-server: the local history answers for Codex, and
        # the only Codex failure allowed is the degraded live channel.
        check(all(failure["state"] == "degraded" for failure in codex_failures),
              f"Codex degrades to its local history: {codex_failures}")
        # Read from files, not a live channel (another provider's live source may lift it).
        check(rack["dataState"] in ("cached", "live"), f"the rack has data: {rack['dataState']}")
        check("Local Codex history (read-only)" in rack["sourceDescription"]
              and "local activity" in rack["sourceDescription"],
              f"description names the local readers: {rack['sourceDescription']!r}")

        expected = {"text": (text_id, "completed"), "slow": (slow_id, "error"),
                    "failed": (failed_id, "error")}
        threads = {}
        for name, (thread_id, status) in expected.items():
            thread = by_title(rack, PROMPTS[name])
            check(thread is not None, f"the {name} thread is listed once")
            threads[name] = thread
            check(thread["id"] == "codex:" + thread_id, f"{name}: id {thread['id']}")
            check(thread["provider"] == "codex", f"{name}: provider {thread['provider']}")
            check(thread["status"] == status,
                  f"{name}: status {thread['status']!r}, expected {status!r}")
            check(thread["source"] == "exec", f"{name}: source {thread['source']!r}")
            check(os.path.realpath(thread["workspacePath"]) == os.path.realpath(scenario.repo),
                  f"{name}: workspace {thread['workspacePath']}")
            project = thread["projectIdentity"]
            check(project["name"], f"{name}: the project has a name")
            check(os.path.realpath(project["workspacePath"]) == os.path.realpath(scenario.repo),
                  f"{name}: project folder {project['workspacePath']}")
            # Recency is the start of the latest turn as Codex recorded it, to the millisecond.
            row = rows[thread_id]
            check(iso_ms(thread["recencyAt"]) == row["recency_at_ms"],
                  f"{name}: recencyAt {thread['recencyAt']} vs recorded {row['recency_at_ms']}")
            check(run_started_ms - 5000 <= iso_ms(thread["recencyAt"]) <= listed_ms,
                  f"{name}: recencyAt lies within the run")
            check(iso_ms(thread["updatedAt"]) >= iso_ms(thread["recencyAt"]),
                  f"{name}: the turn ended after it started")

        ids = {thread["projectIdentity"]["id"] for thread in threads.values()}
        check(len(ids) == 1, f"all turns belong to one project: {ids}")
        order = [thread["title"] for thread in rack["threads"]]
        check(iso_ms(threads["text"]["recencyAt"]) < iso_ms(threads["slow"]["recencyAt"])
              < iso_ms(threads["failed"]["recencyAt"]), "recency follows the order of the turns")
        log(f"rack order: {order}")
        log("PASS")
        return 0
    except Failure as failure:
        log(f"FAIL: {failure}")
        log(f"temporary folder kept at {root}")
        args.keep = True
        return 1
    finally:
        scenario.stop_mock()
        if not args.keep:
            subprocess.run(["rm", "-rf", root], check=False)


def main():
    args = parse_arguments()
    try:
        return run(args)
    except Exception:  # an unexpected error is a failure, never a skip
        traceback.print_exc()
        return 1


if __name__ == "__main__":
    sys.exit(main())
