"""An HTTP camera that sends MJPEG in the many ways real ones do, and remembers what it sent.

The address says how it behaves: /plain, /nolength (parts without Content-Length), /quoted (the announced boundary has
dashes of its own and stands in quotes), /nodashes (boundary lines without them), /otherboundary (announces one, sends
another), /padded (zero bytes after each picture, counted in Content-Length), /avi1 (without Huffman tables, as in AVI
files), /junk (every third part is half a picture), /password (asks for admin:secret), /missing (404), /broken (500),
/html (answers with a page), /stall (three pictures and then nothing more), /silent (never answers), /dies (closes the
connection in the middle of the fifth picture).
"""

import hashlib
import http.server
import itertools
import pathlib
import socket
import struct
import subprocess
import tempfile
import threading
import time

BOUNDARIES = {"quoted": ('"--pic"', b"--pic"), "nodashes": ("pic", b"pic"), "otherboundary": ("first", b"--second")}


def make_pictures():
    """15 JPEGs with the standard Huffman tables, no two alike."""
    with tempfile.TemporaryDirectory() as folder:
        subprocess.run(["ffmpeg", "-v", "error", "-f", "lavfi", "-i", "testsrc2=size=640x360", "-frames:v", "15",
                        "-c:v", "mjpeg", "-q:v", "3", "-huffman", "default", folder + "/%02d.jpg"], check=True)
        return [file.read_bytes() for file in sorted(pathlib.Path(folder).iterdir())]


def without_tables(picture):
    """A JPEG that uses the standard Huffman tables, with these and APP0 replaced by an APP0 that says "AVI1"."""
    at, kept = 2, b"\xff\xd8\xff\xe0\x00\x10AVI1" + bytes(10)
    while picture[at + 1] != 0xDA:
        end = at + 2 + int.from_bytes(picture[at + 2: at + 4], "big")
        if picture[at + 1] not in (0xC4, 0xE0):
            kept += picture[at:end]
        at = end
    return kept + picture[at:]


class _Connection(http.server.BaseHTTPRequestHandler):
    log_message = lambda *_: None  # noqa: E731

    def do_GET(self):
        variant = self.path.strip("/")
        announced, boundary = BOUNDARIES.get(variant, ("pic", b"--pic"))
        status = {"missing": 404, "broken": 500}.get(variant, 200)
        if variant == "password" and self.headers["Authorization"] != "Basic YWRtaW46c2VjcmV0":
            status = 401
        if variant == "silent":
            self.hold()
        self.send_response(status)
        self.send_header("WWW-Authenticate", 'Basic realm="camera"')
        html = variant == "html"
        self.send_header("Content-Type", "text/html" if html else f"multipart/x-mixed-replace; boundary={announced}")
        self.end_headers()
        if html:
            self.wfile.write(b"<html><body>Please log in</body></html>\n" * 20)
        elif status == 200:
            self.stream(variant, boundary)

    def hold(self):  # until the client leaves
        while self.connection.recv(1024):
            pass

    def stream(self, variant, boundary):
        for number, picture in enumerate(itertools.cycle(self.server.pictures)):
            if variant == "stall" and number == 3:
                return self.hold()
            self.server.sent.add(hashlib.sha256(picture).hexdigest())
            half = picture[: len(picture) // 2]
            if variant == "dies" and number == 4:
                self.part(boundary, half, len(picture))
                # Without the usual goodbye, as a camera that loses power and answers again later.
                self.connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
                return self.connection.close()
            body = {"avi1": without_tables(picture), "padded": picture + bytes(7),
                    "junk": half if number % 3 == 2 else picture}.get(variant, picture)
            self.part(boundary, body, None if variant == "nolength" else len(body))
            time.sleep(0.1)

    def part(self, boundary, body, length):
        header = b"" if length is None else b"Content-Length: %d\r\n" % length
        self.wfile.write(boundary + b"\r\nContent-Type: image/jpeg\r\n" + header + b"\r\n" + body + b"\r\n")


class MjpegCamera(http.server.ThreadingHTTPServer):
    """Runs with the test. `pictures` are shown at 10 a second, `sent` has the SHA-256 of each that went out."""

    daemon_threads = True
    handle_error = lambda *_: None  # noqa: E731: the client left

    def __init__(self):
        super().__init__(("127.0.0.1", 0), _Connection)
        self.pictures, self.sent, self.address = make_pictures(), set(), f"127.0.0.1:{self.server_address[1]}"
        threading.Thread(target=self.serve_forever, daemon=True).start()
