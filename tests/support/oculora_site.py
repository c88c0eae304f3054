"""A private site for tests: made in a directory of its own, served on a free port, and gone without trace afterwards.

The programs come from the build directory $OCULORA_BUILD (default: build). After a failure inside the `with` block the
site's logs are printed and kept in BUILD/site-logs; OCULORA_KEEP_SITES=1 keeps whole sites.
"""

import contextlib
import ctypes
import http.client
import json
import os
import pathlib
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
FORM = "application/x-www-form-urlencoded"
LOG, FRONT_LOG = "/var/packages/Oculora/var/oculora.log", "/var/packages/Oculora/var/front.log"
SERVE_LOG = "/tmp/serve.log"
PR_SET_PDEATHSIG = 1


def wait_until(condition, seconds=60, what="the condition"):
    """Calls `condition` until it returns something true, which is returned; AssertionError when the time is over."""
    end = time.monotonic() + seconds
    while not (result := condition()):
        assert time.monotonic() < end, f"waited {seconds} s for {what}"
        time.sleep(0.02)
    return result


def free_port():
    """A TCP port of 127.0.0.1 that nobody uses just now."""
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def spawn(argv, **kw):
    """subprocess.Popen whose process ends with the test, even a killed one, when started from the main thread."""
    if threading.current_thread() is threading.main_thread():
        kw.setdefault("preexec_fn", lambda: ctypes.CDLL(None).prctl(PR_SET_PDEATHSIG, signal.SIGTERM))
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
    for pipe in filter(None, (process.stdin, process.stdout, process.stderr)):
        pipe.close()
    return process.returncode


def _text(path):
    try:
        return pathlib.Path(path).read_text(errors="replace")
    except FileNotFoundError:
        return ""


