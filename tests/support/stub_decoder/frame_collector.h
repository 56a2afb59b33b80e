// Takes a decoder's bytes as the broker does: polled, never more than what is missing of the current frame.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <thread>
#include <utility>
#include <vector>

#include "bridge/bridge_layout.h"

namespace vextra::test {

class FrameCollector {
public:
    using Read = std::function<std::int32_t(std::byte* buffer, std::uint32_t capacityBytes)>;

    explicit FrameCollector(Read read) : read_(std::move(read)), frame_(kFrameBytes) {}

    // Polls until there are `frames` whole frames, the stream ends, or the time is over.
    void collect(std::size_t frames, std::chrono::milliseconds limit) {
        const auto deadline = std::chrono::steady_clock::now() + limit;
        while (wholeFrames_ < frames && !ended_ && std::chrono::steady_clock::now() < deadline) {
            if (poll() == 0)
                std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
    }

    std::int32_t poll() {
        const std::int32_t taken = read_(frame_.data() + fill_, kFrameBytes - fill_);
        if (taken < 0) {
            ended_ = true;
            return taken;
        }
        fill_ += static_cast<std::uint32_t>(taken);
        if (fill_ == kFrameBytes) {
            const bool isOfOneValue =
                std::ranges::all_of(frame_, [&](std::byte b) { return b == frame_[0]; });
            values_.push_back(isOfOneValue ? std::to_integer<int>(frame_[0]) : kTorn);
            ++wholeFrames_;
            fill_ = 0;
        }
        return taken;
    }

    static constexpr int kTorn = -1;
    std::size_t wholeFrames() const { return wholeFrames_; }
    std::uint32_t bytesOfNextFrame() const { return fill_; }
    bool ended() const { return ended_; }
    // The byte value that a frame consists of, or kTorn, for each whole frame: the stub's frames are 0, 1, 2
    // ...
    const std::vector<int>& values() const { return values_; }
    const std::vector<std::byte>& lastFrame() const { return frame_; }

private:
    Read read_;
    std::vector<std::byte> frame_;
    std::uint32_t fill_ = 0;
    std::size_t wholeFrames_ = 0;
    bool ended_ = false;
    std::vector<int> values_;
};

}  // namespace vextra::test
