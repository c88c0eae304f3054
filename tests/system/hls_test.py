#!/usr/bin/env python3
# ctest: timeout=400
"""HLS through lighttpd, recorder and module: what a player gets, who shares a remux, and what is left of one.

The scenarios run side by side, each with a camera of its own.
"""

import contextlib
import os
import signal
import socket
import subprocess
import time
import unittest

from hls_client import API, CLIP, SLICE_FRAMES, HlsCamera, add_clip_camera, check_run, leftovers, pictures
from oculora_site import Site, wait_until
from side_by_side import SideBySide, in_background, tests_of

PASSWORD = "a long password"
SECRET = b"nobody outside may read this\n"


def at_once(site, path, count):
    """The whole answers to `count` requests sent all at once."""
    with contextlib.ExitStack() as stack:
        connections = [stack.enter_context(socket.create_connection(("127.0.0.1", site.port), 60))
                       for _ in range(count)]
        for connection in connections:
            connection.sendall(f"GET {path} HTTP/1.0\r\nHost: test\r\n\r\n".encode())
        return [b"".join(iter(lambda: connection.recv(65536), b"")) for connection in connections]


def plays(camera):
    """What a player sees: exact headers, URLs, a window of six, and every picture of the film."""
    assert camera.call("Query") == {"success": True, "data": {"format": "hls"}}
    camera.open()
    other_player = subprocess.Popen(["ffmpeg", "-v", "error", "-nostdin", "-t", "5", "-i", camera.site.url +
                                     camera.stream_path(), "-threads", "1", "-f", "null", "-"], stderr=subprocess.PIPE)
    slices = camera.watch(8)
    headers, first, urls = camera.playlist()
    assert (headers.status, headers["Content-Type"]) == (200, "application/x-mpegURL")
    assert len(urls) == 6 and 0 < max(slices) - 5 <= first, (first, urls)
    prefix = (f"{camera.site.url}/webapi/entry.cgi?api={API}&method=Stream&version=1&_sid={camera.sid}"
              f"&cameraId={camera.id}&isRedirectCgi=0&SliceId={camera.id}/")
    assert urls == [f"{prefix}{first + i}.ts" for i in range(6)], urls
    assert camera.slice(urls[-1])[0]["Content-Type"] == "video/MP2T"
    assert min(slices) == 0 and check_run(slices, pictures(camera.site.path(CLIP))) >= 8 * SLICE_FRAMES
    complaints = other_player.communicate(timeout=60)[1]
    assert (other_player.returncode, complaints) == (0, b""), complaints
    camera.back_date(20)
    before = os.stat(camera.pid_file).st_mtime
    camera.slice(f"{camera.id}/{max(slices)}.ts")
    assert os.stat(camera.pid_file).st_mtime > before, "a fetched slice keeps the remux alive"
    camera.close_last()


def crowd(camera):
    """Many first Opens at once make one remux; as many Closes at once end it."""
    def ask(method):
        path = camera.site.api_path(API, method, {"cameraId": camera.id, "format": "hls"}, camera.sid)
        answers = at_once(camera.site, path, 20)
        assert all(b'{"success":true}' in answer for answer in answers), answers

    for _ in range(8):
        ask("Open")
        assert (camera.count(), camera.remuxes()) == (b"20\n", [camera.remux()]), (camera.count(), camera.remuxes())
        ask("Close")
        camera.wait_for_end()


def again(camera):
    """A Close with the next Open at its heels."""
    camera.open()
    for _ in range(10):
        camera.close()
        camera.open()
        assert camera.count() == b"1\n"
        camera.plays()
    wait_until(lambda: camera.remuxes() == [camera.remux()], 20, "the end of the older remuxes")
    camera.close_last()


def killed(camera):
    """A remux that dies, from its first moment to the middle of a slice, leaves nothing in the way of the next Open."""
    for delay in (0.0, 0.05, 0.3, 1.2, 3.0):
        first = in_background(camera.open)
        wait_until(camera.remux, 20, "the pid file")
        time.sleep(delay)
        os.kill(camera.remux(), signal.SIGKILL)
        wait_until(lambda: not camera.remuxes(), 20, "its death")
        camera.open()
        assert camera.count() == b"1\n", (delay, camera.count())
        camera.plays()
        first.result()
        camera.close_last()


