#!/usr/bin/env python3
# ctest: timeout=240
"""HLS through lighttpd, recorder and module: what a player gets, who shares a remux, and what is left of one.

The scenarios run side by side, each with a camera of its own, because most of their time is waiting for slices. A test
waits for its scenario.
"""

import concurrent.futures
import contextlib
import os
import signal
import socket
import subprocess
import time
import unittest

from hls_client import (API, CLIP, SLICE_FRAMES, HlsCamera, add_clip_camera, check_run, in_background, leftovers,
                        pictures, zombies)
from oculora_site import BUILD, Site, wait_until

PASSWORD = "a long password"
CLOSED = b"Already closed.\n\r"
SECRET = b"nobody outside may read this\n"


class Skipped(Exception):
    pass


def raw(site, text, count=1):
    """The whole answers to `count` requests written by hand, sent all at once."""
    with contextlib.ExitStack() as stack:
        connections = [stack.enter_context(socket.create_connection(("127.0.0.1", site.port), 30))
                       for _ in range(count)]
        for connection in connections:
            connection.sendall(text.encode())
        return [b"".join(iter(lambda: connection.recv(65536), b"")) for connection in connections]


def plays(camera):
    """What a player sees: exact headers, URLs, a window of six, and every picture of the film."""
    assert camera.call("Query") == {"success": True, "data": {"format": "hls"}}
    camera.open()
    path = camera.stream_path()
    other_player = subprocess.Popen(["ffmpeg", "-v", "error", "-nostdin", "-t", "5", "-i", camera.site.url + path,
                                     "-threads", "1", "-f", "null", "-"], stderr=subprocess.PIPE)
    slices = camera.watch(14)
    headers, first, urls = camera.playlist()
    assert (headers.status, headers["Content-Type"]) == (200, "application/x-mpegURL")
    assert len(urls) == 6 and 0 < max(slices) - 5 <= first, (first, urls)
    prefix = (f"{camera.site.url}/webapi/entry.cgi?api={API}&method=Stream&version=1&_sid={camera.sid}"
              f"&cameraId={camera.id}&isRedirectCgi=0&SliceId={camera.id}/")
    assert urls == [f"{prefix}{first + i}.ts" for i in range(6)], urls
    assert camera.slice(urls[-1])[0]["Content-Type"] == "video/MP2T"
    assert min(slices) == 0 and check_run(slices, pictures(camera.site.path(CLIP))) >= 6 * SLICE_FRAMES
    complaints = other_player.communicate(timeout=30)[1]
    assert (other_player.returncode, complaints) == (0, b""), complaints

    # The addresses of slices follow the name by which the client reached this host.
    for host, start in (("cam.example:8443", "http://cam.example:8443/webapi/"),
                        ("home.global.invalid", "https://home.global.invalid/webapi/")):
        found = camera.playlist({"Host": host})[2]
        assert found and all(url.startswith(start) for url in found), found
    by_https = subprocess.run(camera.site.command([
        "env", "GATEWAY_INTERFACE=CGI/1.1", "REQUEST_METHOD=GET", "HTTPS=on", "HTTP_HOST=[::1]:443",
        "QUERY_STRING=" + path.split("?", 1)[1], os.path.join(BUILD, "bin", "entry.cgi")]), capture_output=True).stdout
    assert by_https.count(b"\nhttps://[::1]:443/webapi/entry.cgi?") == 6, by_https
    nothing, = raw(camera.site, f"GET {path} HTTP/1.0\r\n\r\n")
    assert nothing.startswith(b"HTTP/1.0 500 ") and b"#EXT" not in nothing, nothing

    camera.back_date(20)
    camera.slice(f"{camera.id}/{max(slices)}.ts")
    assert time.time() - os.stat(camera.pid_file).st_mtime < 5, "a fetched slice keeps the remux alive"
    camera.close()
    wait_until(camera.is_gone, 5, "the end of the remux")


