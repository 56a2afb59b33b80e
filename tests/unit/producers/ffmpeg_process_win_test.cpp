#include "producers/ffmpeg_process.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <numeric>
#include <optional>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "bridge/bridge_layout.h"
#include "stub_decoder/frame_collector.h"
#include "stub_decoder/stub_install_win.h"

namespace vextra::test {
namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

constexpr milliseconds kLongestStop{3500};
constexpr FfmpegInput kSynthetic{.syntheticTest = true, .url = {}, .transport = RtspTransport::kTcp};

std::vector<int> countingFromZero(std::size_t count) {
    std::vector<int> numbers(count);
    std::iota(numbers.begin(), numbers.end(), 0);
    return numbers;
}

milliseconds durationOf(const std::function<void()>& action) {
    const auto begin = Clock::now();
    action();
    return std::chrono::duration_cast<milliseconds>(Clock::now() - begin);
}

bool runsUnderWine() {
    return GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "wine_get_version") != nullptr;
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
                [this](EventCode code, std::int32_t value) { events.emplace_back(code, value); }};
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

// ---- what the child is given ----

TEST_F(FfmpegProcessTest, ChildIsGivenTheWholeCommandLine) {
    install_.behave("then=hang");
    ASSERT_TRUE(start({.syntheticTest = false, .url = L"rtsp://10.0.0.1:554/live?a=1&b=2"}));
    EXPECT_EQ(
        install_.record().text("commandLine"),
        L"\"" + install_.decoderPath() +
            L"\" -hide_banner -loglevel error -nostdin -threads 2 -rtsp_transport tcp -rw_timeout 5000000 "
            L"-i \"rtsp://10.0.0.1:554/live?a=1&b=2\" -an -sn -dn -vf "
            L"scale=1280:720:force_original_aspect_ratio=decrease,pad=1280:720:(ow-iw)/2:(oh-ih)/2,fps=16 "
            L"-pix_fmt bgra -threads 2 -filter_threads 1 -f rawvideo pipe:1");
}

struct UrlCase {
    const char* name;
    const wchar_t* url;
};
class FfmpegProcessUrlTest : public FfmpegProcessTest, public ::testing::WithParamInterface<UrlCase> {};

TEST_P(FfmpegProcessUrlTest, ReachesTheChildAsOneUnchangedArgument) {
    install_.behave("then=hang");
    ASSERT_TRUE(start({.syntheticTest = false, .url = GetParam().url}));
    EXPECT_EQ(install_.record().argumentAfter(L"-i"), GetParam().url);
}

INSTANTIATE_TEST_SUITE_P(Awkward, FfmpegProcessUrlTest,
                         ::testing::Values(UrlCase{"Quote", L"http://h/a\"b"}, UrlCase{"OnlyAQuote", L"\""},
                                           UrlCase{"TwoQuotes", L"http://h/\"\"x\"\""},
                                           UrlCase{"BackslashAndQuote", L"http://h/a\\\"b"},
                                           UrlCase{"BackslashesAndQuote", L"http://h/a\\\\\\\" -y C:\\x"},
                                           UrlCase{"BackslashesInside", L"http://h\\a\\\\b"},
                                           UrlCase{"BackslashAtTheEnd", L"http://h/a\\"},
                                           UrlCase{"BackslashesAtTheEnd", L"http://h/a b\\\\\\"},
                                           UrlCase{"Spaces", L"http://h/ a  b "},
                                           UrlCase{"Tab", L"http://h/a\tb"},
                                           UrlCase{"Accents", L"rtsp://câmera/são joão • 日本 \U0001F4F7"},
                                           UrlCase{"ShellCharacters", L"http://h/?a=%PATH%&b=^|<>*'$!"},
                                           UrlCase{"Empty", L""}),
                         [](const auto& testCase) { return testCase.param.name; });

TEST_F(FfmpegProcessTest, UrlOfTheLongestLengthReachesTheChild) {
    const std::wstring url = L"http://h/" + std::wstring(8183, L'x');
    install_.behave("then=hang");
    ASSERT_TRUE(start({.syntheticTest = false, .url = url}));
    EXPECT_EQ(install_.record().argumentAfter(L"-i"), url);
}

struct RootCase {
    const char* name;
    const wchar_t* root;
};
class FfmpegProcessRootTest : public FfmpegProcessTest, public ::testing::WithParamInterface<RootCase> {
protected:
    FfmpegProcessRootTest() : FfmpegProcessTest(GetParam().root) {}
};

