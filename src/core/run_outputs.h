// The small machine-readable outputs. Texts are pure; writeOutputFile is the door.
#pragma once

#include <string>
#include <string_view>

#include "base/product.h"

namespace vextra {

inline constexpr std::string_view kVersionFileText = VEXTRA_VERSION "\n";

inline constexpr std::string_view kHelpFileText = VEXTRA_PROGRAM
    " --help --version --runtime-self-test --import-legacy-env --background --force "
    "--install "
    "--reset --maintenance-check --shutdown-broker\n--reset: only owned MF device, idle required; never AK. "
    "--force: automatic mode, no forced network.\n";

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

}  // namespace vextra
