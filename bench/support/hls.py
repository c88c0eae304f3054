"""A site with one H.264 camera of 1080p, 25 frames a second and 4 Mbit/s, and its HLS stream: open, follow, close."""

import os
import re
import subprocess
import sys

sys.path.insert(0, os.path.dirname(os.path.realpath(__file__)))
from front import Site, wait_until  # noqa: E402

API = "VELM.Oculora.Stream.VideoStreaming"
FPS = 25
GOP_SECONDS = 2
CLIP_SECONDS = 8
INSIDE = "/var/packages/clip"


def make_clip(stem):
    """STEM.mp4, and the same stream as STEM.h264."""
    subprocess.run(["ffmpeg", "-v", "error", "-f", "lavfi", "-i",
                    f"testsrc2=size=1920x1080:rate={FPS}:duration={CLIP_SECONDS}", "-vf", "noise=alls=8:allf=t",
                    "-c:v", "libx264", "-preset", "veryfast", "-bf", "0", "-g", str(FPS * GOP_SECONDS),
                    "-sc_threshold", "0", "-b:v", "4M", "-maxrate", "4M", "-bufsize", "4M", "-pix_fmt", "yuv420p",
                    stem + ".mp4"], check=True)
    subprocess.run(["ffmpeg", "-v", "error", "-i", stem + ".mp4", "-c", "copy", "-bsf:v", "h264_mp4toannexb",
                    stem + ".h264"], check=True)


def frames_of(path):
    """The frames of a raw H.264 file."""
    sizes = subprocess.run(["ffprobe", "-v", "error", "-f", "h264", "-show_entries", "packet=size", "-of", "csv=p=0",
                            path], check=True, capture_output=True, text=True).stdout.split()
    with open(path, "rb") as file:
        frames = [file.read(int(size.strip(","))) for size in sizes]
        if file.read(1) or len(frames) != FPS * CLIP_SECONDS:
            sys.exit(f"{path} was not taken apart well: {len(frames)} frames")
    return frames


class HlsSite(Site):
    """A served site whose camera streams already."""

    def __init__(self):
        super().__init__()
        try:
            self.clip = self.path(INSIDE)
            make_clip(self.clip)
            self.add_user("bench", "benchmark password", admin=True)
            self.camera = self.add_camera("Film", "h264", INSIDE + ".mp4", fps=FPS, stay_on=True)
            self.serve()
            self.sid = self.login("bench", "benchmark password")
            wait_until(lambda: self.call("Query").get("success"), 20, "the camera")
        except BaseException:
            self.close(failed=True)
            raise

    def call(self, method, **params):
        answer = self.api(API, method, {"cameraId": self.camera, **params}, self.sid)[1]
        return answer if isinstance(answer, dict) else {"answer": answer}

    def open(self):
        answer = self.call("Open", format="hls")
        if not answer.get("success"):
            sys.exit(f"Open failed: {answer}\n{self.log()[-2000:]}")

    def shut(self):
        """Closes the stream and waits until nothing is left of it."""
        pid = self.remux_pid()
        self.call("Close", format="hls")
        wait_until(lambda: not os.path.exists(f"/proc/{pid}") and not os.path.exists(self.hls_path()), 15,
                   "the end of the remux")

    def remux_pid(self):
        with open(self.path(f"/tmp/webapivdostm.pid.{self.camera}")) as file:
            return int(file.read())

    def hls_path(self, name=""):
        return os.path.join(self.path(f"/tmp/ndcam/{self.camera}"), name) if name else self.path(
            f"/tmp/ndcam/{self.camera}")

    def playlist_path(self):
        return self.api_path(API, "Stream", {"cameraId": self.camera, "format": "hls"}, self.sid)

    def slice_path(self, number):
        return self.api_path(API, "Stream", {"cameraId": self.camera, "isRedirectCgi": 0}, self.sid) + \
            f"&SliceId={self.camera}/{number}.ts"

    def slices(self):
        """The paths of the slices that the playlist names."""
        return re.findall(r"^http://[^/]+(/.*)$", self.get(self.playlist_path())[1].decode(), re.M)


def cpu_seconds(pid):
    """CPU time of a process and all its living threads, to the nanosecond."""
    total = 0
    for task in os.listdir(f"/proc/{pid}/task"):
        with open(f"/proc/{pid}/task/{task}/schedstat") as file:
            total += int(file.read().split()[0])
    return total / 1e9
