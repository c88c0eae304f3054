"""A client of one camera's HLS stream, the clip that its camera shows, and what to look at on the host's side.

    camera = HlsCamera(site, add_clip_camera(site, "Film"), sid)
    camera.open()
    slices = camera.watch(6)           # {number: bytes}
    camera.close()
"""

import os
import re
import subprocess
import time

from oculora_site import wait_until

API = "VELM.Oculora.Stream.VideoStreaming"
FPS = 10
CLIP = "/var/packages/clip.mp4"
CLIP_SECONDS = 17
SLICE_FRAMES = 2 * FPS  # key frames come once a second


def make_clip(path):
    """A film in which no two pictures are alike, with a key frame a second."""
    subprocess.run(["ffmpeg", "-v", "error", "-nostdin", "-y", "-f", "lavfi", "-i",
                    f"testsrc2=size=320x240:rate={FPS}:duration={CLIP_SECONDS}", "-c:v", "libx264", "-preset",
                    "ultrafast", "-g", str(FPS), "-sc_threshold", "0", "-bf", "0", "-threads", "1", path],
                   check=True, timeout=60)


def add_clip_camera(site, name, fps=FPS):
    """Adds an H.264 camera that shows the clip over and over; its id."""
    if not os.path.exists(site.path(CLIP)):
        make_clip(site.path(CLIP))
    return site.add_camera(name, "h264", CLIP, fps=fps)


def pictures(source):
    """The hash of each decoded picture of a file name or of bytes; AssertionError when the decoder says anything."""
    data = source if isinstance(source, bytes) else None
    done = subprocess.run(["ffmpeg", "-v", "warning", "-i", source if data is None else "-", "-threads", "1",
                           "-fps_mode", "passthrough", "-f", "framemd5", "-"], input=data or b"", capture_output=True,
                          timeout=120)
    if done.returncode != 0 or done.stderr:
        raise AssertionError(f"the decoder says: {done.stderr.decode(errors='replace')}")
    return [line.split(b",")[-1].strip() for line in done.stdout.splitlines() if not line.startswith(b"#")]


def probe(data):
    """The packets of a slice, (time stamp, key frame or not) each; AssertionError when ffprobe has a complaint."""
    done = subprocess.run(["ffprobe", "-v", "warning", "-show_entries", "packet=pts,flags", "-of", "csv=p=0", "-"],
                          input=data, capture_output=True, timeout=60)
    if done.returncode != 0 or done.stderr:
        raise AssertionError(f"ffprobe says: {done.stderr.decode(errors='replace')}")
    fields = [line.split(",") for line in done.stdout.decode().split()]
    return [(int(pts), flags.startswith("K")) for pts, flags in (line[:2] for line in fields)]


