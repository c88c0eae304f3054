#!/usr/bin/env python3
# ctest: timeout=280
"""A central host and two recording servers on a network of their own: what a viewer gets through the central host, what
the servers are asked, and what becomes of it when servers do wrong, links break, and viewers leave."""

import concurrent.futures
import contextlib
import http.client
import json
import os
import random
import re
import sqlite3
import ssl
import subprocess
import time
import unittest
import urllib.parse
import urllib.request

import lan
import rogue_server
from oculora_site import FORM, end, spawn, wait_until

lan.enter()

LIVE, EVENTS = "VELM.Oculora.Stream.VideoStreaming", "VELM.Oculora.Stream"
SECRET, PASSWORD = "a-secret-of-both-hosts", "a long password"
VAR = "/var/packages/Oculora/var"
FRAMES, LARGE = 40, 300 << 20  # of the clip; bytes of a file that no buffer holds
BEGUN = 1000  # bytes of an answer that has begun
GONE = 5  # seconds in which nothing of a stream is left on either host: two, and what a busy machine adds
KEYS = "first-key", "second-key"


def ffmpeg(*args, **kw):
    return subprocess.run(["ffmpeg", "-v", "error", "-nostdin", *map(str, args)], check=True, timeout=60, **kw)


def told(request):
    """The parameters of a request as they came, in order."""
    return urllib.parse.parse_qsl(urllib.parse.urlsplit(request.target).query, True, True)


def begun_then_silent(connection, request):
    connection.sendall(b"HTTP/1.1 200 OK\r\nContent-Type: multipart/x-mixed-replace; boundary=b\r\n\r\n--b\r\n")
    rogue_server.silence(connection, request)


def busy(host):
    return host.pids("entry.cgi")


