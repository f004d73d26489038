#!/usr/bin/env python3
"""Draws the Quick Task panel in every prepared state of `taskrack demo`, light and dark, on its
own X server, and fails on any QML warning. The pictures land in the build folder for a person
to look at."""
import os
import subprocess
import sys

taskrack, out_dir = sys.argv[1], sys.argv[2]


def start_xvfb(size):
    read_end, write_end = os.pipe()
    xvfb = subprocess.Popen(["Xvfb", "-displayfd", str(write_end), "-screen", "0", size, "-nolisten", "tcp",
                             "-noreset"], pass_fds=[write_end], stderr=subprocess.DEVNULL)
    os.close(write_end)
    display = b""
    while not display.endswith(b"\n"):
        chunk = os.read(read_end, 16)
        if not chunk:
            sys.exit("Xvfb did not start")
        display += chunk
    os.close(read_end)
    return xvfb, ":" + display.decode().strip()


def scenarios():
    # The demo names its scenarios when asked for one it does not know.
    result = subprocess.run([taskrack, "demo", "--scenario", "?"], capture_output=True, text=True,
                            env=dict(os.environ, QT_QPA_PLATFORM="offscreen"), timeout=60)
    names = result.stderr.split("use one of:")[-1].strip().split(", ")
    return [name for name in names if name.startswith("quick-")]


def draw(display, scenario, dark):
    env = dict(os.environ, DISPLAY=display, QT_QPA_PLATFORM="xcb")
    args = [taskrack, "demo", "--scenario", scenario, "--screenshots", out_dir] + (["--dark"] if dark else [])
    result = subprocess.run(args, env=env, capture_output=True, text=True, timeout=60)
    warnings = [line for line in result.stderr.splitlines() if "qml" in line.lower() or "qrc:" in line]
    if result.returncode != 0 or warnings:
        print(f"{scenario} dark={dark}: exit {result.returncode}\n{result.stderr}")
        return False
    return True


names = scenarios()
if len(names) < 20:
    sys.exit(f"the demo named too few Quick Task scenarios: {names}")
failed = False
xvfb, display = start_xvfb("1280x800x24")
try:
    for scenario in names:
        for dark in (False, True):
            failed |= not draw(display, scenario, dark)
finally:
    xvfb.terminate()
    xvfb.wait()
sys.exit(1 if failed else 0)
