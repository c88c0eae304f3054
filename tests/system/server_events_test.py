"""Recorded events of a recording server, listed, changed and played through the host that manages it."""
# ctest: timeout=180

import json
import subprocess
import unittest
import urllib.parse

from oculora_site import FORM, Site, free_port
from recordings import Recordings

API, STREAM = "VELM.Oculora.Event", "VELM.Oculora.Stream"
SECRET = "a-secret-of-two-hosts"
GARAGE = 7
START = 1_700_000_000


class ServerEvents(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.central, cls.garage = (cls.enterClassContext(Site()) for _ in range(2))
        cls.rows, cls.garage_rows = Recordings(cls.central), Recordings(cls.garage)
        # No camera and no event has the same number on both.
        cls.shed, cls.off, cls.yard = (cls.garage.add_camera(name, "mjpeg", "test:160x120", fps=10)
                                       for name in ("Shed", "Off", "Yard"))
        cls.garage.oculora("camera", "disable", cls.off)
        cls.garage_rows.sql("INSERT INTO events (id, camera, start_us, cause, state) VALUES (1000, ?, 5, 0, 3)", cls.yard)
        for site in (cls.central, cls.garage):
            site.oculora("retention", "--days", "0")
            site.add_user("anna", "long password", admin=True)
            site.serve()
        cls.central.add_user("bert", "long password", allow="live,playback")
        cls.central.add_user("carl", "long password", allow="live")
        cls.garage.oculora("server", "accept", "--secret", SECRET)
        cls.central.oculora("server", "add", "Garage", "--id", GARAGE, "--url", cls.garage.url, "--secret", SECRET)
        cls.gate = cls.central.add_camera("Gate", "mjpeg", "test:160x120", fps=10)
        cls.ours, cls.ours_off = (
            cls.central.add_camera(name, "mjpeg", "test:", server=GARAGE, remote_id=camera)
            for name, camera in (("Yard there", cls.yard), ("Off there", cls.off)))
        cls.sids = {name: cls.central.login(name, "long password") for name in ("anna", "bert", "carl")}
        cls.garage_sid = cls.garage.login("anna", "long password")
        subprocess.run(["ffmpeg", "-v", "error", "-y", "-f", "lavfi", "-i", "testsrc=size=320x180:rate=10:duration=2",
                        "-c:v", "mjpeg", cls.garage.path("/tmp/clip.avi")], check=True)

    def get(self, method, user="bert", **params):
        return self.central.api(API, method, params, self.sids[user])[1]

    def post(self, method, user="anna", **params):
        form = {"api": API, "version": 1, "method": method, "_sid": self.sids[user], **params}
        return json.loads(self.central.request("POST", "/webapi/entry.cgi", urllib.parse.urlencode(form),
                                               {"Content-Type": FORM})[2])

    def import_clip(self, *options):
        """(its number on the server, how the central host calls it)"""
        event = int(self.garage.oculora("event", "import", self.yard, "/tmp/clip.avi", *options).stdout)
        return event, f"{self.ours}:{event}"

    def call_garage_at(self, url):
        self.rows.sql("UPDATE servers SET url = ? WHERE id = ?", url, GARAGE)

    def pages(self, limit=3, between=None, **query):
        """The ids of all pages, and the names of the servers that were missing from them."""
        ids, missing, after = [], set(), {}
        while after is not None:
            page = self.get("List", limit=limit, **query, **after)["data"]
            self.assertLessEqual(len(page["events"]), limit)
            ids.append([event["id"] for event in page["events"]])
            missing |= {(server["id"], server["name"]) for server in page["servers"]}
            after = {"after": page["next"]} if "next" in page else None
            if between:
                between(len(ids))
        return ids, missing

    def test_pages_hold_the_events_of_all_hosts(self):
        def add(recordings, camera, second):
            return recordings.sql("INSERT INTO events (camera, start_us, cause, state) VALUES (?, ?, 0, 3)", camera,
                                  (START + second) * 10**6)
        seconds = (0, 1, 1, 2, 4, 4, 4, 5, 6)
        # Newest first, this host's before the server's, the highest number first.
        whole = [(-second, 0, -(id := add(self.rows, self.gate, second)), id) for second in seconds]
        whole += [(-second, GARAGE, -(id := add(self.garage_rows, self.yard, second)), f"{self.ours}:{id}")
                  for second in seconds]
        whole = [event[-1] for event in sorted(whole, key=lambda event: event[:3])]
        for second in (0, 1, 4, 4, 4, 4, 6):
            add(self.garage_rows, self.shed, second)  # this host does not have that camera
        there = [id for id in whole if isinstance(id, str)]
        begin = {"from": START, "to": START + 7}
        for limit, query, expected in ((3, {}, whole), (1, {}, whole), (200, {}, whole),
                                       (2, {"cameraId": self.ours}, there),
                                       (2, {"cameraId": self.gate}, [id for id in whole if id not in there]),
                                       (3, {"from": START + 1, "to": START + 5},
                                        [id for id in whole if id not in there[:2] + there[-1:]][2:-1])):
            ids, missing = self.pages(limit, **{**begin, **query})
            self.assertEqual((sum(ids, []), missing), (expected, set()), (limit, query))

        # A server that is down for the second page: what it would have shown there is missing, nothing else.
        def switch(page):
            self.call_garage_at(f"http://127.0.0.1:{free_port()}" if page == 1 else self.garage.url)
        ids, missing = self.pages(between=switch, **begin)
        self.assertEqual(missing, {(GARAGE, "Garage")})
        lost = whole[whole.index(ids[0][-1]) + 1:whole.index(ids[1][-1])]
        lost = [id for id in lost if id in there]
        self.assertTrue(lost)
        self.assertEqual(sum(ids, []), [id for id in whole if id not in lost])

    def test_events_there_as_here(self):
        number, event = self.import_clip("--start", "2026-01-02T03:04:05", "--type", 1)
        told = self.garage.api(API, "Get", {"eventId": number}, self.garage_sid)[1]["data"]
        self.assertEqual(self.get("Get", eventId=event)["data"],
                         {**told, "id": event, "cameraId": self.ours, "camera": "Yard there"})
        headers, picture = self.central.api(API, "Thumbnail", {"eventId": event}, self.sids["bert"])
        there = self.garage.api(API, "Thumbnail", {"eventId": number}, self.garage_sid)
        self.assertEqual((headers["Content-Type"], headers["Cache-Control"], picture),
                         ("image/jpeg", "private, max-age=86400", there[1]))
        for kept in (True, False):
            self.assertTrue(self.post("Keep", eventId=event, kept=str(kept).lower())["success"])
            self.assertEqual(self.garage_rows.row(number)["kept"], kept)
        asked = self.post("Record", "bert", cameraId=self.ours, seconds=600)["data"]["eventId"]
        camera, recording = map(int, asked.split(":"))
        self.assertEqual((camera, self.garage_rows.row(recording)["camera"]), (self.ours, self.yard))
        self.assertTrue(self.post("Stop", "bert", eventId=asked)["success"])
        self.assertEqual(self.garage_rows.row(recording)["wanted_us"], 1)
        for call, method, user, params, code in (
                (self.get, "List", "carl", {}, 105), (self.get, "Get", "carl", {"eventId": event}, 105),
                (self.post, "Keep", "bert", {"eventId": event}, 105),
                (self.post, "Record", "carl", {"cameraId": self.ours, "seconds": 2}, 105),
                (self.get, "Remove", "anna", {"eventId": event}, 101),
                (self.get, "Get", "bert", {"eventId": f"{self.ours}:0"}, 101),
                (self.get, "Get", "bert", {"eventId": f"{self.ours}:{number}&kept=1"}, 101),
                (self.get, "Get", "bert", {"eventId": f"99:{number}"}, 401),
                (self.get, "Get", "bert", {"eventId": f"{self.ours_off}:{number}"}, 401),  # of another camera
                (self.get, "Get", "bert", {"eventId": f"{self.ours}:999999"}, 401),
                (self.get, "Thumbnail", "bert", {"eventId": f"{self.ours}:999999"}, 401),
                (self.get, "Thumbnail", "bert", {"eventId": f"{self.ours}:1000"}, 100),
                (self.post, "Stop", "bert", {"eventId": event}, 401),
                (self.post, "Record", "bert", {"cameraId": self.ours, "seconds": 0}, 101),
                (self.post, "Record", "bert", {"cameraId": self.ours_off, "seconds": 2}, 402)):
            answer = call(method, user, **params)
            self.assertEqual(answer.get("error", {}).get("code"), code, (method, user, params, answer))
        self.assertEqual(answer["error"]["data"], f"camera {self.off} is switched off")  # the server's words
        self.assertTrue(self.post("Remove", eventId=event)["success"])
        self.assertEqual(self.get("Get", eventId=event)["error"]["code"], 401)

    def test_playing_what_is_there(self):
        for type in (0, 1):
            number, event = self.import_clip("--type", type)
            with open(self.garage_rows.file(self.garage_rows.row(number)), "rb") as file:
                content = file.read()
            for params, range, expected in (({}, {}, content), ({"recEvtType": type}, {}, content),
                                            ({}, {"Range": "bytes=100-299"}, content[100:300])):
                path = self.central.api_path(STREAM, "EventStream", {"eventId": event, **params}, self.sids["bert"])
                headers, body = self.central.get(path, range)
                self.assertEqual((headers.status, headers["Content-Type"], body), (206, "video/avi", expected), type)
            self.assertGreater(self.garage_rows.row(number)["played"], 0)
            answers = [site.get(site.api_path(STREAM, "EventMultipartFetch",
                                              {"eventId": id, "recEvtType": type, "timestamp": 77, "framestart": 5}, sid))
                       for site, id, sid in ((self.central, event, self.sids["bert"]),
                                             (self.garage, number, self.garage_sid))]
            self.assertEqual(*((headers["Content-Type"], body) for headers, body in answers))
            self.assertEqual(answers[0][1].count(b"\xff\xd8\xff"), 15)

    def test_server_that_does_not_answer(self):
        event = f"{self.ours}:1000"
        stranger = {"limit": 3, "client": "NVR", "cookie": "0" * 64}
        headers, answer = self.garage.get(self.garage.api_path(API, "List", stranger), {"Cookie": "timestamp=1"})
        self.assertEqual(json.loads(answer)["error"]["code"], 105)
        self.addCleanup(self.garage.oculora, "server", "accept", "--secret", SECRET)
        self.garage.oculora("server", "accept", "--none")
        self.assertEqual(self.get("List")["data"]["servers"], [
            {"id": GARAGE, "name": "Garage", "reason": "it refuses this host: the secrets differ; pair them again"}])
        self.addCleanup(self.call_garage_at, self.garage.url)
        self.call_garage_at(f"http://127.0.0.1:{free_port()}")
        self.assertRegex(self.get("List")["data"]["servers"][0]["reason"], "^cannot be reached: ")
        for method, post, params in (("Get", False, {"eventId": event}), ("Thumbnail", False, {"eventId": event}),
                                     ("Keep", True, {"eventId": event}),
                                     ("Record", True, {"cameraId": self.ours, "seconds": 2})):
            error = (self.post if post else self.get)(method, "anna", **params)["error"]
            self.assertEqual(error["code"], 100, method)
            self.assertRegex(error["data"], '^recording server "Garage" cannot be reached: ')


if __name__ == "__main__":
    unittest.main()
