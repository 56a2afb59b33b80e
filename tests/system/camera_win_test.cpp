// The commands that register, reset and remove the virtual camera, against a stub of the system's library;
// and those that leave it alone. Also: what --shutdown-broker does with brokers in every state.
#include <filesystem>
#include <optional>
#include <sstream>

#include "base/text.h"
#include "bridge/bridge_location.h"
#include "bridge/shared_file_win.h"
#include "broker_test_win.h"
#include "stub_camera/stub_camera_install_win.h"
#include "ui/controls.h"

namespace vextra::test {
namespace {

namespace fs = std::filesystem;

using Lines = std::vector<std::string>;

constexpr char kCreated[] =
    "create type=0 lifetime=1 access=0 name=\"Camera Virtual Vextra MF 0.2 beta\" "
    "source=\"{F7E23FCF-2FFF-4D62-BB1C-50891180E2CC}\" categories=null count=0 apartment=multithreaded "
    "mf=yes";
constexpr char kStarted[] = "start callback=null";
constexpr char kRemoved[] = "remove";
constexpr char kLinkRead[] = "link attribute=symbolic-link";
constexpr char kShutDown[] = "shutdown";
constexpr char kReleased[] = "release left=0 mf=yes";  // Media Foundation is stopped after that

class CameraCommand : public BrokerTest {
protected:
    // Each maintenance event's code and number, without tick, frames and process.
    Lines maintenanceEvents() {
        Lines events;
        std::istringstream lines(readFile(broker().dataFolder() + L"\\maintenance.log"));
        for (std::string line; std::getline(lines, line);) {
            std::istringstream words(line);
            std::string tick, code, number;
            words >> tick >> code >> number;
            events.push_back(code + " " + number);
        }
        return events;
    }
    std::wstring linkInDataFolder() { return broker().dataFolder() + L"\\link-1.txt"; }
};

// With the library, which is the stub: no test registers a real camera.
class CameraRegistration : public CameraCommand {
protected:
    void SetUp() override {
        if (systemHasCameraLibrary())
            GTEST_SKIP() << "this Windows has virtual cameras of its own";
        stub_.emplace(machine_.root() + L"\\camera.record");
    }
    Lines calls() const { return stub_->calls(); }
    // A run in which this one call fails, or whatever the answer says.
    std::optional<DWORD> runWithAnswer(const wchar_t* answer, const wchar_t* options) {
        const ScopedVariable variable(kCameraAnswerVariable, answer);
        return broker().runToEnd(options);
    }

private:
    std::optional<StubCameraInstall> stub_;
};

// --- The calls ---

TEST_F(CameraRegistration, RegisteringStartsTheCameraAndReadsItsLink) {
    EXPECT_EQ(broker().runToEnd(L"--register-camera"), 0u);
    EXPECT_EQ(calls(), (Lines{kCreated, kStarted, kLinkRead, kShutDown, kReleased}));
    EXPECT_EQ(maintenanceEvents(),
              (Lines{"CREATE_SYSTEM_CURRENTUSER hr=0x00000000", "REGISTER_SYSTEM hr=0x00000000"}));
}

TEST_F(CameraRegistration, ResettingRemovesTheCameraBeforeItStartsIt) {
    EXPECT_EQ(broker().runToEnd(L"--reset"), 0u);
    EXPECT_EQ(calls(), (Lines{kCreated, kRemoved, kStarted, kShutDown, kReleased}));
    EXPECT_EQ(maintenanceEvents(),
              (Lines{"CREATE_SYSTEM_CURRENTUSER hr=0x00000000", "RESET_OWN_SYSTEM_CAMERA hr=0x00000000"}));
}

TEST_F(CameraRegistration, RemovingOnlyRemovesTheCamera) {
    EXPECT_EQ(broker().runToEnd(L"--remove-camera"), 0u);
    EXPECT_EQ(calls(), (Lines{kCreated, kRemoved, kShutDown, kReleased}));
    EXPECT_EQ(maintenanceEvents(),
              (Lines{"CREATE_SYSTEM_CURRENTUSER hr=0x00000000", "REMOVE_SYSTEM hr=0x00000000"}));
}

TEST_F(CameraRegistration, TheLastMaintenanceOptionDecidesWhatIsDone) {
    EXPECT_EQ(broker().runToEnd(L"--reset --register-camera --remove-camera"), 0u);
    EXPECT_EQ(calls(), (Lines{kCreated, kRemoved, kShutDown, kReleased}));
}

TEST_F(CameraRegistration, MaintenanceGoesBeforeOutputs) {
    EXPECT_EQ(broker().runToEnd(L"--version --remove-camera --help"), 0u);
    EXPECT_EQ(calls().size(), 4u);
    EXPECT_FALSE(fs::exists(broker().dataFolder() + L"\\version.txt"));
    EXPECT_FALSE(fs::exists(broker().dataFolder() + L"\\cli-help.txt"));
}

TEST_F(CameraRegistration, EventsAreAppendedAcrossRuns) {
    broker().runToEnd(L"--register-camera");
    broker().runToEnd(L"--remove-camera");
    EXPECT_EQ(maintenanceEvents().size(), 4u);
    EXPECT_EQ(maintenanceEvents().back(), "REMOVE_SYSTEM hr=0x00000000");
}

TEST_F(CameraRegistration, ARunningBrokerIsInNobodysWay) {
    broker().start(L"--test-pattern");
    EXPECT_EQ(broker().runToEnd(L"--reset"), 0u);
    EXPECT_TRUE(broker().runs());
}

// --- Failures ---

TEST_F(CameraRegistration, ACameraThatCannotBeMadeIsNeitherStartedNorShutDown) {
    for (const wchar_t* option : {L"--register-camera", L"--reset", L"--remove-camera"})
        EXPECT_EQ(runWithAnswer(L"create=80070005", option), 1u) << utf8FromWide(option);
    EXPECT_EQ(calls(), (Lines{kCreated, kCreated, kCreated}));
    EXPECT_EQ(maintenanceEvents(), Lines(3, "CREATE_SYSTEM_CURRENTUSER hr=0x80070005"));
}

TEST_F(CameraRegistration, ASuccessWithoutACameraIsAFailure) {
    EXPECT_EQ(runWithAnswer(L"create=0", L"--register-camera"), 1u);
    EXPECT_EQ(calls(), Lines{kCreated});
    EXPECT_EQ(maintenanceEvents(), Lines{"CREATE_SYSTEM_CURRENTUSER hr=0x80004003"});
}

TEST_F(CameraRegistration, ACameraThatDoesNotStartHasNoLink) {
    EXPECT_EQ(runWithAnswer(L"start=80070490", L"--register-camera"), 1u);
    EXPECT_EQ(calls(), (Lines{kCreated, kStarted, kShutDown, kReleased}));
    EXPECT_EQ(maintenanceEvents().back(), "REGISTER_SYSTEM hr=0x80070490");
    EXPECT_FALSE(fs::exists(linkInDataFolder()));
}

TEST_F(CameraRegistration, AResetThatCannotRemoveDoesNotStart) {
    EXPECT_EQ(runWithAnswer(L"remove=80070020", L"--reset"), 1u);
    EXPECT_EQ(calls(), (Lines{kCreated, kRemoved, kShutDown, kReleased}));
    EXPECT_EQ(maintenanceEvents().back(), "RESET_OWN_SYSTEM_CAMERA hr=0x80070020");
}

TEST_F(CameraRegistration, AResetThatCannotStartReportsTheStart) {
    EXPECT_EQ(runWithAnswer(L"start=C00D36B4", L"--reset"), 1u);
    EXPECT_EQ(calls(), (Lines{kCreated, kRemoved, kStarted, kShutDown, kReleased}));
    EXPECT_EQ(maintenanceEvents().back(), "RESET_OWN_SYSTEM_CAMERA hr=0xC00D36B4");
}

TEST_F(CameraRegistration, ACameraThatCannotBeRemovedIsReported) {
    EXPECT_EQ(runWithAnswer(L"remove=80070002", L"--remove-camera"), 1u);
    EXPECT_EQ(calls(), (Lines{kCreated, kRemoved, kShutDown, kReleased}));
    EXPECT_EQ(maintenanceEvents().back(), "REMOVE_SYSTEM hr=0x80070002");
}

TEST_F(CameraRegistration, ASuccessOtherThanTheUsualOneIsASuccess) {
    EXPECT_EQ(runWithAnswer(L"remove=1", L"--reset"), 0u);
    EXPECT_EQ(calls(), (Lines{kCreated, kRemoved, kStarted, kShutDown, kReleased}));
}

TEST_F(CameraRegistration, AShutDownThatFailsChangesNothing) {
    EXPECT_EQ(runWithAnswer(L"shutdown=8000FFFF", L"--remove-camera"), 0u);
    EXPECT_EQ(calls(), (Lines{kCreated, kRemoved, kShutDown, kReleased}));
}

// --- The link ---

TEST_F(CameraRegistration, TheLinkIsWrittenToTheDataFolder) {
    broker().runToEnd(L"--register-camera");
    EXPECT_EQ(readFile(linkInDataFolder()), utf8FromWide(kCameraLink));
}

TEST_F(CameraRegistration, TheLinkIsWrittenToTheEvidenceFolderWhereOneIsGiven) {
    const std::wstring evidence = machine_.root() + L"\\evidência com espaço";
    fs::create_directories(evidence);
    EXPECT_EQ(broker().runToEnd(L"--register-camera --evidence-dir \"" + evidence + L"\""), 0u);
    EXPECT_EQ(readFile(evidence + L"\\link-1.txt"), utf8FromWide(kCameraLink));
    EXPECT_FALSE(fs::exists(linkInDataFolder()));
}

TEST_F(CameraRegistration, EventsStayInTheDataFolderWithAnEvidenceFolder) {
    const std::wstring evidence = machine_.root() + L"\\evidence";
    fs::create_directories(evidence);
    broker().runToEnd(L"--register-camera --evidence-dir \"" + evidence + L"\"");
    EXPECT_EQ(maintenanceEvents().size(), 2u);
    EXPECT_EQ(std::distance(fs::directory_iterator(evidence), fs::directory_iterator()), 1);  // the link
}

TEST_F(CameraRegistration, TheLinkReplacesAnOldOne) {
    fs::create_directories(broker().dataFolder());
    writeFile(linkInDataFolder(), std::string(1000, 'x'));
    broker().runToEnd(L"--register-camera");
    EXPECT_EQ(readFile(linkInDataFolder()), utf8FromWide(kCameraLink));
}

TEST_F(CameraRegistration, ResettingAndRemovingWriteNoLink) {
    broker().runToEnd(L"--reset");
    broker().runToEnd(L"--remove-camera");
    EXPECT_FALSE(fs::exists(linkInDataFolder()));
}

// The last result decides, and the event before it said that the camera is registered.
TEST_F(CameraRegistration, ALinkThatCannotBeReadFailsTheCommand) {
    EXPECT_EQ(runWithAnswer(L"link=C00D36E6", L"--register-camera"), 1u);
    EXPECT_EQ(calls(), (Lines{kCreated, kStarted, kLinkRead, kShutDown, kReleased}));
    EXPECT_EQ(maintenanceEvents().back(), "REGISTER_SYSTEM hr=0x00000000");
    EXPECT_FALSE(fs::exists(linkInDataFolder()));
}

TEST_F(CameraRegistration, ALinkThatCannotBeWrittenFailsTheCommand) {
    const std::wstring missing = machine_.root() + L"\\missing";
    EXPECT_EQ(broker().runToEnd(L"--register-camera --evidence-dir \"" + missing + L"\""), 1u);
    EXPECT_EQ(calls(), (Lines{kCreated, kStarted, kLinkRead, kShutDown, kReleased}));
}

// --- Refusals ---

TEST_F(CameraRegistration, ALeaseKeepsTheCameraFromBeingResetOrRemoved) {
    viewer().takeLease();
    EXPECT_EQ(broker().runToEnd(L"--reset"), 9u);
    EXPECT_EQ(broker().runToEnd(L"--remove-camera"), 9u);
    EXPECT_EQ(calls(), Lines{});
    EXPECT_EQ(maintenanceEvents(), Lines{});
}

TEST_F(CameraRegistration, UnknownDemandKeepsTheCameraFromBeingResetOrRemoved) {
    fs::remove(machine_.demandPath());
    EXPECT_EQ(broker().runToEnd(L"--reset"), 9u);
    EXPECT_EQ(broker().runToEnd(L"--remove-camera"), 9u);
    EXPECT_EQ(calls(), Lines{});
}

TEST_F(CameraRegistration, RegisteringAsksForNoIdleness) {
    viewer().takeLease();
    EXPECT_EQ(broker().runToEnd(L"--register-camera"), 0u);
}

TEST_F(CameraRegistration, RegisteringWorksWhileDemandIsUnknown) {
    fs::remove(machine_.demandPath());
    EXPECT_EQ(broker().runToEnd(L"--register-camera"), 0u);
}

TEST_F(CameraRegistration, TheCameraOfAnotherOwnerIsLeftAlone) {
    machine_.setString(kOwnerSidValue, L"S-1-5-21-1-2-3-1001");
    for (const wchar_t* option : {L"--register-camera", L"--reset", L"--remove-camera"})
        EXPECT_EQ(broker().runToEnd(option), 3u) << utf8FromWide(option);
    EXPECT_EQ(calls(), Lines{});
}

TEST_F(CameraRegistration, OtherCommandsLeaveTheCameraAlone) {
    EXPECT_EQ(broker().runToEnd(L"--maintenance-check"), 0u);
    EXPECT_EQ(broker().runToEnd(L"--shutdown-broker"), 0u);
    EXPECT_EQ(calls(), Lines{});
    EXPECT_EQ(maintenanceEvents(), Lines{});
}

class ElevatedCameraRegistration : public CameraRegistration {};

TEST_F(ElevatedCameraRegistration, IsRefused) {
    for (const wchar_t* option : {L"--register-camera", L"--reset", L"--remove-camera"})
        EXPECT_EQ(broker().runToEnd(option), 3u) << utf8FromWide(option);
    EXPECT_EQ(calls(), Lines{});
}

// --- A Windows without virtual cameras ---

TEST_F(CameraCommand, WithoutTheLibraryEachCommandFailsWithACode) {
    if (systemHasCameraLibrary())
        GTEST_SKIP() << "this Windows has virtual cameras of its own";
    for (const wchar_t* option : {L"--register-camera", L"--reset", L"--remove-camera"})
        EXPECT_EQ(broker().runToEnd(option), 1u) << utf8FromWide(option);
    EXPECT_EQ(maintenanceEvents(), Lines(3, "CREATE_SYSTEM_CURRENTUSER hr=0x8007007E"));
}

TEST_F(CameraCommand, ALibraryBesideTheProgramOrInTheWorkingFolderIsNotTheSystems) {
    if (systemHasCameraLibrary())
        GTEST_SKIP() << "this Windows has virtual cameras of its own";
    const std::wstring record = machine_.root() + L"\\camera.record";
    const ScopedVariable variable(kCameraRecordVariable, record.c_str());
    const std::wstring stub = stubCameraLibrary();
    fs::copy_file(stub, broker().installRoot() + L"\\bin\\mfsensorgroup.dll");
    const fs::path before = fs::current_path();
    fs::copy_file(stub, machine_.root() + L"\\mfsensorgroup.dll");
    fs::current_path(machine_.root());
    EXPECT_EQ(broker().runToEnd(L"--register-camera"), 1u);
    fs::current_path(before);
    EXPECT_FALSE(fs::exists(record));
}

// --- Asking the running broker to stop ---

class ShutdownCommand : public BrokerTest {
protected:
    ShutdownCommand() { machine_.setString(kInstallDirValue, broker().installRoot()); }

