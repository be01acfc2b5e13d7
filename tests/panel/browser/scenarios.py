"""What the page has to do, one function for each scenario: it gets the stage and returns lines to print.

`scenario` registers a function with the decoder that it needs. A scenario fails with an AssertionError. Every page that it
opens is looked at afterwards: no request to another place, nothing in the console.

Scenarios with the same sources and settings share a decoder, so each leaves the settings and sources as they were.
"""
import statistics
from pathlib import Path

from marks import bright_pixels
from page import Keys, Page
from selenium.webdriver.common.action_chains import ActionChains
from selenium.webdriver.common.by import By
from stage import HEIGHT, PASSWORDS, WIDTH, Source

SCENARIOS = {}  # name: (function, sources, settings, the file without .py)


def front_door_and_yard():
    return [Source("Front door", 11), Source("Yard", 22)]


def scenario(name, sources=front_door_and_yard, settings=()):
    def register(function):
        SCENARIOS[name] = (function, sources, dict(settings), Path(function.__code__.co_filename).stem)
        return function
    return register


def check(condition, failure):
    if not condition:
        raise AssertionError(failure)


class Pages:
    """The page of a scenario, which opens one; what went wrong unseen fails it."""

    def __init__(self, stage, browser):
        self.stage, self.browser, self.open_pages = stage, browser, []

    def open(self, *values, **named):
        self.open_pages = [Page(self.stage, self.browser, *values, **named)]
        return self.open_pages[-1]

    def check(self):
        found = [finding for page in self.open_pages for finding in page.findings()]
        check(not found, "\n".join(found))


@scenario("PictureMoves")
def picture_moves(stage, pages):
    page = pages.open()
    page.enter("vera")
    _, first = page.until_mark(11)
    page.until(lambda: (mark := page.mark()) and mark[1] != first, "the picture does not move")
    check(page.text("#shown-name") == "Front door", f"the name is {page.text('#shown-name')}")
    return []


@scenario("SelectChangesThePicture")
def select_changes(stage, pages):
    page = pages.open()
    page.enter("otto")
    page.until_mark(11)
    for name, mark in (("Yard", 22), ("Front door", 11)) * 2:
        page.select(name)
        page.until_mark(mark)
        page.until_text("#shown-name", name)
        check(page.card(name).get_attribute("aria-current") == "true", f"the card of {name} is not marked")
    times = select_times(page)
    page.select("Yard")
    loaded = "return [...document.querySelectorAll('.still img')].filter((still) => still.offsetWidth && still.naturalWidth).length"
    page.until(lambda: page.script(loaded) == 2, "there are no stills of the sources that were shown")
    return [f"from select to the new picture in the page: {times}"]


# Runs in the page: each picture's mark is read when it has been decoded, and so just before the page shows it.
WATCH = """
const decode = window.createImageBitmap;
const context = new OffscreenCanvas(64, 40).getContext("2d", { willReadFrequently: true });
function sourceOf(bitmap) {
  context.drawImage(bitmap, 0, bitmap.height * 0.9, bitmap.width, bitmap.height * 0.1, 0, 0, 64, 40);
  const pixels = context.getImageData(0, 0, 64, 40).data;
  let number = 0;
  for (let bit = 0; bit < 8; ++bit) {
    number = number << 1 | (pixels[(10 * 64 + bit * 2 + 1) * 4] > pixels[(30 * 64 + bit * 2 + 1) * 4] ? 1 : 0);
  }
  return number;
}
window.createImageBitmap = async (blob) => {
  const bitmap = await decode(blob);
  window.shownSource = sourceOf(bitmap);
  return bitmap;
};
"""
# Clicks, and waits for the animation frame that has the new picture.
MEASURE = """
const [index, wanted, done] = arguments;
const began = performance.now();
function look() {
  const passed = performance.now() - began;
  if (window.shownSource === wanted || passed > 15000) done(passed > 15000 ? -1 : passed);
  else requestAnimationFrame(look);
}
document.querySelector(`.source[data-index="${index}"] .show`).click();
requestAnimationFrame(look);
"""


