"""More of what the page has to do: what happens while it is open, and changes by an administrator."""
import time

from scenarios import check, scenario
from selenium.webdriver.common.by import By
from stage import Source


@scenario("LostConnectionHeals")
def lost(stage, pages):
    page = pages.open()
    page.allowed = ["ERR_", "Failed to load resource"]
    page.enter()
    page.until_mark(11)
    stage.stop_panel()
    page.until_text("#link-text", "Connection lost since")
    page.until_text("#veil", "Not live")
    page.until_text("#veil", "3 s ago")
    began = time.monotonic()
    stage.start_panel()
    page.until(lambda: page.one("#log-in").is_displayed() or page.text("#link-text") == "Live",
               "the page does not find the panel again", 30)
    healed = time.monotonic() - began
    if page.one("#log-in").is_displayed():
        page.log_in()
    page.until_text("#link-text", "Live")
    page.until_mark(11)
    first = page.mark()
    page.until(lambda: (mark := page.mark()) and mark != first, "the picture does not move again")
    return [f"found the panel again {healed:.1f} s after its start"]


@scenario("SourcesAreAddedTriedAndRemoved")
def add(stage, pages):
    page = pages.open()
    page.allowed = ["status of 409"]
    page.enter()
    extra = Source("Gate", 44)
    extra.start(stage.bin.parent)
    try:
        page.click("#add-source")
        page.one("dialog [name=url]").send_keys("http://127.0.0.1:1/none")
        page.click(page.button("Test the address", "dialog"))
        page.until(lambda: len(page.text("dialog p.reason")) > 10, "no reason for a wrong address", 40)
        page.click(page.button("Add", "dialog"))
        page.until_text("dialog", "This is needed.")
        page.one("dialog [name=name]").send_keys("Gate")
        page.one("dialog [name=url]").clear()
        page.one("dialog [name=url]").send_keys(f"http://{extra.address}/vexo-cgi/mjpg/video.cgi")
        page.click(page.button("Test the address", "dialog"))
        page.until_text("dialog .good-news", "It plays", 40)
        page.click(page.button("Add", "dialog"))
        page.until(lambda: len(page.all(".source")) == 3, "the source is not added", 40)
        page.until(lambda: not page.all("dialog"), "the dialog stays")
        page.until(lambda: page.text("#link-text") == "Live", "the decoder is away")
        page.select("Gate")
        page.until_mark(44)
        change_time(page, stage)
        remove(page)
    finally:
        extra.end()
    return []


def change_time(page, stage):
    page.details("Gate")
    page.all("dialog summary")[1].click()
    page.until(lambda: page.shown("dialog .parameter"), "the source has no settings")
    row = next(row for row in page.all("dialog .parameter") if row.text.startswith("Display time"))
    control = row.find_element(By.TAG_NAME, "input")
    control.clear()
    control.send_keys("never")
    page.click(page.button("Save", "dialog"))
    page.until(lambda: "0 to 86400" in row.text and control.get_attribute("aria-invalid"), "no reason for a wrong time")
    control.clear()
    control.send_keys("25")
    page.click(page.button("Save", "dialog"))
    page.until(lambda: stage.ctl("get", "Encoder.Gate.DisplayTime")[1] == "25", "the time is not saved")


def remove(page):
    page.click(page.button("Remove this source", "dialog"))
    page.click(page.button("Cancel", "dialog.small"))
    page.click(page.button("Remove this source", "dialog"))
    page.click(page.button("Remove", "dialog.small"))
    page.until(lambda: len(page.all(".source")) == 2, "the source is not removed")


def pictures_fetched(page):
    page.read_logs()
    return sum(request["method"] == "Network.requestWillBeSent" and "/api/v1/pictures/" in request["params"]["request"]["url"]
               for request in page.requests)


@scenario("JournalIsLive")
def journal(stage, pages):
    page = pages.open()
    page.enter("otto", "/")
    page.until_mark(11)
    page.go("journal")
    page.answer("POST", "/api/v1/select", {"source": 1})
    page.until_text("#changes", "Shows Yard")
    page.until(lambda: page.shown("#log li"), "the log has no lines")
    fetched = pictures_fetched(page)
    page.click("#log-pause")
    before = page.text("#log")
    page.answer("POST", "/api/v1/select", {"source": 0})
    page.until_text("#changes", "Shows Front door")
    page.until(lambda: "wait" in page.text("#log-found"), "the paused log does not count new lines")
    check(page.text("#log") == before, "the paused log moves")
    check(pictures_fetched(page) == fetched, "the page fetches pictures that nobody sees")
    page.click("#log-pause")
    page.one("#log-search").send_keys("no such words 4711")
    page.until_text("#log-found", "0 lines")
    page.go("live")
    page.until_mark(11)
    return []
