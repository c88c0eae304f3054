#!/usr/bin/env python3
# ctest: serial
"""The generated MxPEG camera, viewers over HTTP, and what it does wrong on purpose."""

import os
import pathlib
import signal
import subprocess
import tempfile
import unittest
import urllib.error
from urllib.request import urlopen

from oculora_site import BUILD, end, spawn, wait_until

CAMERA = os.path.join(BUILD, "bin", "mxpeg-camera")
START = b"\xff\xd8\xff\xfe"  # of each part


def run(*args, **kw):
    return subprocess.run([*map(str, args)], check=True, capture_output=True, timeout=60, **kw).stdout


def part(answer):
    """The next part of a multipart answer."""
    assert answer.readline() == b"--mxpeg-part\r\n"
    assert answer.readline() == b"Content-Type: image/jpeg\r\n"
    body = answer.read(int(answer.readline().removeprefix(b"Content-Length: ")) + 4)
    assert body[:2] == body[-2:] == b"\r\n"
    return body[2:-2]


def is_key(part):
    return b"MXM\0" not in part


def stamp(part):
    at = part.index(b"MXF\0") + 8
    return int.from_bytes(part[at : at + 8], "little")


class CameraTest(unittest.TestCase):
    def setUp(self):
        self.file = os.path.join(self.enterContext(tempfile.TemporaryDirectory()), "stream.mxg")

    def serve(self, *args):
        camera = spawn([CAMERA, "--port", "0", *args], stdout=subprocess.PIPE, text=True)
        self.addCleanup(end, camera)
        return camera, camera.stdout.readline().strip()

    def test_viewers(self):
        camera, url = self.serve("--size", "320x240", "--key-every", "40", "--fault", "huge")
        descriptors = lambda: len(os.listdir(f"/proc/{camera.pid}/fd"))  # noqa: E731
        idle = descriptors()
        with urlopen(url, timeout=10) as slow, urlopen(url + "video", timeout=10) as fast, urlopen(url + "raw") as raw:
            kept_up = [part(fast) for _ in range(75)]  # 40 MB, which no socket holds for the slow one
            self.assertEqual(raw.read(2), b"\xff\xd8")  # and then no more
            late = [part(slow) for _ in range(40)]
            self.assertRaisesRegex(urllib.error.HTTPError, "404", urlopen, url + "else")
        self.assertLess(stamp(kept_up[0]) - stamp(late[0]), 1000000, "a viewer waited for the next regular key picture")
        for viewer, seen in ("fast", kept_up), ("slow", late):
            gaps = 0
            for before, now in zip([None, *seen], seen):
                if before is None or stamp(now) - stamp(before) != 40000:
                    gaps += 1
                    self.assertTrue(is_key(now), f"a delta picture follows a gap of the {viewer} viewer")
            (self.assertEqual if viewer == "fast" else self.assertGreater)(gaps, 1)
        self.assertEqual({len(picture) > 4 << 20 for picture in kept_up}, {True, False})
        pathlib.Path(self.file).write_bytes(b"".join(late))
        run("ffmpeg", "-v", "error", "-xerror", "-f", "mxg", "-i", self.file, "-f", "null", "-")
        wait_until(lambda: descriptors() == idle, what="descriptors of viewers that left")
        with urlopen(url + "raw"):
            self.assertEqual(end(camera, sig=signal.SIGINT), 0)

    def test_faults(self):
        """What each fault does to at least one part, and to none without it."""
        checks = {
            "lying-lengths": lambda parts: any(part[4:6] in (b"\xff\xff", b"\0\0") for part in parts),
            "delta-first": lambda parts: not is_key(parts[0]) and any(map(is_key, parts)),
            "truncated": lambda parts: any(b"\xff\xd9\xff\xed" not in part for part in parts),
            "gap": lambda parts: any(stamp(b) - stamp(a) > 40000 for a, b in zip(parts, parts[1:])),
        }
        for fault in ["", *checks]:
            options = ["--fault", fault] if fault else []
            run(CAMERA, "--file", self.file, "--seconds", 2, "--size", "160x120", *options)
            parts = [START + rest for rest in pathlib.Path(self.file).read_bytes().split(START)[1:]]
            self.assertEqual([name for name, check in checks.items() if check(parts)], [fault] if fault else [])


if __name__ == "__main__":
    unittest.main()
