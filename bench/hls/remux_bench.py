"""CPU and memory of the remux process of one camera (1080p, 25 a second, 4 Mbit/s), against ffmpeg cutting the same
stream from a pipe at the same pace, side by side. Ours includes the copy from the ring.

    OCULORA_BUILD=build python3 bench/hls/remux_bench.py [seconds]
"""

import os
import subprocess
import sys
import threading
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.realpath(__file__)), "..", "support"))
from front import proportional_kb, wait_until  # noqa: E402
from hls import FPS, HlsSite, cpu_seconds, frames_of  # noqa: E402

BUDGET = 1.0
COMMAND = ("ffmpeg -nostdin -v error -f h264 -i pipe:0 -c copy -f segment -segment_time 2 -segment_list_size 6"
           " -segment_list_flags live -segment_list x.m3u8 %d.ts")


class Pacer(threading.Thread):
    """Feeds a program the frames of a file, over and over, as a camera would send them."""

    def __init__(self, frames, pipe):
        super().__init__(daemon=True)
        self.frames, self.pipe, self.ended = frames, pipe, threading.Event()
        self.start()

    def run(self):
        due, number = time.monotonic(), 0
        while not self.ended.is_set():
            self.pipe.write(self.frames[number % len(self.frames)])
            due, number = due + 1 / FPS, number + 1
            time.sleep(max(0.0, due - time.monotonic()))


def keep_alive(site, seconds):
    """Fetches a slice every two seconds, as a player does."""
    end = time.monotonic() + seconds
    while time.monotonic() < end:
        site.get(site.slices()[-1])
        time.sleep(min(2, max(0, end - time.monotonic())))


def main():
    seconds = float(sys.argv[1]) if len(sys.argv) > 1 else 60
    with HlsSite() as site:
        work = site.path("/tmp/yardstick")
        os.mkdir(work)
        frames = frames_of(site.clip + ".h264")
        yardstick = subprocess.Popen(COMMAND.split(), cwd=work, stdin=subprocess.PIPE, bufsize=0)
        try:
            pacer = Pacer(frames, yardstick.stdin)
            wait_until(lambda: os.path.exists(os.path.join(work, "x.m3u8")), 20, "the yardstick's playlist")
            starts = {"ffmpeg": cpu_seconds(yardstick.pid)}
            site.open()
            pids = {"ffmpeg": yardstick.pid, "remux": site.remux_pid()}
            starts["remux"] = cpu_seconds(pids["remux"])
            keep_alive(site, 8)
            before, begin = {name: cpu_seconds(pid) for name, pid in pids.items()}, time.monotonic()
            keep_alive(site, seconds)
            spent = {name: (cpu_seconds(pid) - before[name]) * 60 / (time.monotonic() - begin)
                     for name, pid in pids.items()}
            memory = {name: proportional_kb(pid) for name, pid in pids.items()}
            pacer.ended.set()
            pacer.join()
        finally:
            yardstick.kill()
            yardstick.wait()
        site.shut()
    print("          CPU a minute   proportional memory   CPU until the first slice was listed")
    for name in ("ffmpeg", "remux"):
        print(f"{name:8} {spent[name] * 1000:10.0f} ms {memory[name]:18} KB {starts[name] * 1000:18.0f} ms")
    ratio, share = spent["remux"] / spent["ffmpeg"], memory["remux"] / memory["ffmpeg"]
    print(f"ratio    {ratio:10.2f}    {share:18.2f}      (budgets {BUDGET} and 1.0)")
    return 0 if ratio <= BUDGET and share <= 1 else 1


if __name__ == "__main__":
    sys.exit(main())
