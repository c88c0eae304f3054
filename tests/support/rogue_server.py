"""A host that notes what it is asked and answers as it is told: wrongly, never, or as a real host does."""

import contextlib
import dataclasses
import http.client
import select
import socket
import socketserver
import sys
import threading


@dataclasses.dataclass
class Request:
    method: str
    target: str  # path and query, as they came
    headers: http.client.HTTPMessage
    body: bytes


class RogueServer(socketserver.ThreadingTCPServer):
    """Runs until the `with` block ends. `requests` are those that came; `connections` those that are being answered.

    `answer(connection, request)` sends the answer to the connection, which is closed when it returns; it may be set to
    another one at any time. The functions below are or make such answers.
    """

    daemon_threads = True
    block_on_close = False
    request_queue_size = 64

    def __init__(self, answer, address="127.0.0.1"):
        super().__init__((address, 0), None)
        self.answer, self.requests, self.connections = answer, [], set()
        self.url = f"http://{address}:{self.server_address[1]}"
        self._loop = threading.Thread(target=self.serve_forever, args=(0.05,))
        self._loop.start()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.shutdown()
        self._loop.join()
        self.server_close()
        for connection in list(self.connections):
            with contextlib.suppress(OSError):
                connection.shutdown(socket.SHUT_RDWR)

    def finish_request(self, connection, client):
        self.connections.add(connection)
        try:
            request = _read_request(connection)
            if request:
                self.requests.append(request)
                self.answer(connection, request)
        finally:
            self.connections.discard(connection)

    def handle_error(self, connection, client):
        if not isinstance(sys.exc_info()[1], OSError):  # the client may leave at any time
            super().handle_error(connection, client)


def _read_request(connection):
    with connection.makefile("rb") as file:
        words = file.readline().decode("latin-1").split()
        if len(words) != 3:
            return None
        headers = http.client.parse_headers(file)
        return Request(words[0], words[1], headers, file.read(int(headers.get("Content-Length", 0))))


def _head(status, *fields):
    lines = [f"HTTP/1.1 {status}", "Connection: close", *fields]
    return "".join(f"{line}\r\n" for line in [*lines, ""]).encode()


def whole(body, content_type="application/json", status="200 OK", *fields):
    """The body, complete."""
    head = _head(status, f"Content-Type: {content_type}", f"Content-Length: {len(body)}", *fields)
    return lambda connection, _: connection.sendall(head + body)


def redirect(location):
    head = _head("302 Found", f"Location: {location}", "Content-Length: 0")
    return lambda connection, _: connection.sendall(head)


def forward(site):
    """What a served site answers, as it comes."""

    def answer(client, request):
        kept = [f"{name}: {value}\r\n" for name, value in request.headers.items() if name.lower() != "connection"]
        head = f"{request.method} {request.target} HTTP/1.1\r\n{''.join(kept)}Connection: close\r\n\r\n"
        with socket.create_connection((site.address, site.port), 10) as remote:
            remote.sendall(head.encode("latin-1") + request.body)
            while True:
                if client in select.select([client, remote], [], [])[0]:
                    return  # it has sent all it had, so this is its end
                data = remote.recv(65536)
                if not data:
                    return
                client.sendall(data)

    return answer


def garbage(connection, _):
    connection.sendall(bytes(range(256)) * 16)


def cut_short(connection, _):
    """Closes in the middle of the body."""
    head = _head("200 OK", "Content-Type: application/json", "Content-Length: 1000")
    connection.sendall(head + b'{"success":true')


def endless_headers(connection, _):
    connection.sendall(b"HTTP/1.1 200 OK\r\n")
    while True:
        connection.sendall(b"X-More: " + b"x" * 1000 + b"\r\n")
