#!/usr/bin/python3
"""The rules of the soak: what must be a finding, and what must not."""
import itertools
import unittest

import rules
from rules import (BEGIN, CLEAN_EXIT, FRAME, GIVEN_UP, LAST_DEMAND_GONE, START, STOP, Entry, FaultSpan, Limits,
                   Machine)
from schedule import FAULTS, STREAMS, rounds, short_rounds

QUIET = Machine()
BUSY = Machine([(50_000, 3000)])


class LogWriter:
    """Writes a broker's log, a healthy one unless told otherwise."""

    def __init__(self):
        self.entries, self.now, self.number = [], 10_000, 0

    def write(self, code, after_ms=0, **fields):
        self.now += after_ms
        self.entries.append(Entry(self.now, code, **fields))
        return self

    def frames(self, count, first_after_ms=63, every_ms=63):
        for i in range(count):
            self.number += 1
            self.write(FRAME, every_ms if i else first_after_ms, frame=self.number, fnv1a64=f"{self.number:016X}")
        return self

    def begin(self):
        return self.write(BEGIN, 500).write(START, 30)

    def given_up(self, after_ms=300):
        return self.write(GIVEN_UP, after_ms)

    def stop(self, after_ms=500):
        return self.write(STOP, after_ms).write(LAST_DEMAND_GONE)


def healthy():
    return LogWriter().begin().frames(40, 1500).given_up().write(START, 1005).frames(40, 1500).stop()


class Logs(unittest.TestCase):
    def test_events_and_frames_are_read_and_the_rest_is_left_alone(self):
        text = ("tick=5 DEMAND_BEGIN_DEVICE_UNCHANGED hr=0x00000000 frames=0 pid=3\n"
                "producer_frame=1 fnv1a64=00000000000000AB tick=9 bytes=3686400\nnothing\n")
        self.assertEqual(rules.parse_log(text), [Entry(5, BEGIN), Entry(9, FRAME, 1, "00000000000000AB")])


class Pictures(unittest.TestCase):
    log = LogWriter().begin().frames(3).entries

    def test_pictures_as_published_are_well(self):
        self.assertEqual(rules.torn_frames(self.log, [("a", n, f"{n:016X}") for n in (1, 2, 3, 3)]), [])

    def test_a_picture_with_another_content_is_torn(self):
        self.assertIn("frame 2", rules.torn_frames(self.log, [("a", 1, f"{1:016X}"), ("a", 2, f"{3:016X}")])[0])

    def test_a_picture_that_was_never_published_is_found(self):
        self.assertIn("nothing", rules.torn_frames(self.log, [("a", 9, f"{9:016X}")])[0])

    def test_nobody_who_read_proves_nothing(self):
        self.assertTrue(rules.torn_frames(self.log, []))

    def test_an_update_that_is_live_for_three_seconds_is_stale(self):
        self.assertEqual(len(rules.stale_pictures([("a", 60_000, 3000), ("a", 61_000, 2006)], QUIET)), 1)

    def test_an_update_may_stay_live_for_a_pass_and_a_step_of_the_clock_and_no_longer(self):
        self.assertEqual(rules.stale_pictures([("a", 60_000, 2021)], QUIET), [])
        self.assertEqual(len(rules.stale_pictures([("a", 60_000, 2022)], QUIET)), 1)

    def test_a_machine_that_stood_still_is_not_blamed_on_the_broker_and_only_then(self):
        self.assertEqual(rules.stale_pictures([("a", 50_500, 3000)], BUSY), [])
        self.assertTrue(rules.stale_pictures([("a", 90_000, 3000)], BUSY))


