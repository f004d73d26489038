#!/usr/bin/env python3
"""A stand-in for the Anthropic Messages API, for running Claude Code offline in tests.

Binds to 127.0.0.1 only, on the given port or an ephemeral one, and prints the port as the
first line on standard output. Each answer is chosen by a scenario: a "SCENARIO=<name>" token in
the newest user message, else --scenario, else the environment variable MOCK_SCENARIO, else
"text". Requests that carry no tools (titles, summaries) always get a short text.

Scenarios:
  text        one text answer, stop_reason end_turn
  tool        a Bash tool_use ("echo hi") first; once the tool result comes back, a text answer
  slow        a text answer streamed over --slow-seconds (default 4)
  bgbash      a Bash tool_use run in the background ("sleep 2; echo bgdone") first; once its result
              or its completion notice comes back, a text answer
  longtool    a Bash tool_use that waits a minute (a python3 sleep: Claude Code may turn a bare long
              "sleep" down), for killing a CLI in the middle of a tool call
  error500    HTTP 500 with an API error body
  overloaded  HTTP 529 with an overloaded error body

Streaming requests ("stream": true) get server-sent events (message_start, content blocks,
message_delta with the stop reason, message_stop); others get one JSON message. count_tokens,
GET /v1/models and HEAD / are answered too; any other path gets an empty JSON object. With
--log FILE every request is logged as one JSON line (path, scenario, answer), never the prompt.
The server stops itself after --max-seconds.
"""

import argparse
import json
import os
import re
import sys
import threading
import time
import uuid
from http.server import BaseHTTPRequestHandler, ThreadingHTTPServer

SCENARIO_TOKEN = re.compile(r"SCENARIO=([A-Za-z0-9_-]+)")
SCENARIOS = ("text", "tool", "bgbash", "longtool", "slow", "error500", "overloaded")


def message_text(message):
    content = message.get("content")
    if isinstance(content, str):
        return content
    if isinstance(content, list):
        return "\n".join(item.get("text", "") for item in content
                         if isinstance(item, dict) and item.get("type") == "text")
    return ""


def has_tool_result(message):
    content = message.get("content")
    return isinstance(content, list) and any(
        isinstance(item, dict) and item.get("type") == "tool_result" for item in content)


def newest_user_message(body):
    for message in reversed(body.get("messages") or []):
        if isinstance(message, dict) and message.get("role") == "user":
            return message
    return {}


def scenario_of(body, default):
    for message in reversed(body.get("messages") or []):
        if isinstance(message, dict) and message.get("role") == "user":
            found = SCENARIO_TOKEN.findall(message_text(message))
            if found:
                return found[-1]
    return default


