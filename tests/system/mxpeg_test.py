#!/usr/bin/env python3
# ctest: timeout=400
"""MxPEG and decoded live views from camera to viewer: what FFmpeg finds in them, and cameras that fall silent.

The scenarios run side by side in one site.
"""

import array
import collections
import contextlib
import http.client
import math
import os
import pathlib
import signal
import subprocess
import time
import unittest

from hls_client import API
from oculora_site import BUILD, end, spawn, wait_until
from side_by_side import SideBySide, in_background, tests_of

PASSWORD = "a long password"
RING_BYTES = 24 << 20
LARGEST = 4 << 20
WAVE = 14  # samples; a block of sound holds 320, no multiple of it, so that a missing one shows

Block = collections.namedtuple("Block", "duration stamp samples")


def ffmpeg(*args, **kw):
    return subprocess.run(["ffmpeg", "-v", "error", "-nostdin", "-y", *map(str, args)], check=True, timeout=120, **kw)


class Part:
    """One part of an answer: a picture and, behind an MxPEG picture, a block of sound."""

    def __init__(self, body):
        self.body = body
        at = body.find(b"\xff\xd9\xff\xed")
        self.picture, block = (body, b"") if at < 0 else (body[: at + 2], body[at + 2 :])
        self.key = b"MXM\0" not in self.picture
        self.stamp_at = self.picture.find(b"MXF\0") + 8
        self.stamp = int.from_bytes(self.picture[self.stamp_at :][:8], "little")
        self.block = None
        if block:
            self.block = Block(*(int.from_bytes(block[a:b], "little") for a, b in ((4, 8), (8, 16))), block[16:])
            assert int.from_bytes(block[2:4], "big") == len(block) - 2, "length of the sound block"

    def unstamped(self):
        return self.picture[: self.stamp_at] + self.picture[self.stamp_at + 8 :]


class View:
    """A viewer in a thread of its own: `parts` as they come, `body` with all headers between."""

    def __init__(self, site, camera, format, sid, name):
        self.site, self.camera, self.name = site, camera, f"{name}-{camera}-{format}"
        self.parts, self.body = [], bytearray()
        self.connection = http.client.HTTPConnection("127.0.0.1", site.port, timeout=60)
        params = {"cameraId": camera, "format": format, "timestamp": 1, "viewer": self.name}
        self.connection.request("GET", site.api_path(API, "Stream", params, sid), headers={"Connection": "close"})
        self.answer = self.connection.getresponse()
        self.type = self.answer.headers["Content-Type"]
        self.ended = in_background(self._read)

    def _read(self):
        size = 0
        try:
            for line in iter(self.answer.readline, b""):
                self.body += line
                if line.lower().startswith(b"content-length:"):
                    size = int(line.split(b":")[1])
                elif line == b"\r\n" and size:
                    picture = self.answer.read(size)
                    self.body += picture
                    self.parts.append(Part(picture))
                    size = 0
        except (http.client.HTTPException, OSError, ValueError, AttributeError):
            pass  # closed here or there

    def wait(self, count):
        """Until so many more parts have come."""
        goal = len(self.parts) + count
        wait_until(lambda: len(self.parts) >= goal or self.ended.done(), 60, f"{goal} parts of {self.name}")
        assert len(self.parts) >= goal, f"{self.name} ended after {len(self.parts)} parts"

    def pid(self):
        """The request process."""
        mark = f"viewer={self.name}&".encode()
        for pid in self.site.pids("entry.cgi"):
            with contextlib.suppress(OSError):  # one that has ended meanwhile
                if mark in pathlib.Path(f"/proc/{pid}/environ").read_bytes():
                    return pid
        raise AssertionError(f"no process of {self.name}")

    def loads(self, library):
        return library in pathlib.Path(f"/proc/{self.pid()}/maps").read_text()

    def close(self):
        sock = self.answer.fp.raw._sock if self.answer.fp else None
        if sock:
            sock.shutdown(2)
        self.ended.result(30)
        self.answer.close()


