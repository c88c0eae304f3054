"""The recordings of a private site: rows, files, and what others read in them."""

import os
import pathlib
import sqlite3
import subprocess
import time

VAR = "/var/packages/Oculora/var"
STATES = ("ready", "recording", "requested", "failed", "deleting")
CAMERA_STATES = ("off", "recording", "waiting", "failed")


class Recordings:
    def __init__(self, site):
        self.site = site
        self.directory = site.path(VAR + "/recordings")

    def sql(self, text, *values):
        with sqlite3.connect(self.site.path(VAR + "/records.db"), timeout=10) as records:
            records.row_factory = sqlite3.Row
            cursor = records.execute(text, values)
            return [dict(row) for row in cursor.fetchall()] or cursor.lastrowid

    def record(self, camera, seconds):
        """Records a camera all the time; 0: no more."""
        self.sql("UPDATE cameras SET record_seconds = ? WHERE id = ?", seconds, camera)

    def request(self, camera, seconds):
        """Asks for a recording; the event's id."""
        return self.sql("INSERT INTO events (camera, cause, state, start_us, wanted_us) VALUES (?, 1, 2, ?, ?)", camera,
                        int(time.time() * 1e6), int(seconds * 1e6))

    def set(self, name, value):
        self.sql("INSERT OR REPLACE INTO settings (name, value) VALUES (?, ?)", name, str(value))

    def rows(self, camera, state=None):
        """The events of a camera, oldest first, their states as words."""
        rows = self.sql("SELECT * FROM events WHERE camera = ? ORDER BY id", camera) or []
        rows = [{**row, "state": STATES[row["state"]]} for row in rows]
        return [row for row in rows if state in (None, row["state"])]

    def row(self, event):
        row, = self.sql("SELECT * FROM events WHERE id = ?", event)
        return {**row, "state": STATES[row["state"]]}

    def state(self, camera):
        """What recording a camera has come to, and why; None before the first time."""
        found = self.sql("SELECT state, reason FROM recording_states WHERE camera = ?", camera)
        return (CAMERA_STATES[found[0]["state"]], found[0]["reason"]) if found else None

    def file(self, row):
        return os.path.join(self.directory, row["path"])

    def files(self):
        """All files and all directories that are empty."""
        return [path for path in map(str, pathlib.Path(self.directory).rglob("*"))
                if not os.path.isdir(path) or not os.listdir(path)]

    def plant(self, camera, age_days, size, kept=False):
        """An event with a file that is nothing but large; its id."""
        start = int(time.time() - age_days * 86400)
        event = self.sql("INSERT INTO events (camera, cause, state, start_us, bytes, kept) VALUES (?, 0, 0, ?, ?, ?)",
                         camera, start * 1000000, size, kept)
        path = time.strftime(f"{camera}/%Y-%m-%d/%H-%M-%S-{event}.avi", time.gmtime(start))
        self.sql("UPDATE events SET path = ? WHERE id = ?", path, event)
        os.makedirs(os.path.dirname(os.path.join(self.directory, path)), exist_ok=True)
        with open(os.path.join(self.directory, path), "wb") as file:
            file.truncate(size)
        return event

    @staticmethod
    def _hashes(source, options, outputs, **kw):
        done = subprocess.run(["ffmpeg", "-v", "error", "-nostdin", "-xerror", *options, "-i", source, *outputs, "-f",
                               "framemd5", "-"], capture_output=True, timeout=120, check=True, **kw)
        return [line.split()[-1] for line in done.stdout.decode().splitlines() if not line.startswith("#")]

    def decode(self, source, *options, **kw):
        """A hash for each picture as FFmpeg decodes it, which must not complain."""
        return self._hashes(source, options, ["-fps_mode", "passthrough"], **kw)

    def packets(self, file):
        """The MD5 of each picture as it stands in the file."""
        return self._hashes(file, [], ["-c", "copy"])
