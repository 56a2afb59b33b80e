// The broker's entry: composition only.
#include <windows.h>

#include <objbase.h>
#include <shellapi.h>
#include <shlobj.h>

#include <exception>
#include <optional>
#include <string>
#include <utility>

#include "base/product.h"
#include "base/system_win.h"
#include "base/unique_win.h"
#include "config/legacy_import.h"
#include "config/settings_store.h"
#include "config/start_settings.h"
#include "core/command_line.h"
#include "core/instance_win.h"
#include "core/maintenance.h"
#include "core/run_outputs.h"
#include "core/session_presence.h"
#include "core/shared_status.h"
#include "core/supervisor_thread_win.h"
#include "diag/event_log.h"
#include "producers/ffmpeg_process_win.h"
#include "producers/gst_runtime_win.h"
#include "ui/main_window_win.h"
#include "ui/preview_picture.h"
#include "update/channel.h"

namespace vextra {
namespace {

struct Folders {
    std::wstring installRoot;
    std::wstring data;    // created at start
    std::wstring legacy;  // of the earlier release; only read

    GstRuntimePlaces gstreamerPlaces() const { return {.installRoot = installRoot, .dataFolder = data}; }
};

CommandLine readCommandLine() {
    int count = 0;
    const UniqueLocalMemory owner(CommandLineToArgvW(GetCommandLineW(), &count));
    const auto* arguments = static_cast<const wchar_t* const*>(owner.get());
    if (arguments == nullptr || count < 1)
        return {};
    return parseCommandLine({arguments + 1, static_cast<std::size_t>(count) - 1});
}

std::wstring localAppData() {
    if (std::optional<std::wstring> value = environmentVariable(L"LOCALAPPDATA"))
        return std::move(*value);
    // Without the variable the paths below would start at the root of some drive.
    UniqueTaskText known;
    const HRESULT found = SHGetKnownFolderPath(FOLDERID_LocalAppData, KF_FLAG_DEFAULT, nullptr, known.put());
    return SUCCEEDED(found) ? std::wstring(known.get()) : std::wstring();
}

Folders prepareFolders() {
    const std::wstring base = localAppData();
    Folders folders{installRootOf(modulePath(nullptr)), base + L"\\" VEXTRA_FOLDER_W,
                    base + L"\\" VEXTRA_LEGACY_FOLDER_W};
    SHCreateDirectoryExW(nullptr, folders.data.c_str(), nullptr);
    return folders;
}

SettingsAccess settingsAccess(const Folders& folders) {
    return {
        .load =
            [folders](BrokerSettings& settings) {
                bool fromBackup = false;  // which of its two files gave the record is the store's own affair
                return loadSettings(folders.data, settings, fromBackup);
            },
        .fileExists = [folders] { return settingsFileExists(folders.data); },
        .readProfile = [folders](BrokerSettings& settings) { readPrivateProfile(folders.legacy, settings); },
        .importEnvironment = importLegacyEnvironment,
        .save = [folders](const BrokerSettings& settings) { return saveSettings(folders.data, settings); },
    };
}

ExitCode writeRequestedOutput(const CommandLine& options, const Folders& folders, bool settingsLoaded) {
    const std::wstring folder = outputFolder(options.evidenceFolder, folders.data) + L"\\";
    if (options.runtimeSelfTest) {
        const bool gstreamer = GstRuntime::instance(folders.gstreamerPlaces()).available();
        const SelfTestResult result{pureContractsHold(), ffmpegIsInstalled(folders.installRoot), gstreamer,
                                    settingsLoaded};
        const bool written = writeOutputFile(folder + L"runtime-self-test.json", selfTestJson(result));
        return written && result.passed() ? ExitCode::kSuccess : ExitCode::kFailed;
    }
    const bool written = options.help ? writeOutputFile(folder + L"cli-help.txt", kHelpFileText)
                                      : writeOutputFile(folder + L"version.txt", kVersionFileText);
    return written ? ExitCode::kSuccess : ExitCode::kFailed;
}

// What an end may take: as long as a decoder that does not end at once, and a little more.
constexpr Tick kEndLimitMs = 4000;

ExitCode runBroker(HINSTANCE instance, const CommandLine& options, const Folders& folders,
                   StartSettings start) {
    if (!isInteractiveSession(sessionOfProcess(GetCurrentProcessId())))
        return ExitCode::kRefused;
    if (isElevatedOrUnknown()) {
        MessageBoxW(nullptr, L"Execute normalmente, sem Administrador. Elevação somente no instalador.",
                    kBoxTitle, MB_OK);
        return ExitCode::kRefused;
    }
    InstanceLock lock = takeInstanceLock(folders.data);
    if (!lock) {
        showRunningBroker();
        return ExitCode::kAlreadyRunning;
    }
    UniqueHandle stopSignal = createStopSignal();
    if (!stopSignal)
        return ExitCode::kRefused;

    SharedStatus shared;
    EventLog log(shared.frameCounter);
    log.open(options.evidenceFolder.empty() ? folders.data + L"\\diagnostic.log"
                                            : options.evidenceFolder + L"\\app.log",
             EventLog::OpenMode::kReplace);
    log.write(EventCode::kAppStart);

    shared.testPattern = options.testPattern;
    if (options.forceAutomatic)
        shared.paused = false;
    shared.settings = std::move(start.settings);
    fillPlaceholderFrame(shared.previewFrame);
    const UniqueHandle wakeEvent(CreateEventW(nullptr, FALSE, FALSE, nullptr));

    SupervisorThread supervisor({
        .shared = &shared,
        .log = &log,
        .wakeEvent = wakeEvent.get(),
        .stopSignal = stopSignal.get(),
        .installRoot = folders.installRoot,
        .evidenceFolder = options.evidenceFolder,
        .gstreamerPlaces = folders.gstreamerPlaces(),
    });
    MainWindow window(instance, {
                                    .shared = &shared,
                                    .log = &log,
                                    .wakeEvent = wakeEvent.get(),
                                    .supervisor = &supervisor,
                                    .dataFolder = folders.data,
                                    .channel = &builtInChannel(),
                                    .firstPanel = start.sourceUsable ? Panel::kCamera : Panel::kSettings,
                                });
    if (!wakeEvent || !window.create())
        return ExitCode::kFailed;
    window.startClock(options.testSeconds);
    if (!supervisor.start(window.handle()))
        return ExitCode::kFailed;

    // Hidden is for a broker that can work: without a usable source the user has to see the window.
    if (!options.background || !start.sourceUsable)
        window.showWithoutActivating();
    log.write(EventCode::kUiReady);
    window.runMessageLoop();

    sendCommand(shared, wakeEvent.get(), SupervisorCommand::kQuit);
    const Tick deadline = GetTickCount64() + kEndLimitMs;
    const auto remainingMs = [&] {
        const Tick now = GetTickCount64();
        return static_cast<std::uint32_t>(now < deadline ? deadline - now : 0);
    };
    const bool supervisorEnded = supervisor.waitForEnd(remainingMs());
    const bool workerEnded = window.joinUpdateWorker(remainingMs());
    if (supervisorEnded)
        log.write(EventCode::kAppExitClean);
    log.close();
    if (!supervisorEnded || !workerEnded) {
        // Something hangs in the network or in a foreign library, and must not keep the broker. The
        // bridge and the decoder's job are the Supervisor's own, closed by it or else by the system with the
        // process.
        stopSignal.reset();
        lock.reset();
        TerminateProcess(GetCurrentProcess(), static_cast<UINT>(ExitCode::kSuccess));
    }
    return ExitCode::kSuccess;
}

ExitCode run(HINSTANCE instance) {
    // Before anything can load a library: from the system's folder and from those added by name, never from
    // the program's own, the working directory or the search path. What else this program is made of is
    // linked so that it is loaded after this call (cmake/delayed_imports.cmake).
    SetDefaultDllDirectories(LOAD_LIBRARY_SEARCH_SYSTEM32 | LOAD_LIBRARY_SEARCH_USER_DIRS);
    SetDllDirectoryW(L"");

    // For a damaged library or a drive without a medium Windows would put up a box, and the thread that met
    // it, often the Supervisor's, would stand still until it is clicked away.
    SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOOPENFILEERRORBOX);

