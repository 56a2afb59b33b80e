"""Serves one generated stream on loopback: paced like a live source, or as a plain recording."""
import http.server
import re
import threading
import time

from stream_bytes import schedule, stalled

MARGIN_S = 30  # longer than anything here is watched


class Handler(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"

    def do_GET(self):
        self.close_connection = True
        served = self.server.served
        served.requests.append(time.monotonic())
        try:
            if served.silent:
                served.ended.wait(MARGIN_S)
            elif served.live:
                self.live(served)
            else:
                self.recording(served)
        except OSError:
            pass  # the decoder was ended, or had enough

    def live(self, served):
        self.send_response(200)
        self.send_header("Content-Type", served.content_type)
        self.send_header("Connection", "close")
        self.end_headers()
        start = time.monotonic()
        for chunk in served.chunks:
            if served.ended.wait(max(0.0, start + chunk.due_s - time.monotonic())):
                return
            self.wfile.write(served.data[chunk.start:chunk.end])
            if chunk.has_key and served.key_sent is None:
                served.key_sent = time.monotonic()

    def recording(self, served):
        data = served.data
        first, last = 0, len(data) - 1
        asked = re.fullmatch(r"bytes=(\d+)-(\d*)", self.headers.get("Range", ""))
        if asked:
            first, last = int(asked[1]), int(asked[2] or last)
            if first >= len(data):
                self.send_response(416)
                self.send_header("Content-Length", "0")
                self.end_headers()
                return
        self.send_response(206 if asked else 200)
        self.send_header("Content-Type", served.content_type)
        self.send_header("Accept-Ranges", "bytes")
        self.send_header("Content-Length", str(last - first + 1))
        if asked:
            self.send_header("Content-Range", f"bytes {first}-{last}/{len(data)}")
        self.end_headers()
        self.wfile.write(data[first:last + 1])

    def log_message(self, *_):
        pass


class StreamServer:
    """One stream for one decoder: what it notes is of the connection that came first."""

    def __init__(self, stream, data, packets):
        self.data, self.content_type, self.live, self.silent = data, stream.content_type, stream.live, stream.silent
        self.chunks = []
        if stream.live:
            self.chunks = stalled(schedule(packets, len(data), stream.join, stream.decodable_from), *stream.stalls)
        self.requests, self.key_sent, self.ended = [], None, threading.Event()

    def __enter__(self):
        self.server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler)
        self.server.daemon_threads = True
        self.server.served = self
        self.thread = threading.Thread(target=self.server.serve_forever, kwargs={"poll_interval": 0.05})
        self.thread.start()
        return self

    def __exit__(self, *_):
        self.ended.set()
        self.server.shutdown()
        self.server.server_close()
        self.thread.join()

    @property
    def url(self):
        return f"http://127.0.0.1:{self.server.server_port}/stream"
