"""The camera's RTSP side."""
import time

from gstreamer import GLib, Gst, GstRtsp, GstRtspServer, GstSdp, refuse
from moments import BUFFERS, watch_rtp
from sources import rtsp_mounts, run_clock

HOST = "127.0.0.1"
SHUTDOWN_SECONDS = 3
LINGERING_SECONDS = 1


class DigestAndBasic(GstRtspServer.RTSPAuth):
    """Offers both schemes, the stronger one first. The binding lets only one be set at a time."""

    def do_generate_authenticate_header(self, context):
        for method in (GstRtsp.RTSPAuthMethod.DIGEST, GstRtsp.RTSPAuthMethod.BASIC):
            self.set_supported_methods(method)
            GstRtspServer.RTSPAuth.do_generate_authenticate_header(self, context)


class ReticentMedia(GstRtspServer.RTSPMedia):
    """Describes itself without the parameter sets, which then come in the stream alone."""

    def do_setup_sdp(self, sdp, info):
        done = GstRtspServer.RTSPMedia.do_setup_sdp(self, sdp, info)
        video = sdp.get_media(0)
        for index in range(video.attributes_len()):
            attribute = video.get_attribute(index)
            if attribute.key == "fmtp":
                told = [field for field in attribute.value.split(";") if not field.startswith("sprop-")]
                shorter = GstSdp.SDPAttribute()
                shorter.set("fmtp", ";".join(told))
                video.replace_attribute(index, shorter)
        return done


def refuse_seeks(container):
    """Players ask to begin at 0. The server would seek there, and so begin a running stream anew, with a key frame,
    for everybody; a camera lets them join."""
    def on_query(_pad, info):
        seeks = info.get_query().type == Gst.QueryType.SEEKING
        return Gst.PadProbeReturn.DROP if seeks else Gst.PadProbeReturn.OK

    for element in container.children:
        if not element.sinkpads:
            element.get_static_pad("src").add_probe(Gst.PadProbeType.QUERY_UPSTREAM, on_query)


class RtspCamera:
    """Used on the main thread only, where the server also serves its clients: a main thread that waits
    is a camera that does not answer."""

    def __init__(self, options, moments):
        self.fps, self.moments = options.fps, moments
        self.media = set()
        self.clients = set()
        self.gone = []  # (moment, client) of those whose connection has ended
        self.held = []  # (pad, probe) of everything that would leave while frozen
        self.server = GstRtspServer.RTSPServer(address=HOST, service=str(options.rtsp_port))
        self.server.get_thread_pool().set_max_threads(0)
        self.server.connect("client-connected", self.on_client)
        if options.user:
            self.server.set_auth(self.credentials(options.user, options.password))
        for path, mount in rtsp_mounts(options.fps).items():
            factory = GstRtspServer.RTSPMediaFactory()
            factory.set_launch(f"( {mount.launch} )")
            factory.set_shared(True)
            if not mount.parameters_in_sdp:
                factory.set_media_gtype(ReticentMedia)
            factory.connect("media-configure", self.on_media, path, mount)
            if options.user:
                factory.add_role_from_structure(Gst.Structure.new_from_string(
                    "viewer, media.factory.access=(boolean)true, media.factory.construct=(boolean)true"))
            self.server.get_mount_points().add_factory(path, factory)
        if not self.server.attach(None):
            refuse(f"cannot listen on {HOST}:{options.rtsp_port}, is the port in use?")
        self.url = f"rtsp://{HOST}:{self.server.get_bound_port()}/"

    @staticmethod
    def credentials(user, password):
        token = GstRtspServer.RTSPToken()
        token.set_string("media.factory.role", "viewer")
        auth = DigestAndBasic()
        auth.add_basic(GstRtspServer.RTSPAuth.make_basic(user, password), token)
        auth.add_digest(user, password, token)
        return auth

    def on_client(self, _server, client):
        client.connect("pre-play-request", self.on_play)
        client.connect("closed", self.on_closed)
        self.clients.add(client)

    def on_closed(self, client):
        """The server would free it now, though the thread that sends may still be inside: that ends the camera."""
        self.clients.discard(client)
        self.gone.append((time.monotonic(), client))

    def on_play(self, _client, context):
        """Before the answer and before anything is sent."""
        self.moments.ask(context.uri.abspath.rstrip("/"))
        return GstRtsp.RTSPStatusCode.OK

    def on_media(self, _factory, media, path, mount):
        self.media.add(media)
        media.connect("unprepared", self.media.discard)
        media.connect("prepared", self.on_prepared, path, mount)
        run_clock(media.get_element(), self.fps)
        refuse_seeks(media.get_element())

    def on_prepared(self, media, path, mount):
        """The picture is the first stream of every address, sound the second."""
        pads = {pad.get_name(): pad for pad in self.leaving(media)}
        watch_rtp(pads["send_rtp_src_0"], path, self.moments)
        if mount.sound_after_s:
            self.delay_sound(pads, mount.sound_after_s)

    @staticmethod
    def delay_sound(pads, seconds):
        """The server waits for a packet of each stream before it describes them: only behind it can they go astray."""
        begun_s = None

        def on_picture(_pad, _info):
            nonlocal begun_s
            begun_s = time.monotonic()
            return Gst.PadProbeReturn.REMOVE

        def on_sound(_pad, _info):
            over = begun_s is not None and time.monotonic() - begun_s >= seconds
            return Gst.PadProbeReturn.REMOVE if over else Gst.PadProbeReturn.DROP

        pads["send_rtp_src_0"].add_probe(BUFFERS, on_picture)
        for name in ("send_rtp_src_1", "send_rtcp_src_1"):
            pads[name].add_probe(BUFFERS, on_sound)

    @staticmethod
    def leaving(media):
        """The pads through which packets leave, RTP and RTCP."""
        return [pad for element in media.get_element().get_parent().children
                if element.get_factory().get_name() == "rtpbin"
                for pad in element.srcpads if pad.get_name().startswith("send_rt")]

    def hold(self):
        """Lets no packet out, RTCP neither: clients must see plain silence."""
        for media in list(self.media):
            for pad in self.leaving(media):
                probe = pad.add_probe(BUFFERS, lambda _pad, _info: Gst.PadProbeReturn.DROP)
                self.held.append((pad, probe))

    def release(self):
        for pad, probe in self.held:
            pad.remove_probe(probe)
        self.held.clear()

    def drop_clients(self):
        self.server.client_filter(lambda _server, _client: GstRtspServer.RTSPFilterResult.REMOVE)

    def forget_the_gone(self):
        self.server.get_session_pool().cleanup()
        now_s = time.monotonic()
        self.gone = [(moment_s, client) for moment_s, client in self.gone if now_s - moment_s < LINGERING_SECONDS]

    def close(self):
        self.drop_clients()
        deadline = time.monotonic() + SHUTDOWN_SECONDS
        while self.media and time.monotonic() < deadline:
            GLib.MainContext.default().iteration(False)
            time.sleep(0.01)
