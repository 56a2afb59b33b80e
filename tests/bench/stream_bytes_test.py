#!/usr/bin/python3
"""What the hard streams are cut and judged by: right is told from wrong."""
import dataclasses
import unittest

import stream_bytes
from stream_bytes import Packet, StreamError


def ts_packet(pid, counter, payload=True):
    head = bytes([0x47, pid >> 8, pid & 0xFF, (0x10 if payload else 0x20) | counter])
    return head.ljust(188, b"\xFF")


class TransportStream(unittest.TestCase):
    def test_counters_go_on_over_the_joint_for_each_pid(self):
        joined = stream_bytes.joined_ts(ts_packet(256, 7) + ts_packet(257, 3), ts_packet(256, 0) + ts_packet(257, 9))
        self.assertEqual([packet[3] & 15 for packet in stream_bytes.ts_packets(joined)], [0, 0, 1, 1])

    def test_a_packet_without_payload_does_not_count(self):
        joined = stream_bytes.joined_ts(ts_packet(256, 7) + ts_packet(256, 7, payload=False) + ts_packet(256, 8))
        self.assertEqual([packet[3] & 15 for packet in stream_bytes.ts_packets(joined)], [0, 0, 1])

    def test_what_is_no_transport_stream_is_refused(self):
        for data in (b"\x47" * 187, b"\x48" * 188):
            with self.assertRaises(StreamError):
                list(stream_bytes.ts_packets(data))

    def test_tables_are_left_once_a_second(self):
        tables = ts_packet(0, 0) + ts_packet(0x1000, 0)
        data = (tables + ts_packet(256, 0)) * 8  # four a second
        packets = [Packet((3 * i + 2) * 188, i / 4, True, False) for i in range(8)]
        rare = [stream_bytes.ts_pid(packet) for packet in stream_bytes.ts_packets(
            stream_bytes.with_rare_tables(data, packets, 0.5))]
        self.assertEqual((rare.count(0), rare.count(0x1000), rare.count(256)), (3, 3, 8))

    def test_the_join_comes_after_the_program_map(self):
        data = ts_packet(256, 0) + ts_packet(0, 0) + ts_packet(0x1000, 0) + ts_packet(256, 1)
        self.assertEqual(stream_bytes.after_tables(data, 100), 3 * 188)
        with self.assertRaises(StreamError):
            stream_bytes.after_tables(data, 3 * 188)


class ParameterSets(unittest.TestCase):
    def test_escapes_are_undone_and_made_again(self):
        raw = b"\x67\0\0\0\0\1\0\0\3\x80"
        self.assertEqual(stream_bytes.unescaped(stream_bytes.escaped(raw)), raw)
        self.assertNotIn(b"\0\0\1", stream_bytes.escaped(raw))

    def test_units_come_without_start_codes_and_zeros(self):
        self.assertEqual(list(stream_bytes.nal_units(b"\0\0\0\1\x67\x42\0\0\0\1\x68\x11\0\0\1\x65")),
                         [b"\x67\x42", b"\x68\x11", b"\x65"])

    def test_the_restriction_goes_and_the_length_stays(self):
        # Bit 12 announces; what follows is what it announces, and the stop bit.
        sps = bytes([0x67, 0b10101111, 0b11110000, 0b00001100])
        self.assertEqual(stream_bytes.without_bitstream_restriction(sps, 12), bytes([0x67, 0b10100100, 0, 0]))

    def test_without_a_restriction_there_is_nothing_to_leave_out(self):
        with self.assertRaises(StreamError):
            stream_bytes.without_bitstream_restriction(b"\x67\0\x42", 12)

    def test_a_replacement_has_to_be_of_the_same_length_and_to_find_something(self):
        self.assertEqual(stream_bytes.replaced(b"abcabc", b"bc", b"xy"), b"axyaxy")
        for old, new in ((b"zz", b"xy"), (b"bc", b"x")):
            with self.assertRaises(StreamError):
                stream_bytes.replaced(b"abcabc", old, new)


