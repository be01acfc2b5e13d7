"""Many tabs of one browser, which have one event stream; also where the browser has no locks."""
import time

from scenarios import check, scenario

# Run before the page's own script in every new document: what older browsers, and pages over plain http, do not have.
WITHOUT_LOCKS = "delete Navigator.prototype.locks;"
LOCKS_REFUSED = "navigator.locks.request = () => Promise.reject(new DOMException('no', 'SecurityError'));"
WITHOUT_TALKING = "delete Navigator.prototype.locks; delete window.BroadcastChannel;"


def streams(page):
    """The tabs whose event streams are open, from the browser's own record."""
    page.read_logs()
    begun, ended = {}, set()
    for request in page.requests:
        identity = request["params"].get("requestId")
        if request["method"] == "Network.requestWillBeSent" and request["params"]["request"]["url"].endswith("/api/v1/events"):
            begun[identity] = request["page"]
        elif request["method"] in ("Network.loadingFinished", "Network.loadingFailed"):
            ended.add(identity)
    there = page.driver.window_handles
    return [tab for identity, tab in begun.items() if identity not in ended and tab in there]


def until_streams(page, count):
    page.until(lambda: len(streams(page)) == count, lambda: f"{len(streams(page))} event streams are open, not {count}")


def before_scripts(page, code):
    if code:
        page.command("Page.addScriptToEvaluateOnNewDocument", source=code)


def open_tabs(page, count, code=""):
    """Logs in, and opens so many tabs in all; their handles."""
    before_scripts(page, code)
    page.enter()
    tabs = [page.driver.current_window_handle]
    for _ in range(count - 1):
        page.driver.switch_to.new_window("tab")
        tabs.append(page.driver.current_window_handle)
        before_scripts(page, code)
        page.open()
        page.until(lambda: len(page.all(".source")) == 2, "a further tab does not get the sources")
    return tabs


def all_follow(page, tabs):
    """Every tab shows what one of them selects."""
    check(page.answer("POST", "/api/v1/select", {"source": 1})[0] == 200, "select does not work")
    for tab in tabs:
        page.driver.switch_to.window(tab)
        page.resize(1366, 860)
        page.until_text("#shown-name", "Yard")
        page.until_mark(22)


def lead_goes(page, closed, next_one):
    """The tab that holds the stream is closed: another one takes over."""
    page.driver.switch_to.window(closed)
    page.driver.close()
    page.driver.switch_to.window(next_one)
    began = time.monotonic()
    page.answer("POST", "/api/v1/select", {"source": 0})
    page.until_text("#shown-name", "Front door")
    page.until_mark(11)
    took = time.monotonic() - began
    check(took < 15, "it takes too long until another tab has the stream")
    return f"the tab with the stream is closed; another one shows the next source after {took:.1f} s"


def five_tabs(page, code=""):
    tabs = open_tabs(page, 5, code)
    until_streams(page, 1)
    all_follow(page, tabs)
    until_streams(page, 1)
    return tabs


@scenario("FiveTabsOneStream")
def with_locks(_, pages):
    page = pages.open()
    page.allowed = ["ERR_"]
    tabs = five_tabs(page)
    return [lead_goes(page, tabs[0], tabs[3])]


@scenario("FiveTabsOneStreamWithoutLocks")
def without_locks(_, pages):
    page = pages.open()
    page.allowed = ["ERR_"]
    tabs = five_tabs(page, WITHOUT_LOCKS)
    check(page.script("return navigator.locks === undefined"), "the browser still has locks")
    leader, = streams(page)
    others = [tab for tab in tabs if tab != leader]
    lines = [lead_goes(page, leader, others[1])]
    until_streams(page, 1)
    sleeper_learns(page, others)
    return lines


# Keeps the tab from everything for so many milliseconds, as browsers do with tabs that are not seen.
SLEEP = "setTimeout(() => { const end = performance.now() + arguments[0]; while (performance.now() < end); }, 100)"


def sleeper_learns(page, tabs):
    """The leading tab does nothing for a while: another one takes over, and the old one learns it when it goes on."""
    leader, = streams(page)
    seen = next(tab for tab in tabs if tab != leader)
    page.driver.switch_to.window(leader)
    page.script(SLEEP, 8000)
    page.driver.switch_to.window(seen)
    page.until(lambda: len(streams(page)) == 2, "no other tab takes over", 30)
    until_streams(page, 1)
    check(streams(page) != [leader], "the tab that slept leads again")
    page.answer("POST", "/api/v1/select", {"source": 1})
    page.until_text("#shown-name", "Yard")


@scenario("TabsWhoseLocksAreRefusedHaveOneStream")
def refused_locks(_, pages):
    page = pages.open()
    page.allowed = ["ERR_"]
    tabs = open_tabs(page, 2, LOCKS_REFUSED)
    until_streams(page, 1)
    all_follow(page, tabs)
    return []


@scenario("TabsThatCannotTalkHaveAStreamEach")
def without_talking(_, pages):
    page = pages.open()
    page.allowed = ["ERR_"]
    tabs = open_tabs(page, 2, WITHOUT_TALKING)
    until_streams(page, 2)
    all_follow(page, tabs)
    return []
