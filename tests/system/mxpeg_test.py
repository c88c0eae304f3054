#!/usr/bin/env python3
# ctest: timeout=240
"""MxPEG and decoded live views from camera to viewer: what FFmpeg finds in them, and cameras that do wrong.

The scenarios run side by side, because most of their time is waiting for pictures. A test waits for its scenario.
"""

import array
import collections
import concurrent.futures
import contextlib
import http.client
import math
import os
import pathlib
import signal
import subprocess
import threading
import time
import unittest

from side_by_side import in_background
from oculora_site import BUILD, Site, end, spawn, wait_until

API = "VELM.Oculora.Stream.VideoStreaming"
PASSWORD = "a long password"
RING_BYTES = 24 << 20
LARGEST = 4 << 20
WAVE = 14  # samples; a block of sound holds 320, no multiple of it, so that a missing one shows
FAULTS = ("lying-lengths", "delta-first", "huge", "truncated", "gap", "stall")

Block = collections.namedtuple("Block", "duration stamp samples")


def ffmpeg(*args, **kw):
    return subprocess.run(["ffmpeg", "-v", "error", "-nostdin", "-y", *map(str, args)], check=True, timeout=60, **kw)


class Part:
    """One part of an answer: a picture and, behind an MxPEG picture, a block of sound."""

    def __init__(self, body):
        self.body, self.arrived = body, time.time()
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

    def wait(self, count, seconds=20):
        """Until so many more parts have come."""
        goal = len(self.parts) + count
        wait_until(lambda: len(self.parts) >= goal or self.ended.done(), seconds, f"{goal} parts of {self.name}")
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
        self.ended.result(10)
        self.answer.close()

    def rate(self):
        return (len(self.parts) - 1) / (self.parts[-1].arrived - self.parts[0].arrived)


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


def sizes(view):
    """The sizes of the JPEGs, as FFmpeg sees them."""
    shown = subprocess.run(["ffprobe", "-v", "error", "-f", "mjpeg", "-show_entries", "frame=width,height", "-of",
                            "csv=p=0", "-"], input=b"".join(part.body for part in view.parts), capture_output=True)
    return {tuple(map(int, line.strip(",").split(","))) for line in shown.stdout.decode().split()}


def matches(view, size, references):
    """Which reference each JPEG shows."""
    shown = []
    for picture in rgb(size, "-f", "mjpeg", "-i", "-", data=b"".join(part.body for part in view.parts)):
        values = [psnr(picture, reference) for reference in references]
        assert max(values) >= 30, f"{view.name}: {values}"
        shown.append(values.index(max(values)))
    return shown


