"""The hard streams: how each is made, with Debian's own ffmpeg as the encoder and multiplexer, of pictures that carry
their number. Each recipe proves that its stream is what its name says, or raises StreamError."""
import dataclasses
import hashlib
import json
import pathlib
import random
import re
import shutil
import subprocess

import picture_code
from stream_bytes import (PAT_PID, SPS_TYPE, StreamError, after_tables, escaped, joined_ts, nal_units, packets_of,
                          replaced, ts_packets, ts_pid, unescaped, with_rare_tables, with_shifted_clusters,
                          without_bitstream_restriction)

FFMPEG, FFPROBE = "/usr/bin/ffmpeg", "/usr/bin/ffprobe"
WIDTH, HEIGHT = 640, 360
LIVE_S, RECORDING_S = 22, 14
TS, MATROSKA, WEBM, MP4, FLV, H264 = ("video/mp2t", "video/x-matroska", "video/webm", "video/mp4", "video/x-flv",
                                      "video/h264")
WRAP_S = 2 ** 33 / 90000
FAR_S = 95_000


@dataclasses.dataclass
class Stream:
    content_type: str
    live: bool = False
    silent: bool = False
    join: int = 0  # the byte at which a client joins a live source
    decodable_from: int = 0  # where all but a key picture is there that it takes to decode
    numbers: int = 0  # of a recording: its pictures carry 0 up to this
    longest_gap_s: float = 0.04  # between two of its pictures
    shows_nothing: bool = False
    stalls: tuple[float, float] = (0, 0)  # a live source stands still: when, for how long
    expected_fault: str = ""  # of a control: what has to be found amiss


class Kitchen:
    """Makes streams in a folder, once each, and anew when a recipe has changed."""

    def __init__(self, folder):
        self.folder = folder
        recipes = hashlib.sha256(pathlib.Path(__file__).read_bytes()).hexdigest()
        made_by = folder / "made-by"
        if not made_by.exists() or made_by.read_text() != recipes:
            shutil.rmtree(folder, ignore_errors=True)
            folder.mkdir(parents=True)
            made_by.write_text(recipes)

    def run(self, *arguments, pictures=None):
        command = [FFMPEG, "-hide_banner", "-loglevel", "error", "-y", *map(str, arguments)]
        process = subprocess.Popen(command, stdin=subprocess.PIPE if pictures else subprocess.DEVNULL)
        if pictures:
            with process.stdin:
                for picture in pictures:
                    process.stdin.write(picture)
        if process.wait() != 0:
            raise StreamError(f"ffmpeg ended with {process.returncode}: {' '.join(command)}")

    def probe(self, path, *options):
        output = subprocess.run([FFPROBE, "-loglevel", "error", "-show_packets", "-of", "json", *options, path],
                                check=True, stdout=subprocess.PIPE, timeout=60).stdout
        return packets_of(json.loads(output)["packets"])

    def encode(self, name, codec, output, *, seconds, rate=25, size=(WIDTH, HEIGHT), sound=False, sound_options=(),
               video_options=(), first=0, noise=24, order=None):
        """One encoder and multiplexer over pictures that are numbered from `first`, or by what `order` makes of that."""
        path = self.folder / name
        if path.exists():
            return path
        inputs = ["-f", "rawvideo", "-pix_fmt", "yuv420p", "-s", f"{size[0]}x{size[1]}", "-r", rate,
                  *video_options, "-i", "pipe:0"]
        if sound:
            inputs += [*sound_options, "-f", "lavfi", "-i", f"sine=frequency=440:sample_rate=48000:duration={seconds}"]
        maps = ["-map", "0:v", "-c:v", *codec]
        maps += ["-map", "1:a", "-c:a", "aac" if not isinstance(sound, str) else sound, "-b:a", "96k"] if sound else []
        partial = self.folder / f"{name}.partial"
        self.run(*inputs, *maps, *output, partial,
                 pictures=pictures(map(order or int, range(first, first + round(seconds * rate))), *size, noise=noise))
        partial.rename(path)
        return path


