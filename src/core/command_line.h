// What the process is told, and what it answers with its end. Pure.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace vextra {

// What the process was started to do. The last maintenance option of a command line decides.
enum class RunMode {
    kNormal = 1,
    kInstallHint,
    kReset,
    kRegisterCamera,
    kRemoveCamera,
    kMaintenanceCheck,
    kShutdownBroker,
};

constexpr std::uint32_t kMaxTestSeconds = 300;

struct CommandLine {
    RunMode mode = RunMode::kNormal;
    bool testPattern = false;
    bool startupCheck = true;  // --auto-start states the default: a deliberate no-op
    bool background = false;
    bool importLegacyEnv = false;
    bool runtimeSelfTest = false;
    bool version = false;
    bool help = false;
    bool forceAutomatic = false;    // --force clears `paused`, which starts clear
    std::uint32_t testSeconds = 0;  // 0: off, as is a text that is no number
    std::wstring evidenceFolder;    // empty: off
};

// Whole arguments, case-sensitive; what is not an option is ignored without a message. `arguments` are
// those after the program's name.
CommandLine parseCommandLine(std::span<const wchar_t* const> arguments);

// The folder that holds bin\ and deps\: the executable's folder, less a last `bin` or `beta-bin` (exactly
// so).
std::wstring installRootOf(std::wstring_view executablePath);

enum class ExitCode : int {
    kSuccess = 0,
    kFailed = 1,          // an output file, the self-test or a Media Foundation call
    kAlreadyRunning = 2,  // the other broker of this user was asked to show its window
    kRefused = 3,         // session 0, elevation, another owner, not this user's broker, no stop signal
    kImportFailed = 5,    // --import-legacy-env
    kBusy = 9,            // capture is active or unknown, or the broker did not stop in time
};

}  // namespace vextra
