#!/usr/bin/env python3
"""Measures the built broker beside the least that could do its work, and prints one table.

Nothing here is a test: a figure over its target is printed as such, and the exit status only tells whether
everything could be measured. docs/benchmarks.md says what the figures mean.
"""
import argparse
import functools
import json
import os
import pathlib
import platform
import shutil
import statistics
import subprocess
import sys
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "support"))
from broker_session import (BROKER, PATIENCE_S, STATE_STOPPED, BarePlayer, BareReader, Bridge, Broker,  # noqa: E402
                            HarnessError, Session, cpu_ms, end, memory, say, thread_rates, wait_for, windows_path)
from foreign_servers import ForeignServers  # noqa: E402
from hard_streams import HardStreams, summary  # noqa: E402
from playback import Playback  # noqa: E402
from stream_bytes import StreamError  # noqa: E402

FRAMES_PER_SECOND = 16
SETTLE_S = 3  # a network stream begins with a backlog
FPS_TOLERANCE = 0.1
CPU_FACTOR = 1.5
IDLE_PRIVATE_MIB = 24
ACTIVE_PRIVATE_MIB = 40
GROWTH_MIB = 0.25  # Wine's own heap is not still either
FIRST_LIVE_MS = 150
GSTREAMER_CPU_FACTOR = 1.2
GSTREAMER_GROWTH_MIB = 1  # its own caches come and go
GLIB_IDLE_THREAD_S = 17  # how long its pool keeps a thread without work
PAINT_FACTOR = 2.5
IDLE_PASSES_PER_SECOND = (18, 21)
WINDOW_FACTOR = 1.5  # a timer tick costs Wine two to four switches, as the load is


# --- What is measured ---------------------------------------------------------------------------------------


