"""Prints the table, and writes the figures into docs/performance.md.

Only the text between two marks in the page is replaced. The rest, which explains the figures, is written by hand.
"""
import dataclasses
import re

import charts
from figures import judge, ratios, spread, text

BEGIN = "<!-- figures: written by bench/run -->"
END = "<!-- end of the figures -->"
PART_NAMES = {"part-launch": "select to launch", "part-picture": "launch to first picture",
              "part-handover": "to the end of the old player", "part-display": "to the display"}


@dataclasses.dataclass
class Line:
    """A row with its figures."""
    row: object
    ours: list
    others: dict    # name -> figures
    missing: dict   # name -> why
    verdict: object


def fill(rows, results):
    lines = []
    for row in rows:
        ours = results.figures(*row.ours)
        others = {name: results.figures(*place) for name, place in row.beside.items()}
        missing = {name: results.why_missing(*row.beside[name]) for name, figures in others.items() if not figures}
        others = {name: figures for name, figures in others.items() if figures}
        why = "" if ours else results.why_missing(*row.ours)
        lines.append(Line(row, ours, others, missing, judge(row.goals, ours, others, why)))
    return lines


def ratio_text(ours, theirs):
    """How many times the others take, or how much of it we take, with a spread."""
    middle, low, high = ratios(theirs, ours)
    if middle >= 1:
        return f"1 : {text(middle)}" + (f" ({text(low)} to {text(high)})" if len(ours) > 1 else "")
    middle, low, high = ratios(ours, theirs)
    return f"{text(middle)} : 1" + (f" ({text(low)} to {text(high)})" if len(ours) > 1 else "")


def cells(line):
    """The table's cells: what, ours, limit or peers, ratios, goal, verdict. The middle two have a line for each side."""
    beside = [f"{name} {spread(figures)}" for name, figures in line.others.items()]
    found = [ratio_text(line.ours, figures) if line.ours else "-" for figures in line.others.values()]
    for name, why in line.missing.items():
        beside.append(f"{name}: {why}")
        found.append("-")
    unit = f" {line.row.unit}" if line.row.unit else ""
    ours = spread(line.ours) + unit if line.ours else "-"
    goal = ", ".join(str(goal) for goal in line.row.goals) or "-"
    return [line.row.title, ours, beside or ["-"], found or ["-"], goal, line.verdict.words]


def printed(lines):
    """The table for a terminal."""
    heading = ["row", "ours", "beside", "ratio", "goal", "verdict"]
    table = [heading]
    for line in lines:
        title, ours, beside, found, goal, verdict = cells(line)
        for i, (name, number) in enumerate(zip(beside, found)):
            table.append([title, ours, name, number, goal, verdict] if i == 0 else ["", "", name, number, "", ""])
    widths = [min(46, max(len(row[column]) for row in table)) for column in range(5)]
    return "\n".join("  ".join(cell.ljust(width) for cell, width in zip(row, widths)) + "  " + row[5]
                     for row in table)


def markdown_table(lines):
    rows = ["| row | ours | beside | ratio | goal | verdict |", "|---|---|---|---|---|---|"]
    for line in lines:
        title, ours, beside, found, goal, verdict = cells(line)
        texts = [title, ours, "<br>".join(beside), "<br>".join(found), goal, verdict]
        rows.append("| " + " | ".join(cell.replace("|", "\\|").replace("<=", "≤") for cell in texts) + " |")
    return "\n".join(rows)


def parts_table(results, places):
    """Where the time of our answers goes, for each (heading, measurement, side) with figures."""
    rows = []
    for heading, measurement, side in places:
        figures = [results.figures(measurement, part, side) for part in PART_NAMES]
        if all(figures):
            rows.append(f"| {heading} | " + " | ".join(spread(part) for part in figures) + " |")
    if not rows:
        return ""
    return "\n".join(["| ms | " + " | ".join(PART_NAMES.values()) + " |", "|---" * (len(PART_NAMES) + 1) + "|", *rows])


def chart_of(lines, group, title):
    groups = {}
    for line in lines:
        if line.row.group != group or "screen " not in line.row.ours[0]:
            continue
        heading = line.row.ours[0].removeprefix("screen ")
        sides = groups.setdefault(heading, {})
        sides["decoder, " + line.row.ours[2].removeprefix("ours-")] = (True, line.ours)
        for name, figures in line.others.items():
            sides[name] = (False, figures)
    listed = [(heading, [(name, ours, figures) for name, (ours, figures) in
                         sorted(sides.items(), key=lambda side: not side[1][0])]) for heading, sides in groups.items()]
    return charts.dots(title, "ms", listed) if any(figures for _, sides in listed for _, _, figures in sides) else ""


def replace_figures(page, figures):
    """The page with other figures between its marks."""
    if BEGIN not in page or END not in page:
        raise ValueError(f"the page has no place for the figures: {BEGIN} ... {END}")
    return re.sub(re.escape(BEGIN) + ".*" + re.escape(END), lambda _: f"{BEGIN}\n\n{figures}\n\n{END}", page,
                  flags=re.DOTALL)


def write(path, lines, results, facts, places):
    """Writes page and charts. `facts`: lines about machine and date. The charts are beside the page."""
    sections = ["\n".join(f"- {fact}" for fact in facts), markdown_table(lines)]
    for group, title in (("answer", "From the request to the first picture of the new source"),
                         ("gap", "From the last picture of the old source to the first of the new one")):
        chart = chart_of(lines, group, title)
        if chart:
            file = path.parent / f"{path.stem}-{group}s.svg"
            file.write_text(chart, encoding="utf-8")
            sections.append(f"![{title}]({file.name})")
    parts = parts_table(results, places)
    if parts:
        sections.append("Where the time of the decoder's answers goes:\n\n" + parts)
    page = path.read_text(encoding="utf-8") if path.exists() else f"# Performance\n\n{BEGIN}\n{END}\n"
    path.write_text(replace_figures(page, "\n\n".join(sections)), encoding="utf-8")
