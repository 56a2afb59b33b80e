// The producer on a machine with a GStreamer runtime, made up by the test, and with a decoder that writes
// frames.
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <vector>

#include "bridge/bridge_layout.h"
#include "producers/producer.h"
#include "stub_decoder/stub_install_win.h"
#include "stub_gstreamer/fake_gstreamer.h"

namespace vextra::test {
namespace {

constexpr wchar_t kRtspUrl[] = L"rtsp://10.0.0.1/live";
constexpr bool kSyntheticTest = true;
constexpr bool kCamera = false;

class ProducerGstreamerTest : public ::testing::Test {
protected:
    ProducerGstreamerTest() { install_.behave("frames=endless"); }
    ~ProducerGstreamerTest() override {
        producer_.stop();
        EXPECT_EQ(gstreamer_.handedOut, 0);
    }

    ProducerReports reports() {
        return {[this](std::wstring_view text) { statusTexts_.emplace_back(text); },
                [this](EventCode code, std::int32_t value) {
                    events_.push_back(code);
                    EXPECT_EQ(value, 0);
                },
                [this](std::wstring_view reason) { reasons_.emplace_back(reason); }};
    }
    bool start(DecoderBackend decoder) {
        BrokerSettings settings;
        settings.decoder = decoder;
        return producer_.start(kCamera, kRtspUrl, settings);
    }
    bool startGstreamer() { return start(DecoderBackend::kGstreamer); }
    std::int32_t read(std::uint32_t capacityBytes = kFrameBytes) {
        return producer_.read(frame_.data(), capacityBytes);
    }

