"""What the figures of the playback are worth. Pure: moments in, numbers and verdicts out.

A moment is in seconds of the monotonic clock, of a frame: when it was first seen whole.
"""
import bisect
import statistics
from dataclasses import dataclass

FRAMES_PER_SECOND = 16
SETTLE_S = 3  # what a source begins with is told, not judged
BORDER_FRAMES = 2  # one may fall on either side of each end
GAP_MS = 125
PERIOD_SLACK = 1.1  # a slow source's pictures come no more evenly than that, nor are they seen so
AFTER_KEY_MS = 200
LATENCY_OVER_BARE_MS = 62.5
LATENCY_GROWTH_MS = 20
PART_S = 60  # whose medians tell growth
NUMBER_SPAN = 1 << 24  # of picture_code.py

START, GIVEN_UP = "FFMPEG_START_OWN_PROCESS", "PRODUCER_RECONNECT_FALLBACK"
RETRY_MS = (1000, 2000, 4000, 8000)  # after the first failure in a row, the second, ...; the last for all others
CLOCK_STEP_MS = 20  # of the log's ticks, to either side
RETRY_LATE_MS = 100  # a pass, and the start of a process


def median(values):
    """None where there is none."""
    known = [value for value in values if value is not None]
    return statistics.median(known) if known else None


# --- First picture ---


@dataclass(frozen=True)
class FirstPicture:
    """One start. asked, key: when the camera heard of it, and when the first picture that can be decoded without any
    before it had left the camera; None where the camera does not tell."""
    start: float
    shown: float
    asked: float | None = None
    key: float | None = None

    @property
    def took_ms(self):
        return (self.shown - self.start) * 1000

    @property
    def to_ask_ms(self):
        return None if self.asked is None else (self.asked - self.start) * 1000

    @property
    def limit_ms(self):
        return None if self.key is None else (self.key - self.start) * 1000

    @property
    def after_key_ms(self):
        return None if self.key is None else (self.shown - self.key) * 1000


def in_time(after_key_ms):
    """No verdict where the camera did not tell."""
    return None if after_key_ms is None else after_key_ms <= AFTER_KEY_MS


# --- Speed ---


@dataclass(frozen=True)
class Speed:
    seconds: float
    fps: float
    gap_ms: float
    early_frames: int  # in the first SETTLE_S
    crowded_second: int  # most frames in any second, the first included


def speed(moments, seconds):
    """moments: one for each frame, in order, observed until SETTLE_S + seconds after the first at least."""
    begin = moments[0] + SETTLE_S
    end = begin + seconds
    first, last = bisect.bisect_left(moments, begin), bisect.bisect_left(moments, end)
    # A gap that reaches over one of the two ends counts whole, as far as it was observed.
    edges = moments[first - 1:last] + [moments[last] if last < len(moments) else end]
    gap = max(later - earlier for earlier, later in zip(edges, edges[1:]))
    crowded = max(bisect.bisect_left(moments, moment + 1) - i for i, moment in enumerate(moments))
    return Speed(seconds, (last - first) / seconds, gap * 1000, first, crowded)


def gap_limit_ms(source_fps):
    """The decoder's filter repeats a picture when the next one is there."""
    return max(GAP_MS, 1000 / source_fps * PERIOD_SLACK)


def fps_tolerance(seconds):
    return BORDER_FRAMES / seconds


def is_rate(measured, fps):
    return abs(measured.fps - fps) <= fps_tolerance(measured.seconds) + 1e-9


def at_its_own_speed(measured, source_fps):
    return is_rate(measured, FRAMES_PER_SECOND) and measured.gap_ms <= gap_limit_ms(source_fps)


# --- Latency ---


@dataclass(frozen=True)
class Latency:
    pictures: int
    median_ms: float
    most_of_them_ms: float  # 95 of 100
    max_ms: float
    growth_ms: float
    unreadable: int  # carried no number
    backwards: int  # were older than the picture before them


def age_ms(moment, number):
    """Of a picture that was made when the clock showed this number of milliseconds, modulo NUMBER_SPAN."""
    age = (moment * 1000 - number) % NUMBER_SPAN
    return age - NUMBER_SPAN if age > NUMBER_SPAN / 2 else age


def latency(shown):
    """shown: (moment, number or None) of every frame, in order. A picture that is repeated, as the decoder's filter
    does at times, counts at its first showing. None where there are too few to tell."""
    ages, unreadable, backwards, newest = [], 0, 0, None
    for moment, number in shown:
        if number is None:
            unreadable += 1
            continue
        step = 1 if newest is None else (number - newest) % NUMBER_SPAN
        if step == 0:
            continue
        if step > NUMBER_SPAN / 2:
            backwards += 1
        newest = number
        ages.append((moment, age_ms(moment, number)))
    if len(ages) < 2 * FRAMES_PER_SECOND:
        return None
    begin, end = ages[0][0], ages[-1][0]
    part = min(PART_S, (end - begin) / 4)
    second = [age for moment, age in ages if begin + part <= moment < begin + 2 * part]
    last = [age for moment, age in ages if moment >= end - part]
    values = sorted(age for _, age in ages)
    if not second:
        return None
    return Latency(len(values), statistics.median(values), values[int(0.95 * (len(values) - 1))], values[-1],
                   statistics.median(last) - statistics.median(second), unreadable, backwards)


def keeps_up(broker, bare):
    return (broker.median_ms - bare.median_ms <= LATENCY_OVER_BARE_MS and broker.growth_ms < LATENCY_GROWTH_MS and
            broker.backwards == 0)


# --- Reconnect ---


def attempts(events):
    """events: (tick in ms, code) of the broker's log, of one demand that lost a decoder which had been well. For each
    further start of a decoder: how long after the end of the one before, and how long that should be."""
    found, failures, ended = [], 0, None
    for tick, code in events:
        if code == GIVEN_UP:
            ended, failures = tick, failures + 1
        elif code == START and ended is not None:
            found.append((tick - ended, RETRY_MS[min(failures, len(RETRY_MS)) - 1]))
            ended = None
    return found


def on_schedule(found):
    """Nothing early, nothing added; and no attempt at all is no pass."""
    return bool(found) and all(due - CLOCK_STEP_MS <= waited <= due + CLOCK_STEP_MS + RETRY_LATE_MS
                               for waited, due in found)
