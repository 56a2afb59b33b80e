#!/usr/bin/python3
"""What each fault of the unreliable camera does on the wire, in front of a real stream."""
import json
import re
import socket
import struct
import subprocess
import time
import unittest
from pathlib import Path

from unreliable_camera import HOST, RTP_HEADER_BYTES, Ended, Player, RtspMessages, UnreliableCamera, close

CAMERA = Path(__file__).resolve().parents[2] / "tools" / "camera" / "local_camera.py"
QUIET_S = 0.5
PATIENCE_S = 10


def port_of(url):
    return int(re.search(r":(\d+)/", url)[1])


def rtp(message):
    """Sequence number, clock, source and what is carried."""
    _, _, sequence, ticks, identity = struct.unpack_from("!BBHII", message, 4)
    return sequence, ticks, identity, message[4 + RTP_HEADER_BYTES:]


def nal_types_h264(payload):
    kind = payload[0] & 0x1F
    return {payload[1] & 0x1F} if kind in (28, 29) else {kind}


class UnreliableCameraTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.process = subprocess.Popen([CAMERA, "--stdin-control"], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                       text=True)
        cls.camera = UnreliableCamera(json.loads(cls.process.stdout.readline())["rtsp"], "stream2")

    @classmethod
    def tearDownClass(cls):
        cls.camera.close()
        cls.process.communicate("quit\n", timeout=PATIENCE_S)
        if cls.process.returncode != 0:
            raise AssertionError(f"the local camera ended with {cls.process.returncode}")

    def setUp(self):
        self.camera.heal()
        self.camera.show("stream2")

    def play(self):
        client = Player(self.camera.url)
        client.connection.settimeout(PATIENCE_S)
        self.addCleanup(close, client.connection)
        return client

    def playing(self):
        client = self.play()
        client.next_media()
        return client

    def answer_to_options(self):
        with socket.create_connection((HOST, port_of(self.camera.url)), PATIENCE_S) as fresh:
            fresh.sendall(b"OPTIONS * RTSP/1.0\r\nCSeq: 7\r\n\r\n")
            return fresh.recv(4096)

    def expect_reset(self, client):
        with self.assertRaises(Ended) as caught:
            while True:
                client.next_media()
        self.assertIsInstance(caught.exception.__cause__, ConnectionResetError)

    def test_passes_a_stream_on(self):
        client = self.playing()
        numbers = [rtp(client.next_media())[0] for _ in range(20)]
        self.assertEqual(numbers, [(numbers[0] + i) & 0xFFFF for i in range(20)])

    def test_drop_resets_and_lets_new_connections_in(self):
        client = self.playing()
        self.camera.drop()
        self.expect_reset(client)
        self.playing()

    def test_freeze_is_silent_to_old_and_new_connections_until_it_thaws(self):
        client = self.playing()
        self.camera.freeze()
        client.connection.settimeout(QUIET_S)
        with self.assertRaises(Ended) as caught:
            while True:
                client.next_media()
        self.assertIsInstance(caught.exception.__cause__, TimeoutError)
        with socket.create_connection((HOST, port_of(self.camera.url)), PATIENCE_S) as fresh:
            fresh.sendall(b"OPTIONS * RTSP/1.0\r\nCSeq: 7\r\n\r\n")
            fresh.settimeout(QUIET_S)
            with self.assertRaises(TimeoutError):
                fresh.recv(1)
            self.camera.thaw()
            fresh.settimeout(PATIENCE_S)
            self.assertTrue(fresh.recv(4096).startswith(b"RTSP/1.0 200"))

    def test_a_thawed_connection_goes_on_where_it_was(self):
        client = self.playing()
        self.camera.freeze()
        client.connection.settimeout(QUIET_S)
        before = None
        with self.assertRaises(Ended):
            while True:
                before = rtp(client.next_media())
        self.camera.thaw()
        client = self.resumed(client)
        after = rtp(client.next_media())
        self.assertEqual(after[0], (before[0] + 1) & 0xFFFF)
        self.assertLess((after[1] - before[1]) & 0xFFFFFFFF, 90_000 // 4)

    @staticmethod
    def resumed(client):
        """After a timeout its file can not be read any more."""
        client.connection.settimeout(PATIENCE_S)
        client._messages = RtspMessages(client.connection)
        return client

    def test_a_client_that_lags_misses_packets_and_time_but_no_number(self):
        client = self.playing()
        first = rtp(client.next_media())
        time.sleep(4)  # 2 Mbit/s: several times what may lie in wait
        packets = [first] + [rtp(client.next_media()) for _ in range(400)]
        self.assertEqual({(b[0] - a[0]) & 0xFFFF for a, b in zip(packets, packets[1:])}, {1})
        self.assertLess((packets[-1][1] - first[1]) & 0xFFFFFFFF, 90_000 * 5)

    def test_showing_another_stream_goes_on_under_the_same_source_numbering_and_clock(self):
        client = self.playing()
        before = [rtp(client.next_media()) for _ in range(20)]
        self.camera.show("stream1")
        after = [rtp(client.next_media()) for _ in range(300)]
        every = before + after
        self.assertEqual({source for _, _, source, _ in every}, {before[0][2]})
        steps = {(b[0] - a[0]) & 0xFFFF for a, b in zip(every, every[1:])}
        self.assertEqual(steps, {1})
        ticks = [(b[1] - a[1]) & 0xFFFFFFFF for a, b in zip(every, every[1:])]
        self.assertLess(max(ticks), 90_000)

    def test_showing_another_size_brings_another_parameter_set(self):
        client = self.playing()
        sets = self.parameter_sets(client)
        self.camera.show("stream1")
        self.assertTrue(self.parameter_sets(client, other_than=sets) - sets)

    def parameter_sets(self, client, other_than=frozenset()):
        deadline, found = time.monotonic() + PATIENCE_S, set()
        while not found - other_than and time.monotonic() < deadline:
            payload = rtp(client.next_media())[3]
            if nal_types_h264(payload) & {7, 24}:
                found.add(payload[:24])
        return found

    def test_showing_another_codec_sends_it_and_new_sessions_are_told(self):
        client = self.playing()
        self.camera.show("h265")
        deadline = time.monotonic() + PATIENCE_S
        while (rtp(client.next_media())[3][0] >> 1) & 0x3F != 32:  # a video parameter set, which H.264 lacks
            self.assertLess(time.monotonic(), deadline, "no H.265 came")
        self.assertIn(b"H265/90000", self.play().description)

    def test_garbled_media_keeps_its_headers_and_is_noise_behind_them(self):
        client = self.playing()
        self.camera.garble_media()
        for _ in range(5):
            client.next_media()
        packets = [rtp(client.next_media()) for _ in range(100)]
        self.assertEqual({(b[0] - a[0]) & 0xFFFF for a, b in zip(packets, packets[1:])}, {1})
        payloads = [payload for _, _, _, payload in packets if payload]
        self.assertEqual({payload[0] for payload in payloads}, {0xFF}, "a decoder might take it for a picture")
        second_bytes = {payload[1] for payload in payloads if len(payload) > 1}
        self.assertGreater(len(second_bytes), 40, "too regular for noise")

    def test_garbage_instead_of_answers(self):
        client = self.playing()
        self.camera.answer_garbage()
        self.expect_reset(client)
        answer = self.answer_to_options()
        self.assertTrue(answer and b"RTSP" not in answer, answer)
        self.camera.heal()
        self.playing()

    def test_refused_passwords(self):
        client = self.playing()
        self.camera.refuse()
        self.expect_reset(client)
        answer = self.answer_to_options()
        self.assertTrue(answer.startswith(b"RTSP/1.0 401") and b"CSeq: 7" in answer and b"Digest" in answer, answer)
        self.camera.heal()
        self.playing()

    def test_gone_away_nobody_listens_and_back_it_is_at_the_same_address(self):
        client, url = self.playing(), self.camera.url
        self.camera.go_away()
        self.expect_reset(client)
        with self.assertRaises(ConnectionRefusedError):
            socket.create_connection((HOST, port_of(url)), PATIENCE_S)
        self.camera.heal()
        self.assertEqual(self.camera.url, url)
        self.playing()

    def test_only_tcp_is_offered(self):
        client = self.play()
        with self.assertRaisesRegex(Ended, "461"):
            client.ask("SETUP", self.camera.url, "Transport: RTP/AVP;unicast;client_port=5000-5001")


if __name__ == "__main__":
    unittest.main()
