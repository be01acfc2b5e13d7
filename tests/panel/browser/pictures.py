"""The pictures of README and the manual: what the page shows of a decoder whose cameras see drawn scenes."""
import ctypes
import socket
import subprocess
import tempfile
import time
from pathlib import Path

from page import Browser, Page
from stage import ROOT, Source, Stage

HERE = Path(__file__).resolve().parent
TARGET = ROOT / "docs/pictures"
CAMERAS = [("Front door", "front-door"), ("Yard", "yard"), ("Loading bay", "loading-bay"), ("Car park", "car-park")]


def draw_scenes(folder, page):
    """The scenes as short videos, which the encoders send."""
    for _, scene in CAMERAS:
        page.driver.get((HERE / f"scenes/{scene}.svg").as_uri())
        page.driver.save_screenshot(f"{folder}/{scene}.png")
        subprocess.run(["ffmpeg", "-loglevel", "error", "-y", "-loop", "1", "-i", f"{folder}/{scene}.png", "-t", "4", "-r", "12",
                        "-c:v", "mjpeg", "-q:v", "2", "-pix_fmt", "yuvj420p", f"{folder}/{scene}.avi"], check=True)


def cameras(folder):
    sources = [Source(name, 0, "Dome camera" if scene != "front-door" else "Door station",
                      options=("--input", f"{folder}/{scene}.avi", "--width", "960", "--height", "540"))
               for name, scene in CAMERAS]
    return [*sources, Source("Roof", 0, address="127.0.0.1:9")]


SETTINGS = {"Decoder.SequenceMode": "auto", "Screen.Size": "960x540", "Screen.ShowName": "always", "Screen.ShowClock": "yes"}


def show_all(stage, page):
    """Each source was on the screen once, so that there are stills and reasons."""
    for name in ["Loading bay", "Car park", "Roof", "Yard", "Front door"]:
        page.answer("POST", "/api/v1/select", {"source": name})
        time.sleep(4)


def name_machine():
    """The page shows the machine's name: here one of a name space of its own."""
    new_name_space = 0x04000000
    if ctypes.CDLL(None, use_errno=True).unshare(new_name_space) == 0:
        socket.sethostname("lobby")


def make(build):
    name_machine()
    browser, stage = Browser(), None
    try:
        with tempfile.TemporaryDirectory() as folder:
            draw_scenes(folder, Page(None, browser, 960, 540))
            stage = Stage(build, cameras(folder), SETTINGS)
            take(stage, browser)
    finally:
        browser.end()
        if stage:
            stage.end()
    return 0


def take(stage):
    for name, width, height, dark in (("desk", 1366, 860, False), ("dark", 1366, 860, True), ("phone", 390, 844, False)):
        page = Page(stage, width, height, dark, scale=1 if width > 600 else 2)
        try:
            page.enter()
            if name == "desk":
                show_all(stage, page)
            page.answer("POST", "/api/v1/select", {"source": "Front door"})
            page.until_text("#shown-name", "Front door")
            time.sleep(3)
            page.driver.execute_script("document.activeElement.blur()")
            page.screenshot(TARGET / f"panel-{name}.png")
        finally:
            page.end()
