#!/usr/bin/python3
"""Process tests of the tray application, each with its own Xvfb, session bus, HOME and
XDG_RUNTIME_DIR.

  instances   a second launch wakes the first and leaves silently; `taskrack quit` and SIGTERM end
              it with 0; a symlinked lock and a copy in ~/Downloads get their alert and exit 1
  menu        over a StatusNotifierWatcher the item is published: its menu read and clicked
              through com.canonical.dbusmenu (Restart brings a new copy, Quit ends it)
  notifications  a Codex task finishing after the first refresh is announced; a forged click
              is ignored, the server's click opens it
  wake        PrepareForSleep from a fake logind on a second bus: the Codex child goes at sleep
              and comes back after the wake
  doctor      `taskrack doctor --json` without a GUI plugin sees the display, an XEmbed tray,
              the fake notification server and StatusNotifier host, and the running copy
  real        the real Codex CLI, offline: a finished `codex exec` turn badges the item, Quit
              from the menu leaves no child (77 when the CLI cannot be installed)
"""

import argparse
import contextlib
import json
import os
import queue
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import time

import dbus

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.abspath(os.path.join(HERE, "..", "..", ".."))
SERVICES = os.path.join(ROOT, "testing", "fakedesktopservices.py")
sys.path.insert(0, os.path.join(ROOT, "sources", "codex", "tests", "integration"))
from codex_watch_integration import children_of  # noqa: E402  (needs the path above)


class Failure(Exception):
    pass


def check(condition, message):
    if not condition:
        raise Failure(message)


def log(message):
    print(f"[tray] {message}", flush=True)


def wait_for(predicate, seconds, what):
    deadline = time.monotonic() + seconds
    while time.monotonic() < deadline:
        value = predicate()
        if value:
            return value
        time.sleep(0.05)
    raise Failure(f"timed out waiting for {what}")


