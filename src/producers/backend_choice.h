// Which decoder runs, and over what it fetches its source. Pure.
#pragma once

#include <cstdint>

#include "config/settings.h"

namespace vextra {

// Shown in the window and read by the recovery policy.
enum class EffectiveBackend : std::uint32_t { kNone = 0, kFfmpeg = 1, kGstreamer = 2 };

enum class BackendPlan {
    kFfmpeg = 1,
    kGstreamerOnly,        // chosen by the user: FFmpeg never takes its place
    kGstreamerThenFfmpeg,  // automatic
    kRefuseNoGstreamer,    // chosen by the user, but there is no runtime
};

// Whether a runtime has to be looked for. The synthetic test picture is FFmpeg's own, so it always runs
// there.
constexpr bool wantsGstreamer(bool syntheticTest, DecoderBackend decoder) {
    return !syntheticTest && decoder != DecoderBackend::kFfmpeg;
}

constexpr BackendPlan planBackend(bool syntheticTest, DecoderBackend decoder, bool gstreamerLoaded) {
    if (!wantsGstreamer(syntheticTest, decoder))
        return BackendPlan::kFfmpeg;
    if (decoder == DecoderBackend::kGstreamer)
        return gstreamerLoaded ? BackendPlan::kGstreamerOnly : BackendPlan::kRefuseNoGstreamer;
    return gstreamerLoaded ? BackendPlan::kGstreamerThenFfmpeg : BackendPlan::kFfmpeg;
}

// Used by rtsp:// and rtsps:// addresses only.
enum class RtspTransport { kTcp = 1, kUdp = 2 };

constexpr RtspTransport rtspTransport(const BrokerSettings& settings) {
    return settings.rtspUdp ? RtspTransport::kUdp : RtspTransport::kTcp;
}

}  // namespace vextra
