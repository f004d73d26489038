#!/usr/bin/env python3
"""Draws the rack in every prepared state, light and dark, on its own X server, and fails on
any QML warning. The pictures land in the build folder for a person to look at."""
import os
import subprocess
import sys
import tempfile

taskrack, out_dir = sys.argv[1], sys.argv[2]
scenarios = ["activity", "projects", "history", "page2", "new-task", "search", "search-empty",
             "loading", "failed", "empty", "activity-empty", "banner", "cached", "open-error",
             "onboarding-input", "onboarding-claude", "quiet", "completions"]


def start_xvfb(size):
    read_end, write_end = os.pipe()
    xvfb = subprocess.Popen(["Xvfb", "-displayfd", str(write_end), "-screen", "0", size, "-nolisten", "tcp",
                             "-noreset"],
                            pass_fds=[write_end], stderr=subprocess.DEVNULL)
    os.close(write_end)
    display = b""
    while not display.endswith(b"\n"):
        chunk = os.read(read_end, 16)
        if not chunk:
            sys.exit("Xvfb did not start")
        display += chunk
    os.close(read_end)
    return xvfb, ":" + display.decode().strip()


def draw(display, scenario, dark, folder, extra=()):
    env = dict(os.environ, DISPLAY=display, QT_QPA_PLATFORM="xcb")
    args = [taskrack, "demo", "--scenario", scenario, "--screenshots", folder, *extra]
    if dark:
        args.append("--dark")
    result = subprocess.run(args, env=env, capture_output=True, text=True, timeout=60)
    warnings = [line for line in result.stderr.splitlines() if "qml" in line.lower() or "qrc:" in line]
    if result.returncode != 0 or warnings:
        print(f"{scenario} dark={dark}: exit {result.returncode}\n{result.stderr}")
        return False
    return True


failed = False
xvfb, display = start_xvfb("1280x800x24")
try:
    for scenario in scenarios:
        for dark in (False, True):
            failed |= not draw(display, scenario, dark, out_dir)
finally:
    xvfb.terminate()
    xvfb.wait()

xvfb, display = start_xvfb("700x600x24")
try:
    failed |= not draw(display, "projects", False, os.path.join(out_dir, "narrow"))
    failed |= not draw(display, "activity", True, os.path.join(out_dir, "narrow"), ["--tasks", "40"])
finally:
    xvfb.terminate()
    xvfb.wait()
sys.exit(1 if failed else 0)
