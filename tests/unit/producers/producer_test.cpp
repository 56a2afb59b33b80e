// The producer with a decoder that remembers what it was told, on a machine without a GStreamer runtime and
// on one whose GStreamer the test makes up.
#include "producers/producer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "bridge/bridge_layout.h"
#include "stub_gstreamer/fake_gstreamer.h"

namespace vextra::test {
namespace {

constexpr wchar_t kRtspUrl[] = L"rtsp://10.0.0.1/live";
constexpr bool kSyntheticTest = true;
constexpr bool kCamera = false;

using Events = std::vector<EventCode>;
using Texts = std::vector<std::wstring>;

BrokerSettings settingsWith(DecoderBackend decoder) {
    BrokerSettings settings;
    settings.decoder = decoder;
    return settings;
}

// FFmpeg's process as the producer sees it.
struct FakeFfmpeg {
    struct Start {
        bool syntheticTest;
        std::wstring url;
        RtspTransport transport;
    };

    bool starts(const FfmpegInput& input) {
        started.push_back({input.syntheticTest, std::wstring(input.url), input.transport});
        runs = startsWell;
        return runs;
    }
    std::int32_t read(std::byte* buffer, std::uint32_t capacityBytes) const {
        if (!runs)
            return -1;
        const std::uint32_t taken = std::min(waitingBytes, capacityBytes);
        std::fill_n(buffer, taken, std::byte{7});
        return static_cast<std::int32_t>(taken);
    }

    bool startsWell = true;
    bool runs = false;
    std::uint32_t waitingBytes = 0;
    std::vector<Start> started;
};

class ProducerTest : public ::testing::Test {
protected:
    ~ProducerTest() override {
        producer_.stop();
        EXPECT_EQ(gstreamer_.handedOut, 0);
    }

    ProducerDoors doors() {
        return {
            .startFfmpeg = [this](const FfmpegInput& input) { return ffmpeg_.starts(input); },
            .readFfmpeg = [this](std::byte* buffer,
                                 std::uint32_t bytes) { return ffmpeg_.read(buffer, bytes); },
            .stopFfmpeg = [this] { ffmpeg_.runs = false; },
            .findGstreamer = [this]() -> const GstApi* {
                ++runtimeLookups_;
                return hasRuntime_ ? &gstreamer_.api() : nullptr;
            },
        };
    }
    ProducerReports reports() {
        return {
            .showStatus = [this](std::wstring_view text) { statusTexts_.emplace_back(text); },
            .log =
                [this](EventCode code, std::int32_t value) {
                    events_.push_back(code);
                    EXPECT_EQ(value, 0);
                },
            .explainFailure = [this](std::wstring_view reason) { reasons_.emplace_back(reason); },
        };
    }
    bool start(DecoderBackend decoder) { return producer_.start(kCamera, kRtspUrl, settingsWith(decoder)); }
    bool startSynthetic(DecoderBackend decoder) {
        return producer_.start(kSyntheticTest, L"", settingsWith(decoder));
    }
    std::int32_t read(std::uint32_t capacityBytes = kFrameBytes) {
        return producer_.read(frame_.data(), capacityBytes);
    }

