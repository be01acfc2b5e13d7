"""A decoder in a folder of its own, with the built programs: camera-gateway, skelmor and its players."""
import os
import re
import shutil
import signal
import subprocess
import time
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
MARK = 77  # the number in the mark of the test pictures


def cpu_seconds(pids):
    """The processor time that these processes have used; one that has ended counts nothing."""
    total = 0
    for pid in pids:
        try:
            fields = Path(f"/proc/{pid}/stat").read_text().rsplit(")", 1)[1].split()
            total += (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")
        except OSError:
            pass
    return total


class Decoder:
    def __init__(self, build, folder):
        self.bin, self.tests, self.root = build / "bin", build / "tests", Path(folder)
        self.environment = {**os.environ, "APPLIANCE_ROOT": str(self.root),
                            "PATH": f"{self.root}/bin:{os.environ['PATH']}"}
        self.running = []
        self.lay_out()
        self.gateway = self.start("camera-gateway", ["--port", "0"], {"LIBCOMMON_LOG": self.log("gateway")})
        self.wait_for(lambda: "port=" in self.output("camera-gateway"), "camera-gateway does not listen")
        self.supervisor = self.start("skelmor", [], {"LIBCOMMON_LOG": self.log("decoder")})
        self.wait_for(lambda: self.ctl("status")[0] == 0, "skelmor does not start")

    def lay_out(self):
        for folder in ("etc/decoder", "run/decoder", "var/tmp", "var/log", "bin", "proc/sys/dev"):
            (self.root / folder).mkdir(parents=True)
        os.mkfifo(self.root / "proc/sys/dev/button_videoselect")
        for program in self.bin.iterdir():
            (self.root / "bin" / program.name).symlink_to(program)
        sample = (ROOT / "packaging/decoder.conf").read_text().split("# ---- Sources")[0]
        (self.root / "etc/decoder/decoder.conf").write_text(sample)

    def log(self, name):
        return str(self.root / f"var/log/{name}.log")

    def output(self, program):
        return (self.root / f"var/log/{program}.out").read_text()

    def start(self, program, arguments, environment):
        with open(self.root / f"var/log/{program}.out", "w") as output:
            process = subprocess.Popen([self.bin / program, *arguments], env={**self.environment, **environment},
                                       stdin=subprocess.DEVNULL, stdout=output, stderr=output, start_new_session=True)
        self.running.append(process)
        return process

    @staticmethod
    def wait_for(condition, failure, seconds=20):
        end = time.monotonic() + seconds
        while not condition():
            if time.monotonic() > end:
                raise RuntimeError(failure)
            time.sleep(0.05)

    def ctl(self, *words, answer=""):
        """(exit status, output) of decoderctl."""
        try:
            done = subprocess.run([self.bin / "decoderctl", *words], env=self.environment, input=answer, text=True,
                                  stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=45)
            return done.returncode, done.stdout.strip().removeprefix("decoderctl: ")
        except subprocess.TimeoutExpired:
            return 1, "decoderctl does not answer within 45 s"

    def add(self, url, password=None):
        """(whether it was added, what decoderctl says); the new source is called Camera."""
        words = ["add", "Camera", url] + (["--user", "viewer", "--password-stdin"] if password else [])
        status, said = self.ctl(*words, answer=f"{password}\n" if password else "")
        if status == 0:
            self.bring_into_force(said)
        return status == 0, said

    def bring_into_force(self, said):
        """What a user types next where decoderctl says that the source is not in force yet."""
        if "decoderctl apply" in said or "when the decoder connects" in said:
            self.wait_for(lambda: all(self.ctl("get", f"Encoder.Camera.{key}")[1] for key in ("Address", "Compression")),
                          "camera-gateway does not complete the source")
            self.ctl("apply")
            self.ctl("connect")

    def watch(self, limit, seconds):
        """A process that prints "first" when the camera's pictures move, and then counts them."""
        return subprocess.Popen([self.tests / "screen_watch", str(MARK), str(limit), str(seconds)], text=True,
                                env=self.environment, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)

    def player_pids(self):
        found = []
        for stat in Path("/proc").glob("[0-9]*/stat"):
            try:
                fields = stat.read_text().rsplit(")", 1)[1].split()
            except OSError:
                continue
            if int(fields[1]) == self.supervisor.pid:
                found.append(int(stat.parent.name))
        return found

    def reason(self):
        """Why the camera does not play, as decoderctl tells it."""
        said = self.ctl("source", "Camera")[1]
        values = dict(line.split("=", 1) for line in said.splitlines() if "=" in line)
        log = (self.root / "var/log/decoder.log").read_text() if not values.get("Reason") else ""
        last = re.findall(r"Screen: nothing, (.*)", log)
        return values.get("Reason") or (last[-1] if last else "no picture in time, and no reason told")

    def end(self):
        for process in reversed(self.running):
            process.send_signal(signal.SIGINT)
            try:
                process.wait(10)
            except subprocess.TimeoutExpired:
                process.kill()
                process.wait()
        self.ctl("sweep")
        shutil.rmtree(self.root, ignore_errors=True)
