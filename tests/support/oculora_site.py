"""A private site for tests: made in a directory of its own, served on a free port, and gone without trace afterwards.

    from oculora_site import Site
    with Site() as site:
        site.add_user("anna", "long password", admin=True)
        site.add_camera("Clock", "mjpeg", "test:320x240", fps=5)
        site.serve()
        sid = site.login("anna", "long password")
        headers, answer = site.api("VELM.Oculora.Camera", "List", sid=sid)

The programs come from the build directory $OCULORA_BUILD (default: build). After a failure inside the `with` block the
site's logs are printed and kept in BUILD/site-logs; OCULORA_KEEP_SITES=1 keeps whole sites.
"""

import ctypes
import http.client
import json
import os
import re
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import threading
import time
import urllib.parse

CHECKOUT = os.path.realpath(os.path.join(os.path.dirname(__file__), "..", ".."))
BUILD = os.path.realpath(os.environ.get("OCULORA_BUILD", os.path.join(CHECKOUT, "build")))
SITE_TOOL = os.path.join(CHECKOUT, "tools", "site")
PR_SET_PDEATHSIG = 1


def wait_until(condition, seconds=15, what="the condition"):
    """Calls `condition` until it returns something true, which is returned; AssertionError when the time is over."""
    end = time.monotonic() + seconds
    while True:
        result = condition()
        if result:
            return result
        if time.monotonic() > end:
            raise AssertionError(f"waited {seconds} s for {what}")
        time.sleep(0.02)


def free_port():
    """A TCP port of 127.0.0.1 that nobody uses just now."""
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def _end_with_parent():
    ctypes.CDLL(None).prctl(PR_SET_PDEATHSIG, signal.SIGTERM)


def spawn(argv, **kw):
    """subprocess.Popen whose process ends with the test, even a killed one. Started from a thread other than the main
    one it is not tied to the test, because the kernel ties to threads."""
    if threading.current_thread() is threading.main_thread():
        kw.setdefault("preexec_fn", _end_with_parent)
    return subprocess.Popen(argv, **kw)


def end(process, seconds=10, sig=signal.SIGTERM):
    """Ends a process started by `spawn` and returns its exit code; SIGKILL when it has not obeyed in time."""
    if process.poll() is None:
        process.send_signal(sig)
        try:
            process.wait(seconds)
        except subprocess.TimeoutExpired:
            process.kill()
    process.wait()
    for pipe in (process.stdin, process.stdout, process.stderr):
        if pipe:
            pipe.close()
    return process.returncode