def check_run(slices, film):
    """Slices in a row: each starts on a key frame and lasts two seconds, and together they show the film on and on,
    every picture once. `film` are the film's pictures. The number of pictures compared is returned."""
    numbers = sorted(slices)
    assert numbers == list(range(numbers[0], numbers[0] + len(numbers))), f"slices are missing: {numbers}"
    stamps = []
    for number in numbers:
        packets = probe(slices[number])
        assert packets and packets[0][1], f"slice {number} starts without a key frame"
        assert len(packets) == SLICE_FRAMES, f"slice {number} has {len(packets)} frames"
        stamps += [pts for pts, _ in packets]
    steps = {(after - before) % (1 << 33) for before, after in zip(stamps, stamps[1:])}
    assert steps <= {90000 // FPS}, f"time stamps step by {steps}"
    shown = [picture for number in numbers for picture in pictures(slices[number])]
    start = film.index(shown[0])
    expected = [film[(start + i) % len(film)] for i in range(len(shown))]
    assert shown == expected, "pictures are missing, doubled or damaged at " + str(
        [i for i, (one, other) in enumerate(zip(shown, expected)) if one != other][:5])
    assert len(shown) == len(stamps), "not every frame is a picture"
    return len(shown)


def requests(site):
    """The pids of request processes, remuxes among them."""
    return [pid for pid, line in site.processes().items() if "entry.cgi" in line]


def leftovers(site):
    """Whatever is there of remuxes; empty when the last one has gone."""
    found = [f"process {pid}" for pid in requests(site)]
    found += [name for name in os.listdir(site.path("/tmp")) if name.startswith("webapivdostm")]
    ndcam = site.path("/tmp/ndcam")
    found += [f"ndcam/{name}" for name in os.listdir(ndcam) if name != "file_lock"] if os.path.exists(ndcam) else []
    return found


class HlsCamera:
    """One camera as a client with a session sees it, and its remux as the host sees it."""

    def __init__(self, site, id, sid, root=None):
        """`root` is where the site's processes see their "/", for a site that mounts something below it."""
        self.site, self.id, self.sid = site, id, sid
        self.directory, self.pid_file = (root + path if root else site.path(path) for path in
                                         (f"/tmp/ndcam/{id}", f"/tmp/webapivdostm.pid.{id}"))

    # --- the client's side -------------------------------------------------------------------------------------------

    def stream_path(self, **params):
        return self.site.api_path(API, "Stream", {"cameraId": self.id, "format": "hls", **params}, self.sid)

    def call(self, method, **params):
        return self.site.api(API, method, {"cameraId": self.id, **params}, self.sid)[1]

    def open(self):
        answer = self.call("Open", format="hls")
        assert answer == {"success": True}, answer

    def close(self):
        answer = self.call("Close")
        assert answer == {"success": True}, answer

    def close_last(self):
        self.close()
        self.wait_for_end()

    def wait_for_end(self):
        wait_until(self.is_gone, 20, f"the end of camera {self.id}'s remux")

    def playlist(self, headers=None):
        """(answer headers, first number, URLs) of the playlist as it is now."""
        answer, body = self.site.get(self.stream_path(), headers)
        lines = body.decode().splitlines()
        number = re.search(rb"#EXT-X-MEDIA-SEQUENCE:(\d+)", body)
        return answer, int(number[1]) if number else None, [line for line in lines if line and line[0] != "#"]

    def slice(self, slice_id):
        """(answer headers, bytes) for a slice id, or for the URL of a playlist."""
        if slice_id.startswith("http"):
            return self.site.get("/" + slice_id.split("/", 3)[3])
        return self.site.get(self.stream_path(SliceId=slice_id))

    def _look(self, is_new):
        """The playlist once it names a new slice, of which the function is told its number."""
        def look():
            time.sleep(0.3)  # each look is a process there
            found = self.playlist()
            return found[2] and is_new(found[1] + len(found[2]) - 1) and found
        return wait_until(look, 30, "another slice")

    def watch(self, count, slices=None):
        """Plays until it has fetched so many more slices, each once; {number: bytes} with what `slices` holds."""
        slices = {} if slices is None else slices
        goal = len(slices) + count
        while len(slices) < goal:
            _, number, urls = self._look(lambda newest: newest not in slices)
            for i, url in enumerate(urls):
                assert url.endswith(f"&SliceId={self.id}/{number + i}.ts"), url
                if number + i not in slices:
                    slices[number + i] = self.slice(url)[1]
        return slices

    def plays(self):
        """Another slice comes, and can be decoded."""
        known = self.playlist()[1:]
        fresh = self._look(lambda newest: newest >= (known[0] or 0) + len(known[1]))[2][-1]
        assert len(pictures(self.slice(fresh)[1])) == SLICE_FRAMES

    def close_all(self):
        """Closes for every user there is, and waits for the end."""
        for _ in range(1000):
            if self.call("Close") != {"success": True}:
                break
        self.wait_for_end()

    # --- the host's side ---------------------------------------------------------------------------------------------

    def count(self):
        """The bytes of the file that counts the users; None without one."""
        try:
            with open(os.path.join(self.directory, "cnt"), "rb") as file:
                return file.read()
        except FileNotFoundError:
            return None

    def remux(self):
        """The pid of the remux; None without a pid file."""
        try:
            with open(self.pid_file) as file:
                return int(file.read() or 0) or None
        except FileNotFoundError:
            return None

    def remuxes(self):
        """The processes that work for this camera, old ones included: those whose directory is, or was, its own."""
        found = []
        for pid in requests(self.site):
            try:
                if re.fullmatch(rf".*/ndcam/{self.id}( \(deleted\))?", os.readlink(f"/proc/{pid}/cwd")):
                    found.append(pid)
            except OSError:
                continue
        return found

    def back_date(self, seconds):
        """As if the last slice had been fetched so long ago."""
        then = time.time() - seconds
        os.utime(self.pid_file, (then, then))

    def is_gone(self):
        return not self.remuxes() and not os.path.exists(self.directory) and not os.path.exists(self.pid_file)
