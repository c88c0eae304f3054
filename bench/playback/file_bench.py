"""CPU per gigabyte of a recorded file sent whole through lighttpd, against the smallest CGI that does the same reads with
the same locks and buffer; beside them lighttpd's own static file.

    OCULORA_BUILD=build python3 bench/playback/file_bench.py [rounds]
"""

import os
import socket
import statistics
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.realpath(__file__)), "..", "support"))
from front import BenchFront, Site, children, family_cpu, wait_until  # noqa: E402
from films import file_path, import_film, make_picture  # noqa: E402

BUDGET = 1.1
DOWNLOADS = 4  # a round


def download(port, path, size):
    """Reads an answer to its end; the number of bytes must be right."""
    buffer = bytearray(1 << 20)
    received = 0
    with socket.create_connection(("127.0.0.1", port)) as client:
        client.sendall(f"GET {path} HTTP/1.0\r\n\r\n".encode())
        while count := client.recv_into(buffer):
            received += count
    if not size < received < size + 1000:
        raise SystemExit(f"{received} bytes came instead of {size}")


def cpu_per_gigabyte(front, path, size):
    before = family_cpu(front.pid())
    for _ in range(DOWNLOADS):
        download(front.port, path, size)
    wait_until(lambda: not children(front.pid()), 10, "the requests to end")
    return (family_cpu(front.pid()) - before) * (1 << 30) / (size * DOWNLOADS)


def main():
    rounds = int(sys.argv[1]) if len(sys.argv) > 1 else 7
    with Site() as site:
        picture = "/var/packages/picture.jpg"
        make_picture(site.path(picture), "1920x1080", 60, 1)
        site.add_user("bench", "benchmark password", admin=True)
        camera = site.add_camera("Film", "mjpeg", "test:")
        event = import_film(site, camera, picture, 10, (256 << 20) // os.path.getsize(site.path(picture)))
        film = "/var/packages/film.avi"
        size = os.path.getsize(site.path(film))
        site.serve()
        sid = site.login("bench", "benchmark password")
        front = BenchFront(site, ["smallest_file.cgi"], {"SMALLEST_FILE": film}, {"film.avi": film})
        ways = {"smallest CGI": "/bench/smallest_file.cgi", "module": file_path(site, event, sid),
                "static file": "/bench/film.avi"}
        print(f"file of {size >> 20} MB, {DOWNLOADS} downloads a round, {rounds} rounds; CPU seconds per gigabyte")
        costs = {way: [] for way in ways}
        for _ in range(rounds):
            for way, path in ways.items():
                costs[way].append(cpu_per_gigabyte(front, path, size))
        for way, values in costs.items():
            print(f"{way:13} {statistics.median(values):.3f} s")
        ratio = statistics.median(m / y for m, y in zip(costs["module"], costs["smallest CGI"]))
        print(f"module against smallest CGI: {ratio:.2f} (budget {BUDGET})")
        return 0 if ratio <= BUDGET else 1


if __name__ == "__main__":
    sys.exit(main())
