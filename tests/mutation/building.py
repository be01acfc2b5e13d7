"""Compiles a copy of the sources that has all changes in it, and knows which test programs a source reaches."""
import json
import os
import re
import shlex
import subprocess
import sys
from pathlib import Path

import changes as finding

ROOT = Path(__file__).resolve().parents[2]
FOLDER = ROOT / "build" / "mutation"
SOURCE, BUILD = FOLDER / "source", FOLDER / "build"
ROOMS = ["launcher", "events", "barrier", "player", "detect"]


def fail(text):
    sys.exit(f"tests/mutation/run: {text}")


def called(command, **more):
    done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False, **more)
    return done.returncode, done.stdout


def copy_sources():
    """Copies what has changed, so that only that is compiled again. Sources with changes are written by write_changed()."""
    rooms = tuple(f"{room}/" for room in ROOMS)
    for name in called(["git", "ls-files", "-z"], cwd=ROOT)[1].split("\0"):
        waits = name.startswith(rooms) and name.endswith(".cpp") and not name.endswith("_test.cpp")
        if (ROOT / name).is_file() and not (waits and (SOURCE / name).exists()):
            write(SOURCE / name, (ROOT / name).read_bytes(), (ROOT / name).stat().st_mode)


def write(path, content, mode=None):
    if path.exists() and path.read_bytes() == content:
        return
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_bytes(content)
    if mode is not None:
        path.chmod(mode)


def configure():
    flags = "-w -Wno-error -Wno-narrowing -fpermissive"
    status, output = called(["cmake", "-S", str(SOURCE), "-B", str(BUILD), "-G", "Ninja", "-DHOUSE_TESTS=ON",
                             "-DCMAKE_BUILD_TYPE=Debug", f"-DCMAKE_CXX_FLAGS={flags}",
                             "-DCMAKE_EXPORT_COMPILE_COMMANDS=ON"])
    if status != 0:
        fail(output[-3000:])


def arguments_for_clang(command):
    words, kept, skip = shlex.split(command), [], False
    for word in words[1:]:
        if skip:
            skip = False
        elif word in ("-o", "-MF", "-MT", "-MQ", "-include", "-c"):
            skip = word != "-c"
        elif re.match(r"-(I|D|std|isystem)", word):
            kept.append(word)
    return [*kept, "-Wno-everything"]


def chosen_sources(only):
    commands = json.loads((BUILD / "compile_commands.json").read_text())
    for entry in commands:
        name = os.path.relpath(entry["file"], SOURCE)
        room, ending = name.split("/")[0], not re.search(r"(_test|_fixture|/main)\.cpp$", name)
        if room in ROOMS and ending and name.count("/") == 1 and (not only or any(map(name.startswith, only))):
            yield name, entry


def find_changes(only):
    """{source: its changes}, numbered from 1."""
    found, number = {}, 0
    for name, entry in sorted(chosen_sources(only), key=lambda one: one[0]):
        try:
            one = finding.Finder(ROOT / name, arguments_for_clang(entry.get("command") or ""))
        except ValueError as error:
            fail(error)
        for change in sorted(one.changes, key=lambda change: (change.line, change.column)):
            number += 1
            change.number = number
        found[name] = one
    return found


def write_changed(found, without):
    for name, one in found.items():
        kept = [change for change in one.changes if (name, change.key) not in without]
        write(SOURCE / name, finding.changed_source(one.source, kept, "tests/mutation/mutant.h"))


def build(found, targets):
    """Compiles; a line that does not compile with its changes is left as it was. Returns the changes left out."""
    without = set()
    for _ in range(12):
        write_changed(found, without)
        status, output = called(["cmake", "--build", str(BUILD), "-j", str(os.cpu_count()), "--target", *targets,
                                 "--", "-k", "0"])
        if status == 0:
            return without
        lines = {(os.path.relpath(os.path.join(BUILD, file), ROOT), int(line)) for file, line in
                 re.findall(r"^(\S+?):(\d+):\d+: (?:error|note)", output, re.M)}
        lines |= {(os.path.relpath(file, SOURCE), line) for file, line in
                  ((os.path.join(ROOT, name), number) for name, number in lines)}
        blamed = {(name, change.key) for name, one in found.items() for change in one.changes
                  if any(number == change.line and file.endswith(name) for file, number in lines)} - without
        if not blamed:
            fail("the changed sources do not compile:\n" + output[-4000:])
        without |= blamed
    fail("the changed sources do not compile")
    return without


# ---- The tests that reach a source -------------------------------------------------------------------------------
def users_of(target):
    output = called(["ninja", "-C", str(BUILD), "-t", "query", target])[1]
    return re.findall(r"^    (\S+)$", output.split("outputs:")[-1], re.M)


def tests_of(entry):
    """The test programs that link the source: of its own room first."""
    target = os.path.relpath(os.path.join(entry["directory"], entry.get("output") or
                                          re.search(r" -o (\S+)", entry["command"]).group(1)), BUILD)
    tests = set()
    for library in users_of(target):
        for user in users_of(library) if library.endswith(".a") else [library]:
            if re.match(r"tests/\w+_test$", user):
                tests.add(user)
    return tests
