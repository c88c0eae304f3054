"""How many players of one camera (1080p, 25 a second, 4 Mbit/s) keep up, without and with the caching front, on this
machine: recorder, remux, servers and the players share its cores.

A player fetches the playlist every two seconds and each new slice once, and throws the bytes away. It keeps up when
every slice is whole and there within two seconds of the playlist that named it first. A number of players holds when 99
of 100 slices are so and none was missed.

    OCULORA_BUILD=build python3 bench/hls/players_bench.py [most]
"""

import heapq
import os
import re
import resource
import secrets
import selectors
import socket
import sqlite3
import sys
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.realpath(__file__)), "..", "support"))
from front import family_cpu, wait_until  # noqa: E402
from hls import API, HlsSite  # noqa: E402
from caching_front import CachingFront  # noqa: E402 (front.py knows the way)

PERIOD = 2.0
SETTLE, MEASURE = 5.0, 14.0  # seconds
NAME = re.compile(rb"^http://[^/]+(/\S*/(\d+)\.ts)$", re.M)


class Player:
    """One player: a playlist every PERIOD, then each new slice in turn, each with a connection of its own."""

    def __init__(self, crowd, session, start):
        self.crowd, self.session, self.due = crowd, session, start
        self.newest, self.queue, self.socket = -1, [], None

    def begin(self, path, discard):
        self.head, self.size, self.discard = b"", 0, discard
        self.socket = socket.socket()
        self.socket.setblocking(False)
        self.socket.connect_ex(("127.0.0.1", self.crowd.port))
        self.request = f"GET {path} HTTP/1.0\r\nHost: 127.0.0.1:{self.crowd.port}\r\n" \
                       f"Cookie: oculora_sid={self.session}\r\n\r\n".encode()
        self.crowd.selector.register(self.socket, selectors.EVENT_WRITE, self)

    def poll(self):
        self.polled = self.due
        self.due += PERIOD
        self.begin(self.crowd.playlist, False)

    def ready(self, events):
        if events & selectors.EVENT_WRITE:
            try:
                self.socket.send(self.request)
            except OSError:
                return self.done(False)
            self.crowd.selector.modify(self.socket, selectors.EVENT_READ, self)
            return
        try:
            if self.discard and b"\r\n\r\n" in self.head:  # the kernel drops the bytes: players are not measured
                size = self.socket.recv_into(self.crowd.buffer, 0, socket.MSG_TRUNC)
            else:
                data = self.socket.recv(8192)
                self.head, size = self.head + data, len(data)
        except BlockingIOError:
            return
        except OSError:
            return self.done(False)
        self.size += size
        if size == 0:
            self.done(self.head.startswith((b"HTTP/1.0 200", b"HTTP/1.1 200")))

    def done(self, good):
        self.crowd.selector.unregister(self.socket)
        self.socket.close()
        self.socket = None
        head, _, body = self.head.partition(b"\r\n\r\n")
        if not self.discard:
            self.plan(body if good else b"")
        else:
            number = self.queue.pop(0)[1]
            whole = good and self.size - len(head) - 4 == self.crowd.slice_bytes(number)
            self.crowd.count(whole, time.monotonic() - self.polled, self.polled)
        if self.queue:
            self.begin(self.queue[0][0], True)

    def plan(self, playlist):
        found = [(path.decode(), int(number)) for path, number in NAME.findall(playlist)]
        if not found:
            self.crowd.count(False, 0, self.polled)
            return
        fresh = [one for one in found if one[1] > self.newest] if self.newest >= 0 else found[-1:]
        if self.newest >= 0 and fresh and fresh[0][1] != self.newest + 1:
            self.crowd.missed += 1
        self.newest = found[-1][1]
        self.queue = fresh


