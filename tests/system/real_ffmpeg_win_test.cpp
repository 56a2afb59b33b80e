// The decoder that ships, on the broker's exact command line. The environment says what there is:
//
//   VEXTRA_FFMPEG        the ffmpeg.exe to ship, as a path of Windows or of the host
//   VEXTRA_CAMERA_RTSP   the addresses that tools/camera/local_camera.py prints:
//   VEXTRA_CAMERA_RTSPS  rtsp://127.0.0.1:PORT/ and so on
//   VEXTRA_CAMERA_HTTP
//   VEXTRA_CAMERA_HTTPS
//
// A test is skipped only when the variable that it needs is not set.
#include "tcp_relay_win.h"  // before windows.h

#include <ws2tcpip.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "bridge/bridge_layout.h"
#include "producers/ffmpeg_process_win.h"
#include "services_win.h"
#include "stub_decoder/frame_collector.h"
#include "stub_decoder/stub_install_win.h"

namespace vextra::test {
namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

constexpr milliseconds kFirstFrameLimit{15'000};
constexpr milliseconds kRateTime{5000};
constexpr milliseconds kSettleTime{1000};
// What a server or a relay held back when the stream began follows at once, as fast as it can be decoded.
constexpr milliseconds kNetworkSettleTime{3000};
// A decoder that learned the rate of the pictures first, and what sound comes with them, took 1 s of an RTSP
// camera and 5 s of a transport stream.
constexpr milliseconds kAtOnce{1000};
// A server that never answers is given up after 5 s.
constexpr milliseconds kBeforeSilenceIsGivenUp{4000};
constexpr FfmpegInput kSynthetic{.syntheticTest = true, .url = {}, .transport = RtspTransport::kTcp};

milliseconds since(Clock::time_point begin) {
    return std::chrono::duration_cast<milliseconds>(Clock::now() - begin);
}

class RealFfmpegTest : public ::testing::Test {
protected:
    void SetUp() override {
        const std::optional<std::wstring> program = variable(L"VEXTRA_FFMPEG");
        if (!program)
            GTEST_SKIP() << "VEXTRA_FFMPEG names no ffmpeg.exe";
        install_.emplace(L"Câmera Virtual", windowsPath(*program));
        ASSERT_FALSE(HasFailure());
        decoder_.emplace(install_->root(),
                         ProducerReports{[](std::wstring_view) {}, [](EventCode, std::int32_t) {},
                                         [](std::wstring_view) {}});
    }

    FrameCollector start(const FfmpegInput& input) {
        EXPECT_TRUE(decoder_->start(input));
        return FrameCollector(
            [this](std::byte* buffer, std::uint32_t bytes) { return decoder_->read(buffer, bytes); });
    }

    // Counts what comes in 5 s, once what the decoder held back while it examined the stream is through.
    void expectSixteenFramesPerSecond(const FfmpegInput& input, milliseconds settleTime) {
        const auto begin = Clock::now();
        FrameCollector frames = start(input);
        frames.collect(1, kFirstFrameLimit);
        ASSERT_EQ(frames.wholeFrames(), 1u) << "no first frame within " << since(begin).count() << " ms";
        const milliseconds firstFrame = since(begin);
        frames.collect(kUnlimited, settleTime);
        const std::size_t before = frames.wholeFrames();
        const auto rateBegin = Clock::now();
        frames.collect(kUnlimited, kRateTime);
        const double seconds = std::chrono::duration<double>(Clock::now() - rateBegin).count();
        const double rate = static_cast<double>(frames.wholeFrames() - before) / seconds;
        std::printf(
            "first frame after %lld ms, %zu frames in the first %lld ms, then %.2f frames per second\n",
            static_cast<long long>(firstFrame.count()), before, static_cast<long long>(settleTime.count()),
            rate);
        EXPECT_NEAR(rate, kFramesPerSecond, 0.5);
    }

    void expectFirstFrame(const FfmpegInput& input, milliseconds limit) {
        const auto begin = Clock::now();
        FrameCollector frames = start(input);
        frames.collect(1, kFirstFrameLimit);
        const milliseconds lasted = since(begin);
        std::printf("first frame after %lld ms\n", static_cast<long long>(lasted.count()));
        ASSERT_EQ(frames.wholeFrames(), 1u);
        EXPECT_LE(lasted, limit);
    }

    static constexpr std::size_t kUnlimited = static_cast<std::size_t>(-1);

    std::optional<DecoderInstall> install_;
    std::optional<FfmpegProcess> decoder_;
};
using TimedRealFfmpeg = RealFfmpegTest;
using ReleaseTimedRealFfmpeg = RealFfmpegTest;

// ---- the synthetic test picture ----

TEST_F(ReleaseTimedRealFfmpeg, SyntheticTestRunsAtSixteenFramesPerSecond) {
    expectSixteenFramesPerSecond(kSynthetic, kSettleTime);
}

TEST_F(ReleaseTimedRealFfmpeg, SyntheticTestMoves) {
    FrameCollector frames = start(kSynthetic);
    frames.collect(1, kFirstFrameLimit);
    const std::vector<std::byte> first = frames.lastFrame();
    frames.collect(9, kFirstFrameLimit);
    ASSERT_EQ(frames.wholeFrames(), 9u);
    EXPECT_NE(frames.lastFrame(), first);
}

TEST_F(TimedRealFfmpeg, StopEndsTheDecoderInTheMiddleOfItsWork) {
    FrameCollector frames = start(kSynthetic);
    frames.collect(1, kFirstFrameLimit);
    const FollowedProcess ffmpeg(decoder_->processId());
    ASSERT_TRUE(ffmpeg.runs());
    decoder_->stop();
    EXPECT_FALSE(ffmpeg.runs());
}

// ---- sources that say nothing ----

// Takes a connection and never answers.
class SilentServer {
public:
    SilentServer() {
        WSADATA data{};
        EXPECT_EQ(WSAStartup(MAKEWORD(2, 2), &data), 0);
        listener_ = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        int bytes = sizeof address;
        EXPECT_EQ(bind(listener_, reinterpret_cast<sockaddr*>(&address), bytes), 0);
        EXPECT_EQ(listen(listener_, 4), 0);
        EXPECT_EQ(getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &bytes), 0);
        port_ = ntohs(address.sin_port);
    }
    ~SilentServer() {
        closesocket(client_);
        closesocket(listener_);
        WSACleanup();
    }
    SilentServer(const SilentServer&) = delete;
    SilentServer& operator=(const SilentServer&) = delete;

    std::wstring address() const { return L"127.0.0.1:" + std::to_wstring(port_); }

    // Waits for the first client's request and answers its first line; empty when none comes in time.
    std::string firstRequestLine() {
        if (!becomesReadable(listener_))
            return {};
        client_ = accept(listener_, nullptr, nullptr);
        char request[1024];
        const int taken = becomesReadable(client_) ? recv(client_, request, sizeof request, 0) : 0;
        const std::string text(request, static_cast<std::size_t>(std::max(taken, 0)));
        return text.substr(0, text.find('\r'));
    }

private:
    static bool becomesReadable(SOCKET which) {
        WSAPOLLFD poll{which, POLLRDNORM, 0};
        return WSAPoll(&poll, 1, static_cast<int>(kPatience.count())) == 1;
    }

    SOCKET listener_ = INVALID_SOCKET;
    SOCKET client_ = INVALID_SOCKET;
    std::uint16_t port_ = 0;
};

class SilentSourceTest : public RealFfmpegTest {
protected:
    // -rw_timeout is 5 s; the decoder may need a moment to go.
    void expectEndAfterFiveSeconds(const std::wstring& scheme, const std::string& requestLine) {
        SilentServer server;
        const std::wstring url = scheme + server.address() + L"/live";
        FrameCollector frames = start({.syntheticTest = false, .url = url});
        ASSERT_EQ(server.firstRequestLine().substr(0, requestLine.size()), requestLine);
        const auto silentSince = Clock::now();
        frames.collect(1, milliseconds(12'000));
        const milliseconds lasted = since(silentSince);
        std::printf("ended after %lld ms of silence\n", static_cast<long long>(lasted.count()));
        EXPECT_TRUE(frames.ended());
        EXPECT_GE(lasted, milliseconds(4000));
        EXPECT_LE(lasted, milliseconds(8000));
    }
};
using ReleaseTimedSilentSource = SilentSourceTest;

TEST_F(ReleaseTimedSilentSource, SilentRtspServerEndsTheDecoderAfterFiveSeconds) {
    expectEndAfterFiveSeconds(L"rtsp://", "OPTIONS rtsp://");
}

TEST_F(ReleaseTimedSilentSource, SilentHttpServerEndsTheDecoderAfterFiveSeconds) {
    expectEndAfterFiveSeconds(L"http://", "GET /live");
}

// Windows tries a refused connection again for 2 s; a silent one would be given up after 5.
TEST_F(ReleaseTimedRealFfmpeg, ClosedPortEndsTheDecoderBeforeASilentOneWould) {
    std::wstring url;
    {
        const SilentServer server;
        url = L"rtsp://" + server.address() + L"/live";
    }
    const auto begin = Clock::now();
    FrameCollector frames = start({.syntheticTest = false, .url = url});
    frames.collect(1, kFirstFrameLimit);
    EXPECT_TRUE(frames.ended());
    EXPECT_LE(since(begin), kBeforeSilenceIsGivenUp);
}

// ---- the local camera ----

class CameraTest : public RealFfmpegTest {
protected:
    explicit CameraTest(std::wstring variableName) : variableName_(std::move(variableName)) {}

    void SetUp() override {
        RealFfmpegTest::SetUp();
        if (IsSkipped())
            return;
        const std::optional<std::wstring> address = variable(variableName_.c_str());
        if (!address)
            GTEST_SKIP() << std::filesystem::path(variableName_).string() << " names no camera";
        camera_ = *address;
    }

    void expectFrames(const std::wstring& url) {
        FrameCollector frames = start({.syntheticTest = false, .url = url});
        frames.collect(4, kFirstFrameLimit);
        EXPECT_EQ(frames.wholeFrames(), 4u);
    }

    std::wstring camera_;  // ends in a slash

private:
    std::wstring variableName_;
};

class RtspCameraTest : public CameraTest {
protected:
    RtspCameraTest() : CameraTest(L"VEXTRA_CAMERA_RTSP") {}
};
using TimedRtspCamera = RtspCameraTest;
using FullRtspCamera = RtspCameraTest;
using ReleaseTimedRtspCamera = RtspCameraTest;
class RtspsCameraTest : public CameraTest {
protected:
    RtspsCameraTest() : CameraTest(L"VEXTRA_CAMERA_RTSPS") {}
};
using ReleaseTimedRtspsCamera = RtspsCameraTest;
class HttpCameraTest : public CameraTest {
protected:
    HttpCameraTest() : CameraTest(L"VEXTRA_CAMERA_HTTP") {}
};
using ReleaseTimedHttpCamera = HttpCameraTest;
class HttpsCameraTest : public CameraTest {
protected:
    HttpsCameraTest() : CameraTest(L"VEXTRA_CAMERA_HTTPS") {}
};
using FullHttpsCamera = HttpsCameraTest;
using ReleaseTimedHttpsCamera = HttpsCameraTest;

TEST_F(ReleaseTimedRtspCamera, RunsOverTcpAtSixteenFramesPerSecond) {
    const std::wstring url = camera_ + L"stream1";
    expectSixteenFramesPerSecond({.syntheticTest = false, .url = url, .transport = RtspTransport::kTcp},
                                 kNetworkSettleTime);
}

TEST_F(ReleaseTimedRtspCamera, RunsOverUdpAtSixteenFramesPerSecond) {
    const std::wstring url = camera_ + L"stream1";
    expectSixteenFramesPerSecond({.syntheticTest = false, .url = url, .transport = RtspTransport::kUdp},
                                 kNetworkSettleTime);
}

TEST_F(ReleaseTimedRtspCamera, ShowsItsFirstPictureAtOnce) {
    const std::wstring url = camera_ + L"stream1";
    expectFirstFrame({.syntheticTest = false, .url = url}, kAtOnce);
}

TEST_F(ReleaseTimedRtspCamera, IsNotKeptWaitingBySoundThatNeverComes) {
    const std::wstring url = camera_ + L"mute";
    expectFirstFrame({.syntheticTest = false, .url = url}, kAtOnce);
}

// What is live is never held back by a rate: what a network kept to itself is over as soon as it can be
// decoded.
TEST_F(ReleaseTimedRtspCamera, HasCaughtUpASecondAfterAStallOfOne) {
    constexpr milliseconds kStall{1000};
    constexpr std::size_t kFramesOfBoth = 2 * kFramesPerSecond;
    constexpr std::size_t kSomeFrames = 4;
    const CameraAddress camera = parseCameraAddress(camera_);
    TcpRelay relay(camera.port);
    const std::wstring url = camera.scheme + L"127.0.0.1:" + std::to_wstring(relay.port()) + L"/stream1";
    FrameCollector frames = start({.syntheticTest = false, .url = url});
    frames.collect(1, kFirstFrameLimit);
    frames.collect(kUnlimited, kNetworkSettleTime);
    relay.freezeExisting();
    frames.collect(kUnlimited, kStall);
    relay.thawExisting();

    const std::size_t before = frames.wholeFrames();
    frames.collect(kUnlimited, milliseconds(1000));
    const std::size_t caughtUp = frames.wholeFrames() - before;
    frames.collect(kUnlimited, milliseconds(2000));
    const std::size_t after = frames.wholeFrames() - before - caughtUp;
    std::printf("%zu frames in the second after the stall, %zu in the two after that\n", caughtUp, after);
    EXPECT_GE(caughtUp, kFramesOfBoth - kSomeFrames);
    EXPECT_NEAR(static_cast<double>(after), 2.0 * kFramesPerSecond, kSomeFrames);
}

TEST_F(FullRtspCamera, SmallStreamRunsAtSixteenFramesPerSecond) {
    const std::wstring url = camera_ + L"stream2";
    expectSixteenFramesPerSecond({.syntheticTest = false, .url = url}, kNetworkSettleTime);
}

TEST_F(ReleaseTimedRtspCamera, StreamThatIsNotThereEndsTheDecoder) {
    const std::wstring url = camera_ + L"404";
    FrameCollector frames = start({.syntheticTest = false, .url = url});
    frames.collect(1, kFirstFrameLimit);
    EXPECT_TRUE(frames.ended());
}

// Blue, green, red, alpha, and the rows from the top: /bars shows seven bars at 75 % above a white stripe.
TEST_F(TimedRtspCamera, ColoursAndOrientationAreTheCameras) {
    struct Colour {
        const char* name;
        std::array<int, 4> bgra;
    };
    constexpr Colour kBars[] = {{"white", {191, 191, 191, 255}}, {"yellow", {0, 191, 191, 255}},
                                {"cyan", {191, 191, 0, 255}},    {"green", {0, 191, 0, 255}},
                                {"magenta", {191, 0, 191, 255}}, {"red", {0, 0, 191, 255}},
                                {"blue", {191, 0, 0, 255}}};
    constexpr std::uint32_t kBarsRow = 200;
    constexpr std::uint32_t kStripeRow = 630;
    constexpr int kTolerance = 8;
    const std::wstring url = camera_ + L"bars";
    FrameCollector frames = start({.syntheticTest = false, .url = url});
    frames.collect(4, kFirstFrameLimit);
    ASSERT_EQ(frames.wholeFrames(), 4u);
    const auto expectPixel = [&](std::uint32_t x, std::uint32_t y, const Colour& colour) {
        for (std::uint32_t channel = 0; channel < 4; ++channel)
            EXPECT_NEAR(std::to_integer<int>(frames.lastFrame()[y * kFrameStrideBytes + x * 4 + channel]),
                        colour.bgra[channel], kTolerance)
                << colour.name << ", channel " << channel << " at " << x << ", " << y;
    };
    for (std::uint32_t i = 0; i < 7; ++i)
        expectPixel((2 * i + 1) * kFrameWidthPx / 14, kBarsRow, kBars[i]);
    expectPixel(kFrameWidthPx / 2, kStripeRow, {"the stripe", {255, 255, 255, 255}});
}

TEST_F(ReleaseTimedRtspsCamera, RunsAtSixteenFramesPerSecond) {
    const std::wstring url = camera_ + L"stream1";
    expectSixteenFramesPerSecond({.syntheticTest = false, .url = url}, kNetworkSettleTime);
}

// ---- schemes in capitals, as the settings take them ----

std::wstring withSchemeInCapitals(std::wstring url) {
    for (std::size_t i = 0; i < url.size() && url[i] != L':'; ++i)
        url[i] = static_cast<wchar_t>(url[i] - L'a' + L'A');
    return url;
}

TEST_F(ReleaseTimedRtspCamera, PlaysWithItsSchemeInCapitals) {
    expectFrames(withSchemeInCapitals(camera_) + L"stream2");
}

TEST_F(ReleaseTimedRtspsCamera, PlaysWithItsSchemeInCapitals) {
    expectFrames(withSchemeInCapitals(camera_) + L"stream2");
}

TEST_F(ReleaseTimedHttpCamera, PlaysWithItsSchemeInCapitals) {
    expectFrames(withSchemeInCapitals(camera_) + L"clip.mp4");
}

// Its pieces' addresses are made from the playlist's.
TEST_F(ReleaseTimedHttpCamera, PlaysAPlaylistWithItsSchemeInCapitals) {
    expectFrames(withSchemeInCapitals(camera_) + L"hls/index.m3u8");
}

TEST_F(ReleaseTimedHttpsCamera, PlaysWithItsSchemeInCapitals) {
    expectFrames(withSchemeInCapitals(camera_) + L"clip.mp4");
}

// ---- over HTTP ----

TEST_F(ReleaseTimedHttpCamera, TransportStreamRunsAtSixteenFramesPerSecond) {
    const std::wstring url = camera_ + L"live.ts";
    expectSixteenFramesPerSecond({.syntheticTest = false, .url = url}, kNetworkSettleTime);
}

TEST_F(ReleaseTimedHttpCamera, TransportStreamShowsItsFirstPictureAtOnce) {
    const std::wstring url = camera_ + L"live.ts";
    expectFirstFrame({.syntheticTest = false, .url = url}, kAtOnce);
}

TEST_F(ReleaseTimedHttpCamera, IsNotKeptWaitingBySoundThatNeverComes) {
    const std::wstring url = camera_ + L"mute.ts";
    expectFirstFrame({.syntheticTest = false, .url = url}, kAtOnce);
}

TEST_F(ReleaseTimedHttpCamera, IsNotKeptWaitingBySoundInAPlaylistThatNeverComes) {
    const std::wstring url = camera_ + L"mute/index.m3u8";
    expectFirstFrame({.syntheticTest = false, .url = url}, kBeforeSilenceIsGivenUp);
}

// One picture a second: the second one would come after the limit.
TEST_F(ReleaseTimedHttpCamera, ShowsTheFirstPictureBeforeThereIsASecond) {
    const std::wstring url = camera_ + L"mjpeg/1";
    expectFirstFrame({.syntheticTest = false, .url = url}, kAtOnce);
}

// Three seconds of it come before the first picture.
TEST_F(ReleaseTimedHttpCamera, DoesNotFillUpForSoundThatCameFirst) {
    constexpr std::size_t kAFewMoreThanASecondsFrames = 24;
    const std::wstring url = camera_ + L"sound-first.ts";
    FrameCollector frames = start({.syntheticTest = false, .url = url});
    frames.collect(1, kFirstFrameLimit);
    ASSERT_EQ(frames.wholeFrames(), 1u);
    frames.collect(kUnlimited, milliseconds(1000));
    std::printf("%zu frames in the first second\n", frames.wholeFrames());
    EXPECT_LE(frames.wholeFrames(), kAFewMoreThanASecondsFrames);
}

// Its server sends it as fast as it is read.
TEST_F(ReleaseTimedHttpCamera, RecordingRunsAtItsOwnRate) {
    const std::wstring url = camera_ + L"recording.mkv";
    expectSixteenFramesPerSecond({.syntheticTest = false, .url = url}, kSettleTime);
}

TEST_F(ReleaseTimedHttpCamera, PlaylistWithAnEndRunsAtItsOwnRate) {
    const std::wstring url = camera_ + L"ended/index.m3u8";
    expectSixteenFramesPerSecond({.syntheticTest = false, .url = url}, kSettleTime);
}

// Ten pictures a second, which nothing in the stream tells.
TEST_F(ReleaseTimedHttpCamera, MultipartPicturesRunByTheirArrival) {
    const std::wstring url = camera_ + L"mjpeg/10";
    expectSixteenFramesPerSecond({.syntheticTest = false, .url = url}, kNetworkSettleTime);
}

TEST_F(FullHttpsCamera, TransportStreamRunsAtSixteenFramesPerSecond) {
    const std::wstring url = camera_ + L"live.ts";
    expectSixteenFramesPerSecond({.syntheticTest = false, .url = url}, kNetworkSettleTime);
}

}  // namespace
}  // namespace vextra::test