class Recoveries(unittest.TestCase):
    def expect(self, log, *words):
        found = rules.recoveries(log.entries, QUIET)
        self.assertEqual(len(found), len(words), found)
        for finding, word in zip(found, words):
            self.assertIn(word, finding)

    def test_a_healthy_run_is_well(self):
        self.expect(healthy())

    def test_waits_double_up_to_eight_seconds_and_end_after_five(self):
        log = LogWriter().begin().frames(1, 1500).given_up()
        for delay in (1000, 2000, 4000, 8000):
            log.write(START, delay + 5).given_up()
        self.expect(log.stop(60_000))

    def test_an_attempt_too_early_and_one_too_late(self):
        for wrong in (900, 2200):
            self.expect(LogWriter().begin().frames(40).given_up().write(START, wrong).frames(9).stop(),
                        f"after {wrong} ms instead of 1000")

    def test_the_second_failure_waits_longer_unless_32_frames_came_between(self):
        for frames, words in ((31, ("after 1005 ms instead of 2000",)), (32, ())):
            log = LogWriter().begin().frames(40).given_up().write(START, 1005).frames(frames).given_up()
            self.expect(log.write(START, 1005).frames(5).stop(), *words)

    def test_a_sixth_attempt_is_one_too_many(self):
        log = LogWriter().begin().given_up()
        for delay in (1000, 2000, 4000, 8000, 8000):
            log.write(START, delay + 5).given_up()
        self.expect(log.stop(), "after 5 failures")

    def test_a_stall_that_is_given_up_late_or_never(self):
        self.expect(LogWriter().begin().frames(9).given_up(7100).stop())
        self.expect(LogWriter().begin().frames(9).given_up(9000).stop(), "only 9000 ms")
        self.expect(LogWriter().begin().frames(9).frames(9, 12_000).stop(), "not given up")

    def test_a_first_frame_that_is_waited_for_too_long(self):
        self.expect(LogWriter().begin().given_up(7050).stop())
        self.expect(LogWriter().begin().given_up(8500).stop(), "only 8500 ms")

    def test_decoders_that_nobody_asked_for(self):
        self.expect(healthy().write(START, 50), "without demand")
        self.expect(LogWriter().begin().frames(9).write(START, 50).stop(), "second decoder")

    def test_frames_without_a_decoder(self):
        self.expect(healthy().frames(1), "without a decoder")

    def test_a_demand_that_never_ended(self):
        self.expect(LogWriter().begin().frames(9), "never ended")

    def test_a_decoder_that_could_not_be_started(self):
        self.expect(LogWriter().begin().write("FFMPEG_LAUNCH_FAILED", 5).stop(), "FFMPEG_LAUNCH_FAILED")

    def test_a_late_attempt_of_a_machine_that_stood_still_is_borne(self):
        log = LogWriter().begin().frames(40).given_up()
        busy = Machine([(log.now + 2900, 2000)])
        log.write(START, 3000).frames(9).stop()
        self.assertEqual(rules.recoveries(log.entries, busy), [])
        self.assertTrue(rules.recoveries(log.entries, QUIET))


class Faults(unittest.TestCase):
    @staticmethod
    def effects(given_up_after_ms, gives_up_ms, back=True):
        log = LogWriter().begin().frames(40, 1500)
        begin = end = log.now + 10
        if given_up_after_ms is None:
            log.frames(40, 1200)
        else:
            end = log.given_up(given_up_after_ms).now + 5
            log.write(START, 1005)
            log.frames(40, 1500) if back else log.given_up(200)
        return rules.fault_effects(log.entries, [FaultSpan("it", begin, end, gives_up_ms)], QUIET)

    def test_an_effect_in_time_is_well(self):
        self.assertEqual(self.effects(200, (0, 1500)), [])
        self.assertEqual(self.effects(None, None), [])
        self.assertEqual(self.effects(7006, (7001, 7000)), [])

    def test_a_decoder_that_is_given_up_without_need(self):
        self.assertIn("was given up", self.effects(200, None)[0])

    def test_a_decoder_that_is_not_given_up(self):
        self.assertIn("was not given up", self.effects(None, (0, 1500))[0])

    def test_the_watchdog_that_bites_before_its_time(self):
        self.assertIn("given up 6900 ms", self.effects(6900, (7001, 7000))[0])

    def test_the_watchdog_that_bites_too_late(self):
        self.assertIn("given up 8100 ms", self.effects(8100, (7001, 7000))[0])

    def test_the_attempt_after_the_fault_has_to_bring_the_picture(self):
        self.assertIn("brought no picture", self.effects(200, (0, 1500), back=False)[0])

    def test_a_picture_that_never_comes_back(self):
        log = LogWriter().begin().frames(40).given_up()
        found = rules.fault_effects(log.entries, [FaultSpan("it", log.now - 100, log.now + 50, (0, 1500))], QUIET)
        self.assertIn("never came back", found[0])

    def test_after_five_failures_nothing_has_to_come_back(self):
        log = LogWriter().begin().frames(40)
        begin = log.now + 10
        log.given_up()
        for delay in (1000, 2000, 4000, 8000):
            log.write(START, delay + 5).given_up()
        self.assertEqual(rules.fault_effects(log.entries, [FaultSpan("it", begin, log.now + 50, (0, 1500))], QUIET), [])


