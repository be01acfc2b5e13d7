"""The arithmetic of the table: medians, spreads, ratios, and whether a goal is met.

A side of a row is a list of figures in the order in which they were measured. Smaller is better in every row.
"""
import dataclasses
import math
import statistics


def median(figures):
    return statistics.median(figures)


def quantile(figures, share):
    """By nearest rank; share is 0 to 1."""
    ordered = sorted(figures)
    return ordered[max(0, min(len(ordered), math.ceil(share * len(ordered))) - 1)]


def ratio(over, under):
    """over / under; infinite when only the second one is 0, 1 when both are."""
    if under == 0:
        return 1.0 if over == 0 else math.inf
    return over / under


def ratios(over, under):
    """The median ratio of two sides, and the quarter and three quarters of the ratios of figures measured in turn."""
    pairs = [ratio(first, second) for first, second in zip(over, under)]
    return ratio(median(over), median(under)), quantile(pairs, 0.25), quantile(pairs, 0.75)


def text(figure):
    """Three digits that count: 0.123, 1.23, 12.3, 123, 1234."""
    if math.isinf(figure):
        return "∞"
    if figure == 0:
        return "0"
    digits = max(0, 2 - math.floor(math.log10(abs(figure))))
    return f"{figure:.{min(digits, 3)}f}"


def spread(figures):
    """Median with the smallest and the largest figure."""
    if len(figures) == 1:
        return text(figures[0])
    return f"{text(median(figures))} ({text(min(figures))} to {text(max(figures))})"


@dataclasses.dataclass
class Finding:
    """One goal of a row."""
    met: bool
    words: str  # why not, or by how much


@dataclasses.dataclass
class AtMost:
    """The median or the worst figure has a limit."""
    limit: float
    worst: bool = False

    def __str__(self):
        return f"{'worst' if self.worst else 'median'} ≤ {text(self.limit)}"

    def check(self, ours, _others):
        value = max(ours) if self.worst else median(ours)
        over = value - self.limit
        return [Finding(over <= 0, f"{self}: {text(value)}" + (f", {text(over)} over" if over > 0 else ""))]


@dataclasses.dataclass
class TimesFaster:
    """At least that many times faster than each of these sides; without names, than every other side."""
    times: float
    names: tuple = ()
    strictly: bool = False

    def __str__(self):
        if self.times == 1:
            return "less than each" if self.strictly else "no slower than the fastest"
        return f"{text(self.times)} times faster than each"

    def check(self, ours, others):
        findings = []
        for name, theirs in others.items():
            if self.names and name not in self.names:
                continue
            found = ratio(median(theirs), median(ours))
            met = found > self.times if self.strictly else found >= self.times
            findings.append(Finding(met, f"{text(found)} times {name}"))
        if not findings:
            return [Finding(False, f"{self}: nothing to compare with")]
        missed = [one for one in findings if not one.met]
        return missed or [Finding(True, f"{self}: " + ", ".join(one.words for one in findings))]


@dataclasses.dataclass
class RatioAtMost:
    """Our median is at most that many times the other side's."""
    limit: float
    name: str

    def __str__(self):
        return f"≤ {text(self.limit)} x {self.name}"

    def check(self, ours, others):
        if self.name not in others:
            return [Finding(False, f"{self}: {self.name} was not measured")]
        found = ratio(median(ours), median(others[self.name]))
        return [Finding(found <= self.limit, f"{self}: {text(found)}")]


@dataclasses.dataclass
class MoreAtMost:
    """Our median exceeds the other side's by at most that much."""
    limit: float
    name: str

    def __str__(self):
        return f"≤ {self.name} + {text(self.limit)}"

    def check(self, ours, others):
        if self.name not in others:
            return [Finding(False, f"{self}: {self.name} was not measured")]
        more = median(ours) - median(others[self.name])
        return [Finding(more <= self.limit, f"{self}: {text(more)} more")]


@dataclasses.dataclass
class Verdict:
    words: str  # "met", "missed: ...", "not measured: ...", "printed"
    findings: list

    @property
    def missed(self):
        return self.words.startswith("missed")


def judge(goals, ours, others, why_missing=""):
    """The verdict of a row. `ours`: figures, or nothing; `others`: name -> figures."""
    if not ours:
        return Verdict(f"not measured: {why_missing or 'no figure'}", [])
    if not goals:
        return Verdict("printed", [])
    findings = [finding for goal in goals for finding in goal.check(ours, others)]
    missed = [finding.words for finding in findings if not finding.met]
    return Verdict("missed: " + "; ".join(missed) if missed else "met", findings)