def select_times(page, rounds=10):
    times = []
    page.script(WATCH)
    for turn in range(rounds):
        index, mark = ((1, 22), (0, 11))[turn % 2]
        times.append(page.driver.execute_async_script(MEASURE, index, mark))
        check(times[-1] >= 0, "the new picture never came")
        page.until(lambda: page.one(f".source[data-index='{index}']").get_attribute("aria-current") == "true",  # noqa: B023
                   "the card of the source that is shown is not marked")
    return f"median {statistics.median(times):.0f} ms, {min(times):.0f} to {max(times):.0f} ms, {rounds} times"


@scenario("AlarmTextIsOnThePicture")
def alarm(stage, pages):
    page = pages.open()
    page.enter("otto")
    page.until_mark(11)
    before = bright_pixels(page.seen(), 0, 0.3)
    page.click("#alarm")
    page.until(lambda: page.shown("dialog select"), "the dialog does not open")
    page.one("dialog select").send_keys("Yard")
    page.one("dialog [name=text]").clear()
    page.one("dialog [name=text]").send_keys("Gate <b>open</b>")
    page.click(page.button("Raise the alarm", "dialog"))
    page.until_mark(22)
    page.until(lambda: bright_pixels(page.seen(), 0, 0.3) > before + 200,
               "no text appears at the top of the picture")
    page.until_text("#machine", "Gate <b>open</b>")
    return []


@scenario("WrongSettingIsRefused")
def wrong_setting(stage, pages):
    page = pages.open()
    page.allowed = ["status of 409", "status of 400"]
    page.enter("anna", "/#settings")
    page.until(lambda: page.shown(".parameter"), "there are no settings")
    find = lambda name: page.one(f"label[title='{name}']").find_element(By.XPATH, "../..")  # noqa: E731
    typed = lambda name, value: (control := find(name).find_element(By.TAG_NAME, "input"), control.clear(),  # noqa: E731
                                 control.send_keys(value + Keys.TAB))
    typed("Decoder.AutoDetectTimeout", "soon")
    check("0 to 600" in find("Decoder.AutoDetectTimeout").text, f"no reason: {find('Decoder.AutoDetectTimeout').text}")
    typed("Screen.Size", "10x10")
    page.click(page.button("Save", ".save-bar"))
    page.until_text(".save-bar", "nothing is saved")
    typed("Decoder.AutoDetectTimeout", "20")
    page.click(page.button("Save", ".save-bar"))
    page.until(lambda: "10x10" in find("Screen.Size").text or "160x120" in find("Screen.Size").text and
               find("Screen.Size").find_element(By.TAG_NAME, "input").get_attribute("aria-invalid"),
               "the decoder's reason is not shown")
    check(stage.must("get", "Decoder.AutoDetectTimeout") == "10", "one value was saved although another one was wrong")
    typed("Screen.Size", "800x450")
    page.click(page.button("Save", ".save-bar"))
    page.until(lambda: not page.one(".save-bar").is_displayed(), "the right values are not saved")
    check(stage.must("get", "Decoder.AutoDetectTimeout") == "20", "the right value was not saved")
    check(stage.must("get", "Screen.Size") == "800x450", "the right size was not saved")
    page.one("#settings-search").send_keys("alarm.display")
    page.until_text("#settings-found", "1 setting found")
    stage.must("set", "Decoder.AutoDetectTimeout", "10")
    stage.must("set", "Screen.Size", f"{WIDTH}x{HEIGHT}")
    return []


