"""The stock servers that play the camera, and how each of them is started."""
import os
import shutil
import socket
import subprocess
import time
from dataclasses import dataclass
from pathlib import Path
from typing import Callable

from decoder import ROOT

USER, PASSWORD = "viewer", "s3cret"
MODULES = ROOT / "build/peers/node_modules"


@dataclass
class Row:
    """One line of the table: a server with one stream."""
    peer: str  # a key of PEERS
    kind: str
    transport: str  # "udp", "tcp" or "http"
    url: str
    start: Callable  # start(stage) starts the server
    password: str = ""  # "", "Basic" or "Digest"
    note: str = ""
    fixed: str = ""  # the value for the source's key Transport
    refused: str = ""  # part of the message, if it is known that the decoder can't play this
    short: bool = False  # also in the short table


@dataclass
class Peer:
    """A stock program: what has to be installed, and how its version is asked for."""
    program: str  # in PATH, or a folder of npm's modules
    package: str  # of Debian, or "npm:NAME@VERSION"
    version: list

    def installed(self):
        if self.package.startswith("npm:"):
            return (MODULES / self.program).is_dir() and shutil.which("node") is not None
        return shutil.which(self.program, path=os.environ["PATH"] + ":/usr/sbin") is not None

    def version_text(self):
        if self.package.startswith("npm:"):
            return self.package.rsplit("@", 1)[1]
        told = subprocess.run(self.version, capture_output=True, text=True)
        return (told.stdout or told.stderr).strip().splitlines()[0].split("-")[0].split("+")[0] if told.returncode == 0 \
            else "?"


def debian(package):
    return ["dpkg-query", "--show", "--showformat", "${source:Upstream-Version}", package]


PEERS = {
    "GStreamer's RTSP server": Peer("ffmpeg", "libgstrtspserver-1.0-0", debian("libgstrtspserver-1.0-0")),
    "VLC": Peer("cvlc", "vlc-bin vlc-plugin-base", debian("vlc-bin")),
    "ffmpeg": Peer("ffmpeg", "ffmpeg", debian("ffmpeg")),
    "motion": Peer("motion", "motion", debian("motion")),
    "ustreamer": Peer("ustreamer", "ustreamer", debian("ustreamer")),
    "nginx": Peer("nginx", "nginx", debian("nginx")),
    "RTSP::Server (Perl)": Peer("rtsp-server-perl", "rtsp-server-perl", debian("rtsp-server-perl")),
    "rtsp-streaming-server (npm)": Peer("rtsp-streaming-server", "npm:rtsp-streaming-server@2.1.0", []),
    "node-rtsp-rtmp-server (npm)": Peer("node-rtsp-rtmp-server", "npm:node-rtsp-rtmp-server@0.4.0", []),
}
# Of the short table, which ./test makes.
SHORT = ("GStreamer's RTSP server", "ffmpeg", "nginx")


class Unavailable(Exception):
    """The server can't run here; the text says why."""


class Stage:
    """Where the servers of one row run."""

    def __init__(self, folder, clips, tests):
        self.folder, self.clips, self.tests, self.running = Path(folder), clips, tests, []

    def start(self, command, listens=None, ready=""):
        """Starts a program; waits until it listens at this TCP port, or has printed `ready`."""
        log = self.folder / f"server{len(self.running)}.log"
        with open(log, "w") as output:
            process = subprocess.Popen([str(word) for word in command], cwd=self.folder, stdin=subprocess.DEVNULL,
                                       stdout=output, stderr=output, start_new_session=True)
        self.running.append(process)
        end = time.monotonic() + 20
        while (listens and not accepts(listens)) or (ready and ready not in log.read_text()):
            if process.poll() is not None or time.monotonic() > end:
                raise Unavailable("the server does not start: " + " ".join(log.read_text().split())[-200:])
            time.sleep(0.05)
        return process

    def end(self):
        for process in reversed(self.running):
            try:
                os.killpg(process.pid, 9)
            except ProcessLookupError:
                pass
            process.wait()


def accepts(port):
    """Whether a program listens at this port; without connecting, because some servers take one client only."""
    for line in (line for name in ("tcp", "tcp6") for line in open(f"/proc/net/{name}").readlines()[1:]):
        fields = line.split()
        if fields[3] == "0A" and int(fields[1].rsplit(":", 1)[1], 16) == port:
            return True
    return False


def ask(host, port, question):
    """The beginning of a server's answer; empty if it gives none."""
    try:
        with socket.create_connection((host, port), 2) as server:
            server.sendall(question.encode())
            return server.recv(4096).decode("utf-8", "replace")
    except OSError:
        return ""


