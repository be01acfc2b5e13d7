"""Charts of samples as SVG: one line of dots for each side, on a logarithmic axis."""
import html
import math

from figures import median, text

LEFT, RIGHT, WIDTH = 330, 860, 900
LINE, HEAD = 22, 26
OURS, THEIRS, GRID, INK = "#1f6f43", "#8a8a8a", "#e3e3e3", "#222222"


def ticks(least, most):
    """The powers of ten around the values."""
    low, high = math.floor(math.log10(least)), math.ceil(math.log10(most))
    return [10.0 ** power for power in range(low, max(high, low + 1) + 1)]


class Axis:
    def __init__(self, values):
        positive = [value for value in values if value > 0] or [1.0]
        self.ticks = ticks(min(positive), max(positive))
        self.low, self.high = math.log10(self.ticks[0]), math.log10(self.ticks[-1])

    def x(self, value):
        share = (math.log10(max(value, self.ticks[0])) - self.low) / (self.high - self.low)
        return LEFT + share * (RIGHT - LEFT)


def label(x, y, words, anchor="end", size=12, colour=INK, bold=False):
    weight = ' font-weight="bold"' if bold else ""
    return (f'<text x="{x:.0f}" y="{y:.0f}" text-anchor="{anchor}" font-size="{size}" fill="{colour}"{weight}>'
            f"{html.escape(words)}</text>")


def dots(title, unit, groups):
    """`groups`: [(heading, [(side, is ours, figures)])]. Sides without figures are left out."""
    groups = [(heading, [side for side in sides if side[2]]) for heading, sides in groups]
    groups = [group for group in groups if group[1]]
    axis = Axis([figure for _, sides in groups for _, _, figures in sides for figure in figures])
    height = 70 + sum(HEAD + LINE * len(sides) for _, sides in groups)
    parts = [f'<svg xmlns="http://www.w3.org/2000/svg" width="{WIDTH}" height="{height}" font-family="sans-serif">',
             f'<rect width="{WIDTH}" height="{height}" fill="white"/>', label(14, 24, title, "start", 15, bold=True)]
    for tick in axis.ticks:
        x = axis.x(tick)
        parts.append(f'<line x1="{x:.0f}" x2="{x:.0f}" y1="40" y2="{height - 24}" stroke="{GRID}"/>')
        parts.append(label(x, height - 8, f"{text(tick)} {unit}", "middle"))
    y = 44
    for heading, sides in groups:
        y += HEAD
        parts.append(label(14, y - 6, heading, "start", 12, bold=True))
        for name, ours, figures in sides:
            y += LINE
            colour = OURS if ours else THEIRS
            parts.append(label(LEFT - 70, y - 6, name, colour=colour))
            parts.append(label(LEFT - 12, y - 6, text(median(figures)), colour=colour, bold=True))
            parts += [f'<circle cx="{axis.x(figure):.1f}" cy="{y - 10}" r="3.5" fill="{colour}" fill-opacity="0.5"/>'
                      for figure in figures]
            x = axis.x(median(figures))
            parts.append(f'<line x1="{x:.1f}" x2="{x:.1f}" y1="{y - 18}" y2="{y - 2}" stroke="{colour}" stroke-width="2"/>')
    return "\n".join(parts + ["</svg>"]) + "\n"