class Demand(unittest.TestCase):
    log = LogWriter().begin().frames(9).stop(700)

    def judged(self, released_before_ms, log=None):
        return rules.stops((log or self.log).entries, [self.log.now - released_before_ms], QUIET)

    def test_half_a_second_after_the_last_demand_is_well(self):
        self.assertEqual(self.judged(505), [])

    def test_too_early_and_too_late_are_found(self):
        self.assertIn("stopped 400 ms", self.judged(400)[0])
        self.assertIn("stopped 1900 ms", self.judged(1900)[0])

    def test_a_stop_that_nobody_caused_or_that_is_missing(self):
        self.assertTrue(rules.stops(self.log.entries, [], QUIET))
        self.assertTrue(rules.stops([], [5], QUIET))


class Orphans(unittest.TestCase):
    log = healthy().write(CLEAN_EXIT, 20_000)

    def test_one_while_watched_and_none_at_rest_is_well(self):
        stopped = next(entry.tick_ms for entry in self.log.entries if entry.code == STOP)
        self.assertEqual(rules.orphans(self.log.entries, [(stopped - 600, 1), (stopped + 500, 1), (stopped + 5000, 0)],
                                       QUIET), [])

    def test_one_at_rest_and_two_at_once_are_found(self):
        self.assertIn("no lease is held", rules.orphans(self.log.entries, [(self.log.now - 10_000, 1)], QUIET)[0])
        self.assertIn("at once", rules.orphans(self.log.entries, [(self.log.entries[0].tick_ms + 2000, 2)], QUIET)[0])


def half_an_hour(leak_per_episode, noise=(0,)):
    """Four samples after each of 22 episodes, a minute apart."""
    noises = itertools.cycle(noise)
    return [(episode * 60_000 + second * 1000, 1000 + episode * leak_per_episode + next(noises))
            for episode in range(22) for second in range(4)]


class Growth(unittest.TestCase):
    handles, memory = Limits(least_step=1, most=4), Limits(least_step=16, most=512)

    def test_what_stays_is_well(self):
        self.assertEqual(rules.growth("handles", half_an_hour(0), self.handles), [])

    def test_a_handle_an_episode_is_growth(self):
        self.assertIn("grew", rules.growth("handles", half_an_hour(1), self.handles)[0])

    def test_twenty_kib_an_episode_are_growth_although_they_are_less_than_the_most(self):
        self.assertIn("steadily", rules.growth("memory", half_an_hour(20, noise=(0, 60, 8, 120)), self.memory)[0])

    def test_noise_above_a_steady_floor_is_none(self):
        self.assertEqual(rules.growth("memory", half_an_hour(0, noise=(0, 900, 40, 300)), self.memory), [])

    def test_a_cache_that_fills_once_is_none(self):
        series = [(at, value + (3 if at > 400_000 else 0)) for at, value in half_an_hour(0)]
        self.assertEqual(rules.growth("gdi", series, self.handles), [])

    def test_too_few_samples_are_no_pass(self):
        self.assertTrue(rules.growth("handles", half_an_hour(0)[:5], self.handles))
        self.assertTrue(rules.rise("handles", [], self.handles))

    def test_a_short_run_shows_a_rise(self):
        self.assertEqual(rules.rise("handles", [(0, 44), (9, 48)], self.handles), [])
        self.assertTrue(rules.rise("handles", [(0, 44), (9, 49)], self.handles))


class Schedule(unittest.TestCase):
    @staticmethod
    def take(seed, count):
        return list(itertools.islice(rounds(seed), count))

    def test_a_seed_says_everything(self):
        self.assertEqual(self.take(7, 30), self.take(7, 30))
        self.assertNotEqual(self.take(7, 30), self.take(8, 30))

    def test_every_fault_comes_in_any_twelve_rounds(self):
        for seed in range(20):
            self.assertEqual({step.fault for one in self.take(seed, 12) for step in one.steps}, set(FAULTS))

    def test_the_short_one_has_each_fault_once_but_the_one_that_takes_half_a_minute(self):
        faults = [step.fault for one in short_rounds() for step in one.steps]
        self.assertEqual(sorted(faults), sorted(set(FAULTS) - {"exhausted"}))

    def test_after_another_codec_or_exhaustion_the_round_is_over(self):
        for one in self.take(3, 60):
            faults = [step.fault for step in one.steps]
            self.assertNotIn("resolution", faults[faults.index("codec"):] if "codec" in faults else [])
            self.assertNotIn("exhausted", faults[:-1])

    def test_each_stream_has_one_of_another_size_or_codec_to_follow(self):
        self.assertEqual(set(STREAMS["codec"]), set(STREAMS["codec"].values()) | {"stream1"})


if __name__ == "__main__":
    unittest.main()
