"""What the display of a virtual machine shows: test pictures, read from copies of the display."""
import os
import shutil
import struct
import subprocess
import time
import zlib

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


class Pixels:
    """A copy of the display, pixel by pixel: a PPM file of the machine's, without comments."""

    def __init__(self, data):
        kind, size, most, self.data = data.split(b"\n", 3)
        self.width, self.height = (int(word) for word in size.split())
        if kind != b"P6" or most != b"255" or len(self.data) != 3 * self.width * self.height:
            raise Failed(f"no PPM picture of a known kind: {kind} {size} {most}")

    def at(self, across, down):
        """The colour there, both as a part of the whole (0 to 1), as three letters: R, G and B for light, - for dark."""
        place = 3 * (int(down * self.height) * self.width + int(across * self.width))
        return "".join(name if value > 96 else "-" for name, value in zip("RGB", self.data[place:place + 3]))

    def top(self):
        """The top quarter."""
        rows = self.height // 4
        return Pixels(b"P6\n%d %d\n255\n" % (self.width, rows) + self.data[:3 * self.width * rows])

    def changed(self, other):
        """How many bytes are other ones."""
        return sum(a != b for a, b in zip(self.data, other.data))


def png_of_xwd(data):
    """A PNG file of what an X server keeps in its file: a header of 32-bit words, a colour map, and BGRX pixels."""
    words = struct.unpack(">25I", data[:100])
    width, height, bits, line, colours = words[4], words[5], words[11], words[12], words[19]
    if bits != 32:
        raise Failed(f"the X server has {bits} bits for a pixel")
    pixels = data[words[0] + 12 * colours:]
    rows = bytearray()
    for y in range(height):
        row = pixels[y * line:y * line + 4 * width]
        rgb = bytearray(3 * width)
        rgb[0::3], rgb[1::3], rgb[2::3] = row[2::4], row[1::4], row[0::4]
        rows += b"\0" + rgb
    chunk = lambda kind, body: (struct.pack(">I", len(body)) + kind + body  # noqa: E731
                                + struct.pack(">I", zlib.crc32(kind + body)))
    return (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", width, height, 8, 2, 0, 0, 0))
            + chunk(b"IDAT", zlib.compress(bytes(rows), 1)) + chunk(b"IEND", b""))


class Display:
    """Looks at the machine's display, and keeps pictures if asked to."""

    def __init__(self, machine, reader, keep):
        self.machine, self.reader, self.keep = machine, reader, keep

    def look(self):
        return self.read(self.machine.screendump())

    def pixels(self):
        with open(self.machine.screendump("now.ppm", "ppm"), "rb") as file:
            return Pixels(file.read())

    def read(self, path):
        """What a PNG picture shows."""
        return Shown([int(word) for word in subprocess.run([self.reader, path], check=True, capture_output=True,
                                                           text=True).stdout.split()])

    def keep_file(self, path, name):
        if self.keep:
            shutil.copy(path, os.path.join(self.keep, f"{name}.png"))

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
