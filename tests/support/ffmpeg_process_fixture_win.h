// A decoder process with the stub in its install folder, and what it reported.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <numeric>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "bridge/bridge_layout.h"
#include "broker_fixture_win.h"
#include "producers/ffmpeg_process_win.h"
#include "stub_decoder/frame_collector.h"
#include "stub_decoder/stub_install_win.h"

namespace vextra::test {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

constexpr milliseconds kLongestStop{3500};
constexpr FfmpegInput kSynthetic{.syntheticTest = true, .url = {}, .transport = RtspTransport::kTcp};

inline std::vector<int> countingFromZero(std::size_t count) {
    std::vector<int> numbers(count);
    std::iota(numbers.begin(), numbers.end(), 0);
    return numbers;
}

inline milliseconds durationOf(const std::function<void()>& action) {
    const auto begin = Clock::now();
    action();
    return std::chrono::duration_cast<milliseconds>(Clock::now() - begin);
}

// What the decoder reported.
struct Reports {
    std::vector<std::wstring> statusTexts;
    std::vector<std::pair<EventCode, std::int32_t>> events;

    // For a start that fails against expectation.
    std::string text() const {
        std::ostringstream out;
        out << statusTexts.size() << " status texts";
        for (const auto& [code, value] : events)
            out << ", " << eventText(code) << " 0x" << std::hex << value;
        return out.str();
    }
    ProducerReports sink() {
        return {[this](std::wstring_view text) { statusTexts.emplace_back(text); },
                [this](EventCode code, std::int32_t value) { events.emplace_back(code, value); },
                [](std::wstring_view) { FAIL() << "GStreamer has nothing to do with it"; }};
    }
};

class FfmpegProcessTest : public ::testing::Test {
protected:
    FfmpegProcessTest() : FfmpegProcessTest(L"install") {}
    explicit FfmpegProcessTest(std::wstring_view installName)
        : install_(installName), decoder_(install_.root(), reports_.sink()) {}

    FrameCollector collector() {
        return FrameCollector(
            [this](std::byte* buffer, std::uint32_t bytes) { return decoder_.read(buffer, bytes); });
    }
    std::int32_t pollOnce(std::uint32_t capacityBytes = kFrameBytes) {
        return decoder_.read(buffer_.data(), capacityBytes);
    }
    // Polls until something other than "nothing is ready" comes; 0 when that takes too long.
    std::int32_t pollUntilNews(std::uint32_t capacityBytes = kFrameBytes) {
        const auto deadline = Clock::now() + kPatience;
        std::int32_t result = 0;
        while ((result = pollOnce(capacityBytes)) == 0 && Clock::now() < deadline)
            std::this_thread::sleep_for(milliseconds(1));
        return result;
    }
    // Under load Wine now and then (2 of 5000) lets a new process die before it has come up. That failure is
    // not the decoder's, and it also costs handles; it is counted, and the decoder started once more.
    bool start(const FfmpegInput& input) {
        constexpr auto kDiedBeforeItCameUp = static_cast<std::int32_t>(0x8007054Fu);  // ERROR_INTERNAL_ERROR
        if (decoder_.start(input))
            return true;
        if (!runsUnderWine() || reports_.events.empty() ||
            reports_.events.back() != std::pair(EventCode::kFfmpegLaunchFailed, kDiedBeforeItCameUp)) {
            ADD_FAILURE() << reports_.text();
            return false;
        }
        ++failuresOfWine_;
        reports_.events.pop_back();
        return decoder_.start(input);
    }
    // Answers once the stub has written its record, right before it does what it is told.
    StubRecord startStub(std::string_view behaviour) {
        install_.behave(behaviour);
        EXPECT_TRUE(start(kSynthetic));
        return install_.record();
    }

    int failuresOfWine_ = 0;
    Reports reports_;
    StubInstall install_;
    FfmpegProcess decoder_;
    std::vector<std::byte> buffer_ = std::vector<std::byte>(kFrameBytes);
};

}  // namespace vextra::test
