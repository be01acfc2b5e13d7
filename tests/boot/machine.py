"""A virtual machine with a display: QEMU, driven through its control socket.

Machine starts QEMU in a process of its own, which ends with this one. Pictures are read from the display itself; keys
come from the machine's keyboard; the display changes its size or goes away as with a cable. Commands run in the guest
through its second serial line (guest/test-shell); files come out over a line of their own. Every wait has a limit in seconds; a limit that is over raises Late.
"""
import json
import os
import re
import socket
import struct
import subprocess
import tempfile
import time
from pathlib import Path


class Late(Exception):
    """What should have happened did not happen in time."""


def connect(path, limit):
    """A stream socket to the path, as soon as somebody listens there."""
    end = time.monotonic() + limit
    while True:
        client = socket.socket(socket.AF_UNIX)
        try:
            client.connect(path)
            return client
        except OSError as error:
            client.close()
            if time.monotonic() > end:
                raise Late(f"nobody listens on {path}: {error}") from error
        time.sleep(0.1)


class Control:
    """The control socket: commands with answers, and events in between."""

    def __init__(self, path):
        self.socket = connect(path, 20)
        self.socket.settimeout(60)
        self.file = self.socket.makefile("r")
        self.events = []
        self._line()  # the greeting
        self.command("qmp_capabilities")

    def _line(self):
        try:
            line = self.file.readline()
        except TimeoutError as error:
            raise Late("the virtual machine does not answer") from error
        except ConnectionError:
            line = ""
        if not line:
            raise Late("the virtual machine has ended")
        return json.loads(line)

    def command(self, name, **arguments):
        request = {"execute": name}
        if arguments:
            request["arguments"] = arguments
        self.socket.sendall(json.dumps(request).encode() + b"\n")
        while True:
            answer = self._line()
            if "event" in answer:
                self.events.append(answer)
            elif "error" in answer:
                raise RuntimeError(f"{name}: {answer['error']['desc']}")
            else:
                return answer["return"]

    def wait_event(self, name, limit):
        end = time.monotonic() + limit
        while not any(event["event"] == name for event in self.events):
            if time.monotonic() > end:
                raise Late(f"no event {name} within {limit:.0f} s")
            self.command("query-status")  # collects the events
            time.sleep(0.2)
        return next(event for event in self.events if event["event"] == name)


class DisplayCable:
    """Changes the display's size, or takes it away, as a viewer does that resizes its window (RFB protocol)."""

    def __init__(self, path):
        self.socket = connect(path, 20)
        self.socket.settimeout(20)
        self._take(12)
        self.socket.sendall(b"RFB 003.008\n")
        self._take(self._take(1)[0])  # the kinds of security on offer
        self.socket.sendall(b"\x01")  # none
        self._take(4)
        self.socket.sendall(b"\x01")  # shared
        name_length = struct.unpack(">I", self._take(24)[20:])[0]
        self._take(name_length)
        # Encodings: raw, and the one that allows a viewer to ask for another size.
        self.socket.sendall(struct.pack(">BxHii", 2, 2, 0, -308))

    def _take(self, count):
        data = b""
        while len(data) < count:
            more = self.socket.recv(count - len(data))
            if not more:
                raise Late("the display's connection has ended")
            data += more
        return data

    def resize(self, width, height):
        """0x0 is a display that is switched off or unplugged."""
        self.socket.sendall(struct.pack(">BxHHBx", 251, width, height, 1)
                            + struct.pack(">IHHHHI", 0, 0, 0, width, height, 0))


class Shell:
    """Commands inside the guest."""

    def __init__(self, path):
        self.socket = connect(path, 20)
        self.buffer = b""
        self.number = 0  # of the last command; tells its answer from those to earlier ones

    def wait_for(self, pattern, limit):
        """Everything up to the pattern, and the match."""
        end = time.monotonic() + limit
        while True:
            found = re.search(pattern, self.buffer)
            if found:
                before, self.buffer = self.buffer[:found.start()], self.buffer[found.end():]
                return before.decode(errors="replace"), found
            left = end - time.monotonic()
            if left <= 0:
                raise Late(f"the guest's shell did not answer within {limit:.0f} s")
            self.socket.settimeout(left)
            try:
                more = self.socket.recv(65536)
            except TimeoutError:
                continue
            if not more:
                raise Late("the guest's shell has ended")
            self.buffer += more

    def wait_ready(self, limit):
        """Waits until the shell answers. It does not read what came before it was there."""
        end = time.monotonic() + limit
        while True:
            try:
                self.run("true", 5)
                return
            except Late:
                if time.monotonic() > end:
                    raise

    def run(self, command, limit):
        """(exit status, output) of a line for bash."""
        self.number += 1
        self.socket.sendall(f"{self.number} {command}\n".encode())
        text, found = self.wait_for(rb"\[done %d (\d+)\]\r?\n" % self.number, limit)
        text = text.replace("\r", "")
        return int(found[1]), re.sub(r"(?s).*\[done \d+ \d+\]\n", "", text).strip()


