#include "producers/gst_pipeline.h"

namespace vextra {
namespace {

constexpr char kBgra[] = "BGRA";

GstFrameCaps readCaps(const GstApi& api, const GstStructure* structure) {
    GstFrameCaps caps;
    caps.interlaceMode = api.gst_structure_get_string(structure, "interlace-mode");
    caps.format = api.gst_structure_get_string(structure, "format");
    if (!api.gst_structure_get_int(structure, "width", &caps.width))
        caps.width = 0;
    if (!api.gst_structure_get_int(structure, "height", &caps.height))
        caps.height = 0;
    if (!api.gst_structure_get_fraction(structure, "framerate", &caps.rateNumerator, &caps.rateDenominator))
        caps.rateNumerator = 0;
    return caps;
}

}  // namespace

bool GstPipeline::giveUpStart(std::wstring_view reason) {
    release();
    reason_ = reason;
    return false;
}

bool GstPipeline::giveUpStream(std::wstring_view reason) {
    gstreamerFailed_ = true;
    reason_ = reason;
    return false;
}

// --- Start ---

bool GstPipeline::startGstreamer(const GstApi* api, const GstInput& input) {
    const std::lock_guard guard(producerLock_);
    release();
    gstreamerFailed_ = false;
    reason_ = {};
    if (const std::wstring_view refusal = gstStartRefusal(input, api != nullptr); !refusal.empty())
        return giveUpStart(refusal);
    api_ = api;
    latencyMs_ = input.latencyMs;
    lowerTransport_ =
        input.transport == RtspTransport::kUdp ? GstRtspLowerTransport::kUdp : GstRtspLowerTransport::kTcp;
    return build(input);
}

bool GstPipeline::build(const GstInput& input) {
    const SecretUtf8 uri = gstSourceUri(input.url);
    if (uri.empty())  // half a surrogate pair: no address of anything
        return giveUpStart(L"Origem inválida: informe uma URL HTTP, HTTPS, RTSP ou RTSPS.");

    GError* error = nullptr;
    pipeline_ = {api_->gst_parse_launch(kGstPipelineText, &error), {api_}};
    // A pipeline can come together with an error, and then lacks what the error is about.
    const bool incomplete = error != nullptr;
    if (incomplete)
        api_->g_error_free(error);
    if (!pipeline_ || incomplete)
        return giveUpStart(L"Não foi possível criar a pipeline GStreamer.");

    sink_ = {api_->gst_bin_get_by_name(pipeline_.get(), "frames"), {api_}};
    source_ = {api_->gst_bin_get_by_name(pipeline_.get(), "source"), {api_}};
    bus_ = {api_->gst_element_get_bus(pipeline_.get()), {api_}};
    if (!sink_ || !source_ || !bus_)
        return giveUpStart(L"Pipeline GStreamer incompleta.");

    {
        // Decoding ends at raw pictures in ordinary memory.
        const GstMiniObjectRef<GstCaps> caps(api_->gst_caps_from_string("video/x-raw"), {api_});
        if (!caps ||
            api_->g_signal_connect_data(source_.get(), "source-setup", &onSourceSetup, this, nullptr, 0) == 0)
            return giveUpStart(L"Não foi possível configurar a origem GStreamer.");
        api_->g_object_set(source_.get(), "caps", caps.get(), "uri", uri.c_str(), nullptr);
    }
    source_.reset();

    if (api_->gst_element_set_state(pipeline_.get(), kGstStatePlaying) == kGstStateChangeFailure) {
        gstreamerFailed_ = true;
        return giveUpStart(L"GStreamer não conseguiu iniciar a origem.");
    }
    return true;
}

// Comes on the thread that starts the pipeline, which holds the lock, or on one of the pipeline's own.
void GstPipeline::onSourceSetup(GstElement*, GstElement* source, void* pipeline) {
    const auto& self = *static_cast<const GstPipeline*>(pipeline);
    GstElementFactory* const factory = self.api_->gst_element_get_factory(source);
    char* const name = factory != nullptr ? self.api_->gst_object_get_name(factory) : nullptr;
    const bool rtsp = name != nullptr && std::string_view(name) == "rtspsrc";
    self.api_->g_free(name);
    if (!rtsp)
        return;
    self.api_->g_object_set(source, "protocols", static_cast<std::uint32_t>(self.lowerTransport_), "latency",
                            self.latencyMs_, "tcp-timeout", kGstRtspTimeoutUs, "timeout", kGstRtspTimeoutUs,
                            nullptr);
}

// --- Frames ---

bool GstPipeline::pullGstreamerFrame(std::byte* destination) {
    const std::lock_guard guard(producerLock_);
    if (!pipeline_)
        return false;
    if (GstMiniObjectRef<GstMessage>(api_->gst_bus_pop_filtered(bus_.get(), kGstMessageError), {api_}))
        return giveUpStream(L"Falha na origem GStreamer; endereço omitido.");

    const GstMiniObjectRef<GstSample> sample(
        api_->gst_app_sink_try_pull_sample(sink_.get(), kGstPullTimeoutNs), {api_});
    if (!sample) {
        // Once the stream has ended a pull no longer waits: without a look at it the broker would spin.
        if (api_->gst_app_sink_is_eos(sink_.get()))
            return giveUpStream(L"A origem GStreamer terminou.");
        return false;
    }
    if (!copySample(sample.get(), destination))
        return giveUpStream(L"Quadro GStreamer com formato/stride fora do contrato BGRA 1280×720 a 16 fps.");
    return true;
}

bool GstPipeline::copySample(GstSample* sample, std::byte* destination) const {
    const GstCaps* const caps = api_->gst_sample_get_caps(sample);
    const GstStructure* const structure = caps != nullptr ? api_->gst_caps_get_structure(caps, 0) : nullptr;
    GstBuffer* const buffer = api_->gst_sample_get_buffer(sample);
    return structure != nullptr && buffer != nullptr && gstCapsInContract(readCaps(*api_, structure)) &&
           copyBuffer(buffer, destination);
}

bool GstPipeline::copyBuffer(GstBuffer* buffer, std::byte* destination) const {
    GstMapInfo map{};
    GstVideoMeta* const meta = api_->gst_buffer_get_video_meta(buffer);
    if (meta == nullptr) {
        if (!api_->gst_buffer_map(buffer, &map, kGstMapRead))
            return false;
        const bool copied = gstCopyPacked(map.data, map.size, destination);
        api_->gst_buffer_unmap(buffer, &map);
        return copied;
    }
    void* topRow = nullptr;
    std::int32_t strideBytes = 0;
    if (!gstMetaInContract(*meta, api_->gst_video_format_from_string(kBgra)) ||
        !api_->gst_video_meta_map(meta, 0, &map, &topRow, &strideBytes, kGstMapRead))
        return false;
    const bool copied =
        gstCopyPlane({map.data, map.size, static_cast<const std::byte*>(topRow), strideBytes}, destination);
    api_->gst_video_meta_unmap(meta, 0, &map);
    return copied;
}

// --- End ---

void GstPipeline::stop() {
    const std::lock_guard guard(producerLock_);
    release();
}

void GstPipeline::release() {
    if (pipeline_)
        api_->gst_element_set_state(pipeline_.get(), kGstStateNull);
    sink_.reset();
    source_.reset();
    bus_.reset();
    pipeline_.reset();
}

bool GstPipeline::gstreamerFailed() const {
    const std::lock_guard guard(producerLock_);
    return gstreamerFailed_;
}

std::wstring_view GstPipeline::reason() const {
    const std::lock_guard guard(producerLock_);
    return reason_;
}

}  // namespace vextra
