#!/usr/bin/env python3
# ctest: timeout=600
"""Recording: files that follow each other without a lost picture, what ends and what survives a recording."""

import calendar
import collections
import hashlib
import json
import os
import pathlib
import signal
import subprocess
import time
import unittest

from oculora_site import BUILD, end, spawn, wait_until
from recorder_test import RecorderSite
from recordings import Recordings

MXPEG_CAMERA = os.path.join(BUILD, "bin", "mxpeg-camera")


def numbered(pictures):
    """Each picture with how often it has come so far."""
    seen = collections.Counter()
    return [(picture, seen.update([picture]) or seen[picture]) for picture in pictures]


class RecordingTest(unittest.TestCase):
    def setUp(self):
        self.site = self.enterContext(RecorderSite())
        self.recordings = Recordings(self.site)

    def ready(self, camera, count):
        return wait_until(lambda: len(rows := self.recordings.rows(camera, "ready")) >= count and rows, 60,
                          f"{count} recordings of camera {camera}")

    def state(self, camera, state, reason=""):
        wait_until(lambda: (found := self.recordings.state(camera)) and found[0] == state and reason in found[1], 60,
                   f"camera {camera} to be {state} {reason}")

    def ends(self, event, state):
        return wait_until(lambda: (row := self.recordings.row(event))["state"] == state and row, 60, state)

    def growing(self, camera, event=None):
        """The recording that is being made, once there are pictures in it."""
        return wait_until(lambda: next((row for row in self.recordings.rows(camera, "recording") if event in (
            None, row["id"]) and os.path.exists(file := self.recordings.file(row)) and os.path.getsize(file) > 60000),
            None), what="pictures")

    def assert_whole(self, row):
        """The file is what its row says, plays without a complaint, and has its thumbnail."""
        file = self.recordings.file(row)
        self.assertEqual((os.path.getsize(file), oct(os.stat(file).st_mode & 0o777)), (row["bytes"], "0o600"))
        probed = json.loads(subprocess.run(
            ["ffprobe", "-v", "error", "-count_frames", "-show_entries", "stream=nb_read_frames:format=duration", "-of",
             "json", file], check=True, capture_output=True, timeout=60).stdout)
        self.assertEqual(int(probed["streams"][0]["nb_read_frames"]), row["frames"])
        self.assertAlmostEqual(float(probed["format"]["duration"]), row["length_us"] / 1e6, delta=0.1)
        self.recordings.decode(file)
        started = row["start_us"] // 1000000
        self.assertEqual(row["path"], time.strftime(f"{row['camera']}/%Y-%m-%d/%H-%M-%S-{row['id']}", time.gmtime(
            started)) + pathlib.Path(file).suffix)
        wait_until(lambda: os.path.exists(os.path.splitext(file)[0] + ".jpg"), 30, "its thumbnail")

    def test_no_picture_is_lost_or_doubled_between_files(self):
        self.site.start_recorder()
        cameras = {kind: self.site.add_camera(kind, kind, "test:640x360", fps=fps)
                   for kind, fps in (("mjpeg", 25), ("h264", 25), ("mxpeg", 10))}
        for kind, camera in cameras.items():
            self.recordings.record(camera, 10)
        seen = dict(zip(cameras, self.site.watch_all(
            [(camera, 250 if kind == "mxpeg" else 625) for kind, camera in cameras.items()])))
        for kind, camera in cameras.items():
            with self.subTest(kind):
                rows = self.ready(camera, 2)
                for row in rows:
                    self.assert_whole(row)
                    self.assertTrue(9.5 < row["length_us"] / 1e6 < 14)  # up to the next key picture
                frames = [frame for frame in seen[kind][0] if kind != "mxpeg" or frame.key]
                files = [self.recordings.file(row) for row in rows[:2]]
                if kind == "h264":
                    first = next(index for index, frame in enumerate(frames) if frame.key)
                    stream = b"".join(frame.data for frame in frames[first:])
                    expected = self.recordings.decode("-", "-f", "h264", input=stream)
                    recorded = [picture for file in files for picture in self.recordings.decode(file)]
                else:
                    expected = [hashlib.md5(frame.data).hexdigest() for frame in frames]
                    recorded = [packet for file in files for packet in self.recordings.packets(file)]
                # On a busy machine a viewer may miss pictures, and two drawn at nearly the same time may be alike.
                expected, recorded = map(numbered, (expected, recorded))
                both = [picture for picture in recorded if picture in set(expected)]
                self.assertFalse({picture for picture in recorded if picture[1] > 1} - set(both), "stands twice")
                self.assertGreater(len(both), 0.5 * len(recorded))
                start = expected.index(both[0])
                self.assertEqual(both, expected[start:start + len(both)])
        self.assertNotIn("were not recorded", self.site.log())

    def test_on_demand_beside_continuous_and_when_nobody_watches(self):
        self.site.start_recorder()
        both = self.site.add_camera("Both", "h264", "test:320x240", fps=20)
        alone = self.site.add_camera("Alone", "mjpeg", "test:320x240", fps=10)
        off = self.site.add_camera("Off", "mjpeg", "test:320x240", fps=10)
        self.site.oculora("camera", "disable", off)
        self.recordings.record(both, 15)
        self.state(both, "recording")
        five, long, lone, refused = (self.recordings.request(camera, seconds)
                                     for camera, seconds in ((both, 5), (both, 600), (alone, 3), (off, 5)))
        self.growing(both, long)
        self.recordings.sql("UPDATE events SET wanted_us = 1 WHERE id = ?", long)  # as the button does
        for event, seconds in (five, 5), (lone, 3):
            row = self.ends(event, "ready")
            self.assert_whole(row)
            self.assertTrue(seconds - 0.5 < row["length_us"] / 1e6 < seconds + 2, row)
        self.assert_whole(self.ends(long, "ready"))
        self.assertEqual(self.ends(refused, "failed")["reason"], "the camera is switched off")
        self.assert_whole(self.ready(both, 3)[0])
        wait_until(lambda: not self.site.pids(f"--record ({alone}|{off})$"), 60, "processes without work to end")
        self.assertEqual(self.recordings.state(alone), ("off", ""))
        self.recordings.record(both, 0)
        wait_until(lambda: not self.site.pids("--record"), 60, "recording to end")
        self.assertEqual(self.recordings.rows(both, "recording"), [])

    def test_camera_that_goes_away(self):
        self.site.start_recorder()
        camera = spawn([MXPEG_CAMERA, "--port", "0", "--size", "160x120", "--fps", "10", "--key-every", "2"],
                       stdout=subprocess.PIPE, text=True)
        self.addCleanup(end, camera)
        url = camera.stdout.readline().strip()
        here = self.site.add_camera("Here", "mxpeg", url)
        self.recordings.record(here, 600)
        self.state(here, "recording")
        row = self.growing(here)
        os.kill(camera.pid, signal.SIGKILL)
        self.state(here, "waiting", "Connection refused")
        self.assert_whole(self.ends(row["id"], "ready"))
        self.addCleanup(end, spawn([MXPEG_CAMERA, "--port", url.split(":")[-1].strip("/"), "--size", "160x120", "--fps",
                                    "10"], stdout=subprocess.DEVNULL))
        self.state(here, "recording")

    def test_full_disk(self):
        self.site.start_recorder()
        inside = "/var/packages/Oculora/var/recordings"
        os.makedirs(self.site.path(inside), exist_ok=True)
        self.site.run(["mount", "-t", "tmpfs", "-o", "size=40m", "none", inside], check=True)
        camera = self.site.add_camera("Full", "mjpeg", "test:1280x720", fps=20)
        filler = inside + "/filler"
        for reserve, fill, reason in ((30, 20, "30 MB are kept free"), (0, 39, "the disk is full")):
            with self.subTest(reason):
                self.recordings.set("record_reserve_mb", reserve)
                self.recordings.record(camera, 30)
                wait_until(lambda: self.site.run(["find", inside, "-name", "*.avi", "-size", "+60k"],
                                                 capture_output=True).stdout, 60, "pictures")
                self.site.run(["dd", "if=/dev/zero", f"of={filler}", "bs=1M", f"count={fill}"], capture_output=True)
                self.state(camera, "failed", reason)
                self.assertEqual(self.site.log().count(" is not recorded: "), 1, self.site.log())
                request = self.recordings.request(camera, 5)
                self.assertIn("the disk is full", self.ends(request, "failed")["reason"])
                self.assertEqual(len(self.site.watch(camera, 20)[0]), 20, "live view goes on")
                self.site.run(["rm", filler], check=True)
                self.state(camera, "recording")
                self.recordings.record(camera, 0)
                self.state(camera, "off")
                for row in self.recordings.rows(camera, "ready"):
                    self.site.run(["ffmpeg", "-v", "error", "-xerror", "-i", f"{inside}/{row['path']}", "-f", "null",
                                   "-"], check=True)
                self.site.run(["find", inside, "-name", "*.avi", "-delete"], check=True)
                self.site.write("/var/packages/Oculora/var/oculora.log")

    def test_restart_and_repair(self):
        self.site.start_recorder()
        camera = self.site.add_camera("A", "mjpeg", "test:320x240", fps=10)
        self.recordings.record(camera, 600)
        self.growing(camera)
        process, = wait_until(lambda: self.site.pids("--record"), 20, "the process")
        os.kill(process, signal.SIGKILL)
        row, = self.ready(camera, 1)
        self.assert_whole(row)
        self.growing(camera)
        self.assertEqual(end(self.site.recorder), 0)
        rows = self.recordings.rows(camera)
        self.assertEqual(([row["state"] for row in rows], self.recordings.state(camera)), (["ready"] * 2, ("off", "")))

        self.recordings.record(camera, 0)
        lost, deleted = rows
        file, day = self.recordings.file(lost), os.path.dirname(self.recordings.file(lost))
        stray = f"{day}/01-02-03-999.avi"
        os.rename(file, stray)
        for name in ("01-02-04-998.avi", "01-02-05-997.jpg", "notes.txt"):
            pathlib.Path(day, name).touch()
        os.truncate(stray, os.path.getsize(stray) - 100)
        self.recordings.sql("UPDATE events SET state = 4 WHERE id = ?", deleted["id"])
        self.recordings.sql("INSERT INTO events (camera, cause, state, path, start_us) VALUES (?, 0, 1, ?, 0)", camera,
                            f"{camera}/1970-01-01/00-00-00-77.avi")
        self.site.start_recorder()
        adopted, = wait_until(lambda: len(rows := self.recordings.rows(camera)) == 1 and rows[0]["id"] > deleted["id"]
                              and rows, 60, "one row")
        self.assertEqual(sorted(os.listdir(day)), ["01-02-03-999.avi", "notes.txt"])
        self.assertEqual((adopted["state"], adopted["bytes"], self.recordings.file(adopted)),
                         ("ready", os.path.getsize(stray), stray))
        self.assertEqual(adopted["start_us"] / 1e6, calendar.timegm(time.strptime(
            os.path.basename(day) + " 01:02:03", "%Y-%m-%d %H:%M:%S")))
        self.recordings.decode(stray)

    def test_old_recordings_go(self):
        camera = self.site.add_camera("A", "mjpeg", "test:320x240", fps=10)
        days = {name: self.recordings.plant(camera, age_days=age, size=size, kept=kept) for name, age, size, kept in (
            ("old", 5, 1000, False), ("kept", 5, 400_000_000, True), ("big", 2, 700_000_000, False),
            ("new", 1, 500_000_000, False))}
        self.recordings.set("record_keep_days", 4)
        self.recordings.set("record_keep_gb", 1)
        self.site.start_recorder()
        wait_until(lambda: len(self.recordings.rows(camera)) == 2, 60, "old recordings to go")
        self.assertEqual({row["id"] for row in self.recordings.rows(camera)}, {days["kept"], days["new"]})
        files = sorted(os.path.relpath(path, self.recordings.directory) for path in self.recordings.files())
        self.assertEqual(files, sorted(row["path"] for row in self.recordings.rows(camera)), "files, empty directories")
        self.recordings.sql("UPDATE events SET state = 4 WHERE id = ?", days["kept"])
        wait_until(lambda: len(self.recordings.files()) == 1, 60, "the removed one to go")


if __name__ == "__main__":
    unittest.main()
