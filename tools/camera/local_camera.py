#!/usr/bin/python3
"""A network camera on loopback: RTSP, RTSPS, HTTP and HTTPS, with faults on command.

It stands in for a real camera in ./dev run, in the tests and in the benchmarks. Nothing is encoded
until a client asks for it, clients of one address share one encoder, and the last one to leave stops it.
"""
import argparse
import base64
import contextlib
import ctypes
import functools
import http.server
import json
import os
import queue
import select
import shutil
import signal
import socket
import ssl
import subprocess
import sys
import tempfile
import threading
import time
from pathlib import Path


def refuse(message):
    sys.exit(f"local_camera: {message}")


try:
    import gi
except ImportError:
    refuse(f"{sys.executable} has no module gi: install python3-gi and run with /usr/bin/python3")
for namespace, package in (("Gst", "gir1.2-gstreamer-1.0"), ("GstRtsp", "gir1.2-gst-plugins-base-1.0"),
                           ("GstRtspServer", "gir1.2-gst-rtsp-server-1.0")):
    try:
        gi.require_version(namespace, "1.0")
    except ValueError:
        refuse(f"{namespace} is missing: install {package}")
from gi.repository import GLib, Gst, GstRtsp, GstRtspServer  # noqa: E402  (only after the checks above)

HOST = "127.0.0.1"
CLIP_SECONDS = 5
HLS_IDLE_SECONDS = 5
HLS_START_SECONDS = 5
HOUSEKEEPING_SECONDS = 2
SHUTDOWN_SECONDS = 3
CHUNK_BYTES = 64 * 1024
PR_SET_PDEATHSIG = 1

ELEMENTS = {
    "gstreamer1.0-plugins-base": ("videotestsrc", "audiotestsrc", "audioconvert"),
    "gstreamer1.0-x": ("timeoverlay",),
    "gstreamer1.0-plugins-good": ("videobox", "jpegenc", "alawenc", "rtph264pay", "multipartmux", "mp4mux"),
    "gstreamer1.0-plugins-bad": ("h264parse", "x265enc", "mpegtsmux", "hlssink2"),
    "gstreamer1.0-plugins-ugly": ("x264enc",),
}


# What is shown and how it is encoded ------------------------------------------------------------------

def moving(fps, width, height, label, source="is-live=true"):
    """Scrolling bars with the running time on top. These two cost the processor least by far: a bouncing
    ball takes six times as much, an outline around the text three times."""
    return (f"videotestsrc {source} pattern=smpte75 horizontal-speed=4"
            f" ! video/x-raw,format=I420,width={width},height={height},framerate={fps}/1"
            f' ! timeoverlay time-mode=running-time text="{label}" font-desc="Sans Bold 28"'
            " halignment=center draw-shadow=false draw-outline=false shaded-background=true")


def bars(fps):
    """Seven bars over a white stripe: no two of the four orientations look the same."""
    return (f"videotestsrc is-live=true pattern=smpte75 ! video/x-raw,format=I420,width=640,height=270,"
            f"framerate={fps}/1,colorimetry=bt601 ! videobox bottom=-90 fill=white")


def h264(fps):
    return (f"x264enc tune=zerolatency speed-preset=ultrafast threads=1 bitrate=2000 key-int-max={fps}"
            " ! h264parse")


def rtsp_mounts(fps):
    h265 = f"x265enc tune=zerolatency speed-preset=ultrafast bitrate=500 key-int-max={fps} ! h265parse"
    rtp_h264 = f"{h264(fps)} ! rtph264pay name=pay0 config-interval=-1"
    return {
        "/stream1": f"{moving(fps, 1280, 720, 'stream1')} ! {rtp_h264}",
        "/stream2": f"{moving(fps, 640, 360, 'stream2')} ! {rtp_h264}",
        "/audio": f"{moving(fps, 640, 360, 'audio')} ! {rtp_h264}"
                  " audiotestsrc is-live=true freq=440 volume=0.1 samplesperbuffer=160"
                  " ! audio/x-raw,rate=8000,channels=1 ! alawenc ! rtppcmapay name=pay1",
        "/mjpeg": f"{moving(fps, 640, 360, 'mjpeg')} ! jpegenc ! rtpjpegpay name=pay0",
        "/h265": f"{moving(fps, 320, 180, 'h265')} ! {h265} ! rtph265pay name=pay0 config-interval=-1",
        "/bars": f"{bars(fps)} ! {rtp_h264}",
        "/bars-mjpeg": f"{bars(fps)} ! jpegenc ! rtpjpegpay name=pay0",
    }


