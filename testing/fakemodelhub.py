#!/usr/bin/env python3
"""A model hub for tests, on 127.0.0.1 at a free port (printed as the first line): serves the
files of FOLDER at /<repository>/resolve/<revision>/<path>, honours Range, and logs every request
("GET <path> <range>") to LOG. BEHAVIOUR (JSON, re-read on each request) makes it misbehave per
file name: {"redirect": true, "drop": {"name": bytes}, "extra": ["name"], "stall": ["name"],
"status": {"name": 404}}. Only the standard library."""

import http.server
import json
import os
import socket
import sys
import threading
import time

FOLDER, LOG, BEHAVIOUR = sys.argv[1], sys.argv[2], sys.argv[3]
lock = threading.Lock()


def behaviour():
    try:
        with open(BEHAVIOUR) as f:
            return json.load(f)
    except (OSError, ValueError):
        return {}


class Hub(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"

    def log_message(self, *args):
        pass

    def do_GET(self):
        rules = behaviour()
        with lock, open(LOG, "a") as log:
            log.write(f"GET {self.path} {self.headers.get('Range', '-')}\n")
        if rules.get("redirect") and not self.path.startswith("/cdn"):
            self.send_response(302)
            self.send_header("Location", "/cdn" + self.path)
            self.send_header("Content-Length", "0")
            self.end_headers()
            return
        path = self.path[4:] if self.path.startswith("/cdn") else self.path
        parts = path.lstrip("/").split("/")
        # <owner>/<name>/resolve/<revision>/<file path>
        name = "/".join(parts[4:])
        base = os.path.basename(name)
        if base in rules.get("status", {}):
            self.send_error(rules["status"][base])
            return
        local = os.path.join(FOLDER, "/".join(parts[:2]), name)
        if not os.path.isfile(local):
            self.send_error(404)
            return
        with open(local, "rb") as f:
            body = f.read()
        if base in rules.get("extra", []):
            body += b"x"
        start = 0
        wanted = self.headers.get("Range", "")
        if wanted.startswith("bytes=") and wanted.endswith("-"):
            start = int(wanted[6:-1])
        self.send_response(206 if start else 200)
        self.send_header("Content-Length", str(len(body) - start))
        self.end_headers()
        body = body[start:]
        if base in rules.get("stall", []):
            self.wfile.write(body[:1])
            self.wfile.flush()
            time.sleep(3600)
        if base in rules.get("drop", {}):
            self.wfile.write(body[:rules["drop"][base]])
            self.wfile.flush()
            self.close_connection = True
            self.connection.shutdown(socket.SHUT_RDWR)
            return
        self.wfile.write(body)


server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Hub)
server.daemon_threads = True
print(server.server_address[1], flush=True)
server.serve_forever()
