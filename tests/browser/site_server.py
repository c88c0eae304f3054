"""A private site for the browser tests: makes it, serves it, and obeys lines of JSON on standard input until that ends.

    ["user", name, password]  ["camera", name, type, source, {options}]  ["serve"]  ["stop"]  ["oculora", arguments...]
    ["path", path inside the site]  ["streams"]  ["remux", camera]  ["kill", pid]  ["lose", event]

Each line is answered by one line: {"ok": result} or {"error": text}.
"""

import json
import os
import pathlib
import re
import signal
import sys

from oculora_site import Site


def streams(site):
    """{camera id: pid} of the request processes that stream live pictures, each camera's newest."""
    found = {}
    for pid in sorted(site.processes()):
        try:
            with open(f"/proc/{pid}/environ", "rb") as environment:
                query = re.search(rb"\0QUERY_STRING=([^\0]*method=Stream[^\0]*)", b"\0" + environment.read())
        except OSError:
            continue  # ended meanwhile
        if query:
            found[int(re.search(rb"cameraId=(\d+)", query.group(1)).group(1))] = pid
    return found


def remux(site, camera):
    """{"pid", "users"} of a camera's HLS stream, or None."""
    try:
        with open(site.path(f"/tmp/webapivdostm.pid.{camera}")) as pid, \
             open(site.path(f"/tmp/ndcam/{camera}/cnt")) as count:
            return {"pid": int(pid.read()), "users": int(count.readline())}
    except (FileNotFoundError, ValueError):
        return None


def obey(site, command, *arguments):
    if command == "user":
        return site.add_user(*arguments, admin=True)
    if command == "camera":
        *record, options = arguments
        return site.add_camera(*record, **options)
    if command == "serve":
        return site.url or site.serve()
    if command == "stop":  # to be served again at the same address
        site.serve_port, site.url = site.port, None
        return site.stop()
    if command == "oculora":
        return site.oculora(*arguments).stdout
    if command == "path":
        return site.path(*arguments)
    if command == "streams":
        return streams(site)
    if command == "remux":
        return remux(site, *arguments)
    if command == "kill":
        if arguments[0] not in site.processes():
            raise ValueError(f"process {arguments[0]} does not run here")
        return os.kill(arguments[0], signal.SIGKILL)
    if command == "lose":
        (path,) = pathlib.Path(site.path("/var/packages/Oculora/var/recordings")).glob(f"*/*/*-{arguments[0]}.avi")
        return path.unlink()
    raise ValueError(f"unknown command {command}")


def main():
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(0))  # through the site's own ending
    with Site() as site:
        for line in sys.stdin:
            try:
                answer = {"ok": obey(site, *json.loads(line))}
            except Exception as error:  # the test reports it
                answer = {"error": str(error)}
            print(json.dumps(answer), flush=True)


main()
