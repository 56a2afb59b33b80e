#!/usr/bin/python3
"""The rules of the playback's figures: what must be marked, and what must not."""
import unittest

import playback_rules as rules
from playback_rules import GIVEN_UP, NUMBER_SPAN, START, FirstPicture


def steady(fps, seconds, begin=1000.0):
    return [begin + i / fps for i in range(round(fps * seconds))]


class FirstPictures(unittest.TestCase):
    def test_the_parts_of_a_start(self):
        one = FirstPicture(start=10, asked=10.25, key=10.5, shown=10.625)
        self.assertEqual((one.took_ms, one.to_ask_ms, one.limit_ms, one.after_key_ms), (625, 250, 500, 125))

    def test_what_the_camera_does_not_tell_is_not_judged(self):
        one = FirstPicture(start=10, shown=11)
        self.assertEqual((one.took_ms, one.to_ask_ms, one.limit_ms, one.after_key_ms), (1000, None, None, None))
        self.assertIsNone(rules.in_time(one.after_key_ms))

    def test_a_fifth_of_a_second_after_the_key_frame_and_no_longer(self):
        self.assertTrue(rules.in_time(200))
        self.assertFalse(rules.in_time(201))

    def test_a_median_is_of_what_is_known(self):
        self.assertEqual(rules.median([3, None, 1, 2]), 2)
        self.assertIsNone(rules.median([None]))


class Speeds(unittest.TestCase):
    def judged(self, moments, fps=25, seconds=10):
        return rules.at_its_own_speed(rules.speed(moments, seconds), fps)

    def test_sixteen_a_second_are_well(self):
        moments = steady(16, 13.5)
        measured = rules.speed(moments, 10)
        self.assertEqual((measured.fps, measured.gap_ms, measured.early_frames), (16, 62.5, 48))
        self.assertEqual(measured.crowded_second, 16)
        self.assertTrue(self.judged(moments))

    def test_two_frames_more_or_less_over_ten_seconds_are_borne_and_three_are_not(self):
        for fps, well in ((15.8, True), (16.2, True), (15.7, False), (16.3, False)):
            self.assertEqual(self.judged(steady(fps, 13.5)), well, fps)

    def test_in_half_the_time_two_frames_are_twice_as_much(self):
        for fps, well in ((15.6, True), (16.4, True), (15.2, False), (16.8, False)):
            self.assertEqual(self.judged(steady(fps, 8.5), seconds=5), well, fps)

    def test_too_fast_and_too_slow_are_found(self):
        for fps in (9.6, 12, 23.5, 33):
            self.assertFalse(self.judged(steady(fps, 13.5)), fps)

    def test_a_gap_is_found_although_the_frames_of_it_follow(self):
        moments = [1005 + max(moment - 1005, 0.3) if moment >= 1005 else moment for moment in steady(16, 13.5)]
        measured = rules.speed(moments, 10)
        self.assertAlmostEqual(measured.fps, 16)
        self.assertGreater(measured.gap_ms, 300)
        self.assertFalse(self.judged(moments))

    def test_a_gap_across_the_beginning_and_one_at_the_end_count(self):
        across = [moment for moment in steady(16, 13.5) if not 1002.8 < moment < 1003.1]
        self.assertGreater(rules.speed(across, 10).gap_ms, 300)
        self.assertGreater(rules.speed(steady(16, 12), 10).gap_ms, 900)

    def test_silence_after_the_first_frames_is_one_gap(self):
        measured = rules.speed(steady(16, 2), 10)
        self.assertEqual(measured.fps, 0)
        self.assertGreater(measured.gap_ms, 10_000)

    def test_a_slow_source_may_leave_its_own_gaps(self):
        fives = sorted(1000 + i / 5 + j / 1000 for i in range(68) for j in range(3 + (i % 5 == 0)))
        self.assertTrue(self.judged(fives, fps=5))
        self.assertFalse(self.judged(fives, fps=15))
        self.assertEqual(rules.gap_limit_ms(30), 125)
        self.assertAlmostEqual(rules.gap_limit_ms(5), 220)

    def test_a_backlog_in_a_burst_shows_in_the_first_seconds_and_is_not_judged(self):
        burst = [1000 + i / 1000 for i in range(50)] + steady(16, 13.5, begin=1000.1)
        measured = rules.speed(burst, 10)
        self.assertEqual(measured.early_frames, 97)
        self.assertGreater(measured.crowded_second, 60)
        self.assertTrue(self.judged(burst))


