#!/usr/bin/env python3
# ctest: timeout=280
"""A central host and two recording servers on a network of their own: what a viewer gets through the central host, what
the servers are asked, and what becomes of it when servers do wrong, links break, and viewers leave."""

import concurrent.futures
import contextlib
import http.client
import json
import re
import ssl
import subprocess
import time
import unittest
import urllib.parse
import urllib.request

import lan
import rogue_server
from oculora_site import FORM, SITE_TOOL, end, spawn, wait_until

lan.enter()

LIVE, EVENTS = "VELM.Oculora.Stream.VideoStreaming", "VELM.Oculora.Stream"
SECRET, PASSWORD = "a-secret-of-both-hosts", "a long password"
FRAMES = 40  # of the clip
BEGUN = 1000  # bytes of an answer that has begun
GONE = 5  # seconds in which nothing of a stream is left on either host: two, and what a busy machine adds
KEYS = "first-key", "second-key"


def ffmpeg(*args, **kw):
    return subprocess.run(["ffmpeg", "-v", "error", "-nostdin", *map(str, args)], check=True, timeout=60, **kw)


def begun_then_silent(connection, _):
    connection.sendall(b"HTTP/1.1 200 OK\r\nContent-Type: multipart/x-mixed-replace; boundary=b\r\n\r\n--b\r\n")
    connection.recv(1)  # until the client leaves


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

    def setUp(self):
        self.rogue.answer = rogue_server.forward(self.attic)
        self.rogue.requests.clear()

    # --- what a viewer asks

    def path(self, method, params, api=LIVE):
        return self.central.api_path(api, method, params, self.sid)

    def ask(self, method, params, api=LIVE, headers=None):
        return self.central.request("GET", self.path(method, params, api), headers=headers)

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

    def test_hosts_share_nothing_but_their_network(self):
        with lan.Host() as other:
            route = ["ip", "route", "show", "default"]
            self.assertEqual(other.run(route, capture_output=True).stdout, b"", "the machine's own network is not seen")
            self.assertTrue(self.attic.shared_memory())
            self.assertEqual(other.shared_memory(), [])
            moved = subprocess.run([SITE_TOOL, "--net", other.dir + "/lan", other.dir, "true"], capture_output=True)
            self.assertEqual((moved.returncode, b"end it first" in moved.stderr), (125, True))
            link = "host" + other.address.rpartition(".")[2]
            self.assertIn(link, subprocess.check_output(["ip", "link"], text=True))
        wait_until(lambda: link not in subprocess.check_output(["ip", "link"], text=True), what="the host's link to go")

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
            begin = (f"{root}/webapi/entry.cgi?api={LIVE}&method=Stream&version=1&_sid={self.sid}"
                     f"&cameraId={self.film}&")
            self.assertTrue(slices and all(line.startswith(begin) for line in slices))
            with urllib.request.urlopen(slices[-1], context=by_https, timeout=30) as answer:
                self.assertEqual(answer.headers["Content-Type"], "video/MP2T")
                ffmpeg("-xerror", "-i", "-", "-f", "null", "-", input=answer.read())
        self.assertTrue(self.attic.pids("entry.cgi"), "the remux runs there")
        self.assertFalse(busy(self.central))
        self.assertTrue(json.loads(self.ask("Close", params)[2])["success"])
        wait_until(lambda: not busy(self.attic), 60, "the remux to end")

    def test_events_arrive_as_they_are(self):
        event = {"eventId": f"{self.jpeg}:{self.event}"}
        size = len(self.clip)
        for asked in (None, "bytes=0-", "bytes=100-199", f"bytes={size - 10}-{size + 10}"):
            status, fields, body = self.ask("EventStream", event, EVENTS, {"Range": asked} if asked else None)
            first, last = map(int, re.match(r"bytes (\d+)-(\d+)/\d+$", fields["Content-Range"]).groups())
            self.assertEqual((status, fields["Content-Type"]), (206, "video/avi"))
            self.assertEqual(body, self.clip[first:last + 1], asked)
            self.assertEqual(fields["Content-Length"], str(len(body)))
        frames = {**event, "timestamp": 77, "framestart": 3, "framestop": 9, "playrate": 4}
        status, fields, body = self.ask("EventMultipartFetch", frames, EVENTS)
        pictures = re.findall(rb"\xff\xd8.*?\xff\xd9(?=\r\n--)", body, re.S)
        self.assertEqual((status, len(pictures)), (200, 7), "the server plays at its own rate")
        self.assertTrue(all(picture in self.clip for picture in pictures))
        status, fields, _ = self.ask("EventMultipartFetch", {**frames, "timestamp": 0}, EVENTS)
        self.assertEqual((status, fields["Location"]), (302, "../images/warning.png"))
        status, _, body = self.ask("EventStream", {"eventId": f"{self.jpeg}:4711"}, EVENTS)
        self.assertEqual((status, json.loads(body)["success"]), (200, False), "the server's own refusal")

    # --- what must not come through

    def test_values_stay_values(self):
        value = '"0"&isRedirectCgi=1&playrate=9#x%26a=b;c=d\r\nX-Y: z'
        event = {"eventId": f"{self.jpeg}:{self.event}", "timestamp": 5, "framestart": value}
        self.assertIn(b'"code":401', self.send("EventMultipartFetch", event, EVENTS))
        self.assertEqual(self.rogue.requests, [])
        self.send("Stream", {"cameraId": self.film, "format": "hls", "SliceId": value})
        request, = self.rogue.requests
        told = urllib.parse.parse_qsl(urllib.parse.urlsplit(request.target).query, True, True)
        self.assertEqual(dict(told)["SliceId"], value)
        self.assertEqual(len(told), len(dict(told)), "nothing was added")
        self.assertFalse("playrate" in dict(told) or "X-Y" in request.headers)

    def test_a_server_has_no_rights_on_the_host_that_manages_it(self):
        self.ask("EventStream", {"eventId": f"{self.jpeg}:{self.event}"}, EVENTS)
        proof = self.rogue.requests[-1]
        headers = {"Content-Type": FORM, "Cookie": proof.headers["Cookie"]}
        for host, admitted in ((self.attic, True), (self.central, False)):
            status, _, body = host.request("POST", proof.target, proof.body, headers)
            self.assertEqual(status == 206, admitted, body[:200])

    def test_a_chain_of_servers_ends_after_one_hop(self):
        self.add_server(9, "Myself", self.central.url)
        self.central.oculora("server", "accept", "--secret", SECRET)
        self.addCleanup(self.central.oculora, "server", "accept", "--none")
        self.central.add_camera("Loop", "h264", "test:", server=9, remote_id=900, id=900)
        status, _, body = self.ask("Stream", {"cameraId": 900, "format": "mjpeg"})
        self.assertEqual((status, body), (200, b"Format not supported.\n\r"))
        self.assertTrue(json.loads(self.ask("Open", {"cameraId": 900, "format": "hls"})[2])["success"])
        self.assertEqual(self.central.log().count("came from another host already"), 2, self.central.log())

    def test_servers_that_do_wrong_get_a_clear_answer_here(self):
        elsewhere = self.enterContext(rogue_server.RogueServer(rogue_server.whole(b"{}"), lan.GATEWAY))
        wrong = {"garbage": rogue_server.garbage, "endless headers": rogue_server.endless_headers,
                 "redirect": rogue_server.redirect(elsewhere.url),
                 "error": rogue_server.whole(b"no", "text/html", "500 No")}
        event = {"eventId": f"{self.jpeg}:{self.event}", "timestamp": 3}
        hls = {"cameraId": self.film, "format": "hls"}
        for name, answer in wrong.items():
            self.rogue.answer = answer
            with self.subTest(name):
                live = self.ask("Stream", {"cameraId": self.jpeg, "format": "mjpeg"})
                self.assertEqual(live[2], b"Format not supported.\n\r")
                status, _, body = self.ask("Stream", hls)
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

    def test_a_link_that_is_cut_and_comes_back(self):
        event = {"eventId": f"{self.jpeg}:{self.event}", "timestamp": 9}
        live = self.watch({"cameraId": self.mxpeg, "format": "mxpeg"})
        pictures = self.watch(event, "EventMultipartFetch", EVENTS)
        self.attic.cut()
        time.sleep(2)
        self.attic.restore()
        self.assertEqual(len(live.read(100000)), 100000, "live pictures go on")
        self.assertEqual(len(re.findall(rb"\xff\xd9\r\n--", pictures.read())), FRAMES, "every picture")

    def test_a_server_out_of_reach_for_longer_than_anybody_waits(self):
        viewer = self.watch({"cameraId": self.other, "format": "mjpeg"})
        self.cellar.cut()
        self.addCleanup(self.cellar.restore)
        with concurrent.futures.ThreadPoolExecutor() as pool:
            rest = pool.submit(viewer.read)
            answers = [pool.submit(self.ask, "Stream", {"cameraId": self.other, "format": "mjpeg"}),
                       pool.submit(self.ask, "EventStream", {"eventId": f"{self.other}:1"}, EVENTS)]
            self.assertFalse(concurrent.futures.wait(answers, 20).not_done, "no connection")
            with contextlib.suppress(http.client.IncompleteRead):
                rest.result(60)
        self.wait_for_nobody(self.central)
        self.cellar.restore()
        url = self.central.url + self.path("Stream", {"cameraId": self.other, "format": "mjpeg"})

        def begins():
            with urllib.request.urlopen(url, timeout=60) as answer:
                return b"image/jpeg" in answer.read(200)

        wait_until(begins, 30, "pictures again")


if __name__ == "__main__":
    unittest.main()
