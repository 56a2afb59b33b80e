#!/usr/bin/env python3
"""Runs the built broker with the real decoder against a camera that fails on purpose and viewers that come, go and
crash; judges what the broker, its viewers and the system recorded. docs/testing.md says what is looked at.

The exit status is 0 when nothing was found. The figures, every sample and the findings lie in FOLDER/results.json.
"""
import argparse
import contextlib
import itertools
import json
import os
import pathlib
import random
import re
import shutil
import subprocess
import sys
import threading
import time

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE.parent / "support"))
from broker_session import (CLOCK_LAG_MS, PATIENCE_S, SESSION_SCRIPT, STATE_LIVE, STATE_STOPPED, Bridge,  # noqa: E402
                            Broker, HarnessError, Session, end, memory, threads, tick_now, wait_for, windows_path)
import plot  # noqa: E402
import rules  # noqa: E402
from schedule import FAULTS, FIRST_STREAM, STREAMS, rounds, short_rounds  # noqa: E402
from unreliable_camera import UnreliableCamera  # noqa: E402

CAMERA = HERE.parents[1] / "tools" / "camera" / "local_camera.py"
SETTLE_FRAMES = 40  # more than clear the failures
GUEST_S = 4
BACK_S = 40  # the longest wait for an attempt, the attempt, and then some
EFFECT_S = 15
STARTS = 3
STALL_WORTH_NOTING_MS = 5
WARM_UP_S = 300
TREND_S = 900  # below that, too few episodes follow the warm-up to fill four quarters with idle samples
ALREADY_RUNNING = 2
LIMITS = {  # while idle
    "dirtyKib": rules.Limits(least_step=16, most=512),
    "handles": rules.Limits(least_step=1, most=4),
    "threads": rules.Limits(least_step=1, most=1),
    "gdi": rules.Limits(least_step=1, most=8),
}


class NeverCame(HarnessError):
    pass


class Log:
    """The broker's log, as far as it has been written."""

    def __init__(self, path):
        self._path, self._read, self._entries = path, 0, []

    def so_far(self):
        with contextlib.suppress(FileNotFoundError), open(self._path, "rb") as file:
            file.seek(self._read)
            whole = file.read().rpartition(b"\n")[0]
            self._read += len(whole)
            self._entries += rules.parse_log(whole.decode())
        return self._entries


# --- Those who watch ---


class Viewer:
    """A soak-reader. What it saw is kept until the end."""

    _numbers = itertools.count(1)
    starts_lost = 0

    def __init__(self, session, folder, eager=False):
        self.name = f"viewer {next(self._numbers)}{' (eager)' if eager else ''}"
        self.reads, self.seconds = [], []
        self.slot = self.released_ms = None
        self._stop_file = folder / f"{self.name.replace(' ', '-')}.stop"
        arguments = ["--stop-file", windows_path(self._stop_file)] + (["--eager"] if eager else [])
        for _ in range(STARTS):
            self._process = session.start(session.test_program("soak-reader.exe"), *arguments)
            self._listener = threading.Thread(target=self._listen, daemon=True)
            self._listener.start()
            wait_for(lambda: self.slot is not None or not self._listener.is_alive(), f"the lease of {self.name}")
            if self.slot is not None:
                return
            # On a busy machine Wine now and then ends a program, with 0, before it has said a word.
            if (status := self._process.wait()) != 0:
                break
            Viewer.starts_lost += 1
        raise HarnessError(f"{self.name} ended with {status} and without a word")

    def _listen(self):
        for line in self._process.stdout:
            kind, _, rest = line.strip().partition(" ")
            fields = dict(field.split("=", 1) for field in f"{kind} {rest}".split() if "=" in field)
            if kind.startswith("frame="):
                self.reads.append((self.name, int(fields["frame"]), fields["fnv1a64"]))
            elif kind == "second":
                self.seconds.append({"tick": int(fields["tick"]), "frames": int(fields["frames"]),
                                     "ageMs": int(fields["age"]), "liveAgeMs": int(fields["live_age"]),
                                     "torn": int(fields["torn"])})
            elif kind == "lease":
                self.slot = int(fields["slot"])
            elif kind == "released":
                self.released_ms = int(fields["tick"])

    def leave(self):
        """Returns when its demand ended."""
        self._stop_file.touch()
        try:
            status = self._process.wait(PATIENCE_S)
        finally:
            end(self._process)
            self._listener.join()
            self._stop_file.unlink()
        if status != 0 or self.released_ms is None:
            raise HarnessError(f"{self.name} ended with {status}")
        return self.released_ms

    def crash(self, bridge):
        """Returns when its lease stops counting, by the last heartbeat that it left behind."""
        end(self._process)
        self._listener.join()
        time.sleep(1)  # more than a heartbeat, should anything of it be alive
        return bridge.heartbeat(self.slot) + rules.LEASE_MS