class Session:
    """Xvfb, a session bus and a private home for one scenario."""

    def __init__(self, root, taskrack):
        self.root = root
        self.taskrack = taskrack
        self.home = os.path.join(root, "home")
        self.runtime = os.path.join(root, "run")
        os.makedirs(self.home)
        os.makedirs(self.runtime, mode=0o700)
        self.processes = []
        read, write = os.pipe()
        # -noreset: the server would otherwise restart whenever its last client leaves, and a
        # copy started in that moment finds no display.
        self.xvfb = subprocess.Popen(["Xvfb", "-displayfd", str(write), "-screen", "0", "640x480x24",
                                      "-nolisten", "tcp", "-noreset"], pass_fds=(write,),
                                     stderr=subprocess.DEVNULL)
        os.close(write)
        with os.fdopen(read) as display:
            self.display = ":" + display.readline().strip()
        self.bus = subprocess.Popen(["dbus-daemon", "--session", "--nofork", "--print-address"],
                                    stdout=subprocess.PIPE, text=True)
        self.address = self.bus.stdout.readline().strip()
        self.env = dict(os.environ, HOME=self.home, XDG_RUNTIME_DIR=self.runtime, DISPLAY=self.display,
                        DBUS_SESSION_BUS_ADDRESS=self.address, QT_QPA_PLATFORM="xcb",
                        DBUS_SYSTEM_BUS_ADDRESS="unix:path=" + os.path.join(root, "no-system-bus"),
                        TASKRACK_VERBOSE="1", XDG_CONFIG_HOME=os.path.join(self.home, ".config"))
        self.env.pop("XDG_DOWNLOAD_DIR", None)
        os.environ["DBUS_SESSION_BUS_ADDRESS"] = self.address
        self.dbus = dbus.bus.BusConnection(self.address)

    def start(self, *args, executable=None, env=None):
        err = open(os.path.join(self.root, f"app-{len(self.processes)}.err"), "w+")
        process = subprocess.Popen([executable or self.taskrack, *args], env=env or self.env,
                                   stdout=subprocess.DEVNULL, stderr=err)
        process.err = err
        self.processes.append(process)
        return process

    def run(self, *args, executable=None, timeout=30):
        return subprocess.run([executable or self.taskrack, *args], env=self.env, capture_output=True,
                              text=True, timeout=timeout)

    def owner_pid(self):
        with contextlib.suppress(dbus.DBusException):
            bus = self.dbus.get_object("org.freedesktop.DBus", "/org/freedesktop/DBus")
            return int(bus.GetConnectionUnixProcessID("com.quillon.Taskrack",
                                                      dbus_interface="org.freedesktop.DBus"))
        return None

    def service(self, mode, env=None):
        process = subprocess.Popen(["/usr/bin/python3", SERVICES, mode], env=env or self.env,
                                   stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
        lines = queue.Queue()
        threading.Thread(target=lambda: [lines.put(line) for line in process.stdout], daemon=True).start()
        check(lines.get(timeout=20).strip() == "ready", f"the fake {mode} did not start")
        process.lines = lines
        self.processes.append(process)
        return process

    def close_alert(self, process):
        """Presses Escape in the alert of a refusing launch, once it is mapped."""
        window = wait_for(lambda: subprocess.run(["xdotool", "search", "--onlyvisible", "--name", "Taskrack"],
                                                 env=self.env, capture_output=True, text=True).stdout.split(),
                          20, "the alert")
        # No window manager here: focus the alert directly, then press the key through XTest.
        subprocess.run(["xdotool", "windowfocus", "--sync", window[0]], env=self.env, check=True,
                       capture_output=True)
        subprocess.run(["xdotool", "key", "Escape"], env=self.env, check=True)
        return process.wait(timeout=20)

    def close(self):
        for process in reversed(self.processes):
            if process.poll() is None:
                process.kill()
                process.wait()
        self.bus.kill()
        self.xvfb.kill()
        self.bus.wait()
        self.xvfb.wait()


def stderr_of(process):
    process.err.seek(0)
    return process.err.read()


def scenario_instances(session):
    first = session.start()
    wait_for(session.owner_pid, 20, "the bus name")
    check(session.owner_pid() == first.pid, "the first copy owns the name")
    second = session.run()
    check(second.returncode == 0 and second.stderr == "", f"second launch: {second.returncode} {second.stderr!r}")
    wait_for(lambda: "Rack requested" in stderr_of(first), 10, "Activate() in the first copy")
    quitting = session.run("quit")
    check(quitting.returncode == 0, f"taskrack quit: {quitting.stderr}")
    check(session.owner_pid() is None, "taskrack quit returns once the copy has left the bus")
    check(first.wait(timeout=20) == 0, "the first copy exits 0 after quit")
    log("second launch and quit")

    again = session.start()
    wait_for(session.owner_pid, 20, "the bus name")
    children = children_of(again.pid)
    again.send_signal(signal.SIGTERM)
    check(again.wait(timeout=20) == 0, "SIGTERM ends with 0")
    check(not [pid for pid in children if os.path.exists(f"/proc/{pid}")], "no child outlives it")
    log("SIGTERM")

    lock = os.path.join(session.runtime, "com.quillon.Taskrack.instance.lock")
    victim = os.path.join(session.root, "victim")
    with open(victim, "w") as f:
        f.write("keep")
    os.remove(lock)
    os.symlink(victim, lock)
    refused = session.start()
    check(session.close_alert(refused) == 1, "a symlinked lock exits 1")
    check("Taskrack couldn’t finish opening" in stderr_of(refused), stderr_of(refused))
    with open(victim) as f:
        check(f.read() == "keep", "the link's target is untouched")
    os.remove(lock)
    log("symlinked lock")

    downloads = os.path.join(session.home, "Downloads")
    os.makedirs(downloads)
    copy = shutil.copy(session.taskrack, downloads)
    downloaded = session.start(executable=copy)
    check(session.close_alert(downloaded) == 1, "a copy in Downloads exits 1")
    check("Install Taskrack before opening it" in stderr_of(downloaded), stderr_of(downloaded))
    log("copy in Downloads")


def menu_items(session, owner):
    item = session.dbus.get_object(owner, "/StatusNotifierItem")
    path = item.Get("org.kde.StatusNotifierItem", "Menu", dbus_interface=dbus.PROPERTIES_IFACE)
    menu = session.dbus.get_object(owner, path)
    _, layout = menu.GetLayout(0, -1, ["label", "enabled", "visible", "type"],
                               dbus_interface="com.canonical.dbusmenu")
    items = {}
    for child in layout[2]:
        ident, props = int(child[0]), child[1]
        if props.get("type") != "separator":
            items[str(props.get("label", ""))] = (ident, bool(props.get("enabled", True)))
    return menu, items


def finished_codex_task(session):
    """A Codex task that finished before Taskrack starts: unread at the first refresh."""
    from codex_watch_integration import append_event, write_state_database
    import datetime
    codex_home = os.path.join(session.home, ".codex")
    rollout = os.path.join(codex_home, "sessions", "rollout-0000-local.jsonl")
    write_state_database(codex_home, rollout, [("0000-local", rollout, 30)],
                         datetime.datetime.now(datetime.timezone.utc))
    append_event(rollout, "task_started")
    append_event(rollout, "task_complete")
    session.env["CODEX_HOME"] = codex_home


def scenario_menu(session):
    watcher = session.service("watcher")
    finished_codex_task(session)
    # Provider files under another home: the relaunched copy must look there too.
    app = session.start("--home", session.home)
    registered = json.loads(wait_for(lambda: watcher.lines.get(timeout=30), 30, "the item"))
    owner = registered["sender"]
    menu, items = menu_items(session, owner)
    labels = list(items)
    log(f"menu: {labels}")
    for expected in ("Show Rack", "Refresh", "Mark All Read", "Settings…", "Restart Taskrack", "Quit Taskrack"):
        check(any(label.startswith(expected) for label in labels), f"menu item {expected}")
    item = session.dbus.get_object(owner, "/StatusNotifierItem")

    def pixmaps():
        return item.Get("org.kde.StatusNotifierItem", "IconPixmap", dbus_interface=dbus.PROPERTIES_IFACE)

    wait_for(lambda: menu_items(session, owner)[1]["Mark All Read"][1], 30, "Mark All Read enabled")
    badged = pixmaps()
    check(len(badged) > 0, "the item has painted pixmaps")
    menu, items = menu_items(session, owner)
    menu.Event(items["Mark All Read"][0], "clicked", dbus.Int32(0), dbus.UInt32(0),
               dbus_interface="com.canonical.dbusmenu")
    wait_for(lambda: not menu_items(session, owner)[1]["Mark All Read"][1], 20, "Mark All Read disabled")
    wait_for(lambda: pixmaps() != badged, 20, "the badge to go from IconPixmap")
    log("Mark All Read cleared the badge")

    menu.Event(items["Settings…"][0], "clicked", dbus.Int32(0), dbus.UInt32(0),
               dbus_interface="com.canonical.dbusmenu")
    wait_for(lambda: subprocess.run(["xdotool", "search", "--onlyvisible", "--name", "Taskrack Settings"],
                                    env=session.env, capture_output=True).stdout, 20, "the settings window")

    old = app.pid
    menu.Event(items["Restart Taskrack"][0], "clicked", dbus.Int32(0), dbus.UInt32(0),
               dbus_interface="com.canonical.dbusmenu")
    check(app.wait(timeout=20) == 0, "the old copy exits 0 on Restart")
    new = wait_for(lambda: (pid := session.owner_pid()) and pid != old and pid, 30, "the relaunched copy")
    log(f"restarted: {old} -> {new}")
    with open(f"/proc/{new}/cmdline", "rb") as f:
        arguments = f.read().split(b"\0")[1:-1]
    check(arguments == [b"--home", session.home.encode()], f"relaunched with {arguments}")
    registered = json.loads(wait_for(lambda: watcher.lines.get(timeout=30), 30, "the new item"))
    menu, items = menu_items(session, registered["sender"])
    menu.Event(items["Quit Taskrack"][0], "clicked", dbus.Int32(0), dbus.UInt32(0),
               dbus_interface="com.canonical.dbusmenu")
    wait_for(lambda: not os.path.exists(f"/proc/{new}") or open(f"/proc/{new}/stat").read().rsplit(")", 1)[1].split()[0] == "Z",
             20, "the relaunched copy to quit")
    log("menu over StatusNotifierItem")


def scenario_wake(session, fake_app_server):
    from codex_watch_integration import fake_script, write_state_database
    import datetime
    system = subprocess.Popen(["dbus-daemon", "--session", "--nofork", "--print-address"],
                              stdout=subprocess.PIPE, text=True)
    session.processes.append(system)
    session.env["DBUS_SYSTEM_BUS_ADDRESS"] = system.stdout.readline().strip()
    logind = session.service("logind")
    codex_home = os.path.join(session.home, ".codex")
    os.makedirs(codex_home)
    bin_dir = os.path.join(session.root, "bin")
    os.makedirs(bin_dir)
    now = datetime.datetime.now(datetime.timezone.utc)
    rollout = os.path.join(codex_home, "sessions", "rollout-0000-local.jsonl")
    write_state_database(codex_home, rollout, [("0000-local", rollout, 30), ("0000-live", "", 60)], now)
    script = os.path.join(session.root, "script.json")
    with open(script, "w") as f:
        json.dump(fake_script("0000-local", "0000-live", now), f)
    launcher = os.path.join(bin_dir, "codex")
    with open(launcher, "w") as f:
        f.write(f"#!/bin/sh\nexec {sys.executable} {fake_app_server} --script {script}"
                f" --log {os.path.join(session.root, 'requests.jsonl')}"
                f" --pids {os.path.join(session.root, 'pids.txt')} \"$@\"\n")
    os.chmod(launcher, 0o755)
    session.env["PATH"] = bin_dir + os.pathsep + session.env["PATH"]
    session.env["CODEX_HOME"] = codex_home
    app = session.start()
    first = wait_for(lambda: children_of(app.pid), 30, "the app-server child")
    tell(logind, "sleep")
    wait_for(lambda: not any(os.path.exists(f"/proc/{pid}") for pid in first), 20, "the child to go at sleep")
    tell(logind, "wake")
    wait_for(lambda: children_of(app.pid), 30, "a new child after the wake")
    app.send_signal(signal.SIGTERM)
    check(app.wait(timeout=20) == 0, "SIGTERM after a wake ends with 0")
    log("sleep and wake")


def next_record(service, key, seconds=30):
    deadline = time.monotonic() + seconds
    while True:
        try:
            record = json.loads(service.lines.get(timeout=max(0.1, deadline - time.monotonic())))
        except queue.Empty:
            raise Failure(f"no {key} from the fake service") from None
        if key in record:
            return record
        check(key == "done" or "notify" not in record or key == "notify", record)


def tell(service, command):
    """One command to a fake service, answered before the next (it reads a line per wake-up)."""
    service.stdin.write(command + "\n")
    service.stdin.flush()
    next_record(service, "done")


def scenario_notifications(session):
    from codex_watch_integration import append_event, touch_database, write_state_database
    import datetime
    import html
    import sqlite3
    server = session.service("notifications")
    codex_home = os.path.join(session.home, ".codex")
    project = os.path.join(session.home, "<b>&")
    os.makedirs(project)
    now = datetime.datetime.now(datetime.timezone.utc)
    rollout = os.path.join(codex_home, "sessions", "rollout-0000-local.jsonl")
    write_state_database(codex_home, rollout, [("0000-local", rollout, 30)], now)
    database = sqlite3.connect(os.path.join(codex_home, "state_5.sqlite"))
    database.execute("UPDATE threads SET cwd = ?", (project,))
    database.commit()
    database.close()
    session.env["CODEX_HOME"] = codex_home
    app = session.start()
    wait_for(lambda: "Taskrack runtime started" in stderr_of(app), 30, "the first refresh")
    append_event(rollout, "task_started")
    touch_database(codex_home, "0000-local")
    append_event(rollout, "task_complete")
    touch_database(codex_home, "0000-local")
    shown = next_record(server, "notify")
    check(shown["summary"] == "Codex finished", shown)
    check(shown["body"] == html.escape("<b>&", quote=True) or shown["body"] == "&lt;b&gt;&amp;", shown)
    check(shown["actions"][0] == "default" and shown["desktop-entry"] == "com.quillon.Taskrack", shown)
    check(shown["image"] == [64, 64], shown)
    # A click forged by another client is ignored; the server's own opens the task, which has
    # no application to open it here: the failure comes back as a notification.
    tell(server, f"forge {shown['notify']}")
    tell(server, f"invoke {shown['notify']}")
    failure = next_record(server, "notify")
    check(failure["summary"] == "Taskrack could not open the task", failure)
    check(session.run("quit").returncode == 0, "quit")
    check(app.wait(timeout=20) == 0, "exit 0")
    check(stderr_of(app).count("Rack requested") == 1, "only the first launch showed the rack")
    while not server.lines.empty():
        check("notify" not in json.loads(server.lines.get()), "the forged click opened nothing")
    log("notifications")


def doctor(session):
    # An unusable GUI plugin proves the doctor never loads one.
    result = subprocess.run([session.taskrack, "doctor", "--json"], capture_output=True, text=True,
                            timeout=30, env=dict(session.env, QT_QPA_PLATFORM="no-such-plugin"))
    report = json.loads(result.stdout)
    checks = {row["id"]: row for row in report["checks"]}
    check(result.returncode == (0 if report["ok"] else 1), result)
    return checks


def scenario_doctor(session):
    checks = doctor(session)
    check(checks["display"]["ok"] and checks["sessionBus"]["ok"], checks)
    check(not checks["trayHost"]["ok"], checks["trayHost"])
    check(checks["runningCopy"]["text"] == "No copy of Taskrack is running.", checks["runningCopy"])
    tray = subprocess.Popen(["trayer", "--SetDockType", "true"], env=session.env,
                            stderr=subprocess.DEVNULL)
    session.processes.append(tray)
    wait_for(lambda: doctor(session)["trayHost"]["ok"], 20, "the XEmbed tray")
    tray.kill()
    tray.wait()
    session.service("notifications")
    session.service("watcher")
    app = session.start()
    wait_for(session.owner_pid, 20, "the bus name")
    checks = doctor(session)
    check(checks["notifications"]["ok"] and "fake" in checks["notifications"]["text"].lower(),
          checks["notifications"])
    check(checks["trayHost"]["ok"], checks["trayHost"])
    check(checks["runningCopy"]["text"].startswith("Taskrack is running"), checks["runningCopy"])
    check(session.run("quit").returncode == 0, "quit")
    check(app.wait(timeout=20) == 0, "exit 0")
    log("doctor")


def scenario_real(session, installer, mock_server):
    from codexoffline import CONFIG, SKIP, install_codex
    from codex_watch_integration import clean_environment
    codex = install_codex(installer)
    if codex is None:
        check(not os.environ.get("CI"), "the Codex CLI could not be installed (CI is set)")
        return SKIP
    codex_home = os.path.join(session.home, ".codex")
    repo = os.path.join(session.root, "repo")
    os.makedirs(codex_home)
    os.makedirs(repo)
    mock = subprocess.Popen([sys.executable, mock_server, "--max-seconds", "600"],
                            stdout=subprocess.PIPE, text=True)
    session.processes.append(mock)
    with open(os.path.join(codex_home, "config.toml"), "w") as config:
        config.write(CONFIG.format(port=int(mock.stdout.readline().strip())))
    clean = clean_environment(session.home, codex_home, os.path.dirname(codex))
    session.env.update(CODEX_HOME=codex_home, PATH=clean["PATH"], MOCK_API_KEY=clean["MOCK_API_KEY"],
                       NO_PROXY="127.0.0.1", no_proxy="127.0.0.1")
    watcher = session.service("watcher")
    app = session.start()
    owner = json.loads(wait_for(lambda: watcher.lines.get(timeout=60), 60, "the item"))["sender"]
    wait_for(lambda: "Taskrack runtime started" in stderr_of(app), 120, "the first refresh")
    children = wait_for(lambda: children_of(app.pid), 120, "the real app-server child")
    item = session.dbus.get_object(owner, "/StatusNotifierItem")

    def pixmaps():
        return item.Get("org.kde.StatusNotifierItem", "IconPixmap", dbus_interface=dbus.PROPERTIES_IFACE)

    plain = pixmaps()
    turn = subprocess.run([codex, "exec", "--json", "--skip-git-repo-check", "Say hello."], cwd=repo,
                          env=clean, stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=300)
    check(turn.returncode == 0, f"codex exec failed: {turn.stderr[-2000:]}")
    wait_for(lambda: pixmaps() != plain, 120, "the finished turn to badge the item")
    log("a finished real Codex turn badges the item")
    children = set(children) | set(children_of(app.pid))
    menu, items = menu_items(session, owner)
    menu.Event(items["Quit Taskrack"][0], "clicked", dbus.Int32(0), dbus.UInt32(0),
               dbus_interface="com.canonical.dbusmenu")
    check(app.wait(timeout=30) == 0, "Quit from the menu ends the copy with 0")
    check(not [pid for pid in children if os.path.exists(f"/proc/{pid}")], "no child outlives it")
    log("the real Codex CLI's app-server goes with the copy")
    return 0


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--taskrack", required=True)
    parser.add_argument("--fake-app-server", required=True)
    parser.add_argument("--installer", help="testing/providers/install-provider.sh (real)")
    parser.add_argument("--mock-server", help="testing/providers/mock_responses_server.py (real)")
    parser.add_argument("scenarios", nargs="*", default=["instances", "menu", "wake", "notifications", "doctor"])
    args = parser.parse_args()
    for name in args.scenarios:
        root = tempfile.mkdtemp(prefix=f"taskrack-tray-{name}-")
        session = Session(root, os.path.abspath(args.taskrack))
        try:
            if name == "wake":
                scenario_wake(session, os.path.abspath(args.fake_app_server))
            elif name == "real":
                if scenario_real(session, args.installer, args.mock_server) == 77:
                    log("SKIP: the npm registry cannot be reached, so the Codex CLI is not installed")
                    return 77
            else:
                globals()[f"scenario_{name}"](session)
        except Failure as failure:
            if session.xvfb.poll() is not None:
                log(f"the test's Xvfb ended early ({session.xvfb.returncode}): another process took its display")
            log(f"FAIL ({name}): {failure}; files in {root}")
            return 1
        finally:
            session.close()
        shutil.rmtree(root, ignore_errors=True)
    log("PASS")
    return 0


if __name__ == "__main__":
    sys.exit(main())
