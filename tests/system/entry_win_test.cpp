// The process entry: options, outputs, exit codes, the single instance, maintenance commands.
#include <windows.h>

#include <objbase.h>
#include <shlobj.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <regex>
#include <sstream>
#include <thread>

#include "base/product.h"
#include "base/system_win.h"
#include "bridge/bridge_location.h"
#include "broker_test_win.h"
#include "core/instance_win.h"

namespace vextra::test {
namespace {

namespace fs = std::filesystem;

constexpr char kHelp[] =
    "CameraVirtualVextraMF --help --version --runtime-self-test --import-legacy-env --background --force "
    "--install "
    "--reset --maintenance-check --shutdown-broker\n--reset: only owned MF device, idle required; never AK. "
    "--force: automatic mode, no forced network.\n";

class Entry : public BrokerTest {
protected:
    std::string output(const wchar_t* name) { return readFile(broker().dataFolder() + L"\\" + name); }
    void setInstallDir(const std::wstring& folder) { machine_.setString(kInstallDirValue, folder); }
};
using ReleaseEntry = Entry;

// A message box of the broker, as soon as it stands; its button is pressed and its text returned.
std::wstring answerBox() {
    HWND box = nullptr;
    if (!waitUntil(
            [&] { return (box = FindWindowW(L"#32770", L"Camera Virtual Vextra MF 0.2 beta")) != nullptr; },
            15'000))
        return L"";
    wchar_t text[512] = L"";
    waitUntil([&] { return GetDlgItem(box, 0xFFFF) != nullptr || GetDlgItem(box, IDOK) != nullptr; }, 2000);
    for (HWND child = GetWindow(box, GW_CHILD); child != nullptr; child = GetWindow(child, GW_HWNDNEXT)) {
        wchar_t className[32];
        GetClassNameW(child, className, ARRAYSIZE(className));
        if (lstrcmpiW(className, L"Static") == 0 && SendMessageW(child, WM_GETTEXTLENGTH, 0, 0) > 0)
            SendMessageW(child, WM_GETTEXT, ARRAYSIZE(text), reinterpret_cast<LPARAM>(text));
    }
    PostMessageW(box, WM_COMMAND, IDOK, 0);
    return text;
}

// --- Outputs ---

TEST_F(Entry, HelpWritesItsTextAndEnds) {
    EXPECT_EQ(broker().runToEnd(L"--help"), 0u);
    EXPECT_EQ(output(L"cli-help.txt"), kHelp);
}

TEST_F(Entry, VersionWritesItsTextAndEnds) {
    EXPECT_EQ(broker().runToEnd(L"--version"), 0u);
    EXPECT_EQ(output(L"version.txt"), VEXTRA_VERSION "\n");
}

TEST_F(Entry, HelpWinsOverVersion) {
    EXPECT_EQ(broker().runToEnd(L"--version --help"), 0u);
    EXPECT_EQ(output(L"cli-help.txt"), kHelp);
    EXPECT_FALSE(fs::exists(broker().dataFolder() + L"\\version.txt"));
}

TEST_F(Entry, TheSelfTestWinsOverHelp) {
    EXPECT_EQ(broker().runToEnd(L"--runtime-self-test --help"), 0u);
    EXPECT_EQ(output(L"runtime-self-test.json"),
              "{\"version\":\"" VEXTRA_VERSION
              "\",\"pureContracts\":true,\"ffmpegAvailable\":true,"
              "\"gstreamerAvailable\":false,\"settingsLoaded\":false,\"networkUsed\":false}\n");
    EXPECT_FALSE(fs::exists(broker().dataFolder() + L"\\cli-help.txt"));
}

TEST_F(Entry, TheSelfTestFailsWithoutFfmpeg) {
    fs::remove(broker().installRoot() + L"\\deps\\ffmpeg.exe");
    EXPECT_EQ(broker().runToEnd(L"--runtime-self-test"), 1u);
    EXPECT_NE(output(L"runtime-self-test.json").find("\"ffmpegAvailable\":false"), std::string::npos);
}

TEST_F(Entry, OutputsGoToTheEvidenceFolderWhereOneIsGiven) {
    const std::wstring evidence = machine_.root() + L"\\evidência com espaço";
    fs::create_directories(evidence);
    EXPECT_EQ(broker().runToEnd(L"--version --evidence-dir \"" + evidence + L"\""), 0u);
    EXPECT_EQ(readFile(evidence + L"\\version.txt"), VEXTRA_VERSION "\n");
    EXPECT_FALSE(fs::exists(broker().dataFolder() + L"\\version.txt"));
}

TEST_F(Entry, AnOutputThatCannotBeCreatedEndsWith1) {
    EXPECT_EQ(broker().runToEnd(L"--version --evidence-dir \"" + machine_.root() + L"\\missing\""), 1u);
}

TEST_F(Entry, AnOutputReplacesTheOldFile) {
    fs::create_directories(broker().dataFolder());
    writeFile(broker().dataFolder() + L"\\version.txt", std::string(100, 'x'));
    EXPECT_EQ(broker().runToEnd(L"--version"), 0u);
    EXPECT_EQ(output(L"version.txt"), VEXTRA_VERSION "\n");
}

TEST_F(Entry, InstallShowsItsHintAndDoesNothingElse) {
    std::wstring text;
    std::thread user([&] { text = answerBox(); });
    EXPECT_EQ(broker().runToEnd(L"--install"), 0u);
    user.join();
    EXPECT_EQ(
        text,
        L"Execute o Setup.exe offline da versão MF beta para instalar ou verificar os componentes. Não é "
        L"necessário Python nem a versão alpha.");
    EXPECT_FALSE(fs::exists(broker().dataFolder() + L"\\diagnostic.log"));
}

TEST_F(Entry, ADecoderIsFoundFromABetaBinFolderToo) {
    fs::rename(broker().installRoot() + L"\\bin", broker().installRoot() + L"\\beta-bin");
    fs::copy(broker().installRoot() + L"\\beta-bin", broker().installRoot() + L"\\other");
    const auto selfTest = [&](const wchar_t* folder) {
        std::wstring commandLine = L"x --runtime-self-test";
        STARTUPINFOW startup{};
        startup.cb = sizeof startup;
        PROCESS_INFORMATION started{};
        const std::wstring program = broker().installRoot() + folder + L"\\CameraVirtualVextraMF.exe";
        EXPECT_TRUE(CreateProcessW(program.c_str(), commandLine.data(), nullptr, nullptr, FALSE, 0, nullptr,
                                   nullptr, &startup, &started));
        const UniqueHandle process(started.hProcess), thread(started.hThread);
        WaitForSingleObject(process.get(), 15'000);
        DWORD code = 99;
        GetExitCodeProcess(process.get(), &code);
        return code;
    };
    EXPECT_EQ(selfTest(L"\\beta-bin"), 0u);
    EXPECT_EQ(selfTest(L"\\other"), 1u);  // there is no other\deps
}

// --- The normal run ---

TEST_F(Entry, ARunWritesItsEventsInOrder) {
    broker().start(L"--test-pattern");
    ASSERT_TRUE(broker().waitForEvent("AUTOMATIC_IDLE_READY"));
    broker().command(202);
    ASSERT_EQ(broker().waitForExit(5000), 0u);
    // Two threads write, each in its own order; between the first and the last event they are not ordered.
    using Codes = std::vector<std::string>;
    const Codes ofTheWindow{"APP_START_LIMITED_" VEXTRA_VERSION, "UI_READY", "AUTOMATIC_IDLE_READY",
                            "TRAY_REMOVE", "APP_EXIT_CLEAN"};
    const Codes ofTheSupervisor{"APP_START_LIMITED_" VEXTRA_VERSION, "MF_STARTUP", "STOP_COMPLETE",
                                "MF_SHUTDOWN", "APP_EXIT_CLEAN"};
    const Codes events = broker().events();
    for (const Codes& expected : {ofTheWindow, ofTheSupervisor}) {
        Codes found;
        std::ranges::copy_if(events, std::back_inserter(found), [&](const std::string& event) {
            return std::ranges::find(expected, event) != expected.end();
        });
        EXPECT_EQ(found, expected);
    }
    EXPECT_EQ(events.front(), ofTheWindow.front());
    EXPECT_EQ(events.back(), ofTheWindow.back());
}

TEST_F(Entry, EveryEventLineHasTheOneForm) {
    broker().start(L"--test-pattern");
    broker().command(202);
    broker().waitForExit(5000);
    const std::string log = readFile(broker().dataFolder() + L"\\diagnostic.log");
    EXPECT_EQ(log.find('\r'), std::string::npos);
    const std::regex form("tick=[0-9]+ [A-Z0-9_.a-z-]+ hr=0x[0-9A-F]{8} frames=[0-9]+ pid=" +
                          std::to_string(broker().processId()));
    std::istringstream lines(log);
    for (std::string line; std::getline(lines, line);)
        EXPECT_TRUE(std::regex_match(line, form)) << line;
}

TEST_F(ReleaseEntry, TestSecondsEndTheBroker) {
    broker().start(L"--test-pattern --test-seconds 2");
    EXPECT_FALSE(broker().waitForExit(500).has_value());
    EXPECT_EQ(broker().waitForExit(5000), 0u);
}

TEST_F(Entry, TestSecondsAsTheLastWordAreIgnored) {
    broker().start(L"--test-pattern --test-seconds");
    EXPECT_FALSE(broker().waitForExit(1500).has_value());
}

TEST_F(Entry, TheWindowHasItsClassTitleAndSize) {
    broker().start(L"--test-pattern");
    ASSERT_NE(broker().window(), nullptr);
    wchar_t title[128];
    GetWindowTextW(broker().window(), title, ARRAYSIZE(title));
    EXPECT_STREQ(title, L"Câmera Virtual Vextra MF — " VEXTRA_VERSION_W);
    RECT client{};
    GetClientRect(broker().window(), &client);
    EXPECT_EQ(client.right, 980);
    EXPECT_EQ(client.bottom, 720);
    EXPECT_TRUE(IsWindowVisible(broker().window()));
}

TEST_F(Entry, BackgroundKeepsTheWindowHidden) {
    broker().start(L"--test-pattern --background");
    EXPECT_FALSE(IsWindowVisible(broker().window()));
}

TEST_F(Entry, BackgroundIsIgnoredWithoutAUsableSource) {
    broker().start(L"--background");
    EXPECT_TRUE(IsWindowVisible(broker().window()));
}

TEST_F(Entry, BackgroundHoldsWithAUsablePrivateProfile) {
    writeProfile("rtsp://127.0.0.1:1/none");
    broker().start(L"--background");
    EXPECT_FALSE(IsWindowVisible(broker().window()));
}

TEST_F(Entry, AnEvidenceFolderTakesTheLog) {
    const std::wstring evidence = machine_.root() + L"\\evidence";
    fs::create_directories(evidence);
    fs::create_directories(broker().dataFolder());
    writeFile(broker().dataFolder() + L"\\diagnostic.log", "of the run before\n");
    broker().runToEnd(L"--test-pattern --test-seconds 1 --evidence-dir \"" + evidence + L"\"");
    EXPECT_TRUE(readFile(evidence + L"\\app.log").starts_with("tick="));
    EXPECT_EQ(output(L"diagnostic.log"), "of the run before\n");
}

// Paths that begin with nothing would lie in the root of some drive.
TEST_F(Entry, TheSystemNamesTheDataFolderWhereTheVariableIsMissing) {
    PWSTR known = nullptr;
    ASSERT_EQ(SHGetKnownFolderPath(FOLDERID_LocalAppData, 0, nullptr, &known), S_OK);
    const fs::path folder = fs::path(known) / L"Vextra" / L"CameraVirtualMFBeta";
    CoTaskMemFree(known);
    if (!runsUnderWine() && fs::exists(folder.parent_path()))
        GTEST_SKIP() << "this user has data of a broker";
    std::error_code ignored;
    fs::remove(folder / L"version.txt", ignored);
    const ScopedVariable none(L"LOCALAPPDATA", nullptr);
    EXPECT_EQ(broker().runToEnd(L"--version"), 0u);
    EXPECT_TRUE(fs::remove(folder / L"version.txt", ignored));
    fs::remove(folder, ignored);  // unless there is more in it
    fs::remove(folder.parent_path(), ignored);
}

TEST_F(Entry, AStopSignalThatCannotBeMadeEndsWith3) {
    const std::wstring name = L"Local\\VextraMfBetaStop_" + currentUserSidString();
    const UniqueHandle somethingElse(CreateMutexW(nullptr, FALSE, name.c_str()));
    ASSERT_TRUE(somethingElse);
    EXPECT_EQ(broker().runToEnd(L"--test-pattern --test-seconds 1"), 3u);
}

TEST_F(Entry, AnImportThatFailsEndsWith5BeforeAnyOutput) {
    EXPECT_EQ(broker().runToEnd(L"--import-legacy-env --version"), 5u);  // there is nothing to import
    EXPECT_FALSE(fs::exists(broker().dataFolder() + L"\\version.txt"));
}

TEST_F(Entry, UnknownWordsAreIgnored) {
    EXPECT_EQ(broker().runToEnd(L"--Version /? --versions --help"), 0u);
    EXPECT_FALSE(fs::exists(broker().dataFolder() + L"\\version.txt"));
}

// --- One instance ---

TEST_F(Entry, ASecondStartEndsWith2AndShowsTheFirstWindow) {
    broker().start(L"--test-pattern --background");
    EXPECT_EQ(broker().runToEnd(L"--test-pattern"), 2u);
    EXPECT_TRUE(waitUntil([&] { return IsWindowVisible(broker().window()) != FALSE; }, 3000));
    EXPECT_TRUE(broker().waitForEvent("UI_SHOW_IDEMPOTENT"));
}

TEST_F(ReleaseEntry, FiftySecondStartsLeaveTheFirstAndItsLogAlone) {
    broker().start(L"--test-pattern --background");
    for (int i = 0; i < 50; ++i)
        ASSERT_EQ(broker().runToEnd(L"--test-pattern"), 2u) << "start " << i;
    EXPECT_TRUE(broker().runs());
    EXPECT_EQ(broker().countEvents("APP_START"), 1u);
    EXPECT_TRUE(waitUntil([&] { return broker().countEvents("UI_SHOW_IDEMPOTENT") == 50; }, 3000));
}

TEST_F(Entry, TheLockFileHoldsTheProcessId) {
    fs::create_directories(broker().dataFolder());
    writeFile(broker().dataFolder() + L"\\app.lock", "something longer than four bytes");
    broker().start(L"--test-pattern");
    EXPECT_EQ(readInstanceLock(broker().dataFolder()), broker().processId());
    EXPECT_EQ(fs::file_size(broker().dataFolder() + L"\\app.lock"), 4u);
}

// Its id may be another program's by the time that the broker is asked for.
TEST_F(Entry, ABrokerThatEndedIsNamedByNobody) {
    broker().start(L"--test-pattern");
    broker().command(202);
    ASSERT_EQ(broker().waitForExit(5000), 0u);
    EXPECT_EQ(readInstanceLock(broker().dataFolder()), 0u);
    EXPECT_EQ(broker().runToEnd(L"--shutdown-broker"), 0u);
}

TEST_F(Entry, ABrokerThatWasKilledLeavesNothingInTheWay) {
    broker().start(L"--test-pattern");
    broker().terminate();
    broker().start(L"--test-pattern --test-seconds 1");
    EXPECT_EQ(broker().waitForExit(6000), 0u);
}

TEST_F(Entry, EachRunBeginsANewLog) {
    broker().runToEnd(L"--test-pattern --test-seconds 1");
    broker().runToEnd(L"--test-pattern --test-seconds 1");
    EXPECT_EQ(broker().countEvents("APP_START"), 1u);
}

// --- Maintenance ---

TEST_F(Entry, TheMaintenanceCheckSaysIdle) {
    EXPECT_EQ(broker().runToEnd(L"--maintenance-check"), 0u);
}

TEST_F(Entry, TheMaintenanceCheckSaysBusyDuringALease) {
    viewer().takeLease();
    EXPECT_EQ(broker().runToEnd(L"--maintenance-check"), 9u);
}

TEST_F(Entry, TheMaintenanceCheckSaysBusyWithoutADemandChannel) {
    fs::remove(machine_.demandPath());
    EXPECT_EQ(broker().runToEnd(L"--maintenance-check"), 9u);
}

TEST_F(Entry, MaintenanceIsRefusedToAnotherOwner) {
    machine_.setString(kOwnerSidValue, L"S-1-5-21-1-2-3-1001");
    for (const wchar_t* option :
         {L"--maintenance-check", L"--shutdown-broker", L"--reset", L"--remove-camera", L"--register-camera"})
        EXPECT_EQ(broker().runToEnd(option), 3u) << option;
    EXPECT_FALSE(fs::exists(broker().dataFolder() + L"\\maintenance.log"));
}

TEST_F(Entry, MaintenanceIsRefusedWithoutARegisteredOwner) {
    machine_.removeValue(kOwnerSidValue);
    EXPECT_EQ(broker().runToEnd(L"--maintenance-check"), 3u);
}

TEST_F(Entry, TheLastMaintenanceOptionWins) {
    viewer().takeLease();
    EXPECT_EQ(broker().runToEnd(L"--install --reset"), 9u);  // reset, not the hint box
    EXPECT_EQ(broker().runToEnd(L"--reset --maintenance-check"), 9u);
}

TEST_F(Entry, ResetAndRemoveAreRefusedDuringALease) {
    viewer().takeLease();
    EXPECT_EQ(broker().runToEnd(L"--reset"), 9u);
    EXPECT_EQ(broker().runToEnd(L"--remove-camera"), 9u);
}

TEST_F(Entry, MaintenanceKeepsItsLogAcrossRuns) {
    fs::create_directories(broker().dataFolder());
    writeFile(broker().dataFolder() + L"\\maintenance.log", "kept\n");
    broker().runToEnd(L"--maintenance-check");
    EXPECT_TRUE(readFile(broker().dataFolder() + L"\\maintenance.log").starts_with("kept\n"));
}

TEST_F(Entry, ShuttingDownWithoutABrokerSucceeds) {
    EXPECT_EQ(broker().runToEnd(L"--shutdown-broker"), 0u);
}

TEST_F(Entry, ShuttingDownEndsAnIdleBroker) {
    setInstallDir(broker().installRoot());
    broker().start(L"--test-pattern");
    EXPECT_EQ(broker().runToEnd(L"--shutdown-broker"), 0u);
    EXPECT_EQ(broker().waitForExit(1000), 0u);
    EXPECT_EQ(broker().events().back(), "APP_EXIT_CLEAN");
}

TEST_F(Entry, ShuttingDownIsRefusedDuringALeaseWithoutASignal) {
    setInstallDir(broker().installRoot());
    broker().start(L"--test-pattern");
    viewer().takeLease();
    {
        // A running broker would take the signal, and lose it, before the test could look.
        const Suspension still(broker().process());
        EXPECT_EQ(broker().runToEnd(L"--shutdown-broker"), 9u);
        const std::wstring name = L"Local\\VextraMfBetaStop_" + currentUserSidString();
        const UniqueHandle signal(OpenEventW(SYNCHRONIZE, FALSE, name.c_str()));
        ASSERT_TRUE(signal);
        EXPECT_EQ(WaitForSingleObject(signal.get(), 0), static_cast<DWORD>(WAIT_TIMEOUT));
    }
    viewer().releaseLease();
    EXPECT_FALSE(broker().waitForExit(1500).has_value());
}

TEST_F(Entry, AStopSignalThatCameDuringALeaseIsNotHeededAfterwards) {
    broker().start(L"--test-pattern");
    viewer().takeLease();
    ASSERT_TRUE(broker().waitForEvent("DEMAND_BEGIN_DEVICE_UNCHANGED"));
    const UniqueHandle signal = openStopSignal();
    ASSERT_TRUE(signal);
    ASSERT_TRUE(SetEvent(signal.get()));
    Sleep(200);  // some passes, one of which takes it
    viewer().releaseLease();
    EXPECT_FALSE(broker().waitForExit(1500).has_value());
}

TEST_F(Entry, ShuttingDownRefusesABrokerFromAnotherFolder) {
    setInstallDir(machine_.root() + L"\\elsewhere");
    broker().start(L"--test-pattern");
    EXPECT_EQ(broker().runToEnd(L"--shutdown-broker"), 3u);
    EXPECT_TRUE(broker().runs());
}

TEST_F(Entry, ShuttingDownIgnoresALockFileOfAProcessThatEnded) {
    broker().start(L"--test-pattern");
    broker().terminate();
    EXPECT_EQ(broker().runToEnd(L"--shutdown-broker"), 0u);
}

TEST_F(Entry, ShuttingDownRefusesAnotherProgramWithTheSameId) {
    setInstallDir(broker().installRoot());
    fs::create_directories(broker().dataFolder());
    const DWORD own = GetCurrentProcessId();
    writeFile(broker().dataFolder() + L"\\app.lock", {reinterpret_cast<const char*>(&own), sizeof own});
    EXPECT_EQ(broker().runToEnd(L"--shutdown-broker"), 3u);
}

// --- Elevated: run through a launcher that leaves the elevation as it is ---

class ElevatedEntry : public Entry {};

TEST_F(ElevatedEntry, TheBrokerRefusesToRun) {
    ASSERT_TRUE(isElevatedOrUnknown()) << "this test has to be run elevated";
    std::wstring text;
    std::thread user([&] { text = answerBox(); });
    EXPECT_EQ(broker().runToEnd(L"--test-pattern"), 3u);
    user.join();
    EXPECT_EQ(text, L"Execute normalmente, sem Administrador. Elevação somente no instalador.");
    EXPECT_FALSE(fs::exists(broker().dataFolder() + L"\\app.lock"));
}

TEST_F(ElevatedEntry, MaintenanceRefusesToRun) {
    EXPECT_EQ(broker().runToEnd(L"--maintenance-check"), 3u);
}

TEST_F(ElevatedEntry, OutputsAreWrittenAllTheSame) {
    EXPECT_EQ(broker().runToEnd(L"--version"), 0u);
}

}  // namespace
}  // namespace vextra::test
