"""A site whose front also serves the yardstick programs, and the CPU time that its front and requests use."""

import os
import re
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.realpath(__file__)), "..", "..", "tests", "support"))
from oculora_site import BUILD, Site, end, free_port, wait_until  # noqa: E402

CONFIG = "/var/packages/Oculora/etc/lighttpd.conf"


class BenchFront:
    """A second lighttpd beside the site's own, with the same configuration plus /bench/NAME for every yardstick and for
    every file (name: path inside the site)."""

    def __init__(self, site, yardsticks, environment=None, files=None):
        self.site = site
        self.port = free_port()
        text = open(site.path(CONFIG)).read()
        text = re.sub(r"server\.port\s*=\s*\d+", f"server.port = {self.port}", text)
        text = re.sub(r"server\.pid-file.*", "", text)
        targets = {name: os.path.join(BUILD, "bin", name) for name in yardsticks} | (files or {})
        aliases = ", ".join(f'"/bench/{name}" => "{path}"' for name, path in targets.items())
        variables = ", ".join(f'"{name}" => "{value}"' for name, value in (environment or {}).items())
        text += f'\n$HTTP["url"] =~ "^/bench/" {{\n  alias.url = ( {aliases} )\n  cgi.assign = ( ".cgi" => "" )\n'
        text += f"  setenv.add-environment = ( {variables} )\n}}\n"
        path = site.path("/tmp/bench-front.conf")
        with open(path, "w") as file:
            file.write(text)
        self.process = site.popen(["lighttpd", "-D", "-f", "/tmp/bench-front.conf"])
        wait_until(self._answers, 10, "the benchmark's front")

    def _answers(self):
        port, self.site.port = self.site.port, self.port
        try:
            return self.site.request("GET", "/")[0]
        except OSError:
            return None
        finally:
            self.site.port = port

    def pid(self):
        return next(pid for pid, line in self.site.processes().items() if "bench-front.conf" in line
                    and line.startswith("lighttpd"))


def _stat(pid):
    with open(f"/proc/{pid}/stat") as file:
        return file.read().rsplit(")", 1)[1].split()


def family_cpu(pid):
    """CPU seconds of a process, its ended children and its living ones, the living ones to the nanosecond."""
    ticks = os.sysconf("SC_CLK_TCK")
    fields = _stat(pid)
    total = (int(fields[13]) + int(fields[14])) / ticks + _precise(pid)
    for child in children(pid):
        total += _precise(child)
    return total


def _precise(pid):
    try:
        with open(f"/proc/{pid}/schedstat") as file:
            return int(file.read().split()[0]) / 1e9
    except OSError:
        return 0.0


def children(pid):
    found = []
    for other in filter(str.isdigit, os.listdir("/proc")):
        try:
            if int(_stat(other)[1]) == pid:
                found.append(int(other))
        except OSError:
            continue
    return found


def proportional_kb(pid):
    with open(f"/proc/{pid}/smaps_rollup") as file:
        return next(int(line.split()[1]) for line in file if line.startswith("Pss:"))
