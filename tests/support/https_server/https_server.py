#!/usr/bin/python3
"""An HTTPS server on loopback for the update channel's tests, with a certificate authority of its own.

    https_server.py --folder DIR --ready-file FILE

DIR/www is what it hands out; tests put their files there. How a file is handed out says the file NAME.reply beside it, a
JSON object; without one it is plain, whole and right:

    status   200              type    by the file's ending; null: none
    headers  {}               length  "right", "none" (ends with the connection), or a number that is announced
    more     bytes of 'x' behind the file's            zeros   so many zero bytes in the file's place
    cut      bytes after which the connection is reset  stall   bytes after which nothing more comes
    drip     seconds between bytes                      pace    seconds between pieces of 64 KiB
    delay    seconds before the head                    head    "silent", "drip" (a byte a second) or "reset"

Servers that give trouble before there is a request: connect_silent answers no connection, connect_reset refuses it;
handshake_silent says nothing to a client that is connected, handshake_drip a byte a second, handshake_reset hangs up at
its first word. No connection lasts longer than STALL_SECONDS, for not every client has a limit of its own.

Every request is noted in NAME.requests, one JSON object a line. FILE receives, when all is ready, the origins by kind of
server and the authority's certificate. It ends when its parent does.
"""
import argparse
import ctypes
import functools
import http.server
import itertools
import json
import os
import signal
import socket
import socketserver
import ssl
import struct
import subprocess
import sys
import threading
import time
import urllib.parse
from pathlib import Path

HOST = "127.0.0.1"
PIECE_BYTES = 64 * 1024
STALL_SECONDS = 8
DRIP_SECONDS = 1
PR_SET_PDEATHSIG = 1


def openssl(*arguments):
    subprocess.run(["openssl", *map(str, arguments)], check=True, capture_output=True)


class Authority:
    """Certificates under one root, made by the openssl program."""

    def __init__(self, folder, name):
        self.folder, self.name = folder, name
        self.key, self.certificate = folder / f"{name}.key", folder / f"{name}.pem"
        openssl("req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "7", "-subj", f"/CN=vextra test {name}",
                "-addext", "basicConstraints=critical,CA:TRUE", "-addext", "keyUsage=critical,keyCertSign,cRLSign",
                "-keyout", self.key, "-out", self.certificate)

    def leaf(self, name, host, days):
        base = self.folder / f"{self.name}-{name}"
        key, request, extensions, certificate = (base.with_suffix(s) for s in (".key", ".csr", ".ext", ".pem"))
        extensions.write_text(f"subjectAltName=DNS:{host}\nextendedKeyUsage=serverAuth\n")
        openssl("req", "-newkey", "rsa:2048", "-nodes", "-subj", f"/CN={host}", "-keyout", key, "-out", request)
        openssl("x509", "-req", "-in", request, "-CA", self.certificate, "-CAkey", self.key, "-CAcreateserial",
                "-days", days, "-extfile", extensions, "-out", certificate)
        return certificate, key


def context(leaf, version=None):
    made = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    made.load_cert_chain(*leaf)
    if version is not None:
        # Old versions are off in every modern library: that is what is tested.
        made.set_ciphers("ALL:@SECLEVEL=0")
        made.minimum_version = made.maximum_version = version
    return made


