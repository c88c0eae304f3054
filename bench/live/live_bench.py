"""CPU per delivered picture and viewer of live MJPEG (1080p, about 200 KB, 25 a second), against the smallest CGI that
writes the same picture from memory under the same lighttpd; proportional memory per viewer; time to the first picture.

    OCULORA_BUILD=build python3 bench/live/live_bench.py [seconds] [viewers ...]
"""

import os
import socket
import statistics
import subprocess
import sys
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.realpath(__file__)), "..", "support"))
from front import BenchFront, Site  # noqa: E402
from viewers import measure  # noqa: E402

API = "VELM.Oculora.Stream.VideoStreaming"
FPS = 25
BUDGET = 1.1
ROUNDS = 5  # alternating, so that a change of the machine's pace meets both


def make_picture(path):
    """A noisy 1080p picture of about 200 KB."""
    for quality in range(4, 31):
        subprocess.run(["ffmpeg", "-v", "error", "-y", "-f", "lavfi", "-i", "testsrc2=size=1920x1080:rate=1:duration=1",
                        "-vf", "noise=alls=12:allf=t", "-c:v", "mjpeg", "-huffman", "default", "-q:v", str(quality),
                        "-pix_fmt", "yuvj420p", "-frames:v", "1", path], check=True)
        if os.path.getsize(path) < 215000:
            return os.path.getsize(path)
    raise SystemExit("no quality gives a picture of 200 KB")


def first_picture_ms(front, path):
    start = time.monotonic()
    with socket.create_connection(("127.0.0.1", front.port)) as client:
        client.sendall(f"GET {path} HTTP/1.0\r\n\r\n".encode())
        data = b""
        while data.count(b"\xff\xd9\r\n--") < 1:
            data += client.recv(1 << 20)
    return (time.monotonic() - start) * 1000


def main():
    seconds = float(sys.argv[1]) if len(sys.argv) > 1 else 4
    counts = list(map(int, sys.argv[2:])) or [1, 10, 50]
    with Site() as site:
        picture = site.path("/var/packages/picture.jpg")
        size = make_picture(picture)
        clip = site.path("/var/packages/clip.avi")
        subprocess.run(["ffmpeg", "-v", "error", "-loop", "1", "-framerate", str(FPS), "-i", picture, "-t", "4",
                        "-c:v", "copy", clip], check=True)
        site.add_user("bench", "benchmark password", admin=True)
        camera = site.add_camera("Film", "mjpeg", "/var/packages/clip.avi", fps=FPS, stay_on=True)
        site.serve()
        sid = site.login("bench", "benchmark password")
        front = BenchFront(site, ["smallest_mjpeg.cgi"], {"SMALLEST_MJPEG_PICTURE": "/var/packages/picture.jpg"})
        live = site.api_path(API, "Stream", {"cameraId": camera, "format": "mjpeg", "timestamp": 1}, sid)
        print(f"picture of {size} bytes, {FPS} a second, {seconds:.0f} s a round")
        first = [first_picture_ms(front, live) for _ in range(20)]
        print(f"first complete picture after {statistics.median(first):.1f} ms (worst of 20: {max(first):.1f} ms)")
        print("viewers  smallest CGI    module   ratio   delivered   memory a viewer")
        worst = 0.0
        for viewers in counts:
            rounds = [(measure(front, "/bench/smallest_mjpeg.cgi", viewers, seconds, size, FPS),
                       measure(front, live, viewers, seconds, size, FPS)) for _ in range(ROUNDS)]
            yardstick = statistics.median(pair[0][0] for pair in rounds)
            module = statistics.median(pair[1][0] for pair in rounds)
            delivered = min(pair[1][1] for pair in rounds)
            worst = max(worst, module / yardstick)
            print(f"{viewers:7}  {yardstick:9.3f} ms {module:6.3f} ms  {module / yardstick:6.2f}   {delivered:8.1%}"
                  f"   {rounds[0][1][2]:8.0f} KB")
        print(f"worst ratio {worst:.2f} (budget {BUDGET})")
        return 0 if worst <= BUDGET else 1


if __name__ == "__main__":
    sys.exit(main())
