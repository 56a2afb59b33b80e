// The decoder inside the broker's own process: a pipeline of a GStreamer runtime that was loaded before.
// It calls nothing but the runtime's table, so it is tested on every machine.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

#include "producers/gst_contract.h"

namespace vextra {

// References that GStreamer handed out, given back when their owner ends.
template <auto unref>
struct GstUnref {
    const GstApi* api = nullptr;
    void operator()(void* reference) const { (api->*unref)(reference); }
};
template <typename T>
using GstObjectRef = std::unique_ptr<T, GstUnref<&GstApi::gst_object_unref>>;
template <typename T>
using GstMiniObjectRef = std::unique_ptr<T, GstUnref<&GstApi::gst_mini_object_unref>>;

// One pipeline at a time. Start, pull and stop belong to one thread (the Supervisor's); what another
// thread may ask for is guarded by the producer lock.
class GstPipeline {
public:
    GstPipeline() = default;
    ~GstPipeline() { stop(); }
    GstPipeline(const GstPipeline&) = delete;
    GstPipeline& operator=(const GstPipeline&) = delete;

    // Stops what runs, then builds the pipeline and lets it play. `api` is null where there is no runtime,
    // and outlives this object otherwise. False: nothing is left over, and reason() says why.
    bool startGstreamer(const GstApi* api, const GstInput& input);

    // Waits up to 125 ms for the next frame of the contract and writes its kFrameBytes to `destination`; a
    // null destination checks the frame and drops it. False: there is none, or gstreamerFailed() is set.
    bool pullGstreamerFrame(std::byte* destination);

    // Sets the pipeline to NULL, which waits for its threads, and gives everything back. Harmless when
    // nothing runs.
    void stop();

    // The source failed or ended, or its frames are not what was asked for: stop, then start anew.
    bool gstreamerFailed() const;
    // Why, for the user: one of a few literals, so no address can be in it. Empty: nothing is wrong.
    std::wstring_view reason() const;

private:
    static void onSourceSetup(GstElement* bin, GstElement* source, void* pipeline);
    bool giveUpStart(std::wstring_view reason);   // false, and nothing is held any more
    bool giveUpStream(std::wstring_view reason);  // false; the pipeline is there until it is stopped
    bool build(const GstInput& input);
    void release();
    bool copySample(GstSample* sample, std::byte* destination) const;
    bool copyBuffer(GstBuffer* buffer, std::byte* destination) const;

    mutable std::mutex producerLock_;  // guards everything below but what the callback reads
    GstObjectRef<GstElement> pipeline_;
    GstObjectRef<GstElement> sink_;
    GstObjectRef<GstElement> source_;  // held during a start only
    GstObjectRef<GstBus> bus_;
    bool gstreamerFailed_ = false;
    std::wstring_view reason_;

    // Written before the callback is connected and never while it may come: it reads them without the lock,
    // which the thread that starts the pipeline holds while the callback runs on it.
    const GstApi* api_ = nullptr;
    std::uint32_t latencyMs_ = 0;
    GstRtspLowerTransport lowerTransport_ = GstRtspLowerTransport::kTcp;
};

}  // namespace vextra
