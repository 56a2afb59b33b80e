"""What the camera shows and how it is encoded: pipelines as text, and what a text cannot say."""
import math
import sys
import time
from dataclasses import dataclass
from pathlib import Path

from gstreamer import Gst

sys.path.append(str(Path(__file__).resolve().parents[2] / "tests" / "bench"))
from picture_code import i420  # noqa: E402  (needs the path above)

CLIP_SECONDS = 5
RECORDING_SECONDS = 20
LATE_SECONDS = 3
NEVER = math.inf
MJPEG_RATES = (1, 5, 10, 15, 30, 60)
CLOCK_SIZE = 640, 360
CLOCK_BRIGHTNESSES = 64

# The element from which each picture comes whole, on its way to a muxer.
PICTURE = "picture"


@dataclass(frozen=True)
class Mount:
    """One RTSP address. Sound leaves from so long after the first picture on."""
    launch: str
    sound_after_s: float = 0
    parameters_in_sdp: bool = True


@dataclass(frozen=True)
class WebStream:
    """An endless stream over HTTP. joins_at: how multifdsink lets a client in."""
    launch: str
    content_type: str
    joins_at: str


@dataclass(frozen=True)
class Recording:
    """A file, made when it is first asked for."""
    launch: str
    content_type: str
    tells_length: bool = True
    gives_ranges: bool = False


@dataclass(frozen=True)
class Playlist:
    """HLS. It has an end, or is made for as long as somebody asks for it."""
    launch: str
    segment_s: int
    ended: bool = False


def moving(fps, width, height, label, source="is-live=true"):
    """Scrolling bars with the running time on top. These two cost the processor least by far: a bouncing
    ball takes six times as much, an outline around the text three times."""
    return (f"videotestsrc {source} pattern=smpte75 horizontal-speed=4"
            f" ! video/x-raw,format=I420,width={width},height={height},framerate={fps}/1"
            f" ! {running_time(label)}")


def running_time(label):
    return (f'timeoverlay time-mode=running-time text="{label}" font-desc="Sans Bold 28"'
            " halignment=center draw-shadow=false draw-outline=false shaded-background=true")


def bars(fps):
    """Seven bars over a white stripe: no two of the four orientations look the same."""
    return (f"videotestsrc is-live=true pattern=smpte75 ! video/x-raw,format=I420,width=640,height=270,"
            f"framerate={fps}/1,colorimetry=bt601 ! videobox bottom=-90 fill=white")


def clock(fps):
    """Pictures that carry the moment at which they were made, see run_clock."""
    width, height = CLOCK_SIZE
    return (f"appsrc name=clock is-live=true format=time do-timestamp=true"
            f" caps=video/x-raw,format=I420,width={width},height={height},framerate={fps}/1")


def h264(fps, key_s=1):
    return (f"x264enc tune=zerolatency speed-preset=ultrafast threads=1 bitrate=2000 key-int-max={key_s * fps}"
            f" option-string=scenecut=0 ! h264parse name={PICTURE}")


def h264_with_b_frames(fps):
    return (f"x264enc speed-preset=ultrafast threads=1 bitrate=2000 key-int-max={fps} bframes=2 b-adapt=false"
            " rc-lookahead=2 sync-lookahead=0 mb-tree=false option-string=scenecut=0"
            f" ! video/x-h264,profile=main ! h264parse name={PICTURE}")


def pcma():
    return ("audiotestsrc is-live=true freq=440 volume=0.1 samplesperbuffer=160"
            " ! audio/x-raw,rate=8000,channels=1 ! alawenc")


def aac():
    return ("audiotestsrc is-live=true freq=440 volume=0.1 ! audio/x-raw,rate=48000,channels=1 ! voaacenc"
            " bitrate=64000 ! aacparse")


# A gap takes the place of what does not come, so that nobody waits for it.
CLOSED = "valve drop=true drop-mode=transform-to-gap"
LATE = f"{CLOSED} name=late"


def rtsp_mounts(fps):
    h265 = f"x265enc tune=zerolatency speed-preset=ultrafast bitrate=500 key-int-max={fps} ! h265parse"
    pay_h264 = "rtph264pay name=pay0 config-interval=-1"
    rtp_h264 = f"{h264(fps)} ! {pay_h264}"
    mounts = {
        "/stream1": Mount(f"{moving(fps, 1280, 720, 'stream1')} ! {rtp_h264}"),
        "/stream2": Mount(f"{moving(fps, 640, 360, 'stream2')} ! {rtp_h264}"),
        "/audio": Mount(f"{moving(fps, 640, 360, 'audio')} ! {rtp_h264} {pcma()} ! rtppcmapay name=pay1"),
        "/mjpeg": Mount(f"{moving(fps, 640, 360, 'mjpeg')} ! jpegenc ! rtpjpegpay name=pay0"),
        "/h265": Mount(f"{moving(fps, 320, 180, 'h265')} ! {h265} ! rtph265pay name=pay0 config-interval=-1"),
        "/bars": Mount(f"{bars(fps)} ! {rtp_h264}"),
        "/bars-mjpeg": Mount(f"{bars(fps)} ! jpegenc ! rtpjpegpay name=pay0"),
        "/bframes": Mount(f"{moving(fps, 640, 360, 'bframes')} ! {h264_with_b_frames(fps)} ! {pay_h264}"),
        "/inband": Mount(f"{moving(fps, 640, 360, 'inband')} ! {rtp_h264}", parameters_in_sdp=False),
        "/late-sound": Mount(f"{moving(fps, 640, 360, 'late-sound')} ! {rtp_h264}"
                             f" {pcma()} ! rtppcmapay name=pay1", sound_after_s=LATE_SECONDS),
        "/mute": Mount(f"{moving(fps, 640, 360, 'mute')} ! {rtp_h264} {pcma()} ! rtppcmapay name=pay1",
                       sound_after_s=NEVER),
        "/clock": Mount(f"{clock(fps)} ! {rtp_h264}"),
    }
    for key_s in (2, 4, 10):
        mounts[f"/gop{key_s}"] = Mount(f"{moving(fps, 640, 360, f'gop{key_s}')} ! {h264(fps, key_s)} ! {pay_h264}")
    return mounts