def pictures(numbers, width, height, noise):
    """The code above, moving noise below: a flat picture would be coded in no bytes at all."""
    random.seed(1)
    lines = height // picture_code.HEIGHT_DIVISOR
    field = bytes(128 + random.randrange(-noise, noise + 1) for _ in range(width * 64)) * (height // 64 + 2)
    chroma = b"\x80" * (width * height // 2)
    for number in numbers:
        shift = number * 7 * 2 % (width * 64)
        code = picture_code.luma(number, width, height)[:width * lines]
        yield code + field[shift:shift + width * (height - lines)] + chroma


def x264(key_s=1, rate=25, b_frames=0, extra="", options=(), speed="veryfast"):
    key = round(key_s * rate)
    return ("libx264", "-preset", speed, "-b:v", "1500k", "-maxrate", "1500k", "-bufsize", "1500k", "-bf", b_frames,
            "-g", key, "-keyint_min", key, "-sc_threshold", "0", "-threads", "2",
            *(("-tune", "zerolatency") if not b_frames else ()),
            "-x264-params", "force-cfr=1:scenecut=0" + extra, *options)


def ts(*options):
    return ("-flush_packets", "1", *options, "-f", "mpegts")


# --- Live MPEG-TS -------------------------------------------------------------------------------------------


def ts_live(kitchen, name, codec=None, join_s=None, seconds=LIVE_S, output=(), **how):
    """A source that is joined at its beginning, or in the middle of a picture some time after it."""
    path = kitchen.encode(f"{name}.ts", codec or x264(), ts(*output), seconds=seconds, **how)
    stream = Stream(TS, live=True)
    if join_s is not None:
        packets = kitchen.probe(path)
        stream.join = next(p.position for p in packets if p.time_s >= packets[0].time_s + join_s and p.is_video) + 188
    stream.decodable_from = after_tables(path.read_bytes(), stream.join)
    return path, stream


def late_video(kitchen, name):
    path = kitchen.folder / f"{name}.ts"
    if not path.exists():
        video = kitchen.encode(f"{name}.mkv", x264(), ("-f", "matroska"), seconds=LIVE_S)
        kitchen.run("-itsoffset", "3", "-i", video, "-f", "lavfi", "-i",
                    f"sine=frequency=440:sample_rate=48000:duration={LIVE_S + 3}", "-map", "0:v", "-map", "1:a", "-c:v",
                    "copy", "-c:a", "aac", *ts(), path)
    return prove_late(kitchen, path), Stream(TS, live=True)


def prove_late(kitchen, path):
    packets = kitchen.probe(path)
    first = min(p.time_s for p in packets)
    video = min(p.time_s for p in packets if p.is_video)
    picture_at = min(p.position for p in packets if p.is_video)
    sound_first = [p for p in packets if not p.is_video and p.position < picture_at]
    if not 2.9 < video - first < 3.3 or sound_first[-1].time_s - first < 2.5:
        raise StreamError(f"{path.name}: its video comes after {video - first:.2f} s")
    return path


def late_video_unannounced(kitchen, name):
    """For 3 s the program's table knows nothing of pictures; its next version does."""
    path = kitchen.folder / f"{name}.ts"
    if not path.exists():
        sound, both = kitchen.folder / f"{name}.a.ts", kitchen.folder / f"{name}.b.ts"
        kitchen.run("-f", "lavfi", "-i", "sine=frequency=440:sample_rate=48000:duration=3", "-c:a", "aac",
                    *ts("-streamid", "0:257"), sound)
        both = kitchen.encode(both.name, x264(), ts("-tables_version", "1", "-output_ts_offset", "3"), seconds=LIVE_S,
                              sound=True)
        path.write_bytes(joined_ts(sound.read_bytes(), both.read_bytes()))
        if any(ts_pid(packet) == 0x100 for packet in ts_packets(sound.read_bytes())):
            raise StreamError(f"{path.name}: a packet of the video's before its time")
    return prove_late(kitchen, path), Stream(TS, live=True)


def tables_once_a_second(kitchen, name):
    """Half a second after each key picture; the multiplexer's own come in front of each, and oftener."""
    source = kitchen.encode(f"{name}.often.ts", x264(), ts(), seconds=LIVE_S)
    path = kitchen.folder / f"{name}.ts"
    path.write_bytes(with_rare_tables(source.read_bytes(), kitchen.probe(source), 0.5))
    data, packets = path.read_bytes(), kitchen.probe(path)
    pats = sum(ts_pid(packet) == PAT_PID for packet in ts_packets(data))
    if not LIVE_S - 1 <= pats <= LIVE_S + 1:
        raise StreamError(f"{path.name}: {pats} tables in {LIVE_S} s")
    stream = Stream(TS, live=True)
    stream.join = after_tables(data, next(p.position for p in packets if p.time_s >= packets[0].time_s + 2.2))
    stream.decodable_from = after_tables(data, stream.join)
    return path, stream


def wrong_rate(kitchen, name):
    path, stream = ts_live(kitchen, name, x264(options=(
        "-bsf:v", "h264_metadata=tick_rate=100:fixed_frame_rate_flag=1")), join_s=1.5)
    if "time_scale" not in (log := headers(kitchen, path)) or not re.search(r"time_scale .*= 100\b", log):
        raise StreamError(f"{path.name}: its header does not say 50 a second")
    return path, stream


def headers(kitchen, path):
    return subprocess.run([FFMPEG, "-hide_banner", "-i", path, "-map", "0:v", "-c", "copy", "-frames:v", "30",
                           "-bsf:v", "trace_headers", "-f", "null", "-"], stdin=subprocess.DEVNULL,
                          stderr=subprocess.PIPE, text=True, check=True).stderr


def undeclared_delay(kitchen, path):
    """Takes out of the parameter sets what says how far pictures are put back in order."""
    target = path.with_suffix(".undeclared" + path.suffix)
    if not target.exists():
        log = headers(kitchen, path)
        flag = re.search(r"\] (\d+) +bitstream_restriction_flag +1 = 1", log)
        if not flag:
            raise StreamError("the encoder declared nothing")
        elementary = kitchen.folder / f"{path.stem}.elementary.h264"
        kitchen.run("-i", path, "-map", "0:v", "-c", "copy", "-bsf:v", "h264_mp4toannexb", "-f", "h264", elementary)
        sets = {unit for unit in nal_units(elementary.read_bytes()) if unit and unit[0] & 31 == SPS_TYPE}
        data = path.read_bytes()
        for parameter_set in sets:
            if escaped(unescaped(parameter_set)) != parameter_set:
                raise StreamError("a parameter set that is not understood")
            data = replaced(data, parameter_set, without_bitstream_restriction(parameter_set, int(flag[1])))
        target.write_bytes(data)
    log = headers(kitchen, target)
    if not re.search(r"bitstream_restriction_flag +0 = 0", log) or re.search(
            r"bitstream_restriction_flag +1 = 1|max_num_reorder", log):
        raise StreamError(f"{target.name}: the delay is still declared")
    return target


def undeclared_live(kitchen, name):
    path, stream = ts_live(kitchen, name, x264(b_frames=3), join_s=1.5)
    declared = kitchen.probe(path)
    path = undeclared_delay(kitchen, path)
    if not any(p.is_video for p in declared):
        raise StreamError("no video")
    return path, stream


def undeclared_recording(kitchen, name):
    """In Matroska the set is told once, in the header, and none comes with the pictures."""
    path = kitchen.encode(f"{name}.mkv", x264(b_frames=3), ("-f", "matroska"), seconds=RECORDING_S)
    return undeclared_delay(kitchen, path), Stream(MATROSKA, numbers=RECORDING_S * 25)


def sound_only(kitchen, name):
    path = kitchen.folder / f"{name}.ts"
    if not path.exists():
        kitchen.run("-f", "lavfi", "-i", f"sine=frequency=440:sample_rate=48000:duration={LIVE_S}", "-c:a", "aac",
                    *ts(), path)
    return path, Stream(TS, live=True, shows_nothing=True)


def silent(kitchen, name):
    path = kitchen.folder / f"{name}.none"
    path.write_bytes(b"")
    return path, Stream(TS, silent=True, shows_nothing=True)


def control_gap(kitchen, name):
    path, stream = ts_live(kitchen, name)
    stream.stalls, stream.expected_fault = (5, 0.6), "gap of"
    return path, stream


def control_order(kitchen, name):
    path, stream = ts_live(kitchen, name, order=lambda i: i ^ 8)
    stream.expected_fault = "order: back"
    return path, stream


# --- Other live containers ----------------------------------------------------------------------------------


def whole_live(kitchen, name, suffix, content_type, codec, output, **how):
    path = kitchen.encode(f"{name}.{suffix}", codec, output, seconds=LIVE_S, **how)
    return path, Stream(content_type, live=True)


# --- Recordings ---------------------------------------------------------------------------------------------


def recording(kitchen, name, suffix, content_type, codec=None, output=(), seconds=RECORDING_S, rate=25, longest_gap_s=0,
              **how):
    output = (*output, "-f", {"mkv": "matroska", "ts": "mpegts"}.get(suffix, suffix))
    path = kitchen.encode(f"{name}.{suffix}", codec or x264(b_frames=2), output, seconds=seconds, rate=rate, **how)
    return path, Stream(content_type, numbers=round(seconds * rate), longest_gap_s=longest_gap_s or 1 / rate)


def rotated(kitchen, name):
    """Coded lying, with a matrix that turns it upright: only then does its code lie where it is looked for."""
    path = kitchen.folder / f"{name}.mp4"
    if not path.exists():
        lying = kitchen.encode(f"{name}.lying.mp4", x264(b_frames=2, options=("-vf", "transpose=cclock")),
                               ("-f", "mp4"), seconds=RECORDING_S)
        kitchen.run("-i", lying, "-c", "copy", "-metadata:s:v:0", "rotate=270", "-f", "mp4", path)
    matrix = subprocess.run([FFPROBE, "-loglevel", "error", "-show_streams", path], check=True, text=True,
                            stdout=subprocess.PIPE).stdout
    if "rotation=" not in matrix:
        raise StreamError(f"{path.name}: no display matrix")
    return path, Stream(MP4, numbers=RECORDING_S * 25)


def jump_in_matroska(kitchen, name, by_s):
    """Half way the clusters are stamped otherwise, by numbers of as many bytes."""
    start_s = 40 if by_s < 0 else 10
    source = kitchen.encode(f"{name}.even.mkv", x264(b_frames=2),
                            ("-output_ts_offset", start_s, "-write_crc32", "0", "-f", "matroska"), seconds=RECORDING_S)
    path = kitchen.folder / f"{name}.mkv"
    path.write_bytes(with_shifted_clusters(source.read_bytes(), (start_s + RECORDING_S // 2) * 1000, by_s * 1000))
    return prove_jump(kitchen, path, by_s), Stream(MATROSKA, numbers=RECORDING_S * 25, longest_gap_s=1)


def jump_in_ts(kitchen, name, by_s):
    half = RECORDING_S // 2
    parts = [kitchen.encode(f"{name}.{i}.ts", x264(b_frames=2), ts("-output_ts_offset", 40 + start), seconds=half,
                            first=i * half * 25) for i, start in enumerate((0, half + by_s))]
    path = kitchen.folder / f"{name}.ts"
    path.write_bytes(joined_ts(*(part.read_bytes() for part in parts)))
    return prove_jump(kitchen, path, by_s), Stream(TS, numbers=RECORDING_S * 25, longest_gap_s=1)


def prove_jump(kitchen, path, by_s):
    video = [p.time_s for p in kitchen.probe(path) if p.is_video]
    jumps = [after - before for before, after in zip(video, video[1:]) if abs(after - before) > 5]
    if len(jumps) != 1 or abs(jumps[0] - by_s) > 1:
        raise StreamError(f"{path.name}: jumps {jumps}")
    return path


VARIABLE = ("-vf", "settb=1/1000,setpts=(40*N+160*floor(N/10))", "-vsync", "vfr", "-enc_time_base", "1/1000")

MPEG2 = ("mpeg2video", "-b:v", "3M", "-g", "12", "-bf", "2")
INTERLACED = ("-flags", "+ilme+ildct", "-top", "1")
VP8 = ("libvpx", "-deadline", "realtime", "-cpu-used", "8", "-b:v", "1M", "-g", "25", "-threads", "2")
VP9 = ("libvpx-vp9", *VP8[1:])
HEVC = ("libx265", "-preset", "ultrafast", "-b:v", "1M", "-bf", "0", "-x265-params",
        "keyint=25:min-keyint=25:log-level=none:bframes=0")
FRAGMENTS = ("-movflags", "empty_moov+default_base_moof+frag_every_frame", "-f", "mp4")

RECIPES = {
    "control: a source that stands still for 0.6 s": control_gap,
    "control: pictures out of order": control_order,
    # Live, over HTTP, joined in the middle unless the name says otherwise.
    "TS live, key frame each second": lambda k, n: ts_live(k, n, join_s=1.5),
    "TS live with sound": lambda k, n: ts_live(k, n, join_s=1.5, sound=True),
    "TS live with B-frames and sound": lambda k, n: ts_live(k, n, x264(b_frames=3), join_s=1.5, sound=True),
    "TS live, sound first, video announced, after 3 s": late_video,
    "TS live, sound first, video unannounced, after 3 s": late_video_unannounced,
    "TS live, key frame each 4 s, joined 1 s after one": lambda k, n: ts_live(k, n, x264(4), join_s=1, seconds=26),
    "TS live, 1920x1080, key frame each 10 s, joined 3 s before one": lambda k, n: ts_live(
        k, n, x264(10, speed="ultrafast"), join_s=7, seconds=28, size=(1920, 1080), noise=4),
    "TS live, header says 50 a second": wrong_rate,
    "TS live, MPEG-2 interlaced": lambda k, n: ts_live(k, n, (*MPEG2, *INTERLACED), join_s=1.5),
    "TS live, H.264 interlaced": lambda k, n: ts_live(
        k, n, x264(b_frames=2, extra=":tff=1:interlaced=1", options=INTERLACED), join_s=1.5),
    "TS live, tables once a second": tables_once_a_second,
    "TS live, B-frames without a declared delay": undeclared_live,
    "TS live, MPEG-4 part 2": lambda k, n: ts_live(
        k, n, ("mpeg4", "-b:v", "1500k", "-g", "25", "-bf", "1"), join_s=1.5),
    "TS live, HEVC": lambda k, n: ts_live(k, n, HEVC, join_s=1.5),
    "TS live, timestamps from 95,000 s": lambda k, n: ts_live(
        k, n, join_s=1.5, sound=True, output=("-output_ts_offset", FAR_S)),
    "TS live, 33-bit wrap 3 s after the join": lambda k, n: ts_live(
        k, n, join_s=1.5, sound=True, output=("-output_ts_offset", f"{WRAP_S - 4.5:.3f}")),
    "TS live, 2 MB a second": lambda k, n: ts_live(
        k, n, ("mpeg2video", "-b:v", "16M", "-minrate", "16M", "-maxrate", "16M", "-bufsize", "4M", "-g", "25", "-bf",
               "0"), join_s=1.5, noise=90),
    "TS live, sound only": sound_only,
    "FLV live with sound": lambda k, n: whole_live(k, n, "flv", FLV, x264(), ("-f", "flv"), sound=True),
    "FLV live without sound": lambda k, n: whole_live(k, n, "flv", FLV, x264(), ("-f", "flv")),
    "MP4 live in fragments": lambda k, n: whole_live(k, n, "mp4", MP4, x264(), FRAGMENTS),
    "WebM live, VP8": lambda k, n: whole_live(k, n, "webm", WEBM, VP8, ("-live", "1", "-f", "webm")),
    "WebM live, VP9": lambda k, n: whole_live(k, n, "webm", WEBM, VP9, ("-live", "1", "-f", "webm")),
    "Matroska live, timestamps from 95,000 s": lambda k, n: whole_live(
        k, n, "mkv", MATROSKA, x264(), ("-live", "1", "-cluster_time_limit", "1000", "-output_ts_offset", FAR_S, "-f",
                                        "matroska"), sound=True),
    "bare H.264 live": lambda k, n: whole_live(k, n, "h264", H264, x264(), ("-f", "h264")),
    "silent": silent,
    # Recordings: as fast as they are read.
    "Matroska recording, B-frames": lambda k, n: recording(k, n, "mkv", MATROSKA, sound=True),
    "TS recording, B-frames": lambda k, n: recording(k, n, "ts", TS, sound=True),
    "MP4 recording, B-frames": lambda k, n: recording(k, n, "mp4", MP4, sound=True),
    "MP4 recording, index at the front": lambda k, n: recording(
        k, n, "mp4", MP4, output=("-movflags", "+faststart"), sound=True),
    "FLV recording": lambda k, n: recording(k, n, "flv", FLV, x264(), sound=True),
    "WebM recording, VP8": lambda k, n: recording(k, n, "webm", WEBM, VP8),
    "WebM recording, VP9": lambda k, n: recording(k, n, "webm", WEBM, VP9),
    "Matroska recording, timestamps from 40 s": lambda k, n: recording(
        k, n, "mkv", MATROSKA, output=("-output_ts_offset", "40"), sound=True),
    "TS recording, timestamps from 40 s": lambda k, n: recording(
        k, n, "ts", TS, output=("-output_ts_offset", "40"), sound=True),
    "MP4 recording, timestamps from 40 s": lambda k, n: recording(
        k, n, "mp4", MP4, output=("-output_ts_offset", "40"), sound=True),
    "FLV recording, timestamps from 40 s": lambda k, n: recording(
        k, n, "flv", FLV, x264(), output=("-output_ts_offset", "40"), sound=True),
    "Matroska recording, B-frames without a declared delay": undeclared_recording,
    "MP4 recording, rotated": rotated,
    "Matroska recording, variable rate": lambda k, n: recording(
        k, n, "mkv", MATROSKA, x264(b_frames=2, options=VARIABLE), seconds=7, longest_gap_s=0.2),
    "MP4 recording, variable rate": lambda k, n: recording(
        k, n, "mp4", MP4, x264(b_frames=2, options=VARIABLE), seconds=7, longest_gap_s=0.2),
    "Matroska recording, 30 s forward in the middle": lambda k, n: jump_in_matroska(k, n, 30),
    "Matroska recording, 30 s back in the middle": lambda k, n: jump_in_matroska(k, n, -30),
    "TS recording, 30 s forward in the middle": lambda k, n: jump_in_ts(k, n, 30),
    "TS recording, 30 s back in the middle": lambda k, n: jump_in_ts(k, n, -30),
    "Matroska recording, 1 a second": lambda k, n: recording(
        k, n, "mkv", MATROSKA, x264(4, rate=1, b_frames=2), seconds=16, rate=1),
    "Matroska recording, 60 a second": lambda k, n: recording(
        k, n, "mkv", MATROSKA, x264(1, rate=60, b_frames=2), rate=60),
}


def file_name(name):
    return re.sub(r"[^a-z0-9]+", "-", name.lower()).strip("-")
