"""A decoder with encoders and its panel: the real programs, in a folder of their own."""
import os
import re
import signal
import subprocess
import sys
import tempfile
import time
from pathlib import Path

ROOT = Path(__file__).resolve().parents[3]
sys.path[:0] = [str(ROOT / "tests/peers"), str(ROOT / "tests/checks")]
from decoder import Decoder  # noqa: E402

WIDTH, HEIGHT = 640, 360
PASSWORDS = {"anna": ("admin", "correct-horse-7"), "otto": ("operator", "battery-staple-8"),
             "vera": ("viewer", "window-shopper-9")}


class Source:
    """An encoder with test pictures, and its section in the configuration. With an address: nothing is started, there is
    an encoder or nobody."""

    def __init__(self, name, mark, model="Test camera", keys=None, options=(), address=None):
        self.name, self.mark, self.model, self.keys = name, mark, model, keys or {}
        self.options, self.process, self.address = options, None, address

    def start(self, build):
        if self.address:
            return
        size = [] if "--width" in self.options else ["--width", str(WIDTH), "--height", str(HEIGHT)]
        self.process = subprocess.Popen(
            [build / "bin/video-encoder", "--http", "0", "--name", self.name, "--kinds", "mjpeg", "--mark", str(self.mark),
             "--model", self.model, *size, *self.options], text=True, stdin=subprocess.DEVNULL,
            stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        self.address = f"127.0.0.1:{re.search(r'http=([0-9]+)', self.process.stdout.readline())[1]}"

    def section(self):
        keys = {"Address": self.address, "VideoSourceNumber": "1", "VideoSourceType": "mjpeg", "AutoEnabled": "yes",
                "ManualEnabled": "yes", "DisplayTime": "10", **self.keys}
        return f"\n[Encoder.{self.name}]\n" + "".join(f"{key} = {value}\n" for key, value in keys.items())

    def end(self):
        if self.process:
            self.process.terminate()
            self.process.wait()


def with_settings(text, settings):
    """The configuration with these values: {"Screen.Size": "640x360"}."""
    for name, value in settings.items():
        section, key = name.split(".", 1)
        text, count = re.subn(rf"(?ms)(^\[{section}\]$.*?^){key} *=[^\n]*", rf"\g<1>{key} = {value}", text)
        if not count:
            text += f"\n[{section}]\n{key} = {value}\n"
    return text


class Stage(Decoder):
    """With `settings` ("Decoder.SequenceMode": "manual") and sources; the panel runs and has the accounts of PASSWORDS."""

    def __init__(self, build, sources, settings=()):
        self.folder = tempfile.TemporaryDirectory()
        self.sources, self.panel, self.port = sources, None, 0
        self.settings = {"Screen.Size": f"{WIDTH}x{HEIGHT}", "Screen.ShowName": "no", "Screen.ShowClock": "no",
                         "Sound.Enabled": "no", "Decoder.SequenceMode": "manual", **dict(settings)}
        for source in sources:
            source.start(build)
        super().__init__(build, f"{self.folder.name}/decoder")
        for name, (role, password) in PASSWORDS.items():
            self.must("panel-password", name, "--role", role, answer=f"{password}\n")
        self.start_panel()

    def lay_out(self):
        super().lay_out()
        file = self.root / "etc/decoder/decoder.conf"
        file.write_text(with_settings(file.read_text(), self.settings) + "".join(source.section() for source in self.sources))

    def must(self, *words, answer=""):
        status, said = self.ctl(*words, answer=answer)
        if status != 0:
            raise RuntimeError(f"decoderctl {' '.join(words)}: {said}")
        return said

    def start_panel(self):
        """Starts it on a free port, and later on the same one again."""
        self.panel = self.start("decoder-panel", ["--port", str(self.port)], {"LIBCOMMON_LOG": self.log("decoder")})
        self.wait_for(lambda: re.search(r"port=(\d+)", self.output("decoder-panel")), "decoder-panel does not listen")
        self.port = int(re.search(r"port=(\d+)", self.output("decoder-panel"))[1])

    def stop_panel(self):
        self.running.remove(self.panel)
        self.panel.send_signal(signal.SIGTERM)
        self.panel.wait(10)

    def begin_again(self):
        """For the next scenario with this stage: nobody is logged in, no try is counted, the first source is shown."""
        self.stop_panel()
        self.start_panel()
        self.must("connect")
        self.must("select", "0")

    @property
    def address(self):
        return f"http://127.0.0.1:{self.port}"

    def end(self):
        super().end()
        for source in self.sources:
            source.end()
        self.folder.cleanup()


def wait_until(condition, failure, seconds=20.0, step=0.05):
    """What the condition returns, as soon as it is true."""
    end = time.monotonic() + seconds
    while True:
        result = condition()
        if result:
            return result
        if time.monotonic() > end:
            raise AssertionError(failure if isinstance(failure, str) else failure())
        time.sleep(step)


def build_folder(given):
    return Path(given).resolve() if given else Path(os.environ.get("HOUSE_BUILD", ROOT / "build/release"))