# RTSP -------------------------------------------------------------------------------------------------

class DigestAndBasic(GstRtspServer.RTSPAuth):
    """Offers both schemes, the stronger one first. The binding lets only one be set at a time."""

    def do_generate_authenticate_header(self, context):
        for method in (GstRtsp.RTSPAuthMethod.DIGEST, GstRtsp.RTSPAuthMethod.BASIC):
            self.set_supported_methods(method)
            GstRtspServer.RTSPAuth.do_generate_authenticate_header(self, context)


class RtspCamera:
    """Used on the main thread only, where the server also serves its clients: a main thread that waits
    is a camera that does not answer."""

    def __init__(self, options):
        self.media = set()
        self.held = []  # (pad, probe) of everything that would leave while frozen
        self.server = GstRtspServer.RTSPServer(address=HOST, service=str(options.rtsp_port))
        self.server.get_thread_pool().set_max_threads(0)
        if options.user:
            self.server.set_auth(self.credentials(options.user, options.password))
        for path, launch in rtsp_mounts(options.fps).items():
            factory = GstRtspServer.RTSPMediaFactory()
            factory.set_launch(f"( {launch} )")
            factory.set_shared(True)
            factory.connect("media-configure", self.on_media)
            if options.user:
                factory.add_role_from_structure(Gst.Structure.new_from_string(
                    "viewer, media.factory.access=(boolean)true, media.factory.construct=(boolean)true"))
            self.server.get_mount_points().add_factory(path, factory)
        if not self.server.attach(None):
            refuse(f"cannot listen on {HOST}:{options.rtsp_port}, is the port in use?")
        self.url = f"rtsp://{HOST}:{self.server.get_bound_port()}/"

    @staticmethod
    def credentials(user, password):
        token = GstRtspServer.RTSPToken()
        token.set_string("media.factory.role", "viewer")
        auth = DigestAndBasic()
        auth.add_basic(GstRtspServer.RTSPAuth.make_basic(user, password), token)
        auth.add_digest(user, password, token)
        return auth

    def on_media(self, _factory, media):
        self.media.add(media)
        media.connect("unprepared", self.media.discard)

    def hold(self):
        """Lets no packet out, RTCP neither: clients must see plain silence."""
        for media in list(self.media):
            for element in media.get_element().get_parent().children:
                if element.get_factory().get_name() != "rtpbin":
                    continue
                for pad in element.srcpads:
                    if pad.get_name().startswith("send_rt"):
                        probe = pad.add_probe(Gst.PadProbeType.BUFFER | Gst.PadProbeType.BUFFER_LIST,
                                              lambda _pad, _info: Gst.PadProbeReturn.DROP)
                        self.held.append((pad, probe))

    def release(self):
        for pad, probe in self.held:
            pad.remove_probe(probe)
        self.held.clear()

    def drop_clients(self):
        self.server.client_filter(lambda _server, _client: GstRtspServer.RTSPFilterResult.REMOVE)

    def forget_dead_sessions(self):
        self.server.get_session_pool().cleanup()

    def close(self):
        self.drop_clients()
        deadline = time.monotonic() + SHUTDOWN_SECONDS
        while self.media and time.monotonic() < deadline:
            GLib.MainContext.default().iteration(False)
            time.sleep(0.01)


