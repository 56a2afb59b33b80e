"""Streams of servers that nobody here made, through the broker and bare: VLC, nginx and Debian's ffmpeg, each
started on loopback and ended again. All play one clip of H.264 with B-frames whose pictures carry their number."""
import contextlib
import dataclasses
import functools
import os
import pathlib
import shutil
import subprocess
import tempfile
import time

import playback_rules as rules
from broker_session import BareReader, HarnessError, end, say, wait_for
from playback import Playback
from playback_rules import SETTLE_S
from playback_watch import HOST, LIST_SEGMENTS, free_port, numbers_of, watch_frames
from stream_bytes import judged, order_text
from stream_recipes import FFMPEG, Kitchen, x264

VLC, NGINX = "/usr/bin/vlc", "/usr/sbin/nginx"
NOBODY = 65534
CLIP_S = 240  # VLC ends its session with the clip, though it repeats it
RECORDING_S = 60
SEGMENT_S = 2
STREAMING_S = 4  # a camera has run for some time when somebody looks at it
NGINX_CONFIG = """
daemon off;
master_process off;
pid {folder}/nginx.pid;
error_log {folder}/error.log;
events {{}}
http {{
    access_log off;
    types {{ video/x-matroska mkv; video/mp2t ts; application/vnd.apple.mpegurl m3u8; }}
    client_body_temp_path {folder}/body;
    proxy_temp_path {folder}/proxy;
    fastcgi_temp_path {folder}/fastcgi;
    uwsgi_temp_path {folder}/uwsgi;
    scgi_temp_path {folder}/scgi;
    server {{ listen {host}:{port}; root {folder}/www; }}
}}
"""


@contextlib.contextmanager
def running(command, folder, **how):
    with open(folder / f"{pathlib.Path(command[0]).name}.log", "a") as log:
        process = subprocess.Popen(list(map(str, command)), stdin=subprocess.DEVNULL, stdout=log, stderr=log, **how)
        try:
            yield process
        finally:
            end(process)


def wait_for_listener(process, port):
    """By what the kernel tells: some of these servers take one client and no other."""
    def listens():
        if process.poll() is not None:
            raise HarnessError(f"{process.args[0]} ended with {process.returncode}")
        local = f":{port:04X}"
        lines = pathlib.Path("/proc/net/tcp").read_text().splitlines()[1:]
        return any(fields[1].endswith(local) and fields[3] == "0A" for fields in map(str.split, lines))
    wait_for(listens, f"{process.args[0]} to listen", pause_s=0.02)


@dataclasses.dataclass(frozen=True)
class Source:
    name: str
    serve: str  # the method that does
    what: str | int = ""
    transport: str = "tcp"
    fps: int = 25
    is_recording: bool = False


SOURCES = (
    Source("VLC, RTSP over UDP", "vlc_rtsp", "mute", "udp"),
    Source("VLC, RTSP over UDP, with sound", "vlc_rtsp", "sound", "udp"),
    Source("VLC, MPEG-TS", "vlc_http", "sound"),
    Source("nginx, Matroska recording", "nginx", "clip.mkv", is_recording=True),
    Source("nginx, HLS that has ended", "nginx", "ended.m3u8", is_recording=True),
    Source("nginx, HLS that goes on", "nginx_live", "live.m3u8"),
    *(Source(f"ffmpeg, multipart MJPEG, {fps} a second", "multipart", fps, fps=fps) for fps in (5, 10, 15, 30)),
)


