// Turns the configured source into a stream of frame bytes, whichever decoder does the work. Pure: the child
// process and the search for a GStreamer runtime come in as callables.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string_view>

#include "config/settings.h"
#include "diag/event_codes.h"
#include "producers/backend_choice.h"
#include "producers/ffmpeg_command.h"
#include "producers/gst_pipeline.h"

namespace vextra {

// Where producers report: one status line for the user, events for the log, and why GStreamer failed, which
// stands next to the status line and never holds an address.
struct ProducerReports {
    std::function<void(std::wstring_view text)> showStatus;
    std::function<void(EventCode code, std::int32_t value)> log;
    std::function<void(std::wstring_view reason)> explainFailure;
};

// All are called on the producer's thread.
struct ProducerDoors {
    // FFmpeg as a child process, with the promises of FfmpegProcess.
    std::function<bool(const FfmpegInput& input)> startFfmpeg;
    std::function<std::int32_t(std::byte* buffer, std::uint32_t capacityBytes)> readFfmpeg;
    std::function<void()> stopFfmpeg;

    // The table of the machine's GStreamer runtime, or null where there is none. The first call may take
    // seconds, for it looks for the runtime and loads it; there is none before a source wants it.
    std::function<const GstApi*()> findGstreamer;
};

// One instance, used by the Supervisor's thread only: start, any number of reads, stop.
class Producer {
public:
    // `effectiveBackend` belongs to the shared status and is written when a decoder is started: GStreamer
    // once it plays, FFmpeg before it is tried. A start of GStreamer that fails leaves it as it is.
    Producer(ProducerDoors doors, ProducerReports reports, std::atomic<EffectiveBackend>& effectiveBackend);

    // Stops what runs and starts the decoder that `settings` ask for. True when one runs. `url` is not used
    // by the synthetic test; one that is no text (half a surrogate pair) starts nothing.
    bool start(bool syntheticTest, std::wstring_view url, const BrokerSettings& settings);

    // More than 0: bytes put at the start of `buffer`. 0: nothing is ready. -1: the stream has ended or
    // failed and the producer must be stopped. FFmpeg's bytes come in pieces of any size and without waiting;
    // a frame of GStreamer comes whole, after a wait of up to 125 ms, and is lost when it does not fit.
    std::int32_t read(std::byte* buffer, std::uint32_t capacityBytes);

    // Harmless when nothing runs.
    void stop();

private:
    bool startGstreamer(const GstApi* gstreamer, std::wstring_view url, const BrokerSettings& settings);
    bool startFfmpeg(bool syntheticTest, std::wstring_view url, const BrokerSettings& settings);

    const ProducerDoors doors_;
    const ProducerReports reports_;
    std::atomic<EffectiveBackend>& effectiveBackend_;
    GstPipeline pipeline_;
    bool gstreamerActive_ = false;  // the running decoder is the pipeline
};

}  // namespace vextra
