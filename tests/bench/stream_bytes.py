"""What the hard streams are cut, joined and judged by: functions of bytes and figures, without a clock."""
import dataclasses
import itertools
import math

from playback_rules import AFTER_KEY_MS, FRAMES_PER_SECOND, GAP_MS, PERIOD_SLACK, SETTLE_S, speed

TS_PACKET_BYTES = 188
TS_SYNC = 0x47
PAT_PID, SDT_PID, PMT_PID = 0, 0x11, 0x1000  # as FFmpeg's multiplexer has them; it writes the PMT right after the PAT

RATE_S = 6
EARLY_FRAMES = FRAMES_PER_SECOND * SETTLE_S + 4
NOISE_MS = 300  # two runs of one decoder on a busy machine
SILENCE_S = 5  # after which the decoder's command line has it end


class StreamError(Exception):
    """A stream is not what its recipe says."""


# --- MPEG-TS ------------------------------------------------------------------------------------------------


def ts_packets(data):
    if len(data) % TS_PACKET_BYTES:
        raise StreamError(f"{len(data)} bytes are no whole packets of MPEG-TS")
    for at in range(0, len(data), TS_PACKET_BYTES):
        packet = data[at:at + TS_PACKET_BYTES]
        if packet[0] != TS_SYNC:
            raise StreamError(f"no packet of MPEG-TS at byte {at}")
        yield packet


def ts_pid(packet):
    return (packet[1] & 0x1F) << 8 | packet[2]


def joined_ts(*parts):
    """The parts one after the other, as if one multiplexer had written them: each PID's counter goes on."""
    counters, out = {}, bytearray()
    for packet in itertools.chain.from_iterable(map(ts_packets, parts)):
        pid, has_payload = ts_pid(packet), packet[3] >> 4 & 1
        counter = counters.get(pid, 15) + has_payload & 15
        counters[pid] = counter
        out += packet[:3] + bytes([packet[3] & 0xF0 | counter]) + packet[4:]
    return bytes(out)


def after_tables(data, start):
    """Where the next PAT and PMT from a byte on end: whoever joins there waits longest for the next ones."""
    at = start - start % TS_PACKET_BYTES
    for packet in ts_packets(data[at:]):
        at += TS_PACKET_BYTES
        if ts_pid(packet) == PMT_PID:
            return at
    raise StreamError("no tables after the place to join at")


def with_rare_tables(data, packets, phase_s):
    """The same with one set of tables a second, at this phase of it. The packets are those of ffprobe."""
    kept, out, upcoming = set(), [], iter(packets)
    packet, time_s = next(upcoming), packets[0].time_s
    for i, bytes_ in enumerate(ts_packets(data)):
        while packet and packet.position <= i * TS_PACKET_BYTES:
            time_s, packet = packet.time_s, next(upcoming, None)
        if ts_pid(bytes_) in (PAT_PID, SDT_PID, PMT_PID):
            slot = ts_pid(bytes_), math.floor(time_s - packets[0].time_s - phase_s)
            if slot in kept:
                continue
            kept.add(slot)
        out.append(bytes_)
    return joined_ts(b"".join(out))


# --- H.264 --------------------------------------------------------------------------------------------------

SPS_TYPE = 7
EMULATION = b"\0\0\3"


def nal_units(data):
    """Of an Annex B stream: each unit without its start code, and without the zeros in front of the next one."""
    start = data.find(b"\0\0\1")
    while start >= 0:
        start += 3
        end = data.find(b"\0\0\1", start)
        yield data[start:end if end >= 0 else len(data)].rstrip(b"\0")
        start = end


def unescaped(unit):
    out, zeros = bytearray(), 0
    for byte in unit:
        if zeros >= 2 and byte == 3:
            zeros = 0
            continue
        zeros = zeros + 1 if byte == 0 else 0
        out.append(byte)
    return bytes(out)


def escaped(unit):
    out, zeros = bytearray(), 0
    for byte in unit:
        if zeros >= 2 and byte <= 3:
            out.append(3)
            zeros = 0
        zeros = zeros + 1 if byte == 0 else 0
        out.append(byte)
    return bytes(out)


def without_bitstream_restriction(sps, flag_bit):
    """The parameter set with the flag at this bit off, and what the flag announces, which ends the set, left out. It
    is as long as it was: zeros may follow every unit."""
    bits = "".join(f"{byte:08b}" for byte in unescaped(sps))
    if bits[flag_bit] != "1":
        raise StreamError("there is no restriction to be left out")
    bits = bits[:flag_bit] + "0" + "1"
    bits += "0" * (-len(bits) % 8)
    shorter = escaped(bytes(int(bits[i:i + 8], 2) for i in range(0, len(bits), 8)))
    return shorter.ljust(len(sps), b"\0")


def replaced(data, old, new):
    """Every occurrence, at least one."""
    if len(old) != len(new) or old not in data:
        raise StreamError("what is to be replaced is not there, or of another length")
    return data.replace(old, new)


# --- Matroska -----------------------------------------------------------------------------------------------