    FakeGstreamer gstreamer_;
    bool hasRuntime_ = false;
    int runtimeLookups_ = 0;
    FakeFfmpeg ffmpeg_;
    Texts statusTexts_;
    Texts reasons_;
    Events events_;
    std::atomic<EffectiveBackend> effectiveBackend_{EffectiveBackend::kNone};
    Producer producer_{doors(), reports(), effectiveBackend_};
    std::vector<std::byte> frame_ = std::vector<std::byte>(kFrameBytes);
};

class ProducerGstreamerTest : public ProducerTest {
protected:
    ProducerGstreamerTest() { hasRuntime_ = true; }
    bool startGstreamer() { return start(DecoderBackend::kGstreamer); }
};

// --- Without a runtime ---

TEST_F(ProducerTest, SyntheticTestStartsFfmpegAlthoughGstreamerIsChosen) {
    EXPECT_TRUE(startSynthetic(DecoderBackend::kGstreamer));
    ASSERT_EQ(ffmpeg_.started.size(), 1u);
    EXPECT_TRUE(ffmpeg_.started[0].syntheticTest);
}

TEST_F(ProducerTest, SyntheticTestSaysNothingOfGstreamer) {
    startSynthetic(DecoderBackend::kGstreamer);
    EXPECT_TRUE(statusTexts_.empty());
}

TEST_F(ProducerTest, NoRuntimeIsLookedForUnlessOneIsWanted) {
    startSynthetic(DecoderBackend::kGstreamer);
    startSynthetic(DecoderBackend::kAutomatic);
    start(DecoderBackend::kFfmpeg);
    EXPECT_EQ(runtimeLookups_, 0);
    start(DecoderBackend::kAutomatic);
    EXPECT_EQ(runtimeLookups_, 1);
    start(DecoderBackend::kGstreamer);
    EXPECT_EQ(runtimeLookups_, 2);
}

TEST_F(ProducerTest, ChosenGstreamerWithoutRuntimeIsRefused) {
    EXPECT_FALSE(start(DecoderBackend::kGstreamer));
}

TEST_F(ProducerTest, ChosenGstreamerWithoutRuntimeIsToldToTheUser) {
    start(DecoderBackend::kGstreamer);
    EXPECT_EQ(statusTexts_, Texts{L"GStreamer indisponível: runtime x64 e plugins não instalados."});
}

TEST_F(ProducerTest, ChosenGstreamerWithoutRuntimeIsExplained) {
    start(DecoderBackend::kGstreamer);
    EXPECT_EQ(reasons_,
              Texts{L"GStreamer indisponível: runtime x64 ou plugins obrigatórios não encontrados."});
}

TEST_F(ProducerTest, FfmpegExplainsNothing) {
    start(DecoderBackend::kAutomatic);
    startSynthetic(DecoderBackend::kGstreamer);
    EXPECT_TRUE(reasons_.empty());
}

TEST_F(ProducerTest, ChosenGstreamerWithoutRuntimeIsNotLogged) {
    start(DecoderBackend::kGstreamer);
    EXPECT_TRUE(events_.empty());
}

TEST_F(ProducerTest, ChosenGstreamerWithoutRuntimeStartsNoFfmpeg) {
    start(DecoderBackend::kGstreamer);
    EXPECT_TRUE(ffmpeg_.started.empty());
    EXPECT_EQ(read(), -1);
}

TEST_F(ProducerTest, ChosenGstreamerWithoutRuntimeStopsTheRunningDecoder) {
    ASSERT_TRUE(start(DecoderBackend::kFfmpeg));
    start(DecoderBackend::kGstreamer);
    EXPECT_FALSE(ffmpeg_.runs);
}

TEST_F(ProducerTest, AutomaticWithoutRuntimeStartsFfmpeg) {
    EXPECT_TRUE(start(DecoderBackend::kAutomatic));
    ASSERT_EQ(ffmpeg_.started.size(), 1u);
    EXPECT_FALSE(ffmpeg_.started[0].syntheticTest);
    EXPECT_EQ(ffmpeg_.started[0].url, kRtspUrl);
}

TEST_F(ProducerTest, AutomaticWithoutRuntimeReportsFfmpegAsEffective) {
    start(DecoderBackend::kAutomatic);
    EXPECT_EQ(effectiveBackend_, EffectiveBackend::kFfmpeg);
}

TEST_F(ProducerTest, AutomaticWithoutRuntimeShowsNothing) {
    start(DecoderBackend::kAutomatic);
    EXPECT_TRUE(statusTexts_.empty());
}

// --- FFmpeg ---

TEST_F(ProducerTest, ChosenFfmpegIsReportedAsEffective) {
    start(DecoderBackend::kFfmpeg);
    EXPECT_EQ(effectiveBackend_, EffectiveBackend::kFfmpeg);
}

// So the window names the decoder that could not be started.
TEST_F(ProducerTest, AnFfmpegThatDoesNotStartIsReportedAsEffectiveAllTheSame) {
    ffmpeg_.startsWell = false;
    EXPECT_FALSE(start(DecoderBackend::kFfmpeg));
    EXPECT_EQ(effectiveBackend_, EffectiveBackend::kFfmpeg);
}

TEST_F(ProducerTest, RtspRunsOverTcp) {
    ASSERT_TRUE(start(DecoderBackend::kFfmpeg));
    EXPECT_EQ(ffmpeg_.started[0].transport, RtspTransport::kTcp);
}

TEST_F(ProducerTest, RtspRunsOverUdpWhenTheSettingsSaySo) {
    BrokerSettings settings = settingsWith(DecoderBackend::kFfmpeg);
    settings.rtspUdp = true;
    ASSERT_TRUE(producer_.start(kCamera, kRtspUrl, settings));
    EXPECT_EQ(ffmpeg_.started[0].transport, RtspTransport::kUdp);
}

// The system's conversion would put another character in the place of the half.
TEST_F(ProducerTest, AnAddressWithHalfASurrogatePairStartsNothing) {
    const std::wstring url = std::wstring(L"rtsp://user:") + static_cast<wchar_t>(0xD800) + L"@10.0.0.1/live";
    for (const DecoderBackend decoder : {DecoderBackend::kFfmpeg, DecoderBackend::kAutomatic})
        EXPECT_FALSE(producer_.start(kCamera, url, settingsWith(decoder)));
    EXPECT_TRUE(events_.empty());
    EXPECT_TRUE(ffmpeg_.started.empty());
}

// As typed: reading the scheme without regard to case is the decoder's part.
TEST_F(ProducerTest, ASchemeInCapitalsReachesFfmpegAsTyped) {
    ASSERT_TRUE(producer_.start(kCamera, L"RTSP://Camera/Live", settingsWith(DecoderBackend::kFfmpeg)));
    EXPECT_EQ(ffmpeg_.started[0].url, L"RTSP://Camera/Live");
}

TEST_F(ProducerTest, PiecesOfFfmpegsFramesAreHandedOnAsTheyCome) {
    ASSERT_TRUE(start(DecoderBackend::kFfmpeg));
    EXPECT_EQ(read(), 0);
    ffmpeg_.waitingBytes = 1000;
    EXPECT_EQ(read(10), 10);
    EXPECT_EQ(frame_[9], std::byte{7});
    EXPECT_EQ(frame_[10], std::byte{0});
    EXPECT_EQ(read(), 1000);
    ffmpeg_.runs = false;
    EXPECT_EQ(read(), -1);
}

TEST_F(ProducerTest, StopEndsTheDecoder) {
    ASSERT_TRUE(start(DecoderBackend::kFfmpeg));
    producer_.stop();
    EXPECT_FALSE(ffmpeg_.runs);
}

TEST_F(ProducerTest, CanBeStartedAfterTwoStops) {
    ASSERT_TRUE(start(DecoderBackend::kFfmpeg));
    producer_.stop();
    producer_.stop();
    EXPECT_TRUE(start(DecoderBackend::kFfmpeg));
}

// --- With a runtime ---

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
    EXPECT_TRUE(ffmpeg_.started.empty());
}

TEST_F(ProducerGstreamerTest, ChosenFfmpegAsksNothingOfGstreamer) {
    EXPECT_TRUE(start(DecoderBackend::kFfmpeg));
    EXPECT_TRUE(gstreamer_.calls.empty());
    EXPECT_EQ(effectiveBackend_, EffectiveBackend::kFfmpeg);
}

TEST_F(ProducerGstreamerTest, SyntheticTestRunsOnFfmpegAllTheSame) {
    EXPECT_TRUE(startSynthetic(DecoderBackend::kGstreamer));
    EXPECT_TRUE(gstreamer_.calls.empty());
    ASSERT_EQ(ffmpeg_.started.size(), 1u);
    EXPECT_TRUE(ffmpeg_.started[0].syntheticTest);
}

TEST_F(ProducerGstreamerTest, SettingsReachTheSource) {
    BrokerSettings settings = settingsWith(DecoderBackend::kGstreamer);
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
    EXPECT_TRUE(ffmpeg_.started.empty());
    EXPECT_EQ(read(), -1);
}

TEST_F(ProducerGstreamerTest, AutomaticStartsFfmpegWhereGstreamerFails) {
    gstreamer_.stateChange = kGstStateChangeFailure;
    EXPECT_TRUE(start(DecoderBackend::kAutomatic));
    EXPECT_EQ(effectiveBackend_, EffectiveBackend::kFfmpeg);
    EXPECT_EQ(ffmpeg_.started.size(), 1u);
    EXPECT_TRUE(events_.empty());
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

// A frame is never split.
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
    ffmpeg_.waitingBytes = 10;
    EXPECT_EQ(read(), 10);
}

TEST_F(ProducerGstreamerTest, GstreamerAfterFfmpegEndsTheProcess) {
    ASSERT_TRUE(start(DecoderBackend::kFfmpeg));
    ASSERT_TRUE(startGstreamer());
    EXPECT_FALSE(ffmpeg_.runs);
}

}  // namespace
}  // namespace vextra::test
