# ctest: timeout=180
"""A central host and a recording server: pairing, cameras that follow, doctor's words, and the server's recorded events
listed, changed and played through the central host."""

import email.utils
import json
import subprocess
import time
import unittest
import urllib.parse

from oculora_site import FORM, Site
from recordings import Recordings
from rogue_server import RogueServer, garbage, whole

API, CAMERA, EVENT, STREAM = ("VELM.Oculora." + name for name in ("Server", "Camera", "Event", "Stream"))
PASSWORD, SECRET = "long password", "0123456789abcdef"
KEYS = "/var/packages/Oculora/target/@rtsp_info/rtsp_key"
START = 1_700_000_000


def said_at(seconds_ahead, answer):
    """The answer of a host whose clock is off."""
    date = email.utils.formatdate(time.time() + seconds_ahead, usegmt=True)
    return whole(json.dumps(answer).encode(), "application/json", "200 OK", f"Date: {date}")


class Servers(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.central, cls.recorder = (cls.enterClassContext(Site()) for _ in range(2))
        cls.rows_here, cls.rows_there = Recordings(cls.central), Recordings(cls.recorder)
        for site in (cls.central, cls.recorder):
            site.add_user("anna", PASSWORD, admin=True)
            site.add_user("bert", PASSWORD)
            site.add_user("carl", PASSWORD, allow="live")
            site.oculora("retention", "--days", "0")
            site.serve()
        cls.sids = {name: cls.central.login(name, PASSWORD) for name in ("anna", "bert", "carl")}
        # No camera has the same number on both.
        cls.gate_here = cls.central.add_camera("Gate", "mjpeg", "test:320x240", id=40)
        subprocess.run(["ffmpeg", "-v", "error", "-f", "lavfi", "-i", "testsrc=size=320x180:rate=10:duration=2",
                        "-c:v", "mjpeg", cls.recorder.path("/tmp/clip.avi")], check=True)

    def setUp(self):
        self.cameras = [self.recorder.add_camera(name, "mjpeg", "test:320x240", fps=5, width=320, height=240)
                        for name in ("Gate", "Yard")]
        self.recorder.oculora("key", "set", self.cameras[0], "first", "second")

    def tearDown(self):
        for camera in json.loads(self.recorder.oculora("camera", "list", "--json").stdout):
            self.recorder.oculora("camera", "remove", camera["id"], "--with-recordings")
        for server in json.loads(self.central.oculora("server", "list", "--json").stdout):
            self.central.oculora("server", "remove", server["id"])
        self.recorder.oculora("server", "accept", "--none")

    def add(self, *options, url=None, user="anna", password=PASSWORD, check=True):
        return self.central.oculora("server", "add", "North", "--id", 2, "--url", url or self.recorder.url + "/",
                                    "--login", user, "--password-stdin", *options, input=password + "\n", check=check)

    def add_by_secret(self, url):
        self.central.oculora("server", "add", "North", "--id", 2, "--url", url, "--secret", SECRET, "--replace")

    def sync(self, check=True):
        return self.central.oculora("server", "sync", 2, check=check)

    def refused(self, says, done):
        self.assertEqual((done.returncode, done.stdout), (1, ""), done.stderr)
        self.assertEqual(done.stderr.count("\n"), 1)
        self.assertIn(says, done.stderr)

    def rows(self):
        """{id there: (id here, name, enabled, fps)} of the server's cameras."""
        return {camera["remoteId"]: (camera["id"], camera["name"], camera["enabled"], camera["fps"])
                for camera in json.loads(self.central.oculora("camera", "list", "--json").stdout) if camera["server"]}

    def doctor(self):
        return self.central.oculora("doctor", check=False).stdout

    def listed(self, user="anna"):
        return self.central.api(API, "List", sid=self.sids[user])[1]["data"]["servers"]

    def call(self, site, method, api=API, **params):
        """The data that is answered, or the code of the error."""
        form = {"api": api, "version": 1, "method": method, **params}
        answer = json.loads(site.request("POST", "/webapi/entry.cgi", urllib.parse.urlencode(form),
                                         {"Content-Type": FORM})[2])
        return answer["error"]["code"] if "error" in answer else answer.get("data")

    def ask(self, method, user="bert", **params):
        """The same for recorded events, of the central host."""
        return self.call(self.central, method, EVENT, _sid=self.sids[user], **params)

    def test_cameras_follow_their_server(self):
        gate, yard = self.cameras
        self.assertIn("2 added", self.add().stdout)
        ids = {camera: row[0] for camera, row in self.rows().items()}
        self.assertEqual(self.rows(), {gate: (ids[gate], "Gate (North)", True, 5), yard: (ids[yard], "Yard", True, 5)})
        self.assertEqual(self.central.read(KEYS + "2"), f"{ids[gate]}=first/second\n")
        self.assertIn("nothing to change", self.sync().stdout)

        answer = self.central.api(CAMERA, "List", sid=self.sids["bert"])[1]
        shown = {camera["id"]: camera for camera in answer["data"]["cameras"]}
        self.assertEqual([shown[ids[yard]].get(key) for key in ("remote", "server", "serverName")], [True, 2, "North"])
        self.assertNotIn("server", shown[self.gate_here])
        for user in ("anna", "bert"):
            server, = self.listed(user)
            self.assertEqual((server["state"], server["reason"], "url" in server), ("up", "", user == "anna"))
            self.assertEqual({camera["id"] for camera in server["cameras"]}, set(ids.values()))
        self.assertIn(f'"North", {self.recorder.url}: up', self.central.oculora("status").stdout)

        self.rows_there.sql("UPDATE cameras SET name = '' || char(9) || id")
        self.rows_there.sql("UPDATE cameras SET name = iif(id = ?, 'Yard', 'Gate')", gate)
        self.recorder.oculora("camera", "disable", yard)
        self.recorder.oculora("key", "set", gate, "third", "second")
        self.assertIn("2 cameras are out of date here", self.doctor())
        self.assertIn("0 added, 2 changed, 0 removed; stream keys", self.sync().stdout)
        self.assertEqual(self.rows(), {gate: (ids[gate], "Yard", True, 5), yard: (ids[yard], "Gate (North)", False, 5)})
        self.assertIn("=third/second\n", self.central.read(KEYS + "2"))

        self.recorder.oculora("camera", "remove", gate)
        self.assertIn("0 added, 0 changed, 1 removed", self.sync().stdout)
        self.assertEqual((set(self.rows()), self.central.read(KEYS + "2")), ({yard}, ""))

        self.central.oculora("server", "remove", 2)
        self.assertEqual((self.rows(), self.listed()), ({}, []))
        self.refused("there is no server 2", self.sync(check=False))

    def test_nothing_is_stored_when_the_server_refuses(self):
        sessions = self.rows_there.sql("SELECT uid FROM sessions")
        self.refused("wrong name or password", self.add(password="wrong password", check=False))
        self.refused("no administrator", self.add(user="bert", check=False))
        self.refused("cannot be reached", self.add(url="http://127.0.0.1:1", check=False))
        self.refused("this host itself", self.add(url=self.central.url, check=False))
        for answer in (garbage, whole(b'{"success":true,"data":{"sid":7}}'),
                       whole(b'{"success":false,"error":{"code":1e99,"data":"a\\nb\\u001b[1m"}}')):
            with RogueServer(answer) as rogue:
                self.refused(rogue.url, self.add(url=rogue.url, check=False))
        self.recorder.oculora("server", "accept", "--secret", SECRET)
        self.refused("paired already; --replace", self.add(check=False))
        self.assertEqual(self.central.oculora("server", "list", "--json").stdout, "[]\n\n")
        self.assertEqual(self.rows_there.sql("SELECT uid FROM sessions"), sessions, "it logs out")

        self.add("--replace")
        self.assertEqual(len(self.rows()), 2)
        twice = {"success": True, "data": {"cameras": [{"id": 1, "type": "h264"}] * 2}}
        with RogueServer(said_at(0, twice)) as rogue:
            self.add_by_secret(rogue.url)
            self.refused("camera 1 twice", self.sync(check=False))
        self.assertEqual(len(self.rows()), 2, "an answer without sense changes nothing")

    def test_who_may_describe_and_pair(self):
        sid = self.recorder.login("anna", PASSWORD)
        bert = self.recorder.login("bert", PASSWORD)
        self.recorder.oculora("server", "accept", "--secret", SECRET)
        self.assertEqual(self.call(self.recorder, "Describe", _sid=sid), 105)
        for method, api in ("Describe", API), ("List", EVENT):
            self.assertEqual(self.call(self.recorder, method, api, client="NVR", cookie="0" * 64), 105)
        self.assertEqual(self.call(self.recorder, "Pair", _sid=bert, secret=SECRET, name="x"), 105)
        self.assertEqual(self.call(self.recorder, "Pair", _sid=sid, secret=SECRET + "x", name="x"), 100)
        self.assertEqual(self.recorder.api(API, "Pair", {"secret": SECRET}, sid)[1]["error"]["code"], 101)
        self.assertEqual(self.call(self.recorder, "List", _sid=sid), {"servers": []})
        self.assertEqual(self.call(self.recorder, "List"), 105)

    def test_what_is_wrong_is_said(self):
        self.add()
        event = {"eventId": f"{self.rows()[self.cameras[0]][0]}:5"}
        told = self.doctor()
        self.assertIn('ok    server 2 "North" answers', told)
        self.assertIn("no stream keys for 1 of its 2 cameras", told)
        self.central.write(KEYS + "2", "")
        self.assertIn("stream keys are missing or out of date here", self.doctor())
        self.recorder.oculora("server", "accept", "--secret", SECRET)
        self.assertIn("FAIL  server 2 \"North\": it refuses this host: the secrets differ", self.doctor())
        self.assertEqual([(server["state"], server["cameras"]) for server in self.listed()], [("down", [])])
        self.assertEqual(self.ask("List")["servers"], [
            {"id": 2, "name": "North", "reason": "it refuses this host: the secrets differ; pair them again"}])
        refusal, good = {"success": False, "error": {"code": 105}}, {"success": True, "data": {"cameras": []}}
        for ahead, answer, says in ((-1000, refusal, "behind this host's: it refuses"),
                                    (200, good, "ahead of this host's: from 300 s on")):
            with RogueServer(said_at(ahead, answer)) as rogue:
                self.add_by_secret(rogue.url)
                self.assertIn(says, self.doctor())
        self.assertIn("cannot be reached", self.doctor(), "the last of them is gone")
        self.assertRegex(self.ask("List")["servers"][0]["reason"], "^cannot be reached: ")
        for method in ("Get", "Thumbnail"):
            error = self.central.api(EVENT, method, event, self.sids["bert"])[1]["error"]
            self.assertEqual(error["code"], 100)
            self.assertRegex(error["data"], '^recording server "North" cannot be reached: ')

    def add_event(self, recordings, camera, second):
        """An event that has failed, so that it has no file; its number."""
        return recordings.sql("INSERT INTO events (camera, start_us, cause, state) VALUES (?, ?, 0, 3)", camera,
                              (START + second) * 10**6)

    def pages(self, **query):
        """The ids of all pages."""
        ids, after = [], {}
        while after is not None:
            page = self.ask("List", limit=3, **query, **after)
            self.assertEqual(page["servers"], [], "no server is missing")
            ids += [event["id"] for event in page["events"]]
            after = {"after": page["next"]} if "next" in page else None
        return ids

    def test_pages_hold_the_events_of_all_hosts(self):
        shed = self.recorder.add_camera("Shed", "mjpeg", "test:")
        self.recorder.oculora("camera", "disable", shed)
        self.add()
        yard = self.cameras[1]
        ours = self.rows()[yard][0]
        self.central.oculora("camera", "remove", self.rows()[shed][0])
        # No event has the same number on both.
        self.rows_there.sql("INSERT INTO events (id, camera, start_us, cause, state) VALUES (1000, ?, 5, 0, 3)", yard)
        oldest_first = []
        for second, count in (0, 1), (1, 2), (4, 3), (6, 1):
            for _ in range(count):
                self.add_event(self.rows_there, shed, second)
            oldest_first += [f"{ours}:{self.add_event(self.rows_there, yard, second)}" for _ in range(count)]
            oldest_first += [self.add_event(self.rows_here, self.gate_here, second) for _ in range(count)]
        # Of one time, this host's stand before the server's, the highest number first.
        whole = oldest_first[::-1]
        self.assertEqual(self.pages(**{"from": START, "to": START + 7}), whole)
        self.assertEqual(self.pages(**{"from": START + 1, "to": START + 5}), whole[2:-2])
        there = [id for id in whole if isinstance(id, str)]
        self.assertEqual(self.pages(**{"from": START, "to": START + 7, "cameraId": ours}), there)

    def test_events_there_as_here(self):
        self.add()
        gate, yard = self.cameras
        ours, ours_off = (self.rows()[camera][0] for camera in self.cameras)
        self.recorder.oculora("camera", "disable", yard)
        imported = self.recorder.oculora("event", "import", gate, "/tmp/clip.avi", "--type", 1).stdout
        number, event = int(imported), f"{ours}:{int(imported)}"
        sid = self.recorder.login("anna", PASSWORD)
        told = self.call(self.recorder, "Get", EVENT, eventId=number, _sid=sid)
        self.assertEqual(self.ask("Get", eventId=event),
                         {**told, "id": event, "cameraId": ours, "camera": "Gate (North)"})
        headers, picture = self.central.api(EVENT, "Thumbnail", {"eventId": event}, self.sids["bert"])
        there = self.recorder.api(EVENT, "Thumbnail", {"eventId": number}, sid)
        self.assertEqual((headers["Content-Type"], headers["Cache-Control"], picture),
                         ("image/jpeg", "private, max-age=86400", there[1]))
        film = self.central.api(STREAM, "EventStream", {"eventId": event, "recEvtType": 1}, self.sids["bert"])[1]
        with open(self.rows_there.file(self.rows_there.row(number)), "rb") as file:
            self.assertEqual(film, file.read())
        self.assertGreater(self.rows_there.row(number)["played"], 0)
        for kept in (True, False):
            self.assertIsNone(self.ask("Keep", "anna", eventId=event, kept=str(kept).lower()))
            self.assertEqual(self.rows_there.row(number)["kept"], kept)
        asked = self.ask("Record", cameraId=ours, seconds=600)["eventId"]
        camera, recording = map(int, asked.split(":"))
        self.assertEqual((camera, self.rows_there.row(recording)["camera"]), (ours, gate))
        self.assertIsNone(self.ask("Stop", eventId=asked))
        self.assertEqual(self.rows_there.row(recording)["wanted_us"], 1)
        failed = self.add_event(self.rows_there, gate, 0)
        for user, method, params, code in (
                ("carl", "List", {}, 105), ("bert", "Keep", {"eventId": event}, 105),
                ("carl", "Record", {"cameraId": ours, "seconds": 2}, 105),
                ("bert", "Get", {"eventId": f"{ours}:{number}&kept=1"}, 101),
                ("bert", "Get", {"eventId": f"99:{number}"}, 401),
                ("bert", "Get", {"eventId": f"{ours_off}:{number}"}, 401),  # of another camera
                ("bert", "Thumbnail", {"eventId": f"{ours}:999999"}, 401),
                ("bert", "Thumbnail", {"eventId": f"{ours}:{failed}"}, 100), ("bert", "Stop", {"eventId": event}, 401),
                ("bert", "Record", {"cameraId": ours_off, "seconds": 2}, 402)):
            self.assertEqual(self.ask(method, user, **params), code, (method, user, params))
        self.assertIsNone(self.ask("Remove", "anna", eventId=event))
        self.assertEqual(self.ask("Get", eventId=event), 401)


if __name__ == "__main__":
    unittest.main()
