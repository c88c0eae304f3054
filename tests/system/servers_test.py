"""A central host and a recording server as their administrators see them: pairing, reading cameras, doctor's words."""

import contextlib
import email.utils
import json
import sqlite3
import time
import unittest
import urllib.parse

from oculora_site import FORM, Site
from rogue_server import RogueServer, garbage, whole

API, CAMERA = "VELM.Oculora.Server", "VELM.Oculora.Camera"
PASSWORD, SECRET = "long password", "0123456789abcdef"
RECORDS = "/var/packages/Oculora/var/records.db"
KEYS = "/var/packages/Oculora/target/@rtsp_info/rtsp_key"


def said_at(seconds_ahead, answer):
    """The answer of a host whose clock is off."""
    body = json.dumps(answer).encode()
    date = email.utils.formatdate(time.time() + seconds_ahead, usegmt=True)
    head = f"HTTP/1.1 200 OK\r\nDate: {date}\r\nContent-Length: {len(body)}\r\nConnection: close\r\n\r\n".encode()
    return lambda connection, _: connection.sendall(head + body)


class Servers(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.central, cls.recorder = (cls.enterClassContext(Site()) for _ in range(2))
        for site in (cls.central, cls.recorder):
            site.add_user("anna", PASSWORD, admin=True)
            site.add_user("bert", PASSWORD)
            site.serve()
        cls.sids = {name: cls.central.login(name, PASSWORD) for name in ("anna", "bert")}
        cls.central.add_camera("Gate", "mjpeg", "test:320x240")

    def setUp(self):
        self.cameras = [self.recorder.add_camera(name, "mjpeg", "test:320x240", fps=5, width=320, height=240)
                        for name in ("Gate", "Yard")]
        self.recorder.oculora("key", "set", self.cameras[0], "first", "second")

    def tearDown(self):
        for camera in json.loads(self.recorder.oculora("camera", "list", "--json").stdout):
            self.recorder.oculora("camera", "remove", camera["id"])
        for server in json.loads(self.central.oculora("server", "list", "--json").stdout):
            self.central.oculora("server", "remove", server["id"])
        self.recorder.oculora("server", "accept", "--none")

    def add(self, *options, url=None, user="anna", password=PASSWORD, check=True):
        return self.central.oculora("server", "add", "North", "--id", 2, "--url", url or self.recorder.url + "/",
                                    "--login", user, "--password-stdin", *options, input=password + "\n", check=check)

    def add_by_secret(self, url, secret=SECRET):
        self.central.oculora("server", "add", "North", "--id", 2, "--url", url, "--secret", secret, "--replace")

    def sync(self, check=True):
        return self.central.oculora("server", "sync", 2, check=check)

    def refused(self, says, done):
        self.assertEqual((done.returncode, done.stdout), (1, ""), done.stderr)
        self.assertEqual(done.stderr.count("\n"), 1)
        self.assertIn(says, done.stderr)

    def rows(self):
        """{id there: (name, enabled, fps)} of the server's cameras here."""
        return {camera["remoteId"]: (camera["name"], camera["enabled"], camera["fps"])
                for camera in json.loads(self.central.oculora("camera", "list", "--json").stdout) if camera["server"]}

    def ids(self):
        cameras = json.loads(self.central.oculora("camera", "list", "--json").stdout)
        return {camera["remoteId"]: camera["id"] for camera in cameras if camera["server"]}

    def doctor(self, site=None):
        return (site or self.central).oculora("doctor", check=False).stdout

    def listed(self, user="anna"):
        return self.central.api(API, "List", sid=self.sids[user])[1]["data"]["servers"]

    def call(self, site, method, **params):
        form = {"api": API, "version": 1, "method": method, **params}
        answer = json.loads(site.request("POST", "/webapi/entry.cgi", urllib.parse.urlencode(form),
                                         {"Content-Type": FORM})[2])
        return answer["error"]["code"] if "error" in answer else answer["data"]

    def test_cameras_follow_their_server(self):
        gate, yard = self.cameras
        self.assertIn("2 added", self.add().stdout)
        self.assertEqual(self.rows(), {gate: ("Gate (North)", True, 5), yard: ("Yard", True, 5)})
        ids = self.ids()
        self.assertEqual(self.central.read(KEYS + "2"), f"{ids[gate]}=first/second\n")
        self.assertIn("nothing to change", self.sync().stdout)

        answer = self.central.api(CAMERA, "List", sid=self.sids["bert"])[1]
        shown = {camera["id"]: camera for camera in answer["data"]["cameras"]}
        self.assertEqual([shown[ids[yard]].get(key) for key in ("remote", "server", "serverName")], [True, 2, "North"])
        self.assertNotIn("server", shown[1])
        for user in ("anna", "bert"):
            server, = self.listed(user)
            self.assertEqual((server["state"], server["reason"], "url" in server), ("up", "", user == "anna"))
            self.assertEqual({camera["id"] for camera in server["cameras"]}, set(ids.values()))
        self.assertIn(f'"North", {self.recorder.url}: up', self.central.oculora("status").stdout)

        with contextlib.closing(sqlite3.connect(self.recorder.path(RECORDS), timeout=10)) as records, records:
            records.execute("UPDATE cameras SET name = '' || char(9) || id")
            records.execute("UPDATE cameras SET name = iif(id = ?, 'Yard', 'Gate')", (gate,))
        self.recorder.oculora("camera", "disable", yard)
        self.recorder.oculora("key", "set", gate, "third", "second")
        roof = self.recorder.add_camera("Roof", "mjpeg", "test:")
        self.assertIn("3 cameras are out of date here", self.doctor())
        self.assertIn("1 added, 2 changed, 0 removed; stream keys", self.sync().stdout)
        self.assertEqual(self.rows(), {gate: ("Yard", True, 5), yard: ("Gate (North)", False, 5),
                                       roof: ("Roof", True, 0)})
        self.assertEqual({gate: self.ids()[gate], yard: self.ids()[yard]}, ids, "cameras keep their ids")
        self.assertIn("=third/second\n", self.central.read(KEYS + "2"))

        self.recorder.oculora("camera", "remove", gate)
        self.assertIn("0 added, 0 changed, 1 removed", self.sync().stdout)
        self.assertEqual((set(self.rows()), self.central.read(KEYS + "2")), ({yard, roof}, ""))

        self.central.oculora("server", "remove", 2)
        self.assertEqual((self.rows(), self.listed()), ({}, []))
        self.refused("there is no server 2", self.sync(check=False))

    def test_nothing_is_stored_when_the_server_refuses(self):
        self.refused("wrong name or password", self.add(password="wrong password", check=False))
        self.refused("no administrator", self.add(user="bert", check=False))
        self.refused("cannot be reached", self.add(url="http://127.0.0.1:1", check=False))
        self.refused("this host itself", self.add(url=self.central.url, check=False))
        for answer in (garbage, whole(b"[]"), whole(b'{"success":true,"data":{"sid":7}}'), whole(b"", status="404 No"),
                       whole(b'{"success":false,"error":{"code":1e99,"data":"a\\nb\\u001b[1m"}}')):
            with RogueServer(answer) as rogue:
                self.refused(rogue.url, self.add(url=rogue.url, check=False))
        self.recorder.oculora("server", "accept", "--secret", SECRET)
        self.refused("paired already; --replace", self.add(check=False))
        self.assertEqual(self.central.oculora("server", "list", "--json").stdout, "[]\n\n")
        with contextlib.closing(sqlite3.connect(self.recorder.path(RECORDS), timeout=10)) as records:
            self.assertEqual(records.execute("SELECT count(*) FROM sessions").fetchone(), (0,), "it logs out")

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
        self.assertEqual(self.call(self.recorder, "Describe", client="NVR", cookie="0" * 64), 105)
        self.assertEqual(self.call(self.recorder, "Pair", _sid=bert, secret=SECRET, name="x"), 105)
        self.assertEqual(self.call(self.recorder, "Pair", _sid=sid, secret="short", name="x"), 101)
        self.assertEqual(self.call(self.recorder, "Pair", _sid=sid, secret=SECRET + "x", name="x"), 100)
        self.assertEqual(self.recorder.api(API, "Pair", {"secret": SECRET}, sid)[1]["error"]["code"], 101)
        self.assertEqual(self.call(self.recorder, "List", _sid=sid), {"servers": []})
        self.assertEqual(self.call(self.recorder, "List"), 105)

    def test_doctor_says_what_is_wrong(self):
        self.add()
        told = self.doctor()
        self.assertIn('ok    server 2 "North" answers', told)
        self.assertIn("no stream keys for 1 of its 2 cameras", told)
        self.assertIn("paired with the host that manages it", self.doctor(self.recorder))
        self.central.write(KEYS + "2", "")
        self.assertIn("stream keys are missing or out of date here", self.doctor())
        self.recorder.oculora("server", "accept", "--secret", SECRET)
        self.assertIn("FAIL  server 2 \"North\": it refuses this host: the secrets differ", self.doctor())
        self.assertEqual([(server["state"], server["cameras"]) for server in self.listed()], [("down", [])])

        refusal, good = {"success": False, "error": {"code": 105}}, {"success": True, "data": {"cameras": []}}
        for ahead, answer, says in ((1000, refusal, "ahead of this host's: it refuses"),
                                    (-1000, refusal, "behind this host's: it refuses"),
                                    (200, good, "ahead of this host's: from 300 s on")):
            with RogueServer(said_at(ahead, answer)) as rogue:
                self.add_by_secret(rogue.url)
                told = self.doctor()
                self.assertIn(says, told)
                self.assertNotIn("secrets differ", told)
                if ahead == 1000:
                    self.assertRegex(self.listed()[0]["reason"], "its clock is .* ahead .*; set both by a time server")
        self.assertIn("cannot be reached", self.doctor(), "the last of them is gone")


if __name__ == "__main__":
    unittest.main()
