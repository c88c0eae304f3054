"""CPU of one page of the list of recordings through lighttpd (server and CGI together), with 100,000 recordings.

    OCULORA_BUILD=build python3 bench/events/list_bench.py [requests]
"""

import contextlib
import json
import os
import sqlite3
import statistics
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.realpath(__file__)), "..", "support"))
from front import Site, family_cpu  # noqa: E402

API = "VELM.Oculora.Event"
VAR = "/var/packages/Oculora/var"
ROWS, CAMERAS, START = 100_000, 16, 1_700_000_000
BUDGET_MS = 20.0


def fill(site, cameras):
    """Recordings of a minute each, side by side on all cameras."""
    with contextlib.closing(sqlite3.connect(site.path(VAR + "/records.db"))) as records, records:
        records.executemany(
            "INSERT INTO events (camera, cause, state, path, video_type, start_us, length_us, bytes, frames) "
            "VALUES (?, 0, 0, ?, 3, ?, 60000000, 15000000, 1500)",
            ((cameras[i % CAMERAS], f"{cameras[i % CAMERAS]}/2023-11-14/22-13-20-{i}.mp4",
              (START + i // CAMERAS * 60) * 10**6) for i in range(ROWS)))


def main():
    requests = int(sys.argv[1]) if len(sys.argv) > 1 else 100
    with Site() as site:
        site.add_user("bench", "benchmark password", admin=True)
        cameras = [site.add_camera(f"Camera {i}", "h264", "test:320x240") for i in range(CAMERAS)]
        site.oculora("retention", "--days", "0")
        fill(site, cameras)
        site.serve()
        sid = site.login("bench", "benchmark password")
        pid = int(site.read(VAR + "/front.pid"))
        middle = START + ROWS // CAMERAS // 2 * 60
        pages = {"the newest": {}, "in the middle": {"after": f"{middle * 10**6}-{ROWS // 2}"},
                 "the oldest": {"after": f"{(START + 300) * 10**6}-1"}, "until a time": {"to": middle},
                 "one camera": {"cameraId": cameras[3], "after": f"{middle * 10**6}-{ROWS // 2}"}}
        costs = {name: [] for name in pages}
        for _ in range(5):  # short alternating rounds, so that a change of the machine's pace meets all
            for name, query in pages.items():
                path = site.api_path(API, "List", query, sid)
                before = family_cpu(pid)
                for _ in range(requests // 5):
                    body = site.get(path)[1]
                costs[name].append((family_cpu(pid) - before) * 1000 / (requests // 5))
                if len(json.loads(body)["data"]["events"]) != 50:
                    sys.exit(f"{name}: no full page: {body[:200]}")
        medians = {name: statistics.median(values) for name, values in costs.items()}
        for name, cost in medians.items():
            print(f"{name:14} {cost:6.2f} ms CPU a page of 50 of {ROWS}   (budget {BUDGET_MS:.0f})")
        return 0 if max(medians.values()) <= BUDGET_MS else 1


if __name__ == "__main__":
    sys.exit(main())
