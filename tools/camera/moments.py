"""When each stream was asked for, and when the first picture that can be decoded had left."""
import threading
import time

from gstreamer import Gst

RTP_HEADER_BYTES = 12
MARKER = 0x80
# How much of a packet shows what it is of: the header and what H.265 puts in front of a fragment.
TELLING_BYTES = RTP_HEADER_BYTES + 3
SINK_LATENCY = 20 * Gst.MSECOND  # the default of every sink of a live pipeline
BUFFERS = Gst.PadProbeType.BUFFER | Gst.PadProbeType.BUFFER_LIST


class Moments:
    """In seconds of CLOCK_MONOTONIC. Thread-safe."""

    def __init__(self):
        self.lock = threading.Lock()  # guards the three below, all by path
        self.asked = {}
        self.key = {}
        self.last_packet = {}  # of the picture that gave the moment in key: its first bytes

    def ask(self, path):
        with self.lock:
            self.asked[path] = time.monotonic()
            self.key.pop(path, None)
            self.last_packet.pop(path, None)

    def picture(self, path, began_s, left_s, last_packet=None):
        """A key picture leaves between these moments. One that had begun before somebody asked has not reached him
        whole."""
        with self.lock:
            if path in self.asked and path not in self.key and began_s >= self.asked[path]:
                self.key[path] = left_s
                self.last_packet[path] = last_packet

    def is_end_of_key(self, path, packet):
        """Whether this packet ended the key picture of that stream; what passes a door is seen there again."""
        with self.lock:
            return self.last_packet.get(path) == packet[:RTP_HEADER_BYTES]

    def table(self):
        with self.lock:
            return {path: {"asked": asked, "key": self.key.get(path)} for path, asked in self.asked.items()}


def is_key_packet(encoding, packet):
    """Whether a packet is, or is a part of, a picture that needs no other. The buffers' flags do not tell:
    GStreamer's payloaders set them otherwise for each codec."""
    first, second, third = packet[RTP_HEADER_BYTES:TELLING_BYTES]
    if encoding == "H264":
        kind = first & 31
        return (second & 31 if kind == 28 else kind) == 5
    if encoding == "H265":
        kind = first >> 1 & 63
        return 16 <= (third & 63 if kind == 49 else kind) <= 21
    return True


def buffers_of(info):
    """The first and the last of what passes: the parts of one unit of a picture come as one list."""
    if not info.type & Gst.PadProbeType.BUFFER_LIST:
        return [info.get_buffer()]
    parts = info.get_buffer_list()
    return [parts.get(0), parts.get(parts.length() - 1)]


def due_s(pad, buffer):
    """When a sink lets it go: its time in the stream, and the latency of what is before and of the sink. It is asked
    here, since a sink that has just been added does not know. GStreamer's clock is the one of time.monotonic()."""
    query = Gst.Query.new_latency()
    latency = query.parse_latency()[1] if pad.query(query) else 0
    segment = pad.get_sticky_event(Gst.EventType.SEGMENT, 0).parse_segment()
    running_time = segment.to_running_time(Gst.Format.TIME, buffer.pts)
    return (pad.get_parent_element().get_base_time() + running_time + latency + SINK_LATENCY) / Gst.SECOND


def watch_rtp(watched, path, moments):
    """Notes the key pictures that leave through a pad of RTP packets."""
    # A probe that held its own pad, or anything around it, would keep all of it for ever.
    encoding, began_s, is_key = None, None, False

    def on_packets(pad, info):
        nonlocal encoding, began_s, is_key
        encoding = encoding or pad.get_current_caps().get_structure(0).get_string("encoding-name")
        began_s = began_s or time.monotonic()
        for buffer in buffers_of(info):
            packet = buffer.extract_dup(0, TELLING_BYTES).ljust(TELLING_BYTES, b"\0")
            is_key = is_key or is_key_packet(encoding, packet)
        if packet[1] & MARKER:
            if is_key:
                due = due_s(pad, buffer)
                moments.picture(path, max(began_s, due), max(time.monotonic(), due), packet[:RTP_HEADER_BYTES])
            began_s, is_key = None, False
        return Gst.PadProbeReturn.OK

    watched.add_probe(BUFFERS, on_packets)


def watch_muxed(encoded, muxed, path, moments):
    """Notes the key pictures that leave through the pad `muxed`, having come from the pad `encoded`. The muxer sends
    each in one piece, a list that it marks or a part of its own; sound between them is smaller."""
    waiting = None  # (bytes, when it was seen) of a key picture before the muxer

    def on_picture(_pad, info):
        nonlocal waiting
        buffer = info.get_buffer()
        if not buffer.has_flags(Gst.BufferFlags.DELTA_UNIT):
            waiting = buffer.get_size(), time.monotonic()
        return Gst.PadProbeReturn.OK

    def on_piece(_pad, info):
        nonlocal waiting
        if not waiting:
            return Gst.PadProbeReturn.OK
        if info.type & Gst.PadProbeType.BUFFER_LIST:
            pieces = info.get_buffer_list()
            size, marked = pieces.calculate_size(), not pieces.get(0).has_flags(Gst.BufferFlags.DELTA_UNIT)
        else:
            size, marked = info.get_buffer().get_size(), True
        if marked and size >= waiting[0]:
            moments.picture(path, waiting[1], time.monotonic())
            waiting = None
        return Gst.PadProbeReturn.OK

    encoded.add_probe(Gst.PadProbeType.BUFFER, on_picture)
    muxed.add_probe(BUFFERS, on_piece)