TEST_P(FfmpegProcessRootTest, ChildSeesItsExecutablePathUnchanged) {
    install_.behave("then=hang");
    ASSERT_TRUE(start(kSynthetic));
    EXPECT_EQ(install_.record().text("argument0"), install_.decoderPath());
}

TEST_P(FfmpegProcessRootTest, IsTheChildsWorkingDirectory) {
    install_.behave("then=hang");
    ASSERT_TRUE(start(kSynthetic));
    EXPECT_EQ(install_.record().text("workingDirectory"), install_.root());
}

INSTANTIATE_TEST_SUITE_P(Awkward, FfmpegProcessRootTest,
                         ::testing::Values(RootCase{"Spaces", L"Camera Virtual  MF"},
                                           RootCase{"Accents", L"Câmera São João • 日本 \U0001F4F7"},
                                           RootCase{"EndsInAParenthesis", L"install (x64)"},
                                           RootCase{"EndsInAnApostrophe", L"it's'"},
                                           RootCase{"EndsInAPercentSign", L"%TEMP%"},
                                           RootCase{"ShellCharacters", L"a & b ^ ; = , !"},
                                           RootCase{"LooksLikeAnExecutable", L"install.exe"}),
                         [](const auto& testCase) { return testCase.param.name; });

TEST_F(FfmpegProcessTest, InstallRootMayEndInABackslash) {
    install_.behave("then=hang");
    FfmpegProcess decoder(install_.root() + L"\\", reports_.sink());
    ASSERT_TRUE(decoder.start(kSynthetic));
    EXPECT_EQ(install_.record().text("argument0"), install_.root() + L"\\\\deps\\ffmpeg.exe");
}

TEST_F(FfmpegProcessTest, ChildHasNothingAsStandardInput) {
    EXPECT_EQ(startStub("then=hang").text("standardInput"), L"nul");
}

TEST_F(FfmpegProcessTest, ChildHasAPipeAsStandardOutput) {
    EXPECT_EQ(startStub("then=hang").text("standardOutput"), L"pipe");
}

TEST_F(FfmpegProcessTest, ChildHasAPipeAsStandardError) {
    EXPECT_EQ(startStub("then=hang").text("standardError"), L"pipe");
}

// An event that every child inherits that is not kept from it.
class InheritableEvent {
public:
    InheritableEvent() {
        SECURITY_ATTRIBUTES inheritable{sizeof inheritable, nullptr, TRUE};
        event_.reset(CreateEventW(&inheritable, TRUE, FALSE, nullptr));
    }
    std::string probe() const {
        return "then=hang\nprobeEvent=" + std::to_string(HandleToULong(event_.get()));
    }
    bool wasSet() const { return WaitForSingleObject(event_.get(), 0) == WAIT_OBJECT_0; }

private:
    UniqueHandle event_;
};

TEST_F(FfmpegProcessTest, ChildInheritsNoOtherHandle) {
    const InheritableEvent event;
    startStub(event.probe());
    EXPECT_FALSE(event.wasSet());
}

TEST_F(FfmpegProcessTest, StubWouldNoticeAnotherInheritedHandle) {
    const InheritableEvent event;
    install_.behave(event.probe() + "\nthen=exit");
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION child{};
    ASSERT_TRUE(CreateProcessW(install_.decoderPath().c_str(), nullptr, nullptr, nullptr, TRUE,
                               CREATE_NO_WINDOW, nullptr, nullptr, &startup, &child));
    const UniqueHandle process(child.hProcess);
    const UniqueHandle thread(child.hThread);
    ASSERT_EQ(WaitForSingleObject(process.get(), static_cast<DWORD>(kPatience.count())), WAIT_OBJECT_0);
    EXPECT_TRUE(event.wasSet());
}

TEST_F(FfmpegProcessTest, ChildRunsAtBelowNormalPriority) {
    if (runsUnderWine())
        GTEST_SKIP() << "Wine gives every process normal priority, whatever it was started with";
    EXPECT_EQ(startStub("then=hang").number("priorityClass"), DWORD{BELOW_NORMAL_PRIORITY_CLASS});
}

// ---- what is reported ----

TEST_F(FfmpegProcessTest, StartIsLogged) {
    startStub("then=hang");
    EXPECT_EQ(reports_.events, (decltype(reports_.events){{EventCode::kFfmpegStart, 0}}));
}

