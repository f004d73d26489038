#!/usr/bin/env python3
"""A small stand-in for the OpenAI Responses API, for running provider CLIs offline in tests.

It binds 127.0.0.1 only (never any other address), on an ephemeral port unless --port is
given, and prints the port on the first line of standard output once it is accepting
connections. It answers:

  POST /v1/responses (or /responses)   a streamed (SSE) model response, chosen per request
  GET  /v1/models    (or /models)      an empty model list

The scenario of a request is the last "SCENARIO:<name>" marker found in its body (the prompt),
else --scenario. Scenarios:

  text       a normal text turn: created, output item and text deltas, completed (with usage)
  failed     the stream reports response.failed with an error object
  error500   HTTP 500 with a JSON error body, no stream
  slow       a text turn whose deltas trickle for --slow-seconds before completing; meant to be
             interrupted by the test while it streams
  toolesc    asks to run a shell command outside the sandbox (so that an "on-request" approval
             policy asks the person), through whichever shell tool the CLI offered; once the
             request carries the command's output, a text turn as slow as `slow`, so that a
             watcher can see the work go on before it ends

Every request is appended to --log as one JSON line (method, path, scenario, the last user text,
the model), never with the Authorization header. The server exits by itself after
--max-seconds or --max-requests, so that a forgotten process cannot outlive a test run.
"""

import argparse
import json
import re
import sys
import threading
import time
from http.server import BaseHTTPRequestHandler, ThreadingHTTPServer

SCENARIOS = ("text", "failed", "error500", "slow", "toolesc")
MARKER = re.compile(rb"SCENARIO:([A-Za-z0-9_]+)")


def parse_arguments():
    parser = argparse.ArgumentParser(
        description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter
    )
    parser.add_argument("--port", type=int, default=0, help="port on 127.0.0.1 (default: ephemeral)")
    parser.add_argument("--scenario", choices=SCENARIOS, default="text",
                        help="scenario when the prompt carries no SCENARIO: marker (default: text)")
    parser.add_argument("--reply", default="Mock answer ({scenario}): done.",
                        help="text of the answer; {scenario} is replaced (default: %(default)s)")
    parser.add_argument("--model", default="gpt-mock", help="model name reported back")
    parser.add_argument("--slow-seconds", type=float, default=60.0,
                        help="how long the slow scenario streams before completing (default: 60)")
    parser.add_argument("--delta-interval", type=float, default=0.25,
                        help="seconds between deltas of the slow scenario (default: 0.25)")
    parser.add_argument("--max-seconds", type=float, default=600.0,
                        help="exit after this many seconds (default: 600)")
    parser.add_argument("--max-requests", type=int, default=1000,
                        help="exit after this many model requests (default: 1000)")
    parser.add_argument("--log", help="append one JSON line per request to this file")
    return parser.parse_args()


class MockState:
    def __init__(self, options):
        self.options = options
        self.lock = threading.Lock()
        self.requests = 0
        self.responses = 0

    def next_ids(self):
        with self.lock:
            self.responses += 1
            return f"resp_mock_{self.responses}", f"msg_mock_{self.responses}"

    def log(self, record):
        if not self.options.log:
            return
        with self.lock, open(self.options.log, "a", encoding="utf-8") as log:
            log.write(json.dumps(record, sort_keys=True) + "\n")


def last_user_text(body):
    """The text of the last user message in a Responses request, for the log."""
    try:
        request = json.loads(body)
    except ValueError:
        return None
    items = request.get("input")
    if not isinstance(items, list):
        return None
    for item in reversed(items):
        if isinstance(item, dict) and item.get("role") == "user":
            for part in item.get("content") or []:
                if isinstance(part, dict) and isinstance(part.get("text"), str):
                    return part["text"]
    return None


def tool_call(body):
    """The escalated shell call of the toolesc scenario, or None once its output came back."""
    try:
        request = json.loads(body)
    except ValueError:
        return None
    items = request.get("input") if isinstance(request.get("input"), list) else []
    if any(isinstance(item, dict) and item.get("type") == "function_call_output" for item in items):
        return None
    offered = {tool.get("name") for tool in request.get("tools") or [] if isinstance(tool, dict)}
    command = "echo hello-from-tool > tool_output.txt && cat tool_output.txt"
    extra = {"sandbox_permissions": "require_escalated",
             "justification": "mock wants to run a command"}
    if "exec_command" in offered:
        name, arguments = "exec_command", dict(cmd=command, **extra)
    elif "shell_command" in offered:
        name, arguments = "shell_command", dict(command=command, **extra)
    else:
        name, arguments = "shell", dict(command=["bash", "-lc", command], **extra)
    return name, json.dumps(arguments)


