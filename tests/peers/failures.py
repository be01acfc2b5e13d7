"""Cameras that can't play: the message that a user gets for each of them."""
import socket
import subprocess
import tempfile
import threading
import time
from pathlib import Path

from decoder import Decoder
from servers import PASSWORD, Stage, gst

URL = "rtsp://127.0.0.1:8554/cam/stream1"
H264 = gst("H.264", ["--digest"], path="/cam/stream1")
OPEN = gst("H.264", path="/cam/stream1")
NO_SERVER = None


def silent(stage):
    """Accepts connections and never answers."""
    listener = socket.create_server(("127.0.0.1", 8554))
    stage.listener = listener
    kept = []

    def take():
        try:
            while True:
                kept.append(listener.accept())
        except OSError:
            for connection, _ in kept:
                connection.close()

    threading.Thread(target=take, daemon=True).start()


# What the camera is, its server, the URL, the password that decoderctl gets.
REFUSED = [
    ("wrong password", H264, URL, "guess"),
    ("no password, and the camera wants one", H264, URL, None),
    ("wrong path", OPEN, URL.replace("stream1", "stream9"), None),
    ("nothing listens at the port", NO_SERVER, URL, None),
    ("no way to the network", NO_SERVER, "rtsp://192.0.2.1/stream1", None),
    ("unknown name", NO_SERVER, "rtsp://camera.invalid/stream1", None),
    ("connects, never answers", silent, URL, None),
    ("not a video server", NO_SERVER, "http://127.0.0.1:8554/", None),
    ("a mistyped URL", NO_SERVER, "rstp://127.0.0.1/stream1", None),
]


def told(stage, build, folder, name, start, url, password):
    if start:
        start(stage)
    decoder = Decoder(build, f"{folder}/decoder")
    try:
        began = time.monotonic()
        added, said = decoder.add(url, password)
        return {"camera": name, "message": said if not added else f"added: {said}",
                "seconds": f"{time.monotonic() - began:.1f}"}
    finally:
        decoder.end()


def fails_while_playing(stage, build, folder):
    """The messages of a camera that is switched off while it plays, and of one whose password is changed."""
    OPEN(stage)
    decoder = Decoder(build, f"{folder}/decoder")
    try:
        decoder.add(URL, PASSWORD)
        watch = decoder.watch(20, 0)
        plays = watch.stdout.readline() == "first\n"
        watch.wait()
        stage.end()
        began = time.monotonic()
        reason = ""
        while plays and not reason and time.monotonic() - began < 30:
            time.sleep(0.3)
            values = dict(line.split("=", 1) for line in decoder.ctl("source", "Camera")[1].splitlines() if "=" in line)
            reason = values.get("Reason", "")
        return {"camera": "switched off while it plays", "message": reason or "none", "seconds": f"{time.monotonic() - began:.1f}"}
    finally:
        decoder.end()


def failures(build, clips):
    rows = []
    for case in [*REFUSED, None]:
        with tempfile.TemporaryDirectory(prefix="peers-") as folder:
            (Path(folder) / "server").mkdir()
            stage = Stage(f"{folder}/server", clips, build / "tests")
            try:
                rows.append(told(stage, build, folder, *case) if case else fails_while_playing(stage, build, folder))
            except (RuntimeError, subprocess.SubprocessError) as problem:
                rows.append({"camera": case[0] if case else "switched off", "message": f"(not tried: {problem})", "seconds": "-"})
            finally:
                stage.end()
                if hasattr(stage, "listener"):
                    stage.listener.close()
    return rows
