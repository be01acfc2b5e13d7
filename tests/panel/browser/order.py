"""Changing the order of the sources without the keyboard: by mouse, by touch, and by taps."""
from scenarios import check, scenario
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys
from stage import Source

# Many sources that are never shown, so that the list is longer than what is seen.
SILENT = ["Garage", "Roof", "Cellar", "Gate", "Lift", "Stairs", "Kitchen"]


def many_sources():
    return [Source("Front door", 11), *(Source(name, 0, address="127.0.0.1:9") for name in SILENT)]


def names(page):
    return page.stage.ctl("sources", "--names")[1].splitlines()


def shown_names(page):
    return page.script("return [...document.querySelectorAll('.card-name')].map((name) => name.textContent)")


def until_order(page, wanted):
    """The decoder has the order, and so has the page, which is ready for the next move."""
    page.until(lambda: names(page) == wanted, lambda: f"the order is {names(page)}, not {wanted}")
    page.until(lambda: shown_names(page) == wanted and not page.all(".source.held, #cards[aria-busy]"),
               lambda: f"the page shows {shown_names(page)}")


def moved(order, name, place):
    rest = [other for other in order if other != name]
    return [*rest[:place], name, *rest[place:]]


def handle(page, name):
    return page.card(name).find_element(By.CSS_SELECTOR, ".handle")


def middle(page, element):
    """The point that a finger or a mouse meets."""
    return page.script("const box = arguments[0].getBoundingClientRect();"
                       "return [box.left + box.width / 2, box.top + box.height / 2].map(Math.round)", element)


class Mouse:
    """The browser's own events, as from a mouse: they pass what a real one passes."""

    down, move, up = "mousePressed", "mouseMoved", "mouseReleased"

    def __init__(self, page):
        self.page = page

    def send(self, kind, x, y):
        self.page.command("Input.dispatchMouseEvent", type=kind, x=x, y=y, button="left", clickCount=1,
                          buttons=0 if kind == self.up else 1, pointerType="mouse")


class Finger:
    down, move, up = "touchStart", "touchMove", "touchEnd"

    def __init__(self, page):
        self.page = page
        page.command("Emulation.setTouchEmulationEnabled", enabled=True)

    def send(self, kind, x, y):
        self.page.command("Input.dispatchTouchEvent", type=kind, touchPoints=[] if kind == self.up else [{"x": x, "y": y}])


def bring(page, name):
    """The middle of the source's handle, after it has been scrolled to where it is seen."""
    element = handle(page, name)
    page.script("arguments[0].scrollIntoView({block: 'center', behavior: 'instant'})", element)
    page.settle()
    return middle(page, element)


def drag(page, pointer, name, x, y, steps=8):
    """Picks up the source, which is seen, and goes to that point; the pointer stays down."""
    from_x, from_y = middle(page, handle(page, name))
    pointer.send(pointer.down, from_x, from_y)
    for step in range(1, steps + 1):
        pointer.send(pointer.move, from_x + (x - from_x) * step // steps, from_y + (y - from_y) * step // steps)


def drag_to(page, pointer, name, other):
    """Drags a source to the place of another one that is seen, and lets go there."""
    _, middle_y = bring(page, name)
    box = page.script("const {top, bottom, left} = arguments[0].getBoundingClientRect(); return [top, bottom, left]",
                      page.card(other))
    down = box[0] > middle_y
    x, y = round(box[2] + 30), round(box[1] - 4 if down else box[0] + 4)
    place = shown_names(page).index(other)
    drag(page, pointer, name, x, y)
    page.until(lambda: shown_names(page).index(name) == place, lambda: f"the list does not follow: {shown_names(page)}")
    pointer.send(pointer.up, x, y)


def drags(page, pointer):
    order = names(page)
    drag_to(page, pointer, order[0], order[2])
    order = moved(order, order[0], 2)
    until_order(page, order)
    drag_to(page, pointer, order[2], order[1])
    order = moved(order, order[2], 1)
    until_order(page, order)
    check(page.focus().get_attribute("aria-label") == f"Move {order[1]}", "the focus is not where the source was put")
    drag_over_the_edge(page, pointer, order)
    order = moved(order, order[0], len(order) - 1)
    until_order(page, order)
    put_back(page, pointer, order)
    tap(page, pointer, order)


def drag_over_the_edge(page, pointer, order):
    """At the lower edge the list scrolls on, until the source is the last one."""
    tabs = page.script("return [innerHeight, document.getElementById('tabs').getBoundingClientRect().top]")
    bottom = tabs[1] if tabs[1] > tabs[0] / 2 else tabs[0]
    x, _ = bring(page, order[0])
    drag(page, pointer, order[0], x, round(bottom) - 12)
    page.until(lambda: shown_names(page)[-1] == order[0], lambda: f"the list does not scroll on: {shown_names(page)}")
    check(names(page) == order, "the order was sent before the source was put down")
    pointer.send(pointer.up, x, round(bottom) - 12)


def put_back(page, pointer, order):
    """Escape ends a drag, and nothing has changed."""
    x, y = bring(page, order[-1])
    drag(page, pointer, order[-1], x, y - round(page.card(order[-3]).rect["height"] * 1.5))
    page.until(lambda: shown_names(page)[-1] != order[-1], "the list does not follow")
    page.keys(Keys.ESCAPE)
    page.until(lambda: shown_names(page) == order, "Escape does not put the source back")
    pointer.send(pointer.up, x, y)
    until_order(page, order)


def tap(page, pointer, order):
    """A tap on one handle and a tap on another: nothing has to be dragged."""
    for name in (order[-1], order[-3]):
        x, y = bring(page, name)
        pointer.send(pointer.down, x, y)
        pointer.send(pointer.up, x, y)
        if name == order[-1]:
            page.until_text("#said", f"{name} is picked up")
    until_order(page, moved(order, order[-1], len(order) - 3))


@scenario("SourcesAreDraggedByMouse", many_sources)
def by_mouse(_, pages):
    page = pages.open()
    page.enter()
    drags(page, Mouse(page))
    return []


@scenario("SourcesAreDraggedByTouch", many_sources)
def by_touch(_, pages):
    page = pages.open(width=360, height=740)
    page.enter()
    drags(page, Finger(page))
    return []
