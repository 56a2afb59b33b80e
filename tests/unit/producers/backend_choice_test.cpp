#include "producers/backend_choice.h"

#include <gtest/gtest.h>

namespace vextra {
namespace {

TEST(BackendChoice, FollowsSourceSettingAndRuntime) {
    using enum BackendPlan;
    const struct {
        bool syntheticTest;
        DecoderBackend decoder;
        bool gstreamerLoaded;
        BackendPlan plan;
    } kCases[] = {
        {false, DecoderBackend::kFfmpeg, false, kFfmpeg},
        {false, DecoderBackend::kFfmpeg, true, kFfmpeg},
        {false, DecoderBackend::kGstreamer, false, kRefuseNoGstreamer},
        {false, DecoderBackend::kGstreamer, true, kGstreamerOnly},
        {false, DecoderBackend::kAutomatic, false, kFfmpeg},
        {false, DecoderBackend::kAutomatic, true, kGstreamerThenFfmpeg},
        {true, DecoderBackend::kFfmpeg, false, kFfmpeg},
        {true, DecoderBackend::kFfmpeg, true, kFfmpeg},
        {true, DecoderBackend::kGstreamer, false, kFfmpeg},
        {true, DecoderBackend::kGstreamer, true, kFfmpeg},
        {true, DecoderBackend::kAutomatic, false, kFfmpeg},
        {true, DecoderBackend::kAutomatic, true, kFfmpeg},
    };
    for (const auto& [syntheticTest, decoder, gstreamerLoaded, plan] : kCases) {
        EXPECT_EQ(planBackend(syntheticTest, decoder, gstreamerLoaded), plan)
            << "synthetic " << syntheticTest << ", decoder " << static_cast<int>(decoder) << ", runtime "
            << gstreamerLoaded;
    }
}

}  // namespace
}  // namespace vextra
