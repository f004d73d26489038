#!/usr/bin/env python3
"""`taskrack new` against the real Codex CLI and Claude Code, offline: a stand-in terminal (pty, no shell) runs
the launch helper, which starts the Codex TUI with the prompt; the mock model server records the
first model request. Checks that the prompt arrives verbatim as the first user message, in the
chosen folder, with the chosen model and effort, that shell syntax in it ran nothing, and that
no process outlives the test.

Exit 0 passed, 1 failed, 77 skipped (the npm registry could not be reached)."""

import argparse
import glob
import json
import os
import pathlib
import shutil
import signal
import subprocess
import sys
import tempfile
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[3] / "sources/codex/tests/integration"))
from codexoffline import CONFIG, SKIP, Failure, check, install_codex  # noqa: E402

HERE = pathlib.Path(__file__).resolve().parent


def processes_with(env_marker):
    """Pids whose environment carries the marker (our temporary CODEX_HOME)."""
    found = []
    for entry in os.listdir("/proc"):
        if not entry.isdigit() or int(entry) == os.getpid():
            continue
        try:
            with open(f"/proc/{entry}/environ", "rb") as environ:
                if env_marker in environ.read():
                    found.append(int(entry))
        except OSError:
            pass
    return found


def stop(pids):
    for pid in pids:
        try:
            os.kill(pid, signal.SIGKILL)
        except ProcessLookupError:
            pass


def wait_for(condition, seconds, what):
    deadline = time.monotonic() + seconds
    while time.monotonic() < deadline:
        if condition():
            return
        time.sleep(0.1)
    raise Failure(f"timed out waiting for {what}")


def rollout_turn_contexts(codex_home):
    contexts = []
    for path in glob.glob(f"{codex_home}/sessions/**/rollout-*.jsonl", recursive=True):
        for line in open(path, encoding="utf-8"):
            record = json.loads(line)
            if record.get("type") == "turn_context":
                contexts.append(record.get("payload", {}))
    return contexts


def install_claude(installer):
    result = subprocess.run(["bash", installer, "claude"], stdout=subprocess.PIPE, text=True, timeout=900)
    if result.returncode == SKIP:
        return None
    check(result.returncode == 0, f"installing Claude Code failed with {result.returncode}")
    return result.stdout.strip().splitlines()[-1]


def first_user_messages(claude_home):
    """(text, cwd) of the first user message of every transcript."""
    found = []
    for path in glob.glob(f"{claude_home}/projects/*/*.jsonl"):
        for line in open(path, encoding="utf-8"):
            record = json.loads(line)
            if record.get("type") != "user":
                continue
            content = record.get("message", {}).get("content")
            if isinstance(content, list):
                content = "".join(part.get("text", "") for part in content if isinstance(part, dict))
            found.append((content, record.get("cwd")))
            break
    return found


def run_claude(args, tmp, marker):
    claude = install_claude(args.installer)
    if claude is None:
        return SKIP
    home, run_dir, project = tmp / "claude-home", tmp / "claude-run", tmp / "b project"
    for folder in (home, run_dir, project):
        folder.mkdir(parents=True)
    run_dir.chmod(0o700)
    (home / ".claude.json").write_text(json.dumps({
        "hasCompletedOnboarding": True, "customApiKeyResponses": {"approved": ["dummy"], "rejected": []},
        "projects": {str(project): {"hasTrustDialogAccepted": True}}}))
    mock_log = tmp / "messages.jsonl"
    mock = subprocess.Popen([sys.executable, args.messages_server, "--log", str(mock_log), "--max-seconds", "600"],
                            stdout=subprocess.PIPE, text=True)
    try:
        port = int(mock.stdout.readline())
        env = dict(os.environ, HOME=str(home), XDG_CONFIG_HOME=str(home / ".config"),
                   XDG_DATA_HOME=str(home / ".local/share"), XDG_RUNTIME_DIR=str(run_dir),
                   PATH=f"{pathlib.Path(claude).parent}:{os.environ['PATH']}",
                   ANTHROPIC_BASE_URL=f"http://127.0.0.1:{port}", ANTHROPIC_API_KEY="dummy",
                   DISABLE_TELEMETRY="1", CLAUDE_CODE_DISABLE_NONESSENTIAL_TRAFFIC="1", DISABLE_AUTOUPDATER="1",
                   DISABLE_ERROR_REPORTING="1", TERMINAL=str(HERE / "pty_terminal.py"), QT_MOCK_LOG=str(mock_log),
                   QT_MOCK_PATH="/v1/messages", QT_TERMINAL_OUT=str(tmp / "claude-terminal.out"))
        prompts = [f"-n \"it's\" $(touch {marker}) `touch {marker}`\nsecond line", "doctor", "exec"]
        for index, prompt in enumerate(prompts):
            result = subprocess.run([args.taskrack, "new", "--provider", "claude", "--project", str(project),
                                     "--", prompt], env=env, cwd=tmp, capture_output=True, text=True, timeout=60)
            check(result.returncode == 0, f"taskrack new failed: {result.returncode} {result.stderr}")
            out = tmp / "claude-terminal.out"
            wait_for(lambda: out.exists() and out.read_bytes().count(b"--terminal done--") > index, 120,
                     f"Claude Code's first model request for prompt {index}")
        messages = first_user_messages(home / ".claude")
        check(len(messages) == len(prompts), f"{len(messages)} transcripts for {len(prompts)} prompts")
        for prompt in prompts:
            # A prompt without white space carries one trailing blank past the subcommand match.
            expected = prompt if any(c.isspace() for c in prompt) else prompt + " "
            check((expected, str(project)) in messages, f"{prompt!r} did not arrive: {messages!r}")
        check(not marker.exists(), "shell syntax in the prompt ran")
        check(not list(run_dir.glob("taskrack-launch-*")), "a FIFO was left behind")
        print(f"ok: {len(prompts)} Claude Code prompts arrived verbatim")
        return 0
    finally:
        mock.kill()
        mock.wait()
        stop(processes_with(f"HOME={home}".encode()))