def wait_until(condition):
    """Waits 15 seconds at most; what does not come until then is seen in the row."""
    end = time.monotonic() + 15
    while not condition() and time.monotonic() < end:
        time.sleep(0.5)


# ---- GStreamer's RTSP server -------------------------------------------------------------------------------------

PAYLOADERS = {"H.264": "h264parse ! rtph264pay", "H.265": "h265parse ! rtph265pay", "MPEG-4": "mpeg4videoparse ! rtpmp4vpay",
              "MPEG-2": "mpegvideoparse ! rtpmpvpay", "MJPEG": "jpegparse ! rtpjpegpay", "VP8": "rtpvp8pay"}


def gst(kind, options=(), path="/cam/stream1?profile=2", sound=False):
    def start(stage):
        file = stage.clips.file(kind, sound=sound)
        pipeline = (f"filesrc location={file} ! matroskademux name=d d. ! queue ! {PAYLOADERS[kind]} name=pay0 "
                    f"pt={26 if kind == 'MJPEG' else 96}")
        if sound:
            pipeline += " d. ! queue ! aacparse ! rtpmp4gpay name=pay1 pt=97"
        stage.start([stage.tests / "gst_server", *options, "127.0.0.1", 8554, path.split("?")[0], f"( {pipeline} )"],
                    ready="ready")
    return start


def gst_rows():
    peer, url = "GStreamer's RTSP server", "rtsp://127.0.0.1:8554/cam/stream1?profile=2"
    for kind in ("H.264", "H.265", "MPEG-4", "MPEG-2", "MJPEG"):
        yield Row(peer, kind, "udp", url, gst(kind), short=kind == "MPEG-4")
        yield Row(peer, kind, "tcp", url, gst(kind, ["--tcp"]), note="the server refuses UDP", short=kind == "H.265")
    yield Row(peer, "H.264", "udp", url, gst("H.264", ["--basic"]), "Basic")
    yield Row(peer, "H.264", "udp", url, gst("H.264", ["--digest"]), "Digest", short=True)
    yield Row(peer, "MJPEG", "tcp", url, gst("MJPEG", ["--digest", "--tcp"]), "Digest")
    yield Row(peer, "H.264, AAC", "udp", url, gst("H.264", sound=True), note="a Matroska file with sound")
    yield Row(peer, "VP8", "udp", url, gst("VP8"), note="decoded, and encoded as H.264")


# ---- VLC ---------------------------------------------------------------------------------------------------------

def vlc(kind, output, listens):
    def start(stage):
        file = stage.clips.file(kind)
        # VLC refuses to run as root.
        user = ["setpriv", "--reuid", "65534", "--regid", "65534", "--clear-groups"] if os.access("/etc/shadow", os.R_OK) \
            else ["unshare", "--user", "--map-user=1000"]
        stage.start(["env", "HOME=/tmp", *user, "cvlc", "--quiet", "--no-audio", "--repeat", "--sout-keep", file, *output],
                    listens=listens)
        time.sleep(1)  # it listens before it knows its stream
    return start


def vlc_rows():
    url = "rtsp://127.0.0.1:8554/live"
    rtsp = ["--sout", "#rtp{sdp=rtsp://127.0.0.1:8554/live}"]
    for kind in ("H.264", "H.265", "MPEG-4", "MJPEG"):
        yield Row("VLC", kind, "udp", url, vlc(kind, rtsp, 8554))
    yield Row("VLC", "H.264", "tcp", url, vlc("H.264", rtsp, 8554), fixed="tcp", refused="461",
              note="the server has UDP only")
    yield Row("VLC", "H.264", "udp", url, vlc("H.264", [*rtsp, "--sout-rtsp-user", USER, "--sout-rtsp-pwd", PASSWORD], 8554),
              "Basic")
    for password in ("", "Basic"):
        login = f",user={USER},pwd={PASSWORD}" if password else ""
        yield Row("VLC", "MJPEG", "http", "http://127.0.0.1:8080/video.mjpg", vlc("MJPEG", vlc_http(f"mime={VLC_MULTIPART}{login}"),
                                                                                 8080), password)
    yield Row("VLC", "MJPEG", "http", "http://127.0.0.1:8080/video.mjpg", vlc("MJPEG", vlc_http(""), 8080),
              note="without its option mime: it says no type")


VLC_MULTIPART = "multipart/x-mixed-replace;boundary=7b3cc56e5f51db803f790dad720ed50a"


