"""Playing recorded events through lighttpd: byte ranges, paced frames, players that take over, clients that leave."""

import contextlib
import http.client
import os
import pathlib
import random
import signal
import socket
import sqlite3
import subprocess
import tempfile
import time
import unittest

from live_test import picture
from oculora_site import Site, wait_until

API = "VELM.Oculora.Stream"
PASSWORD = "a long password"
VAR = "/var/packages/Oculora/var"
RATE, FRAMES = 20, 100
RANGES = 150
GONE = 8  # seconds in which nothing of a player is left: two, and what a busy machine adds


class PlaybackTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.site = cls.enterClassContext(Site())
        cls.site.add_user("anna", PASSWORD, admin=True)
        cls.camera = cls.site.add_camera("Film", "mjpeg", "test:320x240", fps=10)
        cls.site.serve()
        cls.sid = cls.site.login("anna", PASSWORD)
        scratch = cls.enterClassContext(tempfile.TemporaryDirectory())
        film = os.path.join(scratch, "film.avi")
        cls.ffmpeg("-f", "lavfi", "-i", f"testsrc=size=320x240:rate={RATE}", "-frames", FRAMES, "-c:v", "mjpeg", film)
        cls.ffmpeg("-i", film, "-c", "copy", os.path.join(scratch, "%d.jpg"))
        cls.film = pathlib.Path(film).read_bytes()
        cls.pictures = [pathlib.Path(scratch, f"{number + 1}.jpg").read_bytes() for number in range(FRAMES)]
        cls.event = cls.add_event(cls.film)
        cls.addClassCleanup(cls.wait_for_no_players, 30)

    @staticmethod
    def ffmpeg(*args):
        subprocess.run(["ffmpeg", "-v", "error", *map(str, args)], check=True, timeout=60)

    @classmethod
    def add_event(cls, content, extension=".avi", state=0):
        with contextlib.closing(sqlite3.connect(cls.site.path(f"{VAR}/records.db"), timeout=10)) as records, records:
            event = records.execute("INSERT INTO events (camera, cause, state, video_type, start_us) "
                                    "VALUES (?, 2, ?, 1, 1)", (cls.camera, state)).lastrowid
            records.execute("UPDATE events SET path = ? WHERE id = ?", (f"{event}{extension}", event))
        file = pathlib.Path(cls.path_of(event, extension))
        file.parent.mkdir(exist_ok=True)
        file.write_bytes(content)
        return event

    @classmethod
    def path_of(cls, event, extension=".avi"):
        return cls.site.path(f"{VAR}/recordings/{event}{extension}")

    @classmethod
    def wait_for_no_players(cls, seconds=GONE):
        wait_until(lambda: not cls.site.pids("entry.cgi"), seconds, "request processes to end")

    def path(self, method, event, sid=None, **params):
        return self.site.api_path(API, method, {"eventId": event, **params}, sid or self.sid)

    def stream(self, event=None, **headers):
        """(headers, bytes) of the event's file."""
        return self.site.get(self.path("EventStream", event or self.event), headers)

    def play(self, sid=None, event=None, **params):
        """The answer of a player; read it with `picture`."""
        connection = http.client.HTTPConnection("127.0.0.1", self.site.port, timeout=60)
        query = {"framestart": 0, "timestamp": random.getrandbits(53) + 1, **params}
        connection.request("GET", self.path("EventMultipartFetch", event or self.event, sid, **query),
                           headers={"Connection": "close"})
        answer = connection.getresponse()
        self.addCleanup(answer.close)
        return answer

    def started(self, sid=None, **params):
        """A player that has sent its first frame, and its pid."""
        answer = self.play(sid, **params)
        self.assertEqual(picture(answer), self.pictures[0])
        return answer, int(self.site.read(self.pid_file(sid)))

    def pid_file(self, sid=None):
        return f"/tmp/player_src.pid.{sid or self.sid}"

    def wait_for_end(self, sid=None):
        wait_until(lambda: not os.path.exists(self.site.path(self.pid_file(sid))), GONE, "the pid file to go")
        self.wait_for_no_players()

    def test_ranges_give_the_bytes_of_the_file(self):
        size = len(self.film)
        chosen = random.Random(4)
        for _ in range(RANGES):
            first, last = chosen.randrange(size), chosen.randrange(2 * size)
            text, last = chosen.choice(((f"bytes={first}-{max(first, last)}", max(first, last)),
                                        (f"bytes={first}-", size)))
            headers, body = self.stream(Range=text)
            last = min(last, size - 1)
            self.assertEqual((headers.status, headers["Content-Range"], headers["Content-Type"]),
                             (206, f"bytes {first}-{last}/{size}", "video/avi"), text)
            self.assertTrue(body == self.film[first:last + 1], text)
        headers, body = self.stream()
        self.assertTrue(headers.status == 206 and body == self.film, "no range")

    def test_senseless_ranges_harm_nobody(self):
        for text in ("items=0-10", "bytes=-500", "bytes=900-100", "bytes=0-0," + "1-1," * 73 + "-", "b" * 300):
            with self.subTest(text), socket.create_connection(("127.0.0.1", self.site.port), 10) as client:
                client.sendall(f"GET {self.path('EventStream', self.event)} HTTP/1.0\r\nRange: {text}\r\n\r\n".encode())
                answer = b"".join(iter(lambda: client.recv(65536), b""))
                self.assertRegex(answer, rb"^HTTP/1.[01] 206 ")
                self.assertLess(len(answer), len(self.film) + 2000)
        self.wait_for_no_players()

    def test_a_file_that_shrinks_or_vanishes_while_it_is_sent(self):
        size = 40_000_000
        for change, complete in ((lambda path: os.truncate(path, 1000), False), (os.unlink, True)):
            event = self.add_event(b"x" * size, ".mp4")
            with contextlib.closing(http.client.HTTPConnection("127.0.0.1", self.site.port, timeout=15)) as connection:
                connection.request("GET", self.path("EventStream", event))
                answer = connection.getresponse()
                self.assertEqual((answer.status, answer.headers["Content-Type"]), (206, "video/mp4"))
                answer.read(100)
                change(self.path_of(event, ".mp4"))
                try:
                    rest = len(answer.read())
                except (http.client.IncompleteRead, ConnectionError) as cut:
                    rest = len(getattr(cut, "partial", b""))
            self.assertEqual(100 + rest == size, complete, f"{100 + rest} bytes")
            self.wait_for_no_players()

    def test_what_cannot_be_played_shows_a_picture(self):
        torn = self.film[:200] + bytes(len(self.film) - 200)
        for content in (b"", b"RIFF" + random.Random(1).randbytes(100_000), torn):
            answer = self.play(event=self.add_event(content))
            self.assertEqual((answer.status, answer.headers["Location"]), (302, "../images/warning.png"))
        self.wait_for_end()

    def test_frames_are_those_of_the_file(self):
        for params, expected in (({"framestart": 60}, range(60, FRAMES)), ({"playrate": 3}, range(0, FRAMES, 3)),
                                 ({"framestart": 5, "framestop": 9}, range(5, 10)),
                                 ({"framestart": 97, "framestop": 5000}, range(97, FRAMES))):
            begin = time.monotonic()
            answer = self.play(**params)
            shown = list(iter(lambda: picture(answer), None))
            self.assertTrue(shown == [self.pictures[number] for number in expected], f"{params}: {len(shown)} frames")
            self.assertGreater((time.monotonic() - begin) * RATE, len(expected) - 2, "hurried")
        self.wait_for_end()

    def test_the_rate_changes_while_it_plays(self):
        cell = 12345
        other = self.site.login("anna", PASSWORD)
        answer, _ = self.started(timestamp=cell, changerate="true", playrate=-2)
        # A player without frames sets the cell and ends. Of another session, or it would take over.
        setter = self.play(other, timestamp=cell, changerate="true", playrate=-8, framestart=FRAMES)
        self.assertEqual(setter.status, 500, "the front's own answer for a request that wrote nothing")
        slow, last = 0, time.monotonic()
        while slow < 4:  # in a row, behind what was sent meanwhile
            self.assertIsNotNone(picture(answer), "it never slowed down")
            slow, last = (slow + 1 if time.monotonic() - last > 5 / RATE else 0), time.monotonic()
        answer.close()
        self.wait_for_end()

    def test_a_newer_player_of_the_session_takes_over(self):
        stalled, _ = self.started()  # and never read again
        for number in range(7):
            older, pid = self.started()
            newer, newer_pid = self.started()
            self.assertNotEqual(pid, newer_pid)
            wait_until(lambda: self.site.pids("entry.cgi") == [newer_pid], GONE, "the older player to end")
            self.assertEqual(self.site.read(self.pid_file()), f"{newer_pid}\n")
            older.close()
            self.assertIsNotNone(picture(newer))
            if number % 2 == 0:  # the last one, too
                newer.close()
                self.wait_for_end()
        stalled.close()
        another = self.site.login("anna", PASSWORD)
        players = [self.started(checkpgid=0)[1], self.started(checkpgid=0)[1], self.started(another)[1]]
        self.assertEqual(len(set(players) & set(self.site.pids("entry.cgi"))), 3, "not asked to look, another session")
        for pid in players:
            os.kill(pid, signal.SIGTERM)
        self.wait_for_end()

    def test_signals(self):
        answer, pid = self.started()
        os.kill(pid, signal.SIGTERM)
        rest = list(iter(lambda: picture(answer), None))
        self.assertTrue(rest == self.pictures[1:len(rest) + 1] and len(rest) < FRAMES // 2, "whole frames to the end")
        self.wait_for_end()
        answer, pid = self.started()
        os.kill(pid, signal.SIGKILL)
        self.wait_for_no_players()
        self.started()[0].close()  # what it left is taken over
        self.wait_for_end()

    def test_clients_that_stall_or_go_away(self):
        noise = ("-f", "lavfi", "-i", f"nullsrc=size=1280x720:rate={RATE},geq=random(1)*255:128:128", "-frames", 8)
        self.ffmpeg(*noise, "-c:v", "mjpeg", "-q:v", 2, self.path_of("noise"))
        heavy = self.add_event(pathlib.Path(self.path_of("noise")).read_bytes())
        moments = random.Random(5)
        for stalls, leaves in ((True, False),) + ((False, True), (True, True)) * 6:
            with self.subTest(stalls=stalls, leaves=leaves), socket.socket() as client:
                client.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 4096)
                client.connect(("127.0.0.1", self.site.port))
                event, rate = (heavy, 1) if stalls else (self.event, -64)
                path = self.path("EventMultipartFetch", event, timestamp=7, playrate=rate)
                client.sendall(f"GET {path} HTTP/1.0\r\n\r\n".encode())
                client.recv(64)
                time.sleep(moments.uniform(0.5, 1) if stalls else moments.uniform(0, 0.3))
                if stalls:
                    self.assertTrue(self.site.pids("entry.cgi"), "it played to the end: no stall")
                if not leaves:
                    os.kill(int(self.site.read(self.pid_file())), signal.SIGTERM)
                    self.wait_for_end()
            self.wait_for_end()

    def test_a_file_that_is_still_being_recorded(self):
        half = self.film.index(self.pictures[50])
        event = self.add_event(self.film[:half + 100], state=1)
        shown = list(iter(lambda answer=self.play(event=event, playrate=10): picture(answer), None))
        self.assertTrue(shown == self.pictures[:50:10], f"{len(shown)} frames")
        with open(self.path_of(event), "ab") as file:
            file.write(self.film[half + 100:])
        headers, body = self.stream(event, Range=f"bytes={half}-")
        self.assertEqual(headers["Content-Range"], f"bytes {half}-{len(self.film) - 1}/{len(self.film)}")
        self.assertTrue(body == self.film[half:])


if __name__ == "__main__":
    unittest.main()
