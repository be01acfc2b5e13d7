"""The page beside many real decoders: a supervisor and a decoder-mqtt each, with players that only meet the supervisor.

FLEET_SIZE decoders, 10 without the variable; `run --decoders 200` sets it.
"""
import os
import signal
import subprocess
import time

from broker import Broker
from fleet import rows
from scenarios import check, front_door_and_yard, scenario
from selenium.webdriver.support.select import Select
from stage import ROOT, Source, with_settings

SIZE = int(os.environ.get("FLEET_SIZE", "10"))
PATIENCE = 60 + SIZE  # seconds: hundreds of processes start on a busy machine


class SmallDecoder:
    """Message queues of its own, as on a machine of its own: on one machine hundreds of players would mix up theirs."""

    def __init__(self, stage, folder, number, text, broker):
        self.name, self.root = f"box-{number:03}", folder / f"box-{number:03}"
        for part in ("etc/decoder", "run/decoder", "run/walk", "var/tmp", "var/log", "bin", "proc/sys/dev"):
            (self.root / part).mkdir(parents=True)
        os.mkfifo(self.root / "proc/sys/dev/button_videoselect")
        for program, target in (("mjpeg_player", stage.tests / "walk_player"), ("blankscreen", "/bin/true"),
                                ("resetrua", "/bin/true")):
            (self.root / "bin" / program).symlink_to(target)
        (self.root / "etc/decoder/decoder.conf").write_text(with_settings(text, {
            "Mqtt.Broker": broker.url, "Mqtt.Topic": f"site/{self.name}", "Mqtt.Groups": "far"}))
        environment = {**os.environ, "APPLIANCE_ROOT": str(self.root), "LIBCOMMON_LOG": str(self.root / "var/log/decoder.log"),
                       "PATH": f"{self.root}/bin:{os.environ['PATH']}"}
        command = 'echo $$ >"$APPLIANCE_ROOT/run/bridge.pid"; "$0" & exec "$1"'
        self.process = subprocess.Popen(
            ["unshare", "--ipc", "sh", "-c", command, stage.bin / "skelmor", stage.bin / "decoder-mqtt"], env=environment,
            stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, start_new_session=True)

    def kill_bridge(self):
        os.kill(int((self.root / "run/bridge.pid").read_text()), signal.SIGKILL)

    def end(self):
        os.killpg(self.process.pid, signal.SIGKILL)  # the group of the session that it began
        self.process.wait()


def configuration(encoders):
    sample = (ROOT / "packaging/decoder.conf").read_text().split("# ---- Sources")[0]
    settings = {"Decoder.SequenceMode": "manual", "Decoder.AutoConnect": "no", "Decoder.Connected": "no", "Sound.Enabled": "no"}
    sections = [Source(name, 0, address=encoder.address).section() for name, encoder in zip(("Door", "Gate"), encoders)]
    return with_settings(sample, settings) + "".join(sections)


# Clicks, and waits for the animation frame in which so many rows show the source: milliseconds, or -1.
MEASURE = """
const [source, count, limit, done] = arguments;
const shown = () => [...document.querySelectorAll('.fleet-shown')].filter((row) => row.textContent === source).length;
const began = performance.now();
window.lastSaid = "";
window.saidWatch ||= new MutationObserver((changes) => {
  for (const { target } of changes) window.lastSaid = target.textContent || window.lastSaid;
});
for (const id of ["said", "warned"]) window.saidWatch.observe(document.getElementById(id), { childList: true });
function look() {
  const passed = performance.now() - began;
  if (shown() >= count || passed > limit) done(passed > limit ? -1 : passed);
  else requestAnimationFrame(look);
}
document.getElementById('fleet-select').click();
requestAnimationFrame(look);
"""


def showing(page, words):
    """How many rows show that."""
    return page.script("return [...document.querySelectorAll('.fleet-shown')].filter((row) => row.textContent === arguments[0]).length",
                       words)