class Handler(BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"
    server_version = "MockResponses/1"

    def log_message(self, format, *args):  # keep the test output clean
        pass

    @property
    def state(self):
        return self.server.state

    def do_GET(self):
        if self.path.rstrip("/") in ("/v1/models", "/models"):
            self.send_json(200, {"object": "list", "data": []})
        else:
            self.send_json(404, {"error": {"message": "not found"}})

    def do_POST(self):
        length = int(self.headers.get("Content-Length") or 0)
        body = self.rfile.read(length) if length > 0 else b""
        if self.path.rstrip("/") not in ("/v1/responses", "/responses"):
            self.send_json(404, {"error": {"message": "not found"}})
            return
        markers = MARKER.findall(body)
        scenario = markers[-1].decode() if markers else self.state.options.scenario
        if scenario not in SCENARIOS:
            scenario = self.state.options.scenario
        with self.state.lock:
            self.state.requests += 1
            count = self.state.requests
        model = self.state.options.model
        try:
            model = json.loads(body).get("model") or model
        except (ValueError, AttributeError):
            pass
        self.state.log({"n": count, "method": "POST", "path": self.path, "scenario": scenario,
                        "user_text": last_user_text(body), "model": model, "t_wall": time.time()})
        try:
            if scenario == "error500":
                self.send_json(500, {"error": {"message": "mock: internal error (scenario error500)",
                                               "type": "server_error", "code": "server_error"}})
            else:
                self.stream(scenario, model, tool_call(body) if scenario == "toolesc" else None)
        except (BrokenPipeError, ConnectionResetError):
            pass  # the client went away, e.g. an interrupted turn
        if count >= self.state.options.max_requests:
            threading.Thread(target=self.server.shutdown, daemon=True).start()

    def send_json(self, status, payload):
        data = json.dumps(payload).encode()
        self.send_response(status)
        self.send_header("Content-Type", "application/json")
        self.send_header("Content-Length", str(len(data)))
        self.end_headers()
        self.wfile.write(data)

    def event(self, payload):
        self.wfile.write(f"event: {payload['type']}\ndata: {json.dumps(payload)}\n\n".encode())
        self.wfile.flush()

    def stream(self, scenario, model, call=None):
        response_id, item_id = self.state.next_ids()
        self.send_response(200)
        self.send_header("Content-Type", "text/event-stream")
        self.send_header("Cache-Control", "no-cache")
        self.send_header("Connection", "close")
        self.end_headers()
        self.close_connection = True

        response = {"id": response_id, "object": "response", "created_at": int(time.time()),
                    "status": "in_progress", "model": model, "output": []}
        self.event({"type": "response.created", "response": response})

        if scenario == "failed":
            failed = dict(response, status="failed",
                          error={"code": "server_error",
                                 "message": "mock: response.failed (scenario failed)"})
            self.event({"type": "response.failed", "response": failed})
            return

        if call:
            item = {"type": "function_call", "id": "fc_" + item_id, "call_id": "call_" + item_id,
                    "name": call[0], "arguments": call[1], "status": "completed"}
            self.event({"type": "response.output_item.added", "output_index": 0,
                        "item": dict(item, status="in_progress", arguments="")})
            self.event({"type": "response.output_item.done", "output_index": 0, "item": item})
            self.event({"type": "response.completed",
                        "response": dict(response, status="completed", output=[item])})
            return

        text = self.state.options.reply.format(scenario=scenario)
        self.event({"type": "response.output_item.added", "output_index": 0,
                    "item": {"id": item_id, "type": "message", "status": "in_progress",
                             "role": "assistant", "content": []}})
        self.event({"type": "response.content_part.added", "item_id": item_id, "output_index": 0,
                    "content_index": 0, "part": {"type": "output_text", "text": "", "annotations": []}})

        deltas = [word + " " for word in text.split(" ")]
        deltas[-1] = deltas[-1].rstrip()
        if scenario in ("slow", "toolesc"):
            deadline = time.monotonic() + self.state.options.slow_seconds
            while time.monotonic() < deadline:
                self.event({"type": "response.output_text.delta", "item_id": item_id,
                            "output_index": 0, "content_index": 0, "delta": "."})
                time.sleep(self.state.options.delta_interval)
        for delta in deltas:
            self.event({"type": "response.output_text.delta", "item_id": item_id,
                        "output_index": 0, "content_index": 0, "delta": delta})
        self.event({"type": "response.output_text.done", "item_id": item_id, "output_index": 0,
                    "content_index": 0, "text": text})
        message = {"id": item_id, "type": "message", "status": "completed", "role": "assistant",
                   "content": [{"type": "output_text", "text": text, "annotations": []}]}
        self.event({"type": "response.output_item.done", "output_index": 0, "item": message})
        usage = {"input_tokens": 12, "input_tokens_details": {"cached_tokens": 0},
                 "output_tokens": len(deltas), "output_tokens_details": {"reasoning_tokens": 0},
                 "total_tokens": 12 + len(deltas)}
        self.event({"type": "response.completed",
                    "response": dict(response, status="completed", output=[message], usage=usage)})


def main():
    options = parse_arguments()
    server = ThreadingHTTPServer(("127.0.0.1", options.port), Handler)
    server.daemon_threads = True
    server.state = MockState(options)
    timer = threading.Timer(options.max_seconds, server.shutdown)
    timer.daemon = True
    timer.start()
    print(server.server_address[1], flush=True)
    try:
        server.serve_forever(poll_interval=0.2)
    except KeyboardInterrupt:
        pass
    finally:
        server.server_close()
    return 0


if __name__ == "__main__":
    sys.exit(main())
