"""Viewers of live streams, and what a picture delivered to one of them costs."""

import selectors
import socket
import statistics
import time

from front import children, family_cpu, proportional_kb, wait_until


class Crowd:
    """Clients that read everything and count bytes."""

    def __init__(self, port, path, count):
        self.selector = selectors.DefaultSelector()
        self.bytes = 0
        self.buffer = bytearray(1 << 20)
        for _ in range(count):
            client = socket.create_connection(("127.0.0.1", port))
            client.sendall(f"GET {path} HTTP/1.0\r\n\r\n".encode())
            client.setblocking(False)
            self.selector.register(client, selectors.EVENT_READ)

    def read_for(self, seconds):
        end = time.monotonic() + seconds
        while time.monotonic() < end:
            for key, _ in self.selector.select(0.1):
                try:
                    count = key.fileobj.recv_into(self.buffer)
                except BlockingIOError:
                    continue
                if count == 0:
                    raise SystemExit("a stream ended during the measurement")
                self.bytes += count

    def close(self):
        for key in list(self.selector.get_map().values()):
            key.fileobj.close()
        self.selector.close()


def measure(front, path, viewers, seconds, picture_bytes, fps, warm_up=1.5):
    """(CPU ms per delivered picture, delivered share, median proportional KB of a request process)."""
    pid = front.pid()
    crowd = Crowd(front.port, path, viewers)
    try:
        crowd.read_for(warm_up)
        crowd.bytes, before = 0, family_cpu(pid)
        start = time.monotonic()
        crowd.read_for(seconds)
        spent, elapsed = family_cpu(pid) - before, time.monotonic() - start
        memory = statistics.median(proportional_kb(child) for child in children(pid))
    finally:
        crowd.close()
    wait_until(lambda: not children(pid), 10, "the requests to end")
    pictures = crowd.bytes / picture_bytes
    return spent * 1000 / pictures, pictures / (elapsed * fps * viewers), memory
