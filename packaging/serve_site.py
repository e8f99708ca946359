#!/usr/bin/python3 -I
"""serve_site.py FOLDER: serves a copy of the project web site, to this machine only, at a port that
the system chooses; prints the address and goes on until it is ended."""

import http.server
import os
import signal
import socketserver
import sys


class Handler(http.server.SimpleHTTPRequestHandler):
    """GET of the files below the folder and of nothing else."""

    timeout = 10  # seconds that a client may be silent

    def translate_path(self, path):
        found = super().translate_path(path)
        folder = os.path.realpath(self.directory)
        try:
            is_inside = os.path.commonpath([os.path.realpath(found), folder]) == folder
        except ValueError:  # a zero byte in the name
            is_inside = False
        return found if is_inside else os.path.join(folder, "no such page")

    def list_directory(self, path):
        self.send_error(404, "File not found")

    def do_HEAD(self):
        self.send_error(501, "Unsupported method ('HEAD')")

    def end_headers(self):
        # After an upgrade the browser shows the new pages.
        self.send_header("Cache-Control", "no-cache")
        super().end_headers()

    def log_message(self, *_):
        pass


class Server(http.server.ThreadingHTTPServer):
    """The site of a folder; requests are answered while serve_forever runs."""

    def __init__(self, folder):
        super().__init__(("127.0.0.1", 0), lambda *request: Handler(*request, directory=folder))
        self.address = f"http://127.0.0.1:{self.server_port}/"

    def server_bind(self):
        # The inherited one asks a name server what this machine is called, which can take long.
        socketserver.TCPServer.server_bind(self)
        self.server_name, self.server_port = self.server_address

    def handle_error(self, request, client_address):
        """A browser that breaks off is nothing to report."""


def main(folder):
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(0))
    server = Server(folder)
    print(server.address, flush=True)
    try:
        server.serve_forever()
    except KeyboardInterrupt:
        pass


if __name__ == "__main__":
    if len(sys.argv) != 2 or not os.path.isdir(sys.argv[1]):
        sys.exit("Usage: serve_site.py FOLDER")
    main(sys.argv[1])
