// The consumer's command line. Pure.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace vextra {

enum class ConsumerCommand { kWatch = 1, kLease, kRead };

constexpr std::uint32_t kMaxConsumerSeconds = 86'400;

struct ConsumerOptions {
    ConsumerCommand command = ConsumerCommand::kWatch;
    std::uint32_t seconds = 0;  // watch: at most this long; lease: this long
    std::uint32_t frames = 0;   // watch: ends after this many; 0: no such end
    bool noLease = false;
    bool crash = false;
    bool progress = false;
    std::wstring pngPath;
    std::wstring jsonPath;    // "-": standard output
    std::wstring bridgePath;  // empty: where the registry says
    std::wstring demandPath;
};

// Nothing when the line makes no sense. `arguments` are those after the program's name.
std::optional<ConsumerOptions> parseConsumerOptions(std::span<const wchar_t* const> arguments);

extern const wchar_t kConsumerUsage[];

}  // namespace vextra
