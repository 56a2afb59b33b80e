#!/usr/bin/python3
"""Starts the local camera and uses it as clients do: every address, both RTSP transports, credentials,
faults, many clients, killed clients, every way to end. Prints what it measured. About 55 s."""
import os
import signal
import socket
import subprocess
import sys
import tempfile
import time
import urllib.error
import urllib.request
from pathlib import Path

from selftest_sources import SOURCE_TESTS
from selftest_support import (CAMERA, FPS, PATIENCE_SECONDS, TO_RGB, UNVERIFIED, Camera, Gst, Viewer, check, fetch,
                              processes_naming, rtsp)

FRAMES = 8
QUIET_SECONDS = 1.0
MOUNTS = {"stream1": ("h264", 1280, 720), "stream2": ("h264", 640, 360), "audio": ("h264", 640, 360),
          "mjpeg": ("jpeg", 640, 360), "h265": ("h265", 320, 180), "bars": ("h264", 640, 360)}
# 75 % bars as red, green, blue; decoders and encoders round, hence the tolerance.
BAR_COLOURS = [(191, 191, 191), (191, 191, 0), (0, 191, 191), (0, 191, 0),
               (191, 0, 191), (191, 0, 0), (0, 0, 191)]
TOLERANCE = 6
# No quotation mark: clients do not escape it for Digest.
ODD_USER, ODD_PASSWORD = "us er@é", "p@ss:w/o%20r?d#&'é"