# --- What is sampled ---


class Sampler:
    """Once a second, until it is told to stop: what the broker holds and shows, how many decoders live. Sweeps away the
    raw frames that come with the log of hashes."""

    def __init__(self, session, broker, bridge, evidence):
        self.samples, self.stalls = [], []
        self._session, self._broker, self._bridge, self._evidence = session, broker, bridge, evidence
        self._held, self._stopped = {}, threading.Event()
        self._probe = session.start(session.test_program("soak-probe.exe"), str(broker.windows_pid))
        self._threads = [threading.Thread(target=step, daemon=True)
                         for step in (self._listen, self._sample, self._watch_the_machine)]
        for thread in self._threads:
            thread.start()

    def _listen(self):
        for line in self._probe.stdout:
            self._held = {key: int(value) for key, value in re.findall(r"(\w+)=(\d+)", line)}

    def _sample(self):
        while not self._stopped.wait(1):
            for file in self._evidence.glob("producer-*.bgra"):
                file.unlink()
            self._bridge.touch_pages()
            with contextlib.suppress(OSError):  # a broker that has just ended
                sample = {"tick": tick_now(), "state": self._bridge.state, "load": os.getloadavg()[0],
                          "decoders": self._decoders(),
                          "threads": len(threads(self._broker.pid)),
                          "dirtyKib": memory(self._broker.pid)["dirtyMib"] * 1024, **self._held}
                self.samples.append(sample)

    def _decoders(self):
        """A decoder that starts makes Wine's console host, a fork of itself for some milliseconds: more than one is looked
        at once more."""
        count = len(self._session.pids_of("ffmpeg.exe"))
        if count > 1:
            time.sleep(0.05)
            count = len(self._session.pids_of("ffmpeg.exe"))
        return count

    def _watch_the_machine(self):
        """Sleeps for 10 ms again and again, and notes how much longer it took."""
        before = tick_now()
        while not self._stopped.wait(0.01):
            now = tick_now()
            if (late := now - before - 10) >= STALL_WORTH_NOTING_MS:
                self.stalls.append((now, late))
            before = now

    def stop(self):
        self._stopped.set()
        end(self._probe)
        for thread in self._threads:
            thread.join()


# --- The run ---


