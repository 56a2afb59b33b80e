#include "diag/event_line.h"

#include <gtest/gtest.h>

#include <limits>
#include <set>
#include <string>
#include <vector>

#include "base/product.h"

namespace vextra {
namespace {

// Every code there is: the enumeration counts up from 1 without a gap.
std::vector<EventCode> allCodes() {
    std::vector<EventCode> codes;
    for (int number = 1; number <= 255 && !eventText(static_cast<EventCode>(number)).empty(); ++number)
        codes.push_back(static_cast<EventCode>(number));
    return codes;
}

std::string lineOf(const EventFields& fields) {
    return std::string(formatEventLine(fields).view());
}

std::string hrOf(std::int32_t value) {
    const std::string line = lineOf({EventCode::kMfStartup, value, 0, 0, 0});
    const std::size_t at = line.find("hr=");
    return line.substr(at, line.find(' ', at) - at);
}

TEST(EventLine, HoldsTickCodeNumberFramesAndProcess) {
    EXPECT_EQ(lineOf({EventCode::kBridgeOpenFailed, 0, 123456789, 42, 4711}),
              "tick=123456789 BRIDGE_OPEN_FAILED hr=0x00000000 frames=42 pid=4711\n");
}

TEST(EventLine, PrintsTheNumberAsItsBitPattern) {
    EXPECT_EQ(hrOf(-2147024891), "hr=0x80070005");
    EXPECT_EQ(hrOf(3), "hr=0x00000003");
    EXPECT_EQ(hrOf(-1), "hr=0xFFFFFFFF");
    EXPECT_EQ(hrOf(std::numeric_limits<std::int32_t>::min()), "hr=0x80000000");
}

TEST(EventLine, HoldsEveryCodeWithTheLargestNumbers) {
    for (const EventCode code : allCodes()) {
        EXPECT_EQ(
            lineOf({code, -1, std::numeric_limits<Tick>::max(), std::numeric_limits<std::uint64_t>::max(),
                    std::numeric_limits<std::uint32_t>::max()}),
            "tick=18446744073709551615 " + std::string(eventText(code)) +
                " hr=0xFFFFFFFF frames=18446744073709551615 pid=4294967295\n");
    }
}

TEST(FrameLine, HoldsNumberHashTickAndSize) {
    EXPECT_EQ(formatFrameLine({64, 0x00AB'CDEF'0123'4567, 5000, 3'686'400}).view(),
              "producer_frame=64 fnv1a64=00ABCDEF01234567 tick=5000 bytes=3686400\n");
}

TEST(FrameLine, HoldsTheLargestNumbers) {
    constexpr auto kMax = std::numeric_limits<std::uint64_t>::max();
    EXPECT_EQ(formatFrameLine({kMax, kMax, kMax, std::numeric_limits<std::uint32_t>::max()}).view(),
              "producer_frame=18446744073709551615 fnv1a64=FFFFFFFFFFFFFFFF tick=18446744073709551615 "
              "bytes=4294967295\n");
}

TEST(EventCodes, CountUpWithoutAGap) {
    const std::size_t count = allCodes().size();
    EXPECT_GE(count, 30u);
    for (int number = static_cast<int>(count) + 1; number <= 255; ++number)
        EXPECT_EQ(eventText(static_cast<EventCode>(number)), "") << number;
}

TEST(EventCodes, AreWrittenInUpperCaseLettersDigitsAndUnderscores) {
    for (const EventCode code : allCodes()) {
        if (code == EventCode::kAppStart)
            continue;  // the one that carries the version
        EXPECT_EQ(eventText(code).find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_"),
                  std::string_view::npos)
            << eventText(code);
    }
}

TEST(EventCodes, FitIntoALine) {
    for (const EventCode code : allCodes())
        EXPECT_LE(eventText(code).size(), kLongestEventText) << eventText(code);
}

TEST(EventCodes, AreDistinct) {
    std::set<std::string_view> texts;
    for (const EventCode code : allCodes())
        EXPECT_TRUE(texts.insert(eventText(code)).second) << eventText(code);
}

// What support and outside tools look for. A new code adds a line here, a changed one breaks their
// searches.
TEST(EventCodes, AreThePublishedVocabulary) {
    const std::set<std::string_view> published{"APP_START_LIMITED_" VEXTRA_VERSION,
                                               "APP_EXIT_CLEAN",
                                               "UI_READY",
                                               "MF_STARTUP",
                                               "MF_SHUTDOWN",
                                               "STOP_COMPLETE",
                                               "CREATE_SYSTEM_CURRENTUSER",
                                               "RESET_OWN_SYSTEM_CAMERA",
                                               "REGISTER_SYSTEM",
                                               "REMOVE_SYSTEM",
                                               "OWNER_OR_ELEVATION_BLOCK",
                                               "BRIDGE_OPEN_FAILED",
                                               "DEMAND_BEGIN_DEVICE_UNCHANGED",
                                               "LAST_DEMAND_RELEASED_PRODUCER_STOP",
                                               "FIRST_FRAME_BOUNDED",
                                               "PRODUCER_FRAME_LIVE",
                                               "PRODUCER_PAUSE_FALLBACK",
                                               "PRODUCER_RESUME",
                                               "PRODUCER_RECONNECT_FALLBACK",
                                               "AUTO_GSTREAMER_FALLBACK_FFMPEG",
                                               "POWER_SUSPEND_FALLBACK",
                                               "POWER_RESUME_RECOVER",
                                               "SESSION_NOTIFY_REGISTERED",
                                               "SESSION_NOTIFY_FAILED",
                                               "SESSION_PRIVATE_FALLBACK",
                                               "SESSION_OWN_RESUME",
                                               "FFMPEG_START_OWN_PROCESS",
                                               "FFMPEG_LAUNCH_FAILED",
                                               "FFMPEG_JOB_ASSIGN_FAILED",
                                               "GSTREAMER_START_OWN_PIPELINE",
                                               "TRAY_ADD_OK",
                                               "TRAY_ADD_FAILED",
                                               "TRAY_REMOVE",
                                               "UI_SHOW_IDEMPOTENT",
                                               "UI_HIDE_TRAY_ACTIVE",
                                               "DPI_CHANGED",
                                               "AUTOMATIC_IDLE_READY",
                                               "MANUAL_PREVIEW_BEGIN_60S",
                                               "MANUAL_PREVIEW_RELEASE",
                                               "SETTINGS_APPLY_BLOCKED_ACTIVE_OR_UNKNOWN",
                                               "SETTINGS_VALIDATION_REJECTED",
                                               "SETTINGS_SOURCE",
                                               "SETTINGS_STREAM",
                                               "SETTINGS_DECODER",
                                               "SETTINGS_LATENCY",
                                               "SETTINGS_FIRST_DEADLINE",
                                               "SETTINGS_SAVE_FAILED",
                                               "SETTINGS_APPLIED_DPAPI",
                                               "MF_UPDATE_STARTUP_CHECK",
                                               "MF_UPDATE_MANUAL_CHECK",
                                               "MF_UPDATE_CHECK_COMPLETED",
                                               "MF_UPDATE_DOWNLOAD_VERIFIED",
                                               "MF_UPDATE_DOWNLOAD_FAILED",
                                               "MF_UPDATE_INSTALLER_LAUNCHED",
                                               "MF_UPDATE_INSTALLER_NOT_LAUNCHED"};
    std::set<std::string_view> known;
    for (const EventCode code : allCodes())
        known.insert(eventText(code));
    EXPECT_EQ(known, published);
}

}  // namespace
}  // namespace vextra