class Servers:
    """In a folder of its own that whoever serves may read."""

    def __init__(self, kitchen):
        self.clips = {kind: kitchen.encode(f"foreign-{kind}.mkv", x264(b_frames=3), ("-f", "matroska"), seconds=CLIP_S,
                                           sound=kind == "sound") for kind in ("sound", "mute")}

    def __enter__(self):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="vextra-servers-"))
        self.folder.chmod(0o755)
        (self.folder / "www").mkdir()
        return self

    def __exit__(self, *_):
        shutil.rmtree(self.folder)

    @contextlib.contextmanager
    def vlc(self, kind, output, port):
        """VLC refuses to be root; it needs a home, and a clip that it may read."""
        home = self.folder / "vlc"
        home.mkdir(exist_ok=True)
        clip = home / self.clips[kind].name
        if not clip.exists():
            shutil.copy(self.clips[kind], clip)
        other = {}
        if os.geteuid() == 0:
            os.chown(home, NOBODY, NOBODY)
            other = {"user": NOBODY, "group": NOBODY, "extra_groups": []}
        command = [VLC, "-I", "dummy", "--no-dbus", "--loop", clip, "--sout", output, "--sout-keep"]
        with running(command, self.folder, env=os.environ | {"HOME": str(home)}, cwd=home, **other) as process:
            wait_for_listener(process, port)
            time.sleep(STREAMING_S)
            yield

    @contextlib.contextmanager
    def vlc_rtsp(self, kind):
        port = free_port()
        with self.vlc(kind, f"#rtp{{sdp=rtsp://{HOST}:{port}/live}}", port):
            yield f"rtsp://{HOST}:{port}/live"

    @contextlib.contextmanager
    def vlc_http(self, kind):
        port = free_port()
        with self.vlc(kind, f"#std{{access=http,mux=ts,dst={HOST}:{port}/live.ts}}", port):
            yield f"http://{HOST}:{port}/live.ts"

    def recording(self, name, *output):
        file = self.folder / "www" / name
        if not file.exists():
            subprocess.run([FFMPEG, "-loglevel", "error", "-i", self.clips["sound"], "-t", str(RECORDING_S),
                            "-c", "copy", *output, file], check=True, stdin=subprocess.DEVNULL, timeout=60)

    @contextlib.contextmanager
    def nginx(self, name):
        self.recording("clip.mkv")
        self.recording("ended.m3u8", "-f", "hls", "-hls_time", str(SEGMENT_S), "-hls_playlist_type", "vod")
        port, config = free_port(), self.folder / "nginx.conf"
        config.write_text(NGINX_CONFIG.format(folder=self.folder, host=HOST, port=port))
        with running([NGINX, "-p", self.folder, "-c", config, "-e", self.folder / "error.log"], self.folder) as process:
            wait_for_listener(process, port)
            yield f"http://{HOST}:{port}/{name}"

    @contextlib.contextmanager
    def nginx_live(self, name):
        file = self.folder / "www" / name
        file.unlink(missing_ok=True)
        command = [FFMPEG, "-loglevel", "error", "-re", "-i", self.clips["sound"], "-c", "copy", "-f", "hls",
                   "-hls_time", SEGMENT_S, "-hls_list_size", "5", "-hls_flags", "delete_segments", file]
        with running(command, self.folder), self.nginx(name) as url:
            wait_for(lambda: file.exists() and file.read_text().count("#EXTINF") >= LIST_SEGMENTS, "a list of segments",
                     pause_s=0.1)
            yield url

    @contextlib.contextmanager
    def multipart(self, fps):
        port = free_port()
        url = f"http://{HOST}:{port}/"
        command = [FFMPEG, "-loglevel", "error", "-re", "-i", self.clips["mute"], "-vf", f"fps={fps}", "-c:v", "mjpeg",
                   "-q:v", "4", "-f", "mpjpeg", "-listen", "1", url]
        with running(command, self.folder) as process:
            wait_for_listener(process, port)
            yield url


class ForeignServers(Playback):
    """The playback's measuring, with other sources. Each measurement has a server of its own: some take one client."""

    def everything(self):
        return {source.name: source for source in SOURCES}

    def run(self):
        try:
            with Servers(Kitchen(self.session.out.parent / "bench" / "streams")) as self.servers:
                for name, source in self.chosen.items():
                    self.guarded(name, functools.partial(self.both, source))
        finally:
            self.choose(self.bench.camera_rtsp)

    def both(self, source):
        say(f"{source.name}: {SETTLE_S} + {self.watch_s} s through the broker, and bare")
        with getattr(self.servers, source.serve)(source.what) as url:
            self.choose(url, source.transport)
            with self.broker():
                start, moments = self.lone_start()
        with getattr(self.servers, source.serve)(source.what) as url, \
                BareReader(self.session, self.decoder, url, transport=source.transport, codes=True) as reader:
            time.sleep(SETTLE_S + self.watch_s)
            codes = list(reader.codes)
        speeds = {"broker": rules.speed(moments, self.watch_s),
                  "bare": rules.speed([moment for moment, _ in codes], self.watch_s)}
        first_ms, order = (moments[0] - start) * 1000, order_text(judged(numbers_of(codes)))
        self.bench.details.setdefault("foreignServers", {})[source.name] = {
            "firstPictureMs": {"broker": first_ms, "bare": reader.first_frame_ms}, "order": order,
            "speeds": {kind: dataclasses.asdict(one) for kind, one in speeds.items()}}
        self.bench.row(f"{source.name}: first picture", f"{first_ms:.0f} ms (bare {reader.first_frame_ms:.0f})")
        self.speed_row(source, "FFmpeg", speeds)
        self.bench.row(f"{source.name}: order of the pictures, bare", order, "kept", order == "kept")

    def lone_start(self):
        start = time.monotonic()
        with self.bridge.lease():
            self.bridge.wait_for_live(pause_s=0.0005)
            shown = time.monotonic()
            return start, watch_frames(self.bridge, shown, shown + SETTLE_S + self.watch_s)
