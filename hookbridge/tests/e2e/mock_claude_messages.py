#!/usr/bin/env python3
"""A stand-in for the Anthropic Messages API, bound to 127.0.0.1 only, for driving the real
Claude Code through a few turns offline.

The scenario is read from a "SCENARIO=<name>" marker in the conversation's user text:
  text      one short text answer
  error500  every request of the turn fails with HTTP 500
  bgbash    starts a background Bash command, then answers in text once it has a result
Requests that carry no tools (titles and other side requests) get a short text.

Prints the chosen port on the first line of standard output, then serves until killed or
until --max-seconds have passed.
"""
import argparse
import json
import re
import sys
import threading
import time
from http.server import BaseHTTPRequestHandler, ThreadingHTTPServer

counter = 0
counter_lock = threading.Lock()


def next_id(prefix):
    global counter
    with counter_lock:
        counter += 1
        return f"{prefix}_mock_{counter:06d}"


def texts_of(message):
    content = message.get("content")
    if isinstance(content, str):
        return [content]
    out = []
    for block in content or []:
        if isinstance(block, dict) and block.get("type") == "text":
            out.append(block.get("text", ""))
    return out


def has_tool_result(message):
    content = message.get("content")
    return isinstance(content, list) and any(
        isinstance(b, dict) and b.get("type") == "tool_result" for b in content)


def choose(body):
    messages = body.get("messages") or []
    if not body.get("tools"):
        return ("text", "Mock title")
    scenario = "text"
    for message in messages:
        if message.get("role") != "user":
            continue
        for text in texts_of(message):
            found = re.search(r"SCENARIO=(\w+)", text)
            if found:
                scenario = found.group(1)
    last = messages[-1] if messages else {}
    last_text = "\n".join(texts_of(last))
    if scenario == "error500":
        return ("error", 500)
    if scenario == "bgbash":
        if has_tool_result(last) or "task-notification" in last_text:
            return ("text", "Background work noted.")
        return ("tool", {"name": "Bash", "input": {
            "command": "sleep 2; echo bgdone", "description": "Sleep then print",
            "run_in_background": True}})
    return ("text", "Hello from the mock.")


def message_json(kind, payload, model):
    if kind == "tool":
        content = [{"type": "tool_use", "id": next_id("toolu"), "name": payload["name"],
                    "input": payload["input"]}]
        stop = "tool_use"
    else:
        content = [{"type": "text", "text": payload}]
        stop = "end_turn"
    return {"id": next_id("msg"), "type": "message", "role": "assistant", "model": model,
            "content": content, "stop_reason": stop, "stop_sequence": None,
            "usage": {"input_tokens": 12, "output_tokens": 6}}


def sse_events(message):
    start = dict(message, content=[], stop_reason=None)
    yield "message_start", {"type": "message_start", "message": start}
    for index, block in enumerate(message["content"]):
        if block["type"] == "text":
            yield "content_block_start", {"type": "content_block_start", "index": index,
                                          "content_block": {"type": "text", "text": ""}}
            yield "content_block_delta", {"type": "content_block_delta", "index": index,
                                          "delta": {"type": "text_delta", "text": block["text"]}}
        else:
            yield "content_block_start", {"type": "content_block_start", "index": index,
                                          "content_block": dict(block, input={})}
            yield "content_block_delta", {"type": "content_block_delta", "index": index,
                                          "delta": {"type": "input_json_delta",
                                                    "partial_json": json.dumps(block["input"])}}
        yield "content_block_stop", {"type": "content_block_stop", "index": index}
    yield "message_delta", {"type": "message_delta",
                            "delta": {"stop_reason": message["stop_reason"], "stop_sequence": None},
                            "usage": {"output_tokens": 6}}
    yield "message_stop", {"type": "message_stop"}


class Handler(BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"

    def log_message(self, *args):
        pass

    def reply_json(self, status, payload):
        data = json.dumps(payload).encode()
        self.send_response(status)
        self.send_header("content-type", "application/json")
        self.send_header("content-length", str(len(data)))
        self.end_headers()
        self.wfile.write(data)

    def do_HEAD(self):
        self.send_response(200)
        self.send_header("content-length", "0")
        self.end_headers()

    def do_GET(self):
        if self.path.startswith("/v1/models"):
            self.reply_json(200, {"data": [{"id": "claude-mock", "type": "model",
                                            "display_name": "Mock"}], "has_more": False})
        else:
            self.reply_json(200, {})

    def do_POST(self):
        length = int(self.headers.get("content-length") or 0)
        raw = self.rfile.read(length) if length else b""
        try:
            body = json.loads(raw or b"{}")
        except ValueError:
            body = {}
        if "count_tokens" in self.path:
            self.reply_json(200, {"input_tokens": 12})
            return
        if not self.path.startswith("/v1/messages"):
            self.reply_json(200, {})
            return
        kind, payload = choose(body)
        if kind == "error":
            self.reply_json(payload, {"type": "error", "error": {
                "type": "api_error", "message": "Internal server error (mock)"}})
            return
        message = message_json(kind, payload, body.get("model", "claude-mock"))
        if not body.get("stream"):
            self.reply_json(200, message)
            return
        self.send_response(200)
        self.send_header("content-type", "text/event-stream")
        self.send_header("cache-control", "no-cache")
        self.send_header("connection", "close")
        self.end_headers()
        for name, data in sse_events(message):
            self.wfile.write(f"event: {name}\ndata: {json.dumps(data)}\n\n".encode())
            self.wfile.flush()
        self.close_connection = True


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--max-seconds", type=float, default=600)
    args = parser.parse_args()
    server = ThreadingHTTPServer(("127.0.0.1", 0), Handler)
    server.daemon_threads = True
    print(server.server_address[1], flush=True)
    threading.Thread(target=server.serve_forever, daemon=True).start()
    time.sleep(args.max_seconds)
    server.shutdown()


if __name__ == "__main__":
    main()
