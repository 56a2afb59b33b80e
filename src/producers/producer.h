// Turns the configured source into a stream of frame bytes, whichever decoder does the work.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>

#include "config/settings.h"
#include "producers/backend_choice.h"
#include "producers/ffmpeg_process.h"

namespace vextra {

// One instance, used by the Supervisor's thread only: start, any number of reads, stop.
class Producer {
public:
    // `effectiveBackend` is written at every start and belongs to the shared status.
    Producer(std::wstring installRoot, ProducerReports reports, std::atomic<std::uint32_t>& effectiveBackend);

    // Stops what runs and starts the decoder that `settings` ask for. True when one runs. `url` is not used
    // by the synthetic test.
    bool start(bool syntheticTest, std::wstring_view url, const BrokerSettings& settings);

    // More than 0: bytes put at the start of `buffer`. 0: nothing is ready. -1: the stream has ended or
    // failed and the producer must be stopped.
    std::int32_t read(std::byte* buffer, std::uint32_t capacityBytes);

    // Harmless when nothing runs.
    void stop();

private:
    const ProducerReports reports_;
    std::atomic<std::uint32_t>& effectiveBackend_;
    FfmpegProcess ffmpeg_;
};

}  // namespace vextra
