"""The camera's HTTP and HTTPS side."""
import base64
import contextlib
import functools
import http.server
import json
import re
import shutil
import socket
import ssl
import subprocess
import sys
import threading
import time

from gstreamer import Gst, refuse
from moments import watch_muxed
from sources import PICTURE, open_late, playlists, recordings, run_clock, web_streams

HOST = "127.0.0.1"
HLS_IDLE_SECONDS = 5
HLS_START_SECONDS = 5
CHUNK_BYTES = 64 * 1024
TS_PACKET_BYTES = 188
TS_PICTURE_START = bytes((0x40, 65))  # the beginning of a unit of the first track
PLAYLIST_TYPE = "application/vnd.apple.mpegurl"


def make_whole(launch):
    """Runs a pipeline to its end. Answers with the first picture, encoded."""
    pipeline = Gst.parse_launch(launch)
    first = b""

    def on_picture(_pad, info):
        nonlocal first
        first = info.get_buffer().extract_dup(0, info.get_buffer().get_size())
        return Gst.PadProbeReturn.REMOVE

    pipeline.get_by_name(PICTURE).get_static_pad("src").add_probe(Gst.PadProbeType.BUFFER, on_picture)
    pipeline.set_state(Gst.State.PLAYING)
    pipeline.get_bus().timed_pop_filtered(Gst.CLOCK_TIME_NONE, Gst.MessageType.EOS | Gst.MessageType.ERROR)
    pipeline.set_state(Gst.State.NULL)
    return first


def end_of_first_picture(segment):
    """How many bytes of a transport stream hold it: the second one begins there."""
    starts = [at for at in range(0, len(segment), TS_PACKET_BYTES)
              if segment[at + 1:at + 3] == TS_PICTURE_START]
    return starts[1] if len(starts) > 1 else len(segment)


class LiveStream:
    """One endless stream for any number of HTTP clients. Thread-safe."""

    def __init__(self, path, source, fps, moments):
        self.path, self.source, self.fps, self.moments = path, source, fps, moments
        self.lock = threading.Lock()
        self.pipeline = None
        self.clients = 0

    @contextlib.contextmanager
    def reader(self):
        """A socket from which one client's share is read."""
        reading, writing = socket.socketpair()
        with reading, writing:
            self.add(writing)
            try:
                yield reading
            finally:
                self.remove(writing)

    def add(self, writing):
        with self.lock:
            if not self.pipeline:
                self.pipeline = self.make()
                self.pipeline.set_state(Gst.State.READY)
            self.pipeline.get_by_name("sink").emit("add", writing.fileno())
            self.clients += 1
            self.pipeline.set_state(Gst.State.PLAYING)  # after the add: it gets the first frame

    def make(self):
        # A client that does not read is moved on to a later key frame, as a camera would do.
        pipeline = Gst.parse_launch(
            f"{self.source.launch} ! multifdsink name=sink sync=false sync-method={self.source.joins_at}"
            " recover-policy=keyframe units-soft-max=200 units-max=400")
        run_clock(pipeline, self.fps)
        open_late(pipeline)
        watch_muxed(pipeline.get_by_name(PICTURE).get_static_pad("src"),
                    pipeline.get_by_name("sink").get_static_pad("sink"), self.path, self.moments)
        return pipeline

    def remove(self, writing):
        with self.lock:
            self.clients -= 1
            self.pipeline.get_by_name("sink").emit("remove", writing.fileno())
            if not self.clients:
                self.pipeline.set_state(Gst.State.NULL)
                self.pipeline = None

    def close(self):
        with self.lock:
            if self.pipeline:
                self.pipeline.set_state(Gst.State.NULL)