def decode(folder, name, data):
    """The samples of a recorded MxPEG answer, after its pictures were decoded too; FFmpeg has nothing to complain."""
    file = os.path.join(folder, name + ".mxg")
    pathlib.Path(file).write_bytes(data)
    pictures = ["-map", "0:v", "-fps_mode", "passthrough", "-enc_time_base", "-1", "-f", "null", "-"]
    sound = ["-map", "0:a?", "-f", "s16le", file + ".pcm"]
    done = ffmpeg("-xerror", "-f", "mxg", "-i", file, *pictures, *sound, stderr=subprocess.PIPE)
    assert done.stderr == b"", done.stderr.decode()
    return file, array.array("h", pathlib.Path(file + ".pcm").read_bytes())


def packets(file, kind):
    shown = subprocess.run(["ffprobe", "-v", "error", "-f", "mxg", "-select_streams", kind, "-show_entries",
                            "packet=pts,size", "-of", "csv=p=0", file], check=True, capture_output=True, text=True)
    return [tuple(map(int, line.strip(",").split(","))) for line in shown.stdout.split()]


def rgb(size, *source, data=None):
    """The decoded pictures of a source, scaled to a size."""
    width, height = size
    raw = ffmpeg(*source, "-vf", f"scale={width}:{height}:flags=bicubic", "-fps_mode", "passthrough", "-f", "rawvideo",
                 "-pix_fmt", "rgb24", "-", input=data, stdout=subprocess.PIPE).stdout
    step = width * height * 3
    assert raw and len(raw) % step == 0, f"{len(raw)} bytes of {size}"
    return [raw[at : at + step] for at in range(0, len(raw), step)]


def psnr(a, b):
    """Of a sample of bytes, in dB."""
    pairs = list(zip(a[::41], b[::41]))
    return 10 * math.log10(255 * 255 / max(sum((x - y) ** 2 for x, y in pairs) / len(pairs), 1e-3))


def matches(view, size, references):
    """Which reference each JPEG shows, all of which have that size."""
    data = b"".join(part.body for part in view.parts)
    sizes = subprocess.run(["ffprobe", "-v", "error", "-f", "mjpeg", "-show_entries", "frame=width,height", "-of",
                            "csv=p=0:s=x", "-"], input=data, capture_output=True).stdout.split()
    assert set(sizes) == {b"%dx%d" % size}, (view.name, sizes)
    shown = []
    for picture in rgb(size, "-f", "mjpeg", "-i", "-", data=data):
        values = [psnr(picture, reference) for reference in references]
        assert max(values) >= 30, f"{view.name}: {values}"
        shown.append(values.index(max(values)))
    return shown


