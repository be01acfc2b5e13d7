"""Test pictures with the frame mark, encoded once for each kind."""
import subprocess

from decoder import MARK

SIZE, RATE = (640, 480), 25
ENCODERS = {
    "H.264": "-c:v libx264 -preset ultrafast -crf 25 -g 50 -bf 0 -pix_fmt yuv420p",
    "H.265": "-c:v libx265 -preset ultrafast -crf 25 -x265-params keyint=50:bframes=0:log-level=error -pix_fmt yuv420p",
    "MPEG-4": "-c:v mpeg4 -q:v 3 -g 50",
    "MPEG-2": "-c:v mpeg2video -q:v 3 -g 25",
    # RTP has no room for Huffman tables other than the standard ones.
    "MJPEG": "-c:v mjpeg -huffman default -q:v 4 -pix_fmt yuvj420p",
    "VP8": "-c:v libvpx -deadline realtime -cpu-used 16 -b:v 2M -g 50 -t 15",
}


class Clips:
    def __init__(self, folder, painter, seconds):
        self.folder, self.painter, self.seconds, self.made = folder, painter, seconds, {}

    def file(self, kind, container="mkv", sound=False):
        """The path of a file with some test pictures."""
        key = (kind, container, sound)
        if key not in self.made:
            path = self.folder / f"{kind.replace('.', '').lower()}{'-sound' if sound else ''}.{container}"
            if path.exists():  # from an earlier run
                pass
            elif container == "mkv" and not sound:
                self.encode(kind, path)
            else:
                self.convert(self.file(kind), path, sound)
            self.made[key] = path
        return self.made[key]

    def encode(self, kind, path):
        width, height = SIZE
        pictures = subprocess.Popen([self.painter, str(width), str(height), str(RATE * self.seconds), str(MARK)],
                                    stdout=subprocess.PIPE)
        subprocess.run(["ffmpeg", "-v", "error", "-nostdin", "-f", "rawvideo", "-pixel_format", "bgr0", "-video_size",
                        f"{width}x{height}", "-framerate", str(RATE), "-i", "-", *ENCODERS[kind].split(), "-y", path],
                       stdin=pictures.stdout, check=True)
        pictures.wait()

    def convert(self, source, path, sound):
        tone = ["-f", "lavfi", "-i", f"sine=frequency=440:duration={self.seconds}"] if sound else []
        formats = {"mpjpeg": ["-f", "mpjpeg"], "m3u8": ["-f", "hls", "-hls_time", "2", "-hls_list_size", "0"]}
        subprocess.run(["ffmpeg", "-v", "error", "-nostdin", "-i", source, *tone, "-c:v", "copy",
                        "-c:a", "aac", "-shortest", *formats.get(path.suffix[1:], []), "-y", path], check=True)
