"""What is measured, and the rows of the table.

A Measurement is one run of a benchmark; its figures go to one or more rows. A Row names the figures of our side and of
those beside it, and has goals.
"""
import dataclasses

from figures import AtMost, MoreAtMost, RatioAtMost, TimesFaster

SHORT_KINDS = ["mjpeg", "mpeg2", "rtsp-unicast"]
ALL_KINDS = ["mjpeg", "mpeg2", "sdp", "rtsp-unicast", "rtsp-multicast", "rtsp-tcp", "rtsp-http"]
OVERLAPPING = ("mpv", "gst-launch", "vlc")
PEERS = OVERLAPPING + ("mpv-told", "vlc-told")
WATCHMEN = ("runsv", "s6-supervise", "supervisord")
DETECTING = ("curl and ffprobe", "curl and gst-discoverer")
DETECTION_SIDES = ("ffprobe", "gst-discoverer", "ffprobe-told", "gst-discoverer-told")
TOLD = ("ffprobe, told", "gst-discoverer, told")
WARM, COLD = "ours-warm", "ours-cold"


@dataclasses.dataclass
class Mode:
    """How much is measured."""
    name: str
    kinds: list
    switches: int
    blocks: int
    repetitions: int
    rounds: int
    seconds: int
    memory_switches: int
    supervisors: int
    many_seconds: int
    streams: int
    deaths: int
    all_sides: bool


MODES = {
    "short": Mode("short", SHORT_KINDS, 8, 2, 30, 2, 4, 10_000, 100, 10, 8, 4, False),
    "all": Mode("all", ALL_KINDS, 16, 4, 60, 5, 8, 10_000, 100, 20, 16, 10, True),
    # Only to see that everything works.
    "brief": Mode("brief", ["mjpeg", "rtsp-unicast"], 2, 1, 2, 1, 1, 20, 3, 2, 2, 1, False),
}


@dataclasses.dataclass
class Measurement:
    name: str
    command: list  # the first word is a program of the build
    limit: int = 240  # seconds


@dataclasses.dataclass
class Row:
    title: str
    unit: str
    ours: tuple  # measurement, row, side
    beside: dict  # name -> (measurement, row, side)
    goals: list
    group: str


@dataclasses.dataclass
class Screen:
    """A kind of stream at a size with a period of its key pictures."""
    kind: str
    width: int
    height: int
    period: int  # seconds

    @property
    def name(self):
        period = "" if self.kind == "mjpeg" else f" key {self.period} s"
        return f"{self.kind} {self.width}x{self.height}{period}"

    @property
    def large(self):
        return self.height > 576


def screens(mode):
    """The usual ones first, so that they are measured when the time is short."""
    usual = [Screen(kind, 720, 576, 1) for kind in mode.kinds]
    slow = [Screen(kind, 720, 576, 4) for kind in mode.kinds if kind != "mjpeg"]
    large = [Screen(kind, 1920, 1080, 1) for kind in mode.kinds]
    if mode.name == "brief":
        return usual
    return usual + slow + large


def screen_sides(mode, screen):
    if mode.name == "brief":
        return [WARM, COLD, "gst-launch"]
    if mode.all_sides:
        return [WARM, COLD, *PEERS]
    usual = screen.period == 1 and not screen.large
    return [WARM, COLD, "mpv", "gst-launch", *(("mpv-told", "vlc-told") if usual else ())]


def screen_measurement(mode, screen):
    return Measurement("screen " + screen.name,
                       ["screen_bench", "--kind", screen.kind, "--width", str(screen.width), "--height",
                        str(screen.height), "--gop", str(25 * screen.period), "--switches", str(mode.switches),
                        "--blocks", str(mode.blocks), "--sides", ",".join(screen_sides(mode, screen)),
                        *(["--assert"] if mode.name == "brief" else [])],
                       limit=100 + 60 * mode.switches)


def detection_kinds(mode):
    return mode.kinds if mode.name != "brief" else ["rtsp-unicast"]