class Soak:
    def __init__(self, session, folder, camera_rtsp, schedule, seconds, seed):
        self.session, self.folder, self.schedule, self.seconds = session, folder, schedule, seconds
        self.camera = UnreliableCamera(camera_rtsp, FIRST_STREAM, seed)
        self.evidence = folder / "evidence"
        shutil.rmtree(self.evidence, ignore_errors=True)
        self.evidence.mkdir()
        self.viewers, self.spans, self.demand_ends, self.rounds = [], [], [], 0
        self.log = Log(self.evidence / "app.log")
        self.sampler, self.hidden = None, False

    def run(self):
        """Findings of the harness itself; those about the broker come from judge()."""
        self.session.write_profile(self.camera.url)
        try:
            with Broker(self.session, self.session.out, visible=True, synthetic=False,
                        evidence=self.evidence) as self.broker:
                self.bridge = Bridge(self.session)
                self.sampler = Sampler(self.session, self.broker, self.bridge, self.evidence)
                try:
                    self.started = time.monotonic()
                    for one in self.schedule:
                        if time.monotonic() - self.started >= self.seconds:
                            break
                        self.round(one)
                        self.rounds += 1
                finally:
                    self.sampler.stop()
            if left := self.session.pids_of("ffmpeg.exe"):
                return [f"{len(left)} decoders outlived the broker"]
        except (HarnessError, OSError, subprocess.TimeoutExpired) as error:
            return [f"the run broke off: {error}"]
        finally:
            self.camera.close()
            for viewer in self.viewers:
                end(viewer._process)
        return []

    def say(self, text):
        print(f"   {time.monotonic() - self.started:6.1f} s  {text}", flush=True)

    def join(self, **how):
        viewer = Viewer(self.session, self.folder, **how)
        self.viewers.append(viewer)
        return viewer

    def round(self, one):
        self.say(f"round {self.rounds + 1}: {', '.join(step.fault for step in one.steps)}; {one.farewell}")
        if one.hidden != self.hidden:
            self.hide() if one.hidden else self.show()
        leases = []
        viewer = self.join()
        self.wait_until_live("the first picture")
        for step in one.steps:
            self.wait_for_frames(SETTLE_FRAMES if step.settles else 1)
            guest = self.join(eager=step.guest == "eager") if step.guest else None
            guest_left = time.monotonic() + GUEST_S
            self.fault(step)
            if guest:
                time.sleep(max(0, guest_left - time.monotonic()))
                leases.append(guest.crash(self.bridge) if step.guest == "crashing" else guest.leave())
        leases.append(viewer.crash(self.bridge) if one.farewell == "crashing" else viewer.leave())
        self.demand_ends.append(max(leases))
        self.wait_for(lambda: self.bridge.state == STATE_STOPPED, "the broker to stop")
        self.camera.show(FIRST_STREAM)
        time.sleep(one.rest_s)

    def fault(self, step):
        self.say(f"  {step.fault}" + (f" for {step.holds_s} s" if step.holds_s else "") +
                 (f", with a guest: {step.guest}" if step.guest else ""))
        begin = tick_now()
        camera = self.camera
        {"drop": camera.drop, "short freeze": camera.freeze, "freeze": camera.freeze, "long freeze": camera.freeze,
         "garbled media": camera.garble_media, "garbage answers": camera.answer_garbage, "refused": camera.refuse,
         "absent": camera.go_away, "exhausted": camera.refuse,
         "resolution": lambda: camera.show(STREAMS["resolution"][camera.stream]),
         "codec": lambda: camera.show(STREAMS["codec"][camera.stream])}[step.fault]()
        effect = FAULTS[step.fault]
        if effect.gives_up_ms:
            # A busy decoder may have pictures left, and gives them first.
            self.wait_for_events(rules.GIVEN_UP, rules.MOST_FAILURES if step.fault == "exhausted" else 1, begin)
        time.sleep(max(0, step.holds_s - (tick_now() - begin) / 1000))
        camera.heal()
        self.spans.append(rules.FaultSpan(step.fault, begin, tick_now(), effect.gives_up_ms))
        if step.fault != "exhausted":
            self.wait_until_live(f"the picture after {step.fault}", past=self.bridge.frame_counter)

    def wait_for_frames(self, count):
        target = self.bridge.frame_counter + count
        self.wait_for(lambda: self.bridge.frame_counter >= target, f"{count} frames")

    def wait_until_live(self, what, past=0):
        self.wait_for(lambda: self.bridge.state == STATE_LIVE and self.bridge.frame_counter > past, what)

    def wait_for_events(self, code, count, since_ms):
        """In vain too, but not for ever: what did not happen is for the rules to say."""
        def logged():
            return sum(entry.code == code and entry.tick_ms >= since_ms - CLOCK_LAG_MS
                       for entry in self.log.so_far()) >= count
        with contextlib.suppress(NeverCame):
            self.wait_for(logged, f"{count} times {code}", timeout_s=EFFECT_S * count, pause_s=0.25)

    def wait_for(self, condition, what, timeout_s=BACK_S, pause_s=0.02):
        deadline = time.monotonic() + timeout_s
        while not condition():
            if (status := self.broker.process.poll()) is not None:
                raise HarnessError(f"the broker has ended with {status}")
            if time.monotonic() > deadline:
                raise NeverCame(f"waited {timeout_s} s for {what}")
            time.sleep(pause_s)

    def hide(self):
        self.session.run(self.session.test_program("window-driver.exe"), "close")
        self.hidden = True

    def show(self):
        """As a user does who starts it again."""
        second = self.session.start(self.broker.executable)
        try:
            if (status := second.wait(PATIENCE_S)) != ALREADY_RUNNING:
                raise HarnessError(f"a second broker ended with {status}")
        finally:
            end(second)
        self.hidden = False


