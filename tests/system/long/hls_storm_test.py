#!/usr/bin/env python3
# ctest: timeout=900
"""HLS under users that open, close, leave and are killed at any moment: what plays then, and that nothing is left.

$OCULORA_SEED repeats a run's choices, which the clocks of two cores then mix again.
"""

import contextlib
import http.client
import os
import random
import signal
import socket
import threading
import time
import unittest

from hls_client import API, HlsCamera, add_clip_camera, leftovers, requests
from oculora_site import Site, wait_until
from side_by_side import in_background

PASSWORD = "a long password"
CAMERAS = 4
STORM_SECONDS = 150


class Storm:
    """Users and misfortunes over some cameras, each in a thread of its own."""

    def __init__(self, cameras, seed):
        self.cameras, self.seed = cameras, seed
        self.site = cameras[0].site
        self.over = threading.Event()
        self.done = {}

    def run(self, seconds):
        threads = [in_background(self.repeat, act, i) for i, act in enumerate(
            [self.user] * 5 + [self.leaver] * 2 + [self.kill_remux, self.kill_request, self.halt])]
        time.sleep(seconds)
        self.over.set()
        for thread in threads:
            thread.result(120)
        return self.done

    def repeat(self, act, number):
        choose = random.Random(f"{self.seed} {number}")
        while not self.over.is_set():
            act(choose)
            self.done[act.__name__] = self.done.get(act.__name__, 0) + 1

    def user(self, choose):
        """Somebody who opens, perhaps looks, and mostly closes again. What is answered is not the point here."""
        camera = choose.choice(self.cameras)
        for method in choose.choice(("Open Stream Stream Close", "Open Close", "Open Close Close", "Open Open Close",
                                     "Close", "Open Stream")).split():
            with contextlib.suppress(OSError, http.client.HTTPException):  # its process was killed
                camera.call(method, format="hls")
            time.sleep(choose.random() * choose.choice((0, 0.05, 2)))

    def leaver(self, choose):
        """Somebody who goes away in the middle of a request."""
        camera = choose.choice(self.cameras)
        path = self.site.api_path(API, choose.choice(("Open", "Open", "Close", "Stream")),
                                  {"cameraId": camera.id, "format": "hls"}, camera.sid)
        with socket.create_connection(("127.0.0.1", self.site.port)) as connection:
            connection.sendall(f"GET {path} HTTP/1.1\r\nHost: test\r\n\r\n".encode())
            time.sleep(choose.random() * choose.choice((0.01, 0.1, 1)))

    def kill_remux(self, choose):
        time.sleep(choose.random() * 4)
        self.signal(choose.choice(self.cameras).remuxes(), choose, (signal.SIGKILL, signal.SIGTERM, signal.SIGINT))

    def kill_request(self, choose):
        time.sleep(choose.random() * 0.3)
        remuxes = {pid for camera in self.cameras for pid in camera.remuxes()}
        self.signal(set(requests(self.site)) - remuxes, choose, (signal.SIGKILL, signal.SIGTERM))

    def halt(self, choose):
        """Stops a process of any kind for a while, sometimes for longer than others wait for it."""
        time.sleep(choose.random())
        pid = self.signal(requests(self.site), choose, (signal.SIGSTOP,))
        time.sleep(choose.random() * choose.choice((0.1, 2, 7)))
        if pid:
            self.signal([pid], choose, (signal.SIGCONT,))

    @staticmethod
    def signal(pids, choose, signals):
        pids = sorted(pids)
        pid = choose.choice(pids) if pids else None
        try:
            if pid:
                os.kill(pid, choose.choice(signals))
        except ProcessLookupError:
            pass
        return pid


class HlsStormTest(unittest.TestCase):
    def nothing_is_left(self, site):
        # A remux that lost its pid file to a newer one while it was halted finds out at its next look, once a minute.
        with contextlib.suppress(AssertionError):
            wait_until(lambda: not leftovers(site), 150)
        self.assertEqual(leftovers(site), [])
        inode = os.stat(site.path("/tmp/ndcam/file_lock")).st_ino
        with open("/proc/locks") as locks:
            self.assertEqual([line for line in locks if line.split()[-3].endswith(f":{inode}")], [])

    def test_storm(self):
        seed = int(os.environ.get("OCULORA_SEED", random.randrange(1 << 30)))
        print(f"OCULORA_SEED={seed}", flush=True)
        with Site() as site:
            site.add_user("anna", PASSWORD, admin=True)
            ids = [add_clip_camera(site, f"Storm {i}") for i in range(CAMERAS)]
            site.serve()
            sid = site.login("anna", PASSWORD)
            cameras = [HlsCamera(site, id, sid) for id in ids]
            print(Storm(cameras, seed).run(STORM_SECONDS), flush=True)
            for pid in requests(site):
                os.kill(pid, signal.SIGCONT)
            for camera in cameras:
                for _ in range(1000):
                    if camera.call("Close") != {"success": True}:
                        break
            self.nothing_is_left(site)
            for camera in cameras:
                camera.open()
                self.assertEqual(camera.count(), b"1\n")
                camera.plays()
                camera.close_all()
            self.nothing_is_left(site)


if __name__ == "__main__":
    unittest.main()