class World:
    """The site and its cameras."""

    # Three different key frames each, a second apart, but for the one without others: size, kind, how it is made.
    X264 = "-c:v", "libx264", "-preset", "veryfast", "-bf", "0", "-pix_fmt", "yuv420p", "-g"
    FILMS = {"wide": ("1280x720", "h264", (*X264, 25)), "intra": ("320x240", "h264", (*X264, 1)),
             "damaged": ("640x360", "h264", (*X264, 25)),
             "mpeg4": ("1000x562", "mpeg4", ("-c:v", "mpeg4", "-q:v", 3, "-g", 25))}

    def __init__(self, site):
        self.site, self.folder = site, site.path("/tmp")
        site.add_user("anna", PASSWORD, admin=True)
        self.decoded = {name: self.film_camera(name, *film) for name, film in self.FILMS.items()}
        self.brief = site.add_camera("brief", "h264", "/tmp/intra.mp4", stay_on=True)
        noise = self.film("noise", "avi", "testsrc2=1280x480:r=25[a];color=gray:1280x240:r=25,noise=alls=100:allf=t[b];"
                          "[a][b]vstack", 1, "-c:v", "mjpeg", "-q:v", "2", "-pix_fmt", "yuvj420p")
        self.noisy = self.generated("noisy", "--input", self.folder + noise.removeprefix("/tmp"), "--quality", 100,
                                    "--key-every", 10, "--tone", 8000 / WAVE)
        self.quiet = self.generated("quiet", "--size", "1000x562", "--fps", 10, "--key-every", 10, "--tone", 0)
        self.mute = self.generated("mute", "--size", "320x240", "--fps", 10, "--key-every", 5)
        self.mute_process = self.process
        self.blind = self.generated("blind", "--no-video", "--fps", 10)
        site.serve()
        self.sid = site.login("anna", PASSWORD)
        for camera in (self.noisy, self.quiet, self.mute, *self.decoded.values()):
            wait_until(lambda: self.state(camera)["state"] == "streaming", 60, f"camera {camera}")

    def generated(self, name, *args):
        self.process = spawn([os.path.join(BUILD, "bin", "mxpeg-camera"), "--port", "0", *map(str, args)],
                             stdout=subprocess.PIPE, text=True)
        unittest.addModuleCleanup(end, self.process)
        return self.site.add_camera(name, "mxpeg", self.process.stdout.readline().strip(), stay_on=True)

    def film(self, name, type, graph, seconds, *codec):
        """A path inside the site."""
        ffmpeg("-f", "lavfi", "-i", graph, "-t", seconds, *codec, f"{self.folder}/{name}.{type}")
        return f"/tmp/{name}.{type}"

    def film_camera(self, name, size, kind, codec):
        path = self.film(name, "avi" if kind == "mpeg4" else "mp4", f"testsrc2={size}:r=25,gblur=3", 3, *codec)
        if name != "damaged":
            return self.site.add_camera(name, kind, path, stay_on=True)
        # As a byte stream whose second key frame names parameter sets that do not exist.
        ffmpeg("-i", self.site.path(path), "-c", "copy", "-bsf:v", "h264_mp4toannexb", f"{self.folder}/{name}.h264")
        stream = bytearray(pathlib.Path(f"{self.folder}/{name}.h264").read_bytes())
        second = stream.index(b"\0\0\1\x65", stream.index(b"\0\0\1\x65") + 4)
        stream[second + 4 : second + 6] = b"\xc0\x7f"
        self.site.write(f"/tmp/{name}.h264", bytes(stream))
        return self.site.add_camera(name, kind, f"/tmp/{name}.h264", stay_on=True, fps=25)

    def key_frames(self, name, size):
        film = f"{self.folder}/{name}." + ("avi" if name == "mpeg4" else "mp4")
        return rgb(size, "-skip_frame", "nokey", "-i", film)

    def state(self, camera):
        entry = self.site.camera(camera)
        return {**entry, **next((stream for stream in entry["streams"] if stream["ring"]), {"state": ""})}

    def view(self, camera, format, name="v"):
        return View(self.site, camera, format, self.sid, name)

    def lines(self, text):
        return [line for line in self.site.log().splitlines() if text in line]


