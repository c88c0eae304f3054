#!/usr/bin/env python3
# ctest: timeout=400
"""HLS over minutes: who keeps a remux alive, what ends and what replaces it, and every picture of a long run."""

import os
import signal
import time
import unittest

from hls_client import CLIP, FPS, HlsCamera, add_clip_camera, check_run, pictures
from oculora_site import wait_until
from side_by_side import SideBySide, tests_of

PASSWORD = "a long password"


def kept_alive(camera):
    """One player keeps its remux for longer than a minute, gets every picture, and the directory stays small."""
    camera.open()
    remux = camera.remux()
    slices = {}
    for _ in range(15):
        camera.watch(3, slices)
        assert len(os.listdir(camera.directory)) < 20, os.listdir(camera.directory)
    assert camera.remuxes() == [remux] and camera.count() == b"1\n"
    assert check_run(slices, pictures(camera.site.path(CLIP))) > 80 * FPS
    camera.close_last()


def neglected(camera):
    """Nobody fetches: the remux ends by itself, not before its minute is over."""
    camera.open()
    begin = time.monotonic()
    wait_until(camera.is_gone, 180, "the end of a neglected remux")
    assert time.monotonic() - begin > 55
    assert f"Cam[{camera.id}]: NO ACCESS break\n" in camera.site.log()


def silenced(camera):
    """The camera stops sending while somebody watches."""
    camera.open()
    worker, = camera.site.pids(f"--worker {camera.id}$")
    os.kill(worker, signal.SIGSTOP)
    try:
        wait_until(camera.is_gone, 60, "the end of a remux without frames")
    finally:
        os.kill(worker, signal.SIGCONT)
    assert f"Cam[{camera.id}]: No data timeout break\n" in camera.site.log()
    wait_until(lambda: camera.call("Query")["success"], 60, "the camera's return")
    camera.open()
    camera.plays()
    camera.close_last()


def outlived(camera):
    """A remux whose pid file was lost is replaced by the next Open, and ends by itself without touching its heir."""
    camera.open()
    old = camera.remux()
    os.unlink(camera.pid_file)
    camera.open()
    new = camera.remux()
    assert new != old and camera.count() == b"1\n"
    slices = {}
    deadline = time.monotonic() + 120
    while old in camera.remuxes():
        assert time.monotonic() < deadline, "the old remux runs on"
        camera.watch(1, slices)
    assert camera.remuxes() == [new] and camera.count() == b"1\n"
    check_run(camera.watch(3, slices), pictures(camera.site.path(CLIP)))
    camera.close_last()


def stale(camera):
    """A remux untouched for 61 s that hangs is replaced, and takes nothing with it when it wakes up."""
    camera.open()
    old = camera.remux()
    end = time.monotonic() + 62  # a pid file is never older than its process
    while time.monotonic() < end:
        camera.back_date(0)
        time.sleep(2)
    camera.back_date(30)
    camera.open()
    assert (camera.count(), camera.remuxes()) == (b"2\n", [old])
    os.kill(old, signal.SIGSTOP)
    camera.back_date(61)
    camera.open()
    new = camera.remux()
    assert new != old and camera.count() == b"1\n"
    os.kill(old, signal.SIGCONT)
    wait_until(lambda: camera.remuxes() == [new], 20, "the end of the old remux")
    assert camera.remux() == new and camera.count() == b"1\n"
    camera.plays()
    camera.close_last()


CASES = kept_alive, neglected, silenced, outlived, stale


@tests_of(*CASES)
class HlsSoakTest(SideBySide):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        site = cls.make_site()
        site.add_user("anna", PASSWORD, admin=True)
        ids = [add_clip_camera(site, case.__name__) for case in CASES]
        site.serve()
        sid = site.login("anna", PASSWORD)
        for case, id in zip(CASES, ids):
            cls.start(case, HlsCamera(site, id, sid))


if __name__ == "__main__":
    unittest.main()
