"""Which packages the lists in packaging/ install, and which package a file belongs to."""
import os
import re
import subprocess
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]


def output(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def listed(*names):
    """The packages in the lists, with repetitions."""
    lines = [line for name in names for line in (ROOT / "packaging" / name).read_text().splitlines()]
    return [line for line in lines if line and not line.startswith("#")]


class Installed:
    """The installed packages and what they depend on."""

    def __init__(self):
        self.depends, self.provided_by, self.essential = {}, {}, []
        form = "${Package}\t${Essential}\t${Pre-Depends}, ${Depends}\t${Provides}\t${db:Status-Abbrev}\n"
        for line in output("dpkg-query", "-W", "-f", form).splitlines():
            name, essential, depends, provides, status = line.split("\t")
            if not status.startswith("ii"):
                continue
            self.depends[name] = [[self._name(choice) for choice in group.split("|")]
                                  for group in depends.split(",") if group.strip()]
            for virtual in provides.split(","):
                self.provided_by.setdefault(self._name(virtual), []).append(name)
            if essential == "yes":
                self.essential.append(name)

    @staticmethod
    def _name(text):
        return re.split(r"[ (:]", text.strip())[0]

    def _bring(self, name):
        return [name] if name in self.depends else self.provided_by.get(name, [])

    def closure(self, names):
        """These packages, the essential ones, and all their dependencies."""
        found, waiting = set(), list(names) + self.essential
        while waiting:
            for name in self._bring(waiting.pop()):
                if name not in found:
                    found.add(name)
                    waiting += [choice for group in self.depends[name] for choice in group]
        return found


def spellings(path):
    """The names that dpkg may use for a file: /lib is a link to /usr/lib, and packages use either path."""
    for name in dict.fromkeys((os.path.normpath(path), os.path.realpath(path))):
        yield name
        if name.startswith("/usr/"):
            yield name[len("/usr"):]
        elif re.match(r"/(bin|sbin|lib|lib32|lib64)/", name):
            yield "/usr" + name


def owners(paths):
    """Path -> its package, or None if it belongs to no package."""
    asked = {name: path for path in paths for name in spellings(path)}
    found = dict.fromkeys(paths)
    names = list(asked)
    for start in range(0, len(names), 500):
        # No check: dpkg exits with 1 if it does not know one of the names.
        answer = subprocess.run(["dpkg", "-S", *names[start:start + 500]], capture_output=True, text=True).stdout
        for line in answer.splitlines():
            packages, _, name = line.partition(": ")
            if name in asked and not line.startswith("diversion "):
                found[asked[name]] = packages.split(",")[0].split(":")[0]
    return found
