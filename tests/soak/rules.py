"""What the records of a soak must show. Pure: records in, findings out as sentences; no finding is a pass.

All times are ticks in ms: the broker's log, the readers and the harness share one clock, up to the step by which a
process's own view of it may lag.
"""
import bisect
import re
from dataclasses import dataclass

BEGIN, STOP, LAST_DEMAND_GONE = "DEMAND_BEGIN_DEVICE_UNCHANGED", "STOP_COMPLETE", "LAST_DEMAND_RELEASED_PRODUCER_STOP"
START, GIVEN_UP, CLEAN_EXIT = "FFMPEG_START_OWN_PROCESS", "PRODUCER_RECONNECT_FALLBACK", "APP_EXIT_CLEAN"
FRAME = "frame"
NEVER_HERE = ("FFMPEG_LAUNCH_FAILED", "FFMPEG_JOB_ASSIGN_FAILED", "BRIDGE_OPEN_FAILED", "OWNER_OR_ELEVATION_BLOCK")

CLOCK_STEP_MS = 20
SLACK_MS = 1000  # to start or end a process, and to write a line about it
FRESH_MS = 2000
STALL_MS = 7000
FIRST_FRAME_MS = 7000
RETRY_MS = (1000, 2000, 4000, 8000)  # after the first failure in a row, the second, ...; the last for all others
MOST_FAILURES = 5
HEALTHY_FRAMES = 32
LEASE_MS = 3000
GRACE_MS = 500
KEY_FRAME_MS = 1500  # the camera makes one a second
# The broker withdraws Live in the first pass that sees an age above FRESH_MS, so that a reader may find it a pass later
# still. The clock that both of them read moves in steps of 16 ms: an age can look a step greater than it was.
PASS_MS = 5
TICK_STEP_MS = 16
LIVE_AGE_SLACK_MS = PASS_MS + TICK_STEP_MS


@dataclass(frozen=True)
class Entry:
    """A line of the broker's log. Of a frame: its number and its hash."""
    tick_ms: int
    code: str
    frame: int = 0
    fnv1a64: str = ""


@dataclass(frozen=True)
class FaultSpan:
    """What was done to the camera, and between when. gives_up_ms: the age of the newest frame at which the decoder has
    to be given up, at least and at most, or None when it must not be."""
    kind: str
    begin_ms: int
    end_ms: int
    gives_up_ms: tuple | None


def parse_log(text):
    entries = []
    for line in text.splitlines():
        if event := re.match(r"tick=(\d+) (\S+) ", line):
            entries.append(Entry(int(event[1]), event[2]))
        elif frame := re.match(r"producer_frame=(\d+) fnv1a64=(\w+) tick=(\d+) ", line):
            entries.append(Entry(int(frame[3]), FRAME, int(frame[1]), frame[2]))
    return entries


class Machine:
    """How late the harness itself was woken, for what the machine delays must not be blamed on the broker."""

    def __init__(self, stalls=()):
        """stalls: (tick at its end, ms late), in order."""
        self._ticks = [tick for tick, _ in stalls]
        self._late = [late for _, late in stalls]

    def stall_ms(self, begin_ms, end_ms):
        first, last = bisect.bisect_left(self._ticks, begin_ms), bisect.bisect_right(self._ticks, end_ms + SLACK_MS)
        return max(self._late[first:last], default=0)

    def slack_ms(self, begin_ms, end_ms):
        return SLACK_MS + self.stall_ms(begin_ms, end_ms)


# --- Pictures ---


def torn_frames(log, reads):
    """reads: (who, number, hash) of every picture that was taken from the bridge."""
    published = {entry.frame: entry.fnv1a64 for entry in log if entry.code == FRAME}
    found = [f"{who} read frame {number} as {fnv1a64}, published was {published.get(number, 'nothing')}"
             for who, number, fnv1a64 in reads if published.get(number) != fnv1a64]
    return found if reads else ["no picture was read at all"]


def stale_pictures(ages, machine):
    """ages: (who, tick, age at which an update was still Live) of each second. What is borne: FRESH_MS, the pass and the
    step of the clock above, and what the machine measurably delayed meanwhile."""
    return [f"{who} saw an update that was Live at an age of {age} ms (at {tick})" for who, tick, age in ages
            if age > FRESH_MS + LIVE_AGE_SLACK_MS + machine.stall_ms(tick - 2 * FRESH_MS, tick)]


