"""What the fault programs counted: their state files, and the table of figures in the page."""
from pathlib import Path

BEGIN = "<!-- figures: made by tests/faults/run -->"
END = "<!-- end of figures -->"


class State:
    """progress.h describes the file."""

    def __init__(self, text):
        self.next, self.total, self.broken, self.figures = 0, 0, 0, []
        for line in text.splitlines():
            key, _, rest = line.partition(" ")
            if key == "figure":
                name, _, value = rest.partition(" ")
                self.figures.append((name, float(value)))
            elif key in ("next", "total", "broken"):
                setattr(self, key, int(rest))
            elif key:
                raise ValueError(f"not a line of a state file: {line}")

    def complete(self):
        return 0 < self.total <= self.next

    def progress(self):
        return f"{self.next} of {self.total}" if self.total else f"{self.next} done"


def read(path):
    return State(path.read_text(encoding="utf-8") if path.exists() else "")


def machine_file(state_file):
    return Path(state_file).with_suffix(".machine")


def remember(state_file, machine):
    """When and where the figures of this program were made."""
    machine_file(state_file).write_text(machine + "\n", encoding="utf-8")


def number(value):
    return f"{value:,.0f}" if value == int(value) else f"{value:,.2f}"


def section(program, folder):
    """The rows of one program; [] if it never ran."""
    state_file = folder / f"{program.name}.state"
    if not state_file.exists() or not machine_file(state_file).exists():
        return []
    state = read(state_file)
    done = f"{state.next:,} of {state.total:,}" if state.total else f"{state.next:,}"
    return [f"**{program.title}** ({machine_file(state_file).read_text(encoding='utf-8').strip()})", "",
            "| figure | value |", "|---|---|", f"| items done | {done} |", f"| broken | {number(state.broken)} |",
            *(f"| {name.replace('-', ' ')} | {number(value)} |" for name, value in state.figures), ""]


def kept_sections(block):
    """The sections of an earlier page by title, so that a machine without their state files keeps them."""
    kept, title = {}, None
    for line in block.splitlines():
        if line.startswith("**"):
            title = line[2:line.index("**", 2)]
            kept[title] = []
        if title:
            kept[title].append(line)
    return kept


def write_page(page, programs, folder):
    """Replaces what is between the two marks of the page."""
    text = page.read_text(encoding="utf-8")
    before, rest = text.split(BEGIN)
    block, after = rest.split(END)
    kept = kept_sections(block)
    lines = []
    for program in programs:
        rows = section(program, folder) or kept.get(program.title, [])
        lines += rows if not rows or rows[-1] == "" else [*rows, ""]
    page.write_text(before + BEGIN + "\n\n" + "\n".join(lines) + END + after, encoding="utf-8")