TEST_F(FfmpegProcessTest, StartShowsNothing) {
    startStub("then=hang");
    EXPECT_TRUE(reports_.statusTexts.empty());
}

TEST_F(FfmpegProcessTest, ProcessIdIsTheChilds) {
    const StubRecord record = startStub("then=hang");
    EXPECT_EQ(decoder_.processId(), record.number("pid"));
}

class FfmpegMissingTest : public FfmpegProcessTest {
protected:
    FfmpegMissingTest() {
        std::filesystem::remove(install_.decoderPath());
        started_ = decoder_.start(kSynthetic);
    }
    bool started_ = true;
};

TEST_F(FfmpegMissingTest, StartFails) {
    EXPECT_FALSE(started_);
}

TEST_F(FfmpegMissingTest, UserIsToldWhatToInstall) {
    EXPECT_EQ(reports_.statusTexts,
              (std::vector<std::wstring>{L"FFmpeg ausente: instale o pacote completo (deps/ffmpeg.exe)."}));
}

TEST_F(FfmpegMissingTest, NothingIsLogged) {
    EXPECT_TRUE(reports_.events.empty());
}

TEST_F(FfmpegMissingTest, ReadSaysThatTheStreamHasEnded) {
    EXPECT_EQ(pollOnce(), -1);
}

TEST_F(FfmpegProcessTest, MissingDecoderStopsTheRunningOne) {
    const FollowedProcess first(startStub("then=hang").number("pid"));
    ASSERT_TRUE(MoveFileW(install_.decoderPath().c_str(), (install_.decoderPath() + L".away").c_str()));
    decoder_.start(kSynthetic);
    EXPECT_TRUE(first.endsWithin(milliseconds(0)));
}

// Something of the right name that is no program.
enum class NotAProgram { kText = 1, kNothing, kFolder };

class FfmpegBrokenTest : public FfmpegProcessTest, public ::testing::WithParamInterface<NotAProgram> {
protected:
    FfmpegBrokenTest() {
        const std::filesystem::path decoder = install_.decoderPath();
        std::filesystem::remove(decoder);
        switch (GetParam()) {
            case NotAProgram::kText:
                std::ofstream(decoder) << "This is no program, whatever its name says.\n";
                break;
            case NotAProgram::kNothing: std::ofstream{decoder}; break;
            case NotAProgram::kFolder: std::filesystem::create_directory(decoder); break;
        }
    }
};

TEST_P(FfmpegBrokenTest, StartFails) {
    EXPECT_FALSE(decoder_.start(kSynthetic));
}

TEST_P(FfmpegBrokenTest, FailureIsLoggedOnce) {
    decoder_.start(kSynthetic);
    ASSERT_EQ(reports_.events.size(), 1u);
    EXPECT_EQ(reports_.events[0].first, EventCode::kFfmpegLaunchFailed);
}

TEST_P(FfmpegBrokenTest, LoggedCodeIsAWindowsErrorAsAResult) {
    decoder_.start(kSynthetic);
    ASSERT_EQ(reports_.events.size(), 1u);
    const auto result = static_cast<std::uint32_t>(reports_.events[0].second);
    EXPECT_EQ(result & 0xFFFF0000u, 0x80070000u) << std::hex << result;
    EXPECT_NE(result, 0x80070000u);
}

TEST_P(FfmpegBrokenTest, NoChildIsNamed) {
    decoder_.start(kSynthetic);
    EXPECT_EQ(decoder_.processId(), 0u);
}

TEST_P(FfmpegBrokenTest, FailedStartsLeaveNoHandles) {
    decoder_.start(kSynthetic);
    const std::uint32_t before = ownHandleCount();
    for (int i = 0; i < 20; ++i)
        decoder_.start(kSynthetic);
    EXPECT_EQ(ownHandleCount(), before);
}

INSTANTIATE_TEST_SUITE_P(AsDecoder, FfmpegBrokenTest,
                         ::testing::Values(NotAProgram::kText, NotAProgram::kNothing, NotAProgram::kFolder),
                         [](const auto& testCase) -> std::string {
                             switch (testCase.param) {
                                 case NotAProgram::kText: return "TextFile";
                                 case NotAProgram::kNothing: return "EmptyFile";
                                 case NotAProgram::kFolder: return "Folder";
                             }
                             return "";
                         });

// ---- the job ----

