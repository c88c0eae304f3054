"""How long Open takes beyond what the stream itself makes it wait: until a key frame comes, and until the next one ends
the first slice. When frames come is read from the ring.

    OCULORA_BUILD=build python3 bench/hls/open_bench.py [opens]
"""

import os
import random
import statistics
import sys
import tempfile
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.realpath(__file__)), "..", "support"))
from front import BUILD, wait_until  # noqa: E402
from hls import FPS, GOP_SECONDS, HlsSite  # noqa: E402

BUDGET = 0.3
KEY = 2


def key_times(output):
    """When the key frames seen so far arrived, in seconds since 1970."""
    with open(output) as file:
        rows = [line.split() for line in file.read().splitlines()[:-1]]  # the last line may be half there
    return [int(stamp) / 1e6 for _, flags, stamp, _ in rows if int(flags) & KEY]


def measure(site, output):
    """(what the stream made it wait, what Open took), in seconds."""
    seen = len(key_times(output))
    wait_until(lambda: len(key_times(output)) > seen, 10, "a key frame")
    time.sleep(random.uniform(0.1, GOP_SECONDS - 0.4))  # not close before one: it must be clear which one is waited for
    begin = time.time()
    site.open()
    took = time.time() - begin
    needed = lambda: [stamp for stamp in key_times(output) if stamp > begin]  # noqa: E731
    wait_until(lambda: len(needed()) >= 2, 10, "two key frames")
    site.shut()
    return needed()[1] - begin, took


def main():
    opens = int(sys.argv[1]) if len(sys.argv) > 1 else 10
    with HlsSite() as site, tempfile.TemporaryDirectory(dir=site.path("/var/packages")) as scratch:
        output = os.path.join(scratch, "frames")
        with open(output, "w") as file:
            inside = "/var/packages/" + os.path.basename(scratch)
            watcher = site.popen([os.path.join(BUILD, "bin", "ring_dump"), site.camera, 0, "frames", FPS * 600, inside,
                                  600], stdout=file)
        wait_until(lambda: key_times(output), 10, "the first key frame")
        excesses = []
        for _ in range(opens):
            least, took = measure(site, output)
            excesses.append(took - least)
            print(f"Open took {took:.3f} s, key frame and first slice {least:.3f} s, excess {excesses[-1]:+.3f} s")
        watcher.terminate()
    print(f"excess: median {statistics.median(excesses):.3f} s, worst {max(excesses):.3f} s   (budget {BUDGET})")
    return 0 if max(excesses) <= BUDGET else 1


if __name__ == "__main__":
    sys.exit(main())
