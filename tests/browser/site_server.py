"""A private site for the browser tests: makes it, serves it, and obeys lines of JSON on standard input until that ends.

    ["user", name, password]  ["camera", name, type, source, {options}]  ["serve"]  ["oculora", arguments...]
    ["path", path inside the site]  ["processes"]  ["kill", pid]

Each line is answered by one line: {"ok": result} or {"error": text}.
"""

import json
import os
import signal
import sys

from oculora_site import Site


def obey(site, command, *arguments):
    if command == "user":
        return site.add_user(*arguments, admin=True)
    if command == "camera":
        *record, options = arguments
        return site.add_camera(*record, **options)
    if command == "serve":
        return site.serve()
    if command == "oculora":
        return site.oculora(*arguments).stdout
    if command == "path":
        return site.path(*arguments)
    if command == "processes":
        return site.processes()
    if command == "kill":
        if arguments[0] not in site.processes():
            raise ValueError(f"process {arguments[0]} is not of this site")
        return os.kill(arguments[0], signal.SIGKILL)
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