class Machine:
    """One virtual machine. `folder` gets its sockets, its screendumps, the log of its first serial line, and its disk, a
    copy of image/disk."""

    def __init__(self, folder, image, size, disk="disk.img", nice=10):
        self.folder = folder
        self.image = image
        self.disk = disk
        self.nice = nice
        self.size = size
        self.process = None
        self.started = None

    def _arguments(self):
        place = lambda name: os.path.join(self.folder, name)  # noqa: E731
        # Without AVX: with this QEMU's new emulation of it, the drawing code that Mesa compiles at run time ended with
        # segmentation faults in gather instructions.
        processor = "max,avx=off,avx2=off,f16c=off,fma=off"
        # The emulated processor needs no protection from itself, and is slow with it.
        kernel_line = ("root=/dev/vda rw console=tty0 console=ttyS0 loglevel=4 mitigations=off no5lvl "
                       "systemd.show_status=yes systemd.default_timeout_start_sec=300")
        width, height = self.size
        return ["qemu-system-x86_64", "-nodefaults", "-no-user-config", "-no-reboot", "-nic", "none",
                "-machine", "q35", "-accel", "tcg,thread=multi", "-cpu", processor, "-smp", "2", "-m", "1536",
                "-kernel", os.path.join(self.image, "kernel"), "-initrd", os.path.join(self.image, "initrd"),
                "-append", kernel_line, "-drive", f"file={place('disk.img')},if=virtio,format=raw,cache=unsafe",
                "-vga", "none", "-device", f"virtio-vga,edid=on,xres={width},yres={height}",
                "-device", "virtio-rng-pci", "-display", "none", "-vnc", f"unix:{place('vnc')}",
                "-qmp", f"unix:{place('qmp')},server=on,wait=off",
                "-chardev", f"file,id=log,path={place('console.log')}", "-serial", "chardev:log",
                "-chardev", f"socket,id=shell,path={place('shell')},server=on,wait=off", "-serial", "chardev:shell",
                "-chardev", f"file,id=files,path={place('files')},append=on", "-device", "virtio-serial-pci",
                "-device", "virtserialport,chardev=files,name=files"]

    def power_on(self):
        disk = os.path.join(self.folder, "disk.img")
        if not os.path.exists(disk):  # the first time
            subprocess.run(["cp", "--sparse=always", "--reflink=auto", os.path.join(self.image, self.disk), disk],
                           check=True)
        for name in ("vnc", "qmp", "shell"):
            Path(self.folder, name).unlink(missing_ok=True)
        log = open(os.path.join(self.folder, "qemu.log"), "wb")  # noqa: SIM115: QEMU keeps it
        self.started = time.monotonic()
        self.process = subprocess.Popen(["setpriv", "--pdeathsig", "KILL", "nice", "-n", str(self.nice), *self._arguments()],
                                        stdin=subprocess.DEVNULL, stdout=log, stderr=log)
        log.close()
        try:
            self.control = Control(os.path.join(self.folder, "qmp"))
            self.cable = DisplayCable(os.path.join(self.folder, "vnc"))
            # Told once; without that, QEMU takes a display that goes away later for one that was never there.
            self.cable.resize(*self.size)
            self.shell = Shell(os.path.join(self.folder, "shell"))
        except Late:
            with open(os.path.join(self.folder, "qemu.log"), errors="replace") as file:
                print(file.read())
            raise

    def age(self):
        """Seconds since power on."""
        return time.monotonic() - self.started

    def press(self, *keys):
        """Presses keys together, by their QEMU names."""
        self.control.command("send-key", keys=[{"type": "qcode", "data": key} for key in keys], **{"hold-time": 150})

    def type(self, *keys):
        """Presses keys one after the other."""
        for key in keys:
            self.press(key)
            time.sleep(0.4)

    def screendump(self, name="now.png", kind="png"):
        """Saves what the display shows as a picture (png or ppm) and returns its path."""
        path = os.path.join(self.folder, name)
        self.control.command("screendump", filename=path, format=kind)
        return path

    def run(self, command, limit=60):
        return self.shell.run(command, limit)

    def fetch(self, path, limit=60):
        """The content of a file of the guest, which may be large."""
        files = Path(self.folder, "files")
        before = files.stat().st_size
        status, output = self.run(f"stat -Lc %s {path} && cat {path} >/dev/virtio-ports/files", limit)
        if status != 0:
            raise RuntimeError(f"{path} does not come out of the machine: {output}")
        end = time.monotonic() + limit
        while files.stat().st_size < before + int(output):
            if time.monotonic() > end:
                raise Late(f"{path} did not come out of the machine within {limit:.0f} s")
            time.sleep(0.1)
        with open(files, "rb") as file:
            file.seek(before)
            return file.read(int(output))

    def ended(self):
        return self.process.poll() is not None

    def wait_end(self, limit):
        """Waits until the machine has switched itself off."""
        try:
            self.process.wait(limit)
        except subprocess.TimeoutExpired as error:
            raise Late(f"the machine is still on after {limit:.0f} s") from error

    def close(self):
        if self.process and self.process.poll() is None:
            self.process.kill()
            self.process.wait()


def journal_of(machine):
    """The system's log on the disk of a machine that was switched off."""
    folder = tempfile.mkdtemp(dir=machine.folder)
    disk = os.path.join(machine.folder, "disk.img")
    subprocess.run(["debugfs", "-R", f"rdump /var/log/journal {folder}", disk], check=True, capture_output=True)
    log = next(Path(folder).rglob("system.journal")).parent
    return subprocess.run(["journalctl", "-q", "--no-pager", "-D", str(log)], check=True, capture_output=True,
                          text=True).stdout