TEST_F(FfmpegProcessTest, StopEndsTheChild) {
    const FollowedProcess child(startStub("then=hang").number("pid"));
    ASSERT_TRUE(child.runs());
    decoder_.stop();
    EXPECT_FALSE(child.runs());
}

TEST_F(FfmpegProcessTest, StopEndsWhatTheChildHasStarted) {
    const FollowedProcess grandchild(startStub("then=hang\nstartSleeper=1").number("sleeperPid"));
    ASSERT_TRUE(grandchild.runs());
    decoder_.stop();
    EXPECT_TRUE(grandchild.endsWithin(kPatience));
}

TEST_F(FfmpegProcessTest, StopEndsWhatAnEndedChildHasLeftBehind) {
    const StubRecord record = startStub("startSleeper=1\ndelayMs=200");
    const FollowedProcess grandchild(record.number("sleeperPid"));
    ASSERT_EQ(pollUntilNews(), -1);
    ASSERT_TRUE(grandchild.runs());
    decoder_.stop();
    EXPECT_TRUE(grandchild.endsWithin(kPatience));
}

TEST_F(FfmpegProcessTest, DestructionEndsTheChild) {
    install_.behave("then=hang");
    std::optional<FollowedProcess> child;
    {
        FfmpegProcess decoder(install_.root(), reports_.sink());
        ASSERT_TRUE(decoder.start(kSynthetic));
        child.emplace(decoder.processId());
    }
    EXPECT_FALSE(child->runs());
}

class KilledOwnerTest : public FfmpegProcessTest {
protected:
    // A process that owns a decoder of ours, killed as the task manager would.
    void SetUp() override {
        install_.behave("frames=endless\nstartSleeper=1");
        const std::filesystem::path owner =
            std::filesystem::path(ownPath()).replace_filename("decoder-owner.exe");
        std::wstring commandLine = L"\"" + owner.wstring() + L"\" \"" + install_.root() + L"\"";
        STARTUPINFOW startup{};
        startup.cb = sizeof startup;
        PROCESS_INFORMATION process{};
        ASSERT_TRUE(CreateProcessW(nullptr, commandLine.data(), nullptr, nullptr, FALSE, CREATE_NO_WINDOW,
                                   nullptr, nullptr, &startup, &process));
        owner_.reset(process.hProcess);
        const UniqueHandle thread(process.hThread);
        const StubRecord record = install_.record();
        child_.emplace(record.number("pid"));
        grandchild_.emplace(record.number("sleeperPid"));
        ASSERT_TRUE(child_->runs());
        ASSERT_TRUE(grandchild_->runs());
        ASSERT_TRUE(TerminateProcess(owner_.get(), 1));
    }
    void TearDown() override {
        if (owner_)
            TerminateProcess(owner_.get(), 1);
    }
    static std::wstring ownPath() {
        std::vector<wchar_t> path(32'768);
        return {path.data(), GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()))};
    }

    UniqueHandle owner_;
    std::optional<FollowedProcess> child_;
    std::optional<FollowedProcess> grandchild_;
};

TEST_F(KilledOwnerTest, ChildEnds) {
    EXPECT_TRUE(child_->endsWithin(kPatience));
}

TEST_F(KilledOwnerTest, WhatTheChildHasStartedEnds) {
    EXPECT_TRUE(grandchild_->endsWithin(kPatience));
}

// ---- reading ----

TEST_F(FfmpegProcessTest, ReadBeforeAnyStartSaysThatTheStreamHasEnded) {
    EXPECT_EQ(pollOnce(), -1);
}

TEST_F(FfmpegProcessTest, SilentChildYieldsNothing) {
    startStub("then=hang");
    for (int i = 0; i < 50; ++i)
        ASSERT_EQ(pollOnce(), 0);
}

TEST_F(FfmpegProcessTest, ReadDoesNotWaitForASilentChild) {
    startStub("then=hang");
    EXPECT_LT(durationOf([&] {
                  for (int i = 0; i < 100; ++i)
                      pollOnce();
              }),
              milliseconds(1000));
}

TEST_F(FfmpegProcessTest, ReadDoesNotWaitForTheRestOfAFrame) {
    startStub("tailBytes=5000\nthen=hang");
    EXPECT_EQ(pollUntilNews(), 5000);
}

TEST_F(FfmpegProcessTest, ReadTakesNoMoreThanTheCapacity) {
    startStub("tailBytes=5000\nthen=hang");
    ASSERT_EQ(pollUntilNews(1), 1);  // the other 4999 came with it
    EXPECT_EQ(pollOnce(1000), 1000);
}

