"""The panel's page in a headless Chromium."""
import contextlib
import json
import tempfile

from marks import picture, read_mark
from selenium import webdriver
from selenium.common.exceptions import StaleElementReferenceException
from selenium.webdriver.common.action_chains import ActionChains
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys
from selenium.webdriver.chrome.service import Service
from stage import PASSWORDS, wait_until

CHROMIUM, DRIVER = "/usr/bin/chromium", "/usr/bin/chromedriver"
# The browser would ask its maker's servers for updates and lists; it must not, and neither may the page.
SWITCHES = ["--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage", "--hide-scrollbars",
            "--disable-background-networking", "--disable-component-update", "--disable-sync", "--no-first-run",
            "--disable-default-apps", "--disable-domain-reliability", "--lang=en-GB"]


class Browser:
    """A headless Chromium. Each page gets a new tab; cookies and cache of the page before are gone."""

    def __init__(self):
        self.profile = tempfile.TemporaryDirectory(ignore_cleanup_errors=True)
        options = webdriver.ChromeOptions()
        options.binary_location = CHROMIUM
        for switch in [*SWITCHES, "--window-size=1366,860", f"--user-data-dir={self.profile.name}"]:
            options.add_argument(switch)
        options.set_capability("goog:loggingPrefs", {"browser": "ALL", "performance": "ALL"})
        self.driver = webdriver.Chrome(service=Service(DRIVER), options=options)
        self.driver.set_page_load_timeout(30)
        self.driver.set_script_timeout(60)

    def new_tab(self):
        """Settings of a tab end with it, so each page gets a new one, and the others are closed."""
        driver = self.driver
        old = driver.window_handles
        driver.switch_to.window(old[0])
        driver.switch_to.new_window("tab")
        new = driver.current_window_handle
        for handle in old:
            driver.switch_to.window(handle)
            driver.close()
        driver.switch_to.window(new)
        driver.execute_cdp_cmd("Network.clearBrowserCookies", {})
        driver.execute_cdp_cmd("Network.clearBrowserCache", {})
        driver.get_log("browser")
        driver.get_log("performance")

    def end(self):
        self.driver.quit()
        self.profile.cleanup()


