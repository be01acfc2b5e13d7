"""Steps about the services that other machines talk to, in a virtual machine: the panel and the MQTT connection."""
import json
import time

from display import Failed
from story import Guest

PANEL = "127.0.0.1:8088"
TOPIC = "site/hall"
# By its address: a bare machine does not know the name "localhost".
SUBSCRIBE, PUBLISH = "mosquitto_sub -h 127.0.0.1", "mosquitto_pub -h 127.0.0.1"
# Files of the machine: what journalctl prints, and what the panel answers.
LINES, PAGE, STREAM = "/run/test-lines", "/run/test-page", "/run/test-stream"


class Services(Guest):
    """The services of a decoder that runs and has a source with the name Yard."""

    def ask_panel(self, token, path, file, seconds):
        """A command for the machine: writes what the panel answers within these seconds to the file."""
        request = (f"GET {path} HTTP/1.0\\r\\nHost: {PANEL}\\r\\nAuthorization: Bearer {token}\\r\\n\\r\\n")
        return (f"timeout {seconds} bash -c 'exec 3<>/dev/tcp/{PANEL.replace(':', '/')}; printf \"{request}\" >&3; "
                f"cat <&3 >{file}'")

    def read_answer(self, file):
        head, _, body = self.machine.fetch(file, self.limit).decode().partition("\r\n\r\n")
        if " 200 " not in head.split("\r\n")[0]:
            raise Failed(f"the panel answers {head}\n{body}")
        return body

    def journal(self):
        """the panel shows the system's journal: the last lines of the decoder's units, and new ones as they come"""
        token = self.guest("decoderctl panel-token boot --role operator", 2 * self.limit).split()[-1]
        try:
            page = self.journal_page(token)
            live, seconds = self.live_line(token)
        finally:
            self.guest("decoderctl panel-tokens --remove boot", 2 * self.limit)
        counts = ", ".join(f"{program} {count}" for program, count in sorted(page.items()))
        return f"lines of {counts}; live after {seconds:.1f} s: {live['program']}: {live['text']}"

    def journal_page(self, token):
        """How many lines of the page each program has; each must be one that systemd's journal has of a unit of ours."""
        self.guest(self.ask_panel(token, "/api/v1/journal", PAGE, self.limit), 2 * self.limit)
        shown = json.loads(self.read_answer(PAGE))
        counts = {}
        for unit, program in (("skelmor", "skelmor"), ("decoder-panel", "decoder-panel")):
            self.guest(f"journalctl -b -q --no-pager -o cat -u {unit} >{LINES}")
            logged = self.machine.fetch(LINES, self.limit).decode().splitlines()
            counts[program] = sum(line["program"] == program and line["text"] in logged for line in shown)
            if counts[program] == 0:
                raise Failed(f"no line of {unit}.service is in the panel's journal: {shown}\nof {logged}")
        return counts

    def live_line(self, token):
        """(a line of the supervisor that is logged after the stream of events began, seconds until it was there)."""
        self.guest(f"({self.ask_panel(token, '/api/v1/events', STREAM, 4 * self.limit)}) & "
                   f"for i in $(seq {self.limit}); do grep -qs ^event:.session {STREAM} && break; sleep 1; done; true",
                   2 * self.limit)
        before = len(self.journal_events())
        start = time.monotonic()
        self.guest("decoderctl disconnect && decoderctl connect", 2 * self.limit)
        while time.monotonic() < start + self.limit:
            for line in self.journal_events()[before:]:
                if line["program"] == "skelmor":
                    return line, time.monotonic() - start
            time.sleep(0.5)
        raise Failed("no line of the supervisor came as an event:\n" + self.guest(f"tail -n 40 {STREAM}; journalctl -b -n 20"))

    def journal_events(self):
        """The lines of the journal that have come with the stream of events, by now."""
        found, kind = [], None
        for line in self.machine.fetch(STREAM, self.limit).decode(errors="replace").splitlines():
            name, _, value = line.partition(":")
            if name == "event":
                kind = value.strip()
            elif name == "data" and kind == "journal" and value.strip().endswith("}"):
                found.append(json.loads(value))
        return found

    def confined(self):
        """the player has taken more rights away from itself than its unit does, files included"""
        # What the kernel can't do, and what failed, is in its log. TCP ports are for later kernels than this machine's.
        log = self.guest("journalctl -b -q --no-pager -o cat -u skelmor | grep 'not confined in everything' || true")
        if log:
            raise Failed(log)
        return self.more_filters("skelmor")

    def more_filters(self, unit):
        """Each process that a unit's first one has started must have more filters of system calls than that one."""
        lines = self.guest(f"first=$(systemctl show -P MainPID {unit}); for pid in $first $(grep -vx $first "
                           f"/sys/fs/cgroup/system.slice/{unit}.service/cgroup.procs); do "
                           "echo $(cat /proc/$pid/comm) $(sed -n 's/^Seccomp_filters:\\s*//p' /proc/$pid/status); done"
                           ).splitlines()
        counts = [(line.split()[0], int(line.split()[1])) for line in lines]
        if len(counts) < 2 or any(count <= counts[0][1] for _, count in counts[1:]):
            raise Failed(f"filters of the processes: {counts}")
        return "filters of system calls: " + ", ".join(f"{name} {count}" for name, count in counts)

    def mqtt(self):
        """decoder-mqtt connects to a broker in the machine, says that it is online, and carries out a command"""
        start = time.monotonic()
        self.guest(f"decoderctl set Mqtt.Broker mqtt://127.0.0.1 && decoderctl set Mqtt.Topic {TOPIC}", 2 * self.limit)
        # In a pipe the shell would wait for the subscriber, too, which goes on to its time limit.
        self.guest(f"grep -m 1 -x online < <(timeout {2 * self.limit} {SUBSCRIBE} -t {TOPIC}/availability)", 3 * self.limit)
        online = time.monotonic() - start
        state = json.loads(self.guest(f"{SUBSCRIBE} -t {TOPIC}/state -C 1 -W {self.limit}", 2 * self.limit))
        # The command goes again until there is a reply, because the first ones may come before anybody listens.
        reply = self.guest(f"{SUBSCRIBE} -t {TOPIC}/reply -C 1 -W {self.limit} >/run/reply & for i in $(seq {self.limit}); do "
                           f"{PUBLISH} -t {TOPIC}/command/select -m Yard; sleep 1; test -s /run/reply && break; "
                           "done; wait; cat /run/reply", 3 * self.limit)
        if not json.loads(reply)["done"] or not state["running"]:
            raise Failed(f"reply {reply}, state {state}")
        log = self.guest("journalctl -b -q --no-pager -o cat -u decoder-mqtt")
        if "Connected to mqtt://127.0.0.1" not in log:
            raise Failed(f"its log is {log}")
        return f"online after {online:.1f} s: {json.loads(reply)['text']}"