class TlsDoor:
    """RTSPS: what comes encrypted goes on to the RTSP server in the clear, and back. Its threads are its own;
    a connection lives as long as the one behind it."""

    def __init__(self, port, tls):
        self.port, self.tls = port, tls
        self.listener = socket.create_server((HOST, 0))
        self.url = f"rtsps://{HOST}:{self.listener.getsockname()[1]}/"
        threading.Thread(target=self.accept, daemon=True).start()

    def accept(self):
        with contextlib.suppress(OSError):  # closed
            while True:
                client, _address = self.listener.accept()
                threading.Thread(target=self.serve, args=(client,), daemon=True).start()

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

    def close(self):
        with contextlib.suppress(OSError):
            self.listener.shutdown(socket.SHUT_RDWR)  # wakes accept, which a mere close does not
        self.listener.close()


# HTTP and HTTPS ---------------------------------------------------------------------------------------

class LiveStream:
    """One endless stream for any number of HTTP clients. Thread-safe."""

    def __init__(self, launch, content_type, joins_at):
        self.launch, self.content_type, self.joins_at = launch, content_type, joins_at
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
                # A client that does not read is moved on to a later key frame, as a camera would do.
                self.pipeline = Gst.parse_launch(
                    f"{self.launch} ! multifdsink name=sink sync=false sync-method={self.joins_at}"
                    " recover-policy=keyframe units-soft-max=200 units-max=400")
                self.pipeline.set_state(Gst.State.READY)
            self.pipeline.get_by_name("sink").emit("add", writing.fileno())
            self.clients += 1
            self.pipeline.set_state(Gst.State.PLAYING)  # after the add: it gets the first frame

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


class Content:
    """What both web servers offer. Thread-safe."""

    def __init__(self, options, folder):
        self.fps, self.folder = options.fps, folder
        self.authorization = None
        if options.user:
            pair = f"{options.user}:{options.password}".encode()
            self.authorization = "Basic " + base64.b64encode(pair).decode()
        self.thawed = threading.Event()
        self.thawed.set()
        fps = self.fps
        self.streams = {
            # A transport stream may be entered anywhere; the muxer marks its key frames as headers,
            # so that waiting for one would lose the first second.
            "/live.ts": LiveStream(f"{moving(fps, 1280, 720, 'live.ts')} ! {h264(fps)} ! mpegtsmux",
                                   "video/mp2t", joins_at="latest"),
            "/bars.ts": LiveStream(f"{bars(fps)} ! {h264(fps)} ! mpegtsmux", "video/mp2t", joins_at="latest"),
            # Every picture is a key frame, and its part header must not be missed.
            "/live.mjpeg": LiveStream(f"{moving(fps, 640, 360, 'live.mjpeg')} ! jpegenc"
                                      " ! multipartmux boundary=frame",
                                      "multipart/x-mixed-replace; boundary=frame", joins_at="next-keyframe"),
        }
        self.lock = threading.Lock()  # guards the clip and the HLS pipeline below
        self.hls = None
        self.hls_used = 0.0

    def clip(self):
        path = self.folder / "clip.mp4"
        with self.lock:
            if not path.exists():
                source = moving(self.fps, 640, 360, "clip.mp4", f"num-buffers={CLIP_SECONDS * self.fps}")
                pipeline = Gst.parse_launch(f"{source} ! {h264(self.fps)} ! mp4mux faststart=true"
                                            f" ! filesink location={path}")
                pipeline.set_state(Gst.State.PLAYING)
                end = Gst.MessageType.EOS | Gst.MessageType.ERROR
                pipeline.get_bus().timed_pop_filtered(Gst.CLOCK_TIME_NONE, end)
                pipeline.set_state(Gst.State.NULL)
        return path

    def hls_file(self, name):
        """None if there is no such file."""
        folder = self.folder / "hls"
        with self.lock:
            self.hls_used = time.monotonic()
            if not self.hls and name == "index.m3u8":
                folder.mkdir()
                self.hls = Gst.parse_launch(
                    f"{moving(self.fps, 640, 360, 'hls')} ! {h264(self.fps)} ! hls.video hlssink2 name=hls"
                    f" target-duration=1 playlist-length=5 max-files=10 location={folder}/%05d.ts"
                    f" playlist-location={folder}/index.m3u8")
                self.hls.set_state(Gst.State.PLAYING)
        path = folder / name
        deadline = time.monotonic() + HLS_START_SECONDS
        while name == "index.m3u8" and not path.exists() and time.monotonic() < deadline:
            time.sleep(0.05)
        return path if path.exists() else None

    def stop_idle_hls(self, idle_seconds=HLS_IDLE_SECONDS):
        with self.lock:
            if self.hls and time.monotonic() - self.hls_used >= idle_seconds:
                self.hls.set_state(Gst.State.NULL)
                self.hls = None
                shutil.rmtree(self.folder / "hls")

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
        self.content.thawed.wait()
        if self.content.authorization not in (None, self.headers["Authorization"]):
            self.send_response(401)
            self.send_header("WWW-Authenticate", 'Basic realm="camera"')
            self.end_headers()
        elif path == "/silent":
            self.connection.recv(1)  # until the client leaves
        elif path in self.content.streams:
            self.send_stream(self.content.streams[path])
        elif path == "/clip.mp4":
            self.send_file(self.content.clip(), "video/mp4")
        elif path == "/hls/index.m3u8":
            self.send_file(self.content.hls_file("index.m3u8"), "application/vnd.apple.mpegurl")
        elif path.startswith("/hls/") and path.count("/") == 2:
            self.send_file(self.content.hls_file(path[len("/hls/"):]), "video/mp2t")
        else:
            self.send_error(404)

    def begin(self, content_type, length=None):
        self.send_response(200)
        self.send_header("Content-Type", content_type)
        if length is not None:
            self.send_header("Content-Length", str(length))
        self.end_headers()

    def send_stream(self, stream):
        self.begin(stream.content_type)
        with stream.reader() as reader:
            while chunk := reader.recv(CHUNK_BYTES):
                self.content.thawed.wait()
                self.wfile.write(chunk)

    def send_file(self, path, content_type):
        if not path:
            self.send_error(404)
            return
        data = path.read_bytes()
        self.begin(content_type, len(data))
        for start in range(0, len(data), CHUNK_BYTES):
            self.content.thawed.wait()
            self.wfile.write(data[start:start + CHUNK_BYTES])

    def log_message(self, *_arguments):
        pass


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