class Site:
    """One private site. Not for several threads at once, except `get`, `api`, `request` and `login`."""

    def __init__(self, init=True):
        self.dir = tempfile.mkdtemp(prefix="oculora-site-")
        self.url = None
        self.port = None
        self.server = None
        self._server_log = os.path.join(self.dir, "serve.log")
        self._started = []
        if init:
            try:
                self.oculora("init")
            except BaseException:
                self.close(failed=True)
                raise

    def __enter__(self):
        return self

    def __exit__(self, kind, value, traceback):
        self.close(failed=kind is not None)

    # --- running things inside ---------------------------------------------------------------------------------------

    def command(self, argv):
        """The argument list that runs `argv` inside the site."""
        return [SITE_TOOL, self.dir, *map(str, argv)]

    def run(self, argv, **kw):
        """subprocess.run inside the site; 60 s at most unless told otherwise."""
        kw.setdefault("timeout", 60)
        return subprocess.run(self.command(argv), **kw)

    def popen(self, argv, **kw):
        """subprocess.Popen inside the site; the process is ended with the site at the latest."""
        process = spawn(self.command(argv), **kw)
        self._started.append(process)
        return process

    def oculora(self, *args, input=None, check=True, timeout=60):
        """Runs the admin command; its output is captured as text."""
        done = self.run([os.path.join(BUILD, "bin", "oculora"), *args], input=input, text=True, capture_output=True,
                        timeout=timeout)
        if check and done.returncode != 0:
            raise AssertionError(f"oculora {' '.join(map(str, args))}: exit {done.returncode}\n{done.stdout}{done.stderr}")
        return done

    # --- records -----------------------------------------------------------------------------------------------------

    def add_user(self, name, password, admin=False, allow=None):
        options = (["--admin"] if admin else []) + (["--allow", allow] if allow is not None else [])
        self.oculora("user", "add", name, *options, "--password-stdin", input=password + "\n")

    def add_camera(self, name, type, source, **opts):
        """Adds a camera and returns its id; `opts` are the command's options (fps=5, stay_on=True, remote_id=3, ...)."""
        options = []
        for key, value in opts.items():
            if value is not False and value is not None:
                options += ["--" + key.replace("_", "-")] + ([] if value is True else [value])
        added = self.oculora("camera", "add", name, "--type", type, "--source", source, *options)
        return int(added.stdout.strip())

    # --- serving -----------------------------------------------------------------------------------------------------

    def serve(self, *options, seconds=20):
        """Starts the server on a free port and waits until it answers; sets `url` and `port`."""
        with open(self._server_log, "ab") as log:
            start = log.tell()
            argv = [os.path.join(BUILD, "bin", "oculora"), "serve", "--port", "0", "--bind", "127.0.0.1", *options]
            self.server = self.popen(argv, stdin=subprocess.DEVNULL, stdout=log, stderr=subprocess.STDOUT)

        def address():
            with open(self._server_log, errors="replace") as output:
                output.seek(start)
                text = output.read()
            if self.server.poll() is not None:
                raise AssertionError(f"oculora serve ended with {self.server.returncode}:\n{text}")
            return re.search(r"http://127\.0\.0\.1:(\d+)/", text)

        self.port = int(wait_until(address, seconds, "the server's address").group(1))
        self.url = f"http://127.0.0.1:{self.port}"
        return self.url

    def stop(self, sig=signal.SIGTERM):
        """Ends the server and returns its exit code; None when it was not running."""
        if self.server is None:
            return None
        code = end(self.server, sig=sig)
        self._started.remove(self.server)
        self.server = None
        return code

    def serve_output(self):
        return _text(self._server_log)

    # --- asking ------------------------------------------------------------------------------------------------------

    def request(self, method, path, body=None, headers=None, timeout=30):
        """One HTTP request: (status, headers, bytes)."""
        connection = http.client.HTTPConnection("127.0.0.1", self.port, timeout=timeout)
        try:
            connection.request(method, path, body=body, headers=headers or {})
            answer = connection.getresponse()
            return answer.status, answer.headers, answer.read()
        finally:
            connection.close()

    def get(self, path, headers=None):
        """(headers, bytes) of a GET; the headers carry the HTTP status as `headers.status`."""
        status, answer_headers, body = self.request("GET", path, headers=headers)
        answer_headers.status = status
        return answer_headers, body

    def api_path(self, api, method, params=None, sid=None, version=1):
        query = {"api": api, "version": version, "method": method, **(params or {})}
        if sid is not None:
            query["_sid"] = sid
        return "/webapi/entry.cgi?" + urllib.parse.urlencode(query)

    def api(self, api, method, params=None, sid=None, cookies=None, version=1):
        """(headers, answer) of a web-API call with GET; the answer is parsed when it is JSON, else bytes."""
        headers = {"Cookie": "; ".join(f"{k}={v}" for k, v in cookies.items())} if cookies else {}
        answer_headers, body = self.get(self.api_path(api, method, params, sid, version), headers)
        try:
            return answer_headers, json.loads(body)
        except ValueError:
            return answer_headers, body

    def login(self, name, password):
        """Logs in over the web API and returns the session id."""
        form = urllib.parse.urlencode({"api": "VELM.Oculora.Account", "version": 1, "method": "Login", "account": name,
                                       "passwd": password})
        _, _, body = self.request("POST", "/webapi/entry.cgi", form,
                                  {"Content-Type": "application/x-www-form-urlencoded"})
        answer = json.loads(body)
        if not answer.get("success"):
            raise AssertionError(f"log-in of {name} failed: {body!r}")
        return answer["data"]["sid"]

    # --- looking -----------------------------------------------------------------------------------------------------

    def path(self, inside):
        """Where a path inside the site lies on the machine."""
        for prefix, outside in (("/tmp", "tmp"), ("/var/packages", "packages")):
            if inside == prefix or inside.startswith(prefix + "/"):
                return os.path.join(self.dir, outside) + inside[len(prefix):]
        return inside

    def log(self):
        """The host's log; empty as long as there is none."""
        return _text(self.path("/var/packages/Oculora/var/oculora.log"))

    def processes(self):
        """{pid: command line} of everything that runs inside the site."""
        found = {}
        for pid in filter(str.isdigit, os.listdir("/proc")):
            try:
                if os.path.samefile(f"/proc/{pid}/root/tmp", os.path.join(self.dir, "tmp")):
                    with open(f"/proc/{pid}/cmdline", "rb") as line:
                        found[int(pid)] = line.read().replace(b"\0", b" ").decode(errors="replace").strip()
            except OSError:
                continue  # ended meanwhile, or a kernel thread
        return found

    def shared_memory(self):
        """The lines of the SysV shared memory segments of the running site."""
        with_header = self.run(["cat", "/proc/sysvipc/shm"], text=True, capture_output=True, check=True).stdout
        return with_header.splitlines()[1:]

    # --- ending ------------------------------------------------------------------------------------------------------

    def close(self, failed=False):
        """Ends everything in the site and removes it. Harmless when repeated."""
        try:
            self.stop()
            for process in self._started:
                end(process, 5)
            self._started = []
            self._end_strays()
        finally:
            if failed:
                self._keep_logs()
            if "OCULORA_KEEP_SITES" in os.environ:
                print(f"site kept in {self.dir}", file=sys.stderr)
            else:
                shutil.rmtree(self.dir, ignore_errors=True)

    def _end_strays(self):
        strays = self.processes()
        for pid, line in strays.items():
            print(f"still running in the site, killed: {pid} {line}", file=sys.stderr)
            try:
                os.kill(pid, signal.SIGKILL)
            except ProcessLookupError:
                pass
        if strays:
            wait_until(lambda: not self.processes(), 5, "killed processes to go")

    def _keep_logs(self):
        target = os.path.join(BUILD, "site-logs")
        os.makedirs(target, exist_ok=True)
        logs = [("serve", self._server_log)] + [
            (name, self.path(f"/var/packages/Oculora/var/{name}.log")) for name in ("oculora", "front")]
        for name, path in logs:
            text = _text(path)
            if text:
                kept = os.path.join(target, f"{os.path.basename(self.dir)}-{name}.log")
                shutil.copyfile(path, kept)
                print(f"--- {name} log, the end of {kept}:\n{text[-4000:]}", file=sys.stderr)


def _text(path):
    try:
        with open(path, errors="replace") as file:
            return file.read()
    except FileNotFoundError:
        return ""