TEST_F(FfmpegProcessTest, ReadWritesNothingBehindTheCapacity) {
    startStub("tailBytes=5000\nthen=hang");
    std::ranges::fill(buffer_, std::byte{0xAA});  // what comes are zeros
    ASSERT_EQ(pollUntilNews(1), 1);
    EXPECT_EQ(buffer_[1], std::byte{0xAA});
}

TEST_F(FfmpegProcessTest, ReadLeavesTheRestForTheNextRead) {
    startStub("tailBytes=5000\nthen=hang");
    ASSERT_EQ(pollUntilNews(1), 1);
    EXPECT_EQ(pollOnce(), 4999);
}

TEST_F(FfmpegProcessTest, FramesInOddPiecesComeWholeAndInOrder) {
    startStub("frames=6\npieceBytes=1,4095,1048577,3,65536\nthen=hang");
    FrameCollector frames = collector();
    frames.collect(6, kPatience);
    EXPECT_EQ(frames.values(), countingFromZero(6));
}

TEST_F(FfmpegProcessTest, FramesInSmallPiecesComeWholeAndInOrder) {
    startStub("frames=2\npieceBytes=4095\nthen=hang");
    FrameCollector frames = collector();
    frames.collect(2, kPatience);
    EXPECT_EQ(frames.values(), countingFromZero(2));
}

TEST_F(FfmpegProcessTest, NoneOfTooManyFramesIsLost) {
    startStub("frames=64\nthen=hang");
    FrameCollector frames = collector();
    frames.collect(64, kPatience);
    EXPECT_EQ(frames.values(), countingFromZero(64));
}

TEST_F(FfmpegProcessTest, NothingFollowsTheLastFrame) {
    startStub("frames=3\nthen=hang");
    FrameCollector frames = collector();
    frames.collect(3, kPatience);
    ASSERT_EQ(frames.wholeFrames(), 3u);
    EXPECT_EQ(frames.poll(), 0);
}

TEST_F(FfmpegProcessTest, SixteenFramesPerSecondAreKept) {
    startStub("frames=endless\nframesPerSecond=16");
    FrameCollector frames = collector();
    frames.collect(1, kPatience);
    const milliseconds sixteenMore = durationOf([&] { frames.collect(17, kPatience); });
    EXPECT_NEAR(static_cast<double>(sixteenMore.count()), 1000.0, 150.0);
}

TEST_F(FfmpegProcessTest, FloodOfMessagesDoesNotStopTheFrames) {
    startStub("frames=8\nerrorBytes=100000\nthen=hang");
    FrameCollector frames = collector();
    frames.collect(8, kPatience);
    EXPECT_EQ(frames.values(), countingFromZero(8));
}

// ---- the end of a stream ----

TEST_F(FfmpegProcessTest, ChildThatExitsAtOnceEndsTheStream) {
    startStub("exitCode=1");
    EXPECT_EQ(pollUntilNews(), -1);
}

TEST_F(FfmpegProcessTest, EndOfStreamLasts) {
    startStub("");
    ASSERT_EQ(pollUntilNews(), -1);
    EXPECT_EQ(pollOnce(), -1);
}

TEST_F(FfmpegProcessTest, ChildThatExitsAfterHalfAFrameEndsTheStream) {
    startStub("tailBytes=1843200\ndelayMs=100");
    FrameCollector frames = collector();
    frames.collect(1, kPatience);
    EXPECT_TRUE(frames.ended());
}

TEST_F(FfmpegProcessTest, HalfAFrameIsNotReportedAsAWholeOne) {
    startStub("frames=2\ntailBytes=1843200\nthen=exit");
    FrameCollector frames = collector();
    frames.collect(3, kPatience);
    EXPECT_EQ(frames.wholeFrames(), 2u);
}

TEST_F(FfmpegProcessTest, BytesOfAnEndedChildAreNotRead) {
    const FollowedProcess child(startStub("tailBytes=5000\ndelayMs=200").number("pid"));
    ASSERT_TRUE(child.endsWithin(kPatience));
    EXPECT_EQ(pollOnce(), -1);
}

TEST_F(FfmpegProcessTest, HalfAFrameAndSilenceIsNoEnd) {
    startStub("tailBytes=1843200\nthen=hang");
    FrameCollector frames = collector();
    frames.collect(1, milliseconds(500));
    EXPECT_EQ(frames.bytesOfNextFrame(), 1843200u);
    EXPECT_FALSE(frames.ended());
}