class World:
    """The site, its cameras and what the scenarios do with them."""

    def __init__(self, site):
        self.site = site
        self.folder, self.address = site.path("/tmp"), {}
        site.add_user("anna", PASSWORD, admin=True)
        self.films()
        noise = self.film("noise", "testsrc2=1280x480:r=25[a];color=gray:1280x240:r=25,noise=alls=100:allf=t[b];"
                          "[a][b]vstack", 1, "-c:v", "mjpeg", "-q:v", "2", "-pix_fmt", "yuvj420p", type="avi")
        self.noisy = self.generated("noisy", "--input", self.folder + noise.removeprefix("/tmp"), "--quality", 100,
                                    "--key-every", 10, "--tone", 8000 / WAVE)
        self.quiet = self.generated("quiet", "--size", "1000x562", "--fps", 10, "--key-every", 10, "--tone", 0)
        small = "--size", "320x240", "--fps", 10, "--key-every", 5
        self.mute = self.generated("mute", *small)
        self.mute_process = self.process
        self.blind = self.generated("blind", "--no-video", "--fps", 10)
        self.faulty = {fault: self.generated(fault, *small, "--fault", fault) for fault in FAULTS}

    def generated(self, name, *args):
        self.process = spawn([os.path.join(BUILD, "bin", "mxpeg-camera"), "--port", "0", *map(str, args)],
                             stdout=subprocess.PIPE, text=True)
        unittest.addModuleCleanup(end, self.process)
        url = self.process.stdout.readline().strip()
        camera = self.site.add_camera(name, "mxpeg", url, stay_on=True)
        self.address[camera] = url.split("/")[2]
        return camera

    def film(self, name, graph, seconds, *codec, type="mp4"):
        """A path inside the site."""
        ffmpeg("-f", "lavfi", "-i", graph, "-t", seconds, *codec, f"{self.folder}/{name}.{type}")
        return f"/tmp/{name}.{type}"

    def films(self):
        """Three different key frames each, a second apart, but for the one without others."""
        x264 = ("-c:v", "libx264", "-preset", "veryfast", "-bf", "0", "-pix_fmt", "yuv420p", "-g")
        self.decoded = {}
        for name, size, kind, codec in (
                ("wide", "1280x720", "h264", (*x264, 25)), ("odd", "1000x562", "h264", (*x264, 25)),
                ("narrow", "480x270", "h264", (*x264, 25)), ("intra", "320x240", "h264", (*x264, 1)),
                ("mpeg4", "1280x720", "mpeg4", ("-c:v", "mpeg4", "-q:v", 3, "-g", 25)),
                ("damaged", "640x360", "h264", (*x264, 25))):
            path = self.film(name, f"testsrc2={size}:r=25,gblur=3", 3, *codec, type="avi" if kind == "mpeg4" else "mp4")
            options = {}
            if name == "damaged":
                path, options = self.damage(name), {"fps": 25}
            self.decoded[name] = self.site.add_camera(name, kind, path, stay_on=True, **options)
        self.brief = self.site.add_camera("brief", "h264", "/tmp/narrow.mp4", stay_on=True)

    def damage(self, name):
        """The film as a byte stream whose second key frame names parameter sets that do not exist."""
        file = f"{self.folder}/{name}"
        ffmpeg("-i", file + ".mp4", "-c", "copy", "-bsf:v", "h264_mp4toannexb", file + ".h264")
        stream = bytearray(pathlib.Path(file + ".h264").read_bytes())
        second = stream.index(b"\0\0\1\x65", stream.index(b"\0\0\1\x65") + 4)
        stream[second + 4 : second + 6] = b"\xc0\x7f"
        pathlib.Path(file + ".h264").write_bytes(stream)
        return f"/tmp/{name}.h264"

    def key_frames(self, name, size):
        film = f"{self.folder}/{name}." + ("avi" if name == "mpeg4" else "mp4")
        return rgb(size, "-skip_frame", "nokey", "-i", film)

    def serve(self):
        self.site.serve()
        self.sid = self.site.login("anna", PASSWORD)
        for camera in (self.noisy, self.quiet, self.mute, *self.faulty.values(), *self.decoded.values()):
            wait_until(lambda: self.state(camera)["state"] == "streaming", 20, f"camera {camera}")

    def state(self, camera):
        entry = self.site.camera(camera)
        return {**entry, **next((stream for stream in entry["streams"] if stream["ring"]), {"state": ""})}

    def view(self, camera, format, name="v"):
        return View(self.site, camera, format, self.sid, name)

    def lines(self, text):
        return [line for line in self.site.log().splitlines() if text in line]

    def recorded(self):
        """A recorded answer, across a halt of the request that loses all that its ring holds."""
        view, other = self.view(self.noisy, "mxpeg"), self.view(self.noisy, "mxpeg", "other")
        view.wait(12)
        assert not view.loads("libavcodec"), "MxPEG passes through as it is"
        os.mkdir(self.folder + "/dump")
        ring = self.site.run([os.path.join(BUILD, "bin", "ring_dump"), self.noisy, 0, "frames", 25, "/tmp/dump"],
                             capture_output=True, text=True, check=True).stdout.splitlines()
        view.wait(2)
        pid = view.pid()
        os.kill(pid, signal.SIGSTOP)
        goal = len(other.body) + RING_BYTES + 3 * LARGEST
        wait_until(lambda: len(other.body) > goal, 30, "the ring to go round")
        os.kill(pid, signal.SIGCONT)
        wait_until(lambda: abs(view.parts[-1].stamp / 1e6 - time.time()) < 0.5, 20, "the view to catch up")
        view.wait(10)
        view.close(), other.close()

        parts, stamps = view.parts, [part.stamp for part in view.parts]
        ring = [tuple(map(int, line.split())) for line in ring]
        first = stamps.index(ring[0][2])
        for number, ((_, flags, stamp, size), part) in enumerate(zip(ring, parts[first:]), 1):
            entry = Part(pathlib.Path(f"{self.folder}/dump/{number:06}").read_bytes())
            assert (stamp, flags == 2, size) == (part.stamp, part.key, len(part.picture)), (number, first)
            assert entry.unstamped() == part.unstamped()
        assert parts[0].key and parts[1].key and {part.key for part in parts} == {True, False}
        assert all(a < b for a, b in zip(stamps[1:], stamps[2:]))
        gap, = (number for number in range(2, len(stamps)) if stamps[number] - stamps[number - 1] > 300000)
        assert parts[gap].key and parts[gap].block, "sound has gathered, and begins anew with a key picture"
        due = None
        for number, part in enumerate(parts):
            if part.block is None:
                continue
            duration, stamp, samples = part.block
            assert stamp == (part.stamp if due is None or number == gap else due), number
            assert duration == int(len(samples) / 8000 * 1000000)
            due = stamp + duration

        file, samples = decode(self.folder, "recorded", view.body)
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
        heard = sum(size for _, size in blocks) / 8000
        assert abs(heard - (stamps[-1] - blocks[0][0]) / 1e6) < 0.5, (heard, stamps, blocks)

    def faults(self, fault):
        """The stream goes on, what comes can be decoded, and the log says it once."""
        camera = self.faulty[fault]
        view = self.view(camera, "mxpeg")
        view.wait(3)
        if fault == "stall":
            wait_until(lambda: self.lines(f'camera {camera} "stall": No picture for 10 s'), 30, "the reason")
        view.wait(5 if fault == "lying-lengths" else 25, 30)  # three of four pictures are spoilt
        view.close()
        assert view.parts[0].key, "a view begins with a key picture"
        for part in view.parts:
            assert part.picture.startswith(b"\xff\xd8") and part.picture.endswith(b"\xff\xd9") and len(
                part.picture) <= LARGEST
        decode(self.folder, fault, view.body)
        assert self.state(camera)["state"] == "streaming"
        damaged = "lying-lengths", "truncated"
        told = [line for line in self.lines("sends damaged MxPEG pictures") if self.address[camera] in line]
        assert len(told) == (fault in damaged), told

    def decodes(self):
        """The key frames of other codecs, scaled, as often as they are new."""
        expected = {"wide": (640, 360), "odd": (640, 359), "narrow": (480, 270), "intra": (320, 240),
                    "mpeg4": (640, 360), "damaged": (640, 360)}
        views = {name: self.view(self.decoded[name], "mjpeg") for name in expected}
        keys = self.view(self.quiet, "mxpeg")
        views["quiet"] = self.view(self.quiet, "mjpeg")
        views["wide"].wait(2)
        assert views["wide"].loads("libavcodec"), "so this is where one would see it"
        time.sleep(6)
        for view in views.values():
            view.close()
        keys.wait(1)
        keys.close()
        assert not any(part.block for part in keys.parts)
        decode(self.folder, "quiet", keys.body)
        for name, view in views.items():
            low, high = (2.2, 3.4) if name == "intra" else (0.4, 1.3)
            assert low <= view.rate() <= high, (name, view.rate())
        for name, size in expected.items():
            assert sizes(views[name]) == {size}, (name, sizes(views[name]))
            shown = matches(views[name], size, self.key_frames(name, size))
            if name != "intra":
                assert all(a != b for a, b in zip(shown, shown[1:])), (name, shown)
                assert set(shown) == ({0, 2} if name == "damaged" else {0, 1, 2}), (name, shown)
        broken = self.lines(f"Cam[{self.decoded['damaged']}]: Failed to compress image.")
        assert 1 <= len(broken) <= 4, broken
        pictures = b"".join(part.picture for part in keys.parts if part.key)
        matches(views["quiet"], (640, 359), rgb((640, 359), "-f", "mjpeg", "-i", "-", data=pictures))

    def removed(self):
        view = self.view(self.brief, "mjpeg")
        view.wait(1)
        self.site.oculora("camera", "remove", self.brief)
        view.ended.result(10)
        assert self.lines(f"Cam[{self.brief}]: status abnormal. Stop liveview.")

    def silent(self):
        """A camera that falls silent ends its views after 30 s."""
        views = [self.view(self.mute, format) for format in ("mxpeg", "mjpeg")]
        for view in views:
            view.wait(2)
        os.kill(self.mute_process.pid, signal.SIGSTOP)
        try:
            for view in views:
                view.ended.result(45)
            assert self.lines(f"Cam[{self.mute}]: get video data from VdoStmFifo more than 30 secs.")
            assert self.lines(f"Cam[{self.mute}]: status abnormal. Stop liveview.")
            assert self.lines(f'camera {self.mute} "mute": No picture for 10 s')
        finally:
            os.kill(self.mute_process.pid, signal.SIGCONT)

    def sound_only(self):
        view = self.view(self.blind, "mxpeg")
        view.ended.result(10)
        assert b'"code":403' in view.body, "not connected"
        reason = f'camera {self.blind} "blind": No usable picture in the stream'
        wait_until(lambda: self.lines(reason), 45, "the reason")
        assert self.state(self.blind)["measuredFps"] == 0, "blocks of sound are no frames"

    def crowd(self):
        """Half of the viewers of a camera are killed; the others miss nothing."""
        views = [self.view(self.quiet, "mxpeg", f"crowd{number}") for number in range(20)]
        for view in views:
            view.wait(3)
        for view in views[::2]:
            os.kill(view.pid(), signal.SIGKILL)
        for view in views[1::2]:
            view.wait(15)
        seen = [[part.stamp for part in view.parts[1:]] for view in views[1::2]]
        for view in views:
            view.close()
        begin = max(stamps[0] for stamps in seen)  # of the last one that came
        assert len({tuple(stamps[stamps.index(begin) :][:15]) for stamps in seen}) == 1, seen