SEGMENT_ID, CLUSTER_ID, INFO_ID = 0x18538067, 0x1F43B675, 0x1549A966
TIMECODE_ID, DURATION_ID = 0xE7, 0x4489


def ebml_elements(data, start, end):
    """Id, and where the content begins and ends."""
    at = start
    while at < end:
        length = 9 - data[at].bit_length()
        identity = int.from_bytes(data[at:at + length], "big")
        at += length
        length = 9 - data[at].bit_length()
        size = int.from_bytes(data[at:at + length], "big") & (1 << 7 * length) - 1
        at += length
        yield identity, at, min(at + size, end)
        at += size


def with_shifted_clusters(data, from_ms, by_ms):
    """A Matroska recording whose clusters from this time on are stamped otherwise; its duration is left as it was, for
    that is what a recorder whose clock was set meanwhile would have noted, or not."""
    out, shifted = bytearray(data), 0
    (segment,) = [content for identity, *content in ebml_elements(data, 0, len(data)) if identity == SEGMENT_ID]
    for identity, start, end in ebml_elements(data, *segment):
        if identity != CLUSTER_ID:
            continue
        (stamp,) = [content for inner, *content in ebml_elements(data, start, end) if inner == TIMECODE_ID]
        length, stamp_ms = stamp[1] - stamp[0], int.from_bytes(data[stamp[0]:stamp[1]], "big")
        if stamp_ms >= from_ms:
            out[stamp[0]:stamp[1]] = (stamp_ms + by_ms).to_bytes(length, "big")
            shifted += 1
    if not shifted:
        raise StreamError("no cluster to shift")
    return bytes(out)


# --- Packets and their pace ---------------------------------------------------------------------------------


@dataclasses.dataclass(frozen=True)
class Packet:
    position: int  # of its first byte in the file, as ffprobe tells
    time_s: float
    is_video: bool
    is_key: bool


def packets_of(probed):
    """From the list `packets` of ffprobe's JSON, by position. A bare stream has no timestamps, only durations."""
    packets, next_s = [], 0.0
    for entry in probed:
        time_s = float(entry.get("dts_time", entry.get("pts_time", next_s)))
        next_s = time_s + float(entry.get("duration_time", 0))
        if "pos" in entry:
            packets.append(Packet(int(entry["pos"]), time_s, entry["codec_type"] == "video",
                                  entry.get("flags", "").startswith("K")))
    return sorted(packets, key=lambda packet: packet.position)


@dataclasses.dataclass(frozen=True)
class Chunk:
    start: int
    end: int
    due_s: float  # after the join
    has_key: bool  # a whole key picture has been sent with it, and what it takes to decode one


def schedule(packets, size, join=0, decodable_from=0):
    """What a live source sends, and when, to one that joins at this byte: each packet at the pace of its timestamp,
    never earlier than the one before, and whatever lies before the next packet together with it. The first key picture
    is complete once the bytes before `decodable_from` are there as well, without which no picture can be decoded."""
    after = [packet for packet in packets if packet.position >= join]
    if not after:
        raise StreamError("nothing is left after the join")
    # Sound lies behind the pictures of its time, so that the latest timestamp is the source's clock.
    clock_s = max([packet.time_s for packet in packets if packet.position < join] or [after[0].time_s])
    chunks, due_s = [], 0.0
    if after[0].position > join:
        chunks.append(Chunk(join, after[0].position, 0.0, False))
    key_sent = False
    ends = [packet.position for packet in after[1:]] + [size]
    for packet, end in zip(after, ends):
        due_s += max(0.0, packet.time_s - clock_s)
        clock_s = max(clock_s, packet.time_s)
        if end > packet.position:
            key_sent = key_sent or packet.is_video and packet.is_key
            chunks.append(Chunk(packet.position, end, due_s, key_sent and end >= decodable_from))
    return chunks


def stalled(chunks, at_s, for_s):
    """The same from a source that stands still for a while, and is late by as much from then on."""
    return [chunk if chunk.due_s < at_s else dataclasses.replace(chunk, due_s=chunk.due_s + for_s) for chunk in chunks]


def first_key_s(chunks):
    """When the first picture that can be decoded is there; None: never."""
    return next((chunk.due_s for chunk in chunks if chunk.has_key), None)


# --- What was shown -----------------------------------------------------------------------------------------


def judged(pictures):
    """Of (moment, number or None) for each picture: rate and longest gap from 3 s after the first one, for 6 s, and the
    order of all. A stream that was over before has the rate and the gap of the whole, and `whole` is set."""
    if not pictures:
        return {"pictures": 0}
    moments = [moment for moment, _ in pictures]
    whole = moments[-1] < moments[0] + SETTLE_S + RATE_S - 1
    if whole:
        gaps, elapsed_s = [after - before for before, after in zip(moments, moments[1:])], moments[-1] - moments[0]
        fps, gap_ms = len(gaps) / elapsed_s if elapsed_s > 0 else 0.0, 1000 * max(gaps, default=0.0)
        early = sum(moment < moments[0] + SETTLE_S for moment in moments)
    else:
        measured = speed(moments, RATE_S)
        fps, gap_ms, early = measured.fps, measured.gap_ms, measured.early_frames
    numbers = [number for _, number in pictures if number is not None]
    return {
        "pictures": len(pictures), "whole": whole, "earlyFrames": early, "fps": fps, "gapMs": gap_ms,
        "firstNumber": numbers[0] if numbers else None, "lastNumber": numbers[-1] if numbers else None,
        "distinct": len(set(numbers)), "damaged": len(pictures) - len(numbers),
        "steppedBack": sum(after < before for before, after in zip(numbers, numbers[1:])),
    }