def web_streams(fps):
    def transport_stream(launch):
        # It may be entered anywhere; the muxer marks its key frames as headers, so that waiting for one would
        # lose the first second.
        return WebStream(launch, "video/mp2t", joins_at="latest")

    def pictures(source):
        # Every one is a key frame, and its part header must not be missed.
        return WebStream(f"{source} ! jpegenc name={PICTURE} ! multipartmux boundary=frame",
                         "multipart/x-mixed-replace; boundary=frame", joins_at="next-keyframe")

    def with_sound(label, before_sound="", before_picture=""):
        return transport_stream(f"{moving(fps, 640, 360, label)} ! {h264(fps)} {before_picture} ! mux."
                                f" {aac()} {before_sound} ! mux. mpegtsmux name=mux")

    return {
        "/live.ts": transport_stream(f"{moving(fps, 1280, 720, 'live.ts')} ! {h264(fps)} ! mpegtsmux"),
        "/bars.ts": transport_stream(f"{bars(fps)} ! {h264(fps)} ! mpegtsmux"),
        "/clock.ts": transport_stream(f"{clock(fps)} ! {h264(fps)} ! mpegtsmux"),
        "/late-sound.ts": with_sound("late-sound.ts", before_sound=f"! {LATE}"),
        "/mute.ts": with_sound("mute.ts", before_sound=f"! {CLOSED}"),
        "/sound-first.ts": with_sound("sound-first.ts", before_picture=f"! {LATE}"),
        "/live.mjpeg": pictures(moving(fps, 640, 360, "live.mjpeg")),
        "/clock.mjpeg": pictures(clock(fps)),
        **{f"/mjpeg/{rate}": pictures(moving(rate, 640, 360, f"mjpeg/{rate}")) for rate in MJPEG_RATES},
    }


def recordings(fps):
    def matroska(name, muxer):
        source = moving(fps, 640, 360, name, f"num-buffers={RECORDING_SECONDS * fps}")
        return f"{source} ! {h264_with_b_frames(fps)} ! {muxer}"

    clip = moving(fps, 640, 360, "clip.mp4", f"num-buffers={CLIP_SECONDS * fps}")
    return {
        "/clip.mp4": Recording(f"{clip} ! {h264(fps)} ! mp4mux faststart=true", "video/mp4"),
        "/recording.mkv": Recording(matroska("recording.mkv", "matroskamux"), "video/x-matroska", gives_ranges=True),
        "/recording-endless.mkv": Recording(matroska("recording-endless.mkv", "matroskamux"), "video/x-matroska",
                                            tells_length=False),
        "/recording-lengthonly.mkv": Recording(matroska("recording-lengthonly.mkv", "matroskamux streamable=true"),
                                               "video/x-matroska"),
    }


def playlists(fps):
    """By folder."""
    def live(label):
        return f"{moving(fps, 640, 360, label)} ! {h264(fps)}"

    ended = moving(fps, 640, 360, "ended", f"num-buffers={RECORDING_SECONDS * fps}")
    return {
        "hls": Playlist(live("hls"), segment_s=1),
        "hls2": Playlist(live("hls2"), segment_s=2),
        "ended": Playlist(f"{ended} ! {h264(fps)}", segment_s=2, ended=True),
    }


def run_clock(container, fps):
    """Sees to the pictures of clock(), if it is in there. They are made when the pipeline asks for one, on its own
    thread: none waits anywhere and grows old, and their maker ends with the pipeline."""
    clock_source = container.get_by_name("clock")
    if not clock_source:
        return
    due_s = 0.0

    def make(source, _bytes):
        nonlocal due_s
        now_s = time.monotonic()
        time.sleep(max(0.0, due_s - now_s))
        due_s = max(due_s, now_s) + 1 / fps
        number = int(time.monotonic() * 1000)
        brightness = 96 + number // 40 % CLOCK_BRIGHTNESSES  # it moves, and a still picture would be found out
        source.emit("push-buffer", Gst.Buffer.new_wrapped(i420(number, *CLOCK_SIZE, brightness)))

    clock_source.connect("need-data", make)


def open_late(container):
    """Opens the valve LATE, if it is in there, LATE_SECONDS after the stream has begun; for pictures, with a key frame."""
    valve = container.get_by_name("late")
    if not valve:
        return

    def on_buffer(pad, info):
        buffer = info.get_buffer()
        segment = pad.get_sticky_event(Gst.EventType.SEGMENT, 0).parse_segment()
        if segment.to_running_time(Gst.Format.TIME, buffer.pts) < LATE_SECONDS * Gst.SECOND \
                or buffer.has_flags(Gst.BufferFlags.DELTA_UNIT):
            return Gst.PadProbeReturn.OK
        pad.get_parent_element().set_property("drop", False)
        return Gst.PadProbeReturn.REMOVE

    valve.get_static_pad("sink").add_probe(Gst.PadProbeType.BUFFER, on_buffer)
