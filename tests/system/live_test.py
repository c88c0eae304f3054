"""The live-video API through lighttpd: admission, live MJPEG pictures, views of one session, viewers that die."""

import contextlib
import hashlib
import http.client
import json
import os
import re
import signal
import subprocess
import unittest

from cameras.mjpeg_server import MjpegCamera
from oculora_site import BUILD, Site, wait_until

API = "VELM.Oculora.Stream.VideoStreaming"
PASSWORD = "a long password"


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
        cls.site.serve()
        cls.sid = cls.site.login("anna", PASSWORD)
        cls.addClassCleanup(cls.wait_for_no_streams)

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
                ("Query", "", self.sid, 401), ("Query", -3, self.sid, 401), ("Query", "abc", self.sid, 401),
                ("Query", (1 << 32) + self.film, self.sid, 401), ("Query", 999, None, 401),
                ("Query", self.film, None, 105), ("Query", self.film, "s" * 22, 105), ("Stream", self.film, guest, 105),
                ("query", self.film, self.sid, 103), ("Query", self.off, self.sid, 402),
                ("Stream", self.off, self.sid, 402)):
            with self.subTest(method, camera=camera, sid=sid):
                error = self.error(method, {"cameraId": camera}, sid)
                self.assertEqual(error["code"], code)
        self.assertEqual(error["data"], {"param1": "", "param2": ""})
        self.assertIn(f"Invalid Cam[{self.off}]: Status: 3", self.site.log())
        for sid, code in ((self.sid, 0), (None, 105)):  # 0: there is no such event
            answer = self.site.api("VELM.Oculora.Stream", "EventStream", {"eventId": 5}, sid)[1]
            self.assertEqual(answer["error"]["code"], code)
        headers, body = self.site.api(API, "Stream", {"cameraId": self.film, "format": "MJPEG"}, self.sid)
        self.assertEqual((headers.status, headers["Content-Type"], body),
                         (200, "text/plain", b"Unsupported format.\n\r"))
        headers, body = self.site.api(API, "Stream", {"cameraId": self.film, "format": "mxpeg"}, self.sid)
        self.assertEqual(headers.status, 500, "the front's own answer for a request that wrote nothing")
        self.assertNotIn(b"\xff\xd8", body)
        self.assertIn(f"Cam[{self.film}]: Wrong m_VideoType[1] in OutputMxpegStream.", self.site.log())

    def test_pictures_are_whole_and_as_the_source_sent_them(self):
        stream = self.view(self.film, self.sid, timestamp=1)
        seen = {hashlib.sha256(picture(stream)).hexdigest() for _ in range(15)}
        self.assertLessEqual(seen, self.camera.sent)
        self.assertGreater(len(seen), 10, "the picture moves")
        path = self.site.api_path(API, "Stream", {"cameraId": self.clock, "format": "mjpeg", "StmKey": "clockkey1"})
        probe = subprocess.run(["ffprobe", "-v", "error", "-f", "mpjpeg", "-read_intervals", "%+#5", "-count_frames",
                                "-show_entries", "stream=codec_name,width,height,nb_read_frames", "-of", "csv=p=0",
                                self.site.url + path], capture_output=True, text=True, timeout=30)
        self.assertEqual(probe.stdout.strip(), "mjpeg,320,240,5", probe.stderr)

    def test_nothing_is_allocated_per_picture(self):
        path = self.site.api_path(API, "Stream", {"cameraId": self.film, "format": "mjpeg", "timestamp": 1}, self.sid)

        def allocations(seconds):
            """Allocations of a request that streams for so long, as glibc counts them, and the parts that it wrote."""
            done = self.site.run(["timeout", seconds, "env", "GATEWAY_INTERFACE=CGI/1.1", "REQUEST_METHOD=GET",
                                  "QUERY_STRING=" + path.split("?")[1], "LD_PRELOAD=libmemusage.so",
                                  os.path.join(BUILD, "bin", "entry.cgi")], capture_output=True)
            calls = re.findall(rb"(?:malloc|realloc|calloc)\|\S+ +(\d+)", done.stderr)
            self.assertEqual(len(calls), 3)
            return sum(map(int, calls)), done.stdout.count(b"Content-Length:")

        short, few = allocations(2)
        for seconds in 4, 10, 30:  # as many as a busy machine needs
            long, many = allocations(seconds)
            if many > few + 10:
                break
        # Not equal: whether the view file is there already makes a difference of two or three.
        self.assertLess(long - short, (many - few) / 2, f"{few} and {many} pictures")

    def test_stream_keys(self):
        self.view(self.film, StmKey="filmkey1").close()
        self.view(self.film, StmKey='"filmkey2"').close()  # quoted, as hosts forward it
        self.view(self.film, self.sid, StmKey="clockkey1").close()  # a wrong one, but a session
        self.assertEqual(self.error("Stream", {"cameraId": self.film, "StmKey": "clockkey1"})["code"], 105)

    def test_a_view_with_a_newer_time_stamp_takes_over(self):
        sid = self.site.login("anna", PASSWORD)
        view_file = f"/tmp/liveview_src.pid.{sid}"
        other = self.view(self.clock, self.site.login("anna", PASSWORD), timestamp=99)
        older = [self.view(camera, sid, timestamp=100) for camera in (self.film, self.clock)]
        stamp, *old = self.site.read(view_file).split()
        self.assertEqual((stamp, len(old)), ("100", 2), "both streams of one view are listed")
        old = set(map(int, old))
        self.assertLessEqual(old, self.streams())
        newer = self.view(self.film, sid, timestamp=101)
        wait_until(lambda: not old & self.streams(), 10, "the older streams to end")
        for stream in older:
            wait_until(lambda: picture(stream) is None, 20, "the end of an older stream")
        stamp, pid = self.site.read(view_file).split()
        self.assertEqual(stamp, "101")
        self.assertIn(int(pid), self.streams())
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
