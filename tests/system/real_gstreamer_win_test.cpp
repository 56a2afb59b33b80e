// The broker with a real GStreamer runtime and the local camera, from outside. The environment says what
// there is:
//
//   VEXTRA_GSTREAMER_ROOT   a runtime's root folder, as a path of Windows or of the host
//   VEXTRA_CAMERA_RTSP      the addresses that tools/camera/local_camera.py prints
//   VEXTRA_CAMERA_RTSPS
//   VEXTRA_CAMERA_HTTP
//   VEXTRA_CAMERA_HTTPS
//
// A test is skipped only when the variable that it needs is not set.
#include "tcp_relay_win.h"  // before windows.h

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "broker_test_win.h"
#include "config/settings_store.h"
#include "services_win.h"

namespace vextra::test {
namespace {

namespace fs = std::filesystem;

constexpr std::uint32_t kLiveLimitMs = 20'000;
constexpr std::uint32_t kRecoverLimitMs = 30'000;
constexpr char kGstreamerStart[] = "GSTREAMER_START_OWN_PIPELINE";
constexpr char kFfmpegStart[] = "FFMPEG_START_OWN_PROCESS";
constexpr char kFallback[] = "AUTO_GSTREAMER_FALLBACK_FFMPEG";
constexpr char kReconnect[] = "PRODUCER_RECONNECT_FALLBACK";

class GstreamerBroker : public BrokerTest {
protected:
    void SetUp() override {
        const std::optional<std::wstring> root = variable(L"VEXTRA_GSTREAMER_ROOT");
        if (!root)
            GTEST_SKIP() << "VEXTRA_GSTREAMER_ROOT names no GStreamer runtime: ./dev gstreamer builds one";
        // As installers write it.
        SetEnvironmentVariableW(L"GSTREAMER_1_0_ROOT_X86_64", (windowsPath(*root) + L"\\").c_str());
        useRealDecoder();
        fs::create_directories(broker().dataFolder());
    }

