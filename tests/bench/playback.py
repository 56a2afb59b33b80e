"""The playback: when the first picture comes, at what speed the frames do, how old they are, how a camera comes back.

Every source of the local camera, through the broker and through the bare reader beside it. What the figures are worth
is said in playback_rules.py, what they mean in docs/benchmarks.md.
"""
import contextlib
import dataclasses
import functools
import math
import os
import re
import shutil
import signal
import subprocess
import sys
import threading
import time
from dataclasses import dataclass

import playback_rules as rules
from broker_session import (BROKER, STATE_LIVE, BareReader, Broker, HarnessError, say, wait_for,
                            windows_path)
from playback_rules import SETTLE_S, FirstPicture
from playback_watch import (Ended, LocalCamera, fetch, free_port, http_viewer, list_viewer, numbers_of, rtsp_viewer,
                            watch_frames, watch_numbers)

DECODER_START = {"FFmpeg": "FFMPEG_START_OWN_PROCESS", "GStreamer": "GSTREAMER_START_OWN_PIPELINE"}
LEAVING_S = 0.5  # in which the camera notices that a client has left, and stops the encoder
CAMERA_AWAY_S = 2
CONTROL_FPS = 12
CONTROL_GAP_S = 1
GAP_NOISE_MS = 70  # a frame may be on its way when it stops
JOINS_S = 1.5


@dataclass(frozen=True)
class Source:
    """door: of the camera's ready file. joins: a viewer is there already, and the stream is entered JOINS_S before its
    next key frame; any other begins with the one who asks for it."""
    name: str
    door: str
    path: str
    fps: int = 25
    live: bool = True
    transport: str = "tcp"
    joins: bool = False
    key_every_s: int = 1

    @property
    def moments_path(self):
        """A link that is slow has moments of its own, at its far end."""
        return self.path if self.door in ("rtsp", "http") else self.door + self.path

    @property
    def is_list(self):
        return self.path.endswith(".m3u8")


SOURCES = (
    Source("RTSP H.264", "rtsp", "/stream1"),
    Source("RTSP H.264 over UDP", "rtsp", "/stream1", transport="udp"),
    Source("RTSP H.264 and sound", "rtsp", "/audio"),
    Source("RTSP H.265", "rtsp", "/h265"),
    Source("RTSP MJPEG", "rtsp", "/mjpeg"),
    Source("RTSP, a key frame every 2 s", "rtsp", "/gop2", joins=True, key_every_s=2),
    Source("RTSP, a key frame every 4 s", "rtsp", "/gop4", joins=True, key_every_s=4),
    Source("RTSP, a key frame every 10 s", "rtsp", "/gop10", joins=True, key_every_s=10),
    Source("RTSP, B-frames", "rtsp", "/bframes"),
    Source("RTSP, parameters in band", "rtsp", "/inband"),
    Source("RTSP, late sound", "rtsp", "/late-sound"),
    Source("RTSP, mute microphone", "rtsp", "/mute"),
    Source("RTSP, a link of 2 Mbit/s", "rtsp-2mbit", "/stream1"),
    Source("RTSP, answers after 300 ms", "rtsp-300ms", "/stream1"),
    Source("MPEG-TS", "http", "/live.ts"),
    Source("MPEG-TS, joined", "http", "/live.ts", joins=True),
    Source("MPEG-TS, late sound", "http", "/late-sound.ts"),
    Source("MPEG-TS, mute microphone", "http", "/mute.ts"),
    Source("MPEG-TS, sound first", "http", "/sound-first.ts"),
    Source("multipart MJPEG, 1 a second", "http", "/mjpeg/1", fps=1),
    Source("multipart MJPEG, 5 a second", "http", "/mjpeg/5", fps=5),
    Source("multipart MJPEG, 10 a second", "http", "/mjpeg/10", fps=10),
    Source("multipart MJPEG, 15 a second", "http", "/mjpeg/15", fps=15),
    Source("multipart MJPEG, 30 a second", "http", "/mjpeg/30", fps=30),
    Source("multipart MJPEG, 60 a second", "http", "/mjpeg/60", fps=60),
    Source("recording, Matroska with B-frames", "http", "/recording.mkv", live=False),
    Source("recording without a length", "http", "/recording-endless.mkv", live=False),
    Source("recording without a duration", "http", "/recording-lengthonly.mkv", live=False),
    Source("HLS, segments of 1 s", "http", "/hls/index.m3u8", live=False),
    Source("HLS, segments of 2 s", "http", "/hls2/index.m3u8", live=False),
    Source("HLS, ended", "http", "/ended/index.m3u8", live=False),
)
CLOCK = Source("latency over TCP", "rtsp", "/clock")
CLOCK_UDP = Source("latency over UDP", "rtsp", "/clock", transport="udp")


