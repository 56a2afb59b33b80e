"""A network camera that fails on command.

The broker knows one address for the whole run, `url`, and plays RTSP over TCP from it. The pictures are those of the
local camera's streams, one of which is shown at a time. Towards the local camera there is one steady viewer a stream:
faults must not reach it, since it does not survive every one of them.
"""
import contextlib
import ctypes
import random
import re
import socket
import struct
import threading

HOST = "127.0.0.1"
PATIENCE_S = 5
SEND_PATIENCE = struct.pack("ll", 2, 0)  # seconds, microseconds
MOST_WAITING_BYTES = 64 * 1024  # about a third of a second
RTP_HEADER_BYTES = 12
UNDEFINED_KIND = b"\xff"  # begins a payload; neither in H.264 nor in H.265
MEDIA_CHANNEL = 0  # 1 carries the reports
TICKS_PER_PICTURE = 90_000 // 16
UNSPECIFIED_ADDRESS = bytes(16)


class Ended(Exception):
    """The other side has closed, or was made to."""


class RtspMessages:
    """Whole messages out of a connection: an answer, a request, or an interleaved packet with its four bytes."""

    def __init__(self, connection):
        self._file = connection.makefile("rb")

    def _exactly(self, count):
        data = self._file.read(count)
        if len(data) != count:
            raise Ended
        return data

    def next(self):
        try:
            first = self._exactly(1)
            if first == b"$":
                rest = self._exactly(3)
                return first + rest + self._exactly(int.from_bytes(rest[1:], "big"))
            head = first
            while not head.endswith(b"\r\n\r\n"):
                line = self._file.readline()
                if not line:
                    raise Ended
                head += line
            length = re.search(rb"\r\ncontent-length:\s*(\d+)", head, re.I)
            return head + (self._exactly(int(length[1])) if length else b"")
        except (OSError, ValueError) as error:
            raise Ended from error


def is_media(message):
    return message[:2] == bytes((ord("$"), MEDIA_CHANNEL)) and len(message) >= 4 + RTP_HEADER_BYTES


class Player:
    """A viewer of one stream, which takes its media packets."""

    def __init__(self, url):
        host, port = re.match(r"rtsp://([^:/]+):(\d+)/", url).groups()
        self.connection = socket.create_connection((host, int(port)), PATIENCE_S)
        self._messages, self._sequence = RtspMessages(self.connection), 0
        self.description = self.ask("DESCRIBE", url, "Accept: application/sdp").partition(b"\r\n\r\n")[2]
        control = re.search(r"m=video.*?\r\na=control:(\S+)", self.description.decode(), re.S)[1]
        track = control if "://" in control else f"{url}/{control}"
        answer = self.ask("SETUP", track, "Transport: RTP/AVP/TCP;unicast;interleaved=0-1").decode()
        session = re.search(r"\r\nSession:\s*([^;\r]+)", answer)[1]
        self.ask("PLAY", url, f"Session: {session}")
        self.connection.settimeout(None)

    def ask(self, method, url, *headers):
        self._sequence += 1
        lines = [f"{method} {url} RTSP/1.0", f"CSeq: {self._sequence}", *headers, "", ""]
        try:
            self.connection.sendall("\r\n".join(lines).encode())
        except OSError as error:
            raise Ended from error
        while (answer := self._messages.next()).startswith(b"$"):
            pass
        if not answer.startswith(b"RTSP/1.0 200"):
            raise Ended(answer.partition(b"\r\n")[0].decode())
        return answer

    def next_media(self):
        while not is_media(message := self._messages.next()):
            pass
        return message


def waiting_bytes(port, client_port):
    """What a client of this machine has not yet taken from its end of a connection."""
    ends = f"0100007F:{client_port:04X} 0100007F:{port:04X}"
    with open("/proc/net/tcp") as table:
        for line in table:
            if ends in line:
                return int(line.split()[4].partition(":")[2], 16)
    return 0