def select_all(page, name):
    Select(page.one("#fleet-source")).select_by_visible_text(name)
    page.driver.set_script_timeout(PATIENCE + 30)
    took = page.driver.execute_async_script(MEASURE, name, SIZE, PATIENCE * 1000)
    check(took >= 0, f"only {showing(page, name)} of {SIZE} rows show {name}")
    said = f" of {SIZE} decoders"  # a machine that is too busy may have replies that come too late
    page.until(lambda: said in page.script("return window.lastSaid"), "the page does not say what was done", PATIENCE)
    return took / 1000, page.script("return window.lastSaid")


def seconds_until(page, selector, text, limit=PATIENCE):
    began = time.monotonic()
    page.until_text(selector, text, limit)
    return time.monotonic() - began


class Work:
    """What the page's main thread has done since then, of each second."""

    def __init__(self, page):
        self.page, self.began = page, time.monotonic()
        self.before = self.read()

    def read(self):
        values = self.page.command("Performance.getMetrics")["metrics"]
        return {value["name"]: value["value"] for value in values}

    def words(self):
        passed, now = time.monotonic() - self.began, self.read()
        share = lambda *names: sum(now[name] - self.before[name] for name in names) / passed * 1000  # noqa: E731
        drawing = share("LayoutDuration", "RecalcStyleDuration")
        return share("ScriptDuration"), f"scripts {share('ScriptDuration'):.1f} ms, style and layout {drawing:.1f} ms of each second"


def measure(page, broker, decoders):
    page.command("Performance.enable", timeDomain="threadTicks")  # of the processor, not of the clock
    lines = []
    rest = Work(page)
    page.until(lambda: time.monotonic() - rest.began > 5, "time stands still")  # a span to measure, not a wait for something
    lines.append(f"nothing changes: {rest.words()[1]}")
    busy = Work(page)
    times = [select_all(page, name) for name in ("Gate", "Door", "Gate")]
    share, words = busy.words()
    lines += [f"select on {SIZE} decoders through the page, until the last row shows it: "
              + ", ".join(f"{took:.2f} s ({said})" for took, said in times) + "; the first one detects", f"during that: {words}"]
    check(share < 500, f"scripts take {share:.0f} ms of each second")
    row = f"#fleet-rows li:nth-child({SIZE // 2 + 1})"
    name = page.text(f"{row} .fleet-name h3")
    broker.publish([(f"site/{name}/command/select", "Door")], retained=False)
    lines.append(f"a decoder is told another source by others; in its row after {seconds_until(page, f'{row} .fleet-shown', 'Door'):.2f} s")
    next(decoder for decoder in decoders if decoder.name == name).kill_bridge()
    lines.append(f"a decoder is gone; in its row after {seconds_until(page, f'{row} .fleet-presence', 'lost'):.2f} s")
    return lines


@scenario("FleetOfRealDecoders", sources=front_door_and_yard, settings={"Mqtt.Topic": "site/hall", "Mqtt.Groups": "near"})
def many_decoders(stage, pages):
    broker, decoders = Broker(stage.folder.name), []
    try:
        stage.must("set", "Mqtt.Broker", broker.url)
        stage.start("decoder-mqtt", [], {"LIBCOMMON_LOG": stage.log("decoder")})
        text = configuration(stage.sources)
        decoders += [SmallDecoder(stage, stage.root, number, text, broker) for number in range(SIZE)]
        page = pages.open()
        page.enter("anna")
        page.until(lambda: page.one("#fleet-tab").is_displayed(), "the page has no fleet although there is a broker")
        page.go("fleet")
        page.until(lambda: rows(page) == SIZE + 1, lambda: f"{rows(page)} rows", PATIENCE)
        page.one("#fleet-group").send_keys("far")
        page.until(lambda: showing(page, "disconnected") == SIZE, lambda: f"{showing(page, 'disconnected')} rows", PATIENCE)
        broker.publish([("site/_all/command/connect", "")], retained=False)
        page.until(lambda: showing(page, "Door") == SIZE, lambda: f"{showing(page, 'Door')} rows show Door", PATIENCE)
        return measure(page, broker, decoders)
    finally:
        for decoder in decoders:
            decoder.end()
        broker.end()