    FakeGstreamer gstreamer_;
    StubInstall install_;
    std::vector<std::wstring> statusTexts_;
    std::vector<std::wstring> reasons_;
    std::vector<EventCode> events_;
    std::atomic<EffectiveBackend> effectiveBackend_{EffectiveBackend::kNone};
    Producer producer_{install_.root(), reports(), effectiveBackend_, [this] { return &gstreamer_.api(); }};
    std::vector<std::byte> frame_ = std::vector<std::byte>(kFrameBytes);
};

using Events = std::vector<EventCode>;
using Texts = std::vector<std::wstring>;

TEST_F(ProducerGstreamerTest, ChosenGstreamerRuns) {
    EXPECT_TRUE(startGstreamer());
    EXPECT_EQ(effectiveBackend_, EffectiveBackend::kGstreamer);
    EXPECT_EQ(events_, Events{EventCode::kGstreamerStart});
    EXPECT_TRUE(statusTexts_.empty());
}

TEST_F(ProducerGstreamerTest, AutomaticPrefersGstreamer) {
    EXPECT_TRUE(start(DecoderBackend::kAutomatic));
    EXPECT_EQ(effectiveBackend_, EffectiveBackend::kGstreamer);
    EXPECT_EQ(events_, Events{EventCode::kGstreamerStart});
}

TEST_F(ProducerGstreamerTest, ChosenFfmpegAsksNothingOfGstreamer) {
    EXPECT_TRUE(start(DecoderBackend::kFfmpeg));
    EXPECT_TRUE(gstreamer_.calls.empty());
    EXPECT_EQ(effectiveBackend_, EffectiveBackend::kFfmpeg);
}

TEST_F(ProducerGstreamerTest, SyntheticTestRunsOnFfmpegAllTheSame) {
    BrokerSettings settings;
    settings.decoder = DecoderBackend::kGstreamer;
    EXPECT_TRUE(producer_.start(kSyntheticTest, L"", settings));
    EXPECT_TRUE(gstreamer_.calls.empty());
    EXPECT_EQ(install_.record().argumentAfter(L"-i"), L"testsrc2=size=1280x720:rate=16");
}

TEST_F(ProducerGstreamerTest, SettingsReachTheSource) {
    BrokerSettings settings;
    settings.decoder = DecoderBackend::kGstreamer;
    settings.rtspUdp = true;
    settings.latencyMs = 5000;
    ASSERT_TRUE(producer_.start(kCamera, kRtspUrl, settings));
    EXPECT_TRUE(gstreamer_.wasCalled("set uri=rtsp://10.0.0.1/live"));
    EXPECT_TRUE(gstreamer_.wasCalled("set protocols=1"));
    EXPECT_TRUE(gstreamer_.wasCalled("set latency=5000"));
}

TEST_F(ProducerGstreamerTest, ChosenGstreamerThatFailsIsToldAndNothingElseStarts) {
    gstreamer_.stateChange = kGstStateChangeFailure;
    EXPECT_FALSE(startGstreamer());
    EXPECT_EQ(statusTexts_, Texts{L"GStreamer explicite falhou. Nenhum fallback FFmpeg implícito."});
    EXPECT_TRUE(events_.empty());
    EXPECT_EQ(read(), -1);
}

TEST_F(ProducerGstreamerTest, AutomaticStartsFfmpegWhereGstreamerFails) {
    gstreamer_.stateChange = kGstStateChangeFailure;
    EXPECT_TRUE(start(DecoderBackend::kAutomatic));
    EXPECT_EQ(effectiveBackend_, EffectiveBackend::kFfmpeg);
    EXPECT_EQ(events_, Events{EventCode::kFfmpegStart});
    EXPECT_TRUE(statusTexts_.empty());
}

TEST_F(ProducerGstreamerTest, AStartThatFailsIsExplained) {
    gstreamer_.stateChange = kGstStateChangeFailure;
    startGstreamer();
    EXPECT_EQ(reasons_, Texts{L"GStreamer não conseguiu iniciar a origem."});
}

TEST_F(ProducerGstreamerTest, AStartThatFailsIsExplainedAlthoughFfmpegFollows) {
    gstreamer_.parse = FakeGstreamer::Parse::kNothing;
    start(DecoderBackend::kAutomatic);
    EXPECT_EQ(reasons_, Texts{L"Não foi possível criar a pipeline GStreamer."});
}

TEST_F(ProducerGstreamerTest, AStreamThatEndsIsExplained) {
    ASSERT_TRUE(startGstreamer());
    EXPECT_EQ(read(), 0);
    EXPECT_TRUE(reasons_.empty());
    gstreamer_.streamEnded = true;
    EXPECT_EQ(read(), -1);
    EXPECT_EQ(reasons_, Texts{L"A origem GStreamer terminou."});
}

TEST_F(ProducerGstreamerTest, AStartThatSucceedsAndAFrameExplainNothing) {
    ASSERT_TRUE(startGstreamer());
    gstreamer_.sample = FakeGstreamer::goodSample();
    EXPECT_EQ(read(), std::int32_t{kFrameBytes});
    EXPECT_TRUE(reasons_.empty());
}

// So that "Backend efetivo" is not read as "what runs now".
TEST_F(ProducerGstreamerTest, AStartOfGstreamerThatFailsLeavesTheEffectiveBackend) {
    ASSERT_TRUE(startGstreamer());
    gstreamer_.stateChange = kGstStateChangeFailure;
    EXPECT_FALSE(startGstreamer());
    EXPECT_EQ(effectiveBackend_, EffectiveBackend::kGstreamer);
}

TEST_F(ProducerGstreamerTest, AFrameIsReadWhole) {
    ASSERT_TRUE(startGstreamer());
    gstreamer_.sample = FakeGstreamer::goodSample();
    EXPECT_EQ(read(), std::int32_t{kFrameBytes});
    EXPECT_EQ(frame_[kFrameStrideBytes], std::byte{1});
}

TEST_F(ProducerGstreamerTest, AFrameThatDoesNotFitEndsTheStream) {
    ASSERT_TRUE(startGstreamer());
    gstreamer_.sample = FakeGstreamer::goodSample();
    EXPECT_EQ(read(kFrameBytes - 1), -1);
    EXPECT_EQ(frame_, std::vector<std::byte>(kFrameBytes));
}

TEST_F(ProducerGstreamerTest, NoFrameYetIsNothing) {
    ASSERT_TRUE(startGstreamer());
    EXPECT_EQ(read(), 0);
    EXPECT_EQ(read(kFrameBytes - 1), 0);
}

TEST_F(ProducerGstreamerTest, AnErrorEndsTheStream) {
    ASSERT_TRUE(startGstreamer());
    gstreamer_.busHasError = true;
    EXPECT_EQ(read(), -1);
}

TEST_F(ProducerGstreamerTest, TheEndOfTheSourceEndsTheStream) {
    ASSERT_TRUE(startGstreamer());
    gstreamer_.streamEnded = true;
    EXPECT_EQ(read(), -1);
}

TEST_F(ProducerGstreamerTest, AFrameOutsideTheContractEndsTheStream) {
    ASSERT_TRUE(startGstreamer());
    gstreamer_.sample = FakeGstreamer::goodSample();
    gstreamer_.sample->interlaceMode.reset();
    EXPECT_EQ(read(), -1);
}

TEST_F(ProducerGstreamerTest, StopTwiceIsHarmless) {
    ASSERT_TRUE(startGstreamer());
    producer_.stop();
    producer_.stop();
    EXPECT_EQ(gstreamer_.state, kGstStateNull);
    EXPECT_EQ(read(), -1);
}

TEST_F(ProducerGstreamerTest, FfmpegAfterGstreamerStopsThePipeline) {
    ASSERT_TRUE(startGstreamer());
    ASSERT_TRUE(start(DecoderBackend::kFfmpeg));
    EXPECT_EQ(gstreamer_.handedOut, 0);
}

TEST_F(ProducerGstreamerTest, GstreamerAfterFfmpegEndsTheProcess) {
    ASSERT_TRUE(start(DecoderBackend::kFfmpeg));
    const FollowedProcess ffmpeg(install_.record().number("pid"));
    ASSERT_TRUE(startGstreamer());
    EXPECT_FALSE(ffmpeg.runs());
}

}  // namespace
}  // namespace vextra::test