    std::optional<DWORD> shutDown() { return broker().runToEnd(L"--shutdown-broker", 20'000); }
    void writeLock(std::string_view bytes) {
        fs::create_directories(broker().dataFolder());
        writeFile(broker().dataFolder() + L"\\app.lock", bytes);
    }
};
using ReleaseShutdownCommand = ShutdownCommand;
using FullShutdownCommand = ShutdownCommand;

constexpr Tick kBrokerEndWaitMs = 10'000;

TEST_F(ReleaseShutdownCommand, WaitsTenSecondsForABrokerThatHangs) {
    broker().start(L"--test-pattern");
    {
        const Suspension hanging(broker().process());
        const Tick before = GetTickCount64();
        EXPECT_EQ(shutDown(), 9u);
        EXPECT_GE(GetTickCount64() - before, kBrokerEndWaitMs - 20);  // the clock moves in steps
        EXPECT_TRUE(broker().runs());
    }
    EXPECT_EQ(broker().waitForExit(5000), 0u);  // the signal was not lost
}

TEST_F(FullShutdownCommand, LeavesABrokerWithAPreviewRunning) {
    broker().start(L"--test-pattern");
    broker().command(kIdPreview);
    ASSERT_TRUE(broker().waitForEvent("MANUAL_PREVIEW_BEGIN_60S"));
    EXPECT_EQ(shutDown(), 9u);
    EXPECT_TRUE(broker().runs());
    EXPECT_EQ(broker().countEvents("MANUAL_PREVIEW_RELEASE"), 0u);
}

TEST_F(ShutdownCommand, EndsABrokerWhosePreviewIsOver) {
    broker().start(L"--test-pattern");
    broker().command(kIdPreview);
    ASSERT_TRUE(broker().waitForEvent("MANUAL_PREVIEW_BEGIN_60S"));
    broker().command(kIdPreview);
    ASSERT_TRUE(broker().waitForEvent("MANUAL_PREVIEW_RELEASE"));
    EXPECT_EQ(shutDown(), 0u);
    EXPECT_EQ(broker().waitForExit(1000), 0u);
}

TEST_F(ReleaseShutdownCommand, EndsABrokerWhoseLeaseIsStale) {
    broker().start(L"--test-pattern");
    viewer().takeLease();
    viewer().abandonLease();
    EXPECT_EQ(shutDown(), 9u);
    ASSERT_TRUE(waitUntil([] { return countLeasesOnce() == 0; }, 6000));
    EXPECT_EQ(shutDown(), 0u);
}

TEST_F(ShutdownCommand, IsRefusedWhileDemandIsUnknown) {
    broker().start(L"--test-pattern");
    machine_.removeValue(kDemandPathValue);
    EXPECT_EQ(shutDown(), 9u);
    EXPECT_TRUE(broker().runs());
}

TEST_F(ShutdownCommand, EndsAHiddenBroker) {
    broker().start(L"--test-pattern --background");
    EXPECT_EQ(shutDown(), 0u);
    EXPECT_EQ(broker().waitForExit(1000), 0u);
}

TEST_F(ShutdownCommand, ComparesTheInstallFolderWithoutCase) {
    std::wstring folder = broker().installRoot();
    CharUpperBuffW(folder.data(), static_cast<DWORD>(folder.size()));
    ASSERT_NE(folder, broker().installRoot());
    machine_.setString(kInstallDirValue, folder);
    broker().start(L"--test-pattern");
    EXPECT_EQ(shutDown(), 0u);
}

TEST_F(ShutdownCommand, RefusesEveryBrokerWithoutARegisteredFolder) {
    machine_.removeValue(kInstallDirValue);
    broker().start(L"--test-pattern");
    EXPECT_EQ(shutDown(), 3u);
    EXPECT_TRUE(broker().runs());
}

TEST_F(ShutdownCommand, DoesNotSignalWhatItRefuses) {
    machine_.setString(kInstallDirValue, machine_.root() + L"\\elsewhere");
    broker().start(L"--test-pattern");
    EXPECT_EQ(shutDown(), 3u);
    EXPECT_FALSE(broker().waitForExit(1000).has_value());
}

TEST_F(ShutdownCommand, FindsNobodyBehindALockFileWithoutAnId) {
    for (const std::string& bytes : {std::string(), std::string("\1\0\0", 3), std::string(4, '\0')}) {
        writeLock(bytes);
        EXPECT_EQ(shutDown(), 0u) << bytes.size() << " bytes";
    }
}

TEST_F(ShutdownCommand, FindsNobodyBehindAnIdThatNoProcessHas) {
    writeLock("\xFC\xFF\xFF\x7F");
    EXPECT_EQ(shutDown(), 0u);
}

// At its very start or end: the process is there, its signal is not.
class ShutdownOfABrokerThatCannotBeAsked : public ShutdownCommand {
protected:
    ShutdownOfABrokerThatCannotBeAsked() {
        const std::wstring program = broker().installRoot() + L"\\bin\\CameraVirtualVextraMF.exe";
        STARTUPINFOW startup{};
        startup.cb = sizeof startup;
        PROCESS_INFORMATION started{};
        EXPECT_TRUE(startProcess([&] {
            return CreateProcessW(program.c_str(), nullptr, nullptr, nullptr, FALSE, CREATE_SUSPENDED,
                                  nullptr, nullptr, &startup, &started);
        }));
        process.reset(started.hProcess);
        const UniqueHandle thread(started.hThread);
        writeLock({reinterpret_cast<const char*>(&started.dwProcessId), sizeof started.dwProcessId});
    }
    ~ShutdownOfABrokerThatCannotBeAsked() override { end(); }
    void end() {
        TerminateProcess(process.get(), 99);
        WaitForSingleObject(process.get(), 5000);
    }

    UniqueHandle process;
};
using FullShutdownOfABrokerThatCannotBeAsked = ShutdownOfABrokerThatCannotBeAsked;

TEST_F(ShutdownOfABrokerThatCannotBeAsked, SucceedsWhenItEnds) {
    const std::jthread ending([this] {
        Sleep(1000);
        end();
    });
    EXPECT_EQ(shutDown(), 0u);
}

TEST_F(FullShutdownOfABrokerThatCannotBeAsked, FailsWhenItDoesNotEndInTenSeconds) {
    const Tick before = GetTickCount64();
    EXPECT_EQ(shutDown(), 9u);
    EXPECT_GE(GetTickCount64() - before, kBrokerEndWaitMs - 20);  // the clock moves in steps
}

TEST_F(ShutdownCommand, MayBeGivenTwice) {
    broker().start(L"--test-pattern");
    EXPECT_EQ(shutDown(), 0u);
    EXPECT_EQ(shutDown(), 0u);
}

}  // namespace
}  // namespace vextra::test
