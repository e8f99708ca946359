#!/usr/bin/python3
"""version_site.py PORT_FILE: a web site for the test of the update check, which writes its port into
a file. The address of the version file names how it is answered: /text/REPLY/software/current.txt,
the reply percent-encoded, or one of the names below."""

import http.server
import os
import sys
import time
import urllib.parse

STALL = 120  # seconds; the program may be slow on a busy machine, but not that slow
OK = b"HTTP/1.0 200 OK\r\n"

# What is sent, and what is then sent each second until STALL is over; None ends the reply.
REPLIES = {
    "megabytes": (OK + b"\r\n4.32\n" + b"9" * 8_000_000, b""),
    "megabytes_on_one_line": (OK + b"\r\n4.32" + b" " * 8_000_000, None),
    "rubbish": (OK + b"\r\n" + bytes(range(256)) * 4000, None),
    "zeros": (OK + b"\r\n" + bytes(100_000), None),
    "no_update": (OK + b"\r\n4.32", None),
    "stalled": (b"", b""),
    "stalled_reply": (OK + b"\r\n4.3", b""),
    "dripping": (OK + b"\r\n4.32", b" "),
    "dripping_headers": (OK, b"X-more: x\r\n"),
    "redirected": (b"HTTP/1.0 302 Found\r\nLocation: /redirected/software/current.txt\r\n\r\n", None),
}
MISSING = (b"HTTP/1.0 404 Not Found\r\n\r\n", None)


class Handler(http.server.BaseHTTPRequestHandler):
    def do_GET(self):
        kind, *rest = self.path.strip("/").split("/")
        start, more = REPLIES.get(kind, MISSING)
        if "/software/update/" in self.path:
            body = b"the program of " + self.path.rpartition("/")[2].encode()
            start, more = MISSING if kind == "no_update" else (OK + b"\r\n" + body, None)
        elif kind == "text":
            start = OK + b"\r\n" + urllib.parse.unquote_to_bytes(rest[0])
        self.wfile.write(start)
        for _ in range(STALL if more is not None else 0):
            self.wfile.write(more)
            time.sleep(1)

    def log_message(self, *_):
        pass


server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler)
server.handle_error = lambda *_: None
with open(sys.argv[1] + ".part", "w", encoding="ascii") as file:
    file.write(str(server.server_port))
os.rename(file.name, sys.argv[1])
server.serve_forever()