# Start, commands, end ---------------------------------------------------------------------------------

class Camera:
    def __init__(self, options, folder):
        self.loop = GLib.MainLoop()
        self.commands = queue.SimpleQueue()
        self.content = Content(options, folder)
        self.rtsp = RtspCamera(options)
        tls = make_tls(folder)
        self.rtsps = TlsDoor(self.rtsp.server.get_bound_port(), tls)
        self.web = [WebServer(self.content), WebServer(self.content, tls)]
        self.urls = {"rtsp": self.rtsp.url, "rtsps": self.rtsps.url, "http": self.web[0].url,
                     "https": self.web[1].url}

    def post(self, command):
        """May be called from any thread and from a signal handler."""
        self.commands.put(command)
        GLib.idle_add(self.run_commands)

    def run_commands(self):
        with contextlib.suppress(queue.Empty):
            while self.loop.is_running():  # nothing counts after quit
                # Frozen, this thread waits here: it takes commands but no longer answers RTSP clients.
                self.run(self.commands.get(block=not self.content.thawed.is_set()))
        return GLib.SOURCE_REMOVE

    def run(self, command):
        known = {"drop": self.drop, "freeze": self.freeze, "thaw": self.thaw, "quit": self.quit}
        if command in known:
            known[command]()
            announce({"done": command})
        else:
            print(f"local_camera: unknown command '{command}', there are: {' '.join(known)}", file=sys.stderr)

    def drop(self):
        self.rtsp.drop_clients()
        for server in self.web:
            server.drop_clients()

    def freeze(self):
        if self.content.thawed.is_set():
            self.content.thawed.clear()
            self.rtsp.hold()

    def thaw(self):
        self.rtsp.release()
        self.content.thawed.set()

    def quit(self):
        self.thaw()
        self.loop.quit()

    def housekeeping(self):
        self.rtsp.forget_dead_sessions()
        self.content.stop_idle_hls()
        return GLib.SOURCE_CONTINUE

    def serve(self):
        GLib.timeout_add_seconds(HOUSEKEEPING_SECONDS, self.housekeeping)
        self.loop.run()

    def close(self):
        self.thaw()
        self.rtsps.close()
        self.drop()
        self.rtsp.close()
        for server in self.web:
            server.close()
        self.content.close()


