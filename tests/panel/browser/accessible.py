"""The page as axe-core, a checker of accessibility, sees it: no finding in any view, size and colour."""
from pathlib import Path

from scenarios import check, scenario
from selenium.webdriver.common.keys import Keys
from stage import ROOT

VERSION = "4.14.1"
SCRIPT = Path("node_modules/axe-core/axe.min.js")
PLACES = [ROOT / "build/browser"]
RUN = """
const done = arguments[0];
axe.run(document, {resultTypes: ["violations"], runOnly: ["wcag2a", "wcag2aa", "wcag21a", "wcag21aa", "wcag22aa", "best-practice"]})
  .then((result) => done(result.violations.map((found) =>
    `${found.id}: ${found.help}: ` + found.nodes.slice(0, 3).map((node) => `${node.html.slice(0, 160)} (${node.failureSummary})`).join("; "))),
        (error) => done([String(error)]))
"""


class Missing(Exception):
    """The checker is not installed."""


def checker():
    found = next((place / SCRIPT for place in PLACES if (place / SCRIPT).exists()), None)
    if not found:
        raise Missing(f"axe-core is missing: npm install --prefix build/browser axe-core@{VERSION}")
    return found.read_text()


def look(page, script, where, findings):
    page.settle()
    if not page.script("return Boolean(window.axe)"):
        page.script(script)
    findings += [f"{where}: {text}" for text in page.driver.execute_async_script(RUN)]


def finds_mistakes(page, script):
    """The checker itself works: it finds a picture without words."""
    page.script("document.querySelector('main').append(Object.assign(new Image(), {id: 'mistake'}))")
    found = []
    look(page, script, "", found)
    page.script("document.getElementById('mistake').remove()")
    check(any("image-alt" in text for text in found), f"the checker does not find a mistake: {found}")


@scenario("AccessibilityHasNoFinding")
def accessible(stage, pages):
    script = checker()
    page = pages.open()
    page.allowed = ["status of 409"]  # the steps of a source that was never shown
    findings = []
    page.open()
    page.until(lambda: page.one("#log-in").is_displayed(), "there is no log-in form")
    finds_mistakes(page, script)
    look(page, script, "log-in", findings)
    page.log_in()
    page.until_mark(11)
    for dark in (False, True):
        for width, height in ((1366, 860), (360, 740)):
            page.colours(dark)
            page.resize(width, height)
            for view in ("settings", "journal", "live"):
                page.go(view)
                look(page, script, f"{view}, {width} pixels, {'dark' if dark else 'light'}", findings)
            dialogs(page, script, f"{width} pixels, {'dark' if dark else 'light'}", findings)
    check(not findings, "\n".join(findings))
    return [f"axe-core {VERSION}: no finding"]


def dialogs(page, script, where, findings):
    page.details("Yard")
    for summary in page.all("dialog summary"):
        page.click(summary)
    page.until(lambda: len(page.shown("dialog .parameter")) and "Reading" not in page.text("dialog"), "the parts stay empty")
    look(page, script, f"details, {where}", findings)
    page.keys(Keys.ESCAPE)
    page.until(lambda: not page.all("dialog"), "escape does not close the dialog")
    for opener in ("#add-source", "#alarm"):
        page.click(opener)
        look(page, script, f"{opener}, {where}", findings)
        page.click("dialog .square")
        page.until(lambda: not page.all("dialog"), "the dialog does not close")
