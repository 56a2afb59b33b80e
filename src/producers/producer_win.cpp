#include <utility>

#include "producers/producer.h"

namespace vextra {
namespace {

// This build brings no GStreamer backend: to the plan below, its runtime is never installed.
constexpr bool kGstreamerLoaded = false;

}  // namespace

Producer::Producer(std::wstring installRoot, ProducerReports reports,
                   std::atomic<std::uint32_t>& effectiveBackend)
    : reports_(reports),
      effectiveBackend_(effectiveBackend),
      ffmpeg_(std::move(installRoot), std::move(reports)) {}

bool Producer::start(bool syntheticTest, std::wstring_view url, const BrokerSettings& settings) {
    stop();
    if (planBackend(syntheticTest, settings.decoder, kGstreamerLoaded) == BackendPlan::kRefuseNoGstreamer) {
        reports_.showStatus(L"GStreamer indisponível: runtime x64 e plugins não instalados.");
        return false;
    }
    effectiveBackend_ = static_cast<std::uint32_t>(EffectiveBackend::kFfmpeg);
    const RtspTransport transport = settings.rtspUdp ? RtspTransport::kUdp : RtspTransport::kTcp;
    return ffmpeg_.start({syntheticTest, url, transport});
}

std::int32_t Producer::read(std::byte* buffer, std::uint32_t capacityBytes) {
    return ffmpeg_.read(buffer, capacityBytes);
}

void Producer::stop() {
    ffmpeg_.stop();
}

}  // namespace vextra