class Matroska(unittest.TestCase):
    @staticmethod
    def element(identity, content):
        return identity + (len(content) | 1 << 28).to_bytes(4, "big") + content

    def test_clusters_from_a_time_on_are_shifted(self):
        clusters = [self.element(b"\x1F\x43\xB6\x75", self.element(b"\xE7", ms.to_bytes(2, "big")) +
                                 self.element(b"\xA3", b"picture")) for ms in (1000, 2000, 3000)]
        file = self.element(b"\x1A\x45\xDF\xA3", b"head") + self.element(b"\x18\x53\x80\x67", b"".join(clusters))
        shifted = stream_bytes.with_shifted_clusters(file, 2000, 30_000)
        self.assertEqual(len(shifted), len(file))
        for ms, there in ((1000, True), (2000, False), (32_000, True), (33_000, True)):
            self.assertEqual(ms.to_bytes(2, "big") in shifted, there, ms)
        with self.assertRaises(StreamError):
            stream_bytes.with_shifted_clusters(file, 4000, 1)


class Pace(unittest.TestCase):
    packets = [Packet(0, 0.0, True, True), Packet(100, 0.04, False, True), Packet(150, 0.04, True, False),
               Packet(200, 0.02, False, True), Packet(250, 1.0, True, True)]

    def test_all_is_sent_at_the_pace_of_the_timestamps_and_nothing_earlier_than_what_lies_before_it(self):
        chunks = stream_bytes.schedule(self.packets, 300)
        self.assertEqual([(c.start, c.end) for c in chunks], [(0, 100), (100, 150), (150, 200), (200, 250), (250, 300)])
        self.assertEqual([round(c.due_s, 3) for c in chunks], [0, 0.04, 0.04, 0.04, 1.0])

    def test_who_joins_in_the_middle_waits_for_a_key_picture(self):
        chunks = stream_bytes.schedule(self.packets, 300, join=120)
        self.assertEqual((chunks[0].start, chunks[0].end, chunks[0].due_s), (120, 150, 0.0))
        self.assertAlmostEqual(stream_bytes.first_key_s(chunks), 0.96)

    def test_a_key_picture_is_of_no_use_without_what_it_takes_to_decode_it(self):
        self.assertEqual(stream_bytes.first_key_s(stream_bytes.schedule(self.packets, 300)), 0)
        late = stream_bytes.schedule(self.packets, 300, decodable_from=170)
        self.assertAlmostEqual(stream_bytes.first_key_s(late), 0.04)

    def test_a_source_that_stood_still_is_late_from_then_on(self):
        chunks = stream_bytes.stalled(stream_bytes.schedule(self.packets, 300), 0.5, 2)
        self.assertEqual([round(c.due_s, 3) for c in chunks], [0, 0.04, 0.04, 0.04, 3.0])

    def test_sound_is_no_key_picture(self):
        sound = [Packet(i * 10, i / 10, False, True) for i in range(5)]
        self.assertIsNone(stream_bytes.first_key_s(stream_bytes.schedule(sound, 50)))

    def test_packets_without_timestamps_follow_each_other(self):
        packets = stream_bytes.packets_of([{"codec_type": "video", "pos": str(10 * i), "duration_time": "0.04",
                                            "flags": "K_" if i == 0 else "__"} for i in range(3)])
        self.assertEqual([(p.position, round(p.time_s, 2), p.is_key) for p in packets],
                         [(0, 0, True), (10, 0.04, False), (20, 0.08, False)])


@dataclasses.dataclass
class Told:
    numbers: int = 0
    longest_gap_s: float = 0.04
    shows_nothing: bool = False
    silent: bool = False
    expected_fault: str = ""