    // Empty, and the test skipped, without a camera.
    std::wstring cameraUrl(const wchar_t* variableName, const std::wstring& path) {
        const std::optional<std::wstring> camera = variable(variableName);
        return camera ? *camera + path : std::wstring();
    }
    static BrokerSettings settingsFor(const std::wstring& url, DecoderBackend decoder) {
        BrokerSettings settings;
        settings.source = SourceKind::kCustomUrl;
        settings.customUrl.assign(url);
        settings.decoder = decoder;
        return settings;
    }
    void startBroker(const BrokerSettings& settings) {
        ASSERT_TRUE(saveSettings(broker().dataFolder(), settings));
        broker().start(L"--background");
        viewer().takeLease();
    }
    void startLive(const BrokerSettings& settings) {
        startBroker(settings);
        ASSERT_TRUE(viewer().waitForState(BridgeState::kLive, kLiveLimitMs)) << "no live frame";
    }
    void expectOnlyGstreamer(std::size_t starts = 1) {
        EXPECT_EQ(broker().countEvents(kGstreamerStart), starts);
        EXPECT_EQ(broker().countEvents(kFfmpegStart), 0u);
    }
    bool selfTestFindsGstreamer() {
        const std::wstring file = broker().dataFolder() + L"\\runtime-self-test.json";
        fs::remove(file);
        EXPECT_EQ(broker().runToEnd(L"--runtime-self-test"), 0u);
        return readFile(file).find("\"gstreamerAvailable\":true") != std::string::npos;
    }
    bool hasListOfPlugins() {
        return std::ranges::any_of(fs::directory_iterator(broker().dataFolder()), [](const auto& entry) {
            return entry.path().extension() == L".registry";
        });
    }
    // Where it is looked for first.
    void installRuntimeWithoutRtsp() {
        const std::wstring folder = broker().installRoot() + L"\\deps\\gstreamer";
        fs::copy(windowsPath(*variable(L"VEXTRA_GSTREAMER_ROOT")), folder, fs::copy_options::recursive);
        const std::wstring plugins = folder + L"\\lib\\gstreamer-1.0\\";
        ASSERT_TRUE(fs::remove(plugins + L"libgstrtsp.dll") || fs::remove(plugins + L"gstrtsp.dll"));
    }
    double framesPerSecond(std::uint32_t settleMs, std::uint32_t measureMs) {
        using Clock = std::chrono::steady_clock;
        Sleep(settleMs);
        const std::uint64_t first = viewer().header().frameCounter;
        const auto begin = Clock::now();
        Sleep(measureMs);
        const std::uint64_t last = viewer().header().frameCounter;
        return static_cast<double>(last - first) /
               std::chrono::duration<double>(Clock::now() - begin).count();
    }

private:
    const ScopedVariable msvc_{L"GSTREAMER_1_0_ROOT_MSVC_X86_64", nullptr};
    const ScopedVariable x64_{L"GSTREAMER_1_0_ROOT_X86_64", nullptr};
};
using TimedGstreamerBroker = GstreamerBroker;
using ReleaseTimedGstreamerBroker = GstreamerBroker;

#define SKIP_WITHOUT_CAMERA(url, name) \
    if ((url).empty())                 \
    GTEST_SKIP() << fs::path(name).string() << " names no camera"

// --- Discovery ---

TEST_F(ReleaseTimedGstreamerBroker, SelfTestFindsTheRuntime) {
    EXPECT_TRUE(selfTestFindsGstreamer());
}

TEST_F(ReleaseTimedGstreamerBroker, KeepsItsOwnListOfPlugins) {
    broker().runToEnd(L"--runtime-self-test");
    EXPECT_TRUE(hasListOfPlugins());
}

TEST_F(ReleaseTimedGstreamerBroker, RejectsARuntimeThatLacksRtsp) {
    SetEnvironmentVariableW(L"GSTREAMER_1_0_ROOT_X86_64", nullptr);
    installRuntimeWithoutRtsp();
    EXPECT_FALSE(selfTestFindsGstreamer());
}

// Looking at its plugins loads them, and then they stay: the first start has to do without GStreamer. The
// next one knows them from the list, can unload the runtime that it rejects, and takes the other.
TEST_F(ReleaseTimedGstreamerBroker, TakesARuntimeBehindOneThatLacksRtspAtItsSecondStart) {
    installRuntimeWithoutRtsp();
    selfTestFindsGstreamer();
    EXPECT_TRUE(selfTestFindsGstreamer());
    EXPECT_TRUE(selfTestFindsGstreamer());
}

TEST_F(ReleaseTimedGstreamerBroker, LoadsNothingWhileNobodyWantsIt) {
    startBroker(settingsFor(L"rtsp://127.0.0.1:9/x", DecoderBackend::kFfmpeg));
    ASSERT_TRUE(broker().waitForEvent(kFfmpegStart));
    EXPECT_FALSE(hasListOfPlugins());
}

TEST_F(ReleaseTimedGstreamerBroker, LooksForTheRuntimeAtTheFirstDemandNotAtTheStart) {
    ASSERT_TRUE(saveSettings(broker().dataFolder(),
                             settingsFor(L"rtsp://127.0.0.1:9/x", DecoderBackend::kGstreamer)));
    broker().start(L"--background");
    Sleep(500);
    EXPECT_FALSE(hasListOfPlugins());
    viewer().takeLease();
    EXPECT_TRUE(broker().waitForEvent(kGstreamerStart));
    EXPECT_TRUE(hasListOfPlugins());
}

// --- Sources ---

struct Source {
    const char* name;
    const wchar_t* camera;
    const wchar_t* path;
    bool udp;
    const wchar_t* ranks;  // the user's GST_PLUGIN_FEATURE_RANK
    std::uint32_t settleMs;
    std::uint32_t measureMs;
};

class ReleaseTimedGstreamerSource : public GstreamerBroker, public ::testing::WithParamInterface<Source> {};

TEST_P(ReleaseTimedGstreamerSource, RunsLiveAtSixteenFramesPerSecond) {
    const Source& source = GetParam();
    const std::wstring url = cameraUrl(source.camera, source.path);
    SKIP_WITHOUT_CAMERA(url, source.camera);
    const ScopedVariable ranks(L"GST_PLUGIN_FEATURE_RANK", source.ranks);
    BrokerSettings settings = settingsFor(url, DecoderBackend::kGstreamer);
    settings.rtspUdp = source.udp;
    startLive(settings);
    const double rate = framesPerSecond(source.settleMs, source.measureMs);
    std::printf("%.2f frames per second\n", rate);
    EXPECT_NEAR(rate, kFramesPerSecond, 0.5);
    EXPECT_TRUE(viewer().waitForState(BridgeState::kLive, 0));
    expectOnlyGstreamer();
}

constexpr wchar_t kRtsp[] = L"VEXTRA_CAMERA_RTSP";
constexpr wchar_t kRtsps[] = L"VEXTRA_CAMERA_RTSPS";
constexpr wchar_t kHttp[] = L"VEXTRA_CAMERA_HTTP";
constexpr wchar_t kHttps[] = L"VEXTRA_CAMERA_HTTPS";
// libsoup has no TLS in our runtime; without its element the one of libcurl is taken.
constexpr wchar_t kWithoutSoup[] = L"souphttpsrc:NONE";
constexpr Source kSources[] = {
    {"RtspOverTcp", kRtsp, L"stream1", false, nullptr, 2000, 6000},
    {"RtspOverUdp", kRtsp, L"stream1", true, nullptr, 2000, 6000},
    {"RtspMjpeg", kRtsp, L"mjpeg", false, nullptr, 2000, 6000},
    {"RtspWithAudio", kRtsp, L"audio", false, nullptr, 2000, 6000},
    {"HttpTransportStream", kHttp, L"live.ts", false, nullptr, 2000, 6000},
    {"HttpMp4", kHttp, L"clip.mp4", false, nullptr, 500, 3000},  // lasts 5 s
    {"HttpsTransportStream", kHttps, L"live.ts", false, kWithoutSoup, 2000, 6000},
};
INSTANTIATE_TEST_SUITE_P(Real, ReleaseTimedGstreamerSource, ::testing::ValuesIn(kSources),
                         [](const auto& source) { return std::string(source.param.name); });

TEST_F(ReleaseTimedGstreamerBroker, PlaysAnAddressWhoseSchemeHasCapitals) {
    std::wstring url = cameraUrl(kRtsp, L"stream2");
    SKIP_WITHOUT_CAMERA(url, kRtsp);
    url.replace(0, 4, L"RtSP");
    startLive(settingsFor(url, DecoderBackend::kGstreamer));
    expectOnlyGstreamer();
}

// With GIO's module for TLS in the runtime; without it the pipeline says so on its bus, at once.
TEST_F(ReleaseTimedGstreamerBroker, PlaysRtspsWhereTheRuntimeCanAndLeavesItToFfmpegWhereNot) {
    const std::wstring url = cameraUrl(kRtsps, L"stream2");
    SKIP_WITHOUT_CAMERA(url, kRtsps);
    startLive(settingsFor(url, DecoderBackend::kAutomatic));
    EXPECT_EQ(broker().countEvents(kGstreamerStart), 1u);
    const bool takenOver = broker().countEvents(kFallback) == 1;
    std::printf("played by %s\n", takenOver ? "FFmpeg" : "GStreamer");
    EXPECT_EQ(broker().countEvents(kFfmpegStart), takenOver ? 1u : 0u);
}

// --- The picture ---

struct PictureSource {
    const char* name;
    const wchar_t* camera;
    const wchar_t* path;
    bool udp;
    const wchar_t* ranks;
};

class GstreamerPicture : public GstreamerBroker, public ::testing::WithParamInterface<PictureSource> {
protected:
    std::vector<std::byte> pictureOf(DecoderBackend decoder, const std::wstring& url) {
        BrokerSettings settings = settingsFor(url, decoder);
        settings.rtspUdp = GetParam().udp;
        startLive(settings);
        viewer().waitForFrameAfter(viewer().header().frameCounter + 8);
        std::vector<std::byte> pixels = viewer().read().pixels;
        viewer().releaseLease();
        broker().terminate();
        return pixels;
    }

