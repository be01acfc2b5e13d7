"""Plays a story in a virtual machine: one step after the other, each with what it found."""
import fcntl
import os
import re
import shutil
import sys
import time
from pathlib import Path

from display import Failed
from machine import Late

ROOT = Path(__file__).resolve().parents[2]
CACHE = ROOT / "build" / "boot"
NEEDED = {"qemu-system-x86_64": "qemu-system-x86", "mmdebstrap": "mmdebstrap", "mke2fs": "e2fsprogs",
          "debugfs": "e2fsprogs", "journalctl": "systemd", "setpriv": "util-linux", "cmake": "cmake"}
LARGEST_EXPOSURE = 2.0  # docs/packages.md tells the present ones


def skip(reason):
    print(f"Skipped: {reason}")
    sys.exit(77)


def check_tools():
    missing = sorted({package for program, package in NEEDED.items() if not shutil.which(program)})
    if missing:
        skip("this machine has no " + ", ".join(missing) + " (apt-get install " + " ".join(missing) + ")")
    if os.uname().machine != "x86_64":
        skip(f"the disk is for x86_64, this machine is {os.uname().machine}")
    if os.geteuid() != 0:
        skip("making the disk needs root")


def one_at_a_time():
    CACHE.mkdir(parents=True, exist_ok=True)
    lock = open(CACHE / "lock", "w")  # noqa: SIM115: held until the end
    try:
        fcntl.flock(lock, fcntl.LOCK_EX | fcntl.LOCK_NB)
    except OSError:
        sys.exit("one is running already")
    return lock


def tell(started, name, text):
    print(f"{time.monotonic() - started:7.1f} s  {name}: {text}", flush=True)


def play(steps, names, started):
    """Plays the steps in order. True when all passed."""
    passed = True
    for name in names:
        step = getattr(steps, name)
        try:
            tell(started, step.__doc__, step())
        except (Failed, Late, RuntimeError) as error:
            tell(started, step.__doc__, f"FAILED: {error}")
            steps.display.keep_failed(name)
            passed = False
            if name in ("power_on", "install") or steps.machine.ended():
                break
    return passed


class Guest:
    """What the steps of each story do in the machine."""

    def __init__(self, machine, limit):
        self.machine, self.limit = machine, limit

    def guest(self, command, limit=None):
        """The output of a command in the machine, which must succeed."""
        status, output = self.machine.run(command, limit or self.limit)
        if status != 0:
            raise Failed(f"in the machine: {command}: exit status {status}: {output}")
        return output

    def exposure(self, unit, runner="", manager=""):
        """What the unit may do, by systemd's measure (0 to 10)."""
        text = self.guest(f"{runner} env SYSTEMD_COLORS=0 SYSTEMD_URLIFY=0 systemd-analyze security --no-pager {manager} {unit}",
                          4 * self.limit)
        level = float(re.search(r"Overall exposure level for \S+: ([\d.]+)", text)[1])
        if level > LARGEST_EXPOSURE:
            raise Failed(f"{unit}: {level}, more than {LARGEST_EXPOSURE}:\n{text}")
        return level