class Site:
    """One private site. Not for several threads at once, except `get`, `api`, `request`, `login` and `run`."""

    address = "127.0.0.1"
    serve_port = 0  # any that is free

    def __init__(self, init=True):
        self.dir = tempfile.mkdtemp(prefix="oculora-site-")
        self.url = self.port = self.server = None
        self._started = []
        if init:
            self.oculora("init")

    def __enter__(self):
        return self

    def __exit__(self, kind, value, traceback):
        self.close(failed=kind is not None)

    def command(self, argv):
        """The argument list that runs `argv` inside the site."""
        return [SITE_TOOL, self.dir, *map(str, argv)]

    def run(self, argv, **kw):
        """subprocess.run inside the site; again when the process through which the site was found ended just then."""
        for _ in range(5):
            done = subprocess.run(self.command(argv), **{"timeout": 60, **kw})
            if done.returncode != 125:
                break
        return done

    def popen(self, argv, **kw):
        """subprocess.Popen inside the site; the process is ended with the site at the latest."""
        self._started.append(spawn(self.command(argv), **kw))
        return self._started[-1]

    def oculora(self, *args, input=None, check=True):
        """Runs the admin command; its output is captured as text."""
        done = self.run([os.path.join(BUILD, "bin", "oculora"), *args], input=input, text=True, capture_output=True)
        assert done.returncode == 0 or not check, f"oculora {args}: exit {done.returncode}\n{done.stdout}{done.stderr}"
        return done

    def add_user(self, name, password, admin=False, allow=None):
        options = (["--admin"] if admin else []) + (["--allow", allow] if allow is not None else [])
        self.oculora("user", "add", name, *options, "--password-stdin", input=password + "\n")

    def add_camera(self, name, type, source, **opts):
        """Adds a camera and returns its id; `opts` are the command's options (fps=5, stay_on=True, ...)."""
        options = [f"--{key.replace('_', '-')}" + ("" if value is True else f"={value}") for key, value in opts.items()]
        return int(self.oculora("camera", "add", name, "--type", type, "--source", source, *options).stdout)

    def camera(self, id):
        """What `oculora status` says of a camera, None when it is not there."""
        cameras = json.loads(self.oculora("status", "--json").stdout)["cameras"]
        return next((camera for camera in cameras if camera["id"] == id), None)

    def serve(self, *options):
        """Starts the server and waits until it answers; sets `url` and `port`."""
        with open(self.write(SERVE_LOG), "wb") as log:
            argv = [os.path.join(BUILD, "bin", "oculora"), "serve", "--port", self.serve_port, "--bind", self.address,
                    *options]
            self.server = self.popen(argv, stdin=subprocess.DEVNULL, stdout=log, stderr=subprocess.STDOUT)

        def serving_at():
            assert self.server.poll() is None, "oculora serve ended:\n" + self.read(SERVE_LOG)
            return re.search(rf"(http://{re.escape(self.address)}:(\d+))/", self.read(SERVE_LOG))

        self.url, port = wait_until(serving_at, 60, "the server's address").groups()
        self.port = int(port)
        return self.url

    def stop(self, sig=signal.SIGTERM):
        """Ends the server and returns its exit code; None when it was not running."""
        server, self.server = self.server, None
        return end(server, sig=sig) if server else None

    def request(self, method, path, body=None, headers=None):
        """One HTTP request: (status, headers, bytes)."""
        with contextlib.closing(http.client.HTTPConnection(self.address, self.port, timeout=60)) as connection:
            connection.request(method, path, body=body, headers=headers or {})
            answer = connection.getresponse()
            return answer.status, answer.headers, answer.read()

    def get(self, path, headers=None):
        """(headers, bytes) of a GET; the headers carry the HTTP status as `headers.status`."""
        status, answer_headers, body = self.request("GET", path, headers=headers)
        answer_headers.status = status
        return answer_headers, body

    def api_path(self, api, method, params=None, sid=None):
        query = {"api": api, "version": 1, "method": method, **(params or {}), **({"_sid": sid} if sid else {})}
        return "/webapi/entry.cgi?" + urllib.parse.urlencode(query)

    def api(self, api, method, params=None, sid=None):
        """(headers, answer) of a web-API call with GET; the answer is parsed when it is JSON, else bytes."""
        headers, body = self.get(self.api_path(api, method, params, sid))
        with contextlib.suppress(ValueError):
            body = json.loads(body)
        return headers, body

    def login(self, name, password):
        """Logs in over the web API and returns the session id."""
        form = urllib.parse.urlencode({"api": "VELM.Oculora.Account", "version": 1, "method": "Login", "account": name,
                                       "passwd": password})
        answer = json.loads(self.request("POST", "/webapi/entry.cgi", form, {"Content-Type": FORM})[2])
        assert answer["success"], f"log-in of {name} failed: {answer}"
        return answer["data"]["sid"]

    def path(self, inside):
        """Where a path inside the site lies on the machine."""
        return re.sub("^(/tmp|/var/packages)(?=/|$)", lambda at: f"{self.dir}/{os.path.basename(at[1])}", inside)

    def read(self, inside):
        """The text of a file of the site, "" when there is none."""
        return _text(self.path(inside))

    def write(self, inside, content=""):
        """Makes a file of the site, of text or bytes, and returns its path outside."""
        file = pathlib.Path(self.path(inside))
        file.write_bytes(content.encode() if isinstance(content, str) else content)
        return str(file)

    def log(self):
        return self.read(LOG)

    def processes(self):
        """{pid: command line} of everything that runs inside the site."""
        found = {}
        for pid in filter(str.isdigit, os.listdir("/proc")):
            with contextlib.suppress(OSError):  # ended meanwhile, or a kernel thread
                if os.path.samefile(f"/proc/{pid}/root/tmp", self.path("/tmp")):
                    with open(f"/proc/{pid}/cmdline", errors="replace") as line:
                        found[int(pid)] = line.read().replace("\0", " ").strip()
        return found

    def pids(self, pattern):
        """The processes inside the site whose command lines match."""
        return [pid for pid, line in self.processes().items() if re.search(pattern, line)]

    def shared_memory(self):
        """The lines of the SysV shared memory segments of the running site."""
        listing = ["tail", "-n", "+2", "/proc/sysvipc/shm"]
        return self.run(listing, text=True, capture_output=True, check=True).stdout.splitlines()

    def close(self, failed=False):
        """Ends everything in the site and removes it. Harmless when repeated."""
        try:
            for process in self._started:
                end(process)
            for pid, line in self.processes().items():
                print(f"still running in the site, killed: {pid} {line}", file=sys.stderr)
                with contextlib.suppress(ProcessLookupError):
                    os.kill(pid, signal.SIGKILL)
            wait_until(lambda: not self.processes(), 30, "killed processes to go")
        finally:
            for path in filter(os.path.exists, map(self.path, (SERVE_LOG, LOG, FRONT_LOG) if failed else ())):
                kept = os.path.join(BUILD, "site-logs", f"{os.path.basename(self.dir)}-{os.path.basename(path)}")
                os.makedirs(os.path.dirname(kept), exist_ok=True)
                shutil.copyfile(path, kept)
                print(f"--- the end of {kept}:\n{_text(path)[-4000:]}", file=sys.stderr)
            if "OCULORA_KEEP_SITES" in os.environ:
                print(f"site kept in {self.dir}", file=sys.stderr)
            else:
                shutil.rmtree(self.dir, ignore_errors=True)
