"""That the camera's streams are what their names say, its doors as slow as theirs, and its moments true."""
import contextlib
import json
import math
import re
import sys
import threading
import time
import urllib.error
import urllib.request
from pathlib import Path

from selftest_support import (FPS, PATIENCE_SECONDS, TO_RGB, UNVERIFIED, Gst, RtspClient, Viewer, check, fetch, rtsp)

sys.path.append(str(Path(__file__).resolve().parents[2] / "tests" / "bench"))
from picture_code import NUMBER_BITS, number_in  # noqa: E402  (needs the path above)

PICTURE_CHANNEL, SOUND_CHANNEL = 0, 2
MARKER = 0x80
RTP_HEADER_BYTES = 12
TS_PACKET_BYTES = 188
PICTURE_PID, SOUND_PID = 65, 66
AAC = 15  # as a transport stream announces it


def at_once(tasks):
    """The answers of all, each run on a thread of its own."""
    answers, errors = {}, []

    def run(name, task):
        try:
            answers[name] = task()
        except Exception as error:  # told below, on the thread that waits
            errors.append(f"{name}: {error}")

    threads = [threading.Thread(target=run, args=item) for item in tasks.items()]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    check(not errors, "; ".join(errors))
    return answers


def nal_kind(packet):
    """Of H.264, and for a fragment of the unit that it is of."""
    kind = packet[RTP_HEADER_BYTES] & 31
    return packet[RTP_HEADER_BYTES + 1] & 31 if kind == 28 else kind


def pictures_of(url, seconds):
    """(stream time, whether it is a key frame) of the pictures that come in so long, in the order of coming."""
    found, is_key = [], False
    with RtspClient(url) as client:
        for _at, channel, packet in client.play().packets(seconds):
            if channel != PICTURE_CHANNEL:
                continue
            is_key = is_key or nal_kind(packet) == 5
            if packet[1] & MARKER:
                found.append((int.from_bytes(packet[4:8], "big") / 90_000, is_key))
                is_key = False
    check(len(found) > 1, f"{url}: no pictures")
    return found


def goes_back(pictures):
    """Whether pictures come in another order than they are shown in."""
    return any(later < earlier for (earlier, _), (later, _) in zip(pictures, pictures[1:]))


def check_key_frames(camera, _folder):
    lengths = {"stream2": 1, "bframes": 1, "gop2": 2, "gop4": 4, "gop10": 10}
    seen = at_once({path: lambda url=camera.urls["rtsp"] + path, s=key_s: pictures_of(url, s + 1.5)
                    for path, key_s in lengths.items()})
    told = []
    for path, key_s in lengths.items():
        keys = [at for at, is_key in seen[path] if is_key]
        check(len(keys) >= 2 and seen[path][0][1], f"{path}: key frames at {keys}")
        distances = [later - earlier for earlier, later in zip(keys, keys[1:])]
        # One picture is 0.04 s; the first of all may have waited for the client.
        check(all(abs(distance - key_s) < 0.07 for distance in distances), f"{path}: key frames {distances} s apart")
        check(goes_back(seen[path]) == (path == "bframes"), f"{path}: B-frames, or none")
        told.append(f"{path} {sum(distances) / len(distances):.2f}")
    print(f"        key frames, s apart: {', '.join(told)}; B-frames in bframes alone")


def test_parameters(camera, _folder):
    def described(path):
        with RtspClient(camera.urls["rtsp"] + path) as client:
            return client.description()

    check("sprop-parameter-sets" in described("stream2"), "stream2 describes no parameter sets")
    description = described("inband")
    check("H264" in description and "sprop" not in description, f"inband: {description}")
    with RtspClient(camera.urls["rtsp"] + "inband") as client:
        kinds = [nal_kind(packet) for _at, channel, packet in client.play().packets(2.3)
                 if channel == PICTURE_CHANNEL]
    before_keys = [kinds[at - 2:at] for at in range(2, len(kinds)) if kinds[at] == 5 and kinds[at - 1] != 5]
    check(len(before_keys) >= 2 and all(kind == [7, 8] for kind in before_keys),
          f"inband: before key frames came {before_keys}")
    with rtsp(camera.urls["rtsp"] + "inband", "h264") as viewer:
        viewer.frames(3)
    print(f"        inband: no parameter sets described, {len(before_keys)} of {len(before_keys)} key frames bring them")


