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

    def is_waiting(self, path):
        with self.lock:
            return path not in self.key

    def is_end_of_key(self, path, packet):
        """Whether this packet ended the key picture of that stream; what passes a door is seen there again."""
        with self.lock:
            return self.last_packet.get(path) == packet[:RTP_HEADER_BYTES]

    def table(self):
        with self.lock:
            return {path: {"asked": asked, "key": self.key.get(path)} for path, asked in self.asked.items()}


def begins_key(encoding, packet):
    """Whether a packet begins a picture that needs no other: it is a parameter set, or the first part of a JPEG. The
    buffers' flags do not tell: GStreamer's payloaders set them otherwise for each codec."""
    first, second, third = packet[RTP_HEADER_BYTES:TELLING_BYTES]
    if encoding == "H264":
        return first & 31 == 7
    if encoding == "H265":
        return first >> 1 & 63 == 33
    return second == third == 0  # the offset in the picture, all but its last eight bits


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
    """Notes the next key picture that leaves through a pad of RTP packets, and then looks away: a probe costs."""
    # A probe that held its own pad, or anything around it, would keep all of it for ever.
    encoding = watched.get_current_caps().get_structure(0).get_string("encoding-name")
    began_s = None

    def on_packets(pad, info):
        nonlocal began_s
        for buffer in buffers_of(info):
            packet = buffer.extract_dup(0, TELLING_BYTES).ljust(TELLING_BYTES, b"\0")
            if began_s is None and begins_key(encoding, packet):
                began_s = time.monotonic()
        if began_s is not None and packet[1] & MARKER:
            due = due_s(pad, buffer)
            moments.picture(path, max(began_s, due), max(time.monotonic(), due), packet[:RTP_HEADER_BYTES])
            began_s = None
        return Gst.PadProbeReturn.OK if moments.is_waiting(path) else Gst.PadProbeReturn.REMOVE

    watched.add_probe(BUFFERS, on_packets)


def watch_muxed(encoded, muxed, path, moments):
    """Notes the next key picture that leaves through the pad `muxed`, having come from the pad `encoded`. The muxer
    sends each in one piece, a list that it marks or a part of its own; sound between them is smaller."""
    waiting = None  # (bytes, when it was seen) of a key picture before the muxer

    def on_picture(_pad, info):
        nonlocal waiting
        buffer = info.get_buffer()
        if not buffer.has_flags(Gst.BufferFlags.DELTA_UNIT):
            waiting = buffer.get_size(), time.monotonic()
        return Gst.PadProbeReturn.OK if moments.is_waiting(path) else Gst.PadProbeReturn.REMOVE

    def on_piece(_pad, info):
        nonlocal waiting
        if not moments.is_waiting(path):
            return Gst.PadProbeReturn.REMOVE
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
