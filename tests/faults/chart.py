"""A chart of what a soak held, as SVG: one line for each thing, each with its own scale that begins at zero."""
import html
from pathlib import Path

NAMES = ["private memory, kB", "descriptors", "threads", "queues", "semaphore sets", "files", "shared memory, kB"]
WIDTH, LEFT, RIGHT, ROW, TOP = 900, 200, 810, 46, 50
LINE, GRID, INK = "#1f6f43", "#e3e3e3", "#222222"
POINTS = 300  # more can't be seen


def rows(path):
    """The looks: [item, private memory, ...]; later looks at the same item replace earlier ones."""
    looks = {}
    for line in Path(path).read_text(encoding="utf-8").splitlines():
        values = [float(value) for value in line.split(",")]
        if len(values) == len(NAMES) + 1:
            looks[values[0]] = values
    return [looks[item] for item in sorted(looks)]


def words(x, y, content, anchor="start", size=12, bold=False):
    weight = ' font-weight="bold"' if bold else ""
    return (f'<text x="{x:.0f}" y="{y:.0f}" text-anchor="{anchor}" font-size="{size}" fill="{INK}"{weight}>'
            f"{html.escape(content)}</text>")


def curve(values, y):
    most = max(values) or 1.0
    step = max(1, len(values) // POINTS)
    places = [(LEFT + (RIGHT - LEFT) * i / max(1, len(values) - 1), y - 30 * values[i] / most)
              for i in range(0, len(values), step)]
    return '<polyline fill="none" stroke="%s" stroke-width="1.5" points="%s"/>' % (
        LINE, " ".join(f"{x:.1f},{at:.1f}" for x, at in places))


def chart(title, looks, unit):
    height = TOP + ROW * len(NAMES) + 26
    parts = [f'<svg xmlns="http://www.w3.org/2000/svg" width="{WIDTH}" height="{height}" font-family="sans-serif">',
             f'<rect width="{WIDTH}" height="{height}" fill="white"/>', words(14, 24, title, size=15, bold=True)]
    for number, name in enumerate(NAMES, 1):
        values = [look[number] for look in looks]
        y = TOP + ROW * number - 8
        parts += [f'<line x1="{LEFT}" x2="{RIGHT}" y1="{y}" y2="{y}" stroke="{GRID}"/>', words(14, y - 10, name),
                  curve(values, y), words(RIGHT + 8, y - 16, f"first {values[0]:,.0f}", size=11),
                  words(RIGHT + 8, y - 2, f"last {values[-1]:,.0f}", size=11)]
    parts += [words(LEFT, height - 8, "0", "middle", 11),
              words(RIGHT, height - 8, f"{looks[-1][0] + 1:,.0f} {unit}", "middle", 11)]
    return "\n".join(parts + ["</svg>"]) + "\n"


def write_all(folder, docs):
    """Charts of the soaks that this machine has run."""
    for name, title, unit in (("soak-tiny", "Switches with tiny players", "blocks of 100"),
                              ("soak-real", "Switches with real players", "blocks of 25"),
                              ("soak-day", "Simulated hours of a decoder", "hours")):
        data = Path(folder) / f"{name}.state.csv"
        if data.exists() and len(looks := rows(data)) > 1:
            (Path(docs) / f"reliability-{name}.svg").write_text(chart(title, looks, unit), encoding="utf-8")
