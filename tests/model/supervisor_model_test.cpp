// The broker's promises in every sequence of commands, leases, producers and time up to a depth, from the
// moments that matter. What is promised stands in supervisor_explorer.cpp.
#include <gtest/gtest.h>

#include <cstdint>
#include <iostream>
#include <string_view>
#include <vector>

#include "model/supervisor_explorer.h"

namespace vextra {
namespace {

// Moves beyond those that open an exploration. Each more costs about five times as long.
#ifdef NDEBUG
constexpr int kDepth = 6;  // 60 million passes for each decoder
#else
constexpr int kDepth = 4;  // with sanitizers
#endif

// Where the explorations begin; each is reached from the start by moves of its own.
const std::vector<std::vector<std::string_view>> kOpenings{
    {},
    {"lease"},
    {"lease", "frame"},
    {"lease", "stream ends", "to retry", "31 frames"},
    {"lease", "31 frames", "stream ends", "to retry", "frame"},
    {"lease", "frame", "to stall + 1", "pass"},
    {"lease", "to first frame's deadline", "stream ends", "to retry", "stream ends", "to retry",
     "stream ends", "to retry", "stream ends", "to retry"},
    {"starts fail", "lease", "to retry", "pass", "to retry", "pass", "to retry", "pass", "to retry", "pass"},
    {"lease", "frame", "no lease"},
    {"lease", "frame", "Suspend"},
    {"lease", "frame", "TogglePause"},
    {"lease", "frame", "StopAndSuspend"},
    {"lease", "frame", "locked"},
    {"preview", "half a frame"},
};

class SupervisorModel : public testing::TestWithParam<DecoderBackend> {};

TEST_P(SupervisorModel, KeepsItsPromisesWhateverHappens) {
    SupervisorExplorer explorer(GetParam());
    for (const auto& opening : kOpenings) {
        explorer.explore(opening, kDepth);
        ASSERT_EQ(explorer.violation(), "");
    }
    if (GetParam() == DecoderBackend::kAutomatic) {
        explorer.explore({"starts GStreamer", "lease", "frame"}, kDepth);
        ASSERT_EQ(explorer.violation(), "");
    }

    // What never happened was not shown.
    const ExplorerCounts& counts = explorer.counts();
    const struct {
        const char* what;
        std::uint64_t times;
    } happened[]{{"passes", counts.passes},
                 {"different moments", counts.moments},
                 {"live frames", counts.liveFrames},
                 {"attempts", counts.attempts},
                 {"recoveries", counts.recoveries},
                 {"times all five attempts failed", counts.exhaustions},
                 {"refusals", counts.refusals},
                 {"stops 500 ms after demand", counts.graceStops},
                 {"old pictures taken back", counts.staleFallbacks},
                 {"times a lock suspended by itself", counts.awaySuspensions},
                 {"commands posted while a pass ran", counts.lateCommands}};
    for (const auto& [what, times] : happened) {
        std::cout << times << ' ' << what << '\n';
        EXPECT_GT(times, 0u) << what;
    }
    EXPECT_EQ(counts.fallbacksToFfmpeg > 0, GetParam() == DecoderBackend::kAutomatic);
}

INSTANTIATE_TEST_SUITE_P(EachDecoder, SupervisorModel,
                         testing::Values(DecoderBackend::kFfmpeg, DecoderBackend::kGstreamer,
                                         DecoderBackend::kAutomatic),
                         [](const auto& decoder) {
                             switch (decoder.param) {
                                 case DecoderBackend::kFfmpeg: return "Ffmpeg";
                                 case DecoderBackend::kGstreamer: return "Gstreamer";
                                 case DecoderBackend::kAutomatic: break;
                             }
                             return "Automatic";
                         });

}  // namespace
}  // namespace vextra
