#!/usr/bin/env python3
# ctest: timeout=400
"""HLS over minutes: who keeps a remux alive, what ends it, and every picture of a long run. The cases run
side by side."""

import os
import random
import signal
import time
import unittest

from hls_client import CLIP, FPS, HlsCamera, add_clip_camera, check_run, in_background, leftovers, pictures
from oculora_site import Site, wait_until

PASSWORD = "a long password"
STOPS = 40


def seconds_until(condition, most, what):
    begin = time.monotonic()
    wait_until(condition, most, what)
    return time.monotonic() - begin


def kept_alive(camera):
    """One player keeps its remux for longer than a minute, gets every picture, and the directory stays small."""
    film = pictures(camera.site.path(CLIP))
    camera.open()
    remux = camera.remux()
    slices = {}
    for _ in range(15):
        camera.watch(5, slices)
        assert len(os.listdir(camera.directory)) < 20, os.listdir(camera.directory)
    assert camera.remuxes() == [remux] and camera.count() == b"1\n"
    assert check_run(slices, film) > 70 * FPS
    camera.close_all()


def neglected(camera):
    """Nobody fetches: the remux ends by itself, not before its minute is over."""
    camera.open()
    assert 55 < seconds_until(camera.is_gone, 125, "the end of a neglected remux")
    assert f"Cam[{camera.id}]: NO ACCESS break\n" in camera.site.log()
    assert camera.call("Close").startswith(b"Already closed.\n\r")


def silenced(camera):
    """The camera stops sending while somebody watches."""
    camera.open()
    worker = next(pid for pid, line in camera.site.processes().items() if line.endswith(f"--worker {camera.id}"))
    os.kill(worker, signal.SIGSTOP)
    try:
        assert 29 < seconds_until(camera.is_gone, 33, "the end of a remux without frames")
    finally:
        os.kill(worker, signal.SIGCONT)
    assert f"Cam[{camera.id}]: No data timeout break\n" in camera.site.log()
    wait_until(lambda: camera.call("Query")["success"], 60, "the camera's return")
    camera.open()
    camera.plays()
    camera.close_all()


def outlived(camera):
    """A remux whose pid file was lost is replaced by the next Open, and ends by itself without touching its heir."""
    camera.open()
    old = camera.remux()
    os.unlink(camera.pid_file)
    camera.open()
    new = camera.remux()
    assert new != old and camera.count() == b"1\n"
    slices = {}
    deadline = time.monotonic() + 75
    while old in camera.remuxes():
        assert time.monotonic() < deadline, "the old remux runs on"
        camera.watch(1, slices)
    assert camera.remuxes() == [new] and camera.count() == b"1\n"
    check_run(camera.watch(5, slices), pictures(camera.site.path(CLIP)))
    camera.close_all()


def stopped(camera):
    """A stop at any moment of the start, by a Close or by a signal, ends a remux within seconds."""
    choose = random.Random()
    answers = []
    for i in range(STOPS):
        answers.append(in_background(camera.open))
        wait_until(camera.remux, 5, "the pid file")
        time.sleep(choose.random() * choose.choice((0.02, 0.5, 3)))
        if i % 2:
            camera.close()
        else:
            os.kill(camera.remux(), signal.SIGTERM)
        wait_until(camera.is_gone, 5, "the end of the remux")
    camera.open()
    camera.plays()
    for answer in answers:
        answer.result(25)
    camera.close_all()


class HlsSoakTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.site = Site()
        try:
            cls.site.add_user("anna", PASSWORD, admin=True)
            scenarios = (kept_alive, neglected, silenced, outlived, stopped)
            ids = [add_clip_camera(cls.site, scenario.__name__) for scenario in scenarios]
            cls.site.serve()
            sid = cls.site.login("anna", PASSWORD)
            cls.runs = {scenario: in_background(scenario, HlsCamera(cls.site, id, sid))
                        for scenario, id in zip(scenarios, ids)}
        except BaseException:
            cls.site.close(failed=True)
            raise

    @classmethod
    def tearDownClass(cls):
        failed = any(not run.done() or run.exception() for run in cls.runs.values())
        left = leftovers(cls.site)
        cls.site.close(failed or bool(left))
        if left and not failed:
            raise AssertionError(f"left behind: {left}")

    def test_a_player_keeps_its_remux(self):
        self.runs[kept_alive].result(200)

    def test_nobody_watches(self):
        self.runs[neglected].result(200)

    def test_the_camera_falls_silent(self):
        self.runs[silenced].result(200)

    def test_a_lost_pid_file(self):
        self.runs[outlived].result(200)

    def test_stops_during_the_start(self):
        self.runs[stopped].result(200)


if __name__ == "__main__":
    unittest.main()