class Page:
    """A tab that shows the panel of a stage."""

    def __init__(self, stage, browser, width=1366, height=860, dark=False, scale=1, scripts=True):
        self.stage, self.driver, self.scale, self.dark = stage, browser.driver, scale, dark
        browser.new_tab()
        self.allowed = []  # texts of console entries that a scenario provokes
        self.requests, self.console = [], []
        self.resize(width, height)
        self.command("Emulation.setTimezoneOverride", timezoneId="Europe/Berlin")
        if not scripts:
            self.command("Emulation.setScriptExecutionDisabled", value=True)

    def command(self, name, **values):
        """One of the browser's own commands, for this tab."""
        return self.driver.execute_cdp_cmd(name, values)

    # ---- Looking ---------------------------------------------------------------------------------------------

    def resize(self, width, height):
        self.width, self.height = width, height
        self.command("Emulation.setDeviceMetricsOverride", width=width, height=height, deviceScaleFactor=self.scale,
                     mobile=width < 600)
        self.colours(self.dark)

    def colours(self, dark, reduced=False):
        self.dark = dark
        features = [{"name": "prefers-color-scheme", "value": "dark" if dark else "light"},
                    {"name": "prefers-reduced-motion", "value": "reduce" if reduced else "no-preference"}]
        self.command("Emulation.setEmulatedMedia", features=features)

    def one(self, selector):
        return self.driver.find_element(By.CSS_SELECTOR, selector)

    def all(self, selector):
        return self.driver.find_elements(By.CSS_SELECTOR, selector)

    def shown(self, selector):
        """The visible elements."""
        return [element for element in self.all(selector) if element.is_displayed()]

    def text(self, selector):
        try:
            return self.one(selector).text
        except StaleElementReferenceException:
            return ""

    def script(self, code, *values):
        return self.driver.execute_script(code, *values)

    def settle(self):
        """Returns when the page is drawn and every transition that ends has ended; a tab that nobody sees is not drawn."""
        self.driver.execute_async_script("""
            const done = arguments[0];
            setTimeout(done, 3000);
            const ends = (animation) => animation.effect.getComputedTiming().endTime !== Infinity;
            requestAnimationFrame(() => requestAnimationFrame(() =>
              Promise.allSettled(document.getAnimations().filter(ends).map((animation) => animation.finished)).then(() => done())));
            """)

    def until(self, condition, failure, seconds=20.0):
        def safely():
            with contextlib.suppress(StaleElementReferenceException):
                return condition()
            return None
        return wait_until(safely, failure, seconds)

    def until_text(self, selector, part, seconds=20.0):
        self.until(lambda: part in self.text(selector),
                   lambda: f"{selector} says {self.text(selector)!r} and never {part!r}", seconds)

    def mark(self):
        """The frame mark of the picture in a screenshot of the page; None while there is none."""
        return read_mark(self.seen()) if self.shown("#picture") else None

    def seen(self):
        """The picture as a screenshot of the page has it, where nothing covers it."""
        self.script("scrollTo(0, 0)")
        return picture(self.one("#picture").screenshot_as_png)

    def until_mark(self, source, seconds=20.0):
        return self.until(lambda: (mark := self.mark()) and mark[0] == source and mark,
                          lambda: f"the page never shows the picture with mark {source}; it shows {self.mark()}", seconds)

    # ---- Doing -----------------------------------------------------------------------------------------------

    def open(self, path="/"):
        self.driver.get(self.stage.address + path)

    def log_in(self, name="anna", password=None):
        self.until(lambda: self.one("#log-in").is_displayed(), "there is no log-in form")
        self.one("[name=user]").clear()
        self.one("[name=user]").send_keys(name)
        self.one("[name=password]").send_keys((password or PASSWORDS[name][1]) + Keys.ENTER)

    def enter(self, name="anna", path="/"):
        """Opens the page and logs in; returns when there are sources."""
        self.open(path)
        self.log_in(name)
        self.until(lambda: len(self.all(".source")) == len(self.stage.sources), "the sources never appear")

    def card(self, name):
        return self.until(lambda: next((card for card in self.all(".source")
                                        if card.find_element(By.CSS_SELECTOR, ".card-name").text == name), None),
                          f"there is no card of {name}")

    def click(self, element):
        """A click on an element or selector, after it has been scrolled to where nothing covers it."""
        element = self.one(element) if isinstance(element, str) else element
        self.script("arguments[0].scrollIntoView({block: 'center', behavior: 'instant'})", element)
        element.click()

    def select(self, name):
        self.click(self.card(name).find_element(By.CSS_SELECTOR, ".show"))

    def details(self, name):
        self.click(self.card(name).find_element(By.CSS_SELECTOR, ".card-actions .square"))

    def button(self, text, inside=""):
        return self.until(lambda: next((button for button in self.shown(f"{inside} button") if text in button.text), None),
                          f"there is no button {text}")

    def go(self, view):
        self.script("location.hash = arguments[0]", view)
        self.until(lambda: self.one(f"#{view}").is_displayed(), f"the view {view} does not open")

    def keys(self, *keys):
        ActionChains(self.driver).send_keys(*keys).perform()

    def focus(self):
        return self.driver.switch_to.active_element

    def answer(self, method, path, body=None):
        """(status, JSON) of a request that the page itself could make."""
        return self.driver.execute_async_script("""
            const [method, path, body, done] = arguments;
            fetch(path, {method, headers: {"X-Panel": "1", "Content-Type": "application/json"},
                         body: body === null ? undefined : JSON.stringify(body)})
              .then(async (answer) => done([answer.status, await answer.json().catch(() => null)]))""",
                                                method, path, body)

    # ---- What went wrong unseen ------------------------------------------------------------------------------

    def read_logs(self):
        self.console += self.driver.get_log("browser")
        for entry in self.driver.get_log("performance"):
            message = json.loads(entry["message"])
            self.requests.append({"page": message["webview"], **message["message"]})

    def findings(self):
        """Requests to other places than the panel, and what the console complains about."""
        self.read_logs()
        found = []
        for request in self.requests:
            if request["method"] == "Network.requestWillBeSent":
                url = request["params"]["request"]["url"]
                if not url.startswith((self.stage.address + "/", "blob:" + self.stage.address, "data:", "chrome:", "about:")):
                    found.append(f"foreign request: {url}")
        for entry in self.console:
            text = entry["message"]
            if not text.startswith("chrome") and not any(part in text for part in self.allowed):
                found.append(f"console: {entry['level']} {text}")
        return found

    def screenshot(self, file):
        self.settle()
        self.driver.save_screenshot(str(file))
