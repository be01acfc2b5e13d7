"""Every control of the page does its work on the decoder, and the page shows what came of it."""
from scenarios import check, front_door_and_yard, scenario
from selenium.webdriver.common.action_chains import ActionChains
from selenium.webdriver.common.by import By


def commands(page, name):
    return page.button(name, "#controls")


def status(page):
    return page.answer("GET", "/api/v1/status")[1]


@scenario("ControlsReachTheDecoder", settings={"Sound.Enabled": "yes"})
def controls(stage, pages):
    page = pages.open()
    page.enter("otto")
    page.until_mark(11)
    page.click(commands(page, "Disconnect"))
    page.until_text("#shown-name", "Disconnected")
    page.click(commands(page, "Connect"))
    page.until_text("#shown-name", "Front door")
    page.until_mark(11)
    page.click(commands(page, "Lock"))
    page.until_text("#shown-name", "Locked")
    page.click(commands(page, "Reconnect"))
    page.until_text("#shown-name", "Front door", 8)  # a lock ends after ten seconds by itself
    page.until_mark(11)
    detect_again(page, stage)
    next_by_button(page)
    sound(page, stage)
    state(page)
    return []


def detect_again(page, stage):
    known = lambda: [source.get("status", {}).get("VideoSourceType") for source in page.answer("GET", "/api/v1/sources")[1]["sources"]]  # noqa: E731
    page.until(lambda: known()[0], "the source was never detected")
    page.click(commands(page, "Detect again"))
    page.until(lambda: not any(known()), lambda: f"what was detected is not forgotten: {known()}")
    page.select("Yard")
    page.until_mark(22)
    page.until(lambda: known()[1], "the source is not detected again")
    page.select("Front door")
    page.until_mark(11)


def next_by_button(page):
    """In manual mode a short press goes to the next source; a press that is held disconnects."""
    page.click("#button")
    page.until_mark(22)
    ActionChains(page.driver).click_and_hold(page.one("#button")).pause(1.4).release().perform()
    page.until_text("#shown-name", "Disconnected")
    page.click("#button")
    page.until(lambda: "Disconnected" not in page.text("#shown-name"), "a short press does not connect")


def sound(page, stage):
    page.click("#mute")
    page.until_text("#mute", "Sound on")
    check(status(page)["sound"]["muted"] is True, "the decoder is not muted")
    page.click("#mute")
    page.until_text("#mute", "Mute")
    page.script("const range = document.getElementById('volume'); range.value = 40; range.dispatchEvent(new Event('input')); "
                "range.dispatchEvent(new Event('change'))")
    page.until(lambda: status(page)["sound"]["volume"] == 40, "the volume is not set")
    stage.must("volume", "100")


def state(page):
    facts = dict(zip([term.text for term in page.all("#machine dt")], [value.text for value in page.all("#machine dd")]))
    check(facts.get("Connection") == "connected" and facts.get("Mode") == "manual", f"the state is {facts}")
    check(facts.get("Lamp") and facts.get("Version"), f"the state is {facts}")


@scenario("SequenceCountsDownAndPauses", settings={"Decoder.SequenceMode": "auto"})
def sequence(stage, pages):
    page = pages.open()
    page.enter("otto")
    page.until(lambda: "next in" in page.text("#left"), "there is no countdown")
    check("10 s" in page.text("#cards"), "the cards have no display time")
    first = page.text("#left")
    page.until(lambda: page.text("#left") != first, "the countdown does not run")
    page.until(lambda: "pauses the sequence" in page.text("#button"), "the button does not say what it does")
    page.click("#button")
    page.until_text("#shown-words", "paused")
    check(not page.shown("#left"), "a paused sequence counts down")
    page.until(lambda: "continues the sequence" in page.text("#button"), "the button does not say what it does")
    page.click("#button")
    page.until(lambda: "next in" in page.text("#left"), "the sequence does not go on")
    name = page.text("#shown-name")
    page.until(lambda: page.text("#shown-name") not in ("", name), "the next source is not shown", 40)
    return []


@scenario("DetailsExplainTheSource", sources=front_door_and_yard)
def details(stage, pages):
    page = pages.open()
    page.enter("otto")
    page.until_mark(11)
    page.details("Front door")
    page.until_text("dialog", "Motion JPEG")
    page.click(page.all("dialog summary")[0])
    page.until(lambda: len(page.shown("dialog .rung")) >= 2, "the ladder has no rungs")
    last = page.all("dialog .rung")[-1]
    check("good" in last.get_attribute("class") and "accepted" in last.text, f"the ladder ends with {last.text}")
    check(all(rung.find_elements(By.CSS_SELECTOR, "img, script") == [] for rung in page.all("dialog .rung")), "a rung has foreign elements")
    return []
