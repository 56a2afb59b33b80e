#include <windows.h>

#include <vector>

#include "base/product.h"
#include "base/system_win.h"
#include "base/text.h"
#include "base/unique_win.h"
#include "bridge/bridge_location.h"
#include "bridge/shared_file_win.h"
#include "core/instance_win.h"
#include "core/maintenance.h"
#include "core/media_foundation_win.h"
#include "core/run_outputs.h"
#include "core/virtual_camera_win.h"

namespace vextra {
namespace {

constexpr DWORD kBrokerEndWaitMs = 10'000;

// Unknown demand counts as busy: a meeting may be running.
bool captureActiveOrUnknown() {
    return countLeasesOnce() != 0;
}

std::wstring imagePathOf(HANDLE process) {
    std::vector<wchar_t> path(kMaxSystemTextUnits);
    DWORD length = static_cast<DWORD>(path.size());
    if (!QueryFullProcessImageNameW(process, 0, path.data(), &length))
        return {};
    return {path.data(), length};
}

// A process id in a file proves nothing: the process of that number must be this user's installed broker.
bool isInstalledBroker(HANDLE process, DWORD processId) {
    const auto session = sessionOfProcess(processId);
    if (!session || session != sessionOfProcess(GetCurrentProcessId()))
        return false;
    const std::wstring expected =
        readBrokerRegistryValue(kInstallDirValue) + L"\\bin\\" VEXTRA_PROGRAM_W L".exe";
    const std::wstring actual = imagePathOf(process);
    return equalsIgnoringCase(actual, expected);
}

ExitCode shutdownBroker(const std::wstring& dataFolder) {
    if (captureActiveOrUnknown())
        return ExitCode::kBusy;
    const DWORD processId = readInstanceLock(dataFolder);
    if (processId == 0)
        return ExitCode::kSuccess;
    const UniqueHandle process(
        OpenProcess(SYNCHRONIZE | PROCESS_QUERY_LIMITED_INFORMATION, FALSE, processId));
    if (!process || WaitForSingleObject(process.get(), 0) == WAIT_OBJECT_0)
        return ExitCode::kSuccess;
    if (!isInstalledBroker(process.get(), processId))
        return ExitCode::kRefused;
    // Without a signal to set, the broker is at its very start or, which is why it is waited for all the
    // same, at its very end.
    if (const UniqueHandle signal = openStopSignal())
        SetEvent(signal.get());
    return WaitForSingleObject(process.get(), kBrokerEndWaitMs) == WAIT_OBJECT_0 ? ExitCode::kSuccess
                                                                                 : ExitCode::kBusy;
}

// As UTF-8: the link holds the camera's name in the system's own words.
bool recordLink(VirtualCamera& camera, const std::wstring& folder) {
    std::wstring link;
    return camera.readLink(link) >= 0 && writeOutputFile(folder + L"\\link-1.txt", utf8FromWide(link));
}

ExitCode runCameraCommand(RunMode mode, const std::wstring& linkFolder, EventLog& log) {
    const ComApartment apartment(COINIT_MULTITHREADED);
    MediaFoundation mediaFoundation;
    VirtualCamera camera;
    const bool done =
        operateCamera(mode, {
                                .startMediaFoundation = [&] { return mediaFoundation.startup(); },
                                .stopMediaFoundation = [&] { mediaFoundation.shutdown(); },
                                .create = [&] { return camera.create(); },
                                .start = [&] { return camera.start(); },
                                .remove = [&] { return camera.remove(); },
                                .recordLink = [&] { return recordLink(camera, linkFolder); },
                                .discard = [&] { camera.discard(); },
                                .log = [&](EventCode code, std::int32_t value) { log.write(code, value); },
                            });
    return done ? ExitCode::kSuccess : ExitCode::kFailed;
}

}  // namespace

ExitCode runMaintenance(const CommandLine& options, const std::wstring& dataFolder, EventLog& log) {
    const RunMode mode = options.mode;
    const std::wstring user = currentUserSidString();
    const std::wstring owner = readBrokerRegistryValue(kOwnerSidValue);
    if (!mayMaintain({sessionOfProcess(GetCurrentProcessId()), isElevatedOrUnknown(), user, owner}))
        return ExitCode::kRefused;
    log.open(dataFolder + L"\\maintenance.log", EventLog::OpenMode::kAppend);

    if (mode == RunMode::kShutdownBroker)
        return shutdownBroker(dataFolder);
    if (mode != RunMode::kRegisterCamera && captureActiveOrUnknown())
        return ExitCode::kBusy;
    if (mode == RunMode::kMaintenanceCheck)
        return ExitCode::kSuccess;
    return runCameraCommand(mode, outputFolder(options.evidenceFolder, dataFolder), log);
}

}  // namespace vextra