class Bench:
    def __init__(self, session, options):
        self.session, self.camera_rtsp, self.quick = session, options.camera_rtsp, options.quick
        self.gstreamer_root = options.gstreamer_root
        self.only_playback, self.other_decoder = options.match, options.ffmpeg
        self.root = session.out
        self.decoder = self.root / "deps" / "ffmpeg.exe"
        self.hold_s = 10 if options.quick else 60
        self.rows, self.details = [], {}

    def row(self, what, measured, target="", ok=None):
        """ok: None for a figure that is only told."""
        verdict = "" if ok is None else "ok" if ok else "over"
        self.rows.append({"what": what, "measured": measured, "target": target, "verdict": verdict})
        print(f"   {what}: {measured}", flush=True)

    def run(self, parts):
        self.prepare()
        for name in parts:
            self.PARTS[name](self)

    def prepare(self):
        self.session.provision(self.root)
        self.session.write_profile(self.camera_rtsp)
        self.bridge = Bridge(self.session)
        stub = self.session.folder / "stub"
        shutil.rmtree(stub, ignore_errors=True)
        decoder = self.session.test_program("stub-decoder.exe")
        for source, target in ((self.root / "bin" / BROKER, stub / "bin" / BROKER),
                               (decoder, stub / "deps" / "ffmpeg.exe")):
            target.parent.mkdir(parents=True)
            shutil.copy(source, target)
        self.stub = stub

    def tell_stub(self, lines):
        (self.stub / "deps" / "stub-decoder.txt").write_text(lines)

    def consumer(self, *arguments):
        program = self.session.tool("vextra-consumer.exe")
        return self.session.start(program, "watch", "--json", "-", *arguments)

    @staticmethod
    def consumer_stats(process, timeout_s):
        try:
            output, _ = process.communicate(timeout=timeout_s)
        finally:
            end(process)
        if process.returncode != 0:
            raise HarnessError(f"the consumer ended with {process.returncode}")
        return json.loads(output.splitlines()[-1])

    def sources(self):
        for name, url in (("synthetic source", None), ("RTSP over TCP", self.camera_rtsp)):
            self.stream(name, BareReader(self.session, self.decoder, url),
                        Broker(self.session, self.root, synthetic=url is None))

    def stream(self, name, bare, broker):
        say(f"{name}: {self.hold_s} s bare, {self.hold_s} s through the broker")
        bare_fps = self.rate_of(bare)
        with broker, self.bridge.lease():
            self.bridge.wait_for_live()
            time.sleep(SETTLE_S)
            stats = self.consumer_stats(self.consumer("--no-lease", "--seconds", str(self.hold_s)),
                                        self.hold_s + PATIENCE_S)
        self.details[name] = {"bareFps": bare_fps, "consumer": stats}
        self.row(f"{name}: frames a second over {self.hold_s} s", f"{stats['fps']:.2f} (bare {bare_fps:.2f})",
                 f"{FRAMES_PER_SECOND} ± {FPS_TOLERANCE}",
                 abs(stats["fps"] - FRAMES_PER_SECOND) <= FPS_TOLERANCE)
        faults = {key: stats[key] for key in ("missed", "torn", "stale")}
        self.row(f"{name}: missed, torn, stale", ", ".join(map(str, faults.values())), "0, 0, 0",
                 not any(faults.values()))

    def rate_of(self, program):
        with program as bare:
            time.sleep(SETTLE_S)
            first, first_at = bare.next_report()
            time.sleep(self.hold_s)
            last, last_at = bare.next_report()
        return (last - first) / (last_at - first_at)

    def exact_count(self):
        frames = self.hold_s * FRAMES_PER_SECOND
        say(f"exactly {frames} frames, then silence")
        self.tell_stub(f"frames={frames}\nframesPerSecond={FRAMES_PER_SECOND}\nthen=hang\n")
        with Broker(self.session, self.stub):
            # The consumer's own lease, so that it is there before the first frame. It gives up before the
            # broker would start the silent decoder again.
            stats = self.consumer_stats(
                self.consumer("--seconds", str(self.hold_s + 5), "--frames", str(frames)),
                self.hold_s + PATIENCE_S)
            wait_for(lambda: self.bridge.state == STATE_STOPPED, "the broker to stop")
            published = self.bridge.frame_counter
        self.details["exactCount"] = {"written": frames, "published": published, "consumer": stats}
        self.row("frames written by the decoder and published", f"{frames}, {published}", "the same",
                 published == frames)
        seen = stats["frames"], stats["missed"], stats["torn"]
        self.row("the same frames: read, missed, torn", ", ".join(map(str, seen)), f"{frames}, 0, 0",
                 seen == (frames, 0, 0))

    # CPU

    def bare_cpu(self, seconds):
        with BareReader(self.session, self.decoder) as bare:
            time.sleep(SETTLE_S)
            return self.cpu_of(bare.pid, lambda: bare.next_report()[0], seconds)

    def broker_cpu(self, seconds, visible=False):
        with Broker(self.session, self.root, visible) as broker, self.bridge.lease():
            self.bridge.wait_for_live()
            time.sleep(SETTLE_S)
            return self.cpu_of(broker.pid, lambda: self.bridge.frame_counter, seconds)

    def cpu_of(self, pid, frames, seconds):
        """Frames, the process's CPU ms for them, and Wine's server's in the same time."""
        first, own, server = frames(), cpu_ms(pid), cpu_ms(self.session.server_pid)
        time.sleep(seconds)
        last, own_end, server_end = frames(), cpu_ms(pid), cpu_ms(self.session.server_pid)
        return last - first, own_end - own, server_end - server

    def cpu(self):
        rounds, seconds = (1, 10) if self.quick else (3, 20)
        say(f"CPU time: {rounds} x {seconds} s bare, hidden and visible in turns")
        kinds = {"bare": self.bare_cpu, "hidden": self.broker_cpu,
                 "visible": functools.partial(self.broker_cpu, visible=True)}
        samples = {kind: [] for kind in kinds}
        for _ in range(rounds):
            for kind, measure in kinds.items():
                samples[kind].append(measure(seconds))
        names = "frames", "cpuMs", "wineServerMs"
        self.details["cpu"] = {kind: [dict(zip(names, sample)) for sample in taken]
                               for kind, taken in samples.items()}
        own, server = {}, {}
        for kind, taken in samples.items():
            frames = sum(sample[0] for sample in taken)
            own[kind] = sum(sample[1] for sample in taken) / frames
            server[kind] = sum(sample[2] for sample in taken) / frames
        self.row("CPU a frame, bare reader", f"{own['bare']:.2f} ms")
        for kind in ("hidden", "visible"):
            ratio = own[kind] / own["bare"]
            judged = (f"{CPU_FACTOR} x bare", ratio <= CPU_FACTOR) if kind == "hidden" else ()
            self.row(f"CPU a frame, broker {kind}", f"{own[kind]:.2f} ms ({ratio:.2f} x)", *judged)
        self.row("Wine's server for it: bare, hidden, visible",
                 ", ".join(f"{server[kind]:.2f}" for kind in kinds) + " ms")

    # Idle

    def reference(self, seconds):
        """Thread rates and private memory of the idle reference, and its passes a second."""
        program = self.session.test_program("bench-idle-reference.exe")
        process = self.session.start(program, str(seconds + 3))
        try:
            pid = wait_for(lambda: self.session.pid_of(program), "the idle reference")
            time.sleep(2)
            rates, private_mib = thread_rates(pid, seconds), memory(pid)["privateMib"]
            output, _ = process.communicate(timeout=PATIENCE_S)
        finally:
            end(process)
        return self.own_threads(pid, rates), private_mib, float(output.partition("=")[2])

    @staticmethod
    def own_threads(pid, rates):
        """The main thread, the worker, and whatever else is awake; Wine's pool has a name of its own."""
        rest = sorted((tid for tid in rates if tid != pid and not rates[tid]["name"].startswith("wine_")),
                      key=lambda tid: rates[tid]["switches"], reverse=True)
        if not rest:
            raise HarnessError("an idle process without its worker thread")
        others = {f"{rates[tid]['name']} {tid}": rates[tid]["switches"] for tid in rates
                  if tid not in (pid, rest[0])}
        return {"main": rates[pid], "worker": rates[rest[0]], "othersOfOurs": len(rest) - 1, "others": others,
                "cpuMs": sum(rate["cpuMs"] for rate in rates.values())}

    def idle(self):
        seconds = 10 if self.quick else 20
        say(f"idle: {seconds} s of the reference, {seconds} s of the broker")
        reference, reference_mib, reference_passes = self.reference(seconds)
        with Broker(self.session, self.root) as broker:
            time.sleep(2)
            log_bytes = broker.log.stat().st_size
            idle = self.own_threads(broker.pid, thread_rates(broker.pid, seconds))
            logged = broker.log.stat().st_size - log_bytes
            private_mib = broker.probe()["privateMib"]
        # Each wait costs a thread the same number of switches in both programs.
        passes = reference_passes * idle["worker"]["switches"] / reference["worker"]["switches"]
        others = sum(idle["others"].values())
        low, high = IDLE_PASSES_PER_SECOND
        self.details["idle"] = {"reference": reference, "referencePasses": reference_passes, "broker": idle,
                                "referencePrivateMib": reference_mib, "privateMib": private_mib,
                                "loggedBytes": logged}
        self.row("idle: passes of the Supervisor a second", f"{passes:.1f} (bare {reference_passes:.1f})",
                 f"{low} to {high}", low <= passes <= high)
        window = idle["main"]["switches"], reference["main"]["switches"]
        self.row("idle: switches of the window's thread a second", f"{window[0]:.1f} (bare {window[1]:.1f})",
                 f"{WINDOW_FACTOR} x bare", window[0] <= WINDOW_FACTOR * window[1])
        self.row("idle: further threads of ours; switches a second of Wine's",
                 f"{idle['othersOfOurs']}; {others:.1f}", "0", idle["othersOfOurs"] == 0)
        self.row("idle: bytes logged", str(logged), "0", logged == 0)
        self.row("idle: CPU a second", f"{idle['cpuMs']:.1f} ms (bare {reference['cpuMs']:.1f} ms)")
        self.row("idle: private memory", f"{private_mib:.1f} MiB (bare {reference_mib:.1f} MiB)",
                 f"below {IDLE_PRIVATE_MIB} MiB", private_mib < IDLE_PRIVATE_MIB)

    def refusals(self):
        """The price of a refused demand begin, which is repeated without a wait: a lease, and no bridge."""
        seconds = 5 if self.quick else 20
        say(f"a refused demand: {seconds} s of a lease without latest.frame")
        aside = self.bridge.frame_path.with_suffix(".aside")
        with Broker(self.session, self.root) as broker:
            self.bridge.frame_path.rename(aside)
            try:
                with self.bridge.lease():
                    wait_for(lambda: "BRIDGE_OPEN_FAILED" in broker.log.read_text(), "the first refusal")
                    before, log_bytes = cpu_ms(broker.pid), broker.log.stat().st_size
                    start = time.monotonic()
                    time.sleep(seconds)
                    logged = broker.log.stat().st_size - log_bytes
                    cpu, lasted = cpu_ms(broker.pid) - before, time.monotonic() - start
            finally:
                aside.rename(self.bridge.frame_path)
            refusals = broker.log.read_bytes()[log_bytes:log_bytes + logged].count(b"BRIDGE_OPEN_FAILED")
        self.details["refusals"] = {"seconds": lasted, "cpuMs": cpu, "loggedBytes": logged, "count": refusals}
        self.row("a refused demand: refusals a second", f"{refusals / lasted:.0f}")
        self.row("a refused demand: CPU a second", f"{cpu / lasted:.0f} ms")
        self.row("a refused demand: bytes logged a second", f"{logged / lasted:.0f}")

    def first_live(self):
        rounds = 3 if self.quick else 7
        say(f"first frame: {rounds} x bare and broker in turns")
        bare, live = [], []
        with Broker(self.session, self.root):
            for _ in range(rounds):
                with BareReader(self.session, self.decoder, frames=1) as reader:
                    bare.append(reader.first_frame_ms)
                start = time.monotonic()
                with self.bridge.lease():
                    self.bridge.wait_for_live(pause_s=0.0005)
                    live.append((time.monotonic() - start) * 1000)
        self.details["firstLiveMs"] = {"bare": bare, "broker": live}
        bare_ms, live_ms = statistics.median(bare), statistics.median(live)
        self.row("from the lease to the first live frame",
                 f"{live_ms:.0f} ms (bare {bare_ms:.0f} ms from the decoder's start)",
                 f"bare + {FIRST_LIVE_MS} ms", live_ms - bare_ms <= FIRST_LIVE_MS)

    def episodes(self):
        early, late = 5, 20 if self.quick else 200
        say(f"{late} demand episodes")
        self.tell_stub(f"frames=endless\nframesPerSecond={FRAMES_PER_SECOND}\n")
        samples = {}
        with Broker(self.session, self.stub) as broker:
            for episode in range(1, late + 1):
                with self.bridge.lease():
                    self.bridge.wait_for_live()
                    time.sleep(0.3)
                    if episode in (early, late):
                        samples[f"active {episode}"] = broker.probe()
                for record in (self.stub / "deps").glob("start-*.record"):
                    record.unlink()
                if episode in (early, late) or episode % 50 == 0:
                    time.sleep(1)
                    samples[f"idle {episode}"] = broker.probe()
        self.details["episodes"] = samples
        active = max(samples[f"active {episode}"]["privateMib"] for episode in (early, late))
        self.row("active: private memory", f"{active:.1f} MiB", f"below {ACTIVE_PRIVATE_MIB} MiB",
                 active < ACTIVE_PRIVATE_MIB)
        self.growth_rows(f"idle after {early} and {late} episodes", samples[f"idle {early}"],
                         samples[f"idle {late}"], GROWTH_MIB)

    def growth_rows(self, when, before, after, allowed_mib):
        self.row(f"{when}: dirty private memory", f"{before['dirtyMib']:.2f}, {after['dirtyMib']:.2f} MiB",
                 f"+ {allowed_mib} MiB at most", after["dirtyMib"] - before["dirtyMib"] <= allowed_mib)
        for what in ("handles", "threads"):
            self.row(f"{when}: {what}", f"{before[what]}, {after[what]}", "the same",
                     before[what] == after[what])

    # GStreamer

    def gstreamer(self):
        if self.gstreamer_root is None:
            say("GStreamer: not measured, there is no runtime (./dev gstreamer builds one)")
            return
        variables = {"GSTREAMER_1_0_ROOT_X86_64": windows_path(self.gstreamer_root)}
        data = self.session.local_app_data / "Vextra" / "CameraVirtualMFBeta"
        self.session.run(self.root / "bin" / BROKER, "--import-legacy-env", "--version", variables={
            "CAMERA_VIRTUAL_VEXTRA_SOURCE": "custom", "CAMERA_VIRTUAL_VEXTRA_CUSTOM_URL": self.camera_rtsp,
            "CAMERA_VIRTUAL_VEXTRA_DECODER_BACKEND": "gstreamer"})
        try:
            self.stream("GStreamer, RTSP over TCP", BarePlayer(self.session, self.camera_rtsp, variables),
                        self.gstreamer_broker(variables))
            self.gstreamer_cpu(variables)
            self.gstreamer_episodes(variables)
        finally:
            for file in data.glob("settings.dpapi*"):
                file.unlink()

    def gstreamer_broker(self, variables):
        return Broker(self.session, self.root, synthetic=False, variables=variables)

    def gstreamer_cpu(self, variables):
        rounds, seconds = (1, 10) if self.quick else (3, 20)
        say(f"GStreamer: CPU time: {rounds} x {seconds} s bare and broker in turns")
        samples = {"bare": [], "broker": []}
        for _ in range(rounds):
            with BarePlayer(self.session, self.camera_rtsp, variables) as bare:
                time.sleep(SETTLE_S)
                samples["bare"].append(self.cpu_of(bare.pid, lambda: bare.next_report()[0], seconds))
            with self.gstreamer_broker(variables) as broker, self.bridge.lease():
                self.bridge.wait_for_live()
                time.sleep(SETTLE_S)
                samples["broker"].append(self.cpu_of(broker.pid, lambda: self.bridge.frame_counter, seconds))
        self.details["gstreamerCpu"] = samples
        frame_ms = {kind: sum(sample[1] for sample in taken) / sum(sample[0] for sample in taken)
                    for kind, taken in samples.items()}
        ratio = frame_ms["broker"] / frame_ms["bare"]
        self.row("GStreamer: CPU a frame", f"{frame_ms['broker']:.2f} ms (bare {frame_ms['bare']:.2f} ms)",
                 f"{GSTREAMER_CPU_FACTOR} x bare", ratio <= GSTREAMER_CPU_FACTOR)

    def gstreamer_episodes(self, variables):
        early, late = 5, 20 if self.quick else 200
        say(f"GStreamer: {late} starts and stops")
        samples = {}
        with self.gstreamer_broker(variables) as broker:
            for episode in range(1, late + 1):
                with self.bridge.lease():
                    self.bridge.wait_for_live()
                if episode in (early, late) or episode % 50 == 0:
                    time.sleep(GLIB_IDLE_THREAD_S)
                    samples[episode] = broker.probe()
        self.details["gstreamerEpisodes"] = samples
        self.growth_rows(f"GStreamer: idle after {early} and {late} starts", samples[early], samples[late],
                         GSTREAMER_GROWTH_MIB)

    def painting(self):
        say("painting the window, beside a bare stretch of the same frame")
        arguments = ("--quick",) if self.quick else ()
        result = json.loads(self.session.run(self.session.test_program("bench-paint.exe"), *arguments,
                                             timeout_s=600))
        self.details["painting"] = result
        for size in result["sizes"]:
            factor = size["productMs"] / size["bareMs"]
            self.row(f"a paint with live preview at {size['width']} x {size['height']}",
                     f"{size['productMs']:.1f} ms, {factor:.2f} x bare ({size['bareMs']:.1f} ms)",
                     f"{PAINT_FACTOR} x at most", factor <= PAINT_FACTOR)
        paints = result["paints"]
        when = f"after {paints} paints, {paints // 10} panels, {paints // 100} changes of DPI"
        for what, key in (("GDI objects", "gdi"), ("handles", "handles")):
            before, after = result[f"{key}Before"], result[f"{key}After"]
            self.row(f"{when}: {what}", f"{before}, {after}", "no more", after <= before)
        self.row("paints in 2 s: shown, hidden", f"{result['visiblePaints']}, {result['hiddenPaints']}",
                 "some, none", result["visiblePaints"] > 0 and result["hiddenPaints"] == 0)

    def playback(self):
        Playback(self, self.only_playback, self.other_decoder).run()

    def streams(self):
        """Takes other servers and an encoder, so that it is measured when it is asked for."""
        decoder = self.other_decoder or self.decoder
        streams = HardStreams(self.session, self.root, [decoder], self.only_playback)
        for name, results, found in streams.run():
            self.row(name, summary(results, found), "nothing amiss", not found)
            self.details.setdefault("hardStreams", {})[name] = results[0]

    def servers(self):
        ForeignServers(self, self.only_playback, self.other_decoder).run()

    PARTS = {"sources": sources, "exact-count": exact_count, "cpu": cpu, "idle": idle, "refusals": refusals,
             "first-live": first_live, "episodes": episodes, "gstreamer": gstreamer, "painting": painting,
             "playback": playback, "streams": streams, "servers": servers}
    WHEN_ASKED_FOR = ("streams", "servers")