@scenario("LogInWorksAndBlocks")
def log_in(stage, pages):
    page = pages.open()
    page.allowed = ["status of 401", "status of 429"]
    page.open()
    page.log_in("anna", "guess")
    page.until_text("#log-in-reason", "password")
    check(page.one("#log-in").is_displayed() and not page.shown("#live"), "a wrong password opens the page")
    page.log_in("anna")
    page.until(lambda: page.shown(".source"), "the right password does not open the page")
    cookies = page.driver.get_cookies()
    check(cookies and all(cookie["httpOnly"] and cookie["sameSite"] == "Strict" for cookie in cookies), f"cookies: {cookies}")
    page.click("#log-out")
    page.until_text("#log-in-reason", "logged out")
    check(page.answer("GET", "/api/v1/status")[0] == 401, "the session is still valid after the log-out")
    for _ in range(40):
        page.log_in("anna", "guess")
        page.until(lambda: page.text("#log-in-reason") and not page.one("#log-in-button").get_attribute("aria-busy"),
                   "there is no reason")
        if "Try again in" in page.text("#log-in-reason"):
            return []
    raise AssertionError(f"40 wrong passwords are not blocked: {page.text('#log-in-reason')}")


@scenario("SessionEnds")
def session_ends(stage, pages):
    page = pages.open()
    page.allowed = ["status of 401", "ERR_INCOMPLETE_CHUNKED_ENCODING", "ERR_CONNECTION"]
    page.enter("vera")
    page.answer("POST", "/logout", {})  # as another tab or the administrator would
    page.until(lambda: page.one("#log-in").is_displayed(), "the page does not notice that the session has ended")
    page.until_text("#log-in-reason", "session has ended")
    check(not page.shown("#live"), "the page still shows the decoder")
    page.log_in("vera")
    page.until(lambda: page.shown(".source"), "logging in again does not work")
    page.until_mark(11)
    return []


@scenario("RolesSeeWhatTheyMayUse")
def roles(stage, pages):
    page = pages.open()
    page.enter("vera")
    check(not page.shown("#controls, .show, #add-source, .handle, [href='#settings']"), "a viewer sees buttons")
    check(page.answer("POST", "/api/v1/select", {"source": 1})[0] == 403, "a viewer may select")
    page.click("#log-out")
    page.allowed = ["status of 403"]
    page.log_in("otto")
    page.until(lambda: len(page.shown(".show")) == 2, "an operator can't select")
    check(not page.shown("#add-source, .handle"), "an operator sees the administrator's buttons")
    page.go("settings")
    page.until(lambda: page.shown(".parameter"), "there are no settings")
    check(not [control for control in page.all(".parameter input, .parameter select") if control.is_enabled()],
          "an operator may change settings")
    return []


@scenario("FitsTelephoneAndDesk")
def sizes(stage, pages):
    page = pages.open()
    page.enter()
    page.until_mark(11)
    for width, height in ((320, 640), (360, 740), (414, 896), (768, 1024), (1280, 720), (1920, 1080)):
        page.resize(width, height)
        for view in ("settings", "journal", "live"):
            page.go(view)
            page.settle()
            wide = page.script("return document.documentElement.scrollWidth")
            check(wide <= width, f"{view} is {wide} pixels wide on a screen of {width}")
        check(page.one("#picture").rect["width"] >= min(width * 0.5, 600), f"the picture is small at {width}")
        check(page.one("#picture").rect["y"] < height / 3, f"the picture is far down at {width}")
    return []


@scenario("KeyboardAlone", lambda: [*front_door_and_yard(), Source("Roof", 33)])
def keyboard(stage, pages):
    page = pages.open()
    page.open()
    page.until(lambda: page.focus().get_attribute("name") == "user", "the name does not have the focus")
    page.keys("anna", Keys.TAB, PASSWORDS["anna"][1], Keys.ENTER)
    page.until_mark(11)
    tab_to(page, lambda: page.focus().get_attribute("aria-label") == "Show: Yard")
    outline = page.script("return getComputedStyle(document.activeElement).outlineStyle")
    check(outline != "none", "the focus can't be seen")
    page.keys(Keys.ENTER)
    page.until_mark(22)
    page.keys(Keys.TAB, Keys.ENTER)
    page.until(lambda: page.shown("dialog h2") and page.text("dialog h2") == "Yard", "the details do not open")
    page.keys(Keys.ESCAPE)
    page.until(lambda: not page.all("dialog"), "escape does not close the details")
    check(page.focus().get_attribute("aria-label") == "Details of Yard", "the focus is not given back")
    reorder_by_keys(page)
    hold_by_keys(page, stage)
    return []


