"""Several hosts on one machine: each with its own address, files and shared memory, and with a link that can be cut."""

import os
import subprocess
import unittest

import lan
import rogue_server
from oculora_site import SITE_TOOL, wait_until

lan.enter()


def output(*argv):
    return subprocess.run(argv, text=True, capture_output=True, timeout=30).stdout


def fetch(host, url):
    """The HTTP status that a host gets from a URL, "000" when no answer comes within a second."""
    return output(*host.command(["curl", "--noproxy", "*", "-sm", "1", "-o", "/dev/null", "-w", "%{http_code}", url]))


class Lan(unittest.TestCase):
    def test_hosts_have_their_own_addresses_files_and_memory(self):
        with lan.Host() as a, lan.Host() as b, lan.Host() as c:
            for host in (a, b, c):
                host.add_camera("Clock", "mjpeg", "test:160x120", fps=5, id=7)
                host.write("/tmp/mine", host.serve())
            self.assertEqual(len({a.address, b.address, c.address}), 3)
            for host in (a, b, c):
                self.assertEqual([fetch(host, other.url) for other in (a, b, c)], ["200"] * 3)
                self.assertEqual(output(*host.command(["cat", "/tmp/mine"])), f"http://{host.address}:8080")
            a.stop()
            self.assertEqual((a.shared_memory(), a.processes(), fetch(b, a.url)), ([], {}, "000"))
            self.assertTrue(b.shared_memory())
            # The machine's own network is not seen, and a running host stays on its network.
            self.assertEqual(output(*b.command(["ip", "route", "show", "default"])), "")
            moved = subprocess.run([SITE_TOOL, "--net", b.dir + "/lan", b.dir, "true"], text=True, capture_output=True)
            self.assertEqual((moved.returncode, "end it first" in moved.stderr), (125, True))
        wait_until(lambda: "host" not in output("ip", "link"), what="the hosts' links to go")
        self.assertFalse(any(map(os.path.exists, (a.dir, b.dir, c.dir))))

    def test_cut_restored_and_started_again(self):
        with lan.Host() as a, lan.Host() as b, rogue_server.RogueServer(rogue_server.forward(b), lan.GATEWAY) as rogue:
            url = b.serve()
            b.cut()
            self.assertEqual(fetch(a, url), "000")
            b.restore()
            wait_until(lambda: fetch(a, url) == "200", what="the way to the host")
            b.stop()
            self.assertEqual((b.serve(), fetch(a, url), fetch(a, rogue.url + "/?a=1%262&b=")), (url, "200", "200"))
            self.assertEqual([request.target for request in rogue.requests], ["/?a=1%262&b="])
            for rogue.answer in rogue_server.silence, rogue_server.byte_a_second, rogue_server.endless_headers:
                self.assertRegex(fetch(a, rogue.url), "000|200")
                wait_until(lambda: not rogue.connections, what="the rogue server to notice the end")


if __name__ == "__main__":
    unittest.main()