# --- Recovery ---


def recoveries(log, machine):
    """Follows the log and holds every start, first frame, stall and end of a decoder against the times it has."""
    found = []

    def expect(holds, entry, what):
        if not holds:
            found.append(f"{what} (at {entry.tick_ms})")

    watched, failures, frames = False, 0, 0
    due_from = due_delay = started = newest = None
    for entry in log:
        now = entry.tick_ms
        if entry.code == BEGIN:
            watched, failures, started, due_from, due_delay = True, 0, None, now, 0
        elif entry.code == START:
            expect(watched, entry, "a decoder without demand")
            expect(started is None, entry, "a second decoder")
            expect(failures < MOST_FAILURES, entry, f"an attempt after {failures} failures")
            if watched and started is None:
                waited = now - due_from
                expect(due_delay - CLOCK_STEP_MS <= waited <= due_delay + machine.slack_ms(due_from, now), entry,
                       f"an attempt after {waited} ms instead of {due_delay}")
            started, newest, frames = now, None, 0
        elif entry.code == FRAME:
            expect(started is not None, entry, f"frame {entry.frame} without a decoder")
            since, limit = (started, FIRST_FRAME_MS) if newest is None else (newest, STALL_MS)
            if since is not None:
                expect(now - since <= limit + machine.slack_ms(since, now), entry,
                       f"frame {entry.frame} after {now - since} ms, and the decoder was not given up")
            newest, frames = now, frames + 1
            failures = 0 if frames >= HEALTHY_FRAMES else failures
        elif entry.code == GIVEN_UP:
            expect(started is not None, entry, "nothing was there to give up")
            since, limit = (started, FIRST_FRAME_MS) if newest is None else (newest, STALL_MS)
            if since is not None:
                expect(now - since <= limit + machine.slack_ms(since, now), entry,
                       f"given up only {now - since} ms after the last sign of life")
            started, due_from, due_delay = None, now, RETRY_MS[min(failures, len(RETRY_MS) - 1)]
            failures += 1
        elif entry.code == STOP:
            watched, started = False, None
        elif entry.code in NEVER_HERE:
            expect(False, entry, entry.code)
    if watched:
        found.append("the last demand never ended")
    return found


def _failures_before(log, tick_ms):
    failures = frames = 0
    for entry in log:
        if entry.tick_ms > tick_ms:
            break
        if entry.code == BEGIN:
            failures = 0
        elif entry.code == START:
            frames = 0
        elif entry.code == GIVEN_UP:
            failures += 1
        elif entry.code == FRAME:
            frames += 1
            failures = 0 if frames >= HEALTHY_FRAMES else failures
    return failures


def fault_effects(log, spans, machine):
    """Each fault has the effect that it must have, no other, and is over when it is."""
    found = []
    for i, span in enumerate(spans):
        horizon = spans[i + 1].begin_ms if i + 1 < len(spans) else None
        part = [entry for entry in log
                if entry.tick_ms >= span.begin_ms and (horizon is None or entry.tick_ms < horizon)]
        given_up = next((entry.tick_ms for entry in part if entry.code == GIVEN_UP), None)
        if span.gives_up_ms is None:
            if given_up is not None:
                found.append(f"{span.kind} at {span.begin_ms}: the decoder was given up")
        elif given_up is None:
            found.append(f"{span.kind} at {span.begin_ms}: the decoder was not given up")
        else:
            newest = max((entry.tick_ms for entry in log if entry.code == FRAME and entry.tick_ms <= given_up),
                         default=span.begin_ms)
            least, most = span.gives_up_ms
            if not least <= given_up - newest <= most + machine.slack_ms(newest, given_up):
                found.append(f"{span.kind} at {span.begin_ms}: given up {given_up - newest} ms after the last frame, "
                             f"not within {least} to {most}")
        found += _return_of_the_picture(span, part, log, machine)
    return found


