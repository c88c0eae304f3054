"""CPU of a slice request (600 KB) through lighttpd, server and CGI together, against the smallest CGI that copies the
same file; alternating in one run. As information, a playlist request.

    OCULORA_BUILD=build python3 bench/hls/slice_bench.py [requests]
"""

import http.client
import os
import statistics
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.realpath(__file__)), "..", "support"))
from front import BenchFront, family_cpu  # noqa: E402
from hls import HlsSite  # noqa: E402

BUDGET = 2.0
SLICE_BYTES = 600 * 1024


def ask(port, path):
    connection = http.client.HTTPConnection("127.0.0.1", port, timeout=10)
    connection.request("GET", path)
    answer = connection.getresponse().read()
    connection.close()
    return answer


def main():
    requests = int(sys.argv[1]) if len(sys.argv) > 1 else 120
    with HlsSite() as site:
        site.open()
        with open(site.hls_path("0.ts"), "wb") as file:  # the first slice, complete by now
            file.write(os.urandom(SLICE_BYTES))
        front = BenchFront(site, ["smallest_slice.cgi"], {"SMALLEST_SLICE_FILE": f"/tmp/ndcam/{site.camera}/0.ts"})
        pid = front.pid()
        paths = {"smallest CGI": "/bench/smallest_slice.cgi", "slice": site.slice_path(0),
                 "playlist": site.playlist_path()}
        answers = {name: ask(front.port, path) for name, path in paths.items()}
        if answers["slice"] != answers["smallest CGI"] or len(answers["slice"]) != SLICE_BYTES:
            sys.exit(f"the two do not give the same bytes: { {k: v[:200] for k, v in answers.items()} }")
        costs = {name: [] for name in paths}
        for _ in range(6):  # short alternating rounds, so that a change of the machine's pace meets all
            for name, path in paths.items():
                before = family_cpu(pid)
                for _ in range(requests // 3):
                    ask(front.port, path)
                costs[name].append((family_cpu(pid) - before) / (requests // 3))
        site.shut()
    medians = {name: statistics.median(values) for name, values in costs.items()}
    for name, seconds in medians.items():
        print(f"{name:14} {seconds * 1000:6.2f} ms CPU a request")
    ratio = medians["slice"] / medians["smallest CGI"]
    print(f"ratio          {ratio:6.2f}   (budget {BUDGET})")
    return 0 if ratio <= BUDGET else 1


if __name__ == "__main__":
    sys.exit(main())