SCENARIOS = ("recorded", "decodes", "removed", "silent", "sound_only", "crowd")


class MxpegTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.site, cls.runs = Site(), {}
        cls.addClassCleanup(lambda: cls.site.close(any(not run.done() or run.exception() for run in cls.runs.values())))
        cls.world = World(cls.site)
        cls.world.serve()
        cls.runs.update({name: in_background(getattr(cls.world, name)) for name in SCENARIOS})
        cls.runs.update({fault: in_background(cls.world.faults, fault) for fault in FAULTS})

    def finish(self, name):
        self.runs[name].result(100)

    def test_ffmpeg_reads_what_was_recorded(self):
        self.finish("recorded")

    def test_key_frames_of_other_codecs(self):
        self.finish("decodes")

    def test_cameras_that_do_wrong(self):
        for fault in FAULTS:
            with self.subTest(fault):
                self.finish(fault)

    def test_a_removed_camera_ends_its_view(self):
        self.finish("removed")

    def test_a_silent_camera_ends_its_views(self):
        self.finish("silent")

    def test_sound_without_pictures(self):
        self.finish("sound_only")

    def test_killed_viewers_harm_nobody(self):
        self.finish("crowd")

    def test_z_nothing_stays(self):
        concurrent.futures.wait(self.runs.values(), 100)
        wait_until(lambda: not self.site.pids("entry.cgi"), 10, "requests to end")
        self.assertNotIn("is started again", self.site.log(), "a worker that crashed")
        self.site.popen(["sleep", "60"])  # keeps the namespaces, so that there is something to look at
        self.assertEqual(self.site.stop(), 0)
        self.assertEqual((self.site.shared_memory(), self.site.pids("recorder|entry")), ([], []))


if __name__ == "__main__":
    unittest.main()
