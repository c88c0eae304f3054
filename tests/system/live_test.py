"""The live-video API through lighttpd: admission, pictures of every kind of camera, views of one session, viewers that
die, cameras that fall silent."""

import array
import contextlib
import hashlib
import http.client
import json
import os
import pathlib
import signal
import subprocess
import time
import unittest

from cameras.mjpeg_server import MjpegCamera
from oculora_site import BUILD, Site, end, spawn, wait_until

API = "VELM.Oculora.Stream.VideoStreaming"
PASSWORD = "a long password"
WAVE = 14  # samples; a block of sound holds 320, no multiple of it, so that a missing one shows


def picture(stream):
    """The next part's bytes of a multipart stream, or None at its end."""
    size = 0
    with contextlib.suppress(http.client.IncompleteRead, ConnectionError):
        for line in iter(stream.readline, b""):
            if line.lower().startswith(b"content-length:"):
                size = int(line.split(b":")[1])
            elif line == b"\r\n" and size:
                return stream.read(size)
    return None


def ffmpeg(*args, **kw):
    return subprocess.run(["ffmpeg", "-v", "error", "-nostdin", "-y", *map(str, args)], check=True, timeout=120, **kw)


class LiveTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.site = cls.enterClassContext(Site())
        cls.site.add_user("anna", PASSWORD, admin=True)
        cls.site.add_user("guest", PASSWORD, allow="playback")
        cls.camera = MjpegCamera()
        cls.film = cls.site.add_camera("Film", "mjpeg", f"http://{cls.camera.address}/plain")
        # The state of a camera is looked at every hundred pictures, so that of Brief soon.
        cls.clock, cls.off, cls.brief = (cls.site.add_camera(name, "mjpeg", "test:320x240", fps=fps)
                                         for name, fps in (("Clock", 10), ("Off", 10), ("Brief", 40)))
        cls.h264 = cls.site.add_camera("Modern", "h264", "test:320x240", fps=10)
        cls.site.oculora("camera", "disable", cls.off)
        cls.site.oculora("key", "set", cls.film, "filmkey1", "filmkey2")
        cls.site.oculora("key", "set", cls.clock, "clockkey1", "clockkey2")
        cls.tone, _ = cls.mxpeg_camera("Tone", "--size", "1280x720", "--key-every", 10, "--tone", 8000 / WAVE)
        cls.mute, cls.mute_process = cls.mxpeg_camera("Mute", "--size", "320x240", "--fps", 10, "--key-every", 5)
        cls.blind, _ = cls.mxpeg_camera("Blind", "--no-video", "--fps", 10)
        cls.quick, _ = cls.film_camera("quick.avi", "mpeg4", "1000x562", "mpeg4", "-g", 5)
        cls.slow, film = cls.film_camera("slow.h264", "h264", "1280x720", "libx264", "-bf", 0, "-g", 25)
        stream = bytearray(film.read_bytes())  # whose second key frame shall name parameter sets that do not exist
        second = stream.index(b"\0\0\1\x65", stream.index(b"\0\0\1\x65") + 4)
        stream[second + 4: second + 6] = b"\xc0\x7f"
        film.write_bytes(stream)
        cls.site.serve()
        cls.sid = cls.site.login("anna", PASSWORD)
        cls.addClassCleanup(cls.wait_for_no_streams)

    def setUp(self):
        self.wait_for_no_streams()

    @classmethod
    def mxpeg_camera(cls, name, *args):
        """A camera's id and process."""
        process = spawn([os.path.join(BUILD, "bin", "mxpeg-camera"), "--port", "0", *map(str, args)],
                        stdout=subprocess.PIPE, text=True)
        cls.addClassCleanup(end, process)
        return cls.site.add_camera(name, "mxpeg", process.stdout.readline().strip(), stay_on=True), process

    @classmethod
    def film_camera(cls, name, kind, size, *codec):
        """A camera's id, and the path of its film of three seconds."""
        path = cls.site.path("/tmp/" + name)
        ffmpeg("-f", "lavfi", "-i", f"testsrc2={size}:r=25", "-t", 3, "-c:v", *codec, path)
        return cls.site.add_camera(name, kind, "/tmp/" + name, fps=25), pathlib.Path(path)

    @classmethod
    def streams(cls):
        return set(cls.site.pids("entry.cgi"))

    @classmethod
    def wait_for_no_streams(cls):
        wait_until(lambda: not cls.streams(), 30, "streaming processes to end")

    def ask(self, method, params, sid):
        """The beginning of an answer, which may go on for ever."""
        connection = http.client.HTTPConnection("127.0.0.1", self.site.port, timeout=60)
        path = self.site.api_path(API, method, {"format": "mjpeg", **params}, sid)
        connection.request("GET", path, headers={"Connection": "close"})
        answer = connection.getresponse()
        self.addCleanup(answer.close)
        return answer

    def view(self, camera, sid=None, **params):
        """The stream of a viewer that has had its first picture."""
        stream = self.ask("Stream", {"cameraId": camera, **params}, sid)
        self.assertIsNotNone(picture(stream), params)
        return stream

    def error(self, method, params, sid=None):
        return json.loads(self.ask(method, params, sid).read(4096))["error"]

    def test_answers_and_errors(self):
        for camera, expected in ((self.film, "mjpeg"), (self.h264, "hls")):
            answer = self.site.api(API, "Query", {"cameraId": camera}, self.sid)[1]
            self.assertEqual(answer, {"success": True, "data": {"format": expected}})
        guest = self.site.login("guest", PASSWORD)  # may not watch live
        for method, camera, sid, code in (
                ("Query", "abc", self.sid, 401), ("Query", self.film, "s" * 22, 105), ("Stream", self.film, guest, 105),
                ("Query", self.off, self.sid, 402)):
            with self.subTest(method, camera=camera, sid=sid):
                error = self.error(method, {"cameraId": camera}, sid)
                self.assertEqual(error["code"], code)
        self.assertEqual(error["data"], {"param1": "", "param2": ""})
        self.assertIn(f"Invalid Cam[{self.off}]: Status: 3", self.site.log())
        headers, body = self.site.api(API, "Stream", {"cameraId": self.film, "format": "MJPEG"}, self.sid)
        self.assertEqual((headers.status, headers["Content-Type"], body),
                         (200, "text/plain", b"Unsupported format.\n\r"))

    def test_pictures_are_whole_and_as_the_source_sent_them(self):
        stream = self.view(self.film, self.sid, timestamp=1)
        seen = {hashlib.sha256(picture(stream)).hexdigest() for _ in range(15)}
        self.assertLessEqual(seen, self.camera.sent)
        self.assertGreater(len(seen), 10, "the picture moves")

    def loads(self, library):
        """Whether the only request process has it in its memory."""
        pid, = self.streams()
        return library in pathlib.Path(f"/proc/{pid}/maps").read_text()

    def test_mxpeg_is_a_film_without_a_complaint_of_ffmpeg_or_a_gap_in_its_sound(self):
        wait_until(lambda: self.site.camera(self.tone)["streams"][0]["frames"] > 10, 60, "pictures")
        stream = self.view(self.tone, self.sid, format="mxpeg")
        parts = b"".join(picture(stream) for _ in range(50))
        self.assertFalse(self.loads("libavcodec"), "MxPEG passes through as it is")
        film = self.site.write("/tmp/film.mxg", parts)
        done = ffmpeg("-xerror", "-f", "mxg", "-i", film, "-map", "0:v", "-f", "null", "-",
                      "-map", "0:a", "-f", "s16le", film + ".pcm", stderr=subprocess.PIPE)
        self.assertEqual(done.stderr, b"")
        samples = array.array("h", pathlib.Path(film + ".pcm").read_bytes())
        # Half a wave later a sample is the opposite.
        off = [number for number, (a, b) in enumerate(zip(samples, samples[WAVE // 2:])) if abs(a + b) > 800]
        self.assertTrue(max(samples) > 15000 and not off, off[:9])

    def test_key_frames_of_other_codecs_are_scaled_and_shown_as_often_as_they_are_new(self):
        for camera, size, rate, fewest, most in (self.slow, b"640x360", 1, 2, 2), (self.quick, b"640x359", 3.4, 4, 6):
            with self.subTest(size):
                begin = time.monotonic()
                stream = self.view(camera, self.sid)
                pictures = [picture(stream) for _ in range(6)]
                self.assertGreater(time.monotonic() - begin, 6 / rate)
                self.assertTrue(fewest <= len(set(pictures)) <= most)
                shown = subprocess.run(["ffprobe", "-v", "error", "-f", "mjpeg", "-show_entries", "frame=width,height",
                                        "-of", "csv=p=0:s=x", "-"], input=b"".join(pictures), capture_output=True)
                self.assertEqual((shown.stdout.split(), shown.stderr), ([size] * 6, b""))
                self.assertTrue(self.loads("libavcodec"), "so this is where one would see it")
                stream.close()
                self.wait_for_no_streams()
        self.assertIn(f"Cam[{self.slow}]: Failed to compress image.", self.site.log())

    def test_a_camera_that_falls_silent_ends_its_views(self):
        views = [self.view(self.mute, self.sid, format=format) for format in ("mxpeg", "mjpeg")]
        os.kill(self.mute_process.pid, signal.SIGSTOP)
        self.addCleanup(os.kill, self.mute_process.pid, signal.SIGCONT)
        for view in views:
            while picture(view):
                pass
        for text in (f"Cam[{self.mute}]: get video data from VdoStmFifo more than 30 secs.",
                     f"Cam[{self.mute}]: status abnormal. Stop liveview.",
                     f'camera {self.mute} "Mute": No picture for 10 s'):
            self.assertIn(text, self.site.log())

    def test_sound_without_pictures_is_no_video(self):
        self.assertEqual(self.error("Stream", {"cameraId": self.blind, "format": "mxpeg"}, self.sid)["code"], 403)
        reason = f'camera {self.blind} "Blind": No usable picture in the stream'
        wait_until(lambda: reason in self.site.log(), 90, "the reason")
        self.assertEqual(self.site.camera(self.blind)["measuredFps"], 0, "blocks of sound are no frames")

    def test_stream_keys(self):
        self.view(self.film, StmKey='"filmkey2"').close()  # quoted, as hosts forward it
        self.view(self.film, self.sid, StmKey="clockkey1").close()  # a wrong one, but a session
        self.assertEqual(self.error("Stream", {"cameraId": self.film, "StmKey": "clockkey1"})["code"], 105)

    def test_a_view_with_a_newer_time_stamp_takes_over(self):
        sid = self.site.login("anna", PASSWORD)
        other = self.view(self.clock, self.site.login("anna", PASSWORD), timestamp=99)
        older = [self.view(camera, sid, timestamp=100) for camera in (self.film, self.clock)]
        newer = self.view(self.film, sid, timestamp=101)
        for stream in older:
            wait_until(lambda: picture(stream) is None, 20, "the end of an older stream")
        self.assertTrue(picture(newer) and picture(other), "the new view and another session's run on")

    def test_viewers_that_die_stall_or_find_silence_harm_nobody(self):
        watcher, stalled, closed, _ = (self.view(self.film, self.sid, timestamp=1) for _ in range(4))
        os.kill(max(self.streams()), signal.SIGKILL)  # the last
        closed.close()
        self.assertTrue(all(picture(watcher) for _ in range(10)))
        stalled.close()
        worker, = self.site.pids(f"--worker {self.film}$")
        os.kill(worker, signal.SIGSTOP)
        try:
            watcher.close()
            self.wait_for_no_streams()
        finally:
            os.kill(worker, signal.SIGCONT)

    def test_a_camera_that_is_removed_ends_the_view_with_its_line(self):
        stream = self.view(self.brief, self.sid, timestamp=1)
        self.site.oculora("camera", "remove", self.brief)
        wait_until(lambda: picture(stream) is None, 30, "the end of the stream")
        self.assertIn(f"Cam[{self.brief}]: status abnormal. Stop liveview.", self.site.log())


if __name__ == "__main__":
    unittest.main()
