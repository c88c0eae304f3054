#!/usr/bin/env python3
# ctest: timeout=1500
"""Recording under kill -9, of the recording processes and of the whole recorder: what is lost, and what agrees after."""

import os
import random
import signal
import sys
import time
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(__file__), ".."))

from oculora_site import end, wait_until  # noqa: E402
from recorder_test import RECORDER_PID, RecorderSite  # noqa: E402
from recordings import Recordings  # noqa: E402

KILLS = int(os.environ.get("OCULORA_KILLS", "50"))
LOST_SECONDS = 12  # not on the disk yet, starting again (with its pauses), the wait for a key frame


class RecordingKillTest(unittest.TestCase):
    def test_rows_and_files_agree_and_only_seconds_are_lost(self):
        seed = random.randrange(10**6)
        dice = random.Random(seed)
        with self.subTest(seed=seed), RecorderSite() as site:
            recordings = Recordings(site)
            site.start_recorder()
            cameras = [site.add_camera(kind, kind, "test:320x240", fps=15, stay_on=True)
                       for kind in ("mjpeg", "h264", "mxpeg")]
            for camera in cameras:
                recordings.record(camera, 10)
                wait_until(lambda: (recordings.state(camera) or [""])[0] == "recording", 20, "recording")
            for kill in range(KILLS):
                if kill % 10 == 5:
                    recordings.request(dice.choice(cameras), 8)
                time.sleep(dice.uniform(0.05, 9))
                if kill % 3 == 2:
                    os.kill(int(site.read(RECORDER_PID)), signal.SIGKILL)
                    wait_until(lambda: not site.pids("oculora-recorder"), 5, "its processes to follow")
                    end(site.recorder)
                    site.start_recorder()
                elif victims := site.pids("--record"):
                    os.kill(dice.choice(victims), signal.SIGKILL)
            for camera in cameras:
                wait_until(lambda: recordings.state(camera)[0] == "recording", 70, "recording again")
                recordings.record(camera, 0)
            # One that was killed just now is started once more, to complete what it left.
            wait_until(lambda: not site.pids("--record") and not any(recordings.rows(camera, "recording")
                                                                     for camera in cameras), 30, "recording to end")
            self.assertEqual(end(site.recorder), 0)
            self.check(recordings, cameras)

    def check(self, recordings, cameras):
        files = {path for path in recordings.files() if not path.endswith(".jpg")}
        named = set()
        for camera in cameras:
            rows = recordings.rows(camera)
            self.assertEqual({row["state"] for row in rows} - {"failed"}, {"ready"}, rows)
            rows = [row for row in rows if row["state"] == "ready"]
            for row in rows:
                file = recordings.file(row)
                named.add(file)
                self.assertEqual(os.path.getsize(file), row["bytes"], file)
                self.assertEqual(len(recordings.packets(file)), row["frames"], file)
                recordings.decode(file)
            runs = sorted((row["start_us"] / 1e6, row["length_us"] / 1e6) for row in rows if row["cause"] == 0)
            gaps = [after - start - length for (start, length), (after, _) in zip(runs, runs[1:])]
            self.assertLess(sorted(gaps)[len(gaps) // 2], LOST_SECONDS)
        self.assertEqual(files, named)


if __name__ == "__main__":
    unittest.main()
