// Whether the camera is in use: the one question before settings change, an installer starts or a button is
// offered.
#pragma once

#include <cstdint>

namespace vextra {

struct CameraUse {
    bool episodeActive = true;     // a demand episode
    bool previewRuns = true;       // started by hand
    std::int32_t leaseCount = -1;  // -1: the demand channel cannot be read
};

// No episode, no preview, and the demand channel has no lease: what is unknown is not idle.
constexpr bool cameraIsIdle(const CameraUse& use) {
    return !use.episodeActive && !use.previewRuns && use.leaseCount == 0;
}

}  // namespace vextra