def measurements(mode):
    repeat = ["--repetitions", str(mode.repetitions)]
    many = ["--supervisors", str(mode.supervisors), "--seconds", str(mode.many_seconds)]
    detection = ["detection_bench", "--samples", "--repetitions", str(max(1, mode.repetitions // 8))]
    for kind in detection_kinds(mode):
        detection += ["--kind", kind]
    listed = [
        Measurement("events", ["event_bench", *repeat]),
        Measurement("launch", ["supervisor_bench", "launch", *repeat]),
        Measurement("death", ["supervisor_bench", "death", "--repetitions", str(mode.deaths)]),
        Measurement("restart", ["supervisor_bench", "restart", "--repetitions", str(mode.deaths)]),
        Measurement("start", ["supervisor_bench", "start", "--repetitions", str(max(1, mode.repetitions // 3))]),
        Measurement("sources", ["sources_bench", "--rounds", str(5 * mode.repetitions)]),
        Measurement("play", ["player_bench", "play", "--rounds", str(mode.repetitions // 2)]),
        Measurement("detection", detection, limit=600),
        Measurement("keeper", ["keeper_bench", "--streams", str(mode.streams), "--seconds", str(2 * mode.seconds)]),
        Measurement("gateway", ["gateway_bench", "--streams", str(mode.streams), "--seconds", str(2 * mode.seconds)]),
    ]
    usual = [screen for screen in screens(mode) if screen.period == 1 and not screen.large]
    listed += [screen_measurement(mode, screen) for screen in usual]
    listed += [Measurement("alarm", ["screen_bench", "--kind", "rtsp-unicast", "--alarms", str(max(2, mode.switches - 3)),
                                     "--sides", f"{WARM},{COLD}" if mode.all_sides else WARM])]
    listed += [Measurement("cpu " + kind, ["player_bench", "cpu", "--kind", kind, "--rounds", str(mode.rounds),
                                           "--seconds", str(mode.seconds)]) for kind in mode.kinds]
    listed += [Measurement("many", ["supervisor_bench", "many", *many], limit=400),
               Measurement("idle", ["supervisor_bench", "idle", "--seconds", str(2 * mode.seconds), "--switches",
                                    str(mode.memory_switches)], limit=400)]
    listed += [screen_measurement(mode, screen) for screen in screens(mode) if screen not in usual]
    return listed


# ---- Rows ------------------------------------------------------------------------------------------------------


def answer_goals(screen, side):
    if screen.kind == "mjpeg" and not screen.large:
        return [AtMost(45), TimesFaster(1)]
    if side == COLD:
        return [TimesFaster(1, OVERLAPPING)]
    if screen.large:
        return []
    if screen.period == 4:
        return [AtMost(150), AtMost(300, worst=True), TimesFaster(12)]
    return [AtMost(100), AtMost(200, worst=True), TimesFaster(5)]


def screen_rows(mode):
    for screen in screens(mode):
        name = "screen " + screen.name
        peers = [side for side in screen_sides(mode, screen) if side not in (WARM, COLD)]
        for side in (WARM, COLD):
            warmth = side.removeprefix("ours-")
            beside = {peer: (name, "answer", peer) for peer in peers}
            yield Row(f"answer, {screen.name}, {warmth}", "ms", (name, "answer", side), beside,
                      answer_goals(screen, side), "answer")
            if screen.large or screen.period != 1:
                continue
            beside = {peer: (name, "gap", peer) for peer in peers}
            yield Row(f"gap, {screen.name}, {warmth}", "ms", (name, "gap", side), beside,
                      [AtMost(5), AtMost(20, worst=True), TimesFaster(1, strictly=True)], "gap")


def detection_rows(mode):
    for kind in detection_kinds(mode):
        trips = "detect-trips:" + kind
        yield Row(f"detection, {kind}, 20 ms each way", "ms", ("detection", trips, "ours"),
                  {"round trips": ("detection", trips, "round-trips")}, [RatioAtMost(1.15, "round trips")], "detection")
        for delay in ("0", "20"):
            row = f"detect-{delay}:{kind}"
            yield Row(f"detection, {kind}, {delay} ms, with its waits", "ms", ("detection", row, "ours"),
                      {peer: ("detection", row, side) for peer, side in zip(DETECTING + TOLD, DETECTION_SIDES)},
                      [TimesFaster(1, strictly=True)], "detection")


def single(title, unit, measurement, row, beside, goals, group="supervisor"):
    return Row(title, unit, (measurement, row, "ours"), {label: (measurement, row, side) for label, side in beside.items()},
               goals, group)


def source_rows():
    for row, unit in (("select", "µs"), ("status", "µs")):
        yield Row(f"{row} with 10,000 sources", unit, ("sources", row, "10000"), {"with 10": ("sources", row, "10")},
                  [RatioAtMost(1.2, "with 10")], "sources")
    yield Row("connect with 10,000 sources, beyond reading the file", "ms", ("sources", "connect", "10000"),
              {"with 1,000": ("sources", "connect", "1000")}, [AtMost(50)], "sources")


def rows(mode):
    """All rows of the table, in its order."""
    listed = sorted(screen_rows(mode), key=lambda row: row.group)  # answers, then gaps
    listed += [
        single("exec to PLAY", "ms", "play", "play", {}, [AtMost(60)], "answer"),
        Row("alarm to picture with its text, warm", "ms", ("alarm", "alarm", WARM), {}, [AtMost(120)], "answer"),
        *([Row("alarm to picture with its text, cold", "ms", ("alarm", "alarm", COLD), {}, [], "answer")]
          if mode.all_sides else []),
        single("keeper: processor for 4 Mbit/s", "%", "keeper", "keeper-cpu", {"ffmpeg -c copy": "ffmpeg"},
               [RatioAtMost(1, "ffmpeg -c copy")], "keeper"),
        single("keeper: memory for 4 Mbit/s", "MB", "keeper", "keeper-memory", {"the group of pictures": "pictures"},
               [MoreAtMost(2, "the group of pictures")], "keeper"),
        single("keeper: delay it adds", "ms", "keeper", "keeper-delay", {}, [AtMost(5)], "keeper"),
        single("gateway: processor for handing 4 Mbit/s on", "%", "gateway", "handed-cpu", {"ffmpeg -c copy": "ffmpeg"},
               [RatioAtMost(1, "ffmpeg -c copy")], "keeper"),
        single("gateway: delay it adds", "ms", "gateway", "handed-delay", {}, [AtMost(5)], "keeper"),
        single("event path", "µs", "events", "path", {"System V hop with a log line": "bare", "System V hop": "silent"},
               [RatioAtMost(1.3, "System V hop with a log line"), RatioAtMost(1.3, "System V hop")]),
        single("selective take of 256", "µs", "events", "take", {"one walk": "bare"}, [RatioAtMost(3, "one walk")]),
        single("select to player's first instruction", "µs", "launch", "launch", {"fork+exec": "bare"},
               [RatioAtMost(1.4, "fork+exec")]),
        single("death to reaction", "µs", "death", "death", {"SIGCHLD and System V hop": "bare", "SIGCHLD": "signal"},
               [RatioAtMost(1.4, "SIGCHLD and System V hop"), RatioAtMost(1.4, "SIGCHLD")]),
        single("death to new player, without the sleep", "ms", "restart", "restart",
               {**{f"{name}, as a decoder": name + "-decoder" for name in WATCHMEN}, **{name: name for name in WATCHMEN}},
               [TimesFaster(1, strictly=True)]),
        single("start to first player's exec, without the detection", "ms", "start", "start", {"bare program": "bare"},
               [RatioAtMost(2, "bare program")]),
        single("idle wake-ups", "", "idle", "wakeups", {}, [AtMost(0)]),
        single("private memory", "MB", "idle", "memory-0", {"linked floor": "floor"}, [MoreAtMost(2, "linked floor")]),
        Row(f"private memory after {mode.memory_switches:,} switches", "MB", ("idle", "memory-many", "ours"),
            {"linked floor": ("idle", "memory-many", "floor"), "before": ("idle", "memory-0", "ours")},
            [MoreAtMost(2, "linked floor"), MoreAtMost(0.1, "before")], "supervisor"),
        Row(f"{mode.supervisors} supervisors: processor time of a select", "ms", ("many", "many-cpu", "many"),
            {"one": ("many", "many-cpu", "one")}, [RatioAtMost(1.2, "one")], "supervisor"),
        Row(f"{mode.supervisors} supervisors: not served", "%", ("many", "many-unserved", "many"), {}, [AtMost(0)],
            "supervisor"),
        *source_rows(),
        *detection_rows(mode),
    ]
    listed += [single(f"player's processor time, {kind}", "%", "cpu " + kind, "cpu", {"gst-launch": "gst-launch"},
                      [RatioAtMost(1.1, "gst-launch")], "player") for kind in mode.kinds]
    return listed
