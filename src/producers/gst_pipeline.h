// The decoder inside the broker's own process: a pipeline of a GStreamer runtime that somebody else loaded.
// It calls nothing but the runtime's table, so it is tested on every machine.
#pragma once

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>

#include "producers/gst_contract.h"

namespace vextra {

// A reference that GStreamer handed out, given back when this ends.
template <typename T, auto Unref>
class GstOwned {
public:
    GstOwned() = default;
    GstOwned(const GstApi& api, T* value) : api_(&api), value_(value) {}
    GstOwned(const GstOwned&) = delete;
    GstOwned& operator=(const GstOwned&) = delete;
    GstOwned(GstOwned&& other) noexcept : api_(other.api_), value_(other.value_) { other.value_ = nullptr; }
    GstOwned& operator=(GstOwned&& other) noexcept {
        if (this != &other) {
            reset();
            api_ = other.api_;
            value_ = other.value_;
            other.value_ = nullptr;
        }
        return *this;
    }
    ~GstOwned() { reset(); }

    T* get() const { return value_; }
    explicit operator bool() const { return value_ != nullptr; }
    void reset() {
        if (value_ != nullptr)
            (api_->*Unref)(value_);
        value_ = nullptr;
    }

private:
    const GstApi* api_ = nullptr;
    T* value_ = nullptr;
};
template <typename T>
using GstObjectRef = GstOwned<T, &GstApi::gst_object_unref>;
template <typename T>
using GstMiniObjectRef = GstOwned<T, &GstApi::gst_mini_object_unref>;

// One pipeline at a time. Start, pull and stop belong to one thread (the Supervisor's); what they share with
// whoever else asks is guarded by the producer lock.
class GstPipeline {
public:
    GstPipeline() = default;
    ~GstPipeline() { stop(); }
    GstPipeline(const GstPipeline&) = delete;
    GstPipeline& operator=(const GstPipeline&) = delete;

    // Stops what runs, then builds the pipeline and lets it play. `api` is null where there is no runtime,
    // and outlives this object otherwise. False: nothing is left behind, and reason() says why.
    bool startGstreamer(const GstApi* api, const GstInput& input);

    // Waits up to 125 ms for the next frame of the contract and writes its kFrameBytes to `destination`; a
    // null destination checks the frame and drops it. False: there is none, or gstreamerFailed() is set.
    bool pullGstreamerFrame(std::byte* destination);

    // Sets the pipeline to NULL, which waits for its threads, and gives everything back. Harmless when
    // nothing runs.
    void stop();

    // The source failed or ended, or its frames are not what was asked for: stop, then start anew.
    bool gstreamerFailed() const;
    std::wstring_view reason()
        const;  // for the user, a literal: no address can be in it; empty: nothing is wrong

private:
    static void onSourceSetup(GstElement* bin, GstElement* source, void* pipeline);
    bool refuse(std::wstring_view reason);
    bool fail(std::wstring_view reason);
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
