// The files that a run leaves for other programs. Texts are pure; what writes a file is a door.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "base/product.h"
#include "base/system_types.h"
#include "diag/event_log.h"

namespace vextra {

inline constexpr std::string_view kVersionFileText = VEXTRA_VERSION "\n";

inline constexpr std::string_view kHelpFileText = VEXTRA_PROGRAM
    " --help --version --runtime-self-test --import-legacy-env --background --force --install --reset"
    " --maintenance-check --shutdown-broker\n"
    "--reset: only owned MF device, idle required; never AK. --force: automatic mode, no forced network.\n";

struct SelfTestResult {
    bool pureContracts = false;
    bool ffmpegAvailable = false;
    bool gstreamerAvailable = false;
    bool settingsLoaded = false;

    bool passed() const { return pureContracts && ffmpegAvailable; }
};

// Whether the address rules hold in this very build.
bool pureContractsHold();

std::string selfTestJson(const SelfTestResult& result);

// Where outputs go: the evidence folder if there is one, else the data folder.
std::wstring outputFolder(const std::wstring& evidenceFolder, const std::wstring& dataFolder);

// Writes a file anew; false when it cannot be created. Main thread.
bool writeOutputFile(const std::wstring& path, std::string_view bytes);

// What a run with an evidence folder keeps of a frame: the hash line in the log, and for frame 1 and every
// 64th the raw pixels to <folder>\producer-<number>.bgra. Supervisor's thread. Failing to write is silent.
void recordFrameEvidence(EventLog& log, const std::wstring& folder, const std::byte* pixels,
                         std::uint64_t frameNumber, Tick now);

}  // namespace vextra
