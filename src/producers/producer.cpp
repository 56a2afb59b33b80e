#include "producers/producer.h"

#include <utility>

#include "base/text.h"
#include "bridge/bridge_layout.h"

namespace vextra {

Producer::Producer(ProducerDoors doors, ProducerReports reports,
                   std::atomic<EffectiveBackend>& effectiveBackend)
    : doors_(std::move(doors)), reports_(std::move(reports)), effectiveBackend_(effectiveBackend) {}

bool Producer::start(bool syntheticTest, std::wstring_view url, const BrokerSettings& settings) {
    stop();
    const bool wanted = wantsGstreamer(syntheticTest, settings.decoder);
    const GstApi* const gstreamer = wanted ? doors_.findGstreamer() : nullptr;
    switch (planBackend(syntheticTest, settings.decoder, gstreamer != nullptr)) {
        case BackendPlan::kRefuseNoGstreamer:
            reports_.explainFailure(gstAvailabilityText(gstreamer != nullptr));
            reports_.showStatus(L"GStreamer indisponível: runtime x64 e plugins não instalados.");
            return false;
        case BackendPlan::kGstreamerOnly:
            if (startGstreamer(gstreamer, url, settings))
                return true;
            reports_.showStatus(L"GStreamer explicite falhou. Nenhum fallback FFmpeg implícito.");
            return false;
        case BackendPlan::kGstreamerThenFfmpeg:
            if (startGstreamer(gstreamer, url, settings))
                return true;
            break;
        case BackendPlan::kFfmpeg: break;
    }
    return startFfmpeg(syntheticTest, url, settings);
}

bool Producer::startGstreamer(const GstApi* gstreamer, std::wstring_view url,
                              const BrokerSettings& settings) {
    if (!pipeline_.startGstreamer(gstreamer, {url, rtspTransport(settings), settings.latencyMs})) {
        reports_.explainFailure(pipeline_.reason());
        return false;
    }
    gstreamerActive_ = true;
    effectiveBackend_ = EffectiveBackend::kGstreamer;
    reports_.log(EventCode::kGstreamerStart, 0);
    return true;
}

bool Producer::startFfmpeg(bool syntheticTest, std::wstring_view url, const BrokerSettings& settings) {
    effectiveBackend_ = EffectiveBackend::kFfmpeg;
    // What is no text would reach the decoder as another address, or with another password.
    if (!syntheticTest && toUtf8Strict(url).empty())
        return false;
    return doors_.startFfmpeg({syntheticTest, url, rtspTransport(settings)});
}

std::int32_t Producer::read(std::byte* buffer, std::uint32_t capacityBytes) {
    if (!gstreamerActive_)
        return doors_.readFfmpeg(buffer, capacityBytes);
    const bool fits = capacityBytes >= kFrameBytes;
    if (pipeline_.pullGstreamerFrame(fits ? buffer : nullptr))
        return fits ? std::int32_t{kFrameBytes} : -1;
    if (!pipeline_.gstreamerFailed())
        return 0;
    reports_.explainFailure(pipeline_.reason());
    return -1;
}

void Producer::stop() {
    pipeline_.stop();
    gstreamerActive_ = false;
    doors_.stopFfmpeg();
}

}  // namespace vextra
