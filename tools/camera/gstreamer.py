"""GStreamer and its RTSP server, or a sentence that says what to install."""
import sys


def refuse(message):
    sys.exit(f"local_camera: {message}")


try:
    import gi
except ImportError:
    refuse(f"{sys.executable} has no module gi: install python3-gi and run with /usr/bin/python3")
for namespace, package in (("Gst", "gir1.2-gstreamer-1.0"), ("GstRtsp", "gir1.2-gst-plugins-base-1.0"),
                           ("GstSdp", "gir1.2-gst-plugins-base-1.0"),
                           ("GstRtspServer", "gir1.2-gst-rtsp-server-1.0")):
    try:
        gi.require_version(namespace, "1.0")
    except ValueError:
        refuse(f"{namespace} is missing: install {package}")
from gi.repository import GLib, Gst, GstRtsp, GstRtspServer, GstSdp  # noqa: E402  (only after the checks above)

# At once: classes that derive from its own can only be declared afterwards.
Gst.init(None)

__all__ = ["GLib", "Gst", "GstRtsp", "GstRtspServer", "GstSdp", "check_elements", "refuse"]

ELEMENTS = {
    "gstreamer1.0-plugins-base": ("videotestsrc", "audiotestsrc", "audioconvert", "appsrc"),
    "gstreamer1.0-x": ("timeoverlay",),
    "gstreamer1.0-plugins-good": ("videobox", "jpegenc", "alawenc", "rtph264pay", "multipartmux", "mp4mux",
                                  "matroskamux"),
    "gstreamer1.0-plugins-bad": ("h264parse", "x265enc", "mpegtsmux", "hlssink2", "voaacenc"),
    "gstreamer1.0-plugins-ugly": ("x264enc",),
}


def check_elements():
    for package, elements in ELEMENTS.items():
        missing = [name for name in elements if not Gst.ElementFactory.find(name)]
        if missing:
            refuse(f"GStreamer has no {', '.join(missing)}: install {package}")
