"""Reads the documents for their checks: pages, links, blocks and code spans."""
import re
from dataclasses import dataclass
from pathlib import Path

LANGUAGES = {"sh", "ini", "unit", "text", "mermaid"}
PROGRAMS = ("./run", "./test", "decoderctl", "video-encoder", "skelmor", "decoder-monitor", "decoder-address", "camera-gateway", "decoder-mqtt",
            "blankscreen", "resetrua",
            "mjpeg_player", "mpeg4player", "unicastplayer", "multicastplayer",
            "switch_bench", "kinds_bench", "detection_bench", "monitor_bench")
FENCE = re.compile(r"^\s*(`{3,}|~{3,})\s*(\S*)\s*$")
# The beginning of a command in an indented block: our programs, and other tools.
COMMAND = re.compile(r"^(\./|build/|(sudo|cmake|curl|mkdir|decoderctl|video-encoder|decoder-\w+|gst-\S+|ff\w+)\s)")


@dataclass
class Block:
    line: int  # the number of its first line of text
    language: str  # one of LANGUAGES, or the word after a fence
    text: list
    fenced: bool

    def commands(self):
        """(line, command) of each command of a shell block, without comments."""
        if self.language != "sh":
            return
        for number, line in enumerate(self.text, self.line):
            command = re.sub(r"\s+#\s.*$|\s{3,}\S.*$", "", line.strip())
            if command and not command.startswith("#"):
                yield number, command


def pages(root):
    return [Path(root) / "README.md", *sorted((Path(root) / "docs").rglob("*.md"))]


def language_of(lines):
    """Guesses the language of an indented block, which does not name it."""
    if re.match(r"^\[[^\]]+\]$", lines[0].strip()):
        return "ini"
    return "sh" if any(COMMAND.match(line.strip() + " ") for line in lines) else "text"


def blocks(page):
    """The fenced and the indented blocks of a page."""
    found, lines, number = [], page.read_text().splitlines(), 0
    in_list = False
    while number < len(lines):
        fence = FENCE.match(lines[number])
        start = number
        if fence:
            number += 1
            while number < len(lines) and not lines[number].strip().startswith(fence[1]):
                number += 1
            found.append(Block(start + 2, fence[2], lines[start + 1:number], True))
        elif lines[number].startswith("    ") and not in_list and (number == 0 or not lines[number - 1].strip()):
            while number + 1 < len(lines) and (lines[number + 1].startswith("    ") or not lines[number + 1].strip()):
                number += 1
            text = [line[4:] for line in lines[start:number + 1]]
            while not text[-1].strip():
                text.pop()
            found.append(Block(start + 1, language_of(text), text, False))
        elif lines[number].strip():
            in_list = bool(re.match(r"^\s*([-*]|\d+\.)\s", lines[number])) or (in_list and lines[number].startswith(" "))
        number += 1
    return found


def prose(page):
    """(line number, line) of each line outside of blocks."""
    inside = {number for block in blocks(page) for number in range(block.line, block.line + len(block.text))}
    for number, line in enumerate(page.read_text().splitlines(), 1):
        if number not in inside:
            yield number, line


def spans(page):
    """(line number, text) of each piece of code within the prose."""
    for number, line in prose(page):
        for text in re.findall(r"`([^`]+)`", line):
            yield number, text


def links(page):
    """(line number, target, anchor) of each link to another place of this repository."""
    for number, line in prose(page):
        for target in re.findall(r"\]\(([^)\s]+)\)", line):
            if not re.match(r"\w+:", target):
                file, _, anchor = target.partition("#")
                yield number, (page.parent / file).resolve() if file else page.resolve(), anchor


def anchors(page):
    """The anchors of a page's headings."""
    for _, line in prose(page):
        heading = re.match(r"^#+\s+(.*)$", line)
        if heading:
            yield re.sub(r"[^\w\- ]", "", heading[1].lower()).replace(" ", "-")
