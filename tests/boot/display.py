"""What the display of a virtual machine shows: test pictures, read from copies of the display."""
import os
import shutil
import subprocess
import time

from machine import Late


class Failed(Exception):
    """A step did not happen as it should."""


class Shown:
    """A screendump, read."""

    def __init__(self, numbers):
        self.size = tuple(numbers[:2])
        self.light = numbers[2]  # percent
        self.source, self.counter = (numbers[3], numbers[4]) if len(numbers) > 3 else (None, None)
        self.place = tuple(numbers[5:9]) if len(numbers) > 3 else None

    def __str__(self):
        size = "{}x{}".format(*self.size)
        if self.source is None:
            return f"{size}, no test picture, {self.light} % light"
        return "{}, source {}, frame {}, {}x{} at {},{}".format(
            size, self.source, self.counter, self.place[2], self.place[3], *self.place[:2])


class Display:
    """Looks at the machine's display, and keeps pictures if asked to."""

    def __init__(self, machine, reader, keep):
        self.machine, self.reader, self.keep = machine, reader, keep

    def look(self):
        path = self.machine.screendump()
        return Shown([int(word) for word in subprocess.run([self.reader, path], check=True, capture_output=True,
                                                           text=True).stdout.split()])

    def keep_as(self, name):
        if self.keep:
            shutil.copy(self.machine.screendump(), os.path.join(self.keep, f"{name}.png"))

    def keep_failed(self, name):
        """What the display shows after a failed step, if the machine still answers."""
        try:
            self.keep_as(f"failed-{name}")
        except (Late, RuntimeError):
            print("the machine does not show its display any more")

    def until(self, what, condition, limit):
        """The first look for which the condition holds."""
        end = time.monotonic() + limit
        while True:
            shown = self.look()
            if condition(shown):
                return shown
            if time.monotonic() > end:
                raise Failed(f"not within {limit} s: {what}; the display shows {shown}")
            time.sleep(0.5)

    def until_moving(self, limit, source=None, size=None):
        """The picture of that source, on a display of that size, with two different frames of it."""
        wanted = lambda shown: (shown.source is not None and source in (None, shown.source)  # noqa: E731
                                and size in (None, shown.size))
        what = "a picture" + (f" of source {source}" if source else "") + (" on {}x{}".format(*size) if size else "")
        start = time.monotonic()
        first = self.until(what, wanted, limit)
        return self.until(what + " that moves", lambda shown: wanted(shown) and shown.source == first.source
                          and shown.counter != first.counter, limit - (time.monotonic() - start) + 10)