class Crowd:
    def __init__(self, site, port, sessions, count):
        self.site, self.port, self.sizes = site, port, {}
        self.playlist = site.api_path(API, "Stream", {"cameraId": site.camera, "format": "hls"})
        self.selector, self.buffer = selectors.DefaultSelector(), bytearray(1 << 22)
        self.good = self.late = self.broken = self.missed = 0
        start = time.monotonic() + 0.2
        self.measure_from, self.end = start + SETTLE, start + SETTLE + MEASURE
        self.players = [Player(self, sessions[i % len(sessions)], start + PERIOD * i / count) for i in range(count)]
        self.waiting = [(player.due, number) for number, player in enumerate(self.players)]  # ascending: a heap

    def slice_bytes(self, number):
        if number not in self.sizes:
            try:
                self.sizes[number] = os.path.getsize(self.site.hls_path(f"{number}.ts"))
            except FileNotFoundError:
                return -1
        return self.sizes[number]

    def count(self, whole, seconds, polled):
        if polled < self.measure_from:
            return
        if not whole:
            self.broken += 1
        elif seconds > PERIOD:
            self.late += 1
        else:
            self.good += 1

    def run(self):
        """Whether so many keep up."""
        now = time.monotonic()
        while now < self.end:
            for key, events in self.selector.select(0.01):
                key.data.ready(events)
            now = time.monotonic()
            while self.waiting[0][0] <= now:
                _, number = heapq.heappop(self.waiting)
                player = self.players[number]
                if player.socket is None:
                    player.poll()
                heapq.heappush(self.waiting, (max(player.due, now + 0.02), number))
        for player in self.players:
            if player.socket is not None:
                player.socket.close()
        self.selector.close()
        # As many slices as the time holds: players that hang have fetched fewer.
        expected = len(self.players) * MEASURE / PERIOD * 0.9
        return self.good >= expected and self.missed == 0 and self.good >= 0.99 * (self.good + self.late + self.broken)


def add_sessions(site, count):
    """Sessions of further viewers, written straight into the records: logging in is slow on purpose."""
    ids = [secrets.token_urlsafe(16) for _ in range(count)]
    with sqlite3.connect(site.path("/var/packages/Oculora/var/records.db")) as records:
        uid = records.execute("SELECT uid FROM users").fetchone()[0]
        records.executemany("INSERT INTO sessions VALUES (?, ?, ?, ?)",
                            [(one, uid, int(time.time()), int(time.time()) + 3600) for one in ids])
    return ids


def most_that_hold(site, servers, port, sessions, most):
    """Doubles until too many, then halves the gap until it is a tenth."""
    holds, fails, load = 0, most + 1, 0.0
    count = 32
    while count < fails and holds < most:
        before, begin = sum(map(family_cpu, servers)), time.monotonic()
        crowd = Crowd(site, port, sessions, count)
        good = crowd.run()
        cpu = (sum(map(family_cpu, servers)) - before) / (time.monotonic() - begin)
        print(f"  {count:5} players: {'hold' if good else 'too many'} ({crowd.good} in time, {crowd.late} late,"
              f" {crowd.broken} broken, {crowd.missed} missed; servers {cpu:.2f} cores)", flush=True)
        time.sleep(2)
        holds, fails, load = (count, fails, cpu) if good else (holds, count, load)
        count = min(count * 2, most) if fails > most else (holds + fails) // 2
        if fails <= most and fails - holds <= max(1, holds // 10):
            break
    return holds, load


def main():
    most = int(sys.argv[1]) if len(sys.argv) > 1 else 1500
    hard = resource.getrlimit(resource.RLIMIT_NOFILE)[1]
    resource.setrlimit(resource.RLIMIT_NOFILE, (min(hard, 16384), hard))
    with HlsSite() as site:
        sessions = add_sessions(site, most)
        site.open()
        wait_until(lambda: len(site.slices()) >= 6, 20, "a full playlist")
        front = CachingFront(site)
        try:
            lighttpd = next(pid for pid, line in site.processes().items() if "lighttpd" in line.split(" ")[0])
            results = []
            for name, port, ids in (("without the front", site.port, sessions),
                                    ("with it, a session each", front.port, sessions),
                                    ("with it, one session", front.port, sessions[:1])):
                print(name, flush=True)
                results.append((name, *most_that_hold(site, [lighttpd, front.process.pid], port, ids, most)))
        finally:
            front.close()
        site.shut()
    print(f"players of one camera that keep up on {os.cpu_count()} cores, the players' own work included:")
    for name, holds, load in results:
        print(f"{name:24} {holds:5}   (servers then use {load:.2f} cores)")


if __name__ == "__main__":
    main()