TEST_F(FfmpegProcessTest, ClosedOutputOfALivingChildEndsTheStream) {
    const FollowedProcess child(startStub("then=close\ndelayMs=200").number("pid"));
    EXPECT_EQ(pollUntilNews(), -1);
    EXPECT_TRUE(child.runs());
}

TEST_F(FfmpegProcessTest, BytesBeforeAClosedOutputAreRead) {
    startStub("frames=2\nthen=close");
    FrameCollector frames = collector();
    frames.collect(3, kPatience);
    EXPECT_EQ(frames.values(), countingFromZero(2));
}

// ---- starting and stopping ----

TEST_F(FfmpegProcessTest, StopBeforeAnyStartIsHarmless) {
    decoder_.stop();
    EXPECT_EQ(decoder_.processId(), 0u);
}

TEST_F(FfmpegProcessTest, StopTwiceIsHarmless) {
    startStub("then=hang");
    decoder_.stop();
    decoder_.stop();
    EXPECT_EQ(decoder_.processId(), 0u);
}

TEST_F(FfmpegProcessTest, StopForgetsTheChild) {
    startStub("then=hang");
    decoder_.stop();
    EXPECT_EQ(decoder_.processId(), 0u);
}

TEST_F(FfmpegProcessTest, ReadAfterStopSaysThatTheStreamHasEnded) {
    startStub("frames=endless");
    decoder_.stop();
    EXPECT_EQ(pollOnce(), -1);
}

TEST_F(FfmpegProcessTest, StopIsNotLogged) {
    startStub("then=hang");
    reports_.events.clear();
    decoder_.stop();
    EXPECT_TRUE(reports_.events.empty());
}

TEST_F(FfmpegProcessTest, StopOfASilentChildIsShort) {
    startStub("then=hang\nstartSleeper=1");
    EXPECT_LT(durationOf([&] { decoder_.stop(); }), kLongestStop);
}

TEST_F(FfmpegProcessTest, StopOfAChildThatWaitsForTheReaderIsShort) {
    startStub("frames=endless");
    std::this_thread::sleep_for(milliseconds(200));  // the pipe is full by now
    EXPECT_LT(durationOf([&] { decoder_.stop(); }), kLongestStop);
}

TEST_F(FfmpegProcessTest, StartStopsTheRunningChild) {
    const FollowedProcess first(startStub("then=hang").number("pid"));
    ASSERT_TRUE(start(kSynthetic));
    EXPECT_FALSE(first.runs());
}

TEST_F(FfmpegProcessTest, SecondStartBeginsWithAWholeFrame) {
    install_.behave("frames=endless");
    ASSERT_TRUE(start(kSynthetic));
    ASSERT_GT(pollUntilNews(), 0);
    ASSERT_TRUE(start(kSynthetic));
    FrameCollector frames = collector();
    frames.collect(3, kPatience);
    EXPECT_EQ(frames.values(), countingFromZero(3));
}

TEST_F(FfmpegProcessTest, DecoderThatFailsAtFirstCanBeStartedAgain) {
    install_.behave("failFirst=2\nexitCode=1\nframes=1\nthen=hang");
    for (int i = 0; i < 2; ++i) {
        ASSERT_TRUE(start(kSynthetic));
        ASSERT_EQ(pollUntilNews(), -1);
    }
    ASSERT_TRUE(start(kSynthetic));
    EXPECT_GT(pollUntilNews(), 0);
}

TEST_F(FfmpegProcessTest, TwoHundredStartsAndStopsLeaveNoHandles) {
    install_.behave("frames=endless");
    const auto startAndStop = [&] {
        ASSERT_TRUE(start(kSynthetic));
        pollOnce();
        decoder_.stop();
    };
    startAndStop();
    for (int attempt = 0; attempt < 5; ++attempt) {
        const int failuresBefore = failuresOfWine_;
        const std::uint32_t before = ownHandleCount();
        for (int i = 0; i < 200; ++i)
            startAndStop();
        if (failuresOfWine_ == failuresBefore) {
            EXPECT_EQ(ownHandleCount(), before);
            return;
        }
    }
    ADD_FAILURE() << "Wine failed in each of five attempts to start 200 processes";
}

}  // namespace
}  // namespace vextra::test
