#!/usr/bin/env python3
"""`taskrack dictate` from a real sound server: a private PulseAudio whose microphone is a pipe
that this test feeds with a spoken sentence. Unloading the microphone mid-session must end the
dictation with the no-microphone text, keeping what was heard. Exit 77 when a tool is missing."""

import argparse
import os
import shutil
import subprocess
import sys
import tempfile
import threading
import time

NO_MICROPHONE = ("No microphone is available. Connect one or check the sound settings, then "
                 "retry. You can still type Quick Tasks.")
SENTENCE = "make a list of the open issues and sort them by date"


def wait_for(condition, seconds, what):
    deadline = time.monotonic() + seconds
    while time.monotonic() < deadline:
        if condition():
            return
        time.sleep(0.05)
    raise SystemExit(f"timed out waiting for {what}")


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--taskrack", required=True)
    args = parser.parse_args()
    for tool in ("pulseaudio", "pactl", "espeak-ng", "sox"):
        if not shutil.which(tool):
            print(f"{tool} is missing", file=sys.stderr)
            return 77

    with tempfile.TemporaryDirectory() as folder:
        runtime = os.path.join(folder, "runtime")
        os.makedirs(runtime, mode=0o700)
        fifo = os.path.join(folder, "mic.fifo")  # the module makes it
        socket = os.path.join(runtime, "native")
        config = os.path.join(folder, "default.pa")
        with open(config, "w") as out:
            out.write(f"load-module module-native-protocol-unix auth-anonymous=1 socket={socket}\n"
                      "load-module module-null-sink\n"
                      f"load-module module-pipe-source source_name=mic file={fifo} "
                      "format=s16le rate=16000 channels=1\n"
                      "set-default-source mic\n")
        env = dict(os.environ, HOME=folder, XDG_RUNTIME_DIR=runtime,
                   XDG_CONFIG_HOME=os.path.join(folder, "config"),
                   PULSE_RUNTIME_PATH=runtime, PULSE_SERVER=f"unix:{socket}")
        env.pop("DISPLAY", None)
        server = subprocess.Popen(["pulseaudio", "-n", "-F", config, "--daemonize=no",
                                   "--exit-idle-time=-1", "--disallow-exit", "--log-target=stderr",
                                   "--use-pid-file=no"], env=env, stderr=subprocess.DEVNULL)
        try:
            wait_for(lambda: subprocess.run(["pactl", "info"], env=env,
                                            capture_output=True).returncode == 0, 60, "PulseAudio")
            spoken = os.path.join(folder, "spoken.wav")
            raw = os.path.join(folder, "spoken.raw")
            subprocess.run(["espeak-ng", "-v", "en-us+klatt", "-s", "130", "-w", spoken, SENTENCE],
                           check=True)
            subprocess.run(["sox", "-D", spoken, "-r", "16000", "-c", "1", "-b", "16", "-e", "signed",
                            "-t", "raw", raw, "pad", "1", "1"], check=True)
            with open(raw, "rb") as f:
                audio = f.read()

            dictate = subprocess.Popen([args.taskrack, "dictate"], env=env, stdin=subprocess.PIPE,
                                       stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
            errors = []
            reader = threading.Thread(target=lambda: errors.extend(dictate.stderr), daemon=True)
            reader.start()
            # The pipe is the microphone: speech, then quiet room noise until the unload.
            stop_feeding = threading.Event()

            def feed():
                try:
                    with open(fifo, "wb") as mic:
                        mic.write(audio)
                        quiet = b"\x01\x00\xff\xff" * 800
                        while not stop_feeding.is_set():
                            mic.write(quiet)
                            time.sleep(0.1)
                except BrokenPipeError:
                    pass  # the microphone was unloaded

            feeder = threading.Thread(target=feed, daemon=True)
            feeder.start()
            wait_for(lambda: any(line.startswith("… ") for line in errors), 120, "dictated words")
            subprocess.run(["pactl", "unload-module", "module-pipe-source"], env=env, check=True)
            stop_feeding.set()
            # Standard input stays open: Enter would end the dictation the normal way.
            dictate.wait(timeout=60)
            out = dictate.stdout.read()
            reader.join(timeout=10)
            if dictate.returncode != 1 or not any(NO_MICROPHONE in line for line in errors):
                print(f"exit {dictate.returncode}; stderr: {''.join(errors)}", file=sys.stderr)
                return 1
            if not out.strip():
                print("the words heard before the microphone went away were lost", file=sys.stderr)
                return 1
            print(f"kept: {out.strip()}")
            return 0
        finally:
            server.terminate()
            server.wait(timeout=30)


if __name__ == "__main__":
    sys.exit(main())
