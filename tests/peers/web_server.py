#!/usr/bin/env python3
"""A web server for tests, made with Python's http.server: the files of a folder, without byte ranges.

web_server.py FOLDER [--pem FILE] [--user NAME:PASSWORD] [--type TYPE]: listens on a free port of 127.0.0.1 and prints "port=NUMBER", then
a line for each request. With --pem it speaks TLS. With --user it asks for Basic credentials. --type is the Content-Type of all files
whose names do not end with ".ts".
"""
import argparse
import base64
import functools
import http.server
import ssl
import sys


class Handler(http.server.SimpleHTTPRequestHandler):
    extensions_map = {"": "application/octet-stream", ".m3u8": "application/vnd.apple.mpegurl", ".sdp": "application/sdp"}
    allowed = None  # value of the header Authorization
    type = None  # of all files but segments

    def do_GET(self):
        if self.allowed and self.headers.get("Authorization") != self.allowed:
            self.send_response(401)
            self.send_header("WWW-Authenticate", 'Basic realm="files"')
            self.send_header("Content-Length", "0")
            self.end_headers()
            return
        try:
            super().do_GET()
        except (BrokenPipeError, ConnectionResetError):
            pass  # the client has enough

    def guess_type(self, path):
        return super().guess_type(path) if self.type is None or path.endswith(".ts") else self.type

    def log_message(self, format, *values):
        print(format % values, flush=True)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("folder")
    parser.add_argument("--pem")
    parser.add_argument("--user")
    parser.add_argument("--type")
    options = parser.parse_args()
    Handler.type = options.type
    if options.user:
        Handler.allowed = "Basic " + base64.b64encode(options.user.encode()).decode()
    server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), functools.partial(Handler, directory=options.folder))
    if options.pem:
        tls = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        tls.load_cert_chain(options.pem)
        server.socket = tls.wrap_socket(server.socket, server_side=True)
    print(f"port={server.server_port}", flush=True)
    server.serve_forever()


if __name__ == "__main__":
    sys.exit(main())
