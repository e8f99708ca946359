#!/usr/bin/python3
"""A web site for the test of the update check: prints its port and serves until its standard input
closes. The address of the version file names how it is answered:
/text/REPLY/software/current.txt, the reply percent-encoded, or one of the names below."""

import http.server
import os
import sys
import threading
import time
import urllib.parse

STALL = 120  # seconds; the program may be slow on a busy machine, but not that slow

REPLIES = {
    "megabytes": b"4.32\n" + b"9" * 8_000_000,
    "megabytes_on_one_line": b"4.32" + b" " * 8_000_000,
    "rubbish": bytes(range(256)) * 4000,
    "zeros": bytes(100_000),
}


class Handler(http.server.BaseHTTPRequestHandler):
    def send(self, body, pause=0.0):
        self.send_response(200)
        self.end_headers()
        for start in range(0, len(body), 1) if pause else [0]:
            self.wfile.write(body[start:start + 1] if pause else body)
            time.sleep(pause)

    def do_GET(self):
        kind, *rest = self.path.strip("/").split("/")
        if "/software/update/" in self.path:
            if kind == "no_update":
                return self.send_error(404)
            return self.send(b"the program of " + self.path.rpartition("/")[2].encode())
        if kind == "text":
            return self.send(urllib.parse.unquote_to_bytes(rest[0]))
        if kind == "no_update":
            return self.send(b"4.32")
        if kind in REPLIES:
            self.send(REPLIES[kind])
            return time.sleep(STALL) if kind == "megabytes" else None
        if kind == "stalled":
            return time.sleep(STALL)
        if kind == "stalled_reply":
            self.send(b"4.3")
            return time.sleep(STALL)
        if kind == "dripping":
            return self.send(b"4.32" + b" " * STALL, 1)
        if kind == "dripping_headers":
            self.wfile.write(b"HTTP/1.0 200 OK\r\n")
            for i in range(STALL):
                self.wfile.write(b"X-%d: x\r\n" % i)
                time.sleep(1)
            return None
        if kind == "redirected":
            self.send_response(302)
            self.send_header("Location", self.path)
            return self.end_headers()
        return self.send_error(404)

    def log_message(self, *_):
        pass


server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler)
server.handle_error = lambda *_: None
threading.Thread(target=server.serve_forever, daemon=True).start()
print(server.server_port, flush=True)
sys.stdin.read()
os._exit(0)