    // A crash has to look like one: abort() would end the process with 3, which is one of our own codes.
    std::set_terminate([] { RaiseFailFastException(nullptr, nullptr, 0); });

    SetProcessDpiAwarenessContext(DPI_AWARENESS_CONTEXT_PER_MONITOR_AWARE_V2);  // the manifest says so too

    const CommandLine options = readCommandLine();
    const Folders folders = prepareFolders();
    if (options.mode == RunMode::kInstallHint) {
        MessageBoxW(
            nullptr,
            L"Execute o Setup.exe offline da versão MF beta para instalar ou verificar os componentes. Não é "
            L"necessário Python nem a versão alpha.",
            kBoxTitle, MB_OK | MB_ICONINFORMATION);
        return ExitCode::kSuccess;
    }
    if (options.mode != RunMode::kNormal) {
        EventLog log;
        return runMaintenance(options, folders.data, log);
    }

    std::optional<StartSettings> start =
        startSettings({.importEnvironment = options.importLegacyEnv, .testPattern = options.testPattern},
                      settingsAccess(folders));
    if (!start)
        return ExitCode::kImportFailed;
    if (options.runtimeSelfTest || options.help || options.version)
        return writeRequestedOutput(options, folders, start->loaded);
    return runBroker(instance, options, folders, std::move(*start));
}

}  // namespace
}  // namespace vextra

int WINAPI wWinMain(HINSTANCE instance, HINSTANCE, PWSTR, int) {
    return static_cast<int>(vextra::run(instance));
}