def told_ms(value):
    return "?" if value is None else f"{value:.0f}"


class Playback:
    """bench: a Bench, prepared. only: a pattern that is searched for in the names of what is measured. decoder: an
    ffmpeg.exe to be measured instead of the built one."""

    def __init__(self, bench, only=None, decoder=None):
        self.bench, self.session, self.bridge = bench, bench.session, bench.bridge
        self.quick = bench.quick
        self.rounds, self.watch_s = (2, 5) if self.quick else (5, 10)
        self.latency_s = 20 if self.quick else 600
        self.settings = self.session.local_app_data / "Vextra" / "CameraVirtualMFBeta"
        self.details = bench.details.setdefault("playback", {})
        self.root, self.decoder = bench.root, bench.decoder
        if decoder:
            self.install_beside(decoder)
        everything = self.everything()
        self.chosen = {name: measure for name, measure in everything.items() if only is None or re.search(only, name)}
        if not self.chosen:
            raise HarnessError(f"nothing is called '{only}', there are: {'; '.join(everything)}")

    def install_beside(self, decoder):
        self.root = self.session.folder / "other-decoder"
        shutil.rmtree(self.root, ignore_errors=True)
        self.decoder = self.root / "deps" / "ffmpeg.exe"
        for source, target in ((self.bench.root / "bin" / BROKER, self.root / "bin" / BROKER), (decoder, self.decoder)):
            target.parent.mkdir(parents=True)
            shutil.copy(source, target)

    def everything(self):
        """By name, in the order in which it is measured."""
        found = {"control: slow": self.control_slow, "control: gap": self.control_gap, "on the way": self.on_the_way}
        for backend in self.backends():
            found |= {self.prefix(backend) + source.name: functools.partial(self.source, source, backend)
                      for source in SOURCES}
        found |= {source.name: functools.partial(self.latency, source) for source in (CLOCK, CLOCK_UDP)}
        found |= {f"{self.prefix(backend)}reconnect": functools.partial(self.reconnect, backend)
                  for backend in self.backends()}
        return found

    def run(self):
        if self.bench.gstreamer_root is None:
            say("playback with GStreamer: not measured, there is no runtime (./dev gstreamer builds one)")
        try:
            with LocalCamera(self.session.folder) as self.camera:
                for name, measure in self.chosen.items():
                    self.guarded(name, measure)
        finally:
            self.choose(self.bench.camera_rtsp)

    def backends(self):
        return ("FFmpeg",) if self.bench.gstreamer_root is None else ("FFmpeg", "GStreamer")

    def guarded(self, name, measure):
        """One that shows nothing is a figure too, and the others are still to be measured."""
        try:
            measure()
        except (HarnessError, OSError, Ended, subprocess.TimeoutExpired) as error:
            print(f"bench: {name}: {error}", file=sys.stderr)
            self.bench.row(name, str(error), "a picture", False)

    # The broker and its settings

    def choose(self, url, transport="tcp", backend="FFmpeg"):
        for file in self.settings.glob("settings.dpapi*"):
            file.unlink()
        self.session.write_profile(url, transport)
        if backend == "GStreamer":
            self.session.run(self.root / "bin" / BROKER, "--import-legacy-env", "--version",
                             variables={"CAMERA_VIRTUAL_VEXTRA_DECODER_BACKEND": "gstreamer"})

    def broker(self, backend="FFmpeg", synthetic=False, root=None):
        variables = None
        if backend == "GStreamer":
            variables = {"GSTREAMER_1_0_ROOT_X86_64": windows_path(self.bench.gstreamer_root)}
        return Broker(self.session, root or self.root, synthetic=synthetic, variables=variables)

    def url_of(self, source):
        return self.camera.url(source.door, source.path)

    def bare(self, source):
        return BareReader(self.session, self.decoder, self.url_of(source), transport=source.transport, codes=True)

    # First picture and speed

    def source(self, source, backend):
        say(f"{backend}, {source.name}: {self.rounds} x first picture, {SETTLE_S} + {self.watch_s} s of speed")
        self.choose(self.url_of(source), source.transport, backend)
        starts, speeds = {"broker": [], "bare": []}, {}
        kinds = {"broker": self.broker_start}
        if backend == "FFmpeg":
            kinds["bare"] = self.bare_start
        with self.viewer_of(source) as key_at, self.broker(backend):
            for i in range(self.rounds):
                for kind, begin in kinds.items():
                    time.sleep(LEAVING_S)
                    self.wait_for_entry(source, key_at)
                    start, moments = begin(source, watch=i == self.rounds - 1)
                    starts[kind].append(start)
                    if moments:
                        speeds[kind] = rules.speed(moments, self.watch_s)
        self.details.setdefault(backend, {})[source.name] = {
            "starts": {kind: [self.start_as_data(one) for one in taken] for kind, taken in starts.items()},
            "speeds": {kind: dataclasses.asdict(one) for kind, one in speeds.items()}}
        self.first_picture_row(source, backend, starts)
        self.speed_row(source, backend, speeds)

    @staticmethod
    def start_as_data(start):
        return {"tookMs": start.took_ms, "toAskMs": start.to_ask_ms, "limitMs": start.limit_ms,
                "afterKeyMs": start.after_key_ms}

    @contextlib.contextmanager
    def viewer_of(self, source):
        """Yields when a key frame left, if the source is one that is joined."""
        url = self.url_of(source)
        if source.is_list:
            with list_viewer(url):
                yield None
        elif not source.live:
            fetch(url)  # the camera makes it when it is first asked for
            yield None
        elif source.joins:
            with (rtsp_viewer if source.door.startswith("rtsp") else http_viewer)(url):
                yield wait_for(lambda: self.camera.moments(source.moments_path)[1], "the moment of a key frame",
                               pause_s=0.1)
        else:
            yield None

    @staticmethod
    def wait_for_entry(source, key_at):
        if key_at is None:
            return
        earliest = time.monotonic() + JOINS_S
        periods = math.ceil((earliest - key_at) / source.key_every_s)
        time.sleep(max(0, key_at + periods * source.key_every_s - JOINS_S - time.monotonic()))

    def broker_start(self, source, watch):
        """The start, and the moments of the frames if it is to be watched."""
        start = time.monotonic()
        with self.bridge.lease():
            self.bridge.wait_for_live(pause_s=0.0005)
            shown = time.monotonic()
            moments = watch_frames(self.bridge, shown, shown + SETTLE_S + self.watch_s) if watch else []
            asked, key = self.camera.moments(source.moments_path)
        return FirstPicture(start, shown, asked, key), moments

    def bare_start(self, source, watch):
        with self.bare(source) as reader:
            if watch:
                time.sleep(SETTLE_S + self.watch_s)
            start = reader.first_frame_at - reader.first_frame_ms / 1000
            moments = [moment for moment, _ in reader.codes] if watch else []
            asked, key = self.camera.moments(source.moments_path)
        return FirstPicture(start, reader.first_frame_at, asked, key), moments

    def first_picture_row(self, source, backend, starts):
        def figures(kind):
            return [rules.median(getattr(one, name) for one in starts[kind])
                    for name in ("took_ms", "after_key_ms", "limit_ms")]

        took, after_key, limit = figures("broker")
        told = f"{took:.0f} ms, {told_ms(after_key)} after the limit of {told_ms(limit)}"
        if starts["bare"]:
            bare_took, bare_after_key, _ = figures("bare")
            told += f" (bare {bare_took:.0f}, {told_ms(bare_after_key)})"
        judged = ()
        if backend == "FFmpeg" and source.live:
            judged = f"{rules.AFTER_KEY_MS} ms after the limit", rules.in_time(after_key)
        name = self.prefix(backend) + source.name
        self.bench.row(f"{name}: first picture", told, *judged)
        if source == SOURCES[0]:
            asked = ", ".join(f"{kind} {told_ms(rules.median(one.to_ask_ms for one in taken))} ms"
                              for kind, taken in starts.items() if taken)
            self.bench.row(f"{name}: until the camera was asked to play", asked)

    def speed_row(self, source, backend, speeds):
        def told(one):
            return f"{one.fps:.1f}, {one.gap_ms:.0f} ms; {one.early_frames}"

        measured = told(speeds["broker"]) + (f" (bare {told(speeds['bare'])})" if "bare" in speeds else "")
        judged = ()
        if backend == "FFmpeg":
            judged = (f"{rules.FRAMES_PER_SECOND} ± {rules.fps_tolerance(self.watch_s):.1f}, "
                      f"{rules.gap_limit_ms(source.fps):.0f} ms",
                      rules.at_its_own_speed(speeds["broker"], source.fps))
        self.bench.row(f"{self.prefix(backend)}{source.name}: frames a second, longest gap; in the first {SETTLE_S} s",
                       measured, *judged)

    @staticmethod
    def prefix(backend):
        return "" if backend == "FFmpeg" else f"{backend}, "

    # Whether this tells wrong from right

    def control_slow(self):
        """A decoder that is known to be slow."""
        measured = self.speed_of_stub(CONTROL_FPS)
        found = rules.is_rate(measured, CONTROL_FPS)
        self.control_row(f"control: a decoder of {CONTROL_FPS} frames a second", measured, "found slow", found)

    def control_gap(self):
        """One that is known to stand still for a while."""
        measured = self.speed_of_stub(rules.FRAMES_PER_SECOND, self.decoder_stands_still)
        found = measured.gap_ms > CONTROL_GAP_S * 1000 - GAP_NOISE_MS
        self.control_row(f"control: a decoder that stands still for {CONTROL_GAP_S} s", measured, "the gap found",
                         found)

    def control_row(self, name, measured, expected, found):
        self.details.setdefault("controls", {})[name] = dataclasses.asdict(measured)
        self.bench.row(name, f"{measured.fps:.1f} a second, longest gap {measured.gap_ms:.0f} ms", expected,
                       found and not rules.at_its_own_speed(measured, rules.FRAMES_PER_SECOND))

    def speed_of_stub(self, fps, meanwhile=contextlib.nullcontext):
        say(f"control: the stub decoder, {SETTLE_S} + {self.watch_s} s of speed")
        self.bench.tell_stub(f"frames=endless\nframesPerSecond={fps}\n")
        with self.broker(synthetic=True, root=self.bench.stub), self.bridge.lease():
            self.bridge.wait_for_live()
            first = time.monotonic()
            with meanwhile():
                moments = watch_frames(self.bridge, first, first + SETTLE_S + self.watch_s)
        return rules.speed(moments, self.watch_s)

    @contextlib.contextmanager
    def decoder_stands_still(self):
        pids = self.session.pids_of("ffmpeg.exe")

        def stop():
            time.sleep(SETTLE_S + self.watch_s / 2)
            for number, pause_s in ((signal.SIGSTOP, CONTROL_GAP_S), (signal.SIGCONT, 0)):
                for pid in pids:
                    os.kill(pid, number)
                time.sleep(pause_s)

        stopper = threading.Thread(target=stop)
        stopper.start()
        try:
            yield
        finally:
            stopper.join()

    # What takes its time on the way, without a network

    def on_the_way(self):
        rounds = self.rounds + 2
        say(f"the synthetic source: {rounds} x from the lease to the first picture, step by step")
        bare, steps = [], []
        with self.broker(synthetic=True) as broker:
            for _ in range(rounds):
                with BareReader(self.session, self.decoder, frames=1) as reader:
                    bare.append({"firstByteMs": reader.first_byte_ms, "firstFrameMs": reader.first_frame_ms})
                steps.append(self.steps_of_a_start(broker))
        self.details["onTheWay"] = {"bare": bare, "broker": steps}

        def medians(taken):
            return {key: rules.median(one.get(key) for one in taken) for key in taken[0]}

        lone, through = medians(bare), medians(steps)
        self.bench.row("synthetic source, bare: decoder's first byte, first frame",
                       f"{lone['firstByteMs']:.0f}, {lone['firstFrameMs']:.0f} ms")
        self.bench.row("synthetic source, from the lease: demand seen, decoder started, first picture",
                       f"{told_ms(through['demandMs'])}, {told_ms(through['startMs'])}, {through['liveMs']:.0f} ms")

    def steps_of_a_start(self, broker):
        codes = {b"DEMAND_BEGIN_DEVICE_UNCHANGED": "demandMs", DECODER_START["FFmpeg"].encode(): "startMs"}
        seen = {name: None for name in codes.values()}
        with open(broker.log, "rb") as log:
            log.seek(0, os.SEEK_END)
            begin, text = time.monotonic(), b""
            with self.bridge.lease():
                def look():
                    nonlocal text
                    text += log.read()
                    for code, name in codes.items():
                        if seen[name] is None and code in text:
                            seen[name] = (time.monotonic() - begin) * 1000
                    return self.bridge.state == STATE_LIVE
                wait_for(look, "a live frame", pause_s=0.0005)
                seen["liveMs"] = (time.monotonic() - begin) * 1000
        return seen

    # Latency

    def latency(self, source):
        say(f"{source.name}: {self.latency_s} s through the broker, {self.latency_s} s bare")
        self.choose(self.url_of(source), source.transport)
        with self.broker(), self.bridge.lease():
            self.bridge.wait_for_live()
            time.sleep(SETTLE_S)
            broker = rules.latency(watch_numbers(self.bridge, self.latency_s))
        with self.bare(source) as reader:
            time.sleep(SETTLE_S)
            seen = len(reader.codes)
            time.sleep(self.latency_s)
            bare = rules.latency(numbers_of(reader.codes[seen:]))
        if broker is None or bare is None:
            raise HarnessError("too few pictures with a number")
        self.details[source.name] = {"broker": dataclasses.asdict(broker), "bare": dataclasses.asdict(bare)}

        def told(one):
            return f"{one.median_ms:.0f}, {one.most_of_them_ms:.0f}, {one.max_ms:.0f}; {one.growth_ms:+.0f} ms"

        self.bench.row(f"{source.name}: median, 95 of 100, largest; growth in {self.latency_s} s",
                       f"{told(broker)} (bare {told(bare)})",
                       f"median bare + {rules.LATENCY_OVER_BARE_MS} ms, growth below {rules.LATENCY_GROWTH_MS} ms",
                       rules.keeps_up(broker, bare))
        self.bench.row(f"{source.name}: pictures, unreadable, out of order",
                       f"{broker.pictures}, {broker.unreadable}, {broker.backwards} "
                       f"(bare {bare.pictures}, {bare.unreadable}, {bare.backwards})")

    # Reconnect

    def reconnect(self, backend):
        say(f"{backend}: a camera that ends, is away for {CAMERA_AWAY_S} s and starts again")
        source = SOURCES[0]
        with LocalCamera(self.session.folder, free_port()) as camera:
            self.choose(camera.url(source.door, source.path), backend=backend)
            with self.broker(backend) as broker, self.bridge.lease():
                self.bridge.wait_for_live()
                time.sleep(SETTLE_S)  # 32 good frames clear the count of failures
                camera.stop()
                wait_for(lambda: self.bridge.state != STATE_LIVE, "the broker to notice")
                time.sleep(CAMERA_AWAY_S)
                camera.start()
                back = time.monotonic()
                wait_for(lambda: self.bridge.state == STATE_LIVE, "the picture to come back", timeout_s=40,
                         pause_s=0.0005)
                shown = time.monotonic()
                asked, key = camera.moments(source.moments_path)
                log = broker.log.read_text()
        events = re.findall(r"^tick=(\d+) (\S+) ", log, re.M)
        tries = rules.attempts([(int(tick), rules.START if code == DECODER_START[backend] else code)
                                for tick, code in events])
        one = FirstPicture(back, shown, asked, key)
        self.details.setdefault("reconnect", {})[backend] = {"attempts": tries, **self.start_as_data(one)}
        judged = ((f"{rules.AFTER_KEY_MS} ms after the key frame", rules.in_time(one.after_key_ms))
                  if backend == "FFmpeg" else ())
        self.bench.row(f"{self.prefix(backend)}a camera that comes back: to the picture",
                       f"{told_ms(one.after_key_ms)} ms after its first key frame, "
                       f"{one.took_ms:.0f} ms after its start",
                       *judged)
        self.bench.row(f"{self.prefix(backend)}a camera that comes back: attempts after (due after)",
                       ", ".join(f"{waited} ({due})" for waited, due in tries) + " ms", "when due",
                       rules.on_schedule(tries))
