#!/usr/bin/env python3
# ctest: timeout=600
"""The recorder against cameras that others wrote: what reaches the rings, and what survives which trouble."""

import collections
import concurrent.futures
import hashlib
import os
import pathlib
import re
import signal
import subprocess
import tempfile
import unittest

from cameras.mjpeg_server import MjpegCamera
from oculora_site import BUILD, CHECKOUT, Site, end, free_port, spawn, wait_until

RTSP_SERVER = os.path.join(CHECKOUT, "tests/support/cameras/rtsp_server.py")
RECORDER = os.path.join(BUILD, "bin", "oculora-recorder")
MXPEG_CAMERA = os.path.join(BUILD, "bin", "mxpeg-camera")
MXPEG_START = b"\xff\xd8\xff\xfe"  # of each part
RECORDER_PID = "/var/packages/Oculora/var/recorder.pid"
RECORDS = "/var/packages/Oculora/var/records.db"

Frame = collections.namedtuple("Frame", "data key timestamp")


def ffmpeg(*args, **kw):
    return subprocess.run(["ffmpeg", "-v", "error", "-nostdin", "-y", *map(str, args)], check=True, timeout=60, **kw)


def pixels(jpeg):
    return ffmpeg("-xerror", "-f", "mjpeg", "-i", "-", "-f", "md5", "-", input=jpeg, stdout=subprocess.PIPE).stdout


def units(stream):
    """The units of an H.264 byte stream."""
    return re.split(b"\0\0\0?\1", stream)[1:]


class RecorderSite(Site):
    """A site with only the recorder running."""

    def start_recorder(self):
        self.recorder = self.popen([RECORDER], stdin=subprocess.DEVNULL)
        wait_until(lambda: self.read(RECORDER_PID), what="the pid file")

    def worker(self, camera):
        return next(iter(self.pids(f"--worker {camera}$")), None)

    def ring(self, camera):
        """The state of a camera and its ring; None as long as it has none."""
        entry = self.camera(camera) or {"streams": []}
        return next(({**entry, **stream} for stream in entry["streams"] if stream["ring"]), None)

    def wait_for(self, camera, state):
        return wait_until(lambda: (ring := self.ring(camera)) and ring["state"] == state and ring, 60, state)

    def watch(self, camera, count, what="frames"):
        """`count` frames (or blocks of "sound") as a viewer sees them, and the extra data."""
        with tempfile.TemporaryDirectory(dir=self.path("/tmp")) as outside:
            inside = "/tmp/" + os.path.basename(outside)
            argv = [os.path.join(BUILD, "bin", "ring_dump"), camera, 0, what, count, inside, 90]
            frames = []
            lines = self.run(argv, capture_output=True, text=True, timeout=120).stdout.splitlines()
            for number, line in enumerate(lines, 1):
                _, flags, timestamp, _ = map(int, line.split())
                frames.append(Frame(pathlib.Path(f"{outside}/{number:06}").read_bytes(), flags == 2, timestamp))
            return frames, pathlib.Path(outside + "/extra").read_bytes()

    def watch_all(self, cameras):
        """What one viewer for each of (camera, count, ...) sees, all at once."""
        with concurrent.futures.ThreadPoolExecutor(len(cameras)) as pool:
            return list(pool.map(lambda what: self.watch(*what), cameras))