class Handler(BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"
    server_version = "MockMessages/1"

    def log_message(self, *args):
        pass

    def record(self, **fields):
        log = self.server.log_path
        if not log:
            return
        with self.server.log_lock, open(log, "a", encoding="utf-8") as out:
            out.write(json.dumps(dict(fields, path=self.path.split("?")[0], at=time.time())) + "\n")

    def send_json(self, status, payload, headers=None):
        data = json.dumps(payload).encode()
        self.send_response(status)
        self.send_header("content-type", "application/json")
        self.send_header("content-length", str(len(data)))
        self.send_header("request-id", "req_mock_" + uuid.uuid4().hex[:12])
        for key, value in (headers or {}).items():
            self.send_header(key, value)
        self.end_headers()
        self.wfile.write(data)

    def do_HEAD(self):
        self.send_response(200)
        self.send_header("content-length", "0")
        self.end_headers()

    def do_GET(self):
        if self.path.startswith("/v1/models"):
            self.send_json(200, {"data": [{"type": "model", "id": "claude-mock-1", "display_name": "Mock"}],
                                 "has_more": False, "first_id": "claude-mock-1", "last_id": "claude-mock-1"})
        else:
            self.send_json(200, {})

    def do_POST(self):
        length = int(self.headers.get("content-length") or 0)
        raw = self.rfile.read(length) if length else b""
        try:
            body = json.loads(raw or b"{}")
        except ValueError:
            body = {}
        path = self.path.split("?")[0]
        if path.endswith("/count_tokens"):
            self.send_json(200, {"input_tokens": 12})
            return
        if not path.endswith("/v1/messages"):
            self.send_json(200, {})
            return
        self.answer(body)

    def answer(self, body):
        scenario = scenario_of(body, self.server.default_scenario)
        if not body.get("tools"):
            scenario = "text"
        if scenario == "error500":
            self.record(scenario=scenario, answer="500")
            self.send_json(500, {"type": "error", "error": {"type": "api_error",
                                                            "message": "Internal server error (mock)"}})
            return
        if scenario == "overloaded":
            self.record(scenario=scenario, answer="529")
            self.send_json(529, {"type": "error", "error": {"type": "overloaded_error",
                                                            "message": "Overloaded (mock)"}})
            return
        if scenario == "tool" and not has_tool_result(newest_user_message(body)):
            blocks = [{"type": "text", "text": "Running a command."},
                      {"type": "tool_use", "id": "toolu_mock_" + uuid.uuid4().hex[:16], "name": "Bash",
                       "input": {"command": "echo hi", "description": "Print hi"}}]
            stop_reason = "tool_use"
        elif scenario == "longtool" and not has_tool_result(newest_user_message(body)):
            blocks = [{"type": "tool_use", "id": "toolu_mock_" + uuid.uuid4().hex[:16], "name": "Bash",
                       "input": {"command": "python3 -c 'import time; time.sleep(60)'",
                                 "description": "Wait a minute"}}]
            stop_reason = "tool_use"
        elif scenario == "tool":
            blocks = [{"type": "text", "text": "The command printed hi."}]
            stop_reason = "end_turn"
        elif scenario == "bgbash" and not self.background_work_reported(body):
            blocks = [{"type": "tool_use", "id": "toolu_mock_" + uuid.uuid4().hex[:16], "name": "Bash",
                       "input": {"command": "sleep 2; echo bgdone", "description": "Sleep then print",
                                 "run_in_background": True}}]
            stop_reason = "tool_use"
        elif scenario == "bgbash":
            blocks = [{"type": "text", "text": "Background work noted."}]
            stop_reason = "end_turn"
        else:
            blocks = [{"type": "text", "text": "Hello from the mock (scenario %s)." % scenario}]
            stop_reason = "end_turn"
        delay = self.server.slow_seconds if scenario == "slow" else 0.0
        self.record(scenario=scenario, answer=stop_reason)
        message = {"id": "msg_mock_" + uuid.uuid4().hex[:20], "type": "message", "role": "assistant",
                   "model": body.get("model") or "claude-mock-1", "content": blocks,
                   "stop_reason": stop_reason, "stop_sequence": None,
                   "usage": {"input_tokens": 12, "output_tokens": 20}}
        if body.get("stream"):
            self.stream(message, delay)
        else:
            time.sleep(delay)
            self.send_json(200, message)

    @staticmethod
    def background_work_reported(body):
        newest = newest_user_message(body)
        return has_tool_result(newest) or "task-notification" in message_text(newest)

    def stream(self, message, delay):
        self.send_response(200)
        self.send_header("content-type", "text/event-stream")
        self.send_header("cache-control", "no-cache")
        self.send_header("connection", "close")
        self.end_headers()
        self.close_connection = True

        def event(name, payload):
            self.wfile.write(("event: %s\ndata: %s\n\n" % (name, json.dumps(payload))).encode())
            self.wfile.flush()

        start = dict(message, content=[], stop_reason=None, usage={"input_tokens": 12, "output_tokens": 1})
        event("message_start", {"type": "message_start", "message": start})
        event("ping", {"type": "ping"})
        pieces = []
        for index, block in enumerate(message["content"]):
            if block["type"] == "text":
                words = block["text"].split(" ")
                pieces.append(len(words))
        total_pieces = max(1, sum(pieces))
        for index, block in enumerate(message["content"]):
            if block["type"] == "text":
                event("content_block_start", {"type": "content_block_start", "index": index,
                                              "content_block": {"type": "text", "text": ""}})
                words = block["text"].split(" ")
                for number, word in enumerate(words):
                    if delay:
                        time.sleep(delay / total_pieces)
                    text = word if number == 0 else " " + word
                    event("content_block_delta", {"type": "content_block_delta", "index": index,
                                                  "delta": {"type": "text_delta", "text": text}})
            else:
                event("content_block_start", {"type": "content_block_start", "index": index,
                                              "content_block": dict(block, input={})})
                event("content_block_delta", {"type": "content_block_delta", "index": index,
                                              "delta": {"type": "input_json_delta",
                                                        "partial_json": json.dumps(block["input"])}})
            event("content_block_stop", {"type": "content_block_stop", "index": index})
        event("message_delta", {"type": "message_delta",
                                "delta": {"stop_reason": message["stop_reason"], "stop_sequence": None},
                                "usage": {"output_tokens": 20}})
        event("message_stop", {"type": "message_stop"})


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--port", type=int, default=0, help="port on 127.0.0.1 (0: any free port)")
    parser.add_argument("--scenario", default=os.environ.get("MOCK_SCENARIO", "text"),
                        help="scenario when a request names none (%s)" % ", ".join(SCENARIOS))
    parser.add_argument("--slow-seconds", type=float, default=4.0, help="duration of the slow scenario")
    parser.add_argument("--log", help="append one JSON line per request to this file")
    parser.add_argument("--max-seconds", type=float, default=600.0, help="stop after this long")
    args = parser.parse_args()

    server = ThreadingHTTPServer(("127.0.0.1", args.port), Handler)
    server.daemon_threads = True
    server.default_scenario = args.scenario
    server.slow_seconds = args.slow_seconds
    server.log_path = args.log
    server.log_lock = threading.Lock()
    print(server.server_address[1], flush=True)
    threading.Timer(args.max_seconds, server.shutdown).start()
    try:
        server.serve_forever(poll_interval=0.2)
    except KeyboardInterrupt:
        pass
    os._exit(0)


if __name__ == "__main__":
    sys.exit(main())