# --- Report -------------------------------------------------------------------------------------------------


def print_table(rows):
    columns = ("what", "measured", "target", "verdict")
    widths = [max(len(column), *(len(row[column]) for row in rows)) for column in columns]
    print()
    for cells in (columns, ["-" * width for width in widths], *(row.values() for row in rows)):
        print(" | ".join(cell.ljust(width) for cell, width in zip(cells, widths)).rstrip())


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--session", type=pathlib.Path, required=True, help="folder of a running session")
    parser.add_argument("--out", type=pathlib.Path, required=True,
                        help="build folder, laid out as an installation")
    parser.add_argument("--camera-rtsp", required=True, metavar="URL", help="an endless RTSP stream")
    parser.add_argument("--gstreamer-root", type=pathlib.Path, metavar="FOLDER", help="of a runtime for Windows")
    parser.add_argument("--quick", action="store_true", help="shorter, and less exact")
    parser.add_argument("--only", action="append", choices=Bench.PARTS, metavar="PART",
                        help=f"that part alone, may be repeated: {', '.join(Bench.PARTS)}; "
                             f"only then: {', '.join(Bench.WHEN_ASKED_FOR)}")
    parser.add_argument("--match", metavar="PATTERN", help="of playback, streams and servers: what has such a name alone")
    parser.add_argument("--ffmpeg", type=pathlib.Path, metavar="FILE", help="of the same: another ffmpeg.exe")
    options = parser.parse_args()

    results = options.out.parent / "bench" / "results.json"
    results.parent.mkdir(parents=True, exist_ok=True)
    bench = Bench(Session(options.session, options.out), options)
    load = os.getloadavg()
    start = time.monotonic()
    try:
        bench.run(options.only or [name for name in Bench.PARTS if name not in Bench.WHEN_ASKED_FOR])
    except (HarnessError, StreamError, OSError, subprocess.TimeoutExpired) as error:
        print(f"bench: {error}", file=sys.stderr)
        return 1
    finally:
        results.write_text(json.dumps({
            "rows": bench.rows, "details": bench.details, "quick": options.quick,
            "seconds": round(time.monotonic() - start), "loadBefore": load, "loadAfter": os.getloadavg(),
            "processors": os.cpu_count(), "kernel": platform.release()}, indent=2) + "\n")
    print_table(bench.rows)
    print(f"\nload before {load[0]:.1f}, after {os.getloadavg()[0]:.1f}; all figures: {results}")
    return 0


if __name__ == "__main__":
    sys.exit(main())