def vlc_http(options):
    return ["--sout", f"#standard{{access=http{{{options}}},mux=mpjpeg,dst=127.0.0.1:8080/video.mjpg}}"]


# ---- ffmpeg ------------------------------------------------------------------------------------------------------

READ = ["ffmpeg", "-v", "error", "-nostdin", "-re", "-stream_loop", "-1", "-i"]
MULTIPART = "multipart/x-mixed-replace;boundary=ffmpeg"


def ffmpeg_http(stage):
    # It serves one client and ends, so it is started again and again, as a user would do it.
    command = [*READ, stage.clips.file("MJPEG"), "-c", "copy", "-f", "mpjpeg", "-content_type", MULTIPART, "-listen", "1",
               "http://127.0.0.1:8090/video.mjpg"]
    stage.start(["bash", "-c", 'for ((i = 0; i < 100; i++)); do "$@"; sleep 0.2; done', "ffmpeg", *command], listens=8090)


def ffmpeg_multicast(stage):
    sdp = stage.folder / "camera.sdp"
    stage.start([*READ, stage.clips.file("H.264"), "-c", "copy", "-f", "rtp", "-sdp_file", sdp,
                 "rtp://239.1.2.3:5004?ttl=1"])
    wait_until(sdp.exists)
    nginx_start(stage, f"location /camera.sdp {{ root {stage.folder}; default_type application/sdp; }}")


def ffmpeg_rows():
    yield Row("ffmpeg", "MJPEG", "http", "http://127.0.0.1:8090/video.mjpg", ffmpeg_http, short=True)
    yield Row("ffmpeg", "H.264", "udp", "http://127.0.0.1:8088/camera.sdp", ffmpeg_multicast,
              note="RTP multicast; its SDP file comes from nginx")


# ---- motion and ustreamer ------------------------------------------------------------------------------------------

def motion(method):
    def start(stage):
        (stage.folder / "motion.conf").write_text(f"""
daemon off
target_dir {stage.folder}
netcam_url http://127.0.0.1:8090/video.mjpg
width 640
height 480
framerate 25
movie_output off
picture_output off
text_left
text_right
webcontrol_port 0
stream_port 8081
stream_localhost on
stream_maxrate 25
stream_quality 90
stream_auth_method {method}
stream_authentication {USER}:{PASSWORD}
""")
        ffmpeg_http(stage)
        stage.start(["motion", "-n", "-c", stage.folder / "motion.conf"], listens=8081)
        # Until it has its own camera's pictures, it closes each connection without an answer.
        wait_until(lambda: ask("127.0.0.1", 8081, "GET / HTTP/1.0\r\n\r\n"))
        time.sleep(1)
    return start


def motion_rows():
    for method, password in enumerate(("", "Basic", "Digest")):
        yield Row("motion", "MJPEG", "http", "http://127.0.0.1:8081/", motion(method), password)


def ustreamer(options):
    def start(stage):
        devices = sorted(Path("/dev").glob("video*"))
        if not devices:
            raise Unavailable("it needs a camera at this machine (/dev/video0), and there is none")
        stage.start(["ustreamer", "--device", devices[0], "--host", "127.0.0.1", "--port", 8082, *options], listens=8082)
    return start


def ustreamer_rows():
    url = "http://127.0.0.1:8082/stream"
    yield Row("ustreamer", "MJPEG", "http", url, ustreamer([]))
    yield Row("ustreamer", "MJPEG", "http", url, ustreamer(["--user", USER, "--passwd", PASSWORD]), "Basic")


# ---- nginx with files --------------------------------------------------------------------------------------------

def nginx_start(stage, location):
    (stage.folder / "nginx.conf").write_text(f"""
daemon off; master_process off; pid {stage.folder}/nginx.pid; error_log stderr;
events {{}}
http {{
    access_log off;
    {" ".join(f"{name}_temp_path {stage.folder}/{name};"
              for name in ("client_body", "proxy", "fastcgi", "uwsgi", "scgi"))}
    server {{ listen 127.0.0.1:8088; {location} }}
}}
""")
    (stage.folder / "users").write_text(f"{USER}:{{PLAIN}}{PASSWORD}\n")
    stage.start(["nginx", "-p", stage.folder, "-c", stage.folder / "nginx.conf"], listens=8088)