def run(args):
    codex = install_codex(args.installer)
    if codex is None:
        return SKIP
    tmp = pathlib.Path(tempfile.mkdtemp(prefix="taskrack-quicktask-"))
    home, run_dir, project = tmp / "home", tmp / "run", tmp / "a project"
    codex_home = home / ".codex"
    for folder in (codex_home, run_dir, project):
        folder.mkdir(parents=True)
    run_dir.chmod(0o700)
    mock_log = tmp / "mock.jsonl"
    mock = subprocess.Popen([sys.executable, args.mock_server, "--log", str(mock_log), "--max-seconds", "600"],
                            stdout=subprocess.PIPE, text=True)
    marker = tmp / "pwned"
    try:
        port = int(mock.stdout.readline())
        (codex_home / "config.toml").write_text(CONFIG.format(port=port))
        env = dict(os.environ, HOME=str(home), CODEX_HOME=str(codex_home), XDG_CONFIG_HOME=str(home / ".config"),
                   XDG_DATA_HOME=str(home / ".local/share"), XDG_RUNTIME_DIR=str(run_dir),
                   PATH=f"{pathlib.Path(codex).parent}:{os.environ['PATH']}", MOCK_API_KEY="mock",
                   TERMINAL=str(HERE / "pty_terminal.py"), QT_MOCK_LOG=str(mock_log),
                   QT_TERMINAL_OUT=str(tmp / "terminal.out"))
        prompts = [f"-n \"it's\" $(touch {marker}) `touch {marker}`\nsecond line", "doctor", "exec"]
        for index, prompt in enumerate(prompts):
            before = mock_log.read_text().count("\n") if mock_log.exists() else 0
            result = subprocess.run([args.taskrack, "new", "--provider", "codex", "--project", str(project),
                                     "--model", "gpt-6-luna", "--effort", "high", "--", prompt],
                                    env=env, cwd=tmp, capture_output=True, text=True, timeout=60)
            check(result.returncode == 0, f"taskrack new failed: {result.returncode} {result.stderr}")
            wait_for(lambda: mock_log.exists() and mock_log.read_text().count("\n") > before, 90,
                     f"the first model request of prompt {index}")
            requests = [json.loads(line) for line in mock_log.read_text().splitlines()[before:]]
            first = next(r for r in requests if r.get("path", "").endswith("/responses"))
            check(first.get("user_text") == prompt, f"prompt {index} arrived as {first.get('user_text')!r}")
            check(first.get("model") == "gpt-6-luna", f"model was {first.get('model')!r}")
            wait_for(lambda: (tmp / "terminal.out").exists() and
                     (tmp / "terminal.out").read_bytes().count(b"--terminal done--") > index, 30,
                     "the terminal to close")
        contexts = rollout_turn_contexts(codex_home)
        check(contexts, "no turn_context in any rollout")
        for context in contexts:
            check(context.get("cwd") == str(project), f"cwd was {context.get('cwd')!r}")
            check(context.get("model") == "gpt-6-luna", f"rollout model was {context.get('model')!r}")
            check(context.get("effort") == "high", f"rollout effort was {context.get('effort')!r}")
        check(not marker.exists(), "shell syntax in the prompt ran")
        check(not list(run_dir.glob("taskrack-launch-*")), "a FIFO was left behind")
        print(f"ok: {len(prompts)} Codex prompts arrived verbatim")
        claude = run_claude(args, tmp, marker)
        if claude == 0:
            shutil.rmtree(tmp, ignore_errors=True)
        return claude
    finally:
        mock.kill()
        mock.wait()
        # The TUI leaves a managed app-server daemon behind; nothing may outlive the test.
        stop(processes_with(f"CODEX_HOME={codex_home}".encode()))


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--taskrack", required=True)
    parser.add_argument("--installer", required=True)
    parser.add_argument("--mock-server", required=True)
    parser.add_argument("--messages-server", required=True)
    args = parser.parse_args()
    try:
        return run(args)
    except Failure as failure:
        print(f"FAILED: {failure}", file=sys.stderr)
        return 1


if __name__ == "__main__":
    sys.exit(main())
