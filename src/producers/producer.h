// Turns the configured source into a stream of frame bytes, whichever decoder does the work.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

#include "config/settings.h"
#include "producers/backend_choice.h"
#include "producers/ffmpeg_process_win.h"
#include "producers/gst_pipeline.h"

namespace vextra {

// The table of the machine's GStreamer runtime, or null where there is none. The first call may take seconds:
// it looks for the runtime and loads it.
using GstreamerDoor = std::function<const GstApi*()>;

// One instance, used by the Supervisor's thread only: start, any number of reads, stop.
class Producer {
public:
    // `effectiveBackend` belongs to the shared status and is written when a decoder is started: GStreamer
    // once it plays, FFmpeg before it is tried. A start of GStreamer that fails leaves it as it is.
    // `gstreamer` is not asked before a source is to be decoded by it.
    Producer(std::wstring installRoot, ProducerReports reports,
             std::atomic<EffectiveBackend>& effectiveBackend, GstreamerDoor gstreamer);

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

    const ProducerReports reports_;
    std::atomic<EffectiveBackend>& effectiveBackend_;
    const GstreamerDoor gstreamer_;
    FfmpegProcess ffmpeg_;
    GstPipeline pipeline_;
    bool gstreamerActive_ = false;  // the running decoder is the pipeline
};

}  // namespace vextra