def announce(value):
    with contextlib.suppress(BrokenPipeError):  # the program that started us may have stopped listening
        print(json.dumps(value), flush=True)


def read_commands(camera):
    for line in sys.stdin:
        if line.strip():
            camera.post(line.strip())
    camera.post("quit")


def parse_options():
    parser = argparse.ArgumentParser(
        prog="local_camera.py", formatter_class=argparse.RawDescriptionHelpFormatter,
        description="A network camera on loopback. Prints its addresses as a line of JSON when ready.",
        epilog="RTSP, and RTSPS over TCP:\n"
               "       /stream1 1280x720 H.264, /stream2 640x360 H.264, /audio H.264 and PCMA,\n"
               "       /mjpeg 640x360, /h265 320x180, /bars and /bars-mjpeg a still picture of\n"
               "       known colours\n"
               "HTTP and HTTPS:  /live.ts, /bars.ts, /live.mjpeg, /clip.mp4, /hls/index.m3u8,\n"
               "       /silent never answers, /404 and everything else is not found\n"
               "Commands:  drop closes all connections, freeze keeps them but sends and answers nothing,\n"
               "       thaw ends a freeze, quit ends the camera; each is answered with {\"done\": ...}")
    parser.add_argument("--rtsp-port", type=int, default=0, metavar="N", help="default: chosen by the system")
    parser.add_argument("--fps", type=int, default=25, metavar="N", help="frames per second, default 25")
    parser.add_argument("--user", metavar="U", help="ask for this user (RTSP Basic and Digest, HTTP Basic)")
    parser.add_argument("--password", metavar="P", help="and this password")
    parser.add_argument("--ready-file", type=Path, metavar="PATH",
                        help="write the addresses there too; the file exists only while the camera runs")
    parser.add_argument("--stdin-control", action="store_true", help="take commands on stdin, end with it")
    parser.add_argument("--die-with-parent", action="store_true", help="end when the starting process ends")
    options = parser.parse_args()
    if not 0 <= options.rtsp_port <= 65535:
        parser.error("--rtsp-port must be from 0 to 65535")
    if not 1 <= options.fps <= 60:
        parser.error("--fps must be from 1 to 60")
    if bool(options.user) != (options.password is not None):
        parser.error("--user and --password go together")
    if options.user and ":" in options.user:
        parser.error("--user must not contain a colon: Basic authentication could not carry it")
    if options.ready_file and not options.ready_file.absolute().parent.is_dir():
        parser.error(f"--ready-file: there is no folder {options.ready_file.absolute().parent}")
    return options


def check_elements():
    for package, elements in ELEMENTS.items():
        missing = [name for name in elements if not Gst.ElementFactory.find(name)]
        if missing:
            refuse(f"GStreamer has no {', '.join(missing)}: install {package}")


def main():
    options = parse_options()
    if options.die_with_parent:
        parent = os.getppid()
        ctypes.CDLL(None).prctl(PR_SET_PDEATHSIG, signal.SIGTERM)
        if os.getppid() != parent:
            return
    Gst.init(None)
    check_elements()
    if options.ready_file:
        options.ready_file.unlink(missing_ok=True)
    with tempfile.TemporaryDirectory(prefix="local_camera.") as folder:
        camera = Camera(options, Path(folder))
        for number in (signal.SIGTERM, signal.SIGINT):
            signal.signal(number, lambda *_arguments: camera.post("quit"))
        if options.stdin_control:
            threading.Thread(target=read_commands, args=(camera,), daemon=True).start()
        announce(camera.urls)
        if options.ready_file:
            draft = options.ready_file.with_name(options.ready_file.name + ".new")
            draft.write_text(json.dumps(camera.urls) + "\n")
            draft.replace(options.ready_file)
        camera.serve()
        camera.close()
        if options.ready_file:
            options.ready_file.unlink(missing_ok=True)


if __name__ == "__main__":
    main()
