#include "consumer/consumer_options.h"

#include <algorithm>
#include <iterator>
#include <string_view>

#include "base/text.h"

namespace vextra {

const wchar_t kConsumerUsage[] =
    L"Plays the camera's media source: asks the broker for pictures and reads them.\n"
    L"\n"
    L"  vextra-consumer watch --seconds N   takes a lease and reads every frame, for N seconds\n"
    L"      --frames N          ends after N frames\n"
    L"      --png PATH          saves the last live frame\n"
    L"      --progress          one line a second\n"
    L"      --json PATH|-       the counts as JSON\n"
    L"      --no-lease          reads without asking for pictures\n"
    L"  vextra-consumer lease --hold-seconds N   holds a lease and reads nothing\n"
    L"      --crash             ends without releasing it\n"
    L"  vextra-consumer read                one read, the header as JSON\n"
    L"      --png PATH          saves the frame, if it is a current picture\n"
    L"\n"
    L"  --bridge PATH, --demand PATH   other files than those in the registry\n"
    L"\n"
    L"Exit codes: 0 a live frame was read (lease: held to the end; read: a valid header); 1 none; 2 usage;\n"
    L"3 the files are not there or refused, or no lease is free.";

namespace {

std::optional<std::uint32_t> parseNumber(std::wstring_view text, std::uint32_t least, std::uint32_t most) {
    if (text.empty() || text.size() > 9 || !std::all_of(text.begin(), text.end(), isAsciiDigit))
        return std::nullopt;
    std::uint32_t value = 0;
    for (const wchar_t unit : text)
        value = value * 10 + static_cast<std::uint32_t>(unit - L'0');
    if (value < least || value > most)
        return std::nullopt;
    return value;
}

std::optional<ConsumerCommand> parseCommand(std::wstring_view text) {
    if (text == L"watch")
        return ConsumerCommand::kWatch;
    if (text == L"lease")
        return ConsumerCommand::kLease;
    if (text == L"read")
        return ConsumerCommand::kRead;
    return std::nullopt;
}

// Which commands take an option, and where it goes.
constexpr unsigned kForWatch = 1;
constexpr unsigned kForLease = 2;
constexpr unsigned kForRead = 4;

unsigned bitOf(ConsumerCommand command) {
    switch (command) {
        case ConsumerCommand::kWatch: return kForWatch;
        case ConsumerCommand::kLease: return kForLease;
        case ConsumerCommand::kRead: return kForRead;
    }
    return 0;
}

struct FlagOption {
    std::wstring_view name;
    unsigned commands;
    bool ConsumerOptions::*member;
};
constexpr FlagOption kFlags[] = {
    {L"--progress", kForWatch, &ConsumerOptions::progress},
    {L"--no-lease", kForWatch, &ConsumerOptions::noLease},
    {L"--crash", kForLease, &ConsumerOptions::crash},
};

struct TextOption {
    std::wstring_view name;
    unsigned commands;
    std::wstring ConsumerOptions::*member;
};
constexpr TextOption kTexts[] = {
    {L"--png", kForWatch | kForRead, &ConsumerOptions::pngPath},
    {L"--json", kForWatch, &ConsumerOptions::jsonPath},
    {L"--bridge", kForWatch | kForRead, &ConsumerOptions::bridgePath},
    {L"--demand", kForWatch | kForLease, &ConsumerOptions::demandPath},
};

struct NumberOption {
    std::wstring_view name;
    unsigned commands;
    std::uint32_t ConsumerOptions::*member;
    std::uint32_t least;
    std::uint32_t most;
};
constexpr NumberOption kNumbers[] = {
    {L"--seconds", kForWatch, &ConsumerOptions::seconds, 1, kMaxConsumerSeconds},
    {L"--hold-seconds", kForLease, &ConsumerOptions::seconds, 0, kMaxConsumerSeconds},
    {L"--frames", kForWatch, &ConsumerOptions::frames, 1, 999'999'999},
};

template <typename Option, std::size_t N>
const Option* find(const Option (&table)[N], std::wstring_view name, ConsumerCommand command) {
    const auto fits = [&](const Option& option) {
        return option.name == name && (option.commands & bitOf(command)) != 0;
    };
    const Option* found = std::find_if(std::begin(table), std::end(table), fits);
    return found == std::end(table) ? nullptr : found;
}

}  // namespace

std::optional<ConsumerOptions> parseConsumerOptions(std::span<const wchar_t* const> arguments) {
    if (arguments.empty())
        return std::nullopt;
    const auto command = parseCommand(arguments.front());
    if (!command)
        return std::nullopt;

    ConsumerOptions options;
    options.command = *command;
    bool timeGiven = *command == ConsumerCommand::kRead;
    for (std::size_t i = 1; i < arguments.size(); ++i) {
        const std::wstring_view name = arguments[i];
        if (const FlagOption* flag = find(kFlags, name, *command)) {
            options.*flag->member = true;
            continue;
        }
        if (++i == arguments.size())
            return std::nullopt;
        if (const TextOption* text = find(kTexts, name, *command)) {
            options.*text->member = arguments[i];
            if (std::wstring_view(arguments[i]).empty())
                return std::nullopt;
        } else if (const NumberOption* number = find(kNumbers, name, *command)) {
            const auto value = parseNumber(arguments[i], number->least, number->most);
            if (!value)
                return std::nullopt;
            options.*number->member = *value;
            timeGiven = timeGiven || number->member == &ConsumerOptions::seconds;
        } else {
            return std::nullopt;
        }
    }
    if (!timeGiven)
        return std::nullopt;
    return options;
}

}  // namespace vextra
