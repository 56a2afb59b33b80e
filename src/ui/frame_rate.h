// Frames a second as they really came, from a counter that is looked at now and then. Pure.
#pragma once

#include <cstdint>

#include "base/system_types.h"

namespace vextra {

constexpr Tick kRateSampleMs = 1000;

class FrameRate {
public:
    // `frames` is the counter now. True at the end of a sample, of kRateSampleMs or more: the rate is a new
    // one.
    bool look(std::uint64_t frames, Tick now) {
        const Tick elapsedMs = now - sampleTick_;
        if (begun_ && elapsedMs < kRateSampleMs)
            return false;
        if (begun_)
            perSecond_ = static_cast<double>(frames - sampleFrames_) * 1000 / static_cast<double>(elapsedMs);
        const bool ended = begun_;
        begun_ = true;
        sampleTick_ = now;
        sampleFrames_ = frames;
        return ended;
    }
    double perSecond() const { return perSecond_; }  // 0 before the first sample ends

private:
    bool begun_ = false;
    Tick sampleTick_ = 0;
    std::uint64_t sampleFrames_ = 0;
    double perSecond_ = 0;
};

}  // namespace vextra
