#!/usr/bin/env python3
"""`taskrack new` against the real Codex CLI and Claude Code, offline: a stand-in terminal (pty,
no shell) runs the launch helper, which starts the provider's TUI with the prompt; mock model
servers on 127.0.0.1 answer. Checks that each prompt is the first user message, verbatim, in
the chosen folder (with a space), with the chosen Codex model and effort; that shell syntax in
it ran nothing; that no FIFO and no process outlives the test.

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
from codexoffline import CONFIG, SKIP, Failure, check  # noqa: E402

HERE = pathlib.Path(__file__).resolve().parent


def install(installer, tool):
    result = subprocess.run(["bash", installer, tool], stdout=subprocess.PIPE, text=True, timeout=900)
    if result.returncode == SKIP:
        return None
    check(result.returncode == 0, f"installing {tool} failed with {result.returncode}")
    return result.stdout.strip().splitlines()[-1]


def stop_processes_with(env_marker):
    """Kills every process whose environment carries the marker (the test's own home)."""
    for entry in os.listdir("/proc"):
        if entry.isdigit() and int(entry) != os.getpid():
            try:
                with open(f"/proc/{entry}/environ", "rb") as environ:
                    if env_marker in environ.read():
                        os.kill(int(entry), signal.SIGKILL)
            except OSError:
                pass


def wait_for(condition, seconds, what):
    deadline = time.monotonic() + seconds
    while time.monotonic() < deadline:
        if condition():
            return
        time.sleep(0.1)
    raise Failure(f"timed out waiting for {what}")


def records(pattern, keep):
    for path in glob.glob(pattern, recursive=True):
        lines = [json.loads(line) for line in open(path, encoding="utf-8")]
        yield [record for record in lines if keep(record)]


def check_codex(home, project, prompts, mock_log):
    requests = [json.loads(line) for line in mock_log.read_text().splitlines()]
    # Codex may also ask the model for a title of the task, quoting the prompt; whether it does
    # before the session is stopped is a race of its own, so only the turns themselves count.
    asked = [(r.get("user_text"), r.get("model")) for r in requests
             if r.get("path", "").endswith("/responses")
             and not (r.get("user_text") or "").startswith("Generate a concise, single-line task title")]
    check(asked == [(p, "gpt-6-luna") for p in prompts], f"Codex was asked {asked!r}")
    contexts = [c for found in records(f"{home}/.codex/sessions/**/rollout-*.jsonl",
                                       lambda r: r.get("type") == "turn_context") for c in found]
    check(len(contexts) == len(prompts), f"{len(contexts)} turn contexts")
    for context in (c.get("payload", {}) for c in contexts):
        check((context.get("cwd"), context.get("model"), context.get("effort")) == (str(project), "gpt-6-luna", "high"),
              f"turn context {context!r}")


def check_claude(home, project, prompts, mock_log):
    firsts = []
    for found in records(f"{home}/.claude/projects/*/*.jsonl", lambda r: r.get("type") == "user"):
        content = found[0].get("message", {}).get("content")
        if isinstance(content, list):
            content = "".join(part.get("text", "") for part in content if isinstance(part, dict))
        firsts.append((content, found[0].get("cwd")))
    # A prompt without white space carries one trailing blank past Claude Code's subcommands.
    expected = [(p if any(c.isspace() for c in p) else p + " ", str(project)) for p in prompts]
    check(sorted(firsts) == sorted(expected), f"Claude Code got {firsts!r}")


def session(args, tmp, tool, prompts):
    exe = install(args.installer, tool)
    if exe is None:
        return SKIP
    home, run_dir, project = tmp / f"{tool}-home", tmp / f"{tool}-run", tmp / f"{tool} project"
    for folder in (home / ".codex", run_dir, project):
        folder.mkdir(parents=True)
    run_dir.chmod(0o700)
    mock_log = tmp / f"{tool}-mock.jsonl"
    server = args.mock_server if tool == "codex" else args.messages_server
    mock = subprocess.Popen([sys.executable, server, "--log", str(mock_log), "--max-seconds", "600"],
                            stdout=subprocess.PIPE, text=True)
    out = tmp / f"{tool}-terminal.out"
    try:
        port = int(mock.stdout.readline())
        env = dict(os.environ, HOME=str(home), XDG_CONFIG_HOME=str(home / ".config"),
                   XDG_DATA_HOME=str(home / ".local/share"), XDG_RUNTIME_DIR=str(run_dir),
                   PATH=f"{pathlib.Path(exe).parent}:{os.environ['PATH']}", TERMINAL=str(HERE / "pty_terminal.py"),
                   QT_MOCK_LOG=str(mock_log), QT_TERMINAL_OUT=str(out))
        if tool == "codex":
            (home / ".codex/config.toml").write_text(CONFIG.format(port=port))
            env.update(CODEX_HOME=str(home / ".codex"), MOCK_API_KEY="mock", QT_MOCK_PATH="/responses")
            options = ["--model", "gpt-6-luna", "--effort", "high"]
        else:
            (home / ".claude.json").write_text(json.dumps({
                "hasCompletedOnboarding": True, "customApiKeyResponses": {"approved": ["dummy"], "rejected": []},
                "projects": {str(project): {"hasTrustDialogAccepted": True}}}))
            env.update(ANTHROPIC_BASE_URL=f"http://127.0.0.1:{port}", ANTHROPIC_API_KEY="dummy",
                       DISABLE_TELEMETRY="1", CLAUDE_CODE_DISABLE_NONESSENTIAL_TRAFFIC="1", DISABLE_AUTOUPDATER="1",
                       DISABLE_ERROR_REPORTING="1", QT_MOCK_PATH="/v1/messages")
            options = []
        if tool == "codex":
            # The real app-server's model list: listed, and refusals before anything starts.
            listed = subprocess.run([args.taskrack, "models", "--json"], env=env, capture_output=True, text=True,
                                    timeout=60)
            models = {m["model"]: m for m in json.loads(listed.stdout or "{}").get("models", [])}
            check("ultra" not in models.get("gpt-6-luna", {}).get("supportedReasoningEfforts", ["ultra"]),
                  f"models --json: {listed.returncode} {listed.stdout[:200]!r}")
            for refused, text in ((["--model", "gpt-9"], "The saved model gpt-9 is not available."),
                                  (["--model", "gpt-6-luna", "--effort", "ultra"], "does not support ultra")):
                result = subprocess.run([args.taskrack, "new", "--provider", "codex", *refused, "--", "x"], env=env,
                                        cwd=project, capture_output=True, text=True, timeout=60)
                check(result.returncode == 1 and text in result.stderr, f"{refused}: {result.stderr!r}")
            check(not out.exists(), "a refused task reached the terminal")
        for index, prompt in enumerate(prompts):
            result = subprocess.run([args.taskrack, "new", "--provider", tool, "--project", str(project), *options,
                                     "--", prompt], env=env, cwd=tmp, capture_output=True, text=True, timeout=60)
            check(result.returncode == 0, f"taskrack new failed: {result.returncode} {result.stderr}")
            # The stand-in terminal ends the session after the first model request.
            wait_for(lambda: out.exists() and out.read_bytes().count(b"--terminal done--") > index, 120,
                     f"{tool}'s first model request for prompt {index}")
        (check_codex if tool == "codex" else check_claude)(home, project, prompts, mock_log)
        check(not list(run_dir.glob("taskrack-launch-*")), "a FIFO was left behind")
        print(f"ok: {len(prompts)} {tool} prompts arrived verbatim")
        return 0
    finally:
        mock.kill()
        mock.wait()
        # The Codex TUI leaves a managed app-server daemon behind; nothing may outlive the test.
        stop_processes_with(f"HOME={home}".encode())


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    for option in ("--taskrack", "--installer", "--mock-server", "--messages-server"):
        parser.add_argument(option, required=True)
    args = parser.parse_args()
    tmp = pathlib.Path(tempfile.mkdtemp(prefix="taskrack-quicktask-"))
    marker = tmp / "pwned"
    prompts = [f"-n \"it's\" $(touch {marker}) `touch {marker}`\nsecond line", "doctor", "exec"]
    try:
        results = [session(args, tmp, tool, prompts) for tool in ("codex", "claude")]
        check(not marker.exists(), "shell syntax in a prompt ran")
    except Failure as failure:
        print(f"FAILED: {failure} (files in {tmp})", file=sys.stderr)
        return 1
    shutil.rmtree(tmp, ignore_errors=True)
    return SKIP if SKIP in results else 0


if __name__ == "__main__":
    sys.exit(main())