class RecorderTest(unittest.TestCase):
    def setUp(self):
        self.site = self.enterContext(RecorderSite())
        self.site.start_recorder()
        self.expected_crashes = 0

    def tearDown(self):  # a worker that crashes is started again, which would hide it
        self.assertEqual(self.site.log().count("is started again"), self.expected_crashes, self.site.log())

    def rtsp_camera(self, *user):
        """The address of an RTSP camera, without the scheme."""
        process = spawn([RTSP_SERVER, *user], stdout=subprocess.PIPE, text=True)
        self.addCleanup(end, process)
        return "127.0.0.1:" + re.match(r"READY (\d+)", process.stdout.readline()).group(1)

    def motion(self, source):
        """An HTTP MJPEG server that is not ours, fed by a camera; its address."""
        port = free_port()
        config = self.site.write("/tmp/motion.conf", (
            f"netcam_url {source}\nwidth 640\nheight 360\nframerate 10\nstream_port {port}\nstream_maxrate 10\n"
            "picture_output off\nmovie_output off\nwebcontrol_port 0\n"))
        with open(self.site.path("/tmp/motion.log"), "wb") as log:
            self.addCleanup(end, spawn(["motion", "-n", "-c", config], stdout=log, stderr=log))
        return f"http://127.0.0.1:{port}/"

    def assert_frames(self, kind, frames, extra, count):
        """Whole pictures; those of H.264 decode without a complaint, one a frame, key ones after parameter sets."""
        self.assertEqual(len(frames), count)
        for frame in frames if kind == "mjpeg" else ():
            self.assertEqual((frame.key, frame.data[:2], frame.data[-2:]), (True, b"\xff\xd8", b"\xff\xd9"))
        if kind != "h264":
            return
        frames = frames[[frame.key for frame in frames].index(True):]
        for frame in frames:
            types = [unit[0] & 31 for unit in units(frame.data)]
            if frame.key:
                self.assertEqual([kind for kind in types if kind != 9][:2], [7, 8], types)
                self.assertEqual((types.count(7), types.count(8)), (1, 1), types)
                self.assertTrue(frame.data.startswith(b"\0\0\0\1"))
            # Each begins a picture: the first bit of a slice's header stands for its first macroblock.
            self.assertTrue(next(unit for unit in units(frame.data) if unit[0] & 31 in (1, 5))[1] & 0x80)
        self.assertEqual([unit[0] & 31 for unit in units(extra)], [7, 8])
        done = subprocess.run(["ffprobe", "-v", "warning", "-f", "h264", "-i", "-", "-count_frames", "-show_entries",
                               "stream=nb_read_frames", "-of", "csv=p=0"], capture_output=True, timeout=60,
                              input=b"".join(frame.data for frame in frames))
        self.assertEqual((done.stderr.decode(), int(done.stdout)), ("", len(frames)))

    def test_mjpeg_arrives_as_sent_however_it_is_sent(self):
        server = MjpegCamera()
        counts = {"plain": 20, "nolength": 20, "quoted": 20, "nodashes": 20, "otherboundary": 20, "padded": 20,
                  "junk": 20, "avi1": 20, "password": 5, "stall": 5, "dies": 9}  # the last two over several connections
        cameras = [(self.site.add_camera(variant, "mjpeg", f"http://admin:secret@{server.address}/{variant}"), count)
                   for variant, count in counts.items()]
        for (variant, count), (frames, _) in zip(counts.items(), self.site.watch_all(cameras)):
            with self.subTest(variant):
                self.assert_frames("mjpeg", frames, None, count)
                if variant != "avi1":
                    self.assertLessEqual({hashlib.sha256(frame.data).hexdigest() for frame in frames}, server.sent)
                else:  # missing Huffman tables are added, because browsers need them
                    self.assertTrue(all(b"\xff\xc4" in frame.data for frame in frames))
                    self.assertLessEqual({pixels(frame.data) for frame in frames}, set(map(pixels, server.pictures)))
        self.assertIn('"dies" is back', self.site.log())

    def test_cameras_that_others_wrote(self):
        rtsp = "rtsp://" + self.rtsp_camera()
        guarded = "rtsp://admin:secret@" + self.rtsp_camera("admin:secret")
        cases = [("h264", rtsp + "/h264"), ("h264", rtsp + "/described"), ("mjpeg", rtsp + "/jpeg"),
                 ("h264", guarded + "/h264"), ("mjpeg", self.motion(rtsp + "/h264"))]
        # Of a known rate, so that nobody has visited them before.
        cameras = [(self.site.add_camera(source, kind, source, fps=15), 40) for kind, source in cases]
        for (kind, source), (frames, extra) in zip(cases, self.site.watch_all(cameras)):
            with self.subTest(source):
                self.assert_frames(kind, frames, extra, 40)
                self.assertTrue(frames[0].key)
                if kind == "mjpeg":
                    self.assertGreater(len({pixels(frame.data) for frame in frames[::8]}), 3, "it moves")

    def test_files_and_patterns_play_at_their_pace(self):
        clip, outside = "/tmp/clip.mp4", self.site.path("/tmp/clip")
        for name, b_frames in ((clip, 0), ("/tmp/reordered.mp4", 2)):
            ffmpeg("-f", "lavfi", "-i", "testsrc2=size=320x240:rate=20", "-frames:v", 20, "-c:v", "libx264", "-bf",
                   b_frames, "-g", 10, self.site.path(name))
        ffmpeg("-i", outside + ".mp4", "-c", "copy", outside + ".h264")
        ffmpeg("-i", outside + ".mp4", "-c:v", "mpeg4", outside + ".avi")
        cases = [("h264", clip, {}, 20), ("h264", "/tmp/clip.h264", {"fps": 40}, 40),
                 ("mpeg4", "/tmp/clip.avi", {}, 20), ("h264", "/tmp/reordered.mp4", {}, 20),
                 ("mjpeg", "test:640x360", {"fps": 20}, 20), ("h264", "test:640x360", {"fps": 20}, 20)]
        cameras = [(self.site.add_camera(str(case), case[0], case[1], **case[2]), 70) for case in cases]
        for (kind, source, _, rate), (frames, extra) in zip(cases, self.site.watch_all(cameras)):
            with self.subTest(source, kind=kind):
                self.assert_frames(kind, frames, extra, 70)
                shown = 69 / (frames[-1].timestamp - frames[0].timestamp) * 1e6
                self.assertTrue(rate * 0.6 < shown < rate * 1.15, shown)  # a busy machine may be slower
                self.assertGreaterEqual(len({frame.data for frame in frames}), 20, "it moves")
        self.assertEqual(re.findall(r"camera (\d+) .* sends B-frames", self.site.log()), ["4"], "told once")

    def mxpeg_camera(self, *options):
        """The address of a generated MxPEG camera."""
        camera = spawn([MXPEG_CAMERA, "--port", "0", "--size", "160x120", *options], stdout=subprocess.PIPE, text=True)
        self.addCleanup(end, camera)
        return camera.stdout.readline().strip()

    def test_mxpeg_arrives_as_ffmpeg_reads_it(self):
        file, outside = "/tmp/camera.mxg", self.site.path("/tmp/camera.mxg")
        subprocess.run([MXPEG_CAMERA, "--file", outside, "--seconds", "2", "--fps", "10", "--key-every", "5", "--size",
                        "160x120", "--tone", "433"], check=True, timeout=60)
        twice = pathlib.Path(outside).read_bytes() * 2  # FFmpeg may leave out what stands at the end
        video, sound = ([line.split()[-1] for line in ffmpeg(
            "-f", "mxg", "-i", "-", "-map", "0:" + kind, "-c", "copy", "-copyinkf", "-f", "framemd5", "-", input=twice,
            stdout=subprocess.PIPE).stdout.decode().splitlines() if line[0] != "#"][:20] for kind in "va")
        camera = self.site.add_camera("File", "mxpeg", file)
        pattern = self.site.add_camera("Pattern", "mxpeg", "test:160x120", fps=10)
        (seen, _), (heard, _), (drawn, _), (tone, _) = self.site.watch_all(
            [(camera, 45), (camera, 45, "sound"), (pattern, 25), (pattern, 25, "sound")])
        for frames, expected in (seen, video), (heard, sound):
            hashes = [hashlib.md5(frame.data).hexdigest() for frame in frames]
            first = expected.index(hashes[0])
            self.assertEqual(hashes, ((expected * 4)[first:])[:45])
            self.assertTrue(4 < (frames[-1].timestamp - frames[0].timestamp) / 1e6 < 8, "45 at 10 a second")
        self.assertEqual([frame.key for frame in seen[:10]].count(True), 2)
        for frames in seen, drawn:
            frames = frames[[frame.key for frame in frames].index(True):]
            done = ffmpeg("-xerror", "-f", "mxg", "-i", "-", "-f", "framemd5", "-", stdout=subprocess.PIPE,
                          input=b"".join(frame.data for frame in frames) + seen[0].data)
            self.assertGreaterEqual(len(set(re.findall(rb"\w{32}", done.stdout))), min(len(frames), 10), "it moves")
        self.assertEqual({len(block.data) for block in tone}, {800})

    # What each fault does to the parts of a stream, which must be so for the test below to tell something.
    FAULTS = {"lying-lengths": lambda parts: any(part[:2] in (b"\xff\xff", b"\0\0") for part in parts),
              "delta-first": lambda parts: b"MXM\0" in parts[0],
              "truncated": lambda parts: any(b"\xff\xd9\xff\xed" not in part for part in parts)}

    def test_mxpeg_cameras_that_do_wrong(self):
        file = self.site.path("/tmp/faulty.mxg")
        for fault, mark in self.FAULTS.items():
            subprocess.run([MXPEG_CAMERA, "--file", file, "--seconds", "2", "--size", "160x120", "--fault", fault],
                           check=True, timeout=60)
            self.assertTrue(mark(pathlib.Path(file).read_bytes().split(MXPEG_START)[1:]), fault)
        cases = {"": 30, "raw": 30, "delta-first": 30, "truncated": 30, "huge": 30, "gap": 30, "lying-lengths": 3}
        cameras = []
        for case, count in cases.items():
            fault, path = ([], case) if case in ("", "raw") else (["--fault", case], "")
            url = self.mxpeg_camera("--fps", "10", "--key-every", "5", *fault) + path
            cameras.append((self.site.add_camera(case or "multipart", "mxpeg", url), count))
        jpegs = self.site.add_camera("JPEG", "mxpeg", f"http://{MjpegCamera().address}/plain")
        *seen, (whole, _) = self.site.watch_all(cameras + [(jpegs, 10)])
        self.assertTrue(all(frame.key for frame in whole), "plain JPEG pictures are fine")
        for case, (frames, _) in zip(cases, seen):
            with self.subTest(case or "multipart"):
                self.assertTrue(frames[0].key)
                for frame in frames:
                    self.assertEqual((frame.data[:2], frame.data[-2:]), (b"\xff\xd8", b"\xff\xd9"))
                late = [frame.timestamp - int.from_bytes(frame.data[14:22], "little") for frame in frames]
                if case != "lying-lengths":  # whose segments may be 64 KiB long until they prove not to be
                    self.assertLess(min(late), 90000, "pictures wait for the next one")
        self.assertEqual(self.site.log().count("sends damaged MxPEG pictures"), 2, self.site.log())

    def test_cameras_run_while_watched_or_their_rate_is_measured(self):
        url = f"rtsp://{self.rtsp_camera()}/h264"
        unwatched = self.site.add_camera("Unwatched", "mjpeg", "test:64x48")
        asked = self.site.add_camera("Asked", "h264", url)  # visited for the rate, although nobody watches
        first = self.site.add_camera("First", "mxpeg", "test:64x48")  # visited for a key picture
        declared = self.site.add_camera("Declared", "h264", url, fps=9, stay_on=True)
        worker = wait_until(lambda: self.site.worker(asked), what="the worker")
        # A busy machine may send a few less; the exact arithmetic is the rate meter's own test.
        wait_until(lambda: 12 <= self.site.camera(asked)["measuredFps"] <= 16, 120, "a measured rate")
        self.assertEqual(self.site.camera(declared)["measuredFps"], 0)
        visited = self.site.wait_for(asked, "idle")["frames"]
        self.assertGreater(self.site.wait_for(first, "idle")["frames"], 0)
        self.site.oculora("camera", "disable", declared)  # the recorder has read the records once more when it is off
        wait_until(lambda: not self.site.worker(declared), 60, "the other worker to end")
        self.assertEqual(self.site.worker(asked), worker)
        self.assertEqual(self.site.ring(asked)["frames"], visited)
        self.assertEqual(len(self.site.watch(asked, 3)[0]), 3)
        self.assertEqual(self.site.ring(asked)["state"], "streaming")
        self.site.wait_for(asked, "idle")
        self.assertEqual(self.site.ring(unwatched)["frames"], 0)

    def test_failures_are_named_without_passwords(self):
        host = MjpegCamera().address
        guarded = self.rtsp_camera("admin:secret")
        dead = f"127.0.0.1:{free_port()}"
        gone = self.site.write("/tmp/gone.mp4")
        self.site.write("/tmp/noise.mp4", bytes(range(256)) * 20)
        cases = [
            ("mjpeg", f"http://admin:hunter2@{host}/password", "The camera refuses the user name or password"),
            ("mjpeg", f"http://{host}/missing", "The camera has nothing at this address (404)"),
            ("mjpeg", f"http://{host}/broken", "The camera reports an error of its own"),
            ("mjpeg", f"http://{host}/html", f"The answer of {host} is no video stream known here"),
            ("mjpeg", f"http://{host}/silent", "No answer within 10 s"),
            ("mjpeg", f"http://admin:hunter2@{dead}/", f"Connection refused by {dead}"),
            ("h264", f"rtsp://{guarded}/h264", "The camera asks for a user name and password"),
            ("h264", f"rtsp://admin:hunter2@{dead}/", f"Connection refused by {dead}"),
            ("h264", f"http://{host}/plain", "The camera sends mjpeg, but is set up as h264"),
            ("h264", "http://no.invalid/", "The name of the camera is not known in this network (no.invalid:80)"),
            ("h264", "/tmp/noise.mp4", "The file /tmp/noise.mp4 is no video known here"),
            ("mxpeg", f"http://admin:hunter2@{host}/password", "The camera refuses the user name or password"),
            ("mxpeg", f"http://{host}/html", f"The answer of {host} is no video stream known here"),
            ("mxpeg", "/tmp/noise.mp4", "The file /tmp/noise.mp4 is no video known here"),
            ("h264", "/tmp/gone.mp4", "There is no file /tmp/gone.mp4"),
        ]
        cameras = [self.site.add_camera(f"C{number}", kind, source, stay_on=True)
                   for number, (kind, source, _) in enumerate(cases)]
        os.unlink(gone)
        for camera, (kind, source, expected) in zip(cameras, cases):
            with self.subTest(source, kind=kind):
                self.assertEqual(self.site.wait_for(camera, "failed")["reason"], expected)
        self.assertNotIn("hunter2", self.site.log())
        for number in range(len(cases)):  # one line a state, however often it was tried
            self.assertEqual(self.site.log().count(f'"C{number}"'), 1, self.site.log())

    def test_follows_the_records_and_restarts_what_dies(self):
        first, second = (self.site.add_camera(name, "mjpeg", "test:64x48", stay_on=True) for name in "AB")
        before = self.site.wait_for(first, "streaming")["newest"]
        self.site.wait_for(second, "streaming")
        killed, neighbour = self.site.worker(first), self.site.worker(second)
        self.expected_crashes = 1
        os.kill(killed, signal.SIGKILL)
        wait_until(lambda: self.site.worker(first) not in (None, killed), what="a new worker")
        wait_until(lambda: self.site.ring(first)["newest"] > before + 40, 60, "pictures again")
        self.assertIn("ended by signal 9", self.site.log())

        good = pathlib.Path(self.site.path(RECORDS)).read_bytes()
        for content, text in ((b"no database " * 100, "cameras stay as they are"), (good, "can be read again")):
            os.rename(self.site.write(RECORDS + "new", content), self.site.path(RECORDS))
            wait_until(lambda: text in self.site.log(), what=text)
        self.site.oculora("camera", "disable", first)
        wait_until(lambda: not self.site.worker(first), what="the worker to end")
        self.site.oculora("camera", "enable", first)
        self.site.wait_for(first, "streaming")
        rings = len(self.site.shared_memory())
        self.site.oculora("camera", "remove", first)
        wait_until(lambda: len(self.site.shared_memory()) < rings, what="the ring to go")
        self.assertEqual((self.site.worker(first), self.site.worker(second)), (None, neighbour))

    def test_runs_once_and_leaves_nothing_behind(self):
        second = self.site.run([RECORDER], capture_output=True)
        self.assertEqual((second.returncode, b"running in this site already" in second.stderr), (1, True))
        address = "http://" + MjpegCamera().address
        silent, *_ = (self.site.add_camera(source, "mjpeg", source, stay_on=True)
                      for source in (address + "/silent", "test:64x48", "test:80x64", address + "/plain"))
        self.site.wait_for(silent, "connecting")
        self.site.popen(["sleep", "60"])  # keeps the namespaces, so that there is something to look at
        wait_until(lambda: len(self.site.shared_memory()) > 3, what="every camera's ring")
        self.assertEqual(end(self.site.recorder, 8), 0)  # although one camera does not answer, for which it has 10 s
        left = self.site.shared_memory(), self.site.pids("recorder"), self.site.read(RECORDER_PID)
        self.assertEqual(left, ([], [], ""))

        self.site.start_recorder()
        wait_until(lambda: self.site.worker(silent), what="a worker")
        os.kill(int(self.site.read(RECORDER_PID)), signal.SIGKILL)  # pids inside and outside are the same
        wait_until(lambda: not self.site.pids("recorder"), 20, "the workers to follow a killed recorder")
        self.site.start_recorder()
        os.kill(wait_until(lambda: self.site.worker(silent), what="a worker"), signal.SIGSTOP)
        self.assertEqual(end(self.site.recorder, 30), 0)  # one that does not listen is killed after three seconds
        self.assertEqual(self.site.shared_memory(), [])


if __name__ == "__main__":
    unittest.main()
