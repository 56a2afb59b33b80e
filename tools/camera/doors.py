"""Doors in front of the RTSP server: one encrypts, others are a slow link. They carry RTSP over TCP only."""
import contextlib
import queue
import re
import select
import socket
import threading
import time

HOST = "127.0.0.1"
CHUNK_BYTES = 64 * 1024
# What waits in front of a narrow link: a router's memory. What the system would take unasked is seconds of it.
WAITING_MESSAGES = 32
RECEIVE_BUFFER_BYTES = 32 * 1024
VIDEO_CHANNEL = 0  # where clients ask for the picture first, and all do


class Door:
    """Accepts connections and serves each on a thread of its own, which lives as long as the one behind it."""

    def __init__(self, port, scheme):
        self.port = port
        self.listener = socket.create_server((HOST, 0))
        self.url = f"{scheme}://{HOST}:{self.listener.getsockname()[1]}/"
        threading.Thread(target=self.accept, daemon=True).start()

    def accept(self):
        with contextlib.suppress(OSError):  # closed
            while True:
                client, _address = self.listener.accept()
                threading.Thread(target=self.serve, args=(client,), daemon=True).start()

    def close(self):
        with contextlib.suppress(OSError):
            self.listener.shutdown(socket.SHUT_RDWR)  # wakes accept, which a mere close does not
        self.listener.close()


class TlsDoor(Door):
    """RTSPS: what comes encrypted goes on to the RTSP server in the clear, and back."""

    def __init__(self, port, tls):
        self.tls = tls
        super().__init__(port, "rtsps")

    def serve(self, client):
        with contextlib.suppress(OSError), client, \
                self.tls.wrap_socket(client, server_side=True) as encrypted, \
                socket.create_connection((HOST, self.port)) as plain:
            while True:
                ready = [encrypted] if encrypted.pending() else select.select([encrypted, plain], [], [])[0]
                for source in ready:
                    data = source.recv(CHUNK_BYTES)
                    if not data:
                        return
                    (plain if source is encrypted else encrypted).sendall(data)


class SlowDoor(Door):
    """A link on which everything from the camera comes delay_s later, or no faster than bits_per_s. What the client
    says passes at once. A stream played through it has a moment of its own: its path follows the door's name."""

    def __init__(self, port, name, moments, bits_per_s=None, delay_s=0.0):
        self.name, self.moments, self.bits_per_s, self.delay_s = name, moments, bits_per_s, delay_s
        super().__init__(port, "rtsp")

    def serve(self, client):
        with contextlib.suppress(OSError), client, socket.socket() as camera:
            camera.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, RECEIVE_BUFFER_BYTES)
            camera.connect((HOST, self.port))
            for connection in (client, camera):
                connection.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
            SlowConnection(self, client, camera).relay()


class SlowConnection:
    def __init__(self, door, client, camera):
        self.door, self.client, self.camera = door, client, camera
        self.path = None  # what the client has asked to play; written by the thread that reads it
        # (moment of arrival, message) from the camera, None at its end; of a narrow link few
        self.waiting = queue.Queue(WAITING_MESSAGES if door.bits_per_s else 0)

    def relay(self):
        threads = [threading.Thread(target=work, daemon=True) for work in (self.forward_requests, self.send)]
        for thread in threads:
            thread.start()
        with contextlib.suppress(OSError), self.camera.makefile("rb") as stream:
            while message := next_message(stream):
                self.waiting.put((time.monotonic(), message))
        self.waiting.put(None)
        for thread in threads:
            thread.join()

    def forward_requests(self):
        with contextlib.suppress(OSError):
            while data := self.client.recv(CHUNK_BYTES):
                if play := re.search(rb"PLAY rtsp://[^/ ]+(/[^ ?]*?)/? RTSP", data):
                    self.path = play[1].decode()
                    self.door.moments.ask(self.door.name + self.path)
                self.camera.sendall(data)
        with contextlib.suppress(OSError):
            self.camera.shutdown(socket.SHUT_RDWR)  # ends the reading from it too

    def send(self):
        door, free_s = self.door, 0.0
        gone = False
        while item := self.waiting.get():
            arrived_s, message = item
            if gone:
                continue  # until the camera's end is heard of
            due_s = arrived_s + door.delay_s
            if door.bits_per_s:
                due_s = free_s = max(free_s, arrived_s) + 8 * len(message) / door.bits_per_s
            time.sleep(max(0.0, due_s - time.monotonic()))
            # Noted first: a client that has the picture can ask for its moment.
            left_s = time.monotonic()
            if message[:2] == bytes((ord("$"), VIDEO_CHANNEL)) \
                    and door.moments.is_end_of_key(self.path, message[4:]):
                door.moments.picture(door.name + self.path, began_s=left_s, left_s=left_s)
            try:
                self.client.sendall(message)
            except OSError:
                gone = True
        with contextlib.suppress(OSError):
            self.client.shutdown(socket.SHUT_RDWR)


def next_message(stream):
    """A packet or an answer out of what the camera sends; empty at the end."""
    head = stream.read(1)
    if head == b"$":
        head += stream.read(3)
        return head + stream.read(int.from_bytes(head[2:], "big"))
    while head and not head.endswith(b"\r\n\r\n"):
        line = stream.readline()
        if not line:
            return b""
        head += line
    length = re.search(rb"\r\ncontent-length:\s*(\d+)", head, re.I)
    return head + (stream.read(int(length[1])) if length else b"")