def counts(camera):
    """Who shares a remux, and that it is nobody's child or writer."""
    camera.open()
    remux = camera.remux()
    assert camera.remuxes() == [remux] and camera.count() == b"1\n"
    held = [os.readlink(f"/proc/{remux}/fd/{fd}") for fd in os.listdir(f"/proc/{remux}/fd")]
    assert not [name for name in held if name.startswith(("pipe:", "socket:"))], held
    begin = time.monotonic()
    camera.open()
    assert time.monotonic() - begin < 2, "a second user need not wait"
    for other in ("HLS", "", "mjpeg"):
        assert camera.call("Open", format=other) == {"success": True}
    assert (camera.count(), camera.remuxes()) == (b"2\n", [remux])
    camera.close()
    assert camera.count() == b"1\n"
    camera.plays()
    assert camera.remuxes() == [remux]
    camera.close()
    wait_until(camera.is_gone, 5, "the end of the remux")
    answer = camera.call("Close")
    assert answer.startswith(CLOSED) and b'"code":100' in answer, answer
    assert not set(zombies()) & {remux}, zombies()


def crowd(camera):
    """Many first Opens at once make one remux; as many Closes at once end it."""
    def ask(method):
        path = camera.site.api_path(API, method, {"cameraId": camera.id, "format": "hls"}, camera.sid)
        answers = raw(camera.site, f"GET {path} HTTP/1.1\r\nHost: test\r\nConnection: close\r\n\r\n", 20)
        assert all(b'{"success":true}' in answer for answer in answers), answers

    for _ in range(8):
        ask("Open")
        assert (camera.count(), camera.remuxes()) == (b"20\n", [camera.remux()]), (camera.count(), camera.remuxes())
        camera.shows()
        ask("Close")
        wait_until(camera.is_gone, 5, "the end of the remux")


def again(camera):
    """A Close with the next Open at its heels."""
    camera.open()
    for _ in range(10):
        camera.close()
        camera.open()
        assert camera.count() == b"1\n"
        camera.plays()
    wait_until(lambda: camera.remuxes() == [camera.remux()], 5, "the end of the older remuxes")
    camera.close()
    wait_until(camera.is_gone, 5, "the end of the remux")


def killed(camera):
    """A remux that dies, from its first moment to the middle of a slice, leaves nothing in the way of the next Open."""
    for delay in (0.0, 0.05, 0.3, 1.2, 3.0):
        first = in_background(camera.open)
        wait_until(camera.remux, 5, "the pid file")
        time.sleep(delay)
        os.kill(camera.remux(), signal.SIGKILL)
        wait_until(lambda: not camera.remuxes(), 5, "its death")
        camera.open()
        assert camera.count() == b"1\n", (delay, camera.count())
        camera.plays()
        first.result()
        camera.close()
        wait_until(camera.is_gone, 5, "the end of the remux")


def stale(camera):
    """A remux untouched for 61 s that hangs is replaced, and takes nothing with it when it wakes up."""
    camera.open()
    old = camera.remux()
    end = time.monotonic() + 62  # a pid file is never older than its process
    while time.monotonic() < end:
        camera.back_date(0)
        time.sleep(2)
    camera.back_date(59)
    camera.open()
    assert (camera.count(), camera.remuxes()) == (b"2\n", [old])
    os.kill(old, signal.SIGSTOP)
    camera.back_date(61)
    camera.open()
    new = camera.remux()
    assert new != old and camera.count() == b"1\n"
    os.kill(old, signal.SIGCONT)
    wait_until(lambda: camera.remuxes() == [new], 5, "the end of the old remux")
    assert camera.remux() == new and camera.count() == b"1\n"
    camera.plays()
    camera.close()
    wait_until(camera.is_gone, 5, "the end of the remux")


