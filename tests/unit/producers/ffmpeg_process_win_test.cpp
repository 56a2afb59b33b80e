// How the decoder is launched, what is reported of it, and what ends it.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <optional>

#include "ffmpeg_process_fixture_win.h"
#include "import_swap_win.h"

namespace vextra::test {
namespace {

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
    ASSERT_TRUE(startProcess([&] {
        return CreateProcessW(install_.decoderPath().c_str(), nullptr, nullptr, nullptr, TRUE,
                              CREATE_NO_WINDOW, nullptr, nullptr, &startup, &child);
    })) << "error "
        << GetLastError();
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

// As main sets it; the test program itself has the mode of the program that started it.
constexpr UINT kBrokersErrorMode = SEM_FAILCRITICALERRORS | SEM_NOOPENFILEERRORBOX;

class FfmpegErrorModeTest : public FfmpegProcessTest {
protected:
    FfmpegErrorModeTest() : before_(SetErrorMode(kBrokersErrorMode)) {}
    ~FfmpegErrorModeTest() override { SetErrorMode(before_); }

private:
    const UINT before_;
};

UINT modeAtCreation = 0;
BOOL WINAPI noteErrorMode(LPCWSTR program, LPWSTR line, SECURITY_ATTRIBUTES* process,
                          SECURITY_ATTRIBUTES* thread, BOOL inherit, DWORD flags, void* environment,
                          LPCWSTR folder, STARTUPINFOW* startup, PROCESS_INFORMATION* child) {
    modeAtCreation = GetErrorMode();
    return realFunction<decltype(CreateProcessW)>("CreateProcessW")(
        program, line, process, thread, inherit, flags, environment, folder, startup, child);
}

TEST_F(FfmpegErrorModeTest, AtTheChildsCreationIsOneInWhichNothingPutsUpABox) {
    const ImportSwap<decltype(noteErrorMode)> swap("CreateProcessW", noteErrorMode);
    startStub("then=hang");
    EXPECT_EQ(modeAtCreation, kBrokersErrorMode | SEM_NOGPFAULTERRORBOX);
}

TEST_F(FfmpegErrorModeTest, OfTheChildIsOneInWhichNothingPutsUpABox) {
    if (runsUnderWine())
        GTEST_SKIP() << "Wine's processes begin with the default error mode, whatever their parent's is";
    EXPECT_EQ(startStub("then=hang").number("errorMode"), kBrokersErrorMode | SEM_NOGPFAULTERRORBOX);
}

TEST_F(FfmpegErrorModeTest, CrashesOfOurOwnAreReportedAgainAfterAStart) {
    startStub("then=hang");
    EXPECT_EQ(GetErrorMode(), kBrokersErrorMode);
}

TEST_F(FfmpegErrorModeTest, CrashesOfOurOwnAreReportedAgainAfterAStartThatFailed) {
    const RefusedImport<decltype(CreateProcessW)> refused("CreateProcessW");
    EXPECT_FALSE(decoder_.start(kSynthetic));
    EXPECT_EQ(GetErrorMode(), kBrokersErrorMode);
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

// ---- a system that refuses ----

constexpr auto kRefused = static_cast<std::int32_t>(kRefusedResult);

class FfmpegRefusedTest : public FfmpegProcessTest {
protected:
    FfmpegRefusedTest() { install_.behave("then=hang"); }

    void expectNoStart(const std::vector<std::pair<EventCode, std::int32_t>>& events) {
        EXPECT_FALSE(decoder_.start(kSynthetic));
        EXPECT_EQ(std::exchange(reports_.events, {}), events);
        EXPECT_EQ(decoder_.processId(), 0u);
    }
    void expectLaunchFailed() { expectNoStart({{EventCode::kFfmpegLaunchFailed, kRefused}}); }
};

TEST_F(FfmpegRefusedTest, StartFailsWithoutPipes) {
    const RefusedImport<decltype(CreatePipe)> refused("CreatePipe");
    expectNoStart({});
}

int pipesLeft = 0;
BOOL WINAPI onlySomePipes(HANDLE* read, HANDLE* write, SECURITY_ATTRIBUTES* security, DWORD bytes) {
    return pipesLeft-- > 0 && realFunction<decltype(CreatePipe)>("CreatePipe")(read, write, security, bytes);
}

TEST_F(FfmpegRefusedTest, StartFailsWithOnePipeAndLeavesNoHandle) {
    const ImportSwap<decltype(onlySomePipes)> swap("CreatePipe", onlySomePipes);
    pipesLeft = 1;
    const std::uint32_t before = ownHandleCount();
    expectNoStart({});
    EXPECT_EQ(pipesLeft, -1);
    EXPECT_EQ(ownHandleCount(), before);
}

std::vector<DWORD> pipeBytes;
BOOL WINAPI notePipe(HANDLE* read, HANDLE* write, SECURITY_ATTRIBUTES* security, DWORD bytes) {
    pipeBytes.push_back(bytes);
    return realFunction<decltype(CreatePipe)>("CreatePipe")(read, write, security, bytes);
}

TEST_F(FfmpegProcessTest, OutputHasAPipeOfAMebibyteAndMessagesOneOfTheUsualSize) {
    const ImportSwap<decltype(notePipe)> swap("CreatePipe", notePipe);
    pipeBytes.clear();
    startStub("then=hang");
    EXPECT_EQ(pipeBytes, (std::vector<DWORD>{0x100000, 0}));
}

// The child would inherit no standard input, and its list of handles would hold one that is none.
HANDLE WINAPI noNothing(LPCWSTR, DWORD, DWORD, SECURITY_ATTRIBUTES*, DWORD, DWORD, HANDLE) {
    SetLastError(kRefusedError);
    return INVALID_HANDLE_VALUE;
}

TEST_F(FfmpegRefusedTest, StartFailsWithoutTheNullDevice) {
    const ImportSwap<decltype(noNothing)> swap("CreateFileW", noNothing);
    expectLaunchFailed();
}

// Without the list the child would inherit whatever can be inherited.
TEST_F(FfmpegRefusedTest, StartFailsWithoutTheListOfInheritedHandles) {
    {
        const RefusedImport<decltype(InitializeProcThreadAttributeList)> refused(
            "InitializeProcThreadAttributeList");
        expectLaunchFailed();
    }
    const RefusedImport<decltype(UpdateProcThreadAttribute)> refused("UpdateProcThreadAttribute");
    expectLaunchFailed();
}

// Without the job the child would outlive a broker that is killed.
TEST_F(FfmpegRefusedTest, StartFailsWithoutAJobThatEndsTheChild) {
    {
        const RefusedImport<decltype(CreateJobObjectW)> refused("CreateJobObjectW");
        expectLaunchFailed();
    }
    const RefusedImport<decltype(SetInformationJobObject)> refused("SetInformationJobObject");
    expectLaunchFailed();
}

std::wstring workingFolder;
BOOL WINAPI noteWorkingFolder(LPCWSTR, LPWSTR, SECURITY_ATTRIBUTES*, SECURITY_ATTRIBUTES*, BOOL, DWORD,
                              LPVOID, LPCWSTR folder, STARTUPINFOW*, PROCESS_INFORMATION*) {
    workingFolder = folder;
    return FALSE;
}

// "C:" by itself is the current folder of that drive, whatever that is.
TEST_F(FfmpegRefusedTest, TheWorkingFolderInTheRootOfADriveIsThatRoot) {
    const ImportSwap<decltype(GetFileAttributesW)> installed("GetFileAttributesW",
                                                             [](LPCWSTR) -> DWORD { return 0; });
    const ImportSwap<decltype(noteWorkingFolder)> swap("CreateProcessW", noteWorkingFolder);
    FfmpegProcess decoder(L"C:", reports_.sink());
    EXPECT_FALSE(decoder.start(kSynthetic));
    EXPECT_EQ(workingFolder, L"C:\\");
}

std::optional<FollowedProcess> refusedChild;
BOOL WINAPI noteAndRefuse(HANDLE, HANDLE process) {
    refusedChild.emplace(GetProcessId(process));
    SetLastError(kRefusedError);
    return FALSE;
}

TEST_F(FfmpegRefusedTest, AChildThatDoesNotGetIntoTheJobIsEnded) {
    const ImportSwap<decltype(noteAndRefuse)> swap("AssignProcessToJobObject", noteAndRefuse);
    expectNoStart({{EventCode::kFfmpegJobAssignFailed, kRefused}});
    ASSERT_TRUE(refusedChild);
    EXPECT_FALSE(refusedChild->runs());
    refusedChild.reset();
}

TEST_F(FfmpegRefusedTest, AChildThatDoesNotBeginToRunIsNoStart) {
    const RefusedImport<decltype(ResumeThread), -1> refused("ResumeThread");
    expectLaunchFailed();
    EXPECT_EQ(pollOnce(), -1);
}

std::vector<std::string> firstSteps;
BOOL WINAPI noteAssignment(HANDLE job, HANDLE process) {
    firstSteps.emplace_back("assigned");
    return realFunction<decltype(AssignProcessToJobObject)>("AssignProcessToJobObject")(job, process);
}
DWORD WINAPI noteResumption(HANDLE thread) {
    const DWORD suspensions = realFunction<decltype(ResumeThread)>("ResumeThread")(thread);
    firstSteps.push_back("resumed, was suspended " + std::to_string(suspensions) + " times");
    return suspensions;
}

TEST_F(FfmpegProcessTest, ChildBeginsToRunOnceItIsInItsJob) {
    const ImportSwap<decltype(noteAssignment)> assignment("AssignProcessToJobObject", noteAssignment);
    const ImportSwap<decltype(noteResumption)> resumption("ResumeThread", noteResumption);
    firstSteps.clear();
    startStub("then=hang");
    EXPECT_EQ(firstSteps, (std::vector<std::string>{"assigned", "resumed, was suspended 1 times"}));
}

BOOL WINAPI onlySaySo(HANDLE, HANDLE) {
    return TRUE;
}

TEST_F(FfmpegRefusedTest, StopEndsAChildThatItsJobDoesNotEnd) {
    std::optional<ImportSwap<decltype(onlySaySo)>> swap(std::in_place, "AssignProcessToJobObject", onlySaySo);
    const FollowedProcess child(startStub("then=hang").number("pid"));
    swap.reset();
    ASSERT_TRUE(child.runs());
    decoder_.stop();
    EXPECT_FALSE(child.runs());
}

std::vector<std::string> lastSteps;
BOOL WINAPI noteEndOfJob(HANDLE, UINT code) {
    lastSteps.push_back("job ended with " + std::to_string(code));
    return TRUE;
}
BOOL WINAPI noteEndOfProcess(HANDLE process, UINT code) {
    lastSteps.push_back("process ended with " + std::to_string(code));
    return realFunction<decltype(TerminateProcess)>("TerminateProcess")(process, code);
}
DWORD WINAPI noteWait(HANDLE, DWORD limitMs) {
    lastSteps.push_back("waited " + std::to_string(limitMs) + " ms");
    return WAIT_TIMEOUT;
}

TEST_F(FfmpegProcessTest, StopGivesTheJobTwoSecondsAndThenTheProcessOne) {
    const FollowedProcess child(startStub("then=hang").number("pid"));
    {
        const ImportSwap<decltype(noteEndOfJob)> job("TerminateJobObject", noteEndOfJob);
        const ImportSwap<decltype(noteEndOfProcess)> process("TerminateProcess", noteEndOfProcess);
        const ImportSwap<decltype(noteWait)> wait("WaitForSingleObject", noteWait);
        lastSteps.clear();
        decoder_.stop();
    }
    EXPECT_EQ(lastSteps, (std::vector<std::string>{"job ended with 0", "waited 2000 ms",
                                                   "process ended with 0", "waited 1000 ms"}));
    EXPECT_TRUE(child.endsWithin(kPatience));
}

std::vector<DWORD> bytesAskedFor;
BOOL WINAPI muchWaits(HANDLE, void*, DWORD, DWORD*, DWORD* waiting, DWORD*) {
    *waiting = 1'000'000;
    return TRUE;
}
BOOL WINAPI noteRead(HANDLE, void*, DWORD bytes, DWORD* taken, OVERLAPPED*) {
    bytesAskedFor.push_back(bytes);
    *taken = bytes;
    return TRUE;
}

// A decoder that complains without a pause would keep the Supervisor for ever.
TEST_F(FfmpegProcessTest, APollTakesFourPiecesOfTheMessagesAndThenTheFrame) {
    startStub("then=hang");
    const ImportSwap<decltype(muchWaits)> peek("PeekNamedPipe", muchWaits);
    const ImportSwap<decltype(noteRead)> read("ReadFile", noteRead);
    bytesAskedFor.clear();
    EXPECT_EQ(pollOnce(777), 777);
    EXPECT_EQ(bytesAskedFor, (std::vector<DWORD>{4096, 4096, 4096, 4096, 777}));
}

TEST_F(FfmpegRefusedTest, AnOutputThatCannotBeReadIsTheEndOfTheStream) {
    startStub("frames=1\nthen=hang");
    const RefusedImport<decltype(ReadFile)> refused("ReadFile");
    EXPECT_EQ(pollUntilNews(), -1);
}

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

}  // namespace
}  // namespace vextra::test