def first_of_sound(url, seconds):
    """Seconds from the first packet of the picture to the first of sound; None if none came."""
    with RtspClient(url) as client:
        began = None
        for at, channel, _packet in client.play().packets(seconds):
            began = began or (at if channel == PICTURE_CHANNEL else None)
            if channel in (SOUND_CHANNEL, SOUND_CHANNEL + 1) and began:
                return at - began
        check(began, f"{url}: no picture")
    return None


def first_of_tracks(url, seconds):
    """The time in a transport stream of the first picture and of the first sound; None for what never comes."""
    data = fetch(url, seconds=seconds)
    firsts = {}
    for at in range(0, len(data) - TS_PACKET_BYTES, TS_PACKET_BYTES):
        packet = data[at:at + TS_PACKET_BYTES]
        track = {PICTURE_PID: "picture", SOUND_PID: "sound"}.get(int.from_bytes(packet[1:3], "big") & 0x1FFF)
        if track and packet[1] & 0x40 and track not in firsts:
            begin = 4 + (packet[4] + 1 if packet[3] & 0x20 else 0)
            stamp = packet[begin + 9:begin + 14]
            firsts[track] = ((stamp[0] >> 1 & 7) << 30 | stamp[1] << 22 | stamp[2] >> 1 << 15 | stamp[3] << 7
                             | stamp[4] >> 1) / 90_000
    announced = bytes((AAC, 0xE0, SOUND_PID)) in data[:TS_PACKET_BYTES * 4]
    return {"picture": firsts.get("picture"), "sound": firsts.get("sound"), "announced": announced}


def check_late_tracks(camera, _folder):
    url, http = camera.urls["rtsp"], camera.urls["http"]
    seen = at_once({
        "audio": lambda: first_of_sound(url + "audio", 1),
        "late-sound": lambda: first_of_sound(url + "late-sound", 4),
        "mute": lambda: first_of_sound(url + "mute", 4),
        **{path: lambda path=path: first_of_tracks(http + path, 4.5)
           for path in ("late-sound.ts", "mute.ts", "sound-first.ts")},
    })
    check(seen["audio"] is not None and seen["audio"] < 0.3, f"audio: sound after {seen['audio']} s")
    check(seen["late-sound"] and 2.9 < seen["late-sound"] < 3.2, f"late-sound: sound after {seen['late-sound']} s")
    check(seen["mute"] is None, f"mute: sound after {seen['mute']} s")
    with RtspClient(url + "mute") as client:
        check("m=audio" in client.description(), "mute announces no sound")
    late, mute, sound_first = seen["late-sound.ts"], seen["mute.ts"], seen["sound-first.ts"]
    check(mute["picture"] is not None and mute["sound"] is None and mute["announced"], f"mute.ts: {mute}")
    late_s = late["sound"] - late["picture"]
    picture_s = sound_first["picture"] - sound_first["sound"]
    check(2.7 < late_s < 3.3, f"late-sound.ts: {late}")
    check(2.9 < picture_s < 4.1, f"sound-first.ts: {sound_first}")
    print(f"        sound after the picture: audio {seen['audio']:.2f} s, late-sound {seen['late-sound']:.2f} s,"
          f" late-sound.ts {late_s:.2f} s, sound-first.ts {-picture_s:.2f} s, mute and mute.ts never in 4 s")


