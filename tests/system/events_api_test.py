"""The web API of recordings and the commands for them, over the real front with the recorder running."""

import contextlib
import http.client
import json
import os
import sqlite3
import subprocess
import unittest
import urllib.parse

from oculora_site import FORM, Site, wait_until

API, CAMERA, STREAM = "VELM.Oculora.Event", "VELM.Oculora.Camera", "VELM.Oculora.Stream"
VAR = "/var/packages/Oculora/var"


class EventsApi(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.site = cls.enterClassContext(Site())
        cls.cameras = [cls.site.add_camera(name, "mjpeg", "test:320x240", fps=10) for name in ("Gate", "Yard")]
        cls.site.add_user("anna", "long password", admin=True)
        cls.site.add_user("bert", "long password", allow="live,playback")
        cls.site.add_user("carl", "long password", allow="live")
        cls.site.oculora("camera", "disable", cls.cameras[1])
        cls.site.oculora("retention", "--days", "0")
        cls.site.serve()
        cls.sids = {name: cls.site.login(name, "long password") for name in ("anna", "bert", "carl")}
        cls.video = cls.make_video("Türe vorn.mp4", "-c:v", "libx264", "-bf", "2", "-pix_fmt", "yuv420p")

    @classmethod
    def make_video(cls, name, *options):
        """Three seconds; its path inside the site."""
        subprocess.run(["ffmpeg", "-v", "error", "-y", "-f", "lavfi", "-i", "testsrc=size=640x360:rate=10:duration=3",
                        *options, cls.site.path(f"/tmp/{name}")], check=True)
        return f"/tmp/{name}"

    def get(self, method, user="anna", **params):
        return self.site.api(API, method, params, self.sids.get(user))[1]

    def post(self, method, user="anna", **params):
        form = {"api": API, "version": 1, "method": method, "_sid": self.sids.get(user, ""), **params}
        return json.loads(self.site.request("POST", "/webapi/entry.cgi", urllib.parse.urlencode(form),
                                            {"Content-Type": FORM})[2])

    def event(self, id):
        return self.get("Get", eventId=id)["data"]

    def import_video(self, *options, file=None):
        return int(self.site.oculora("event", "import", self.cameras[0], file or self.video, *options).stdout)

    def file_of(self, id, ending):
        recordings = self.site.path(VAR + "/recordings")
        found = [os.path.join(at, name) for at, _, names in os.walk(recordings) for name in names
                 if name.endswith(f"-{id}.{ending}")]
        return found[0] if found else None

    def test_who_may_do_what(self):
        one, other = self.cameras
        with contextlib.closing(sqlite3.connect(self.site.path(VAR + "/records.db"), timeout=10)) as records, records:
            id = records.execute("INSERT INTO events (camera, start_us, cause, state) VALUES (?, 1, 0, 3)",
                                 (one,)).lastrowid
        for call, method, user, params, code in (
                (self.get, "List", None, {}, 105), (self.get, "List", "carl", {}, 105),
                (self.get, "List", "bert", {"limit": 201}, 101), (self.get, "List", "bert", {"after": "5"}, 101),
                (self.get, "Get", "bert", {"eventId": 999999}, 401), (self.get, "Get", "bert", {"eventId": "x"}, 101),
                (self.get, "Thumbnail", "carl", {"eventId": id}, 105),
                (self.get, "Thumbnail", "bert", {"eventId": id}, 100),
                (self.get, "Record", "bert", {"cameraId": one, "seconds": 2}, 101),
                (self.get, "Remove", "anna", {"eventId": id}, 101),
                (self.post, "Record", "carl", {"cameraId": one, "seconds": 2}, 105),
                (self.post, "Record", "bert", {"cameraId": one, "seconds": 3601}, 101),
                (self.post, "Record", "bert", {"cameraId": other, "seconds": 2}, 402),
                (self.post, "Record", "bert", {"cameraId": 999, "seconds": 2}, 401),
                (self.post, "Stop", "bert", {"eventId": id}, 401), (self.post, "Keep", "bert", {"eventId": id}, 105),
                (self.post, "Remove", "bert", {"eventId": id}, 105),
                (self.post, "SetRate", "bert", {"timestamp": 77, "rate": 2}, 401),
                (self.post, "SetRate", "bert", {"timestamp": 77, "rate": 65}, 101),
                (self.get, "Progress", "bert", {"timestamp": 77}, 401)):
            answer = call(method, user, **params)
            self.assertEqual(answer.get("error", {}).get("code"), code, (method, user, params, answer))
        self.assertEqual(self.get("Get", "bert", eventId=id)["data"]["state"], "failed")

    def test_import_preview_keep_and_remove(self):
        id = self.import_video("--start", "2026-01-02T03:04:05", "--type", 1, "--device-type", 1024)
        self.assertTrue(self.file_of(id, "mp4").endswith(f"/{self.cameras[0]}/2026-01-02/03-04-05-{id}.mp4"))
        with open(self.file_of(id, "mp4"), "rb") as copy, open(self.site.path(self.video), "rb") as source:
            self.assertEqual(copy.read(), source.read())
        event = self.event(id)
        self.assertEqual({key: event[key] for key in ("start", "length", "frames", "type", "deviceType", "cause",
                                                      "state", "videoType", "file", "camera", "bytes")},
                         {"start": 1767323045000, "length": 3000, "frames": 30, "type": 1, "deviceType": 1024,
                          "cause": "import", "state": "ready", "videoType": "h264", "file": "mp4", "camera": "Gate",
                          "bytes": os.path.getsize(self.site.path(self.video))})
        headers, picture = self.site.api(API, "Thumbnail", {"eventId": id}, self.sids["bert"])
        self.assertEqual((headers["Content-Type"], int(headers["Content-Length"]), headers["Cache-Control"]),
                         ("image/jpeg", len(picture), "private, max-age=86400"))
        size = subprocess.run(["ffprobe", "-v", "error", "-show_entries", "stream=width,height", "-of", "csv=p=0", "-"],
                              input=picture, capture_output=True, check=True).stdout
        self.assertEqual(size.strip(), b"320,180")
        self.assertTrue(self.post("Keep", eventId=id, kept="true")["success"])
        self.assertTrue(self.event(id)["kept"])
        self.site.oculora("event", "keep", id, "--off")
        self.assertFalse(self.event(id)["kept"])
        self.assertTrue(self.post("Remove", eventId=id)["success"])
        self.assertEqual(self.get("Get", eventId=id)["error"]["code"], 401)
        wait_until(lambda: not self.file_of(id, "mp4") and not self.file_of(id, "jpg"), 30, "the files to go")

    def test_import_goes_by_content_and_refuses_what_cannot_be_played(self):
        avi = self.make_video("clip.JPG", "-c:v", "mjpeg", "-f", "avi")
        other = self.make_video("clip.M-K.V", "-c:v", "mjpeg", "-f", "matroska")
        self.assertEqual([self.event(self.import_video(file=file))["file"] for file in (avi, other)], ["avi", "v"])
        with open(self.site.path(self.video), "rb") as whole:
            self.site.write("/tmp/torn.mp4", whole.read()[:5000])
        before = len(self.get("List", limit=200)["data"]["events"])
        for file, words in (("torn.mp4", "cannot be played"), ("none", "No such file")):
            done = self.site.oculora("event", "import", self.cameras[0], f"/tmp/{file}", check=False)
            self.assertEqual((done.returncode, done.stdout), (1, ""), file)
            self.assertIn(words, done.stderr)
        self.assertEqual(len(self.get("List", limit=200)["data"]["events"]), before)

    def test_rate_of_a_running_playback(self):
        id = self.import_video()
        path = self.site.api_path(STREAM, "EventMultipartFetch", {
            "eventId": id, "recEvtType": 0, "timestamp": 2**53, "playrate": -64, "changerate": "true"},
            self.sids["bert"])
        with contextlib.closing(http.client.HTTPConnection("127.0.0.1", self.site.port, timeout=30)) as connection:
            connection.request("GET", path)
            connection.getresponse().read1(1)
            for rate, held in ((4, 4), (-1, 1), (-2, -2)):
                self.assertTrue(self.post("SetRate", "bert", timestamp=2**53, rate=rate)["success"])
                self.assertEqual(self.get("Progress", "bert", timestamp=2**53)["data"], {"value": held})

    def test_camera_with_recordings_and_doctor(self):
        camera = self.site.add_camera("Shed", "mjpeg", "test:320x240", fps=10, record=10)
        listed = lambda: next((entry for entry in self.site.api(CAMERA, "List", sid=self.sids["anna"])[1]["data"]
                               ["cameras"] if entry["id"] == camera), None)
        wait_until(lambda: listed()["recording"] == {"mode": "continuous", "state": "recording", "reason": ""}, 20,
                   "continuous recording")
        self.assertIn("--with-recordings", self.site.oculora("camera", "remove", camera, check=False).stderr)
        self.site.oculora("camera", "remove", camera, "--with-recordings")
        self.assertIsNone(listed())
        self.assertFalse(os.path.exists(self.site.path(f"{VAR}/recordings/{camera}")))
        # What is wrong is seen; repairing waits until nobody else does the same.
        id = self.import_video()
        os.rename(self.file_of(id, "mp4"), self.file_of(id, "mp4").replace(f"-{id}.", f"-{id}000."))
        self.assertIn("stop it first", self.site.oculora("doctor", "--repair", check=False).stderr)
        found = self.site.oculora("doctor", check=False).stdout
        self.assertRegex(found, r"FAIL  1 recordings have lost their file, like .*-%d\.mp4" % id)
        self.assertRegex(found, r"warn  1 files belong to no recording, like .*-%d000\.mp4" % id)


if __name__ == "__main__":
    unittest.main()
