"""What the playback is watched with: a camera of its own, steady viewers, and the bridge's frames as they come."""
import contextlib
import json
import pathlib
import socket
import subprocess
import sys
import threading
import time
import urllib.request

from broker_session import HarnessError, wait_for
from picture_code import number_in, number_of

TESTS = pathlib.Path(__file__).resolve().parent.parent
sys.path.insert(0, str(TESTS / "soak"))
from unreliable_camera import Ended, Player  # noqa: E402

CAMERA_PROGRAM = TESTS.parent / "tools" / "camera" / "local_camera.py"
HOST = "127.0.0.1"
LOOK_S = 0.001
END_PATIENCE_S = 10
LIST_SEGMENTS = 3  # a list of fewer is one that has just begun
LIST_LOOK_S = 1


def free_port():
    with socket.create_server((HOST, 0)) as listener:
        return listener.getsockname()[1]


def fetch(url):
    with urllib.request.urlopen(url, timeout=END_PATIENCE_S) as answer:
        return answer.read()


class LocalCamera:
    """tools/camera as a process that can be ended and started again, at the same RTSP port if it is given one."""

    def __init__(self, folder, rtsp_port=0):
        self.folder, self.rtsp_port = folder, rtsp_port
        self.process, self.doors = None, {}

    def __enter__(self):
        self.start()
        return self

    def __exit__(self, *_):
        self.stop()

    def start(self):
        ready = self.folder / "playback-camera.json"
        ready.unlink(missing_ok=True)
        with open(self.folder / "playback-camera.log", "a") as log:
            self.process = subprocess.Popen(
                ["/usr/bin/python3", CAMERA_PROGRAM, "--rtsp-port", str(self.rtsp_port), "--ready-file", ready],
                stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=log)

        def answers():
            if self.process.poll() is not None:
                raise HarnessError(f"the camera ended with {self.process.returncode}: {self.folder}")
            return ready.exists()
        wait_for(answers, "the camera")
        self.doors = json.loads(ready.read_text())

    def stop(self):
        if self.process is None:
            return
        self.process.terminate()
        try:
            self.process.wait(END_PATIENCE_S)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()
        self.process = None

    def url(self, door, path):
        return self.doors[door] + path.lstrip("/")

    def moments(self, path):
        """When the last client asked for it, and when the first picture that can be decoded without any before it had
        left after that; each None if the camera does not tell."""
        one = json.loads(fetch(self.doors["http"] + "moments")).get(path, {})
        return one.get("asked"), one.get("key")


# --- Steady viewers: what is asked for then is a stream that runs already ---


@contextlib.contextmanager
def rtsp_viewer(url):
    player = Player(url)

    def take():
        with contextlib.suppress(Ended, OSError):
            while True:
                player.next_media()

    taker = threading.Thread(target=take)
    taker.start()
    try:
        yield
    finally:
        with contextlib.suppress(OSError):
            player.connection.shutdown(socket.SHUT_RDWR)
        taker.join()
        player.connection.close()


@contextlib.contextmanager
def http_viewer(url):
    with urllib.request.urlopen(url, timeout=END_PATIENCE_S) as answer:
        left = threading.Event()

        def take():
            with contextlib.suppress(OSError):
                while not left.is_set() and answer.read1(65536):
                    pass

        taker = threading.Thread(target=take)
        taker.start()
        try:
            yield
        finally:
            left.set()
            taker.join()


@contextlib.contextmanager
def list_viewer(url):
    """Of an HLS list: from when it is as long as that of a camera that has run for some time."""
    def segments():
        return fetch(url).count(b"#EXTINF")

    wait_for(lambda: segments() >= LIST_SEGMENTS, "a list of segments", pause_s=LIST_LOOK_S)
    left = threading.Event()

    def look():
        while not left.wait(LIST_LOOK_S):
            with contextlib.suppress(OSError):
                segments()

    looker = threading.Thread(target=look)
    looker.start()
    try:
        yield
    finally:
        left.set()
        looker.join()


# --- The bridge ---


def watch_frames(bridge, first_at, until):
    """A moment for each frame, the first one's included."""
    moments, newest = [first_at], bridge.frame_counter
    while (now := time.monotonic()) < until:
        counter = bridge.frame_counter
        moments += [now] * (counter - newest)
        newest = counter
        time.sleep(LOOK_S)
    return moments


def watch_numbers(bridge, seconds):
    """(moment, number or None) of each frame that was seen whole."""
    shown, newest = [], bridge.frame_counter
    end = time.monotonic() + seconds
    while time.monotonic() < end:
        if bridge.frame_counter != newest:
            seen = bridge.look_at(number_in)
            if seen is not None and seen[0] != newest:
                shown.append((time.monotonic(), seen[1]))
                newest = seen[0]
        time.sleep(LOOK_S)
    return shown


def numbers_of(codes):
    """The same of what the bare reader printed."""
    return [(moment, number_of(code)) for moment, code in codes]
