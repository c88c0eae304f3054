"""The live-video API through lighttpd: Query, admission, live MJPEG pictures, views of one session, viewers that die."""

import glob
import hashlib
import os
import signal
import socket
import subprocess
import sys
import tempfile
import time
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.realpath(__file__)), "..", "support"))
from oculora_site import BUILD, Site, end, wait_until  # noqa: E402

API = "VELM.Oculora.Stream.VideoStreaming"
PASSWORD = "a long password"
SID = "s" * 22  # of a client that has a session id but no session


class Viewer:
    """A client of one multipart stream that reads when asked to."""

    def __init__(self, site, camera, sid=None, **params):
        path = site.api_path(API, "Stream", {"cameraId": camera, "format": "mjpeg", **params}, sid)
        self.socket = socket.create_connection(("127.0.0.1", site.port), timeout=10)
        self.socket.sendall(f"GET {path} HTTP/1.1\r\nHost: test\r\nConnection: close\r\n\r\n".encode())
        self.file = self.socket.makefile("rb")
        self.chunked = False
        self.boundary = None
        self.buffer = b""

    def _more(self):
        if self.chunked:
            line = self.file.readline()
            size = int(line or b"0", 16)
            data = self.file.read(size)
            self.file.readline()
        else:
            data = self.file.read1(65536)
        self.buffer += data
        return len(data) > 0

    def read_head(self):
        """The status line and headers of the answer."""
        head = b""
        while not head.endswith(b"\r\n\r\n"):
            line = self.file.readline()
            if not line:
                break
            head += line
        head = head.decode()
        self.chunked = "chunked" in head.lower()
        if "boundary=" in head:
            self.boundary = b"--" + head.split("boundary=")[1].split("\r\n")[0].encode()
        return head

    def picture(self):
        """The next part's bytes, or None at the end of the stream."""
        if self.boundary is None:
            self.read_head()
        while b"\r\n\r\n" not in self.buffer:
            if not self._more():
                return None
        head, self.buffer = self.buffer.split(b"\r\n\r\n", 1)
        size = int(head.lower().split(b"content-length:")[1].split(b"\r\n")[0])
        while len(self.buffer) < size + 2:
            if not self._more():
                return None
        picture, self.buffer = self.buffer[:size], self.buffer[size + 2:]
        return picture

    def ended_within(self, seconds):
        """Whether the stream ends, reading on meanwhile."""
        end = time.monotonic() + seconds
        self.socket.settimeout(seconds)
        try:
            while time.monotonic() < end:
                if self.picture() is None:
                    return True
        except OSError:
            pass
        return False

    def close(self):
        self.file.close()
        self.socket.close()


def contents(path):
    with open(path, "rb") as file:
        return file.read()


def make_clip(path, seconds=2):
    """An MJPEG file and the SHA-256 of each of its pictures, taken out by ffmpeg as they are."""
    subprocess.run(["ffmpeg", "-v", "error", "-f", "lavfi", "-i", f"testsrc2=size=320x240:rate=10:duration={seconds}",
                    "-c:v", "mjpeg", "-huffman", "default", path], check=True)
    with tempfile.TemporaryDirectory() as frames:
        subprocess.run(["ffmpeg", "-v", "error", "-i", path, "-c:v", "copy", f"{frames}/%d.jpg"], check=True)
        return {hashlib.sha256(contents(name)).hexdigest() for name in glob.glob(f"{frames}/*.jpg")}


class LiveTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.site = Site()
        try:
            cls.site.add_user("anna", PASSWORD, admin=True)
            cls.site.add_user("guest", PASSWORD, allow="playback")
            clip = cls.site.path("/var/packages/clip.avi")
            cls.sent = make_clip(clip)
            cls.film = cls.site.add_camera("Film", "mjpeg", "/var/packages/clip.avi", fps=10)
            cls.clock = cls.site.add_camera("Clock", "mjpeg", "test:320x240", fps=10)
            cls.h264 = cls.site.add_camera("Modern", "h264", "test:320x240", fps=10)
            cls.off = cls.site.add_camera("Off", "mjpeg", "test:320x240")
            cls.site.oculora("camera", "disable", cls.off)
            cls.site.oculora("key", "set", cls.film, "filmkey1", "filmkey2")
            cls.site.oculora("key", "set", cls.clock, "clockkey1", "clockkey2")
            cls.site.serve()
            cls.sid = cls.site.login("anna", PASSWORD)
        except BaseException:
            cls.site.close(failed=True)
            raise

    @classmethod
    def tearDownClass(cls):
        strays = cls.no_streams()
        cls.site.close(failed=not strays)
        if not strays:
            raise AssertionError("a streaming process outlived its viewer")

    @classmethod
    def streams(cls):
        return [pid for pid, line in cls.site.processes().items() if "entry.cgi" in line]

    @classmethod
    def no_streams(cls):
        try:
            return wait_until(lambda: not cls.streams(), 10, "streaming processes to end")
        except AssertionError:
            return False

    def view(self, camera, sid=None, **params):
        viewer = Viewer(self.site, camera, sid, **params)
        self.addCleanup(viewer.close)
        return viewer

    def error(self, method, params, sid=None):
        """The error code of an answer; 0 for success."""
        answer = self.site.api(API, method, params, sid)[1]
        self.assertIsInstance(answer, dict, answer)
        return 0 if answer["success"] else answer["error"]["code"]

    def test_query_names_the_format(self):
        for camera, expected in ((self.film, "mjpeg"), (self.h264, "hls")):
            _, answer = self.site.api(API, "Query", {"cameraId": camera}, self.sid)
            self.assertEqual(answer, {"success": True, "data": {"format": expected}})

    def test_errors_have_their_codes(self):
        cases = (
            ("no camera id", "Query", {}, self.sid, 401),
            ("camera 0", "Query", {"cameraId": 0}, self.sid, 401),
            ("a negative id", "Query", {"cameraId": -3}, self.sid, 401),
            ("no number", "Query", {"cameraId": "abc"}, self.sid, 401),
            ("a huge number", "Query", {"cameraId": "4294967297"}, self.sid, 401),
            ("an unknown camera, also without a session", "Query", {"cameraId": 999}, None, 401),
            ("no session", "Query", {"cameraId": self.film}, None, 105),
            ("a session id nobody has", "Query", {"cameraId": self.film}, SID, 105),
            ("a disabled camera", "Query", {"cameraId": self.off}, self.sid, 402),
            ("a disabled camera", "Stream", {"cameraId": self.off, "format": "mjpeg"}, self.sid, 402),
            ("no live privilege", "Stream", {"cameraId": self.film, "format": "mjpeg"}, "guest", 105),
            ("a method in another case", "query", {"cameraId": self.film}, self.sid, 103),
        )
        guest = self.site.login("guest", PASSWORD)
        for name, method, params, sid, code in cases:
            with self.subTest(name):
                self.assertEqual(self.error(method, params, guest if sid == "guest" else sid), code)
        _, answer = self.site.api("VELM.Oculora.Stream", "EventStream", {"eventId": 5}, self.sid)
        self.assertEqual(answer["error"]["code"], 103)
        self.assertEqual(self.site.api("VELM.Oculora.Stream", "EventStream", {})[1]["error"]["code"], 105)

    def test_a_refusal_carries_both_parameters(self):
        _, answer = self.site.api(API, "Query", {"cameraId": self.off}, self.sid)
        self.assertEqual(answer["error"], {"code": 402, "data": {"param1": "", "param2": ""}})
        self.assertIn(f"Invalid Cam[{self.off}]: Status: 3", self.site.log())

    def test_formats_that_are_not_there(self):
        for camera, form, text in ((self.film, "MJPEG", b"Unsupported format.\n\r"),
                                   (self.h264, "mjpeg", b"Format not supported.\n\r")):
            headers, body = self.site.get(self.site.api_path(API, "Stream", {"cameraId": camera, "format": form},
                                                             self.sid))
            self.assertEqual((headers.status, headers["Content-Type"], body), (200, "text/plain", text))

    def test_a_wrong_codec_for_mxpeg_is_logged_and_sends_no_picture(self):
        headers, body = self.site.get(self.site.api_path(API, "Stream", {"cameraId": self.film, "format": "mxpeg"},
                                                         self.sid))
        self.assertEqual(headers.status, 500, "the front's own answer for a request that wrote nothing")
        self.assertNotIn(b"\xff\xd8", body)
        self.assertIn(f"Cam[{self.film}]: Wrong m_VideoType[1] in OutputMxpegStream.", self.site.log())

    def test_pictures_are_whole_and_as_the_source_sent_them(self):
        viewer = self.view(self.film, self.sid, timestamp=1)
        seen = [viewer.picture() for _ in range(15)]
        for picture in seen:
            self.assertTrue(picture.startswith(b"\xff\xd8") and picture.endswith(b"\xff\xd9"))
            self.assertIn(hashlib.sha256(picture).hexdigest(), self.sent)
        self.assertGreater(len(set(seen)), 10, "the picture moves")

    def test_nothing_is_allocated_per_picture(self):
        def allocations(seconds):
            """Allocations of a request that streams for so long, and the parts that it wrote."""
            environment = {"GATEWAY_INTERFACE": "CGI/1.1", "REQUEST_METHOD": "GET", "COUNT_ALLOCATIONS_FILE": "/tmp/count",
                           "LD_PRELOAD": os.path.join(BUILD, "lib", "count_allocations.so"),
                           "QUERY_STRING": self.site.api_path(API, "Stream", {
                               "cameraId": self.film, "format": "mjpeg", "timestamp": 1}, self.sid).split("?", 1)[1]}
            with tempfile.TemporaryFile() as output:
                request = self.site.popen(["env", *(f"{name}={value}" for name, value in environment.items()),
                                           os.path.join(BUILD, "bin", "entry.cgi")], stdout=output)
                time.sleep(seconds)
                end(request)
                output.seek(0)
                parts = output.read().count(b"Content-Length:")
            return int(contents(self.site.path("/tmp/count"))), parts

        short, few = allocations(0.7)
        long, many = allocations(2.5)
        self.assertGreater(many, few + 10)
        # Not equal: whether the view file is there already makes a difference of two or three.
        self.assertLess(long - short, (many - few) / 2, f"{few} and {many} pictures")

    def test_ffprobe_reads_the_stream(self):
        url = self.site.url + self.site.api_path(API, "Stream", {"cameraId": self.clock, "format": "mjpeg",
                                                                 "timestamp": 2, "StmKey": "clockkey1"})
        probe = subprocess.run(["ffprobe", "-v", "error", "-f", "mpjpeg", "-read_intervals", "%+#5", "-count_frames",
                                "-show_entries", "stream=codec_name,width,height,nb_read_frames", "-of", "csv=p=0",
                                url], capture_output=True, text=True, timeout=30)
        self.assertEqual(probe.stdout.strip(), "mjpeg,320,240,5", probe.stderr)

    def test_stream_keys(self):
        cases = (("the first key", {"StmKey": "filmkey1"}, None, True), ("the second", {"StmKey": "filmkey2"}, None, True),
                 ("quoted, as hosts forward it", {"StmKey": '"filmkey2"'}, None, True),
                 ("both at once", {"StmKey": "filmkey1/filmkey2"}, None, False),
                 ("another camera's", {"StmKey": "clockkey1"}, None, False), ("an empty one", {"StmKey": ""}, None, False),
                 ("none", {}, None, False), ("a wrong one, but a session", {"StmKey": "clockkey1"}, self.sid, True))
        for name, params, sid, admitted in cases:
            with self.subTest(name):
                if admitted:
                    viewer = self.view(self.film, sid, timestamp=0, **params)
                    self.assertIsNotNone(viewer.picture())
                    viewer.close()
                else:
                    self.assertEqual(self.error("Stream", {"cameraId": self.film, "format": "mjpeg", **params}), 105)
        before = self.site.log().count("Faild to load stream key from conf.")
        self.assertEqual(self.error("Stream", {"cameraId": self.h264, "format": "mjpeg", "StmKey": "x"}), 105)
        self.assertEqual(self.site.log().count("Faild to load stream key from conf."), before + 1, "no line, one message")

    def test_a_view_with_a_newer_time_stamp_takes_over(self):
        sid = self.site.login("anna", PASSWORD)
        first = [self.view(self.film, sid, timestamp=100), self.view(self.clock, sid, timestamp=100)]
        for viewer in first:
            self.assertIsNotNone(viewer.picture())
        view_file = self.site.path(f"/tmp/liveview_src.pid.{sid}")
        lines = contents(view_file).decode().split()
        self.assertEqual(lines[0], "100")
        self.assertEqual(len(lines), 3, "both streams of one view are listed")
        old = set(map(int, lines[1:]))
        self.assertLessEqual(old, set(self.streams()))

        second = self.view(self.film, sid, timestamp=101)
        self.assertIsNotNone(second.picture())
        wait_until(lambda: not old & set(self.streams()), 1, "the older streams to end")
        for viewer in first:
            self.assertTrue(viewer.ended_within(5))
        lines = contents(view_file).decode().split()
        self.assertEqual(lines[0], "101")
        self.assertEqual(len(lines), 2)
        self.assertIsNotNone(second.picture(), "the new view runs on")

    def test_a_broken_view_file_neither_kills_nor_refuses(self):
        sid = self.site.login("anna", PASSWORD)
        bystander = self.site.popen(["sleep", "60"])
        view_file = self.site.path(f"/tmp/liveview_src.pid.{sid}")
        for text in ("", "junk\n", "5\n-1\n0\n1\n", "99999999999999999999\n"):
            with open(view_file, "w") as file:
                file.write(text)
            viewer = self.view(self.film, sid, timestamp=7)
            self.assertIsNotNone(viewer.picture(), repr(text))
            viewer.close()
        self.assertIsNone(bystander.poll())
        # A pid that was handed out again after the file was written is somebody else's.
        with open(view_file, "w") as file:
            file.write(f"5\n{bystander.pid}\n")
        os.utime(view_file, (1, 1))
        self.assertIsNotNone(self.view(self.film, sid, timestamp=8).picture())
        self.assertIsNone(bystander.poll())

    def test_viewers_that_die_or_stall_harm_nobody(self):
        stalled = self.view(self.film, self.sid, timestamp=1)
        stalled.read_head()  # and nothing more
        killed = self.view(self.film, self.sid, timestamp=1)
        self.assertIsNotNone(killed.picture())
        closed = self.view(self.film, self.sid, timestamp=1)
        self.assertIsNotNone(closed.picture())
        os.kill(max(self.streams()), signal.SIGKILL)
        closed.close()
        killed.close()
        watcher = self.view(self.film, self.sid, timestamp=1)
        for _ in range(10):
            self.assertIsNotNone(watcher.picture())
        stalled.close()
        watcher.close()
        self.assertTrue(self.no_streams())

    def test_a_viewer_of_a_camera_fallen_silent_is_noticed_when_it_leaves(self):
        viewer = self.view(self.film, self.sid, timestamp=1)
        self.assertIsNotNone(viewer.picture())
        worker = next(pid for pid, line in self.site.processes().items() if line.endswith(f"--worker {self.film}"))
        os.kill(worker, signal.SIGSTOP)
        try:
            viewer.close()
            self.assertTrue(self.no_streams())
        finally:
            os.kill(worker, signal.SIGCONT)

    def test_a_stopped_recorder_ends_the_view_with_its_line(self):
        with Site() as site:
            site.add_user("anna", PASSWORD, admin=True)
            camera = site.add_camera("Clock", "mjpeg", "test:320x240", fps=10)
            site.serve()
            viewer = Viewer(site, camera, site.login("anna", PASSWORD), timestamp=1)
            self.assertIsNotNone(viewer.picture())
            site.oculora("camera", "remove", camera)
            self.assertTrue(viewer.ended_within(10))
            self.assertIn(f"Cam[{camera}]: status abnormal. Stop liveview.", site.log())
            viewer.close()


class ModuleTest(unittest.TestCase):
    def test_exports_are_the_interface_and_nothing_else(self):
        library = os.path.join(BUILD, "lib", "VELM.Oculora.Stream.so")
        symbols = subprocess.run(["nm", "-D", "--defined-only", "--format=posix", library], check=True, text=True,
                                 capture_output=True).stdout
        self.assertEqual({line.split()[0] for line in symbols.splitlines()},
                         {"GetAPITable", "gTable", "VideoStream", "EventStream"})
        dynamic = subprocess.run(["readelf", "-d", library], check=True, text=True, capture_output=True).stdout
        self.assertIn("soname: [VELM.Oculora.Stream.so]", dynamic)


if __name__ == "__main__":
    unittest.main()