    // That FFmpeg's is right has its own test (real_ffmpeg_win_test.cpp).
    void expectThePictureThatFfmpegShows() {
        const std::wstring url = cameraUrl(GetParam().camera, GetParam().path);
        SKIP_WITHOUT_CAMERA(url, GetParam().camera);
        const ScopedVariable ranks(L"GST_PLUGIN_FEATURE_RANK", GetParam().ranks);
        const std::vector<std::byte> ffmpeg = pictureOf(DecoderBackend::kFfmpeg, url);
        const std::vector<std::byte> gstreamer = pictureOf(DecoderBackend::kGstreamer, url);
        ASSERT_EQ(ffmpeg.size(), gstreamer.size());
        std::uint64_t difference = 0;
        for (std::size_t i = 0; i < ffmpeg.size(); ++i) {
            difference += static_cast<std::uint64_t>(
                std::abs(std::to_integer<int>(ffmpeg[i]) - std::to_integer<int>(gstreamer[i])));
        }
        const double mean = static_cast<double>(difference) / static_cast<double>(ffmpeg.size());
        std::printf("mean difference of a channel: %.2f levels\n", mean);
        EXPECT_LT(mean, 3.0);
    }
};
using TimedGstreamerPicture = GstreamerPicture;
using ReleaseTimedGstreamerPicture = GstreamerPicture;

TEST_P(TimedGstreamerPicture, IsTheOneThatFfmpegShows) {
    expectThePictureThatFfmpegShows();
}
TEST_P(ReleaseTimedGstreamerPicture, IsTheOneThatFfmpegShows) {
    expectThePictureThatFfmpegShows();
}

constexpr PictureSource kPicture{"RtspOverTcp", kRtsp, L"bars", false, nullptr};
constexpr PictureSource kOtherPictures[] = {
    {"RtspOverUdp", kRtsp, L"bars", true, nullptr},
    {"RtspMjpeg", kRtsp, L"bars-mjpeg", false, nullptr},
    {"HttpTransportStream", kHttp, L"bars.ts", false, nullptr},
    {"HttpsTransportStream", kHttps, L"bars.ts", false, kWithoutSoup},
};
constexpr auto pictureName = [](const auto& picture) { return std::string(picture.param.name); };
INSTANTIATE_TEST_SUITE_P(Real, TimedGstreamerPicture, ::testing::Values(kPicture), pictureName);
INSTANTIATE_TEST_SUITE_P(Real, ReleaseTimedGstreamerPicture, ::testing::ValuesIn(kOtherPictures),
                         pictureName);

// --- Faults on the way to the camera ---

enum class Fault { kKilled = 1, kFrozen, kNotFound, kRefused };
struct FaultCase {
    const char* name;
    Fault fault;
    const wchar_t* camera;
    const wchar_t* path;
    DecoderBackend decoder;
};

class ReleaseTimedGstreamerFault : public GstreamerBroker, public ::testing::WithParamInterface<FaultCase> {
protected:
    // Brings the fault about, and undoes it once the broker has given the pipeline up.
    void meetFault(TcpRelay& relay, const BrokerSettings& settings) {
        using New = TcpRelay::NewConnections;
        switch (GetParam().fault) {
            case Fault::kKilled:
                startLive(settings);
                relay.dropExisting();
                break;
            case Fault::kFrozen:
                startLive(settings);
                relay.freezeExisting();
                break;
            case Fault::kNotFound:
                relay.treatNew(New::kToldNotFound);
                startBroker(settings);
                break;
            case Fault::kRefused:
                relay.treatNew(New::kRefused);
                startBroker(settings);
                break;
        }
        ASSERT_TRUE(broker().waitForEvent(kReconnect, kRecoverLimitMs)) << "never given up";
        relay.treatNew(New::kPassedOn);
    }
    // Without what does not concern the producers.
    std::vector<std::string> producerEvents() {
        std::vector<std::string> found;
        for (const std::string& event : broker().events()) {
            if (event == kGstreamerStart || event == kFfmpegStart || event == kFallback ||
                event == kReconnect)
                found.push_back(event);
        }
        return found;
    }
};

TEST_P(ReleaseTimedGstreamerFault, IsRecoveredFrom) {
    const std::wstring camera = cameraUrl(GetParam().camera, GetParam().path);
    SKIP_WITHOUT_CAMERA(camera, GetParam().camera);
    const CameraAddress address = parseCameraAddress(camera);
    TcpRelay relay(address.port);
    const std::wstring url = address.scheme + L"127.0.0.1:" + std::to_wstring(relay.port()) + address.path;
    meetFault(relay, settingsFor(url, GetParam().decoder));

    const std::uint64_t before = viewer().header().frameCounter;
    EXPECT_TRUE(viewer().waitForFrameAfter(before + 16, kRecoverLimitMs)) << "no frames any more";
    EXPECT_TRUE(viewer().waitForState(BridgeState::kLive, 1000));
    using Events = std::vector<std::string>;
    if (GetParam().decoder == DecoderBackend::kAutomatic)
        EXPECT_EQ(producerEvents(), (Events{kGstreamerStart, kFallback, kReconnect, kFfmpegStart}));
    else
        EXPECT_EQ(producerEvents(), (Events{kGstreamerStart, kReconnect, kGstreamerStart}));
}

constexpr auto kAuto = DecoderBackend::kAutomatic;
constexpr auto kExplicit = DecoderBackend::kGstreamer;
constexpr FaultCase kFaults[] = {
    {"RtspKilledAutomatic", Fault::kKilled, kRtsp, L"stream2", kAuto},
    {"RtspFrozenAutomatic", Fault::kFrozen, kRtsp, L"stream2", kAuto},
    {"RtspNotFoundAutomatic", Fault::kNotFound, kRtsp, L"stream2", kAuto},
    {"RtspRefusedAutomatic", Fault::kRefused, kRtsp, L"stream2", kAuto},
    {"RtspKilledExplicit", Fault::kKilled, kRtsp, L"stream2", kExplicit},
    {"RtspFrozenExplicit", Fault::kFrozen, kRtsp, L"stream2", kExplicit},
    {"RtspNotFoundExplicit", Fault::kNotFound, kRtsp, L"stream2", kExplicit},
    {"RtspRefusedExplicit", Fault::kRefused, kRtsp, L"stream2", kExplicit},
    {"HttpKilledAutomatic", Fault::kKilled, kHttp, L"live.ts", kAuto},
    {"HttpFrozenAutomatic", Fault::kFrozen, kHttp, L"live.ts", kAuto},
    {"HttpNotFoundAutomatic", Fault::kNotFound, kHttp, L"live.ts", kAuto},
    {"HttpRefusedAutomatic", Fault::kRefused, kHttp, L"live.ts", kAuto},
};
INSTANTIATE_TEST_SUITE_P(Real, ReleaseTimedGstreamerFault, ::testing::ValuesIn(kFaults),
                         [](const auto& fault) { return std::string(fault.param.name); });

// Pictures without timestamps: no frame ever comes out of the pipeline, and no error either.
TEST_F(ReleaseTimedGstreamerBroker, MultipartMjpegIsTakenOverByFfmpegAfterTheFirstFramesDeadline) {
    const std::wstring url = cameraUrl(kHttp, L"live.mjpeg");
    SKIP_WITHOUT_CAMERA(url, kHttp);
    BrokerSettings settings = settingsFor(url, DecoderBackend::kAutomatic);
    settings.firstFrameDeadlineMs = 2000;
    startBroker(settings);
    EXPECT_TRUE(viewer().waitForState(BridgeState::kLive, kRecoverLimitMs));
    EXPECT_EQ(broker().countEvents(kGstreamerStart), 1u);
    EXPECT_EQ(broker().countEvents(kFallback), 1u);
    EXPECT_GE(broker().countEvents(kFfmpegStart), 1u);
}

// The end of a file is the end of a stream, and the start after it plays it again.
TEST_F(ReleaseTimedGstreamerBroker, PlaysAnEndedClipAgain) {
    const std::wstring url = cameraUrl(kHttp, L"clip.mp4");
    SKIP_WITHOUT_CAMERA(url, kHttp);
    startLive(settingsFor(url, DecoderBackend::kGstreamer));
    ASSERT_TRUE(broker().waitForEvent(kReconnect, kRecoverLimitMs));
    EXPECT_TRUE(waitUntil([&] { return broker().countEvents(kGstreamerStart) == 2; }, kRecoverLimitMs));
    EXPECT_TRUE(viewer().waitForState(BridgeState::kLive, kLiveLimitMs));
    EXPECT_EQ(broker().countEvents(kFfmpegStart), 0u);
}

// --- The end ---

TEST_F(ReleaseTimedGstreamerBroker, StopsThePipelineAfterTheLastLease) {
    const std::wstring url = cameraUrl(kRtsp, L"stream2");
    SKIP_WITHOUT_CAMERA(url, kRtsp);
    startLive(settingsFor(url, DecoderBackend::kGstreamer));
    viewer().releaseLease();
    EXPECT_TRUE(broker().waitForEvent("LAST_DEMAND_RELEASED_PRODUCER_STOP"));
    EXPECT_TRUE(viewer().waitForState(BridgeState::kStopped));
}

TEST_F(TimedGstreamerBroker, EndsCleanlyWhileAPipelinePlays) {
    const std::wstring url = cameraUrl(kRtsp, L"stream2");
    SKIP_WITHOUT_CAMERA(url, kRtsp);
    startLive(settingsFor(url, DecoderBackend::kGstreamer));
    PostMessageW(broker().window(), WM_ENDSESSION, TRUE, 0);
    PostMessageW(broker().window(), WM_QUIT, 0, 0);
    EXPECT_EQ(broker().waitForExit(10'000), 0u);
    EXPECT_EQ(broker().events().back(), "APP_EXIT_CLEAN");
}

TEST_F(ReleaseTimedGstreamerBroker, LogsNoAddress) {
    const std::wstring url = cameraUrl(kRtsp, L"404");
    SKIP_WITHOUT_CAMERA(url, kRtsp);
    startBroker(settingsFor(url, DecoderBackend::kGstreamer));
    ASSERT_TRUE(broker().waitForEvent(kReconnect, kRecoverLimitMs));
    for (const auto& entry : fs::directory_iterator(broker().dataFolder())) {
        const std::wstring name = entry.path().filename().wstring();
        if (name == L"app.lock" || !entry.is_regular_file())
            continue;
        EXPECT_EQ(readFile(entry.path().wstring()).find("127.0.0.1"), std::string::npos) << entry.path();
    }
}

}  // namespace
}  // namespace vextra::test
