"""What the camera's tests share: the camera as a process, and clients of it."""
import base64
import contextlib
import json
import os
import re
import socket
import ssl
import subprocess
import time
import urllib.request
from pathlib import Path

import gi
gi.require_version("Gst", "1.0")
from gi.repository import Gst  # noqa: E402  (needs the version above)

from doors import next_message  # noqa: E402

CAMERA = Path(__file__).with_name("local_camera.py")
FPS = 25
PATIENCE_SECONDS = 8
DECODE = {"h264": "rtph264depay ! h264parse ! openh264dec", "h265": "rtph265depay ! h265parse ! libde265dec",
          "jpeg": "rtpjpegdepay ! jpegdec"}


def check(condition, what):
    if not condition:
        raise AssertionError(what)


class Camera:
    started = []  # so that a failed test leaves none behind

    def __init__(self, folder, *options):
        # Its temporary files go where the test sees whether any is left.
        self.ready, self.folder = folder / "ready.json", folder / "tmp"
        self.folder.mkdir(exist_ok=True)
        self.process = subprocess.Popen(
            [CAMERA, "--ready-file", self.ready, *options], env={**os.environ, "TMPDIR": str(self.folder)},
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        self.started.append(self.process)
        line = self.process.stdout.readline()
        check(line, f"the camera did not start: {line or self.process.stderr.read()}")
        self.urls = json.loads(line)

    def command(self, word):
        self.process.stdin.write(word + "\n")
        self.process.stdin.flush()
        answer = self.process.stdout.readline()
        check(json.loads(answer) == {"done": word}, f"{word} was answered with {answer!r}")

    def processor_seconds(self):
        fields = Path(f"/proc/{self.process.pid}/stat").read_text().rsplit(")", 1)[1].split()
        return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")

    def open_files(self):
        return len(os.listdir(f"/proc/{self.process.pid}/fd"))

    def ended(self, how):
        status = self.process.wait(PATIENCE_SECONDS)
        errors = self.process.stderr.read()
        check(status == 0 and not errors, f"after {how}: exit status {status}, stderr: {errors}")
        check(not self.ready.exists(), f"after {how}: the ready file is still there")
        check(not list(self.folder.iterdir()), f"after {how}: temporary files are left")
        check(not processes_naming(str(self.ready)), f"after {how}: a process is left")


def processes_naming(text):
    found = []
    for path in Path("/proc").glob("[0-9]*/cmdline"):
        try:
            if text.encode() in path.read_bytes() and int(path.parent.name) != os.getpid():
                found.append(path.parent.name)
        except OSError:
            pass
    return found


class Viewer:
    """A GStreamer client; frames() are what it decodes to RGB."""

    def __init__(self, launch, **source):
        self.started = time.monotonic()
        self.pipeline = Gst.parse_launch(launch + " ! appsink name=sink sync=false max-buffers=200")
        for name, value in source.items():
            self.pipeline.get_by_name("source").set_property(name.replace("_", "-"), value)
        self.sink = self.pipeline.get_by_name("sink")
        self.pipeline.set_state(Gst.State.PLAYING)

    def __enter__(self):
        return self

    def __exit__(self, *_arguments):
        self.pipeline.set_state(Gst.State.NULL)

    def sample(self, seconds=PATIENCE_SECONDS):
        return self.sink.emit("try-pull-sample", int(seconds * Gst.SECOND))

    def skip_queued(self):
        deadline = time.monotonic() + PATIENCE_SECONDS
        while self.sample(0.1):
            check(time.monotonic() < deadline, "frames keep coming")

    def frames(self, count):
        found = []
        for _ in range(count):
            sample = self.sample()
            check(sample, f"{len(found)} of {count} frames came: {self.error()}")
            caps, buffer = sample.get_caps().get_structure(0), sample.get_buffer()
            size = caps.get_value("width"), caps.get_value("height")
            found.append((size, buffer.extract_dup(0, buffer.get_size())))
        return found

    def error(self, seconds=0):
        message = self.pipeline.get_bus().timed_pop_filtered(int(seconds * Gst.SECOND), Gst.MessageType.ERROR)
        return f"{message.parse_error()[0].message}" if message else "no error"


UNVERIFIED = ssl.create_default_context()
UNVERIFIED.check_hostname = False
UNVERIFIED.verify_mode = ssl.CERT_NONE
TO_RGB = " ! videoconvert ! video/x-raw,format=RGB"


def rtsp(url, codec, protocols="tcp", **source):
    return Viewer(f"rtspsrc name=source location={url} latency=0 protocols={protocols}"
                  f" source. ! application/x-rtp,media=video ! {DECODE[codec]}{TO_RGB}", **source)


def fetch(url, user=None, seconds=None):
    """The body, or what came of it within so many seconds."""
    request = urllib.request.Request(url)
    if user:
        request.add_header("Authorization", "Basic " + base64.b64encode(":".join(user).encode()).decode())
    data, began = b"", time.monotonic()
    with urllib.request.urlopen(request, timeout=PATIENCE_SECONDS, context=UNVERIFIED) as answer:
        while seconds is None or time.monotonic() - began < seconds:
            chunk = answer.read1(65536)
            if not chunk:
                break
            data += chunk
    return data


class RtspClient:
    """A client over TCP, by hand: what it sees are packets and when they came. The picture's come on channel 0,
    sound's on channel 2."""

    def __init__(self, url):
        self.url, self.number = url, 0
        host, port = re.match(r"rtsp://([^:/]+):(\d+)/", url).groups()
        self.connection = socket.create_connection((host, int(port)), PATIENCE_SECONDS)
        self.stream = self.connection.makefile("rb")

    def __enter__(self):
        return self

    def __exit__(self, *_arguments):
        self.connection.shutdown(socket.SHUT_RDWR)
        self.stream.close()
        self.connection.close()

    def ask(self, method, url, *headers):
        self.number += 1
        lines = [f"{method} {url} RTSP/1.0", f"CSeq: {self.number}", *headers, "", ""]
        self.connection.sendall("\r\n".join(lines).encode())
        while (answer := next_message(self.stream)).startswith(b"$"):
            pass
        check(answer.startswith(b"RTSP/1.0 200"), f"{method} {url}: {answer[:100]!r}")
        return answer.decode()

    def description(self):
        return self.ask("DESCRIBE", self.url, "Accept: application/sdp")

    def play(self):
        session = ""
        for track, control in enumerate(re.findall(r"a=control:(\S*stream=\d+)", self.description())):
            url = control if "://" in control else f"{self.url}/{control}"
            channels = f"{2 * track}-{2 * track + 1}"
            answer = self.ask("SETUP", url, f"Transport: RTP/AVP/TCP;unicast;interleaved={channels}", *session)
            session = ["Session: " + re.search(r"\r\nSession: *([^;\r]+)", answer)[1]]
        self.ask("PLAY", self.url, *session)
        return self

    def packets(self, seconds):
        """(moment, channel, packet) of all that comes for so long."""
        end = time.monotonic() + seconds
        self.connection.settimeout(seconds)
        with contextlib.suppress(TimeoutError):
            while time.monotonic() < end and (message := next_message(self.stream)):
                if message.startswith(b"$"):
                    yield time.monotonic(), message[1], message[4:]
