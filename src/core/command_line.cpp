#include "core/command_line.h"

#include <algorithm>
#include <array>

#include "base/text.h"

namespace vextra {
namespace {

struct ModeOption {
    std::wstring_view name;
    RunMode mode;
};
constexpr std::array<ModeOption, 6> kModeOptions{{
    {L"--reset", RunMode::kReset},
    {L"--install", RunMode::kInstallHint},
    {L"--register-camera", RunMode::kRegisterCamera},
    {L"--remove-camera", RunMode::kRemoveCamera},
    {L"--maintenance-check", RunMode::kMaintenanceCheck},
    {L"--shutdown-broker", RunMode::kShutdownBroker},
}};

struct FlagOption {
    std::wstring_view name;
    bool CommandLine::*flag;
};
constexpr std::array<FlagOption, 8> kFlagOptions{{
    {L"--test-pattern", &CommandLine::testPattern},
    {L"--auto-start", &CommandLine::startupCheck},
    {L"--background", &CommandLine::background},
    {L"--import-legacy-env", &CommandLine::importLegacyEnv},
    {L"--runtime-self-test", &CommandLine::runtimeSelfTest},
    {L"--version", &CommandLine::version},
    {L"--help", &CommandLine::help},
    {L"--force", &CommandLine::forceAutomatic},
}};

// The one number that is limited where it is too large; what is no number leaves the run without an end.
std::uint32_t testSecondsFrom(std::wstring_view text) {
    return std::min(parseWholeNumber(text.data(), text.size()).value_or(0), kMaxTestSeconds);
}

}  // namespace

CommandLine parseCommandLine(std::span<const wchar_t* const> arguments) {
    CommandLine parsed;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::wstring_view argument = arguments[i];
        const bool isLast = i + 1 == arguments.size();
        for (const ModeOption& option : kModeOptions) {
            if (argument == option.name)
                parsed.mode = option.mode;
        }
        for (const FlagOption& option : kFlagOptions) {
            if (argument == option.name)
                parsed.*option.flag = true;
        }
        if (argument == L"--test-seconds" && !isLast)
            parsed.testSeconds = testSecondsFrom(arguments[++i]);
        else if (argument == L"--evidence-dir" && !isLast)
            parsed.evidenceFolder = arguments[++i];
    }
    return parsed;
}

std::wstring installRootOf(std::wstring_view executablePath) {
    const auto cutLast = [](std::wstring_view path) {
        const std::size_t cut = path.rfind(L'\\');
        return cut == std::wstring_view::npos ? std::wstring_view{} : path.substr(0, cut);
    };
    const std::wstring_view folder = cutLast(executablePath);
    const std::wstring_view parent = cutLast(folder);
    const std::wstring_view name = parent.empty() ? std::wstring_view{} : folder.substr(parent.size() + 1);
    return std::wstring(name == L"bin" || name == L"beta-bin" ? parent : folder);
}

}  // namespace vextra
