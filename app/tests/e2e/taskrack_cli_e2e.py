#!/usr/bin/env python3
"""Every `taskrack` verb end to end through the real binary (also in the sanitizer build), and a
table of misbehaving `codex` app-servers: none may delay the Claude tasks, block a termination
signal for more than a second, or survive Taskrack.

Usage: taskrack_cli_e2e.py --taskrack PATH --fake-app-server PATH
"""
import argparse, json, os, signal, sqlite3, subprocess, sys, tempfile, time, uuid

HOSTILE = "fix \x1b]0;owned\x07 the \x1b[2J\x9b31m build"


def make_home(root):
    """A Claude Code session whose first prompt carries terminal control sequences."""
    project = os.path.join(root, ".claude", "projects", "-work-demo")
    os.makedirs(project)
    line = {"type": "user", "isSidechain": False, "cwd": "/work/demo", "sessionId": str(uuid.uuid4()),
            "timestamp": time.strftime("%Y-%m-%dT%H:%M:%S.000Z", time.gmtime()),
            "message": {"role": "user", "content": HOSTILE}}
    with open(os.path.join(project, line["sessionId"] + ".jsonl"), "w") as f:
        f.write(json.dumps(line) + "\n")
    # Codex local history, closed cleanly: no -wal, no -shm.
    os.makedirs(os.path.join(root, ".codex"))
    db = sqlite3.connect(os.path.join(root, ".codex", "state_5.sqlite"))
    db.execute("PRAGMA journal_mode=WAL")
    db.execute("CREATE TABLE threads (id TEXT PRIMARY KEY, title TEXT, source TEXT, cwd TEXT,"
               " updated_at INTEGER, recency_at INTEGER, archived INTEGER, git_origin_url TEXT)")
    now = int(time.time())
    db.execute("INSERT INTO threads VALUES ('019a0000-0000-7000-8000-000000000001', 'codex task',"
               " 'exec', '/work/demo', ?, ?, 0, NULL)", (now, now))
    db.commit()
    db.close()
    # A sub-agent's sidechain beside it is no task of its own.
    with open(os.path.join(project, "agent-a1b2c3.jsonl"), "w") as f:
        f.write(json.dumps(dict(line, isSidechain=True)) + "\n")
    return line["sessionId"]


def fake_codex(folder, fake, mode):
    """A `codex` on PATH that misbehaves as `mode` says."""
    os.makedirs(folder, exist_ok=True)
    script = os.path.join(folder, "script.json")
    flags = ""
    body = {"hang": {"initialize": [[{"hang": True}]]}, "stubborn": {"initialize": [[{"hang": True}]]},
            "crash": {"initialize": [[{"exit": 3}]]}, "garbage": {"initialize": [[{"raw": "\x1b]0;x\x07"}]]}}
    if mode == "sleep":
        launcher = "exec sleep 1000"
    else:
        with open(script, "w") as f:
            json.dump({"methods": body[mode]}, f)
        if mode == "stubborn":
            flags = "--ignore-term --ignore-eof"
        launcher = (f"exec /usr/bin/python3 {fake} --script {script} --log {folder}/log "
                    f"--pids {folder}/pids {flags} \"$@\"")
    path = os.path.join(folder, "codex")
    with open(path, "w") as f:
        f.write("#!/bin/sh\n" + launcher + "\n")
    os.chmod(path, 0o755)


def descendants(pid):
    parents = {}
    for entry in filter(str.isdigit, os.listdir("/proc")):
        try:
            with open(f"/proc/{entry}/stat") as f:
                parents.setdefault(int(f.read().rsplit(")", 1)[1].split()[1]), []).append(int(entry))
        except (OSError, IndexError, ValueError):
            pass
    found, todo = [], [pid]
    while todo:
        for child in parents.get(todo.pop(), []):
            found.append(child)
            todo.append(child)
    return found


def alive(pid):
    try:
        with open(f"/proc/{pid}/stat") as f:
            return f.read().rsplit(")", 1)[1].split()[0] != "Z"
    except OSError:
        return False