class Hls:
    """A playlist and its segments, in a folder of their own. Thread-safe."""

    def __init__(self, folder, source, moments):
        self.folder, self.source, self.moments = folder, source, moments
        self.path = f"/{folder.name}/index.m3u8"
        self.lock = threading.Lock()  # guards the two below
        self.pipeline = None
        self.used = -HLS_IDLE_SECONDS

    def launch(self):
        kept = "playlist-length=0 max-files=0" if self.source.ended else "playlist-length=5 max-files=10"
        return (f"{self.source.launch} ! hls.video hlssink2 name=hls target-duration={self.source.segment_s} {kept}"
                f" location={self.folder}/%05d.ts playlist-location={self.folder}/index.m3u8")

    def file(self, name):
        """None if there is no such file."""
        with self.lock:
            idle = time.monotonic() - self.used >= HLS_IDLE_SECONDS
            if not self.pipeline and name == "index.m3u8":
                self.start()
            self.used = time.monotonic()
            if idle and name == "index.m3u8":  # players ask for it again and again
                self.moments.ask(self.path)
        path = self.folder / name
        deadline = time.monotonic() + HLS_START_SECONDS
        while name == "index.m3u8" and not path.exists() and time.monotonic() < deadline:
            time.sleep(0.05)
        return path if path.exists() else None

    def start(self):
        if self.source.ended:
            if not self.folder.exists():
                self.folder.mkdir()
                make_whole(self.launch())
        else:
            self.folder.mkdir()
            self.pipeline = Gst.parse_launch(self.launch())
            self.pipeline.set_state(Gst.State.PLAYING)

    def stop_idle(self, idle_seconds=HLS_IDLE_SECONDS):
        with self.lock:
            if self.pipeline and time.monotonic() - self.used >= idle_seconds:
                self.pipeline.set_state(Gst.State.NULL)
                self.pipeline = None
                shutil.rmtree(self.folder)


class Content:
    """What both web servers offer. Thread-safe."""

    def __init__(self, options, folder, moments):
        self.folder, self.moments = folder, moments
        self.authorization = None
        if options.user:
            pair = f"{options.user}:{options.password}".encode()
            self.authorization = "Basic " + base64.b64encode(pair).decode()
        self.thawed = threading.Event()
        self.thawed.set()
        self.streams = {path: LiveStream(path, source, options.fps, moments)
                        for path, source in web_streams(options.fps).items()}
        self.recordings = recordings(options.fps)
        self.hls = {name: Hls(folder / name, source, moments)
                    for name, source in playlists(options.fps).items()}
        self.lock = threading.Lock()  # held while a recording is made, and guards what is below
        self.first_ends = {}  # by path of a recording: how many of its bytes hold the first picture

    def recording(self, path):
        """Its bytes, and how many of them hold the first picture."""
        file = self.folder / path.strip("/")
        with self.lock:
            if not file.exists():
                first = make_whole(f"{self.recordings[path].launch} ! filesink location={file}")
                self.first_ends[path] = file.read_bytes().index(first) + len(first)
            return file.read_bytes(), self.first_ends[path]

    def stop_idle_hls(self, idle_seconds=HLS_IDLE_SECONDS):
        for hls in self.hls.values():
            hls.stop_idle(idle_seconds)

    def close(self):
        for stream in self.streams.values():
            stream.close()
        self.stop_idle_hls(idle_seconds=0)