def order_text(result):
    if not result["pictures"]:
        return "no picture"
    text = "kept" if result["steppedBack"] == 0 else f"back {result['steppedBack']} times"
    return text + (f", {result['damaged']} unreadable" if result["damaged"] else "")


def end_text(result):
    return "never" if result["endedS"] is None else f"after {result['endedS']:.1f} s"


def gap_limit(longest_gap_s):
    """The decoder's filter repeats a picture when the next one is there, and whoever looks is late at times."""
    return max(GAP_MS, 1000 * longest_gap_s * PERIOD_SLACK)


def rate_tolerance(longest_gap_s):
    """A frame on either side of each end; of a slow source, what is repeated at once when its next picture is there."""
    at_once = longest_gap_s * FRAMES_PER_SECOND if longest_gap_s * 1000 > GAP_MS else 0
    return (2 + at_once) / RATE_S


def faults(stream, result):
    """In words, what is not as a good player has it. Of a stream without a picture: that it is given up in time."""
    found = []
    if stream.shows_nothing:
        if result["pictures"]:
            found.append("shows pictures that are not there")
        if stream.silent and (result["endedS"] is None or abs(result["endedS"] - SILENCE_S) > 0.5):
            found.append(f"ends {end_text(result)}")
        return found
    if not result["pictures"]:
        return ["no picture"]
    if result["limitMs"] is not None and result["firstPictureMs"] > result["limitMs"] + AFTER_KEY_MS:
        found.append(f"first picture {result['firstPictureMs'] - result['limitMs']:.0f} ms after the limit")
    if abs(result["fps"] - FRAMES_PER_SECOND) > rate_tolerance(stream.longest_gap_s):
        found.append(f"{result['fps']:.1f} a second")
    if result["gapMs"] > gap_limit(stream.longest_gap_s):
        found.append(f"gap of {result['gapMs']:.0f} ms")
    if result["earlyFrames"] > EARLY_FRAMES and not result["whole"]:
        found.append(f"{result['earlyFrames']} pictures in the first {SETTLE_S} s")
    if order_text(result) != "kept":
        found.append(f"order: {order_text(result)}")
    if stream.numbers:
        if result["firstNumber"] != 0:
            found.append(f"begins at picture {result['firstNumber']}")
        # The filter leaves out pictures, the last one among them.
        if result["lastNumber"] < stream.numbers - 1 - stream.numbers // 100 - 2:
            found.append(f"its last picture is {result['lastNumber']} of {stream.numbers}")
        if result["endedS"] is None:
            found.append("does not end")
    return found


def amiss(stream, result):
    """The faults; of a control, that its own was not found."""
    found = faults(stream, result)
    if not stream.expected_fault:
        return found
    return [] if any(stream.expected_fault in fault for fault in found) else ["the control was not found out"]


def worse(stream, before, after):
    """In words, what the second decoder does worse than the first: more than two runs of the same one differ by."""
    if stream.expected_fault:
        return []
    if not before["pictures"]:
        return [] if stream.shows_nothing and faults(stream, after) == [] else faults(stream, after)
    if not after["pictures"]:
        return ["no picture any more"]
    found = []
    if after["firstPictureMs"] > before["firstPictureMs"] + NOISE_MS:
        found.append(f"first picture {after['firstPictureMs']:.0f} ms, was {before['firstPictureMs']:.0f}")
    if abs(after["fps"] - FRAMES_PER_SECOND) > max(rate_tolerance(stream.longest_gap_s), abs(before["fps"] - FRAMES_PER_SECOND)):
        found.append(f"{after['fps']:.1f} a second, was {before['fps']:.1f}")
    # Who shows a recording in a moment has no gaps in it.
    if not before["whole"] and after["gapMs"] > max(before["gapMs"], gap_limit(stream.longest_gap_s)) + NOISE_MS:
        found.append(f"gap of {after['gapMs']:.0f} ms, was {before['gapMs']:.0f}")
    for key, what in (("steppedBack", "pictures out of order"), ("damaged", "unreadable pictures")):
        if after[key] > before[key]:
            found.append(f"{after[key]} {what}, were {before[key]}")
    if stream.numbers:
        if after["firstNumber"] > before["firstNumber"]:
            found.append(f"begins at picture {after['firstNumber']}, was {before['firstNumber']}")
        if after["lastNumber"] < before["lastNumber"] - 2:
            found.append(f"its last picture is {after['lastNumber']}, was {before['lastNumber']}")
        if after["endedS"] is None and before["endedS"] is not None:
            found.append("does not end any more")
    return found
