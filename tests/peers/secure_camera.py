#!/usr/bin/env python3
"""A camera's front for tests, made with Python's own ssl and hashlib: TLS, and Digest credentials with SHA-256.

secure_camera.py http|rtsp HOST:PORT [--pem FILE] [--user NAME:PASSWORD]: listens on a free port of 127.0.0.1, prints
"port=NUMBER", and passes what comes on to the camera at HOST:PORT, HTTP or RTSP. With --pem it speaks TLS. With --user it
asks for Digest credentials with SHA-256 (RFC 7616) and keeps them from the camera.
"""
import argparse
import hashlib
import re
import secrets
import socket
import ssl
import sys
import threading

REALM = "camera"
LIMIT = 64 * 1024  # bytes of a request


def digest(text):
    return hashlib.sha256(text.encode()).hexdigest()


class Front:
    def __init__(self, options):
        self.protocol = options.protocol.upper()
        host, port = options.camera.rsplit(":", 1)
        self.camera = (host, int(port))
        self.user = options.user.split(":", 1) if options.user else None
        self.nonce = secrets.token_hex(16)
        self.tls = None
        if options.pem:
            self.tls = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
            self.tls.load_cert_chain(options.pem)

    def is_allowed(self, head):
        """Whether the request has the right answer to the question of refusal()."""
        if self.user is None:
            return True
        line = re.search(r"^Authorization: *Digest (.*?)\r?$", head, re.M | re.I)
        if line is None:
            return False
        has = {name: quoted or plain for name, quoted, plain in
               re.findall(r'(\w+)=(?:"([^"]*)"|([^,\s]+))', line.group(1))}
        method = head.split(" ", 1)[0]
        who = digest(f"{self.user[0]}:{REALM}:{self.user[1]}")
        what = digest(f"{method}:{has.get('uri')}")
        between = f"{self.nonce}:{has.get('nc')}:{has.get('cnonce')}:auth"
        return (has.get("algorithm", "").upper() == "SHA-256" and has.get("username") == self.user[0]
                and has.get("nonce") == self.nonce and has.get("response") == digest(f"{who}:{between}:{what}"))

    def refusal(self, head):
        number = re.search(r"^CSeq:.*?\r\n", head, re.M | re.I)
        return (f"{self.protocol}/1.{1 if self.protocol == 'HTTP' else 0} 401 Unauthorized\r\n"
                + (number.group(0) if number else "")
                + f'WWW-Authenticate: Digest realm="{REALM}", nonce="{self.nonce}", algorithm=SHA-256, qop="auth"\r\n'
                + "Content-Length: 0\r\n\r\n").encode()

    def serve(self, client):
        with client:
            try:
                if self.tls:
                    client = self.tls.wrap_socket(client, server_side=True)
                with socket.create_connection(self.camera) as camera:
                    threading.Thread(target=copy, args=(camera, client), daemon=True).start()
                    self.pass_requests(client, camera)
            except OSError:
                pass  # one of the two has left

    def pass_requests(self, client, camera):
        waiting = b""
        while len(waiting) < LIMIT:
            while waiting.startswith(b"$") and len(waiting) >= 4:  # a report between requests
                length = 4 + int.from_bytes(waiting[2:4], "big")
                if len(waiting) < length:
                    break
                camera.sendall(waiting[:length])
                waiting = waiting[length:]
            end = waiting.find(b"\r\n\r\n")
            if end < 0 or waiting.startswith(b"$"):
                more = client.recv(LIMIT)
                if not more:
                    return
                waiting += more
                continue
            head = waiting[:end + 4].decode("latin-1")
            waiting = waiting[end + 4:]
            if self.user is None:
                camera.sendall(head.encode("latin-1"))
            elif self.is_allowed(head):
                camera.sendall(re.sub(r"^Authorization:.*?\r\n", "", head, flags=re.M | re.I).encode("latin-1"))
            else:
                client.sendall(self.refusal(head))


def copy(source, target):
    try:
        while part := source.recv(LIMIT):
            target.sendall(part)
        target.shutdown(socket.SHUT_RDWR)
    except OSError:
        pass


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("protocol", choices=["http", "rtsp"])
    parser.add_argument("camera")
    parser.add_argument("--pem")
    parser.add_argument("--user")
    front = Front(parser.parse_args())
    with socket.create_server(("127.0.0.1", 0)) as server:
        print(f"port={server.getsockname()[1]}", flush=True)
        while True:
            client, _ = server.accept()
            threading.Thread(target=front.serve, args=(client,), daemon=True).start()


if __name__ == "__main__":
    sys.exit(main())
