"""CPU per gigabyte that a central host spends on a relayed recording, against `curl` as a CGI that pipes the same file
from the same recording server; delay that the relay adds to a live stream's first picture; relays to 20 servers at once.

    OCULORA_BUILD=build python3 bench/relay/relay_bench.py [rounds]
"""

import contextlib
import os
import secrets
import statistics
import sys
import time

for part in ("support", "playback", "live"):
    sys.path.insert(0, os.path.join(os.path.dirname(os.path.realpath(__file__)), "..", part))
from films import file_path, import_film, make_picture  # noqa: E402
from front import BenchFront, Site, children, family_cpu, wait_until  # noqa: E402
from live_bench import API, first_picture_ms  # noqa: E402
from viewers import Crowd  # noqa: E402

BUDGET = 1.2
BUDGET_MS = 20
SERVERS = 20
USER, PASSWORD = "bench", "benchmark password"
CURL = "#!/bin/sh\nprintf 'Content-Type: video/avi\\r\\n\\r\\n'\nexec curl -sN \"$BENCH_URL\"\n"


def recording_server(stack, central, number):
    """A served site that the central one manages under that number, with one camera that is always on."""
    site = stack.enter_context(Site())
    site.add_user(USER, PASSWORD, admin=True)
    site.camera_id = site.add_camera("Clock", "mjpeg", "test:320x180", fps=10, stay_on=True)
    secret = secrets.token_hex(16)
    site.oculora("server", "accept", "--secret", secret)
    site.serve()
    central.oculora("server", "add", f"Server {number}", "--id", number, "--url", site.url, "--secret", secret)
    options = {"server": number, "remote_id": site.camera_id}
    site.camera_there = central.add_camera(f"Clock {number}", "mjpeg", "test:", **options)
    return site


def live_path(site, camera, sid):
    return site.api_path(API, "Stream", {"cameraId": camera, "format": "mjpeg"}, sid)


def cpu_per_gigabyte(front, path, size, downloads=4):
    before = family_cpu(front.pid())
    for _ in range(downloads):
        crowd = Crowd(front.port, path, 1)
        with contextlib.suppress(SystemExit):  # the answer is at its end
            crowd.read_for(120)
        crowd.close()
        if not size < crowd.bytes < size + 1000:
            raise SystemExit(f"{crowd.bytes} bytes came instead of {size}")
    wait_until(lambda: not children(front.pid()), 10, "the requests to end")
    return (family_cpu(front.pid()) - before) * (1 << 30) / (size * downloads)


def compare_with_curl(central, server, rounds):
    picture = "/var/packages/picture.jpg"
    make_picture(server.path(picture), "1920x1080", 60, 1)
    event = import_film(server, server.camera_id, picture, 10,
                        (256 << 20) // os.path.getsize(server.path(picture)))
    size = os.path.getsize(server.path("/var/packages/film.avi"))
    url = server.url + file_path(server, event, server.login(USER, PASSWORD))
    curl = central.write("/var/packages/curl.cgi", CURL)
    os.chmod(curl, 0o755)
    front = BenchFront(central, [], {"BENCH_URL": url}, {"curl.cgi": "/var/packages/curl.cgi"})
    relayed = file_path(central, f"{server.camera_there}:{event}", central.login(USER, PASSWORD))
    costs = [(cpu_per_gigabyte(front, "/bench/curl.cgi", size), cpu_per_gigabyte(front, relayed, size))
             for _ in range(rounds)]
    print(f"file of {size >> 20} MB, {rounds} rounds; CPU seconds per gigabyte, on the central host alone")
    print(f"curl {statistics.median(c for c, _ in costs):.3f}, relay {statistics.median(r for _, r in costs):.3f}")
    return statistics.median(relay / curl for curl, relay in costs), front


def added_delay_ms(central, server, front):
    direct, relayed = [], []
    own = live_path(server, server.camera_id, server.login(USER, PASSWORD))
    through = live_path(central, server.camera_there, central.login(USER, PASSWORD))
    for _ in range(20):
        direct.append(first_picture_ms(server, own))
        relayed.append(first_picture_ms(front, through))
    direct, relayed = statistics.median(direct), statistics.median(relayed)
    print(f"first picture: {direct:.1f} ms from the server, {relayed:.1f} ms relayed")
    return relayed - direct


def relays_at_once(central, servers, seconds=5):
    """How much of what 20 servers send arrives through relays that run at the same time."""
    sid = central.login(USER, PASSWORD)
    crowds = [Crowd(central.port, live_path(central, server.camera_there, sid), 1) for server in servers]
    end = time.monotonic() + seconds
    while time.monotonic() < end:
        for crowd in crowds:
            crowd.read_for(0.01)
    alive = sum(crowd.bytes > 0 for crowd in crowds)
    total = sum(crowd.bytes for crowd in crowds)
    for crowd in crowds:
        crowd.close()
    print(f"{alive} of {len(servers)} servers relayed at once, {total / seconds / 1024:.0f} KB a second")
    return alive == len(servers)


def main():
    rounds = int(sys.argv[1]) if len(sys.argv) > 1 else 5
    with contextlib.ExitStack() as stack:
        central = stack.enter_context(Site())
        central.add_user(USER, PASSWORD, admin=True)
        central.serve()
        servers = [recording_server(stack, central, 1)]
        ratio, front = compare_with_curl(central, servers[0], rounds)
        delay = added_delay_ms(central, servers[0], front)
        servers += [recording_server(stack, central, number) for number in range(2, SERVERS + 1)]
        together = relays_at_once(central, servers)
        print(f"relay against curl: {ratio:.2f} (budget {BUDGET}); added delay {delay:.1f} ms (budget {BUDGET_MS})")
        return 0 if ratio <= BUDGET and delay < BUDGET_MS and together else 1


if __name__ == "__main__":
    sys.exit(main())
