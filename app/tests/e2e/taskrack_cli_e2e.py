#!/usr/bin/env python3
"""Every `taskrack` verb through the real binary (so the sanitizer build runs main and each
command), then a table of misbehaving `codex` app-servers: none may delay the other tasks, hold
a termination signal for a second, or outlive Taskrack."""
import argparse, json, os, signal, sqlite3, subprocess, sys, tempfile, time, uuid

HOSTILE = "fix \x1b]0;owned\x07 the \x1b[2J\x9b31m build"
FAULTS = {"sleep": None, "hang": [{"hang": True}], "stubborn": [{"hang": True}],
          "crash": [{"exit": 3}], "garbage": [{"raw": "\x1b]0;x\x07"}]}


def make_home(root):
    """Codex history closed cleanly (no -wal, no -shm), a Claude Code session with a hostile
    first prompt, and a top-level sub-agent sidechain that is no task of its own."""
    os.makedirs(os.path.join(root, ".codex"))
    db = sqlite3.connect(os.path.join(root, ".codex", "state_5.sqlite"))
    db.execute("PRAGMA journal_mode=WAL")
    db.execute("CREATE TABLE threads (id TEXT PRIMARY KEY, title TEXT, source TEXT, cwd TEXT,"
               " updated_at INTEGER, recency_at INTEGER, archived INTEGER, git_origin_url TEXT)")
    db.execute("INSERT INTO threads VALUES ('019a0000-0000-7000-8000-000000000001', 'codex task',"
               " 'exec', '/work/demo', ?1, ?1, 0, NULL)", (int(time.time()),))
    db.commit()
    db.close()
    project = os.path.join(root, ".claude", "projects", "-work-demo")
    os.makedirs(project)
    line = {"type": "user", "cwd": "/work/demo", "sessionId": str(uuid.uuid4()),
            "timestamp": time.strftime("%Y-%m-%dT%H:%M:%S.000Z", time.gmtime()),
            "message": {"role": "user", "content": HOSTILE}}
    for name, extra in ((line["sessionId"], {}), ("agent-a1b2c3", {"isSidechain": True})):
        with open(os.path.join(project, name + ".jsonl"), "w") as f:
            f.write(json.dumps(dict(line, **extra)) + "\n")
    return line["sessionId"]


def fake_codex(folder, fake, mode):
    os.makedirs(folder)
    launcher = "exec sleep 1000"
    if FAULTS[mode]:
        with open(f"{folder}/script.json", "w") as f:
            json.dump({"methods": {"initialize": [FAULTS[mode]]}}, f)
        flags = "--ignore-term --ignore-eof" if mode == "stubborn" else ""
        launcher = f"exec /usr/bin/python3 {fake} --script {folder}/script.json --log {folder}/log " \
                   f"--pids {folder}/pids {flags} \"$@\""
    with open(f"{folder}/codex", "w") as f:
        f.write("#!/bin/sh\n" + launcher + "\n")
    os.chmod(f"{folder}/codex", 0o755)


def proc_stat(pid):
    with open(f"/proc/{pid}/stat") as f:
        return f.read().rsplit(")", 1)[1].split()


def descendants(pid):
    parents = {}
    for entry in filter(str.isdigit, os.listdir("/proc")):
        try:
            parents.setdefault(int(proc_stat(entry)[1]), []).append(int(entry))
        except (OSError, IndexError):
            pass
    found, todo = set(), [pid]
    while todo:
        children = parents.get(todo.pop(), [])
        found.update(children)
        todo += children
    return found


