#!/usr/bin/env python3
"""The generated MxPEG camera: that it does wrong what it is told to, as the tests of others rely on."""

import os
import pathlib
import subprocess
import tempfile
import unittest

from oculora_site import BUILD

CAMERA = os.path.join(BUILD, "bin", "mxpeg-camera")
START = b"\xff\xd8\xff\xfe"  # of each part


def is_key(part):
    return b"MXM\0" not in part


def stamp(part):
    at = part.index(b"MXF\0") + 8
    return int.from_bytes(part[at : at + 8], "little")


class CameraTest(unittest.TestCase):
    def setUp(self):
        self.file = os.path.join(self.enterContext(tempfile.TemporaryDirectory()), "stream.mxg")

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
            subprocess.run([CAMERA, "--file", self.file, "--seconds", "2", "--size", "160x120", *options], check=True,
                           timeout=60)
            parts = [START + rest for rest in pathlib.Path(self.file).read_bytes().split(START)[1:]]
            self.assertEqual([name for name, check in checks.items() if check(parts)], [fault] if fault else [])


if __name__ == "__main__":
    unittest.main()
