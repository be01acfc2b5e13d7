"""Debian's MQTT broker, and messages to it."""
import shutil
import socket
import subprocess
from pathlib import Path

from accessible import Missing
from scenarios import check
from stage import wait_until


def text_field(text):
    data = text.encode()
    return len(data).to_bytes(2, "big") + data


def packet(kind, body):
    length, size = b"", len(body)
    while True:
        size, digit = size // 128, size % 128
        length += bytes([digit | (128 if size else 0)])
        if not size:
            return bytes([kind]) + length + body


class Broker:
    """Debian's mosquitto on a free port."""

    def __init__(self, folder):
        program = shutil.which("mosquitto") or next((p for p in ("/usr/sbin/mosquitto",) if Path(p).exists()), None)
        if not program:
            raise Missing("mosquitto is missing; packages.test has it")
        with socket.socket() as free:
            free.bind(("127.0.0.1", 0))
            self.port = free.getsockname()[1]
        file = Path(folder) / "broker.conf"
        file.write_text(f"user root\nlistener {self.port} 127.0.0.1\nallow_anonymous true\n")
        self.process = subprocess.Popen([program, "-c", file], stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                                        stderr=subprocess.DEVNULL)
        wait_until(self.listens, "the broker does not listen")

    def listens(self):
        with socket.socket() as client:
            return client.connect_ex(("127.0.0.1", self.port)) == 0

    @property
    def url(self):
        return f"mqtt://127.0.0.1:{self.port}"

    def publish(self, messages, retained=True):
        """Publishes messages with MQTT 3.1.1, quality 0, and returns when the broker has read them."""
        kind = 0x31 if retained else 0x30
        with socket.create_connection(("127.0.0.1", self.port), timeout=20) as client:
            client.sendall(packet(0x10, text_field("MQTT") + b"\x04\x02\x00\x3c" + text_field("test")))
            check(client.recv(4) == b"\x20\x02\x00\x00", "the broker does not take the test's connection")
            client.sendall(b"".join(packet(kind, text_field(topic) + payload.encode()) for topic, payload in messages))
            client.sendall(packet(0xc0, b""))
            check(client.recv(2) == b"\xd0\x00", "the broker does not answer")

    def end(self):
        self.process.terminate()
        self.process.wait()