class WebHandler(http.server.BaseHTTPRequestHandler):
    def __init__(self, content, *arguments):
        self.content = content
        super().__init__(*arguments)

    def do_GET(self):
        path = self.path.split("?")[0]
        folder, _, name = path.strip("/").partition("/")
        content = self.content
        content.thawed.wait()
        if content.authorization not in (None, self.headers["Authorization"]):
            self.send_response(401)
            self.send_header("WWW-Authenticate", 'Basic realm="camera"')
            self.end_headers()
        elif path == "/silent":
            self.connection.recv(1)  # until the client leaves
        elif path == "/moments":
            table = json.dumps(content.moments.table()).encode()
            self.begin("application/json", length=len(table))
            self.wfile.write(table)
        elif path in content.streams:
            content.moments.ask(path)
            self.send_stream(content.streams[path])
        elif path in content.recordings:
            self.send_recording(path, content.recordings[path])
        elif folder in content.hls and name and "/" not in name:
            self.send_hls(content.hls[folder], name)
        else:
            self.send_error(404)

    def begin(self, content_type, length=None, **headers):
        self.send_response(206 if "Content_Range" in headers else 200)
        self.send_header("Content-Type", content_type)
        if length is not None:
            self.send_header("Content-Length", str(length))
        for name, value in headers.items():
            self.send_header(name.replace("_", "-"), value)
        self.end_headers()

    def send_stream(self, stream):
        self.begin(stream.source.content_type)
        with stream.reader() as reader:
            while chunk := reader.recv(CHUNK_BYTES):
                self.content.thawed.wait()
                self.wfile.write(chunk)

    def send_hls(self, hls, name):
        file = hls.file(name)
        if not file:
            self.send_error(404)
            return
        data = file.read_bytes()
        if name == "index.m3u8":
            self.begin(PLAYLIST_TYPE, len(data))
            self.send_data(data)
        else:
            self.begin("video/mp2t", len(data))
            self.send_pictures(data, end_of_first_picture(data), hls.path)

    def send_recording(self, path, source):
        data, first_end = self.content.recording(path)
        asked = asked_range(self.headers["Range"], len(data)) if source.gives_ranges else range(len(data))
        if not asked:
            self.send_response(416)
            self.send_header("Content-Range", f"bytes */{len(data)}")
            self.send_header("Content-Length", "0")
            self.end_headers()
            return
        headers = {"Accept_Ranges": "bytes"} if source.gives_ranges else {}
        if self.headers["Range"] and source.gives_ranges:
            headers["Content_Range"] = f"bytes {asked.start}-{asked.stop - 1}/{len(data)}"
        if asked.start == 0:  # what comes later in the file is asked for by the same player
            self.content.moments.ask(path)
        self.begin(source.content_type, len(asked) if source.tells_length else None, **headers)
        if asked.start == 0 and asked.stop >= first_end:
            self.send_pictures(data[:asked.stop], first_end, path)
        else:
            self.send_data(data[asked.start:asked.stop])

    def send_pictures(self, data, first_end, path):
        began = time.monotonic()
        self.send_data(data[:first_end])
        self.content.moments.picture(path, began, time.monotonic())
        self.send_data(data[first_end:])

    def send_data(self, data):
        for start in range(0, len(data), CHUNK_BYTES):
            self.content.thawed.wait()
            self.wfile.write(data[start:start + CHUNK_BYTES])

    def log_message(self, *_arguments):
        pass


def asked_range(header, length):
    """The one range of bytes of a Range header, empty if it lies outside; everything without a header, and for one
    that is not understood, as the standard has it."""
    parts = re.fullmatch(r"bytes=(\d*)-(\d*)", header or "")
    if not parts or not any(parts.groups()):
        return range(length)
    first, last = parts.groups()
    if not first:
        return range(max(0, length - int(last)), length)
    return range(int(first), min(int(last) + 1 if last else length, length))


class WebServer(http.server.ThreadingHTTPServer):
    """Serves on threads of its own from the start; drop_clients and close may come from any thread."""

    def __init__(self, content, tls=None):
        super().__init__((HOST, 0), functools.partial(WebHandler, content))
        self.tls = tls
        self.connections = set()
        self.url = f"{'https' if tls else 'http'}://{HOST}:{self.server_port}/"
        threading.Thread(target=self.serve_forever, kwargs={"poll_interval": 0.1}, daemon=True).start()

    def get_request(self):
        connection, address = super().get_request()
        if self.tls:  # the handshake belongs to the client's thread, not to this one
            connection = self.tls.wrap_socket(connection, server_side=True, do_handshake_on_connect=False)
        self.connections.add(connection)
        return connection, address

    def shutdown_request(self, request):
        self.connections.discard(request)
        super().shutdown_request(request)

    def handle_error(self, request, client_address):
        if not isinstance(sys.exc_info()[1], OSError):  # a client that left is no news
            super().handle_error(request, client_address)

    def drop_clients(self):
        for connection in list(self.connections):
            with contextlib.suppress(OSError):
                socket.socket.shutdown(connection, socket.SHUT_RDWR)

    def close(self):
        self.shutdown()
        self.server_close()


def make_tls(folder):
    command = ["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1",
               "-nodes", "-days", "30", "-subj", "/CN=localhost",
               "-addext", "subjectAltName=DNS:localhost,IP:127.0.0.1",
               "-keyout", folder / "key.pem", "-out", folder / "cert.pem"]
    try:
        subprocess.run(command, check=True, capture_output=True, text=True)
    except FileNotFoundError:
        refuse("the openssl program is missing: install openssl")
    except subprocess.CalledProcessError as error:
        refuse(f"openssl made no certificate: {error.stderr.strip()}")
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    context.load_cert_chain(folder / "cert.pem", folder / "key.pem")
    return context