def hostile(camera, other):
    """Names that lead elsewhere: not a byte is read, and nobody waits."""
    camera.open()
    other.open()
    secret = camera.site.path("/tmp/ndcam/secret")
    with open(secret, "wb") as file:
        file.write(SECRET)
    os.symlink("/tmp/ndcam/secret", os.path.join(camera.directory, "5005.ts"))
    os.symlink("/tmp/ndcam", os.path.join(camera.directory, "up"))
    os.mkdir(os.path.join(camera.directory, "5007.ts"))
    os.mkfifo(os.path.join(camera.directory, "5008.ts"))
    own = camera.id
    refused = [
        "/etc/passwd", "../../etc/passwd", "../ndcam/secret", "secret", "/proc/self/environ", "/", "..", ".ts", own,
        "%s%n.ts", f"{other.id}/0.ts", f"0{own}/0.ts", f"./{own}/0.ts", f"/tmp/ndcam/{own}/0.ts",
        *(f"{own}/{name}" for name in (
            "", f"../{other.id}/0.ts", f"../{own}/0.ts", "/0.ts", "fifo", "cnt", "file_lock", "hls.m3u8", ".ts",
            "-1.ts", "0.ts/", "0.ts\0", "0.ts\0.ts", "0.ts\n", "up/secret", "5005.ts", "5007.ts", "5008.ts",
            "0" * 3000))]
    camera.back_date(20)
    before = os.stat(camera.pid_file).st_mtime
    for name in map(str, refused):
        begin = time.monotonic()
        headers, body = camera.slice(name)
        # lighttpd itself refuses control characters.
        assert headers.status == (400 if "\0" in name or "\n" in name else 500), f"{name!r}: {headers.status}"
        assert SECRET not in body, f"{name!r}: {body[:100]!r}"
        assert time.monotonic() - begin < 2, f"{name!r} took {time.monotonic() - begin} s"
    assert os.stat(camera.pid_file).st_mtime == before, "a name that is refused keeps nothing alive"

    missing = [f"{own}/98765.ts", f"{own}/99999999999999999999.ts", "5.ts", f"{own}/{'0' * 300}.ts"]
    with concurrent.futures.ThreadPoolExecutor(len(missing)) as pool:
        for headers, body in pool.map(camera.slice, missing):
            assert (headers.status, headers["Content-Type"], body) == (200, "video/MP2T", b"")
    camera.plays()
    os.unlink(secret)
    for each in (camera, other):
        each.close()
        wait_until(each.is_gone, 5, "the end of the remux")


def cleans(camera):
    """A slice comes whole, whatever its size, and the ones long before it go. A lost directory is no user."""
    os.mkdir(camera.directory)
    big = os.urandom(300001)  # more than one read, and no multiple of one
    for number in range(20):
        with open(os.path.join(camera.directory, f"{number}.ts"), "wb") as file:
            file.write(big)
    assert camera.slice(f"{camera.id}/19.ts")[1] == big
    assert sorted(os.listdir(camera.directory)) == [f"{number}.ts" for number in range(14, 20)]
    camera.open()
    assert camera.count() == b"1\n" and "19.ts" not in os.listdir(camera.directory)
    camera.plays()
    camera.close()
    wait_until(camera.is_gone, 5, "the end of the remux")


def no_h264(camera):
    """A camera of another kind: Open answers, and what it started ends by itself."""
    assert camera.call("Query") == {"success": True, "data": {"format": "mjpeg"}}
    camera.open()
    wait_until(camera.is_gone, 20, "the end of the remux")
    assert camera.call("Close") == {"success": True}


def full_disk(site, sid, first, second):
    """No space for slices: other requests answer, and with space again the next Open plays."""
    mount = ["mount", "-t", "tmpfs", "-o", "size=2m,mode=700", "tmpfs", "/tmp/ndcam"]
    if site.run(mount, capture_output=True).returncode != 0:
        raise Skipped("nothing can be mounted here")
    root = f"/proc/{site.server.pid}/root"
    first, second = (HlsCamera(site, id, sid, root) for id in (first, second))
    first.open()
    first.plays()
    filler = root + "/tmp/ndcam/filler"
    with open(filler, "wb", buffering=0) as file:
        try:
            while True:
                file.write(bytes(65536))
        except OSError:
            pass
    late = in_background(second.open)
    while not late.done():
        begin = time.monotonic()
        assert second.call("Query") == {"success": True, "data": {"format": "hls"}}
        assert time.monotonic() - begin < 2
        time.sleep(1)
    late.result()
    os.unlink(filler)
    for camera in (first, second):
        camera.open()
        camera.plays()
        camera.close_all()
    site.run(["umount", "/tmp/ndcam"])


class HlsTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.site, cls.small = Site(), Site()
        try:
            for site in (cls.site, cls.small):
                site.add_user("anna", PASSWORD, admin=True)
            cls.site.add_user("guest", PASSWORD, allow="playback")
            named = {name: add_clip_camera(cls.site, name)
                     for name in ("plays", "counts", "crowd", "again", "killed", "stale", "hostile", "other", "cleans")}
            named["no_h264"] = cls.site.add_camera("no_h264", "mjpeg", "test:1280x720", fps=5)
            cls.off = add_clip_camera(cls.site, "Off")
            cls.site.oculora("camera", "disable", cls.off)
            cls.site.oculora("server", "add", "Barn", "--id", 7, "--url", "http://127.0.0.1:1",
                             "--secret", "the barn's long secret")
            cls.remote = cls.site.add_camera("Remote", "h264", "", server=7, remote_id=3)
            small = [add_clip_camera(cls.small, name) for name in ("first", "second")]
            for site in (cls.site, cls.small):
                site.serve()
            cls.sid = cls.site.login("anna", PASSWORD)
            cameras = {name: HlsCamera(cls.site, id, cls.sid) for name, id in named.items()}
            other = cameras.pop("other")
            cls.runs = {name: in_background(globals()[name], camera, *([other] if name == "hostile" else []))
                        for name, camera in cameras.items()}
            cls.runs["full_disk"] = in_background(full_disk, cls.small, cls.small.login("anna", PASSWORD), *small)
        except BaseException:
            cls.close(failed=True)
            raise

    @classmethod
    def close(cls, failed):
        for site in (cls.site, cls.small):
            site.close(failed)

    @classmethod
    def tearDownClass(cls):
        concurrent.futures.wait(cls.runs.values(), 90)
        failed = any(not run.done() or run.exception() for run in cls.runs.values())
        left = leftovers(cls.site)
        cls.close(failed or bool(left))
        if left and not failed:
            raise AssertionError(f"left behind: {left}")

    def finish(self, name):
        try:
            self.runs[name].result(120)
        except Skipped as reason:
            self.skipTest(str(reason))

    def test_a_player_gets_every_picture(self):
        self.finish("plays")

    def test_users_share_one_remux(self):
        self.finish("counts")

    def test_twenty_first_users_start_one_remux(self):
        self.finish("crowd")

    def test_open_right_behind_close(self):
        self.finish("again")

    def test_open_after_the_remux_was_killed(self):
        self.finish("killed")

    def test_open_replaces_a_remux_that_hangs(self):
        self.finish("stale")

    def test_slice_ids_lead_nowhere_else(self):
        self.finish("hostile")

    def test_old_slices_go(self):
        self.finish("cleans")

    def test_open_of_a_camera_of_another_kind(self):
        self.finish("no_h264")

    def test_full_disk(self):
        self.finish("full_disk")

    def test_who_may_not(self):
        guest = self.site.login("guest", PASSWORD)
        for camera, sid, code in ((self.off, self.sid, 402), (self.remote, guest, 105), (999, self.sid, 401)):
            for method in ("Open", "Close", "Query", "Stream"):
                with self.subTest(camera=camera, method=method):
                    _, answer = self.site.api(API, method, {"cameraId": camera, "format": "hls"}, sid)
                    self.assertEqual(answer["error"]["code"], code)
            self.assertFalse(os.path.exists(self.site.path(f"/tmp/ndcam/{camera}")))

    def test_camera_of_a_recording_server(self):
        remote = HlsCamera(self.site, self.remote, self.sid)
        for call in (remote.open, remote.close):
            before = self.site.log().count("SendWebAPIToRec failted.[NdId: 7]\n")
            call()
            self.assertEqual(self.site.log().count("SendWebAPIToRec failted.[NdId: 7]\n"), before + 1)
        path = self.site.api_path(API, "Open", {"cameraId": self.remote, "format": "hls"}, self.sid)
        answer, = raw(self.site, f"GET {path} HTTP/1.0\r\n\r\n")
        self.assertIn(b'"code":100', answer, "nothing tells this host's name")
        for params in ({}, {"SliceId": f"{self.remote}/0.ts"}):
            self.site.api(API, "Stream", {"cameraId": self.remote, "format": "hls", **params}, self.sid)
        self.assertEqual(self.site.log().count("SendWebAPIToRecAndWriteAsHeader failted.[NdId: 7]\n"), 2)
        self.assertTrue(remote.is_gone())


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
            wait_until(starting.remux, 5, "its pid file")
            self.assertEqual(site.stop(), 0)
            self.assertEqual((leftovers(site), site.processes()), ([], {}))
            opening.exception(30)  # the answer or its lack is not the point


if __name__ == "__main__":
    unittest.main()
