"""Hosts with addresses of their own on one private network, for tests of several of them.

A test script calls enter() first of all. That starts it again on a network (tools/network), where its own address is
GATEWAY and every host can be reached.
"""

import atexit
import contextlib
import os
import shutil
import subprocess
import sys
import tempfile

from oculora_site import CHECKOUT, SITE_TOOL, Site, wait_until

NETWORK_TOOL = os.path.join(CHECKOUT, "tools", "network")
GATEWAY = "10.77.0.1"


def enter():
    """Returns on the network, or ends the script with status 125 and a sentence when the machine allows none."""
    if "OCULORA_NETWORK" not in os.environ:
        os.environ["OCULORA_NETWORK"] = tempfile.mkdtemp(prefix="oculora-network-")
        again = [NETWORK_TOOL, os.environ["OCULORA_NETWORK"], sys.executable, *sys.orig_argv[1:]]
        os.execv(again[0], again)
    atexit.register(_leave, os.environ["OCULORA_NETWORK"])


def _leave(network):
    subprocess.run(["umount", os.path.join(network, ".net")], check=True)
    shutil.rmtree(network)


class Host(Site):
    """A site with its own `address`, and a link that can be cut. Its server keeps its URL when it is started again."""

    serve_port = 8080

    def __init__(self):
        super().__init__(init=False)
        self._machine = self.popen(["sleep", "infinity"])  # stays up while nothing is served on it

        def address():
            assert self._machine.poll() is None, "the host could not be started"
            with contextlib.suppress(FileNotFoundError), open(os.path.join(self.dir, ".address")) as file:
                return file.read().strip()

        self.address = wait_until(address, what="the host's address")
        self.oculora("init")

    def command(self, argv):
        return [SITE_TOOL, "--net", os.environ["OCULORA_NETWORK"], *super().command(argv)[1:]]

    def cut(self):
        """Takes the link down: nothing comes or goes, and nobody is told."""
        self._set_link("down")

    def restore(self):
        """Brings it up again. Who looked for the host meanwhile may take a second to look for it anew."""
        self._set_link("up")

    def _set_link(self, state):
        link = "host" + self.address.rpartition(".")[2]
        subprocess.run(["ip", "link", "set", link, state], check=True)