class Relay(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.central, cls.attic, cls.cellar = (cls.enterClassContext(lan.Host()) for _ in range(3))
        cls.central.add_user("anna", PASSWORD, admin=True)
        # What goes to the attic passes by here, so that it can be read; or something else answers.
        cls.rogue = cls.enterClassContext(rogue_server.RogueServer(rogue_server.forward(cls.attic), lan.GATEWAY))
        for server in cls.attic, cls.cellar:
            server.oculora("server", "accept", "--secret", SECRET)
            server.serve()
        cls.add_server(1, "Attic", cls.rogue.url)
        cls.add_server(2, "Cellar", cls.cellar.url)
        cls.jpeg = cls.add_camera(1, cls.attic, "Clock", "mjpeg", "test:320x240", 101)
        cls.mxpeg = cls.add_camera(1, cls.attic, "Moby", "mxpeg", "test:320x240", 102)
        cls.film = cls.add_camera(1, cls.attic, "Film", "h264", "test:320x240", 103)
        cls.other = cls.add_camera(2, cls.cellar, "Other", "mjpeg", "test:160x120", 201)
        certificate = cls.make_certificate()
        cls.central.serve("--tls-port", "8443", "--certificate", certificate)
        cls.sid = cls.central.login("anna", PASSWORD)
        clip = cls.attic.path("/tmp/clip.avi")
        ffmpeg("-f", "lavfi", "-i", "testsrc=size=320x240:rate=10", "-frames", FRAMES, "-c:v", "mjpeg", clip)
        with open(clip, "rb") as file:
            cls.clip = file.read()
        cls.event = int(cls.attic.oculora("event", "import", "1", "/tmp/clip.avi").stdout.split()[-1])
        cls.large = int(cls.attic.oculora("event", "import", "1", "/tmp/clip.avi").stdout.split()[-1])
        os.truncate(cls.attic.path(f"{VAR}/recordings/" + cls.path_of(cls.large)), LARGE)

    @classmethod
    def add_server(cls, number, name, url):
        cls.central.oculora("server", "add", name, "--id", number, "--url", url, "--secret", SECRET)

    @classmethod
    def add_camera(cls, number, server, name, type, source, id):
        there = server.add_camera(name, type, source, fps=10)
        server.oculora("key", "set", there, *KEYS)
        cls.central.add_camera(name, type, "test:", server=number, remote_id=there, id=id)
        cls.central.oculora("key", "set", id, *KEYS)
        return id

    @classmethod
    def make_certificate(cls):
        pem = cls.central.path("/tmp/site.pem")
        subprocess.run(["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2", "-subj", "/CN=test",
                        "-keyout", pem + ".key", "-out", pem], check=True, capture_output=True)
        with open(pem, "a") as chain, open(pem + ".key") as key:
            chain.write(key.read())
        return "/tmp/site.pem"

    @classmethod
    def path_of(cls, event):
        with contextlib.closing(sqlite3.connect(cls.attic.path(f"{VAR}/records.db"))) as records:
            return records.execute("SELECT path FROM events WHERE id = ?", (event,)).fetchone()[0]

    def setUp(self):
        self.rogue.answer = rogue_server.forward(self.attic)
        self.rogue.requests.clear()

    # --- what a viewer asks

    def path(self, method, params, api=LIVE):
        return self.central.api_path(api, method, params, self.sid)

    def ask(self, method, params, api=LIVE, headers=None):
        started = time.monotonic()
        status, fields, body = self.central.request("GET", self.path(method, params, api), headers=headers)
        return status, fields, body, time.monotonic() - started

    def send(self, method, params, api=LIVE):
        """The same with values that no address may hold; the answer's body."""
        form = urllib.parse.urlencode(params)
        return self.central.request("POST", self.path(method, {}, api), form, {"Content-Type": FORM})[2]

    def watch(self, params, method="Stream", api=LIVE):
        """A viewer whose answer has begun, to be read on."""
        connection = http.client.HTTPConnection(self.central.address, self.central.port, timeout=60)
        self.addCleanup(connection.close)
        connection.request("GET", self.path(method, params, api))
        answer = connection.getresponse()
        answer.link = connection
        self.assertEqual(len(answer.read(BEGUN)), BEGUN)
        return answer

    def wait_for_nobody(self, *hosts):
        for host in hosts:
            wait_until(lambda: not busy(host), GONE + 3, "requests to end")

    # --- what comes through

    def test_live_pictures_of_two_servers(self):
        for camera, format, demuxer in ((self.jpeg, "mjpeg", "mpjpeg"), (self.mxpeg, "mxpeg", "mxg"),
                                        (self.film, "mjpeg", "mpjpeg"), (self.other, "mjpeg", "mpjpeg")):
            with self.subTest(camera):
                url = self.central.url + self.path("Stream", {"cameraId": camera, "format": format})
                done = ffmpeg("-xerror", "-f", demuxer, "-i", url, "-map", "0:v", "-frames", 6, "-f", "framemd5", "-",
                              stdout=subprocess.PIPE)
                shown = [line for line in done.stdout.splitlines() if not line.startswith(b"#")]
                self.assertGreater(len(set(line.split()[-1] for line in shown)), 3, "the clock moves")
        self.assertEqual(told(self.rogue.requests[1]),
                         [("api", LIVE), ("method", "Stream"), ("version", "1"), ("isRedirectCgi", "1"), ("cameraId", "2"),
                          ("format", "mxpeg"), ("StmKey", f'"{KEYS[0]}"')])
        self.wait_for_nobody(self.central, self.attic, self.cellar)

    def test_hls_leads_back_through_the_central_host(self):
        params = {"cameraId": self.film, "format": "hls"}
        self.assertTrue(json.loads(self.ask("Open", params)[2])["success"])
        by_https = ssl.create_default_context(cafile=self.central.path("/tmp/site.pem"))
        by_https.check_hostname = False
        secure = f"https://{self.central.address}:8443"
        for root in self.central.url, secure:
            with urllib.request.urlopen(root + self.path("Stream", params), context=by_https, timeout=30) as answer:
                self.assertEqual(answer.headers["Content-Type"], "application/x-mpegURL")
                playlist = answer.read().decode()
            slices = [line for line in playlist.splitlines() if not line.startswith("#")]
            self.assertTrue(slices and all(line.startswith(f"{root}/webapi/entry.cgi?api={LIVE}&method=Stream&version=1"
                                                           f"&_sid={self.sid}&cameraId={self.film}&") for line in slices))
            with urllib.request.urlopen(slices[-1], context=by_https, timeout=30) as answer:
                self.assertEqual(answer.headers["Content-Type"], "video/MP2T")
                ffmpeg("-xerror", "-i", "-", "-f", "null", "-", input=answer.read())
        self.assertTrue(self.attic.pids("entry.cgi"), "the remux runs there")
        self.assertFalse(busy(self.central))
        self.assertTrue(json.loads(self.ask("Close", params)[2])["success"])
        wait_until(lambda: not busy(self.attic), 60, "the remux to end")
        asked = [told(request) for request in self.rogue.requests]
        head = [("api", LIVE), ("cameraId", "3")]
        self.assertEqual(sorted(asked[0]), sorted(head + [
            ("method", "Open"), ("version", "1"), ("itemType", "0"), ("format", "hls"), ("SID", self.sid),
            ("HostIp", f"{self.central.address}:8080"), ("CamIdOnHost", str(self.film)), ("isRedirectCgi", "1")]))
        self.assertEqual(sorted(asked[1]), sorted(head + [
            ("method", "Stream"), ("version", "1"), ("useHttps", "false"), ("format", "hls"), ("SliceId", ""),
            ("HostIp", f"{self.central.address}:8080"), ("isRedirectCgi", "1")]))
        self.assertEqual(sorted(asked[-1]), sorted(head + [("method", "Close"), ("version", "1"), ("isRedirectCgi", "1")]))

    def test_events_arrive_as_they_are(self):
        event = {"eventId": f"{self.jpeg}:{self.event}"}
        size = len(self.clip)
        ranges = [None, "bytes=0-", "bytes=100-199", f"bytes={size - 10}-{size + 10}"]
        ranges += ["bytes={}-{}".format(*sorted(random.sample(range(size), 2))) for _ in range(20)]
        for asked in ranges:
            status, fields, body, _ = self.ask("EventStream", event, EVENTS, {"Range": asked} if asked else None)
            first, last = map(int, re.match(r"bytes (\d+)-(\d+)/\d+$", fields["Content-Range"]).groups())
            self.assertEqual((status, fields["Content-Type"], body), (206, "video/avi", self.clip[first:last + 1]), asked)
            self.assertEqual(fields["Content-Length"], str(len(body)))
        self.assertEqual(told(self.rogue.requests[2]),
                         [("api", EVENTS), ("method", "EventStream"), ("version", "1"), ("isRedirectCgi", "true"),
                          ("eventId", f'"1:{self.event}"'), ("HTTP_RANGE", "bytes=100-199")])
        self.rogue.requests.clear()
        frames = {**event, "timestamp": 77, "framestart": 3, "framestop": 9, "playrate": 4}
        status, fields, body, _ = self.ask("EventMultipartFetch", frames, EVENTS)
        pictures = re.findall(rb"\xff\xd8.*?\xff\xd9(?=\r\n--)", body, re.S)
        self.assertEqual((status, len(pictures)), (200, 7), "the server plays at its own rate")
        self.assertTrue(all(picture in self.clip for picture in pictures))
        self.assertEqual(told(self.rogue.requests[0]),
                         [("api", EVENTS), ("method", "EventMultipartFetch"), ("version", "1"), ("isRedirectCgi", "true"),
                          ("eventId", f'"1:{self.event}"'), ("framestart", "3"), ("framestop", "9"), ("timestamp", "77"),
                          ("checkpgid", "1")])
        status, fields, _, _ = self.ask("EventMultipartFetch", {**frames, "timestamp": 0}, EVENTS)
        self.assertEqual((status, fields["Location"]), (302, "../images/warning.png"))
        status, _, body, _ = self.ask("EventStream", {"eventId": f"{self.jpeg}:4711"}, EVENTS)
        self.assertEqual((status, json.loads(body)["success"]), (200, False), "the server's own refusal")

    # --- what must not come through

    def test_values_stay_values(self):
        hostile = '0&playrate=9', '0#x', '"0"\r\nX-Y: z', "0&isRedirectCgi=1&framestart=5", "%26a=b", "0;a=b"
        for value in hostile:
            with self.subTest(value):
                self.rogue.requests.clear()
                event = {"eventId": f"{self.jpeg}:{self.event}", "timestamp": 5, "framestop": 0, "framestart": value}
                answer = self.send("EventMultipartFetch", event, EVENTS)
                # A web server refuses control characters, even well encoded.
                self.assertEqual(b'"code":401' in answer, "&" in value or "\n" in value, answer)
                self.send("Stream", {"cameraId": self.film, "format": "hls", "SliceId": value})
                self.assertEqual(dict(told(self.rogue.requests[-1]))["SliceId"], value)
                for request in self.rogue.requests:
                    names = [name for name, _ in told(request)]
                    self.assertEqual(len(names), len(set(names)))
                    self.assertFalse("playrate" in names or "X-Y" in request.headers)

    def test_nobody_else_may_say_that_he_forwards(self):
        params = {"cameraId": 1, "format": "mjpeg", "isRedirectCgi": 1, "client": "NVR"}
        for extra in ({}, {"cookie": "a" * 64}, {"cookie": "FailedCookie"}):
            _, body = self.attic.api(LIVE, "Stream", {**params, **extra})
            self.assertEqual(body["error"]["code"], 105, body)
        # The proof is for one direction: a server has no rights on the host that manages it.
        self.ask("EventStream", {"eventId": f"{self.jpeg}:{self.event}"}, EVENTS)
        proof = self.rogue.requests[-1]
        headers = {"Content-Type": "application/x-www-form-urlencoded", "Cookie": proof.headers["Cookie"]}
        for host, admitted in ((self.attic, True), (self.central, False)):
            status, _, body = host.request("POST", proof.target, proof.body, headers)
            self.assertEqual(status == 206, admitted, body[:200])

    def test_a_chain_of_servers_ends_after_one_hop(self):
        self.add_server(9, "Myself", self.central.url)
        self.central.oculora("server", "accept", "--secret", SECRET)
        self.addCleanup(self.central.oculora, "server", "accept", "--none")
        self.central.add_camera("Loop", "h264", "test:", server=9, remote_id=900, id=900)
        status, _, body, seconds = self.ask("Stream", {"cameraId": 900, "format": "mjpeg"})
        self.assertEqual((status, body), (200, b"Format not supported.\n\r"))
        self.assertTrue(json.loads(self.ask("Open", {"cameraId": 900, "format": "hls"})[2])["success"])
        self.assertEqual(self.central.log().count("came from another host already"), 2, self.central.log())

    def test_servers_that_do_wrong_get_a_clear_answer_here(self):
        elsewhere = self.enterContext(rogue_server.RogueServer(rogue_server.whole(b"{}"), lan.GATEWAY))
        wrong = {"garbage": rogue_server.garbage, "endless headers": rogue_server.endless_headers,
                 "redirect": rogue_server.redirect(elsewhere.url), "error": rogue_server.whole(b"no", "text/html", "500 No")}
        event = {"eventId": f"{self.jpeg}:{self.event}", "timestamp": 3}
        hls = {"cameraId": self.film, "format": "hls"}
        for name, answer in wrong.items():
            self.rogue.answer = answer
            with self.subTest(name):
                live = self.ask("Stream", {"cameraId": self.jpeg, "format": "mjpeg"})
                self.assertEqual(live[2], b"Format not supported.\n\r")
                status, _, body, _ = self.ask("Stream", hls)
                self.assertEqual((status, body[:25]), (502, b'Recording server "Attic":'), body)
                for method in ("Open", "Close"):
                    self.assertTrue(json.loads(self.ask(method, hls)[2])["success"])
                for method in ("EventStream", "EventMultipartFetch"):
                    self.assertEqual(json.loads(self.ask(method, event, EVENTS)[2])["error"]["code"], 401)
        self.assertEqual(elsewhere.requests, [], "redirects are not followed")
        self.rogue.answer = rogue_server.cut_short
        with self.assertRaises(http.client.IncompleteRead) as cut:
            self.ask("Stream", hls)
        self.assertEqual(cut.exception.partial, b'{"success":true', "what came, and that more is missing")
        self.wait_for_nobody(self.central)

    # --- links and hosts that come and go

    def test_viewers_that_leave_end_the_stream_there(self):
        for camera, format in ((self.jpeg, "mjpeg"), (self.mxpeg, "mxpeg"), (self.other, "mjpeg")):
            with self.subTest(camera):
                viewer = self.watch({"cameraId": camera, "format": format})
                viewer.link.sock.close()
                viewer.close()
                left = time.monotonic()
                self.wait_for_nobody(self.central, self.attic, self.cellar)
                self.assertLess(time.monotonic() - left, GONE + 1)
        # Also one that shows nothing any more: the front tells the request, and that the server.
        self.rogue.answer = begun_then_silent
        url = self.central.url + self.path("Stream", {"cameraId": self.jpeg, "format": "mjpeg"})
        silent = spawn(["curl", "-s", "-o", "/dev/null", url])
        wait_until(lambda: self.rogue.connections, what="the request to arrive")
        end(silent)
        wait_until(lambda: not self.rogue.connections and not busy(self.central), GONE + 3, "everybody to leave")

    def in_the_middle(self):
        """One viewer of each kind, all of them in the middle of their answers: live MJPEG and MxPEG, a recording's file
        and its pictures."""
        event = {"eventId": f"{self.jpeg}:{self.event}", "timestamp": 9}
        return [self.watch({"cameraId": self.jpeg, "format": "mjpeg"}),
                self.watch({"cameraId": self.mxpeg, "format": "mxpeg"}),
                self.watch({"eventId": f"{self.jpeg}:{self.large}"}, "EventStream", EVENTS),
                self.watch(event, "EventMultipartFetch", EVENTS)]

    def slices(self):
        body = self.ask("Stream", {"cameraId": self.film, "format": "hls"})[2].decode()
        return [line for line in body.splitlines() if line.startswith("http")]

    def test_a_link_that_is_cut_and_comes_back(self):
        hls = {"cameraId": self.film, "format": "hls"}
        self.ask("Open", hls)
        self.addCleanup(self.ask, "Close", hls)
        before = self.slices()
        jpeg, mxpeg, file, pictures = self.in_the_middle()
        self.attic.cut()
        time.sleep(2)
        self.attic.restore()
        self.assertEqual((len(jpeg.read(100000)), len(mxpeg.read(100000))), (100000, 100000), "live pictures go on")
        self.assertEqual(len(file.read()), LARGE - BEGUN, "the whole file")
        self.assertEqual(len(re.findall(rb"\xff\xd9\r\n--", pictures.read())), FRAMES, "every picture")
        wait_until(lambda: self.slices()[-1] != before[-1], what="new slices")

    def test_a_server_out_of_reach_for_longer_than_anybody_waits(self):
        viewer = self.watch({"cameraId": self.other, "format": "mjpeg"})
        self.cellar.cut()
        self.addCleanup(self.cellar.restore)
        with concurrent.futures.ThreadPoolExecutor() as pool:
            rest = pool.submit(viewer.read)
            answers = [pool.submit(self.ask, "Stream", {"cameraId": self.other, "format": "mjpeg"}),
                       pool.submit(self.ask, "EventStream", {"eventId": f"{self.other}:1"}, EVENTS)]
            for answer in answers:
                self.assertLess(answer.result(60)[3], 20, "no connection")
            with contextlib.suppress(http.client.IncompleteRead):
                rest.result(60)
        self.wait_for_nobody(self.central)
        self.cellar.restore()
        wait_until(lambda: b"image/jpeg" in self.begin(self.other), 30, "pictures again")

    def begin(self, camera):
        """The first bytes of a live answer."""
        with contextlib.closing(http.client.HTTPConnection(self.central.address, self.central.port, timeout=60)) as link:
            link.request("GET", self.path("Stream", {"cameraId": camera, "format": "mjpeg"}))
            return link.getresponse().read(200)

    def test_a_server_that_is_killed_and_started_again(self):
        viewers = self.in_the_middle()
        for pid in self.attic.pids("lighttpd|entry.cgi"):
            with contextlib.suppress(ProcessLookupError):  # its client's end was its own
                os.kill(pid, 9)
        for viewer in viewers:
            with contextlib.suppress(http.client.IncompleteRead):
                viewer.read()
        wait_until(lambda: b"image/jpeg" in self.begin(self.jpeg), 30, "pictures again")
        event = {"eventId": f"{self.jpeg}:{self.event}"}
        self.assertEqual(self.ask("EventStream", event, EVENTS)[2], self.clip)
        self.wait_for_nobody(self.central)


if __name__ == "__main__":
    unittest.main()
