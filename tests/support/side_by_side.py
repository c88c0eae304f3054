"""Test cases that run side by side in a site, because most of their time is waiting."""

import concurrent.futures
import threading
import unittest

from hls_client import leftovers
from oculora_site import Site, wait_until


def in_background(function, *args):
    """Runs the function in a thread of its own; the future of its result."""
    future = concurrent.futures.Future()

    def run():
        try:
            future.set_result(function(*args))
        except BaseException as error:
            future.set_exception(error)

    threading.Thread(target=run, daemon=True).start()
    return future


def tests_of(*cases):
    """Gives a class a test of each function, which waits for its run. setUpClass begins them with `start`."""
    def add(cls):
        for case in cases:
            def test(self, name=case.__name__):
                self.runs[name].result(cls.SECONDS)
            test.__doc__ = case.__doc__
            setattr(cls, f"test_{case.__name__}", test)
        cls.test_z_nothing_stays = cls.nothing_stays
        return cls
    return add


class SideBySide(unittest.TestCase):
    SECONDS = 200  # for the longest of the cases

    @classmethod
    def setUpClass(cls):
        cls.runs, cls.sites = {}, []

    @classmethod
    def make_site(cls):
        """A site that goes with the class; its logs are kept when a case has failed."""
        site = Site()
        cls.sites.append(site)
        cls.addClassCleanup(lambda: site.close(not cls.runs or any(
            not run.done() or run.exception() for run in cls.runs.values())))
        return site

    @classmethod
    def start(cls, case, *args, name=None):
        cls.runs[name or case.__name__] = in_background(case, *args)

    def nothing_stays(self):
        concurrent.futures.wait(self.runs.values(), self.SECONDS)
        for site in self.sites:
            wait_until(lambda: not site.pids("entry.cgi"), 30, "requests to end")
            self.assertEqual(leftovers(site), [])
            self.assertNotRegex(site.log(), "is started again: (?!it was stuck)", "a worker that crashed")
            site.popen(["sleep", "60"])  # keeps the namespaces, so that there is something to look at
            self.assertEqual(site.stop(), 0)
            self.assertEqual((site.shared_memory(), site.pids("recorder|entry")), ([], []))
