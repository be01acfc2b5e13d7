"""The decoders of a site on the page: one that is real, and 199 that are only published."""
import json
import time

from accessible import Missing, checker, look
from broker import Broker
from scenarios import check, scenario
from selenium.webdriver.common.keys import Keys

OTHERS = 199
EVIL = "<img src=x onerror=alert(1)>"


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
        for name, value in (("Topic", "site/hall"), ("Groups", "near"), ("Broker", broker.url)):
            stage.must("set", f"Mqtt.{name}", value)
        stage.start("decoder-mqtt", [], {"LIBCOMMON_LOG": stage.log("decoder")})
        page.until(lambda: page.one("#fleet-tab").is_displayed(), "the page has no fleet although there is a broker")
        page.go("fleet")
        page.until(lambda: rows(page) == OTHERS + 1, lambda: f"{rows(page)} rows")
        page.until(lambda: "180 online" in page.text("#fleet-found"), lambda: page.text("#fleet-found"))
        check(page.script("return document.querySelectorAll('#fleet-rows img').length") == 0, "a name became a picture")
        lines = [drive(page), accessibility(page), updates(page, broker)]
        page.resize(360, 740)
        check(page.script("return document.documentElement.scrollWidth") <= 360, "a telephone has to scroll sideways")
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
    for dark in (True, False):
        for width, height in ((360, 740), (1366, 860)):
            page.colours(dark)
            page.resize(width, height)
            look(page, script, f"fleet, {width} pixels, {'dark' if dark else 'light'}", found)
    check(not found, "\n".join(found))
    return "axe-core has no finding in the fleet, on desk and telephone, light and dark"


def updates(page, broker):
    """Rows are changed in place: the focus in a row stays."""
    page.script("document.querySelectorAll('#fleet-rows li')[5].tabIndex = 0; document.querySelectorAll('#fleet-rows li')[5].focus()")
    began = time.monotonic()
    broker.publish([("site/box-005/state", json.dumps({"running": True, "connected": True, "source": {"index": 0, "name": "New"}}))])
    page.until_text("#fleet-rows li:nth-child(6)", "New")
    took = time.monotonic() - began
    check(page.script("return document.activeElement === document.querySelectorAll('#fleet-rows li')[5]"), "the focus is lost")
    return f"from a decoder's news to its row: {took:.2f} s, {OTHERS + 1} decoders"