class Splice:
    """Lets packets of another stream follow those of the first: one source, one numbering, one clock."""

    def __init__(self):
        self._stream = self._identity = None
        self._sequence = self._ticks = self._shift = 0

    def rewritten(self, message, stream):
        flags, kind, sequence, ticks, identity = struct.unpack_from("!BBHII", message, 4)
        if self._identity is None:
            self._identity, self._sequence = identity, sequence - 1
        elif stream is not self._stream:
            self._shift = self._ticks + TICKS_PER_PICTURE - ticks
        self._stream = stream
        self._sequence, self._ticks = (self._sequence + 1) & 0xFFFF, (ticks + self._shift) & 0xFFFFFFFF
        return message[:4] + struct.pack("!BBHII", flags, kind, self._sequence, self._ticks, self._identity) + \
            message[4 + RTP_HEADER_BYTES:]

    def skip_time(self):
        """What comes next follows the last packet as if nothing had been between them."""
        self._stream = None


def close(connection):
    with contextlib.suppress(OSError):
        connection.shutdown(socket.SHUT_RDWR)
    with contextlib.suppress(OSError):
        connection.close()


def reset(connection):
    """The other side gets a reset at once, though a thread of ours may be reading: connecting to nowhere does that."""
    with contextlib.suppress(OSError):
        ctypes.CDLL(None).connect(connection.fileno(), UNSPECIFIED_ADDRESS, len(UNSPECIFIED_ADDRESS))
    close(connection)


class Viewer:
    """One connection of a client, served on a thread of its own."""

    def __init__(self, camera, connection):
        self._camera, self._connection = camera, connection
        self._splice, self._lock = Splice(), threading.Lock()
        self.plays = False
        self._ports = connection.getsockname()[1], connection.getpeername()[1]
        # A client that takes nothing for so long is given up.
        connection.setsockopt(socket.SOL_SOCKET, socket.SO_SNDTIMEO, SEND_PATIENCE)
        threading.Thread(target=self._serve, daemon=True).start()

    def _serve(self):
        requests = RtspMessages(self._connection)
        try:
            while True:
                request = requests.next()
                if request.startswith(b"$"):
                    continue
                self._camera.wait_while_silent()
                method = request.partition(b" ")[0]
                self._send(self._camera.answer(method, request))
                self.plays |= method == b"PLAY"
        except (Ended, OSError):
            self.end(close)

    def _send(self, data):
        with self._lock:
            self._connection.sendall(data)

    def give(self, message, stream, noise):
        """`noise`: what takes the place of the payload, or None. A client that lags misses packets and their time: what
        lay in wait for it would hide what happens to the camera."""
        try:
            if waiting_bytes(*self._ports) > MOST_WAITING_BYTES:
                self.skip_time()
                return
            message = self._splice.rewritten(message, stream)
            self._send(message if noise is None else message[:4 + RTP_HEADER_BYTES] + noise)
        except OSError:
            self.end(close)

    def skip_time(self):
        self._splice.skip_time()

    def end(self, how):
        self.plays = False
        how(self._connection)
        self._camera.forget(self)