def recorded(world):
    """A recorded answer, across a halt of the request that loses all that its ring holds."""
    view, other = world.view(world.noisy, "mxpeg"), world.view(world.noisy, "mxpeg", "other")
    view.wait(12)
    assert not view.loads("libavcodec"), "MxPEG passes through as it is"
    os.mkdir(world.folder + "/dump")
    ring = world.site.run([os.path.join(BUILD, "bin", "ring_dump"), world.noisy, 0, "frames", 25, "/tmp/dump"],
                         capture_output=True, text=True, check=True).stdout.splitlines()
    wait_until(lambda: view.parts[-1].stamp > int(ring[-1].split()[2]), 60, "as much in the view")
    pid = view.pid()
    os.kill(pid, signal.SIGSTOP)
    goal = len(other.body) + RING_BYTES + 3 * LARGEST
    wait_until(lambda: len(other.body) > goal, 90, "the ring to go round")
    os.kill(pid, signal.SIGCONT)
    wait_until(lambda: view.parts[-1].stamp > other.parts[-1].stamp - 500000, 60, "the view to catch up")
    view.wait(10)
    view.close(), other.close()

    parts, stamps = view.parts, [part.stamp for part in view.parts]
    ring = [tuple(map(int, line.split())) for line in ring]
    first = stamps.index(ring[0][2])
    for number, ((_, flags, stamp, size), part) in enumerate(zip(ring, parts[first:]), 1):
        entry = Part(pathlib.Path(f"{world.folder}/dump/{number:06}").read_bytes())
        assert (stamp, flags == 2, size) == (part.stamp, part.key, len(part.picture)), (number, first)
        assert entry.unstamped() == part.unstamped()
    assert parts[0].key and parts[1].key and {part.key for part in parts} == {True, False}
    assert all(a < b for a, b in zip(stamps[1:], stamps[2:]))
    gap = max(range(2, len(stamps)), key=lambda number: stamps[number] - stamps[number - 1])
    assert parts[gap].key and parts[gap].block, "sound has gathered, and begins anew with a key picture"
    due = None
    for number, part in enumerate(parts):
        if part.block is None:
            continue
        duration, stamp, samples = part.block
        assert stamp == (part.stamp if due is None or number == gap else due), number
        assert duration == int(len(samples) / 8000 * 1000000)
        due = stamp + duration

    file, samples = decode(world.folder, "recorded", view.body)
    video, sound = packets(file, "v"), packets(file, "a")
    assert [pts for pts, _ in video] == stamps[: len(video)] and len(video) >= len(stamps) - 1
    blocks = [(part.block.stamp, len(part.block.samples)) for part in parts if part.block]
    assert sound == blocks[: len(sound)] and len(sound) >= len(blocks) - 1, (sound[-3:], blocks[-3:])
    shown = subprocess.run(["ffprobe", "-v", "error", "-f", "mxg", "-show_entries", "stream=codec_name,sample_rate,"
                            "channels,width,height", "-of", "csv=p=0", file], check=True, capture_output=True)
    assert shown.stdout.split() == [b"mxpeg,1280,720", b"pcm_alaw,8000,1"], shown.stdout
    # Half a wave later a sample is the opposite. So none is missing either, the halt included.
    off = [number for number, (a, b) in enumerate(zip(samples, samples[WAVE // 2 :])) if abs(a + b) > 800]
    assert max(samples) > 15000 and not off, off[:9]


def decodes(world):
    """The key frames of other codecs, scaled, as often as they are new."""
    expected = {"wide": (640, 360), "mpeg4": (640, 359), "intra": (320, 240), "damaged": (640, 360)}
    begin = time.monotonic()
    views = {name: world.view(world.decoded[name], "mjpeg") for name in expected}
    quiet, keys = (world.view(world.quiet, format) for format in ("mjpeg", "mxpeg"))
    views["wide"].wait(1)
    assert views["wide"].loads("libavcodec"), "so this is where one would see it"
    wait_until(lambda: all(len(view.parts) > 5 for view in (*views.values(), quiet)), 60, "pictures of all")
    for view in (*views.values(), quiet, keys):
        view.close()
    passed = time.monotonic() - begin
    assert not any(part.block for part in keys.parts)
    decode(world.folder, "quiet", keys.body)
    for name, size in expected.items():
        assert len(views[name].parts) <= passed * (3.4 if name == "intra" else 1) + 5, (name, passed)
        shown = matches(views[name], size, world.key_frames(name, size))
        assert name == "intra" or len(set(shown)) > 1, (name, shown)
        assert name != "damaged" or 1 not in shown, shown
    assert world.lines(f"Cam[{world.decoded['damaged']}]: Failed to compress image.")
    pictures = b"".join(part.picture for part in keys.parts if part.key)
    matches(quiet, (640, 359), rgb((640, 359), "-f", "mjpeg", "-i", "-", data=pictures))


def removed(world):
    """A removed camera ends its view."""
    view = world.view(world.brief, "mjpeg")
    view.wait(1)
    world.site.oculora("camera", "remove", world.brief)
    view.ended.result(60)
    assert world.lines(f"Cam[{world.brief}]: status abnormal. Stop liveview.")


def silent(world):
    """A camera that falls silent ends its views after 30 s."""
    views = [world.view(world.mute, format) for format in ("mxpeg", "mjpeg")]
    for view in views:
        view.wait(2)
    os.kill(world.mute_process.pid, signal.SIGSTOP)
    try:
        for view in views:
            view.ended.result(90)
    finally:
        os.kill(world.mute_process.pid, signal.SIGCONT)
    assert world.lines(f"Cam[{world.mute}]: get video data from VdoStmFifo more than 30 secs.")
    assert world.lines(f"Cam[{world.mute}]: status abnormal. Stop liveview.")
    assert world.lines(f'camera {world.mute} "mute": No picture for 10 s')


def sound_only(world):
    """Sound without pictures is no video."""
    view = world.view(world.blind, "mxpeg")
    view.ended.result(30)
    assert b'"code":403' in view.body, "not connected"
    reason = f'camera {world.blind} "blind": No usable picture in the stream'
    wait_until(lambda: world.lines(reason), 90, "the reason")
    assert world.state(world.blind)["measuredFps"] == 0, "blocks of sound are no frames"


SCENARIOS = recorded, decodes, removed, silent, sound_only


@tests_of(*SCENARIOS)
class MxpegTest(SideBySide):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        world = World(cls.make_site())
        for scenario in SCENARIOS:
            cls.start(scenario, world)


if __name__ == "__main__":
    unittest.main()
