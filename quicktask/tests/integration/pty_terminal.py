#!/usr/bin/env python3
"""A stand-in for a terminal emulator: runs the argv after "-e" under a pseudo-terminal, with no
shell, answers the cursor and device queries a full-screen program sends, records the output,
and ends the program once the mock model server has seen its first request (QT_MOCK_LOG), so
that a test never waits on an interactive session. Every process it started is gone when it
exits."""

import fcntl
import os
import pty
import select
import signal
import struct
import sys
import termios
import time

argv = sys.argv[sys.argv.index("-e") + 1:]
mock_log = os.environ["QT_MOCK_LOG"]
model_path = os.environ.get("QT_MOCK_PATH", "/responses").encode()
out_path = os.environ["QT_TERMINAL_OUT"]
deadline = time.monotonic() + float(os.environ.get("QT_TERMINAL_SECONDS", "90"))

pid, fd = pty.fork()
if pid == 0:
    os.execv(argv[0], argv)

fcntl.ioctl(fd, termios.TIOCSWINSZ, struct.pack("HHHH", 40, 120, 0, 0))
ANSWERS = {b"\x1b[6n": b"\x1b[1;1R", b"\x1b[c": b"\x1b[?62c", b"\x1b[0c": b"\x1b[?62c",
           b"\x1b[?u": b"\x1b[?0u"}


def requests_seen():
    try:
        with open(mock_log, "rb") as log:
            return sum(1 for line in log if model_path + b'"' in line)
    except FileNotFoundError:
        return 0


start = requests_seen()
with open(out_path, "ab") as out:
    while time.monotonic() < deadline and requests_seen() <= start:
        ready, _, _ = select.select([fd], [], [], 0.2)
        if not ready:
            continue
        try:
            chunk = os.read(fd, 65536)
        except OSError:
            break
        if not chunk:
            break
        out.write(chunk)
        for query, answer in ANSWERS.items():
            if query in chunk:
                os.write(fd, answer)
    # The model was asked: the session has done what the test needs.
    for sig in (signal.SIGTERM, signal.SIGKILL):
        try:
            os.killpg(os.getpgid(pid), sig)
        except ProcessLookupError:
            break
        for _ in range(50):
            if os.waitpid(pid, os.WNOHANG)[0]:
                break
            time.sleep(0.05)
        else:
            continue
        break
    out.write(b"\n--terminal done--\n")