class UnreliableCamera:
    """Every method may be called from any thread, and returns when it is in effect. `source`: the local camera's
    RTSP address; `stream`: the one that is shown first; `seed`: of the garbage."""

    def __init__(self, source, stream, seed=0):
        self._source = source
        self._answers, self._garbles_media = "true", False
        self._random, self._lock = random.Random(seed), threading.Lock()
        self._speaks = threading.Event()
        self._speaks.set()
        self._viewers, self._players = set(), {}
        self.show(stream)
        self._listener, self._port = None, 0
        self.come_back()
        self.url = f"rtsp://{HOST}:{self._port}/live"

    def show(self, stream):
        """From now on this stream of the local camera is sent. Connections that play go on under the payload type,
        source and clock that were described: another size in mid-stream, or a codec that was not announced. New viewers are told
        what it is."""
        if stream not in self._players:
            self._players[stream] = Player(self._source + stream)
            threading.Thread(target=self._distribute, args=(stream,), daemon=True).start()
        self.stream = stream

    # --- Faults ---

    def drop(self):
        """Every connection is reset. New ones are welcome, unless something else was said before."""
        for viewer in self._all():
            viewer.end(reset)

    def freeze(self):
        """Connections stay open and nothing is sent; new ones are accepted and hear nothing."""
        self._speaks.clear()

    def thaw(self):
        """Live packets go on. Those of the frozen time are lost, and the time with them: the stream's clock stood still.
        Requests that waited are answered."""
        self._speaks.set()

    def garble_media(self):
        """Every media packet keeps its RTP header, and carries noise behind it: of a kind that no codec defines, for a
        decoder takes some noise for pieces of pictures, and conceals the rest."""
        self._garbles_media = True

    def answer_garbage(self):
        """Every connection is reset, and to each request of a new one come 512 bytes of noise."""
        self._answers = "garbage"
        self.drop()

    def refuse(self):
        """Every connection is reset, and each request of a new one is answered with 401, whatever it carries."""
        self._answers = "refused"
        self.drop()

    def go_away(self):
        """Every connection is reset, and no socket listens: new ones are refused by the system."""
        listener, self._listener = self._listener, None
        if listener:
            close(listener)
        self.drop()

    def come_back(self):
        if self._listener:
            return
        self._listener = socket.create_server((HOST, self._port))
        self._port = self._listener.getsockname()[1]
        threading.Thread(target=self._accept, args=(self._listener,), daemon=True).start()

    def heal(self):
        """Ends every fault. What is broken stays broken: a client has to come anew."""
        self._answers, self._garbles_media = "true", False
        self.thaw()
        self.come_back()

    def close(self):
        self.go_away()
        self.thaw()
        for player in self._players.values():
            close(player.connection)

    # --- For its viewers ---

    def wait_while_silent(self):
        self._speaks.wait()

    def answer(self, method, request):
        if self._answers == "garbage":
            return self._noise(512)
        number = re.search(rb"\r\ncseq:\s*(\d+)", request, re.I)
        head = b"\r\nCSeq: " + (number[1] if number else b"0") + b"\r\n"
        if self._answers == "refused":
            return (b"RTSP/1.0 401 Unauthorized" + head + b'WWW-Authenticate: Digest realm="camera", nonce="5e1f"\r\n'
                    b'WWW-Authenticate: Basic realm="camera"\r\n\r\n')
        if method == b"OPTIONS":
            return b"RTSP/1.0 200 OK" + head + b"Public: OPTIONS, DESCRIBE, SETUP, PLAY, TEARDOWN\r\n\r\n"
        if method == b"DESCRIBE":
            description = self._players[self.stream].description
            return (b"RTSP/1.0 200 OK" + head + f"Content-Base: {self.url}/\r\nContent-Type: application/sdp\r\n"
                    f"Content-Length: {len(description)}\r\n\r\n".encode() + description)
        if method == b"SETUP":
            if b"RTP/AVP/TCP" not in request:
                return b"RTSP/1.0 461 Unsupported Transport" + head + b"\r\n"
            head += b"Transport: RTP/AVP/TCP;unicast;interleaved=0-1\r\n"
        return b"RTSP/1.0 200 OK" + head + b"Session: 1\r\n\r\n"

    def forget(self, viewer):
        with self._lock:
            self._viewers.discard(viewer)

    def _noise(self, count):
        with self._lock:
            return self._random.randbytes(count)

    def _all(self):
        with self._lock:
            return list(self._viewers)

    def _accept(self, listener):
        with contextlib.suppress(OSError):
            while True:
                connection, _ = listener.accept()
                with self._lock:
                    self._viewers.add(Viewer(self, connection))

    def _distribute(self, stream):
        player = self._players[stream]
        with contextlib.suppress(Ended, OSError):
            while True:
                message = player.next_media()
                if stream != self.stream:
                    continue
                if not self._speaks.is_set():
                    for viewer in self._all():
                        viewer.skip_time()
                    continue
                payload_bytes = len(message) - 4 - RTP_HEADER_BYTES
                noise = (UNDEFINED_KIND + self._noise(payload_bytes))[:payload_bytes] if self._garbles_media else None
                for viewer in self._all():
                    if viewer.plays:
                        viewer.give(message, stream, noise)