def hostile(camera, other):
    """Names that lead elsewhere: not a byte is read, and nobody waits."""
    camera.open()
    other.open()
    secret = camera.site.write("/tmp/ndcam/secret", SECRET)
    os.symlink("/tmp/ndcam/secret", os.path.join(camera.directory, "5005.ts"))
    os.mkfifo(os.path.join(camera.directory, "5008.ts"))
    camera.back_date(20)
    before = os.stat(camera.pid_file).st_mtime
    # lighttpd itself refuses control characters.
    for name, status in (("/etc/passwd", 500), ("../ndcam/secret", 500), (f"{other.id}/0.ts", 500),
                         (f"{camera.id}/../{other.id}/0.ts", 500), (f"{camera.id}/5005.ts", 500),
                         (f"{camera.id}/5008.ts", 500), (f"{camera.id}/0.ts\0.ts", 400), ("0" * 3000, 500)):
        headers, body = camera.slice(name)
        assert headers.status == status and SECRET not in body, f"{name!r}: {headers.status} {body[:100]!r}"
    assert os.stat(camera.pid_file).st_mtime == before, "a name that is refused keeps nothing alive"
    camera.plays()  # which makes the pid file as young as its process again
    os.unlink(secret)
    for each in (camera, other):
        each.close_last()


def no_h264(camera):
    """A camera of another kind: Open answers, and what it started ends by itself."""
    assert camera.call("Query") == {"success": True, "data": {"format": "mjpeg"}}
    camera.open()
    wait_until(camera.is_gone, 60, "the end of the remux")
    assert camera.call("Close") == {"success": True}


def full_disk(site, sid, first, second):
    """No space for slices: other requests answer, and with space again the next Open plays."""
    mount = ["mount", "-t", "tmpfs", "-o", "size=2m,mode=700", "tmpfs", "/tmp/ndcam"]
    if site.run(mount, capture_output=True).returncode != 0:
        raise unittest.SkipTest("nothing can be mounted here")
    root = f"/proc/{site.server.pid}/root"
    first, second = (HlsCamera(site, id, sid, root) for id in (first, second))
    first.open()
    first.plays()
    filler = root + "/tmp/ndcam/filler"
    with open(filler, "wb", buffering=0) as file, contextlib.suppress(OSError):
        while True:
            file.write(bytes(65536))
    late = in_background(second.open)
    wait_until(second.remux, 20, "its pid file")
    assert second.call("Query") == {"success": True, "data": {"format": "hls"}}
    assert not late.done(), "it waited for the Open"
    late.result()
    os.unlink(filler)
    for camera in (first, second):
        camera.open()
        camera.plays()
        camera.close_all()
    site.run(["umount", "/tmp/ndcam"])


@tests_of(plays, crowd, again, killed, hostile, no_h264, full_disk)
class HlsTest(SideBySide):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        site, small = cls.make_site(), cls.make_site()
        ids = [add_clip_camera(site, name) for name in ("plays", "crowd", "again", "killed", "hostile", "other")]
        ids.append(site.add_camera("no_h264", "mjpeg", "test:1280x720", fps=5))
        small_ids = [add_clip_camera(small, name) for name in ("first", "second")]
        for each in (site, small):
            each.add_user("anna", PASSWORD, admin=True)
            each.serve()
        sid = site.login("anna", PASSWORD)
        *cameras, victim, other, mjpeg = (HlsCamera(site, id, sid) for id in ids)
        for scenario, camera in zip((plays, crowd, again, killed), cameras):
            cls.start(scenario, camera)
        cls.start(hostile, victim, other)
        cls.start(no_h264, mjpeg)
        cls.start(full_disk, small, small.login("anna", PASSWORD), *small_ids)


class StopTest(unittest.TestCase):
    def test_the_end_of_the_site_ends_its_remuxes(self):
        with Site() as site:
            site.add_user("anna", PASSWORD, admin=True)
            ids = [add_clip_camera(site, name) for name in ("running", "starting")]
            site.serve()
            sid = site.login("anna", PASSWORD)
            running, starting = (HlsCamera(site, id, sid) for id in ids)
            running.open()
            opening = in_background(starting.open)
            wait_until(starting.remux, 20, "its pid file")
            self.assertEqual(site.stop(), 0)
            self.assertEqual((leftovers(site), site.processes()), ([], {}))
            opening.exception(60)  # the answer or its lack is not the point


if __name__ == "__main__":
    unittest.main()