# --- Judgement ---


def judge(soak, warm_up_s):
    """Findings about the broker; none is a pass. warm_up_s: None when the run is too short to show a trend."""
    log, samples = soak.log.so_far(), soak.sampler.samples
    machine = rules.Machine(soak.sampler.stalls)
    found = rules.torn_frames(log, [read for viewer in soak.viewers for read in viewer.reads])
    found += rules.stale_pictures([(viewer.name, second["tick"], second["liveAgeMs"]) for viewer in soak.viewers
                                   for second in viewer.seconds], machine)
    found += rules.recoveries(log, machine)
    found += rules.fault_effects(log, soak.spans, machine)
    found += rules.stops(log, soak.demand_ends, machine)
    found += rules.orphans(log, [(sample["tick"], sample["decoders"]) for sample in samples], machine)
    if not log or log[-1].code != rules.CLEAN_EXIT:
        found.append("the broker did not end in order")
    idle = idle_samples(log, samples)
    begin = 0 if warm_up_s is None else samples[0]["tick"] + warm_up_s * 1000 if samples else 0
    for what, limits in LIMITS.items():
        series = [(sample["tick"], sample[what]) for sample in idle if sample["tick"] >= begin and what in sample]
        found += rules.rise(what, series, limits) if warm_up_s is None else rules.growth(what, series, limits)
    return found


def idle_samples(log, samples):
    """Those a second and more after an episode, when all that belonged to it is gone."""
    spans = rules.idle_spans(log)[1:]  # what the first start holds is not what an episode leaves
    return [sample for sample in samples
            if any(since + 1000 < sample["tick"] < until for since, until in spans)]


def figures(soak):
    """What was seen, for people."""
    seconds = [second for viewer in soak.viewers for second in viewer.seconds]
    reads = [read for viewer in soak.viewers for read in viewer.reads]
    count = {code: sum(entry.code == code for entry in soak.log.so_far())
             for code in (rules.FRAME, rules.START, rules.GIVEN_UP, rules.BEGIN)}
    samples, stalls = soak.sampler.samples, soak.sampler.stalls
    back = [entry.tick_ms - start.tick_ms for start, entry in first_frames(soak.log.so_far())]
    rows = {
        "minutes": f"{(time.monotonic() - soak.started) / 60:.1f}",
        "rounds, faults, viewers": f"{soak.rounds}, {len(soak.spans)}, {len(soak.viewers)}",
        "viewers that Wine lost at their start": str(Viewer.starts_lost),
        "decoders started, given up": f"{count[rules.START]}, {count[rules.GIVEN_UP]}",
        "frames published; pictures read and compared": f"{count[rules.FRAME]}; {len(reads)}",
        "reads given up": str(sum(viewer.seconds[-1]["torn"] for viewer in soak.viewers if viewer.seconds)),
        "oldest update that was Live": f"{max((second['liveAgeMs'] for second in seconds), default=0)} ms",
        "from a decoder's start to its first frame": f"{min(back)} to {max(back)} ms" if back else "never",
        "machine: worst delay, delays above 200 ms, mean load":
            f"{max((late for _, late in stalls), default=0)} ms, {sum(late > 200 for _, late in stalls)}, "
            f"{sum(sample['load'] for sample in samples) / max(len(samples), 1):.1f}",
    }
    if idle := idle_samples(soak.log.so_far(), samples):
        for what in LIMITS:
            values = [sample[what] for sample in idle if what in sample]
            if values:
                rows[f"idle: {what}, first, least, most, last"] = \
                    ", ".join(f"{value:g}" for value in (values[0], min(values), max(values), values[-1]))
    return rows


