// The least that could do the GStreamer backend's work, to be measured beside the broker: it plays the same
// pipeline text from the same runtime, waits in blocking pulls and copies each frame twice. No clock, no
// lease, no watchdog, no checks, no bridge.
//
//   bench-bare-gstreamer RTSP-URL
//
// GSTREAMER_1_0_ROOT_X86_64 names the runtime. Runs until it is ended. Prints `first_frame_ms=N.N`, from the
// start of the pipeline to its first frame, and `frame=N` at every 16th.

#include <windows.h>

#include <cstddef>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "base/text.h"
#include "bridge/bridge_layout.h"
#include "producers/gst_contract.h"
#include "producers/gst_runtime_win.h"

namespace vextra {
namespace {

constexpr std::uint64_t kPullTimeoutNs = 10'000'000'000;
constexpr unsigned long kReportEveryFrames = 16;

int fail(const char* what) {
    std::fprintf(stderr, "bench-bare-gstreamer: %s\n", what);
    return 1;
}

bool copyTwice(const GstApi& api, GstSample* sample, std::byte* first, std::byte* second) {
    GstMapInfo map{};
    GstBuffer* const buffer = api.gst_sample_get_buffer(sample);
    if (!api.gst_buffer_map(buffer, &map, kGstMapRead))
        return false;
    const bool whole = map.size == kFrameBytes;
    if (whole) {
        std::memcpy(first, map.data, kFrameBytes);
        std::memcpy(second, map.data, kFrameBytes);
    }
    api.gst_buffer_unmap(buffer, &map);
    return whole;
}

// As the broker with its defaults; otherwise the source would be asked for another transport.
void onSourceSetup(GstElement*, GstElement* source, void* api) {
    static_cast<const GstApi*>(api)->g_object_set(source, "protocols",
                                                  static_cast<std::uint32_t>(GstRtspLowerTransport::kTcp),
                                                  "latency", BrokerSettings().latencyMs, nullptr);
}

int run(const std::wstring& url) {
    wchar_t folder[MAX_PATH] = {};
    GetTempPathW(MAX_PATH, folder);
    const GstRuntime& runtime = GstRuntime::instance({L"", folder});
    if (!runtime.available())
        return fail("no runtime");
    const GstApi& api = *runtime.api();
    const ULONGLONG startMs = GetTickCount64();
    GstElement* const pipeline = api.gst_parse_launch(kGstPipelineText, nullptr);
    GstElement* const source = api.gst_bin_get_by_name(pipeline, "source");
    GstElement* const sink = api.gst_bin_get_by_name(pipeline, "frames");
    api.g_object_set(source, "caps", api.gst_caps_from_string("video/x-raw"), "uri",
                     toUtf8Strict(url).c_str(), nullptr);
    GstApi* const callbackData = const_cast<GstApi*>(&api);
    api.g_signal_connect_data(source, "source-setup", &onSourceSetup, callbackData, nullptr, 0);
    if (api.gst_element_set_state(pipeline, kGstStatePlaying) == kGstStateChangeFailure)
        return fail("the pipeline does not play");
    std::vector<std::byte> first(kFrameBytes);
    std::vector<std::byte> second(kFrameBytes);
    for (unsigned long frames = 1;; ++frames) {
        GstSample* const sample = api.gst_app_sink_try_pull_sample(sink, kPullTimeoutNs);
        if (sample == nullptr || !copyTwice(api, sample, first.data(), second.data()))
            // The copies have to be looked at, or the compiler may leave them out.
            return fail(first == second ? "the stream ended" : "the copies differ");
        api.gst_mini_object_unref(sample);
        if (frames == 1)
            std::printf("first_frame_ms=%.1f\n", static_cast<double>(GetTickCount64() - startMs));
        if (frames % kReportEveryFrames == 0)
            std::printf("frame=%lu\n", frames);
        std::fflush(stdout);
    }
}

}  // namespace
}  // namespace vextra

int wmain(int count, wchar_t** arguments) {
    // As in the broker: plugins find their libraries through this alone.
    SetDefaultDllDirectories(LOAD_LIBRARY_SEARCH_DEFAULT_DIRS);
    if (count != 2) {
        std::fputs("usage: bench-bare-gstreamer RTSP-URL\n", stderr);
        return 2;
    }
    return vextra::run(arguments[1]);
}