def _return_of_the_picture(span, part, log, machine):
    after = [entry for entry in part if entry.tick_ms >= span.end_ms]
    for entry in after:
        if entry.code == FRAME or entry.code == STOP:
            return []
        if entry.code == START:
            outcome = next((later for later in after if later.tick_ms >= entry.tick_ms and
                            later.code in (FRAME, GIVEN_UP, STOP)), None)
            if outcome is None or outcome.code == GIVEN_UP:
                return [f"{span.kind} over at {span.end_ms}: the attempt at {entry.tick_ms} brought no picture"]
            late = outcome.tick_ms - entry.tick_ms - FIRST_FRAME_MS
            if outcome.code == FRAME and late > machine.slack_ms(entry.tick_ms, outcome.tick_ms):
                return [f"{span.kind} over at {span.end_ms}: first frame {late} ms too late"]
            return []
    if _failures_before(log, span.end_ms) >= MOST_FAILURES:
        return []
    return [f"{span.kind} over at {span.end_ms}: the picture never came back"]


def stops(log, demand_ends, machine):
    """demand_ends: when the last lease of each demand was released, or stopped counting."""
    gone = [entry.tick_ms for entry in log if entry.code == LAST_DEMAND_GONE]
    found = [] if len(gone) == len(demand_ends) else [f"{len(gone)} demands ended instead of {len(demand_ends)}"]
    for end_ms, stopped_ms in zip(demand_ends, gone):
        waited = stopped_ms - end_ms
        if not GRACE_MS - CLOCK_STEP_MS <= waited <= GRACE_MS + machine.slack_ms(end_ms, stopped_ms):
            found.append(f"stopped {waited} ms after the last demand (at {stopped_ms})")
    return found


def idle_spans(log):
    """From each end of demand, and from the first entry, to the next demand or the last entry."""
    spans, since = [], log[0].tick_ms if log else None
    for entry in log:
        if entry.code == BEGIN and since is not None:
            spans.append((since, entry.tick_ms))
            since = None
        elif entry.code == STOP:
            since = entry.tick_ms if since is None else since
    return spans + ([(since, log[-1].tick_ms)] if since is not None else [])


def orphans(log, decoders, machine):
    """decoders: (tick, how many live) of each second. At most one lives, and none while no lease is held."""
    idle, found = idle_spans(log), []
    for tick, count in decoders:
        resting = any(since + machine.slack_ms(since, tick) < tick < until for since, until in idle)
        if count > (0 if resting else 1):
            found.append(f"{count} decoders {'although no lease is held' if resting else 'at once'} (at {tick})")
    return found


# --- Growth ---


@dataclass(frozen=True)
class Limits:
    """least_step: a rise of the floor that is no chance; most: the rise that is borne in all."""
    least_step: float
    most: float


def floors(series, parts=4):
    """The least value in each part of the time. None where there is no sample."""
    begin, end = series[0][0], series[-1][0]
    length = (end - begin) / parts or 1
    found = [None] * parts
    for at, value in series:
        part = min(int((at - begin) / length), parts - 1)
        found[part] = value if found[part] is None else min(found[part], value)
    return found


def rise(what, series, limits):
    """The same for a run of few episodes, which shows no trend: the second half stands no higher than is borne."""
    if len(series) < 2 or None in (found := floors(series, parts=2)):
        return [f"{what}: too few samples to judge"]
    if found[1] - found[0] > limits.most:
        return [f"{what} rose from {found[0]:g} to {found[1]:g}"]
    return []


def growth(what, series, limits):
    """series: (time, value) while idle, warm-up left out. Noise and caches only add to what an idle broker holds, a leak
    lifts the floor under them and goes on: so the least values of four quarters are compared. Too high a rise from the
    first to the last is growth, and so is a small one that is seen in every quarter."""
    if len(series) < 8 or None in (found := floors(series)):
        return [f"{what}: too few samples to judge"]
    steps = [later - earlier for earlier, later in zip(found, found[1:])]
    shown = ", ".join(f"{value:g}" for value in found)
    if found[-1] - found[0] > limits.most:
        return [f"{what} grew: {shown} by quarters"]
    if all(step >= limits.least_step for step in steps):
        return [f"{what} grows steadily: {shown} by quarters"]
    return []