def first_frames(log):
    start = None
    for entry in log:
        if entry.code == rules.START:
            start = entry
        elif entry.code == rules.FRAME and start:
            yield start, entry
            start = None


def report(soak, findings, seed, folder):
    rows = figures(soak)
    width = max(map(len, rows))
    print()
    for what, value in rows.items():
        print(f"{what.ljust(width)}  {value}")
    (folder / "results.json").write_text(json.dumps({
        "seed": seed, "figures": rows, "findings": findings, "samples": soak.sampler.samples,
        "seconds": {viewer.name: viewer.seconds for viewer in soak.viewers},
        "faults": [vars(span) for span in soak.spans]}, indent=1) + "\n")
    seen = [second for viewer in soak.viewers if "eager" not in viewer.name for second in viewer.seconds]
    plot.draw(folder / "soak.png", soak.sampler.samples, seen, soak.spans)
    print(f"\n{len(findings)} findings; {folder / 'soak.png'}, {folder / 'results.json'}")
    for finding in findings:
        print(f"FOUND: {finding}")


# --- Start ---


@contextlib.contextmanager
def local_camera():
    process = subprocess.Popen([CAMERA, "--stdin-control", "--fps", "16"], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                               text=True)
    try:
        line = process.stdout.readline()
        if not line:
            raise HarnessError("the local camera did not start")
        yield json.loads(line)["rtsp"]
    finally:
        process.terminate()
        process.wait()


@contextlib.contextmanager
def wine_session(folder, build):
    wine = folder / "wine"
    wine.mkdir(exist_ok=True)
    for command in ("down", "up"):
        subprocess.run([SESSION_SCRIPT, command, wine, *(["--tools", build / "tests"] if command == "up" else [])],
                       check=True)
    try:
        yield Session(wine, build)
    finally:
        subprocess.run([SESSION_SCRIPT, "down", wine], check=False)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--build", type=pathlib.Path, required=True, help="build folder, laid out as an installation")
    parser.add_argument("--folder", type=pathlib.Path, required=True, help="for the session and the results")
    parser.add_argument("--minutes", type=float, default=30)
    parser.add_argument("--short", action="store_true", help="each fault once, in a fixed order")
    parser.add_argument("--seed", type=int, default=None, help="of the schedule; a new one unless told")
    options = parser.parse_args()
    if not options.minutes > 0:
        parser.error("--minutes has to be more than 0")
    seed = 1 if options.short else random.randrange(1_000_000) if options.seed is None else options.seed
    seconds = 600 if options.short else options.minutes * 60
    options.folder.mkdir(parents=True, exist_ok=True)
    print(f"soak: seed {seed}", flush=True)
    try:
        with local_camera() as camera_rtsp, wine_session(options.folder, options.build) as session:
            soak = Soak(session, options.folder.resolve(), camera_rtsp,
                        short_rounds() if options.short else rounds(seed), seconds, seed)
            findings = soak.run()
            if soak.sampler is None:
                raise HarnessError("; ".join(findings))
            findings += judge(soak, WARM_UP_S if seconds >= TREND_S and not options.short else None)
            report(soak, findings, seed, options.folder)
    except HarnessError as error:
        print(f"soak: {error}", file=sys.stderr)
        return 1
    return 1 if findings else 0


if __name__ == "__main__":
    sys.exit(main())
