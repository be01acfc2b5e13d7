"""The pictures of README and the manual: what the page shows of a decoder whose cameras see drawn scenes."""
import ctypes
import json
import socket
import subprocess
import tempfile
import time
from pathlib import Path

from broker import Broker
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


SETTINGS = {"Decoder.SequenceMode": "auto", "Screen.Size": "960x540", "Screen.ShowName": "always", "Screen.ShowClock": "yes",
            "Player.StillAfter": "0"}


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


FLEET = [("box office", "Front door", ""), ("car park east", "Car park", ""), ("car park west", "Car park", ""),
         ("gatehouse", "Loading bay", ""), ("lobby wall", "Yard", ""), ("night porter", "Front door", "no connection to the encoder"),
         ("staff room", "Yard", ""), ("tower 1", "Roof", ""), ("tower 2", "Roof", ""), ("workshop", "Loading bay", "")]


def site():
    """The decoders of a site, as their bridges publish them."""
    now = int(time.time())
    for number, (name, source, error) in enumerate(FLEET):
        online = name != "tower 2"
        topic = f"site/{name}"
        groups = ["outside"] if source in ("Car park", "Roof") else ["house"]
        yield f"{topic}/availability", "online" if online else "offline"
        yield f"{topic}/presence", json.dumps({"time": now, "online": online, "since": now - 7000 - 1700 * number})
        yield f"{topic}/state", json.dumps({
            "running": True, "connected": True, "mode": "auto", "groups": groups, "source": {"index": 0, "name": source},
            "error": {"code": "4", "text": error} if error else None, "alarm": None})
        yield f"{topic}/sources", json.dumps([{"index": i, "name": camera} for i, (camera, _) in enumerate(CAMERAS)])


def take_fleet(stage, browser):
    broker = Broker(stage.folder.name)
    try:
        broker.publish(site())
        for name, value in (("Topic", "site/lobby"), ("Groups", "house"), ("Broker", broker.url)):
            stage.must("set", f"Mqtt.{name}", value)
        stage.start("decoder-mqtt", [], {"LIBCOMMON_LOG": stage.log("decoder")})
        for name, width, height, dark in (("fleet", 1366, 760, False), ("fleet-phone", 390, 844, True)):
            page = Page(stage, browser, width, height, dark, scale=1 if width > 600 else 2)
            page.enter()
            page.until(lambda: page.one("#fleet-tab").is_displayed(), "the page has no fleet")  # noqa: B023
            page.go("fleet")
            page.until(lambda: len(page.shown("#fleet-rows li")) == len(FLEET) + 1, "the fleet is not complete")  # noqa: B023
            page.script("document.activeElement.blur()")
            page.screenshot((TARGET if name == "fleet" else stage.bin.parent) / f"panel-{name}.png")
    finally:
        broker.end()


def take_dialogs(stage, browser):
    """For the eyes of a developer only: they go into the build folder."""
    for words, width, height, dark in (("desk", 1366, 860, False), ("phone-dark", 390, 844, True)):
        page = Page(stage, browser, width, height, dark, scale=1 if width > 600 else 2)
        page.open()
        page.until(lambda: page.one("#log-in").is_displayed(), "there is no log-in form")  # noqa: B023
        page.screenshot(stage.bin.parent / f"panel-log-in-{words}.png")
        page.log_in()
        page.until(lambda: len(page.all(".source")) == len(stage.sources), "the sources never appear")  # noqa: B023
        for name, opener in (("details", None), ("add", "#add-source"), ("alarm", "#alarm")):
            if opener:
                page.click(opener)
            else:
                page.details("Yard")
            page.screenshot(stage.bin.parent / f"panel-{name}-{words}.png")
            page.click("dialog .square")
            page.until(lambda: not page.all("dialog"), "the dialog does not close")  # noqa: B023
        for view in ("settings", "journal"):
            page.go(view)
            page.until(lambda: page.shown(f"#{view} li, #{view} .parameter"), "the view is empty")  # noqa: B023
            page.screenshot(stage.bin.parent / f"panel-{view}-{words}.png")


def take_front_door(stage, page, file):
    """A picture of the page while the front door is on the screen; again when the next source came too early."""
    shown = lambda: page.text("#shown-name") == page.text(".source.current h3") == "Front door"  # noqa: E731
    for _ in range(6):
        page.answer("POST", "/api/v1/select", {"source": "Front door"})
        page.until_text("#shown-name", "Front door")
        page.until(lambda: "next in" in page.text("#left") or not shown(), "the countdown does not run")
        time.sleep(1.5)  # the last source's colours fade, and the first pictures are there
        page.screenshot(file)
        if shown() and "next in" in page.text("#left"):
            return
    raise AssertionError("the front door is never on the screen for long enough")


def take(stage, browser):
    for name, width, height, dark in (("desk", 1366, 860, False), ("dark", 1366, 860, True), ("phone", 390, 844, False)):
        page = Page(stage, browser, width, height, dark, scale=1 if width > 600 else 2)
        page.enter()
        if name == "desk":
            show_all(stage, page)
        page.script("document.activeElement.blur()")
        take_front_door(stage, page, TARGET / f"panel-{name}.png")
    take_fleet(stage, browser)
    take_dialogs(stage, browser)
