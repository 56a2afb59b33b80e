#!/usr/bin/python3
"""A network camera on loopback: RTSP, RTSPS, HTTP and HTTPS, with faults on command.

It stands in for a real camera in ./dev run, in the tests and in the benchmarks. Nothing is encoded
until a client asks for it, clients of one address share one encoder, and the last one to leave stops it.
"""
import argparse
import contextlib
import ctypes
import json
import os
import queue
import signal
import sys
import tempfile
import threading
from pathlib import Path

from doors import SlowDoor, TlsDoor
from gstreamer import GLib, check_elements
from moments import Moments
from rtsp_camera import RtspCamera
from web import Content, WebServer, make_tls

HOUSEKEEPING_SECONDS = 2
PR_SET_PDEATHSIG = 1
SLOW_LINKS = {"rtsp-2mbit": {"bits_per_s": 2_000_000}, "rtsp-300ms": {"delay_s": 0.3}}


class Camera:
    def __init__(self, options, folder):
        self.loop = GLib.MainLoop()
        self.commands = queue.SimpleQueue()
        moments = Moments()
        self.content = Content(options, folder, moments)
        self.rtsp = RtspCamera(options, moments)
        tls = make_tls(folder)
        port = self.rtsp.server.get_bound_port()
        self.doors = {"rtsps": TlsDoor(port, tls)}
        for name, link in SLOW_LINKS.items():
            self.doors[name] = SlowDoor(port, name, moments, **link)
        self.web = [WebServer(self.content), WebServer(self.content, tls)]
        self.urls = {"rtsp": self.rtsp.url, "http": self.web[0].url, "https": self.web[1].url,
                     **{name: door.url for name, door in self.doors.items()}}

    def post(self, command):
        """May be called from any thread and from a signal handler."""
        self.commands.put(command)
        GLib.idle_add(self.run_commands)

    def run_commands(self):
        with contextlib.suppress(queue.Empty):
            while self.loop.is_running():  # nothing counts after quit
                # Frozen, this thread waits here: it takes commands but no longer answers RTSP clients.
                self.run(self.commands.get(block=not self.content.thawed.is_set()))
        return GLib.SOURCE_REMOVE

    def run(self, command):
        known = {"drop": self.drop, "freeze": self.freeze, "thaw": self.thaw, "quit": self.quit}
        if command in known:
            known[command]()
            announce({"done": command})
        else:
            print(f"local_camera: unknown command '{command}', there are: {' '.join(known)}", file=sys.stderr)

    def drop(self):
        self.rtsp.drop_clients()
        for server in self.web:
            server.drop_clients()

    def freeze(self):
        if self.content.thawed.is_set():
            self.content.thawed.clear()
            self.rtsp.hold()

    def thaw(self):
        self.rtsp.release()
        self.content.thawed.set()

    def quit(self):
        self.thaw()
        self.loop.quit()

    def housekeeping(self):
        self.rtsp.forget_the_gone()
        self.content.stop_idle_hls()
        return GLib.SOURCE_CONTINUE

    def serve(self):
        GLib.timeout_add_seconds(HOUSEKEEPING_SECONDS, self.housekeeping)
        self.loop.run()

    def close(self):
        self.thaw()
        for door in self.doors.values():
            door.close()
        self.drop()
        self.rtsp.close()
        for server in self.web:
            server.close()
        self.content.close()


def announce(value):
    with contextlib.suppress(BrokenPipeError):  # the program that started us may have stopped listening
        print(json.dumps(value), flush=True)


def read_commands(camera):
    for line in sys.stdin:
        if line.strip():
            camera.post(line.strip())
    camera.post("quit")


def parse_options():
    parser = argparse.ArgumentParser(
        prog="local_camera.py", formatter_class=argparse.RawDescriptionHelpFormatter,
        description="A network camera on loopback. Prints its addresses as a line of JSON when ready.",
        epilog="RTSP, and RTSPS over TCP:\n"
               "       /stream1 1280x720 H.264, /stream2 640x360 H.264, /audio H.264 and PCMA,\n"
               "       /mjpeg 640x360, /h265 320x180, /bars and /bars-mjpeg a still picture of\n"
               "       known colours; 640x360 H.264 with a peculiarity: /gop2, /gop4, /gop10 (seconds\n"
               "       between key frames), /bframes, /inband, /late-sound, /mute, /clock\n"
               "       the addresses rtsp-2mbit and rtsp-300ms lead there over a slow link, TCP only\n"
               "HTTP and HTTPS:  /live.ts, /bars.ts, /late-sound.ts, /mute.ts, /sound-first.ts,\n"
               "       /clock.ts, /live.mjpeg, /mjpeg/1 .. /mjpeg/60 (pictures a second), /clock.mjpeg,\n"
               "       /clip.mp4, /recording.mkv, /recording-endless.mkv, /recording-lengthonly.mkv,\n"
               "       /hls/index.m3u8, /hls2/index.m3u8, /ended/index.m3u8,\n"
               "       /moments when each was asked for and its first key picture had left,\n"
               "       /silent never answers, /404 and everything else is not found\n"
               "Commands:  drop closes all connections, freeze keeps them but sends and answers nothing,\n"
               "       thaw ends a freeze, quit ends the camera; each is answered with {\"done\": ...}")
    parser.add_argument("--rtsp-port", type=int, default=0, metavar="N", help="default: chosen by the system")
    parser.add_argument("--fps", type=int, default=25, metavar="N", help="frames per second, default 25")
    parser.add_argument("--user", metavar="U", help="ask for this user (RTSP Basic and Digest, HTTP Basic)")
    parser.add_argument("--password", metavar="P", help="and this password")
    parser.add_argument("--ready-file", type=Path, metavar="PATH",
                        help="write the addresses there too; the file exists only while the camera runs")
    parser.add_argument("--stdin-control", action="store_true", help="take commands on stdin, end with it")
    parser.add_argument("--die-with-parent", action="store_true", help="end when the starting process ends")
    options = parser.parse_args()
    if not 0 <= options.rtsp_port <= 65535:
        parser.error("--rtsp-port must be from 0 to 65535")
    if not 1 <= options.fps <= 60:
        parser.error("--fps must be from 1 to 60")
    if bool(options.user) != (options.password is not None):
        parser.error("--user and --password go together")
    if options.user and ":" in options.user:
        parser.error("--user must not contain a colon: Basic authentication could not carry it")
    if options.ready_file and not options.ready_file.absolute().parent.is_dir():
        parser.error(f"--ready-file: there is no folder {options.ready_file.absolute().parent}")
    return options


def main():
    options = parse_options()
    if options.die_with_parent:
        parent = os.getppid()
        ctypes.CDLL(None).prctl(PR_SET_PDEATHSIG, signal.SIGTERM)
        if os.getppid() != parent:
            return
    check_elements()
    if options.ready_file:
        options.ready_file.unlink(missing_ok=True)
    with tempfile.TemporaryDirectory(prefix="local_camera.") as folder:
        camera = Camera(options, Path(folder))
        for number in (signal.SIGTERM, signal.SIGINT):
            signal.signal(number, lambda *_arguments: camera.post("quit"))
        if options.stdin_control:
            threading.Thread(target=read_commands, args=(camera,), daemon=True).start()
        announce(camera.urls)
        if options.ready_file:
            draft = options.ready_file.with_name(options.ready_file.name + ".new")
            draft.write_text(json.dumps(camera.urls) + "\n")
            draft.replace(options.ready_file)
        camera.serve()
        camera.close()
        if options.ready_file:
            options.ready_file.unlink(missing_ok=True)


if __name__ == "__main__":
    main()