def played(count=192, every_s=1 / 16, first_s=100.0, number=lambda i: i * 25 // 16):
    return [(first_s + i * every_s, number(i)) for i in range(count)]


def result(pictures, first_ms=500.0, limit_ms=450.0, ended_s=None):
    return stream_bytes.judged(pictures) | {"firstPictureMs": first_ms if pictures else None, "limitMs": limit_ms,
                                            "endedS": ended_s}


class Judgement(unittest.TestCase):
    def assert_amiss(self, taken, text, stream=Told()):
        self.assertTrue(any(text in fault for fault in stream_bytes.faults(stream, taken)),
                        stream_bytes.faults(stream, taken))

    def test_a_good_player_has_no_faults(self):
        self.assertEqual(stream_bytes.faults(Told(), result(played())), [])

    def test_a_late_first_picture_is_a_fault(self):
        self.assert_amiss(result(played(), first_ms=700), "after the limit")

    def test_a_wrong_speed_is_a_fault(self):
        self.assert_amiss(result(played(every_s=1 / 17)), "17.0 a second")

    def test_a_slow_source_may_be_off_by_one_of_its_pictures(self):
        self.assertEqual(stream_bytes.faults(Told(longest_gap_s=1), result(played(every_s=1 / 17))), [])
        self.assert_amiss(result(played(every_s=1 / 20)), "20.0 a second", Told(longest_gap_s=1))

    def test_a_recording_shown_in_a_moment_is_a_fault(self):
        taken = result(played(every_s=1 / 100), ended_s=2)
        self.assertTrue(taken["whole"])
        self.assert_amiss(taken, "100.0 a second", Told(numbers=300))

    def test_a_gap_is_a_fault_unless_the_source_has_it(self):
        pictures = [(at + (0.3 if i > 80 else 0), n) for i, (at, n) in enumerate(played())]
        self.assert_amiss(result(pictures), "gap of 36")
        self.assertNotIn("gap", "".join(stream_bytes.faults(Told(longest_gap_s=0.4), result(pictures))))

    def test_a_backlog_that_is_shown_in_a_burst_is_a_fault(self):
        burst = [(100 + i / 1000, 0) for i in range(20)]
        self.assert_amiss(result(burst + played(first_s=100.1)), "in the first 3 s")

    def test_pictures_out_of_order_and_unreadable_ones_are_faults(self):
        self.assert_amiss(result(played(number=lambda i: i ^ 1)), "back 96 times")
        self.assert_amiss(result(played(number=lambda i: None if i == 5 else i)), "1 unreadable")

    def test_a_recording_begins_at_its_first_picture_and_ends_after_its_last(self):
        whole = Told(numbers=300)
        self.assertEqual(stream_bytes.faults(whole, result(played(), ended_s=12)), [])
        self.assert_amiss(result(played(number=lambda i: 3 + i), ended_s=12), "begins at picture 3", whole)
        self.assert_amiss(result(played(count=170), ended_s=12), "its last picture is 264", whole)
        self.assert_amiss(result(played()), "does not end", whole)

    def test_a_silent_source_is_given_up_after_five_seconds(self):
        silent = Told(shows_nothing=True, silent=True)
        self.assertEqual(stream_bytes.faults(silent, result([], ended_s=5.1)), [])
        self.assert_amiss(result([], ended_s=7), "ends after 7.0 s", silent)
        self.assert_amiss(result([]), "ends never", silent)

    def test_no_picture_where_there_is_one_is_a_fault(self):
        self.assert_amiss(result([], ended_s=5), "no picture")

    def test_what_became_worse_is_told_and_what_became_better_is_not(self):
        slow, good = result(played(every_s=1 / 20), first_ms=5000), result(played())
        self.assertEqual(stream_bytes.worse(Told(), slow, good), [])
        self.assertEqual(len(stream_bytes.worse(Told(), good, slow)), 2)
        self.assertEqual(stream_bytes.worse(Told(), good, result([], ended_s=5)), ["no picture any more"])

    def test_a_control_has_to_be_found_out(self):
        control = Told(expected_fault="a second")
        self.assertEqual(stream_bytes.amiss(control, result(played(every_s=1 / 17))), [])
        self.assertEqual(stream_bytes.amiss(control, result(played())), ["the control was not found out"])

    def test_the_same_with_noise_is_not_worse(self):
        self.assertEqual(stream_bytes.worse(Told(), result(played()), result(played(first_s=3.0), first_ms=600)), [])


if __name__ == "__main__":
    unittest.main()
