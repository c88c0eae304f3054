#!/usr/bin/python3
"""An HTTP camera that sends MJPEG in the many ways real ones do, and writes down what it sent.

    mjpeg_server.py LOG [--port N] [--pictures FILE...] [--fps N]

Prints "READY PORT". For every whole picture it sends it appends its SHA-256 to the file LOG. /VARIANT says how it
behaves; VARIANTS lists them. Ends on SIGTERM.
"""

import argparse
import base64
import hashlib
import http.server
import itertools
import socket
import struct
import sys
import threading
import time

VARIANTS = {
    "plain": "boundary and lengths as the books say",
    "nolength": "parts without Content-Length",
    "quoted": "the announced boundary has dashes of its own and stands in quotes",
    "nodashes": "boundary lines without leading dashes",
    "otherboundary": "announces one boundary, sends another",
    "padded": "zero bytes after each picture, counted in Content-Length",
    "avi1": "pictures without Huffman tables, as in AVI files; LOG names the pictures they were made of",
    "junk": "every third part is half a picture",
    "password": "asks for admin:secret (basic authentication)",
    "missing": "404",
    "broken": "500",
    "html": "answers with a page",
    "stall": "answers, sends three pictures and then nothing more",
    "silent": "takes the connection and never answers",
    "dies": "closes the connection in the middle of the fifth picture",
}


def without_tables(picture):
    """A JPEG that uses the standard Huffman tables, with these and APP0 replaced by an APP0 that says "AVI1"."""
    at, kept = 2, b"\xff\xd8\xff\xe0\x00\x10AVI1" + bytes(10)
    while picture[at + 1] != 0xDA:
        end = at + 2 + int.from_bytes(picture[at + 2: at + 4], "big")
        if picture[at + 1] not in (0xC4, 0xE0):
            kept += picture[at:end]
        at = end
    return kept + picture[at:]


class Camera(http.server.BaseHTTPRequestHandler):
    pictures = []
    interval = 0.1
    log_path = None
    lock = threading.Lock()

    def log_message(self, *_):
        pass

    def do_GET(self):
        variant = self.path.strip("/").split("?")[0]
        if variant not in VARIANTS or variant == "missing":
            self.send_error(404)
        elif variant == "broken":
            self.send_error(500)
        elif variant == "silent":
            self.hold()
        elif variant == "html":
            self.answer("text/html")
            self.wfile.write(b"<html><body>Please log in</body></html>\n" * 20)
        elif variant == "password" and not self.is_authorised():
            self.send_response(401)
            self.send_header("WWW-Authenticate", 'Basic realm="camera"')
            self.end_headers()
        else:
            self.stream(variant)

    def is_authorised(self):
        expected = "Basic " + base64.b64encode(b"admin:secret").decode()
        return self.headers.get("Authorization") == expected

    def hold(self):
        """Until the client leaves."""
        self.connection.settimeout(None)
        while self.connection.recv(1024):
            pass

    def answer(self, content_type):
        self.send_response(200)
        self.send_header("Content-Type", content_type)
        self.end_headers()

    def stream(self, variant):
        announced = {"quoted": '"--pic"', "otherboundary": "first"}.get(variant, "pic")
        self.answer(f"multipart/x-mixed-replace; boundary={announced}")
        line = {"nodashes": b"pic\r\n", "otherboundary": b"--second\r\n"}.get(variant, b"--pic\r\n")
        try:
            for number, picture in enumerate(itertools.cycle(self.pictures)):
                if variant == "stall" and number == 3:
                    self.hold()
                    return
                if variant == "dies" and number == 4:
                    self.part(line, picture[: len(picture) // 2], len(picture))
                    self.reset()
                    return
                if variant == "junk" and number % 3 == 2:
                    half = picture[: len(picture) // 2]
                    self.part(line, half, len(half))
                else:
                    padding = bytes(7) if variant == "padded" else b""
                    self.note(picture)
                    if variant == "avi1":
                        picture = without_tables(picture)
                    length = None if variant == "nolength" else len(picture) + len(padding)
                    self.part(line, picture + padding, length)
                time.sleep(self.interval)
        except (BrokenPipeError, ConnectionResetError):
            pass  # the client left

    def part(self, line, body, length):
        header = b"Content-Type: image/jpeg\r\n"
        if length is not None:
            header += b"Content-Length: %d\r\n" % length
        self.wfile.write(line + header + b"\r\n" + body + (b"\r\n" if length is None or length == len(body) else b""))

    def note(self, picture):
        """Before it is sent: whoever received it finds it here."""
        with self.lock, open(self.log_path, "a") as log:
            log.write(hashlib.sha256(picture).hexdigest() + "\n")

    def reset(self):
        """Closes without the usual goodbye, as a camera that loses power and answers again later does."""
        self.connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
        self.connection.close()


class Server(http.server.ThreadingHTTPServer):
    daemon_threads = True
    allow_reuse_address = True

    def handle_error(self, *_):
        pass


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("log")
    parser.add_argument("--port", type=int, default=0)
    parser.add_argument("--pictures", nargs="+", required=True)
    parser.add_argument("--fps", type=float, default=10)
    arguments = parser.parse_args()
    Camera.log_path = arguments.log
    Camera.interval = 1 / arguments.fps
    for path in arguments.pictures:
        with open(path, "rb") as file:
            Camera.pictures.append(file.read())
    server = Server(("127.0.0.1", arguments.port), Camera)
    print("READY", server.server_address[1], flush=True)
    server.serve_forever()


if __name__ == "__main__":
    sys.exit(main())