def nginx_file(kind, container, mime, password):
    def start(stage):
        file = stage.clips.file(kind, container)
        rate = file.stat().st_size // stage.clips.seconds if container == "mpjpeg" else 0  # a recording is sent as fast as it was made
        user = f'auth_basic "camera"; auth_basic_user_file {stage.folder}/users;' if password else ""
        nginx_start(stage, f"location / {{ root {file.parent}; types {{}} default_type '{mime}'; limit_rate {rate}; "
                           f"sendfile off; output_buffers 1 8k; {user} }}")
    return start


def nginx_rows():
    for kind, container, mime in (("MJPEG", "mpjpeg", MULTIPART), ("H.264", "mp4", "video/mp4"),
                                  ("H.264", "m3u8", "application/vnd.apple.mpegurl")):
        for password in ("", "Basic") if container == "mpjpeg" else ("",):
            name = f"{kind.replace('.', '').lower()}.{container}"
            note = {"mpjpeg": "a recorded multipart file", "mp4": "an MP4 file", "m3u8": "HLS"}[container]
            yield Row("nginx", kind, "http", f"http://127.0.0.1:8088/{name}", nginx_file(kind, container, mime, password),
                      password, note, short=container == "mpjpeg" and password == "Basic")


# ---- Servers that ffmpeg publishes to ------------------------------------------------------------------------------

def publish(stage, kind, url, over, watched):
    """ffmpeg sends the stream to a server, until that offers it."""
    stage.start([*READ, stage.clips.file(kind), "-c", "copy", "-f", "rtsp", "-rtsp_transport", over, url])
    time.sleep(1)
    host, port = watched.split("/")[2].split(":")
    question = f"DESCRIBE {watched} RTSP/1.0\r\nCSeq: 1\r\nAccept: application/sdp\r\n\r\n"
    wait_until(lambda: "200 OK" in ask(host, int(port), question))


def perl(kind):
    def start(stage):
        stage.start(["rtsp-server-perl", "--clientport", "8554", "--serverport", "8555", "--rtp_start_port", "20000"],
                    listens=8555)
        publish(stage, kind, "rtsp://127.0.0.1:8555/live", "udp", "rtsp://127.0.0.1:8554/live")
    return start


def node(script, kind, url, over):
    def start(stage):
        stage.start(["env", f"NODE_PATH={MODULES}", "node", "-e", script], listens=int(url.split(":")[2].split("/")[0]))
        publish(stage, kind, url, over, url.replace(":8555", ":8554"))
    return start


STREAMING_SERVER = """
const Server = require('rtsp-streaming-server').default;
new Server({serverPort: 8555, clientPort: 8554, rtpPortStart: 20000, rtpPortCount: 1000 HOOKS}).start();
"""
HOOKS = ", clientServerHooks: {authentication: async (user, password) => user === 'viewer' && password === 's3cret'}"
HYBRID_SERVER = """
const Server = require('node-rtsp-rtmp-server');
const server = new Server();
server.start();
"""


def publishing_rows():
    for kind in ("H.264", "H.265", "MPEG-4", "MJPEG"):
        yield Row("RTSP::Server (Perl)", kind, "udp", "rtsp://127.0.0.1:8554/live", perl(kind))
    yield Row("RTSP::Server (Perl)", "H.264", "tcp", "rtsp://127.0.0.1:8554/live", perl("H.264"), fixed="tcp",
              refused="400", note="the server has UDP only")
    name, url = "rtsp-streaming-server (npm)", "rtsp://127.0.0.1:8554/live"
    for kind in ("H.264", "H.265", "MPEG-4", "MJPEG"):
        yield Row(name, kind, "udp", url, node(STREAMING_SERVER.replace("HOOKS", ""), kind, "rtsp://127.0.0.1:8555/live",
                                               "udp"))
    yield Row(name, "H.264", "tcp", url, node(STREAMING_SERVER.replace("HOOKS", ""), "H.264", "rtsp://127.0.0.1:8555/live",
                                              "udp"), fixed="tcp")
    yield Row(name, "H.264", "udp", url, node(STREAMING_SERVER.replace("HOOKS", HOOKS), "H.264",
                                              "rtsp://127.0.0.1:8555/live", "udp"), "Basic")
    for fixed in ("", "tcp"):
        yield Row("node-rtsp-rtmp-server (npm)", "H.264", fixed or "udp", "rtsp://127.0.0.1:80/live/camera",
                  node(HYBRID_SERVER, "H.264", "rtsp://127.0.0.1:80/live/camera", "tcp"), fixed=fixed)


def all_rows():
    return [*gst_rows(), *vlc_rows(), *ffmpeg_rows(), *motion_rows(), *ustreamer_rows(), *nginx_rows(), *publishing_rows()]
