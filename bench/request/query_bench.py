"""CPU of a Query request through lighttpd (server and CGI together), against the smallest CGI that prints the same
bytes, alternating in one run.

    OCULORA_BUILD=build python3 bench/request/query_bench.py [requests]
"""

import http.client
import os
import statistics
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.realpath(__file__)), "..", "support"))
from front import BenchFront, Site, family_cpu, wait_until  # noqa: E402

API = "VELM.Oculora.Stream.VideoStreaming"
BUDGET = 3.0


def ask(port, path, sid):
    connection = http.client.HTTPConnection("127.0.0.1", port, timeout=10)
    connection.request("GET", path, headers={"Cookie": f"oculora_sid={sid}"})
    answer = connection.getresponse().read()
    connection.close()
    return answer


def main():
    requests = int(sys.argv[1]) if len(sys.argv) > 1 else 300
    with Site() as site:
        site.add_user("bench", "benchmark password", admin=True)
        camera = site.add_camera("Clock", "mjpeg", "test:320x240", fps=10)
        site.serve()
        sid = site.login("bench", "benchmark password")
        front = BenchFront(site, ["smallest_query.cgi"])
        pid = front.pid()
        paths = {"smallest CGI": "/bench/smallest_query.cgi",
                 "Query": site.api_path(API, "Query", {"cameraId": camera})}
        wait_until(lambda: b"mjpeg" in ask(front.port, paths["Query"], sid), 10, "the camera")
        answers = {name: ask(front.port, path, sid) for name, path in paths.items()}
        if len(set(answers.values())) != 1:
            sys.exit(f"the two do not print the same bytes: { {k: v[:200] for k, v in answers.items()} }")
        costs = {name: [] for name in paths}
        for _ in range(6):  # short alternating rounds, so that a change of the machine's pace meets both
            for name, path in paths.items():
                before = family_cpu(pid)
                for _ in range(requests // 3):
                    ask(front.port, path, sid)
                costs[name].append((family_cpu(pid) - before) / (requests // 3))
        medians = {name: statistics.median(values) for name, values in costs.items()}
        for name, seconds in medians.items():
            print(f"{name:14} {seconds * 1000:6.2f} ms CPU a request")
        ratio = medians["Query"] / medians["smallest CGI"]
        print(f"ratio          {ratio:6.2f}   (budget {BUDGET})")
        return 0 if ratio <= BUDGET else 1


if __name__ == "__main__":
    sys.exit(main())