def alive(pid):
    try:
        return proc_stat(pid)[0] != "Z"
    except OSError:
        return False


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--taskrack", required=True)
    parser.add_argument("--fake-app-server", required=True)
    args = parser.parse_args()
    taskrack, fake = map(os.path.abspath, (args.taskrack, args.fake_app_server))
    failures = []

    def check(ok, what):
        print(("ok   " if ok else "FAIL ") + what, flush=True)
        failures.extend([] if ok else [what])

    root = tempfile.mkdtemp(prefix="taskrack-cli-")
    home = os.path.join(root, "home")
    session = make_home(home)
    os.makedirs(f"{root}/no-codex")
    env = dict(os.environ, HOME=home, XDG_CONFIG_HOME=f"{root}/config", XDG_DATA_HOME=f"{root}/data",
               PATH=f"{root}/no-codex:/usr/bin:/bin")
    env.pop("CODEX_HOME", None)

    def run(argv, path=None):
        started = time.monotonic()
        done = subprocess.run([taskrack] + argv + ["--home", home], capture_output=True, timeout=60,
                              env=dict(env, PATH=path or env["PATH"]))
        return done.returncode, done.stdout.decode(), done.stderr.decode(), time.monotonic() - started

    # arguments, exit code, what stdout ("o:") or stderr ("e:") holds
    for argv, code, expect in [
            (["--help"], 0, "o:Usage: taskrack"), (["help"], 0, "o:Commands:"), (["--version"], 0, "o:taskrack "),
            (["lst"], 2, "e:Unknown command"), (["list", "extra"], 2, "e:Unexpected argument"),
            (["list", "--mode", "tree"], 2, "e:use activity"), (["list", "--json", "--mode"], 2, "e:Unknown mode"),
            (["list"], 0, "o:Claude Code"), (["list", "--json"], 0, "o:\"dataState\""),
            (["list", "--mode", "projects"], 0, "o:demo"), (["list", "--mode", "history"], 0, "o:codex task"),
            (["open"], 2, "e:exactly one task id"), (["open", "nope"], 1, "e:No task with that id"),
            (["open", "x" * 65530], 2, "e:at most"), (["read", "y" * 300], 2, "e:at most 256"),
            (["read", "nope"], 1, "e:No task with that id"), (["read", "--all"], 0, "o:marked as read"),
            (["read", session], 0, "o:marked as read"), (["hooks", "status"], 0, "o:"), (["hooks", "bogus"], 2, "e:"),
            (["quick-task", "--project", f"{root}/missing"], 2, "e:is not a folder"),
            (["quick-task", "--bogus"], 2, "e:Unexpected argument")]:
        rc, out, err, _ = run(argv)
        name = " ".join(a[:20] for a in argv)
        check(rc == code and expect[2:] in (out if expect[0] == "o" else err), f"{name} -> {rc} {(out + err)[-160:]!r}")
        check("Codex" not in err and not any(c in out + err for c in "\x1b\x07\x9b"), f"{name}: quiet and inert")

    _, out, _, _ = run(["list", "--mode", "history"])
    head = out.splitlines()[0]
    check("\\x1b]0;owned\\x07" in out and "\\u009b" in out, "a hostile title is shown as visible escapes")
    check(head.startswith("live · ") and "Local Codex history" in head and "Claude Code" in head
          and head.endswith("· 2 tasks") and "!" not in out, f"no codex CLI is a normal set-up: {head!r}")
    check(os.listdir(f"{home}/.codex") == ["state_5.sqlite"], "the Codex home holds no new file")
    _, out, _, _ = run(["list", "--mode", "projects"])
    shown = sum(line.startswith(("Working", "Recent")) for line in out.splitlines())
    check(out.startswith("live") and f"· {shown} tasks\n" in out, f"the projects header counts the {shown} shown")

    for mode in FAULTS:
        fake_codex(f"{root}/{mode}", fake, mode)
        path = f"{root}/{mode}:/usr/bin:/bin"
        rc, out, _, took = run(["list", "--mode", "history"], path)
        check(rc == 0 and "owned" in out and "codex task" in out and took < 5, f"{mode}: list in {took:.1f}s")
        for sig in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
            watch = subprocess.Popen([taskrack, "watch", "--json", "--home", home], env=dict(env, PATH=path),
                                     stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
            # Signalled once the rack has said what became of Codex live: a hung child still runs.
            line = ""
            while "Codex live" not in line and watch.poll() is None:
                line = watch.stdout.readline().decode()
            children = descendants(watch.pid)
            started = time.monotonic()
            watch.send_signal(sig)
            rc, took = watch.wait(timeout=10), time.monotonic() - started
            deadline = time.monotonic() + 2
            while any(map(alive, children)) and time.monotonic() < deadline:
                time.sleep(0.02)
            check((children or mode in ("crash", "garbage")) and rc == 0 and took < 1.0
                  and not any(map(alive, children)), f"{mode}: watch {sig.name} -> {rc} in {took:.2f}s")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