class Checks:
    failures = 0

    def __call__(self, ok, what):
        print(("ok   " if ok else "FAIL ") + what, flush=True)
        self.failures += 0 if ok else 1


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--taskrack", required=True)
    parser.add_argument("--fake-app-server", required=True)
    args = parser.parse_args()
    args.taskrack, args.fake_app_server = map(os.path.abspath, (args.taskrack, args.fake_app_server))
    check = Checks()
    root = tempfile.mkdtemp(prefix="taskrack-cli-")
    home = os.path.join(root, "home")
    session = make_home(home)
    nocodex = os.path.join(root, "empty-bin")
    os.makedirs(nocodex)
    env = dict(os.environ, HOME=home, XDG_CONFIG_HOME=os.path.join(root, "config"),
               XDG_DATA_HOME=os.path.join(root, "data"), PATH=nocodex + ":/usr/bin:/bin")
    env.pop("CODEX_HOME", None)

    def run(argv, extra_env=None, timeout=60):
        started = time.monotonic()
        done = subprocess.run([args.taskrack] + argv + ["--home", home], env=dict(env, **(extra_env or {})),
                              capture_output=True, timeout=timeout)
        return done.returncode, done.stdout.decode(), done.stderr.decode(), time.monotonic() - started

    # verb, exit code, text that stdout (o:) or stderr (e:) must hold
    verbs = [
        (["--help"], 0, "o:Usage: taskrack"), (["help"], 0, "o:Commands:"), (["--version"], 0, "o:taskrack "),
        (["lst"], 2, "e:Unknown command"), (["list", "extra"], 2, "e:Unexpected argument"),
        (["list", "--mode", "tree"], 2, "e:use activity, projects or history"), (["list", "--json", "--mode"], 2, "e:Unknown mode"),
        (["list"], 0, "o:Claude Code"), (["list", "--json"], 0, "o:\"dataState\""),
        (["list", "--mode", "projects"], 0, "o:demo"), (["list", "--mode", "history"], 0, "o:codex task"),
        (["open"], 2, "e:exactly one task id"), (["open", "nope"], 1, "e:No task with that id"),
        (["open", "x" * 65530], 2, "e:at most"), (["read", "y" * 300], 2, "e:at most 256"),
        (["read", "nope"], 1, "e:No task with that id"), (["read", "--all"], 0, "o:marked as read"),
        (["read", session], 0, "o:marked as read"), (["hooks", "status"], 0, "o:"), (["hooks", "bogus"], 2, "e:"),
    ]
    for argv, code, expect in verbs:
        rc, out, err, _ = run(argv)
        stream, text = (out if expect[0] == "o" else err), expect[2:]
        name = " ".join(a if len(a) < 40 else a[:8] + "…" for a in argv)
        check(rc == code and text in stream, f"taskrack {name} -> {rc} {stream[-200:]!r}")
        check("Codex live" not in err and "warning" not in err.lower(), f"taskrack {name} is quiet without codex")
        check(not any(c in out + err for c in "\x1b\x07\x9b"), f"taskrack {name} prints no control character")

    rc, out, _, _ = run(["list", "--mode", "history"])
    check("\\x1b]0;owned\\x07" in out and "\\u009b" in out, "hostile title shown as visible escapes")
    head = out.splitlines()[0]
    check(head.startswith("live · ") and "Local Codex history (read-only)" in head and "Claude Code" in head
          and head.endswith("· 2 tasks") and "!" not in out, f"without codex: live, local history, no warning: {out.splitlines()[:2]!r}")
    rc, out, _, _ = run(["list", "--mode", "projects"])
    shown = sum(1 for line in out.splitlines() if line.startswith(("Working", "Recent")))
    check(f"· {shown} tasks" in out.splitlines()[0], f"projects header counts the {shown} tasks shown")
    check(sorted(os.listdir(os.path.join(home, ".codex"))) == ["state_5.sqlite"],
          "the Codex home holds no new file")

    # Misbehaving app-servers: Claude tasks still come at once; every signal ends all within 1 s.
    for mode in ("sleep", "hang", "stubborn", "crash", "garbage"):
        folder = os.path.join(root, "codex-" + mode)
        fake_codex(folder, args.fake_app_server, mode)
        faulty = {"PATH": folder + ":/usr/bin:/bin"}
        rc, out, _, took = run(["list", "--mode", "history"], faulty, timeout=30)
        check(rc == 0 and "owned" in out and "codex task" in out and took < 5,
              f"{mode}: list shows every task in {took:.1f}s: {out.splitlines()[:1]}")
        for sig in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
            watch = subprocess.Popen([args.taskrack, "watch", "--json", "--home", home], env=dict(env, **faulty),
                                     stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
            # Signalled once the rack has said what became of Codex live: a hung child is still there.
            first = ""
            while "Codex live" not in first and watch.poll() is None:
                first = watch.stdout.readline().decode()
            children = set(descendants(watch.pid))
            check(bool(children) or mode in ("crash", "garbage"), f"{mode}: the child runs when signalled")
            started = time.monotonic()
            watch.send_signal(sig)
            rc = watch.wait(timeout=10)
            took = time.monotonic() - started
            deadline = time.monotonic() + 2
            while any(alive(p) for p in children) and time.monotonic() < deadline:
                time.sleep(0.02)
            left = [p for p in children if alive(p)]
            check(first.strip() != "" and rc == 128 + sig and took < 1.0 and not left,
                  f"{mode}: watch {sig.name} -> {rc} in {took:.2f}s, left {left}")
    return 1 if check.failures else 0


if __name__ == "__main__":
    sys.exit(main())
