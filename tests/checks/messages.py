"""Finds the messages in the sources that a person sees on the screen or as the reason of a failure.

A message is a text with ANY in place of each part that is only known while the program runs.
"""
import re
from pathlib import Path

ANY = "..."
STRING = re.compile(r'"(?:[^"\\\n]|\\.)*"')
CHARACTER = re.compile(r"'(?:[^'\\\n]|\\.)'")
COMMENT = re.compile(r"//[^\n]*|/\*.*?\*/", re.S)
# Where messages are made: folders, what is before the message, and the place of the message among the arguments.
MAKERS = [
    (["launcher"], r"\bosdPrintf\(", 2),
    (["appliance/gateway/cameras", "appliance/gateway/service"], r"\bFault::\w+,", 0),
    (["appliance/gateway/cameras"], r"\bfailed = ", 0),
    (["appliance/gateway/cameras/camera_url.cpp"], r"\breturn (?=\"\w+ )", 0),
    (["appliance/gateway/service/source_plan.cpp"], r"\bmistake = ", 0),
    (["appliance/players/showing/codec_reason.cpp"], r"\breason = ", 0),
    (["appliance/gateway/warm"], r"\breport\.reason = ", 0),
    (["appliance/gateway/warm"], r"\bevents_\.ended\(|\bonEnded\(", 0),
    (["appliance/gateway/warm/encoder_feed.cpp"], r"\breturn (?=\"\w+ )", 0),
    (["appliance/streams"], r"\breturn (?=\"(?:the|no|there|libcurl|asked) |answer->status|reason_\.empty)", 0),
    (["appliance/streams/rtsp_stream.cpp"], r"\breturn (?=\w+\(method|\"\" \+ |std::string\(method)", 0),
    (["appliance/streams/http_answer.cpp"], r"\bfail\(", 0),
    (["appliance/input"], r"\bInputFailure\{", 0),
    (["appliance/input/main.cpp"], r"FromInput::failure, ", 0),
    (["appliance/input/video_device.cpp"], r"\bfail\(", 0),
    (["appliance/input/web_access.cpp"], r"\breturn (?=place\(\) \+|\"[a-z]+ )", 0),
    (["appliance/streams/stream_description.cpp"], r"\breason = ", 0),
    (["appliance/mqtt"], r"\bRefused\(", 0),
    (["appliance/operating"], r"\bRefused\(", 0),
    (["appliance/operating/muting.cpp"], r"\breturn (?=\"|now)", 0),
    (["appliance/screen/label_content.cpp"], r"\breturn (?=\")", 0),
    (["appliance/screen/wall/stopped_mark.cpp"], r"\bgone = |return (?=stopped|health)", 0),
    (["appliance/bug_report"], r"\bruntime_error\(", 0),
    (["appliance/ctl", "appliance/commands", "appliance/panel/access", "appliance/reporting", "appliance/settings"], r"\bRefused\(", 0),
    (["appliance/commands/parameter_commands.cpp"], r"\breturn (?=name \+ \")", 0),
    (["appliance/discovery"], r"\bruntime_error\(", 0),
    (["appliance/discovery/camera.cpp"], r"\breturn (?=\")", 0),
    (["appliance/reporting/error_words.cpp"], r"ErrorWords\{", 1),
    (["appliance/reporting/error_words.cpp"], r"\breturn (?=found)", 0),
]


def without_comments(text):
    """The text with blanks in place of its comments; strings stay."""
    parts = re.compile(f"{STRING.pattern}|{CHARACTER.pattern}|(?P<comment>{COMMENT.pattern})", re.S)
    return parts.sub(lambda found: re.sub(r"[^\n]", " ", found[0]) if found["comment"] else found[0], text)


def pieces(text, begin):
    """The parts of an expression that begins there, up to its end: strings, brackets and single characters."""
    depth = 0
    while begin < len(text):
        string, character = STRING.match(text, begin), CHARACTER.match(text, begin)
        part = string[0] if string else character[0] if character else text[begin]
        if part in ("(", "[", "{"):
            depth += 1
        elif part in (")", "]", "}"):
            depth -= 1
        if depth < 0 or (part == ";" and depth == 0):
            return
        yield f'"{part[1:-1]}"' if character else part
        begin += len(part)


def split(parts, separator):
    """The parts between separators that are in no bracket."""
    found, depth = [[]], 0
    for part in parts:
        depth += (part in ("(", "[", "{")) - (part in (")", "]", "}"))
        if part == separator and depth == 0:
            found.append([])
        else:
            found[-1].append(part)
    return found


def stripped(parts):
    while parts and parts[0].isspace():
        parts = parts[1:]
    while parts and parts[-1].isspace():
        parts = parts[:-1]
    return parts


def unquoted(part):
    text = part[1:-1].replace('\\"', '"').replace("\\n", " ")
    return re.sub(r"%[-0-9.]*l*[sdu]", ANY, text)


def choices(parts):
    """The two values of "condition ? value : value" or None."""
    question = split(parts, "?")
    if len(question) < 2:
        return None
    values = [part for place, one in enumerate(question[1:]) for part in ([] if place == 0 else ["?"]) + one]
    depth = 0
    for place, part in enumerate(values):
        depth += (part == "?") - (part == ":" and not is_scope(values, place))
        if depth < 0:
            return values[:place], values[place + 1:]
    return None


def is_scope(parts, place):
    return ":" in parts[max(place - 1, 0):place] + parts[place + 1:place + 2]


def term_texts(parts):
    """The texts of a term of a sum: strings side by side, a value in brackets, or something that is only known later."""
    parts = stripped(parts)
    if parts and all(part.startswith('"') or part.isspace() for part in parts):
        return ["".join(unquoted(part) for part in parts if part.startswith('"'))]
    wrapped = re.match(r"std::string\((?=\")", "".join(parts))
    if wrapped:
        parts = parts[len("std::string"):]
    if parts and parts[0] == "(" and parts[-1] == ")":
        return texts(parts[1:-1])
    return [ANY]


def texts(parts):
    """All texts that an expression can have."""
    both = choices(parts)
    if both:
        return texts(both[0]) + texts(both[1])
    found = [""]
    for term in split(parts, "+"):
        found = [before + more for before in found for more in term_texts(term)]
    return [re.sub(rf"({re.escape(ANY)})+", ANY, text) for text in found]


def sources(root, folder):
    place = Path(root) / folder
    files = [place] if place.is_file() else sorted([*place.rglob("*.cpp"), *place.rglob("*.h")])
    return [file for file in files if not re.search(r"_test\.|_fixture\.|/fuzz/|/model/", str(file))]


def said(text):
    """Whether a message says something by itself."""
    return re.search(r"[A-Za-z]{4,}|[A-Za-z']{2,} .*[A-Za-z']{2,}", text) is not None


def messages(root):
    """{message: "file:line" of its first place}."""
    found = {}
    for folders, before, place in MAKERS:
        count = 0
        for file in (file for folder in folders for file in sources(root, folder)):
            text = without_comments(file.read_text())
            for maker in re.finditer(before, text):
                arguments = split(list(pieces(text, maker.end())), ",")
                count += 1
                for message in texts(arguments[place]) if len(arguments) > place else []:
                    line = text.count("\n", 0, maker.start()) + 1
                    if said(message):
                        found.setdefault(message, f"{file.relative_to(root)}:{line}")
        if count == 0:
            raise LookupError(f"nothing in {', '.join(folders)} looks like {before}: MAKERS is out of date")
    return found