def test_rates_of_pictures(camera, _folder):
    def parts(path):
        return fetch(camera.urls["http"] + path, seconds=2.5).count(b"--frame")

    counted = at_once({path: lambda path=path: parts(path) for path in ("mjpeg/5", "mjpeg/10", "mjpeg/15", "mjpeg/30")})
    for path, count in counted.items():
        rate = int(path.split("/")[1])
        check(abs(count - 2.5 * rate) <= 2 + rate / 10, f"{path}: {count} pictures in 2.5 s")
    print("        pictures in 2.5 s: " + ", ".join(f"{path} {count}" for path, count in counted.items()))


def ages_ms(viewer, count):
    """How old pictures of the clock are when they come out of a decoder."""
    ages = []
    for _ in range(count):
        sample = viewer.sample()
        check(sample, f"no picture of the clock: {viewer.error()}")
        data = sample.get_buffer().extract_dup(0, sample.get_buffer().get_size())
        number = number_in(data, 640, 360)
        check(number is not None, "a picture of the clock carries no number")
        ages.append((int(time.monotonic() * 1000) - number) & (1 << NUMBER_BITS) - 1)
    return ages


def test_clock(camera, _folder):
    to_bgra = TO_RGB.replace("RGB", "BGRA")
    rtsp_launch = (f"rtspsrc location={camera.urls['rtsp']}clock protocols=tcp latency=0 ! rtph264depay ! h264parse"
                   f" ! openh264dec{to_bgra}")
    http = f"souphttpsrc is-live=true location={camera.urls['http']}"
    told = []
    for name, launch in (("clock", rtsp_launch), ("clock.mjpeg", f"{http}clock.mjpeg ! multipartdemux ! jpegdec{to_bgra}"),
                         ("clock.ts", f"{http}clock.ts ! tsdemux ! h264parse ! openh264dec{to_bgra}")):
        with Viewer(launch) as viewer:
            ages_ms(viewer, FPS // 2)
            ages = ages_ms(viewer, FPS)
        # The decoder, or the demuxer, may hold the last picture until the next one is there.
        check(max(ages) < 400, f"{name}: pictures {ages} ms old")
        told.append(f"{name} {sorted(ages)[len(ages) // 2]} ms")
    print(f"        age of decoded pictures: {', '.join(told)}")


def test_recordings(camera, folder):
    http = camera.urls["http"]
    whole = fetch(http + "recording.mkv")

    def ask(path, header):
        request = urllib.request.Request(http + path, headers={"Range": header} if header else {})
        try:
            with urllib.request.urlopen(request, timeout=PATIENCE_SECONDS) as answer:
                return answer.status, answer.headers, answer.read()
        except urllib.error.HTTPError as error:
            return error.code, error.headers, b""

    length = len(whole)
    for header, first, last in (("bytes=0-", 0, length - 1), ("bytes=100-199", 100, 199),
                                ("bytes=-50", length - 50, length - 1), (f"bytes=9-{2 * length}", 9, length - 1)):
        status, headers, data = ask("recording.mkv", header)
        check((status, headers["Content-Range"], headers["Content-Length"], data)
              == (206, f"bytes {first}-{last}/{length}", str(last + 1 - first), whole[first:last + 1]),
              f"recording.mkv, {header}: {status} {headers}")
    check(ask("recording.mkv", f"bytes={length}-")[0] == 416, "a range behind the end was served")
    check(ask("recording.mkv", None)[1]["Content-Length"] == str(length), "recording.mkv tells no length")
    for path in ("recording-endless.mkv", "recording-lengthonly.mkv", "clip.mp4"):
        status, headers, data = ask(path, "bytes=100-199")
        check(status == 200 and len(data) > 1000, f"{path}, a range: {status}, {len(data)} bytes")
        check((headers["Content-Length"] is None) == (path == "recording-endless.mkv"), f"{path}: {headers}")
    file = folder / "recording.mkv"
    file.write_bytes(whole)
    pictures = []
    with Viewer(f"filesrc location={file} ! matroskademux ! h264parse ! video/x-h264,alignment=au") as viewer:
        while sample := viewer.sample():
            pictures.append((sample.get_buffer().pts / Gst.SECOND, False))
    seconds = max(at for at, _ in pictures) + 1 / FPS
    check(len(pictures) == 20 * FPS and abs(seconds - 20) < 0.1 and goes_back(pictures),
          f"recording.mkv: {len(pictures)} pictures, {seconds} s")
    print(f"        recording.mkv: {len(pictures)} pictures with B-frames, {seconds:.1f} s, {length} bytes, ranges")


def check_playlists(camera, _folder):
    http = camera.urls["http"]
    playlists = at_once({name: lambda name=name: fetch(f"{http}{name}/index.m3u8").decode()
                         for name in ("hls", "hls2", "ended")})
    durations = {name: [float(found) for found in re.findall(r"#EXTINF:([\d.]+)", text)]
                 for name, text in playlists.items()}
    for name, segment_s in (("hls", 1), ("hls2", 2), ("ended", 2)):
        check(durations[name] and all(abs(found - segment_s) < 0.1 for found in durations[name]),
              f"{name}: segments of {durations[name]} s")
        check(("#EXT-X-ENDLIST" in playlists[name]) == (name == "ended"), f"{name}: {playlists[name]}")
    check(abs(sum(durations["ended"]) - 20) < 0.1, f"ended: {durations['ended']}")
    segment = re.findall(r"\S+\.ts", playlists["ended"])[-1].rsplit("/", 1)[-1]
    check(len(fetch(f"{http}ended/{segment}")) > 1000, "the last segment is missing")
    print(f"        segments: hls {durations['hls']}, hls2 {durations['hls2']}, ended {len(durations['ended'])} x 2 s")


def test_doors(camera, _folder):
    def round_trip(name):
        with RtspClient(camera.urls[name] + "stream2") as client:
            began = time.monotonic()
            client.ask("OPTIONS", client.url)
            return time.monotonic() - began

    def rate(name):
        with RtspClient(camera.urls[name] + "mjpeg") as client:
            sizes = [(at, len(packet) + 4) for at, _channel, packet in client.play().packets(2)]
        return 8 * sum(size for _, size in sizes[1:]) / (sizes[-1][0] - sizes[0][0]) / 1e6

    trips = {name: round_trip(name) for name in ("rtsp", "rtsp-300ms", "rtsp-2mbit")}
    rates = {name: rate(name) for name in ("rtsp", "rtsp-300ms", "rtsp-2mbit")}
    check(trips["rtsp"] < 0.1 and 0.3 <= trips["rtsp-300ms"] < 0.4 and trips["rtsp-2mbit"] < 0.1, f"{trips}")
    check(1.9 < rates["rtsp-2mbit"] < 2.1 and min(rates["rtsp"], rates["rtsp-300ms"]) > 3, f"{rates}")
    for what, unit, figures in (("round trip", "ms", {name: 1000 * trip for name, trip in trips.items()}),
                                ("rate of /mjpeg", "Mbit/s", rates)):
        print(f"        {what}, {unit}: " + ", ".join(f"{name} {figure:.1f}" for name, figure in figures.items()))


def test_moments(camera, _folder):
    def moments():
        return json.loads(fetch(camera.urls["http"] + "moments"))

    def key_comes(url, is_key, after_s=0.0):
        """When the last packet of the first whole key picture has come; and when PLAY was sent, about."""
        time.sleep(after_s)
        with RtspClient(url) as client:
            asked, keyed = time.monotonic(), False
            for at, channel, packet in client.play().packets(4):
                if channel != PICTURE_CHANNEL:
                    continue
                keyed = keyed or is_key(packet)
                if packet[1] & MARKER and keyed:
                    return asked, at
        check(False, f"{url}: no key picture")
        return None

    def h264(packet):
        # Of a picture whose beginning was missed there is no first fragment.
        fragment, head = packet[RTP_HEADER_BYTES:RTP_HEADER_BYTES + 2]
        return fragment & 31 == 5 or (fragment & 31 == 28 and head & 0x9F == 0x85)

    def h265(packet):
        kind = packet[RTP_HEADER_BYTES] >> 1 & 63
        return 16 <= (packet[RTP_HEADER_BYTES + 2] & 63 if kind == 49 else kind) <= 21

    told = []
    for name, path, is_key in (("rtsp", "stream1", h264), ("rtsp", "h265", h265), ("rtsp", "mjpeg", lambda _: True),
                               ("rtsp-300ms", "stream2", h264), ("rtsp-2mbit", "stream1", h264)):
        late_ms = math.inf
        for _ in range(3):  # on a busy machine a client learns late what has come
            asked, came = key_comes(camera.urls[name] + path, is_key)
            table = moments()
            seen = table[f"/{path}" if name == "rtsp" else f"{name}/{path}"]
            # In front of a door only a sink's first wait is foreseen, not seen.
            early_s = 0.03 if name == "rtsp" else 0.001
            check(asked < seen["asked"] <= seen["key"] < came + early_s, f"{name}/{path}: {seen}, {came}")
            late_ms = min(late_ms, 1000 * (came - seen["key"]))
        check(late_ms < 25, f"{name}/{path}: came {late_ms} ms after its moment, three times")
        told.append(f"{name}/{path} {late_ms:.1f}")
        if name != "rtsp":
            on_the_way_s = seen["key"] - table[f"/{path}"]["key"]
            low, high = {"rtsp-300ms": (0.3, 0.35), "rtsp-2mbit": (0.03, 0.5)}[name]
            check(low <= on_the_way_s < high, f"{name}: the key picture took {on_the_way_s} s")
    print(f"        the client has the key picture, ms after its moment: {', '.join(told)}")
    # Who joins others in the middle has to wait for the next key picture, and so has the moment.
    seen = at_once({"first": lambda: pictures_of(camera.urls["rtsp"] + "gop2", 4),
                    "second": lambda: key_comes(camera.urls["rtsp"] + "gop2", h264, after_s=0.7)})
    moment, came = moments()["/gop2"], seen["second"][1]
    check(0.5 < moment["key"] - moment["asked"] < 2 and abs(came - moment["key"]) < 0.03, f"gop2: {moment}, {came}")
    print(f"        who joins gop2 in the middle has a key picture after {moment['key'] - moment['asked']:.2f} s")
    check_web_moments(camera.urls["http"], moments)


def check_web_moments(http, moments):
    told = []
    for path, end in (("live.ts", None), ("live.mjpeg", b"\xff\xd9"), ("recording.mkv", None), ("clip.mp4", None),
                      ("hls/index.m3u8", None), ("ended/index.m3u8", None)):
        began = time.monotonic()
        with urllib.request.urlopen(http + path, timeout=PATIENCE_SECONDS, context=UNVERIFIED) as answer:
            if path.endswith("m3u8"):
                segment = re.findall(rb"\S+\.ts", answer.read())[0].rsplit(b"/", 1)[-1].decode()
                fetch(http + path.replace("index.m3u8", segment))
            else:
                data = answer.read1(65536)
                while end and end not in data:
                    data += answer.read1(65536)
                if not end:
                    with contextlib.suppress(TimeoutError):
                        while time.monotonic() - began < 0.3 and answer.read1(65536):
                            pass
            ended = time.monotonic()
            seen = moments()[f"/{path}"]
        # A viewer of an hour ago must not do: these are the moments of this one.
        check(began < seen["asked"] <= (seen["key"] or 0) < ended + 0.01, f"{path}: {seen}, from {began} to {ended}")
        told.append(f"{path} {1000 * (seen['key'] - seen['asked']):.0f}")
    print(f"        key picture, ms after the request: {', '.join(told)}")


def test_streams(camera, folder):
    """Those that mostly wait."""
    at_once({test.__name__: lambda test=test: test(camera, folder)
             for test in (check_key_frames, check_late_tracks, check_playlists)})


SOURCE_TESTS = (test_streams, test_rates_of_pictures, test_parameters, test_clock, test_recordings, test_doors, test_moments)
