"""The caching front: viewers share playlists and slices, admission stays the site's, everything else passes through."""

import http.client
import json
import os
import re
import subprocess
import tempfile
import threading
import time
import unittest

from cameras.mjpeg_server import MjpegCamera
from caching_front import CachingFront
from oculora_site import Site, wait_until

API = "VELM.Oculora.Stream.VideoStreaming"
PASSWORD = "a long password"


class CachingFrontTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.site = Site()
        cls.addClassCleanup(cls.site.close)
        for name, allow in (("anna", "live"), ("bert", "live"), ("guest", "playback")):
            cls.site.add_user(name, PASSWORD, allow=allow)
        cls.camera = cls.site.add_camera("Gate", "h264", "test:320x240", fps=10, stay_on=True)
        cls.other = cls.site.add_camera("Yard", "h264", "test:320x240", fps=10, stay_on=True)
        cls.still = cls.site.add_camera("Still", "mjpeg", f"http://{MjpegCamera().address}/stall", stay_on=True)
        cls.site.oculora("key", "set", cls.other, "otherkey1", "otherkey2")
        cls.site.serve()
        cls.front = CachingFront(cls.site)
        cls.addClassCleanup(cls.front.close)
        cls.anna, cls.bert, cls.guest = (cls.site.login(name, PASSWORD) for name in ("anna", "bert", "guest"))
        for camera in (cls.camera, cls.other):
            wait_until(lambda c=camera: b"hls" in cls.ask(cls.path(c, "Query"), cls.anna)[2], 60, "the cameras")
        for camera in (cls.camera, cls.other):
            cls.ask(cls.path(camera, "Open", format="hls"), cls.anna)

    @classmethod
    def tearDownClass(cls):
        for camera in (cls.camera, cls.other):
            cls.ask(cls.path(camera, "Close", format="hls"), cls.anna)

    @classmethod
    def path(cls, camera, method, **params):
        return cls.site.api_path(API, method, {"cameraId": camera, **params})

    @classmethod
    def ask(cls, path, sid=None, past_front=False, body=None):
        """(status, what the cache says, bytes) of a request with a session in its cookie."""
        port = cls.site.port if past_front else cls.front.port
        connection = http.client.HTTPConnection("127.0.0.1", port, timeout=30)
        try:
            connection.request("GET", path, body, {"Cookie": f"oculora_sid={sid}"} if sid else {})
            answer = connection.getresponse()
            return answer.status, answer.headers["X-Cache"], answer.read()
        finally:
            connection.close()

    def playlist(self):
        """The addresses of the slices, without scheme and host."""
        status, _, answer = self.ask(self.path(self.camera, "Stream", format="hls"), self.bert)
        self.assertEqual(status, 200)
        return re.findall(rf"^http://127\.0\.0\.1:{self.front.port}(/.*)$", answer.decode(), re.M)

    def cached_slice(self):
        """The address of a slice that is in the cache now, and its bytes."""
        address = self.playlist()[-1]
        data = self.ask(address, self.bert)[2]
        _, cached, again = self.ask(address, self.bert)
        self.assertEqual((cached, again), ("HIT", data))
        return address, data

    def test_viewers_share_what_plays(self):
        pid_file = self.site.path(f"/tmp/webapivdostm.pid.{self.camera}")
        os.utime(pid_file, (1, 1))
        wait_until(lambda: self.cached_slice() and os.stat(pid_file).st_mtime > 1, 30, "the remux to hear of it")
        address, data = self.cached_slice()
        self.assertIn(f"_sid={self.anna}", address, "the session of whoever opened it")
        # As the page asks: without the session, the slash encoded. As a player without cookies asks: as it stands.
        for asked, sid in ((re.sub(r"_sid=[^&]*&", "", address).replace("SliceId=1/", "SliceId=1%2F"), self.anna),
                           (address, None)):
            _, cached, again = self.ask(asked, sid)
            self.assertEqual((cached, again), ("HIT", data), asked)
        self.assertEqual({self.ask(self.path(self.camera, "Stream", format="hls"), sid)[1]
                          for sid in (self.anna, self.bert, self.anna)} & {"HIT"}, {"HIT"})

    def test_a_crowd_costs_one_request(self):
        newest = self.playlist()[-1]
        wait_until(lambda: self.playlist()[-1] != newest, 30, "a new slice")
        fresh = self.playlist()[-1]
        answers = []
        crowd = [threading.Thread(target=lambda: answers.append(self.ask(fresh, self.bert)[1:])) for _ in range(8)]
        for one in crowd:
            one.start()
        for one in crowd:
            one.join()
        self.assertEqual(sorted(cached for cached, _ in answers), ["HIT"] * 7 + ["MISS"])
        self.assertEqual(len({data for _, data in answers}), 1)

    def test_only_the_admitted_are_served_from_the_cache(self):
        address, _ = self.cached_slice()
        bare = re.sub(r"_sid=[^&]*&", "", address)
        playlist = self.path(self.camera, "Stream", format="hls")
        for label, path, sid in (("no session", bare, None), ("a session nobody has", bare, "s" * 22),
                                 ("a session in the address that nobody has", bare + "&_sid=" + "s" * 22, None),
                                 ("no right to live pictures", bare, self.guest), ("another camera's key",
                                 bare + "&StmKey=otherkey1", None), ("a playlist", playlist, None),
                                 ("a playlist, no right", playlist, self.guest)):
            _, cached, answer = self.ask(path, sid)
            self.assertEqual(json.loads(answer)["error"]["code"], 105, label)
            self.assertNotEqual(cached, "HIT", label)
            self.assertEqual(answer, self.ask(path, sid, past_front=True)[2], label)

    def test_a_query_that_nginx_and_the_site_read_differently_is_not_cached(self):
        mine, (theirs, _) = self.path(self.other, "Stream", format="hls"), self.cached_slice()
        number = theirs.rsplit("/", 1)[1]
        key = "&StmKey=otherkey1"
        for path in (f"{mine}{key}&CameraId={self.camera}", f"{mine}{key}&cameraId={self.camera}",
                     mine.replace("cameraId", "CameraId") + f"{key}&cameraId={self.camera}",
                     mine.replace("cameraId", "camer%61Id") + f"{key}&cameraId={self.camera}",
                     mine.replace("cameraId=", "cameraId=0") + key, mine + key + "&format=hls",
                     f"{mine}{key}&SliceI%64={self.camera}/{number}", f"{mine}{key}&isRedirectCgi=1"):
            status, cached, _ = self.ask(path)
            self.assertIsNone(cached, path)
            self.assertEqual(status, self.ask(path, past_front=True)[0], path)
        self.assertIsNotNone(self.ask(mine + key)[1], "by the key alone it is")
        self.assertIsNone(self.ask(mine + key, body="SliceId=1/1.ts")[1], "a body may carry parameters too")

    def test_an_admission_ends(self):
        sid = self.site.login("bert", PASSWORD)
        playlist = self.path(self.camera, "Stream", format="hls")
        self.assertTrue(self.ask(playlist, sid)[2].startswith(b"#EXTM3U"))
        self.site.api("VELM.Oculora.Account", "Logout", sid=sid)
        # It is remembered for ten seconds at most.
        wait_until(lambda: self.ask(playlist, sid)[2].startswith(b'{"error"'), 20, "the end of admission")

    def test_a_failure_is_never_served_from_the_cache(self):
        address, _ = self.cached_slice()
        missing = re.sub(r"/\d+\.ts", "/00.ts", address)
        for _ in range(2):
            begin = time.monotonic()
            _, cached, answer = self.ask(missing, self.bert)
            self.assertEqual(answer, b"")
            self.assertNotEqual(cached, "HIT")
            self.assertGreater(time.monotonic() - begin, 3, "the site itself looked for it")

    def test_pictures_pass_at_once(self):
        self.assertIsNone(self.ask(self.path(self.camera, "Query"), self.anna)[1])
        url = f"http://127.0.0.1:{self.front.port}{self.path(self.still, 'Stream', format='mjpeg', timestamp=1)}"
        begin = time.monotonic()
        with subprocess.Popen(["curl", "-sN", "-H", f"Cookie: oculora_sid={self.anna}", url],
                              stdout=subprocess.PIPE) as viewer:
            data = b""
            while data.count(b"\xff\xd9\r\n--") < 1:
                data += viewer.stdout.read1(65536)
            self.assertLess(time.monotonic() - begin, 8, "held back until the camera has given up and come back")
            viewer.kill()
        wait_until(lambda: not [line for line in self.site.processes().values() if "mjpeg" in line], 30, "the stream")

    def test_https_addresses(self):
        with tempfile.TemporaryDirectory() as scratch:
            names = [os.path.join(scratch, name) for name in ("key.pem", "certificate.pem")]
            subprocess.run(["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-keyout", names[0], "-out",
                            names[1], "-days", "2", "-subj", "/CN=localhost"], check=True, capture_output=True)
            front = CachingFront(self.site, "--certificate", names[1], "--key", names[0])
            self.addCleanup(front.close)
            base = f"https://127.0.0.1:{front.port}"
            answer = subprocess.run(["curl", "-sk", "--max-time", "20", "-H", f"Cookie: oculora_sid={self.anna}",
                                     base + self.path(self.camera, "Stream", format="hls")],
                                    capture_output=True, text=True)
            self.assertIn(f"\n{base}/webapi/entry.cgi?", answer.stdout)
            self.assertNotIn("http://", answer.stdout)


if __name__ == "__main__":
    unittest.main()
