"""CPU per delivered picture and viewer of live MxPEG, stamped and with sound, against live MJPEG with pictures of the
same size at the same rate; proportional memory a viewer of both.

    OCULORA_BUILD=build python3 bench/mxpeg/mxpeg_bench.py [seconds] [viewers ...]
"""

import os
import statistics
import subprocess
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.realpath(__file__)), "..", "support"))
from front import BUILD, BenchFront, Site, end, wait_until  # noqa: E402
from viewers import measure  # noqa: E402

API = "VELM.Oculora.Stream.VideoStreaming"
NOBODY = "http://127.0.0.1:9/"  # the recorder gets no pictures; the rings are fed in its place
PICTURES = ((200000, 25), (40000, 15))  # bytes, a second
BUDGET = 1.5
ROUNDS = 4  # alternating, so that a change of the machine's pace meets both
WARM_UP = 6  # s; a viewer maps the pages of a ring on its first way through it: 24 MiB, 5 s of the larger pictures


def compare(site, front, sid, cameras, size, fps, viewers, seconds):
    """Both ways of one kind of picture in turn; the ratio of their CPU."""
    paths = {kind: site.api_path(API, "Stream", {"cameraId": camera, "format": kind, "timestamp": 1}, sid)
             for kind, camera in cameras.items()}
    sound = 16 + 8000 // fps
    rounds = [(measure(front, paths["mjpeg"], viewers, seconds, size, fps, WARM_UP),
               measure(front, paths["mxpeg"], viewers, seconds, size + sound, fps, WARM_UP)) for _ in range(ROUNDS)]
    mjpeg, mxpeg = ([statistics.median(column) for column in zip(*side)] for side in zip(*rounds))
    delivered = min(min(pair[0][1], pair[1][1]) for pair in rounds)
    ratio = mxpeg[0] / mjpeg[0]
    print(f"{size // 1000:4} KB {fps:4}/s {viewers:8}  {mjpeg[0]:6.3f} ms {mxpeg[0]:6.3f} ms {ratio:7.2f}"
          f"   {delivered:9.1%}   {mjpeg[2]:7.0f} KB {mxpeg[2]:7.0f} KB", flush=True)
    return ratio


def main():
    seconds = float(sys.argv[1]) if len(sys.argv) > 1 else 4
    counts = list(map(int, sys.argv[2:])) or [1, 10]
    with Site() as site:
        site.add_user("bench", "benchmark password", admin=True)
        cameras = {kind: site.add_camera(kind, kind, NOBODY, stay_on=True) for kind in ("mxpeg", "mjpeg")}
        site.serve()
        sid = site.login("bench", "benchmark password")
        front = BenchFront(site, [])
        print("picture  rate   viewers      MJPEG     MxPEG   ratio   delivered   memory: MJPEG    MxPEG")
        worst = 0.0
        for size, fps in PICTURES:
            feed = site.popen([os.path.join(BUILD, "bin", "mxpeg_feed"), cameras["mxpeg"], cameras["mjpeg"], size, fps],
                              stdin=subprocess.DEVNULL)
            for camera in cameras.values():
                wait_until(lambda: any(stream["frames"] for stream in site.camera(camera)["streams"]), 10, "pictures")
            for viewers in counts:
                worst = max(worst, compare(site, front, sid, cameras, size, fps, viewers, seconds))
            end(feed)
        print(f"worst ratio {worst:.2f} (budget {BUDGET})")
        return 0 if worst <= BUDGET else 1


if __name__ == "__main__":
    sys.exit(main())