class Handler(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"
    timeout = 30

    def __init__(self, www, *arguments):
        self.www = www
        super().__init__(*arguments)

    def log_message(self, *_):
        pass

    def do_GET(self):
        path = self.www / urllib.parse.unquote(self.path.split("?")[0]).lstrip("/")
        if ".." in path.parts:
            return self.send_error(400)
        self.note(path)
        reply_file = path.with_name(path.name + ".reply")
        reply = json.loads(reply_file.read_text()) if reply_file.exists() else {}
        if not path.is_file() and not reply:
            return self.send_error(404)
        self.close_connection = True
        time.sleep(reply.get("delay", 0))
        trouble = {"silent": self.stall, "drip": self.drip_head, "reset": self.cut}.get(reply.get("head"))
        if trouble is not None:
            return trouble()
        self.send_head(path, reply)
        self.send_body(path, reply)

    def note(self, path):
        if path.parent.is_dir():
            with open(path.with_name(path.name + ".requests"), "a", encoding="utf-8") as notes:
                line = {"line": self.requestline, "tls": self.connection.version(), "headers": dict(self.headers)}
                notes.write(json.dumps(line, sort_keys=True) + "\n")

    @staticmethod
    def size(path, reply):
        return reply.get("zeros", path.stat().st_size if path.is_file() else 0) + reply.get("more", 0)

    def send_head(self, path, reply):
        self.send_response(reply.get("status", 200))
        kind = reply.get("type", "application/json" if path.suffix == ".json" else "application/octet-stream")
        if kind is not None:
            self.send_header("Content-Type", kind)
        length = reply.get("length", "right")
        if length != "none":
            self.send_header("Content-Length", str(self.size(path, reply) if length == "right" else length))
        for name, value in reply.get("headers", {}).items():
            self.send_header(name, value)
        self.send_header("Connection", "close")
        self.end_headers()

    def pieces(self, path, reply):
        if "zeros" in reply:
            zeros, left = bytes(PIECE_BYTES), reply["zeros"]
            while left > 0:
                yield zeros[:left]
                left -= len(zeros[:left])
        elif path.is_file():
            with open(path, "rb") as file:
                while piece := file.read(PIECE_BYTES):
                    yield piece
        if reply.get("more", 0):
            yield b"x" * reply["more"]

    def send_body(self, path, reply):
        sent = 0
        for piece in self.pieces(path, reply):
            for limit, act in ((reply.get("cut"), self.cut), (reply.get("stall"), self.stall)):
                if limit is not None and sent + len(piece) > limit:
                    self.wfile.write(piece[:limit - sent])
                    return act()
            if "drip" in reply:
                for byte in piece:
                    self.wfile.write(bytes([byte]))
                    time.sleep(reply["drip"])
            else:
                self.wfile.write(piece)
                time.sleep(reply.get("pace", 0))
            sent += len(piece)

    def cut(self):
        """Without TLS's farewell, and with a reset instead of TCP's."""
        self.connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
        self.server.cut_off.add(self.connection)

    def drip_head(self):
        """A head that never ends: a byte of it now and then."""
        end = time.monotonic() + STALL_SECONDS
        head = itertools.chain(b"HTTP/1.1 200 OK\r\nX-Long: ", itertools.repeat(ord("x")))
        while time.monotonic() < end:
            self.wfile.write(bytes([next(head)]))
            time.sleep(DRIP_SECONDS)

    def stall(self):
        self.connection.settimeout(STALL_SECONDS)
        try:
            self.connection.recv(1)  # until the client gives up
        except OSError:
            pass


class Server(socketserver.ThreadingTCPServer):
    allow_reuse_address = True
    daemon_threads = True
    request_queue_size = 64

    def __init__(self, tls, www):
        super().__init__((HOST, 0), functools.partial(Handler, www))
        self.tls = tls
        self.cut_off = set()
        threading.Thread(target=self.serve_forever, daemon=True).start()

    @property
    def origin(self):
        return f"https://localhost:{self.server_address[1]}"

    def finish_request(self, request, client_address):
        request.settimeout(10)
        connection = self.tls.wrap_socket(request, server_side=True)
        connection.settimeout(30)
        try:
            self.RequestHandlerClass(connection, client_address, self)
            if connection not in self.cut_off:
                self.say_farewell(connection)
        finally:
            self.cut_off.discard(connection)
            connection.close()

    @staticmethod
    def say_farewell(connection):
        """TLS's own end, without waiting for the client's, as servers do."""
        connection.setblocking(False)
        try:
            connection.unwrap()
        except ssl.SSLWantReadError:
            pass

    def handle_error(self, request, client_address):
        pass  # clients that refuse, cancel and vanish are what this is for


def hang_up(connection):
    """With a reset."""
    connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
    connection.close()


def wait_for_end(connection, seconds):
    """Until the client is gone, or for so long; what it says is not looked at."""
    end = time.monotonic() + seconds
    try:
        while (left := end - time.monotonic()) > 0:
            connection.settimeout(left)
            if not connection.recv(4096):
                return
    except OSError:
        pass


class Troublesome(socketserver.ThreadingTCPServer):
    """What a client meets before any request can be made: `treat` is given its connection."""
    allow_reuse_address = True
    daemon_threads = True
    request_queue_size = 64

    def __init__(self, treat):
        super().__init__((HOST, 0), None)
        self.treat = treat
        threading.Thread(target=self.serve_forever, daemon=True).start()

    @property
    def origin(self):
        return f"https://localhost:{self.server_address[1]}"

    def finish_request(self, request, client_address):
        self.treat(request)

    def handle_error(self, request, client_address):
        pass


def say_nothing(connection):
    wait_for_end(connection, STALL_SECONDS)


def drip_handshake(good, connection):
    """Between the client and a server that means well: what that one says arrives byte by byte."""
    end = time.monotonic() + STALL_SECONDS
    with socket.create_connection(good.server_address) as server:
        threading.Thread(target=pass_on, args=(connection, server), daemon=True).start()
        while time.monotonic() < end and (byte := server.recv(1)):
            connection.sendall(byte)
            time.sleep(DRIP_SECONDS)


def pass_on(source, target):
    try:
        while piece := source.recv(4096):
            target.sendall(piece)
    except OSError:
        pass


def hang_up_at_first_word(connection):
    connection.recv(1)
    hang_up(connection)


class NoConnection:
    """A port where no connection comes about: its owner answers none, or refuses each."""

    def __init__(self, refused):
        self.socket = socket.socket()
        self.socket.bind((HOST, 0))
        self.origin = f"https://localhost:{self.socket.getsockname()[1]}"
        self.waiting = []
        if not refused:
            self.socket.listen(0)
            # Those that are never taken fill its queue; the system answers no further one.
            for _ in range(3):
                filler = socket.socket()
                filler.setblocking(False)
                filler.connect_ex(self.socket.getsockname())
                self.waiting.append(filler)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--folder", type=Path, required=True)
    parser.add_argument("--ready-file", type=Path, required=True)
    options = parser.parse_args()
    ctypes.CDLL(None).prctl(PR_SET_PDEATHSIG, signal.SIGTERM)
    certificates, www = options.folder / "certificates", options.folder / "www"
    for folder in (certificates, www):
        folder.mkdir(parents=True, exist_ok=True)
    os.umask(0o077)

    trusted, foreign = Authority(certificates, "authority"), Authority(certificates, "foreign")
    good = trusted.leaf("good", "localhost", 7)
    servers = {
        "good": Server(context(good), www),
        "tls11": Server(context(good, ssl.TLSVersion.TLSv1_1), www),
        "tls12": Server(context(good, ssl.TLSVersion.TLSv1_2), www),
        "tls13": Server(context(good, ssl.TLSVersion.TLSv1_3), www),
        "expired": Server(context(trusted.leaf("expired", "localhost", -1)), www),
        "wronghost": Server(context(trusted.leaf("wronghost", "elsewhere.invalid", 7)), www),
        "untrusted": Server(context(foreign.leaf("leaf", "localhost", 7)), www),
        "connect_silent": NoConnection(refused=False),
        "connect_reset": NoConnection(refused=True),
        "handshake_silent": Troublesome(say_nothing),
        "handshake_reset": Troublesome(hang_up_at_first_word),
    }
    servers["handshake_drip"] = Troublesome(functools.partial(drip_handshake, servers["good"]))
    authority = certificates / "authority.der"
    openssl("x509", "-in", trusted.certificate, "-outform", "DER", "-out", authority)
    ready = {kind: server.origin for kind, server in servers.items()}
    ready.update(www=str(www.resolve()), authority=str(authority.resolve()))
    unfinished = options.ready_file.with_suffix(".new")
    unfinished.write_text(json.dumps(ready, indent=1))
    unfinished.rename(options.ready_file)
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(0))
    signal.pause()


if __name__ == "__main__":
    main()