def tab_to(page, there, most=80):
    for _ in range(most):
        if there():
            return
        page.keys(Keys.TAB)
    raise AssertionError("the tab key never gets there")


def reorder_by_keys(page):
    page.script("document.querySelector('.skip').focus()")
    tab_to(page, lambda: page.focus().get_attribute("aria-label") == "Move Roof")
    page.keys(" ")
    page.until_text("#said", "picked up")
    page.keys(Keys.ARROW_UP)
    page.until_text("#said", "place 2 of 3")
    check(page.focus().get_attribute("aria-label") == "Move Roof", "the focus does not go with the source")
    page.keys(Keys.ESCAPE)
    page.until_text("#said", "Put back")
    tab_to(page, lambda: page.focus().get_attribute("aria-label") == "Move Roof")
    page.keys(" ", Keys.ARROW_UP, " ")
    names = lambda: [name for name in page.stage.ctl("sources", "--names")[1].splitlines()]  # noqa: E731
    page.until(lambda: names() == ["Front door", "Roof", "Yard"], lambda: f"the order is {names()}")


def hold_by_keys(page, stage):
    page.until(lambda: page.one("#shown-name").text in ("Front door", "Yard", "Roof"), "the decoder does not play again")
    tab_to(page, lambda: page.focus().get_attribute("id") == "button")
    ActionChains(page.driver).key_down(" ").pause(1.4).key_up(" ").perform()
    page.until_text("#shown-name", "Disconnected")
    ActionChains(page.driver).key_down(" ").pause(0.1).key_up(" ").perform()
    page.until(lambda: "Disconnected" not in page.text("#shown-name"), "a short press does not connect")


NAUGHTY = "<img src=x onerror=window.hacked=1>"


def foreign_sources():
    return [Source(NAUGHTY, 11, model="<svg onload=window.hacked=2>"),
            Source("Yard\"'><script>window.hacked=3</script>", 22)]


@scenario("ForeignTextsStayTexts", foreign_sources)
def xss(stage, pages):
    page = pages.open()
    page.enter()
    page.until_mark(11)
    check(page.text("#shown-name") == NAUGHTY, f"the name is {page.text('#shown-name')}")
    page.until(lambda: "<svg onload" in page.text("#cards"), "the model is not shown")
    stage.must("alarm", "1", "<b onclick=hacked=4>x</b>")
    page.until_text("#machine", "<b onclick=hacked=4>")
    page.details(NAUGHTY)
    page.until_text("dialog h2", NAUGHTY)
    page.all("dialog summary")[0].click()
    page.until(lambda: page.shown("dialog .rung, dialog .ladder .hint"), "the ladder is empty")
    page.keys(Keys.ESCAPE)
    page.go("journal")
    page.go("settings")
    page.until(lambda: page.shown(".parameter"), "there are no settings")
    check(page.script("return window.hacked") is None, "a foreign text was run as a script")
    check(not page.all("main img[src=x], main svg, main b"), "a foreign text became an element")
    page.open("/basic")
    check(NAUGHTY in page.text("body"), "the basic page does not show the name")
    check(page.script("return window.hacked") is None and not page.all("img[src=x]"), "the basic page runs foreign texts")
    return []


def basic_log_in(page, password):
    page.one("[name=user]").send_keys("otto")
    page.one("[name=password]").send_keys(password + Keys.ENTER)


@scenario("WorksWithoutScripts")
def basic(stage, pages):
    page = pages.open(scripts=False)
    page.open("/")
    check("needs JavaScript" in page.text("body"), "the page does not say that it needs JavaScript")
    page.one("noscript a, main a[href='/basic']").click()
    basic_log_in(page, "guess")
    page.until_text("body", "password is wrong")
    basic_log_in(page, PASSWORDS["otto"][1])
    page.until_text("body", "The decoder shows Front door")
    page.click(page.button("Show Yard"))
    page.until(lambda: page.open("/basic") or "The decoder shows Yard" in page.text("body"), "the basic page does not select")
    return []