class Latencies(unittest.TestCase):
    @staticmethod
    def shown(age_of, seconds=600, begin=NUMBER_SPAN / 1000 - 100):
        """Across the end of the numbers."""
        moments = steady(16, seconds, begin)
        return [(moment, round(moment * 1000 - age_of(moment - begin)) % NUMBER_SPAN) for moment in moments]

    def test_a_steady_one(self):
        measured = rules.latency(self.shown(lambda _: 120))
        self.assertEqual(measured.pictures, 9600)
        self.assertAlmostEqual(measured.median_ms, 120, delta=1)
        self.assertAlmostEqual(measured.growth_ms, 0, delta=1)
        self.assertEqual((measured.unreadable, measured.backwards), (0, 0))
        self.assertTrue(rules.keeps_up(measured, measured))

    def test_two_a_second_late_are_no_95_of_100_but_the_largest(self):
        measured = rules.latency(self.shown(lambda t: 400 if t % 10 < 0.4 else 100))
        self.assertAlmostEqual(measured.most_of_them_ms, 100, delta=1)
        self.assertAlmostEqual(measured.max_ms, 400, delta=1)

    def test_a_frame_more_than_the_bare_one_is_borne_and_no_more(self):
        bare, within, beyond = (rules.latency(self.shown(lambda _, age=age: age)) for age in (100, 162, 165))
        self.assertTrue(rules.keeps_up(within, bare))
        self.assertFalse(rules.keeps_up(beyond, bare))

    def test_growth_is_found(self):
        bare = rules.latency(self.shown(lambda _: 100))
        grown = rules.latency(self.shown(lambda t: 100 + t / 20))  # 30 ms in ten minutes
        self.assertAlmostEqual(grown.growth_ms, 24, delta=1)
        self.assertFalse(rules.keeps_up(grown, bare))

    def test_a_short_watch_tells_growth_by_its_quarters(self):
        self.assertAlmostEqual(rules.latency(self.shown(lambda t: 100 + 2 * t, seconds=20)).growth_ms, 20, delta=1)

    def test_a_repeated_picture_counts_once(self):
        shown = self.shown(lambda _: 100)
        twice = [one for moment, number in shown for one in ((moment, number), (moment + 0.03, number))]
        self.assertEqual(rules.latency(twice).pictures, len(shown))
        self.assertAlmostEqual(rules.latency(twice).max_ms, 100, delta=1)

    def test_unreadable_and_older_pictures_are_told(self):
        shown = self.shown(lambda _: 100)
        shown[5] = shown[5][0], None
        shown[100], shown[101] = (shown[100][0], shown[101][1]), (shown[101][0], shown[100][1])
        measured = rules.latency(shown)
        self.assertEqual((measured.unreadable, measured.backwards), (1, 1))
        self.assertFalse(rules.keeps_up(measured, measured))

    def test_too_few_pictures_tell_nothing(self):
        self.assertIsNone(rules.latency(self.shown(lambda _: 100, seconds=1)))
        self.assertIsNone(rules.latency([(1.0, None)] * 200))


class Reconnects(unittest.TestCase):
    @staticmethod
    def log(*waits):
        events, now = [(0, "DEMAND_BEGIN_DEVICE_UNCHANGED"), (5, START), (400, "FIRST_FRAME_BOUNDED")], 9000
        for wait in waits:
            events += [(now, GIVEN_UP), (now + wait, START)]
            now += wait + 300
        return events

    def test_the_waits_double_up_to_eight_seconds(self):
        found = rules.attempts(self.log(1005, 2010, 4005, 8010, 8005))
        self.assertEqual([due for _, due in found], [1000, 2000, 4000, 8000, 8000])
        self.assertTrue(rules.on_schedule(found))

    def test_too_early_and_too_late_are_found(self):
        for waits in ((900,), (1005, 1005), (1005, 2300)):
            self.assertFalse(rules.on_schedule(rules.attempts(self.log(*waits))), waits)

    def test_no_attempt_is_no_pass(self):
        self.assertFalse(rules.on_schedule(rules.attempts(self.log())))
        self.assertFalse(rules.on_schedule(rules.attempts(self.log() + [(9000, GIVEN_UP)])))


if __name__ == "__main__":
    unittest.main()
