"""The decoders of a site on the page: one that is real, and 199 that are only published."""
import json
import shutil
import socket
import subprocess
import time
from pathlib import Path

from accessible import Missing, checker, look
from scenarios import check, scenario
from selenium.webdriver.common.keys import Keys
from stage import wait_until

OTHERS = 199
EVIL = "<img src=x onerror=alert(1)>"


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

    def publish(self, messages):
        """Publishes retained messages with MQTT 3.1.1, quality 0, and returns when the broker has read them."""
        with socket.create_connection(("127.0.0.1", self.port), timeout=20) as client:
            client.sendall(packet(0x10, text_field("MQTT") + b"\x04\x02\x00\x3c" + text_field("test")))
            check(client.recv(4) == b"\x20\x02\x00\x00", "the broker does not take the test's connection")
            client.sendall(b"".join(packet(0x31, text_field(topic) + payload.encode()) for topic, payload in messages))
            client.sendall(packet(0xc0, b""))
            check(client.recv(2) == b"\xd0\x00", "the broker does not answer")

    def end(self):
        self.process.terminate()
        self.process.wait()


def others():
    for number in range(OTHERS):
        topic = f"site/box-{number:03}"
        online = number % 10 != 0
        name = EVIL if number == 7 else f"Camera {number % 5}"
        yield f"{topic}/availability", "online" if online else "offline"
        yield f"{topic}/presence", json.dumps({"time": 1795362407, "online": True, "since": 1795358807})
        yield f"{topic}/state", json.dumps({"running": True, "connected": True, "mode": "auto", "groups": ["far"],
                                            "source": {"index": 1, "name": name}, "error": None, "alarm": None})
        yield f"{topic}/sources", json.dumps([{"index": 0, "name": name}])


def rows(page):
    return page.script("return document.querySelectorAll('#fleet-rows li').length")


@scenario("FleetShowsAndDrivesAllDecoders", settings={"Alarm.Enabled": "yes"})
def fleet(stage, pages):
    broker = Broker(stage.folder.name)
    try:
        broker.publish(others())
        page = pages.open()
        page.enter("anna")
        page.until_mark(11)
        check(not page.one("#fleet-tab").is_displayed(), "there is a fleet without a broker")
        check(page.answer("GET", "/api/v1/fleet")[0] == 409, "the API knows a fleet without a broker")
        page.allowed = ["status of 409"]
        for name, value in (("Topic", "site/hall"), ("Groups", "near"), ("Broker", f"mqtt://127.0.0.1:{broker.port}")):
            stage.must("set", f"Mqtt.{name}", value)
        stage.start("decoder-mqtt", [], {"LIBCOMMON_LOG": stage.log("decoder")})
        page.until(lambda: page.one("#fleet-tab").is_displayed(), "the page has no fleet although there is a broker")
        page.go("fleet")
        page.until(lambda: rows(page) == OTHERS + 1, lambda: f"{rows(page)} rows")
        page.until(lambda: "180 online" in page.text("#fleet-found"), lambda: page.text("#fleet-found"))
        check(page.script("return document.querySelectorAll('#fleet-rows img').length") == 0, "a name became a picture")
        lines = [drive(page), accessibility(page), updates(page, broker)]
        page.screenshot(stage.bin.parent / "browser-fleet-desk.png")
        page.resize(360, 740)
        check(page.script("return document.documentElement.scrollWidth") <= 360, "a telephone has to scroll sideways")
        page.screenshot(stage.bin.parent / "browser-fleet-phone.png")
        stage.must("set", "Mqtt.Broker", "")
        page.until(lambda: page.one("#live").is_displayed() and not page.one("#fleet-tab").is_displayed(),
                   "the fleet stays without a broker")
        return [line for line in lines if line]
    finally:
        broker.end()


def drive(page):
    """The keyboard alone chooses the group, and shows a source there."""
    page.one("#fleet-group").send_keys("near")
    page.until(lambda: rows(page) == 1, "the group does not filter")
    page.one("#fleet-source").send_keys("Yard")
    page.one("#fleet-select").send_keys(Keys.ENTER)
    page.until_text("#said", "Done by 1 of 1 decoder")
    page.until_text("#fleet-rows", "Yard")
    page.one("#fleet-text").clear()
    page.one("#fleet-text").send_keys("Fire drill" + Keys.ENTER)
    page.until_text("#fleet-rows", "Fire drill")
    page.go("live")
    page.until_mark(22)
    page.go("fleet")
    page.one("#fleet-group").send_keys("all")
    page.one("#fleet-search").send_keys("box-00")
    page.until(lambda: rows(page) == 10, "the text does not filter")
    page.click("#fleet-select")  # nobody is behind these
    page.until_text("#fleet-result", "box-001: no answer")
    check("box-000: offline" in page.text("#fleet-result"), page.text("#fleet-result"))
    page.one("#fleet-search").send_keys(Keys.CONTROL + "a" + Keys.DELETE)
    page.until(lambda: rows(page) == OTHERS + 1, "the rows do not come back")


def accessibility(page):
    try:
        script = checker()
    except Missing:
        return "axe-core is missing: accessibility of the fleet was not looked at"
    found = []
    look(page, script, "fleet", found)
    check(not found, "\n".join(found))
    return None


def updates(page, broker):
    """Rows are changed in place: the focus in a row stays."""
    page.script("document.querySelectorAll('#fleet-rows li')[5].tabIndex = 0; document.querySelectorAll('#fleet-rows li')[5].focus()")
    began = time.monotonic()
    broker.publish([("site/box-005/state", json.dumps({"running": True, "connected": True, "source": {"index": 0, "name": "New"}}))])
    page.until_text("#fleet-rows li:nth-child(6)", "New")
    took = time.monotonic() - began
    check(page.script("return document.activeElement === document.querySelectorAll('#fleet-rows li')[5]"), "the focus is lost")
    return f"from a decoder's news to its row: {took:.2f} s, {OTHERS + 1} decoders"
