#!/usr/bin/env python3
"""A scriptable stand-in for `codex app-server`, for fault tests of the client.

It reads line-delimited JSON requests on stdin and answers each from a script:

    {"methods": {"<method>": [[<action>, ...], ...]}}

Each request takes the next action list of its method (the last one repeats); the position is
kept beside the log, so a fake started again after a crash carries on where the last one left.
Actions:

    {"result": V}            answer with this result
    {"error": {...}}         answer with this error object
    {"reply": {...}}         write this object, with every "$id" replaced by the request id
    {"notify": {"method": M, "params": P}}   a notification (with an emittedAtMs, as the real one)
    {"request": {"id": I, "method": M, "params": P}}   a server request
    {"raw": "text"}          write text and a newline
    {"pad": N}               a valid notification line of exactly N bytes
    {"flood": {"lines": N, "bytes": B}}   N notification lines of B bytes each
    {"hang": true}           never answer
    {"exit": CODE}           leave at once, mid-request

Without an entry, "initialize" is answered and anything else gets -32600, as the real server
does for unknown methods. Every received line is appended to --log; the pid to --pids.
"""
import argparse
import json
import os
import signal
import sys
import time


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--script", required=True)
    parser.add_argument("--log", required=True)
    parser.add_argument("--pids", required=True)
    parser.add_argument("--ignore-term", action="store_true")
    parser.add_argument("--ignore-eof", action="store_true")
    parser.add_argument("mode")
    args = parser.parse_args()
    if args.mode != "app-server":
        sys.exit("expected the app-server argument")

    # Never outlive a test that lost track of us.
    signal.alarm(120)
    if args.ignore_term:
        signal.signal(signal.SIGTERM, signal.SIG_IGN)
    with open(args.pids, "a") as pids:
        pids.write(f"{os.getpid()}\n")
    with open(args.script) as f:
        script = json.load(f).get("methods", {})

    out = sys.stdout.buffer
    counts_path = args.log + ".counts"

    def write_line(data: bytes):
        out.write(data + b"\n")
        out.flush()

    def write(obj):
        write_line(json.dumps(obj, separators=(",", ":")).encode())

    def padded(size):
        head = b'{"method":"fake/padding","params":{"pad":"'
        tail = b'"}}'
        return head + b"x" * (size - len(head) - len(tail)) + tail

    def substitute(value, request_id):
        if value == "$id":
            return request_id
        if isinstance(value, dict):
            return {k: substitute(v, request_id) for k, v in value.items()}
        if isinstance(value, list):
            return [substitute(v, request_id) for v in value]
        return value

    for raw in sys.stdin.buffer:
        with open(args.log, "ab") as log:
            log.write(raw if raw.endswith(b"\n") else raw + b"\n")
        try:
            message = json.loads(raw)
        except ValueError:
            continue
        method = message.get("method")
        if method is None or "id" not in message:
            continue  # replies to our server requests, notifications
        request_id = message["id"]
        queue = script.get(method)
        if queue:
            counts = {}
            if os.path.exists(counts_path):
                with open(counts_path) as f:
                    counts = json.load(f)
            position = counts.get(method, 0)
            counts[method] = position + 1
            with open(counts_path, "w") as f:
                json.dump(counts, f)
            actions = queue[min(position, len(queue) - 1)]
        elif method == "initialize":
            actions = [{"result": {"userAgent": "fake", "platformOs": "linux"}}]
        else:
            actions = [{"error": {"code": -32600, "message": f"Invalid request: unknown variant `{method}`"}}]
        for action in actions:
            if "result" in action:
                write({"id": request_id, "result": action["result"]})
            elif "error" in action:
                write({"id": request_id, "error": action["error"]})
            elif "reply" in action:
                write(substitute(action["reply"], request_id))
            elif "notify" in action:
                write(dict(action["notify"], emittedAtMs=int(time.time() * 1000)))
            elif "request" in action:
                write(action["request"])
            elif "raw" in action:
                write_line(action["raw"].encode())
            elif "pad" in action:
                write_line(padded(action["pad"]))
            elif "flood" in action:
                line = padded(action["flood"]["bytes"])
                for _ in range(action["flood"]["lines"]):
                    write_line(line)
            elif "exit" in action:
                out.flush()
                os._exit(action["exit"])
            # "hang": nothing to write

    if args.ignore_eof:
        while True:
            time.sleep(1)


if __name__ == "__main__":
    main()