def check_moving(frames, size, what):
    check(all(frame[0] == size for frame in frames), f"{what}: {frames[0][0]} instead of {size}")
    lower = [pixels[len(pixels) // 2:] for _, pixels in frames]  # below the time
    check(len(set(lower)) == len(lower), f"{what}: the picture stands still")


def check_bars(frames):
    (width, height), pixels = frames[-1]
    probes = [(int((i + 0.5) * width / 7), height * 3 // 8, colour) for i, colour in enumerate(BAR_COLOURS)]
    probes.append((width // 2, height * 7 // 8, (255, 255, 255)))
    for x, y, colour in probes:
        at = (y * width + x) * 3
        seen = tuple(pixels[at:at + 3])
        check(all(abs(a - b) <= TOLERANCE for a, b in zip(seen, colour)),
              f"bars at {x},{y}: {seen}, not {colour}")


def status_of(url, user=None):
    try:
        fetch(url, user, seconds=0)
        return 200
    except urllib.error.HTTPError as error:
        return error.code


def test_rtsp_mounts(camera, _folder):
    for path, (codec, width, height) in MOUNTS.items():
        for protocols in ("tcp", "udp") if path == "stream1" else ("tcp",):
            with rtsp(camera.urls["rtsp"] + path, codec, protocols) as viewer:
                frames = viewer.frames(FRAMES)
            if path == "bars":
                check_bars(frames)
            else:
                check_moving(frames, (width, height), f"{path} over {protocols}")
    with Viewer(f"rtspsrc location={camera.urls['rtsp']}audio protocols=tcp latency=0 name=source"
                " source. ! application/x-rtp,media=audio ! rtppcmadepay ! alawdec") as viewer:
        buffer = viewer.sample().get_buffer()
        check(len(set(buffer.extract_dup(0, buffer.get_size()))) > 8, "audio: silence")
    with rtsp(camera.urls["rtsp"] + "404", "h264") as viewer:
        check("Not found" in viewer.error(PATIENCE_SECONDS), "a wrong path was served")


def test_rtsps(camera, _folder):
    """By hand: the system's GStreamer need not have TLS."""
    host, port = camera.urls["rtsps"][len("rtsps://"):].strip("/").split(":")
    with socket.create_connection((host, int(port)), PATIENCE_SECONDS) as plain, \
            UNVERIFIED.wrap_socket(plain, server_hostname="localhost") as encrypted:
        for number, request in enumerate((f"OPTIONS {camera.urls['rtsps']}stream2",
                                          f"DESCRIBE {camera.urls['rtsps']}stream2",
                                          f"DESCRIBE {camera.urls['rtsps']}404"), 1):
            encrypted.sendall(f"{request} RTSP/1.0\r\nCSeq: {number}\r\n\r\n".encode())
            answer = encrypted.recv(65536)
            expected = b"RTSP/1.0 404" if request.endswith("404") else b"RTSP/1.0 200"
            check(answer.startswith(expected), f"{request}: {answer!r}")


def test_web(camera, folder):
    demux = {"live.ts": "tsdemux ! h264parse ! openh264dec", "live.mjpeg": "multipartdemux ! jpegdec",
             "clip.mp4": "qtdemux ! h264parse ! openh264dec"}
    for scheme in ("http", "https"):
        for path, decode in demux.items():
            if (scheme, path) == ("https", "live.mjpeg"):
                continue  # nothing that the other two do not show
            data = fetch(camera.urls[scheme] + path, seconds=None if path == "clip.mp4" else 1)
            if path == "clip.mp4":
                check(data.index(b"moov") < data.index(b"mdat"), "clip.mp4: the index is not in front")
            else:  # real time: one second of pictures, not more
                check(len(data) < 2_000_000, f"{path}: {len(data)} bytes in a second")
            file = folder / path
            file.write_bytes(data)
            with Viewer(f"filesrc location={file} ! {decode}{TO_RGB}") as viewer:
                size = (1280, 720) if path == "live.ts" else (640, 360)
                check_moving(viewer.frames(FRAMES), size, f"{scheme} {path}")
    base = camera.urls["http"]
    check(status_of(base + "404") == 404 and status_of(base + "hls/../key.pem") == 404, "no 404")
    playlist = fetch(base + "hls/index.m3u8").decode()
    segment = [line for line in playlist.splitlines() if line.endswith(".ts")][0]
    (folder / "segment.ts").write_bytes(fetch(base + "hls/" + segment.rsplit("/", 1)[-1]))
    with Viewer(f"filesrc location={folder}/segment.ts ! {demux['live.ts']}{TO_RGB}") as viewer:
        check_moving(viewer.frames(FRAMES), (640, 360), "hls")
    port = int(base.rsplit(":", 1)[1].strip("/"))
    with socket.create_connection(("127.0.0.1", port)) as silent:
        silent.sendall(b"GET /silent HTTP/1.0\r\n\r\n")
        silent.settimeout(QUIET_SECONDS)
        try:
            check(False, f"/silent said {silent.recv(100)!r}")
        except TimeoutError:
            pass


def test_measures(camera, _folder):
    with rtsp(camera.urls["rtsp"] + "stream1", "h264") as viewer:
        viewer.frames(1)
        first_ms = 1000 * (time.monotonic() - viewer.started)
        began, used = time.monotonic(), camera.processor_seconds()
        viewer.frames(2 * FPS)
        seconds = time.monotonic() - began
        fps, load = 2 * FPS / seconds, 100 * (camera.processor_seconds() - used) / seconds
    check(abs(fps - FPS) < 2, f"{fps:.1f} frames per second instead of {FPS}")
    print(f"        /stream1: first frame {first_ms:.0f} ms after the start, {fps:.1f} fps,"
          f" {load:.0f} % of a core")


def test_many_clients(camera, _folder):
    url = camera.urls["rtsp"] + "stream1"
    times_ms, files = [], camera.open_files()
    for _ in range(20):
        with rtsp(url, "h264") as viewer:
            viewer.frames(1)
            times_ms.append(1000 * (time.monotonic() - viewer.started))
    for protocols in ("tcp", "udp"):
        client = subprocess.Popen(["gst-launch-1.0", "-q", "rtspsrc", f"location={url}",
                                   f"protocols={protocols}", "!", "rtph264depay", "!", "fakesink"])
        with rtsp(url, "h264") as viewer:
            viewer.frames(FPS)  # by then the other one is playing too
            client.kill()
            client.wait()
            check_moving(viewer.frames(FRAMES), (1280, 720), "beside a killed client")
    time.sleep(0.5)
    used = camera.processor_seconds()
    time.sleep(1)
    load, left = 100 * (camera.processor_seconds() - used), camera.open_files() - files
    check(load < 5, f"{load:.0f} % of a core without a client")
    check(left <= 2, f"{left} more open files than before 22 clients")
    times_ms.sort()
    print(f"        20 clients: first frame after {times_ms[10]:.0f} ms (median), {times_ms[-1]:.0f} ms"
          f" (worst); without a client: {load:.0f} % of a core")


def test_drop(camera, _folder):
    with rtsp(camera.urls["rtsp"] + "stream2", "h264") as viewer:
        viewer.frames(FRAMES)
        with urllib.request.urlopen(camera.urls["http"] + "live.ts", timeout=PATIENCE_SECONDS) as live:
            check(len(live.read(10000)) == 10000, "live.ts did not come")
            camera.command("drop")
            began = time.monotonic()
            live.read()
            viewer.skip_queued()
            ended = viewer.pipeline.get_bus().timed_pop_filtered(
                PATIENCE_SECONDS * Gst.SECOND, Gst.MessageType.EOS | Gst.MessageType.ERROR)
            check(ended and time.monotonic() - began < 3, "drop did not end the connections")
    with rtsp(camera.urls["rtsp"] + "stream2", "h264") as viewer:
        viewer.frames(FRAMES)


def test_freeze(camera, _folder):
    port = int(camera.urls["rtsp"].rsplit(":", 1)[1].strip("/"))
    with rtsp(camera.urls["rtsp"] + "stream2", "h264") as viewer, \
            urllib.request.urlopen(camera.urls["https"] + "live.ts", timeout=PATIENCE_SECONDS,
                                   context=UNVERIFIED) as live:
        viewer.frames(FRAMES)
        live.read(10000)
        camera.command("freeze")
        camera.command("freeze")
        viewer.skip_queued()
        live.fp.raw._sock.settimeout(QUIET_SECONDS)
        try:
            while live.read1():
                pass
            check(False, "freeze closed the HTTPS stream")
        except TimeoutError:
            pass
        with socket.create_connection(("127.0.0.1", port)) as fresh:
            fresh.sendall(b"OPTIONS * RTSP/1.0\r\nCSeq: 1\r\n\r\n")
            fresh.settimeout(QUIET_SECONDS)
            try:
                check(False, f"frozen, the camera said {fresh.recv(100)!r}")
            except TimeoutError:
                pass
            check(not viewer.sample(0.1), "frames while frozen")
            check(viewer.error() == "no error" and not viewer.sink.get_property("eos"),
                  "freeze ended the stream")
            camera.command("thaw")
            fresh.settimeout(PATIENCE_SECONDS)
            check(fresh.recv(100).startswith(b"RTSP/1.0 200"), "thawed, the camera does not answer")
        viewer.frames(FRAMES)


def test_credentials(_camera, folder):
    camera = Camera(folder, "--user", ODD_USER, "--password", ODD_PASSWORD, "--stdin-control")
    url = camera.urls["rtsp"] + "stream2"
    with rtsp(url, "h264", user_id=ODD_USER, user_pw=ODD_PASSWORD) as viewer:
        viewer.frames(FRAMES)
    for user, password in ((None, None), (ODD_USER, "wrong"), ("wrong", ODD_PASSWORD)):
        with rtsp(url, "h264", user_id=user, user_pw=password) as viewer:
            check("Unauthorized" in viewer.error(PATIENCE_SECONDS), f"{user} and {password} were let in")
    clip = camera.urls["http"] + "clip.mp4"
    check(status_of(clip, (ODD_USER, ODD_PASSWORD)) == 200, "HTTP refused the password")
    check(status_of(clip, (ODD_USER, "wrong")) == 401, "HTTP let a wrong password in")
    camera.command("quit")
    camera.ended("quit")


def test_refusals(camera, folder):
    port = camera.urls["rtsp"].rsplit(":", 1)[1].strip("/")
    for options, words in ((["--fps", "0"], "--fps"), (["--user", "a"], "go together"),
                           (["--user", "a:b", "--password", "c"], "colon"), (["--rtsp-port", port], "in use"),
                           (["--ready-file", str(folder / "none" / "x")], "no folder")):
        done = subprocess.run([CAMERA, *options], capture_output=True, text=True, timeout=PATIENCE_SECONDS)
        check(done.returncode in (1, 2) and words in done.stderr and "Traceback" not in done.stderr,
              f"{options}: {done.returncode} {done.stderr}")


def test_ends(_camera, folder):
    for number in (signal.SIGTERM, signal.SIGINT):
        camera = Camera(folder)
        with rtsp(camera.urls["rtsp"] + "stream1", "h264") as viewer:
            viewer.frames(1)
            camera.process.send_signal(number)
            camera.ended(number.name)
    camera = Camera(folder, "--stdin-control")
    camera.command("freeze")
    camera.process.stdin.close()
    camera.ended("the end of stdin while frozen")
    camera = Camera(folder, "--stdin-control")
    camera.process.stdin.write("freeze\nthaw\nquit\nfreeze\n")
    camera.process.stdin.flush()
    camera.ended("a freeze behind quit")
    starter = subprocess.Popen([sys.executable, "-c", "import subprocess, sys, time; "
                                "subprocess.Popen(sys.argv[1:]); time.sleep(60)",
                                CAMERA, "--die-with-parent", "--ready-file", camera.ready],
                               stdout=subprocess.PIPE, env={**os.environ, "TMPDIR": str(camera.folder)})
    starter.stdout.readline()
    starter.kill()
    starter.wait()
    deadline = time.monotonic() + PATIENCE_SECONDS
    while processes_naming(str(camera.ready)) and time.monotonic() < deadline:
        time.sleep(0.05)
    check(not processes_naming(str(camera.ready)), "the camera outlived its parent")
    check(not list(camera.folder.iterdir()), "temporary files are left after the parent's end")


def test_hls_stops(camera, _folder):
    """Long enough after the last request for it, made in test_web."""
    deadline = time.monotonic() + PATIENCE_SECONDS
    while list(camera.folder.glob("*/hls")) and time.monotonic() < deadline:
        time.sleep(0.1)
    check(not list(camera.folder.glob("*/hls")), "HLS is still being made")


def main():
    Gst.init(None)
    began, failed = time.monotonic(), 0
    with tempfile.TemporaryDirectory(prefix="camera_selftest.") as name:
        folder = Path(name)
        camera = Camera(folder, "--stdin-control")
        own = folder / "second"  # for tests that start a camera of their own
        own.mkdir()
        for test in (test_rtsp_mounts, test_measures, test_many_clients, test_rtsps, test_web, test_drop, test_freeze,
                     test_credentials, test_refusals, test_ends, test_hls_stops,
                     *SOURCE_TESTS):
            start = time.monotonic()
            try:
                test(camera, own)
                verdict = "ok"
            except Exception as error:  # one failure must not hide the others
                failed += 1
                verdict = f"FAILED: {type(error).__name__}: {error}"
            print(f"{time.monotonic() - start:5.1f} s  {test.__name__}: {verdict}", flush=True)
        try:
            camera.process.stdin.close()
            camera.ended("the end of stdin")
        finally:
            for process in Camera.started:
                process.kill()
                process.wait()
    print(f"{time.monotonic() - began:.1f} s, {failed} failed")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
