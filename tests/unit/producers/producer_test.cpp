#include "producers/producer.h"

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <string>
#include <vector>

#include "bridge/bridge_layout.h"
#include "stub_decoder/frame_collector.h"
#include "stub_decoder/stub_install_win.h"

namespace vextra::test {
namespace {

constexpr wchar_t kRtspUrl[] = L"rtsp://10.0.0.1/live";
constexpr bool kSyntheticTest = true;
constexpr bool kCamera = false;

BrokerSettings settingsWith(DecoderBackend decoder) {
    BrokerSettings settings;
    settings.decoder = decoder;
    return settings;
}

// A machine without a GStreamer runtime, and with a decoder that writes frames.
class ProducerTest : public ::testing::Test {
protected:
    ProducerTest() { install_.behave("frames=endless"); }

    ProducerReports reports() {
        return {[this](std::wstring_view text) { statusTexts_.emplace_back(text); },
                [this](EventCode code, std::int32_t) { events_.push_back(code); },
                [this](std::wstring_view reason) { reasons_.emplace_back(reason); }};
    }

    StubInstall install_;
    std::vector<std::wstring> statusTexts_;
    std::vector<std::wstring> reasons_;
    std::vector<EventCode> events_;
    std::atomic<EffectiveBackend> effectiveBackend_{EffectiveBackend::kNone};
    int runtimeLookups_ = 0;
    Producer producer_{install_.root(), reports(), effectiveBackend_, [this]() -> const GstApi* {
                           ++runtimeLookups_;
                           return nullptr;
                       }};
};

TEST_F(ProducerTest, SyntheticTestStartsFfmpegAlthoughGstreamerIsChosen) {
    EXPECT_TRUE(producer_.start(kSyntheticTest, L"", settingsWith(DecoderBackend::kGstreamer)));
    EXPECT_EQ(install_.record().argumentAfter(L"-i"), L"testsrc2=size=1280x720:rate=16");
}

TEST_F(ProducerTest, SyntheticTestSaysNothingOfGstreamer) {
    producer_.start(kSyntheticTest, L"", settingsWith(DecoderBackend::kGstreamer));
    EXPECT_TRUE(statusTexts_.empty());
}

TEST_F(ProducerTest, NoRuntimeIsLookedForUnlessOneIsWanted) {
    producer_.start(kSyntheticTest, L"", settingsWith(DecoderBackend::kGstreamer));
    producer_.start(kSyntheticTest, L"", settingsWith(DecoderBackend::kAutomatic));
    producer_.start(kCamera, kRtspUrl, settingsWith(DecoderBackend::kFfmpeg));
    EXPECT_EQ(runtimeLookups_, 0);
    producer_.start(kCamera, kRtspUrl, settingsWith(DecoderBackend::kAutomatic));
    EXPECT_EQ(runtimeLookups_, 1);
}

TEST_F(ProducerTest, SyntheticTestUsesNoUrl) {
    ASSERT_TRUE(producer_.start(kSyntheticTest, kRtspUrl, settingsWith(DecoderBackend::kFfmpeg)));
    EXPECT_FALSE(install_.record().hasArgument(kRtspUrl));
}

TEST_F(ProducerTest, SyntheticTestUsesNoTransport) {
    BrokerSettings settings = settingsWith(DecoderBackend::kFfmpeg);
    settings.rtspUdp = true;
    ASSERT_TRUE(producer_.start(kSyntheticTest, kRtspUrl, settings));
    EXPECT_FALSE(install_.record().hasArgument(L"-rtsp_transport"));
}

TEST_F(ProducerTest, ChosenGstreamerWithoutRuntimeIsRefused) {
    EXPECT_FALSE(producer_.start(kCamera, kRtspUrl, settingsWith(DecoderBackend::kGstreamer)));
}

TEST_F(ProducerTest, ChosenGstreamerWithoutRuntimeIsToldToTheUser) {
    producer_.start(kCamera, kRtspUrl, settingsWith(DecoderBackend::kGstreamer));
    EXPECT_EQ(statusTexts_,
              (std::vector<std::wstring>{L"GStreamer indisponível: runtime x64 e plugins não instalados."}));
}

TEST_F(ProducerTest, ChosenGstreamerWithoutRuntimeIsExplained) {
    producer_.start(kCamera, kRtspUrl, settingsWith(DecoderBackend::kGstreamer));
    EXPECT_EQ(reasons_,
              (std::vector<std::wstring>{
                  L"GStreamer indisponível: runtime x64 ou plugins obrigatórios não encontrados."}));
}

TEST_F(ProducerTest, FfmpegExplainsNothing) {
    producer_.start(kCamera, kRtspUrl, settingsWith(DecoderBackend::kAutomatic));
    producer_.start(kSyntheticTest, L"", settingsWith(DecoderBackend::kGstreamer));
    EXPECT_TRUE(reasons_.empty());
}

TEST_F(ProducerTest, ChosenGstreamerWithoutRuntimeIsNotLogged) {
    producer_.start(kCamera, kRtspUrl, settingsWith(DecoderBackend::kGstreamer));
    EXPECT_TRUE(events_.empty());
}

TEST_F(ProducerTest, ChosenGstreamerWithoutRuntimeStartsNoFfmpeg) {
    producer_.start(kCamera, kRtspUrl, settingsWith(DecoderBackend::kGstreamer));
    EXPECT_EQ(producer_.read(nullptr, 0), -1);
}

TEST_F(ProducerTest, ChosenGstreamerWithoutRuntimeStopsTheRunningDecoder) {
    ASSERT_TRUE(producer_.start(kCamera, kRtspUrl, settingsWith(DecoderBackend::kFfmpeg)));
    const FollowedProcess ffmpeg(install_.record().number("pid"));
    producer_.start(kCamera, kRtspUrl, settingsWith(DecoderBackend::kGstreamer));
    EXPECT_FALSE(ffmpeg.runs());
}

TEST_F(ProducerTest, AutomaticWithoutRuntimeStartsFfmpeg) {
    EXPECT_TRUE(producer_.start(kCamera, kRtspUrl, settingsWith(DecoderBackend::kAutomatic)));
    EXPECT_EQ(install_.record().argumentAfter(L"-i"), kRtspUrl);
}

TEST_F(ProducerTest, AutomaticWithoutRuntimeReportsFfmpegAsEffective) {
    producer_.start(kCamera, kRtspUrl, settingsWith(DecoderBackend::kAutomatic));
    EXPECT_EQ(effectiveBackend_, EffectiveBackend::kFfmpeg);
}

TEST_F(ProducerTest, AutomaticWithoutRuntimeShowsNothing) {
    producer_.start(kCamera, kRtspUrl, settingsWith(DecoderBackend::kAutomatic));
    EXPECT_TRUE(statusTexts_.empty());
}

TEST_F(ProducerTest, ChosenFfmpegIsReportedAsEffective) {
    producer_.start(kCamera, kRtspUrl, settingsWith(DecoderBackend::kFfmpeg));
    EXPECT_EQ(effectiveBackend_, EffectiveBackend::kFfmpeg);
}

TEST_F(ProducerTest, RtspRunsOverTcp) {
    ASSERT_TRUE(producer_.start(kCamera, kRtspUrl, settingsWith(DecoderBackend::kFfmpeg)));
    EXPECT_EQ(install_.record().argumentAfter(L"-rtsp_transport"), L"tcp");
}

TEST_F(ProducerTest, RtspRunsOverUdpWhenTheSettingsSaySo) {
    BrokerSettings settings = settingsWith(DecoderBackend::kFfmpeg);
    settings.rtspUdp = true;
    ASSERT_TRUE(producer_.start(kCamera, kRtspUrl, settings));
    EXPECT_EQ(install_.record().argumentAfter(L"-rtsp_transport"), L"udp");
}

// The system's conversion would put another character in the place of the half.
TEST_F(ProducerTest, AnAddressWithHalfASurrogatePairStartsNothing) {
    const std::wstring url = std::wstring(L"rtsp://user:") + static_cast<wchar_t>(0xD800) + L"@10.0.0.1/live";
    for (const DecoderBackend decoder : {DecoderBackend::kFfmpeg, DecoderBackend::kAutomatic})
        EXPECT_FALSE(producer_.start(kCamera, url, settingsWith(decoder)));
    EXPECT_TRUE(events_.empty());
    EXPECT_FALSE(std::filesystem::exists(install_.root() + L"\\deps\\start-1.record"));
}

// As typed: reading the scheme without regard to case is the decoder's part.
TEST_F(ProducerTest, ASchemeInCapitalsReachesFfmpegAsTyped) {
    ASSERT_TRUE(producer_.start(kCamera, L"RTSP://Camera/Live", settingsWith(DecoderBackend::kFfmpeg)));
    EXPECT_EQ(install_.record().argumentAfter(L"-i"), L"RTSP://Camera/Live");
    EXPECT_EQ(install_.record().argumentAfter(L"-rtsp_transport"), L"tcp");
}

TEST_F(ProducerTest, FramesAreRead) {
    ASSERT_TRUE(producer_.start(kCamera, kRtspUrl, settingsWith(DecoderBackend::kFfmpeg)));
    FrameCollector frames(
        [&](std::byte* buffer, std::uint32_t bytes) { return producer_.read(buffer, bytes); });
    frames.collect(3, kPatience);
    EXPECT_EQ(frames.values(), (std::vector<int>{0, 1, 2}));
}

TEST_F(ProducerTest, StopEndsTheDecoder) {
    ASSERT_TRUE(producer_.start(kCamera, kRtspUrl, settingsWith(DecoderBackend::kFfmpeg)));
    const FollowedProcess ffmpeg(install_.record().number("pid"));
    producer_.stop();
    EXPECT_FALSE(ffmpeg.runs());
}

TEST_F(ProducerTest, CanBeStartedAfterTwoStops) {
    ASSERT_TRUE(producer_.start(kCamera, kRtspUrl, settingsWith(DecoderBackend::kFfmpeg)));
    producer_.stop();
    producer_.stop();
    EXPECT_TRUE(producer_.start(kCamera, kRtspUrl, settingsWith(DecoderBackend::kFfmpeg)));
}

}  // namespace
}  // namespace vextra::test
