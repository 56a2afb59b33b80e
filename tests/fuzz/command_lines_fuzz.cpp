// Any lines as the arguments of the broker and of each tool. Only what stands there as an option has an
// effect, and what follows an option that takes a value is never one itself. The tools refuse exactly what a
// second writing of their grammars refuses, and hold what stands behind each option's name.
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "consumer/consumer_options.h"
#include "core/command_line.h"
#include "fuzz_text.h"
#include "provisioner/provision_rules.h"
#include "signer/signer_rules.h"

namespace {

using vextra::RunMode;
using vextra::test::expect;

using Words = std::span<const wchar_t* const>;

// --- What a value may be ---

bool isNotEmpty(std::wstring_view text) {
    return !text.empty();
}

std::function<bool(std::wstring_view)> isFrom(unsigned long least, unsigned long most) {
    return [=](std::wstring_view text) {
        return !text.empty() && text.size() <= 9 &&
               text.find_first_not_of(L"0123456789") == std::wstring_view::npos &&
               std::stoul(std::wstring(text)) >= least && std::stoul(std::wstring(text)) <= most;
    };
}

bool isSid(std::wstring_view text) {
    constexpr std::wstring_view kStart = L"S-1-5-21-";
    if (text.size() > 184 || !text.starts_with(kStart))
        return false;
    bool endsInDigit = false;
    for (const wchar_t unit : text.substr(kStart.size())) {
        const bool digit = unit >= L'0' && unit <= L'9';
        if (!digit && (unit != L'-' || !endsInDigit))
            return false;
        endsInDigit = digit;
    }
    return endsInDigit;
}

bool isFolder(std::wstring_view text) {
    const wchar_t drive = text.empty() ? L'\0' : static_cast<wchar_t>(text.front() | 0x20);
    if (text.size() < 4 || drive < L'a' || drive > L'z' || text.substr(1, 2) != L":\\" ||
        text.find_first_of(L"/:*?\"<>|", 2) != std::wstring_view::npos)
        return false;
    // Between backslashes, every part shows by its neighbours.
    const std::wstring parts = std::wstring(text.substr(2)) + (text.ends_with(L'\\') ? L"" : L"\\");
    return std::ranges::none_of(std::to_array<std::wstring_view>({L"\\\\", L"\\.\\", L"\\..\\"}),
                                [&](std::wstring_view bad) { return parts.find(bad) != parts.npos; });
}

// --- The options of a line ---

struct Option {
    std::wstring_view name;
    std::function<bool(std::wstring_view)> isGood;  // null: it takes no value
};

class Line {
public:
    // Nothing when a word is no option of the grammar, or a value is missing or bad.
    static std::optional<Line> takenApart(Words words, const std::vector<Option>& grammar) {
        Line line;
        for (std::size_t i = 0; i < words.size(); ++i) {
            const std::wstring_view name = words[i];
            const auto option = std::ranges::find(grammar, name, &Option::name);
            if (option == grammar.end() || (option->isGood && ++i == words.size()))
                return std::nullopt;
            const std::wstring_view value = option->isGood ? words[i] : L"";
            if (option->isGood && !option->isGood(value))
                return std::nullopt;
            line.found_.emplace_back(name, value);
        }
        return line;
    }
    std::size_t count(std::wstring_view name) const {
        return static_cast<std::size_t>(std::ranges::count(found_, name, &Found::first));
    }
    bool has(std::wstring_view name) const { return count(name) > 0; }
    // Of the last one; empty when there is none.
    std::wstring_view value(std::wstring_view name) const {
        const auto last =
            std::find_if(found_.rbegin(), found_.rend(), [&](const Found& f) { return f.first == name; });
        return last == found_.rend() ? std::wstring_view() : last->second;
    }

private:
    using Found = std::pair<std::wstring_view, std::wstring_view>;
    std::vector<Found> found_;
};

// --- The programs ---

void checkBroker(Words words) {
    std::vector<std::wstring_view> options;
    std::wstring_view seconds = L"0";
    std::wstring_view folder;
    for (std::size_t i = 0; i < words.size(); ++i) {
        options.emplace_back(words[i]);
        if (i + 1 < words.size() && options.back() == L"--test-seconds")
            seconds = words[++i];
        else if (i + 1 < words.size() && options.back() == L"--evidence-dir")
            folder = words[++i];
    }
    const auto has = [&](std::wstring_view name) {
        return std::ranges::find(options, name) != options.end();
    };
    static const std::map<std::wstring_view, RunMode> modes{
        {L"--install", RunMode::kInstallHint},
        {L"--reset", RunMode::kReset},
        {L"--register-camera", RunMode::kRegisterCamera},
        {L"--remove-camera", RunMode::kRemoveCamera},
        {L"--maintenance-check", RunMode::kMaintenanceCheck},
        {L"--shutdown-broker", RunMode::kShutdownBroker},
    };
    const auto last = std::find_if(options.rbegin(), options.rend(),
                                   [&](std::wstring_view option) { return modes.contains(option); });

    const vextra::CommandLine line = vextra::parseCommandLine(words);
    expect(line.mode == (last == options.rend() ? RunMode::kNormal : modes.at(*last)));
    expect(line.testPattern == has(L"--test-pattern") && line.background == has(L"--background"));
    expect(line.importLegacyEnv == has(L"--import-legacy-env") && line.version == has(L"--version"));
    expect(line.runtimeSelfTest == has(L"--runtime-self-test") && line.help == has(L"--help"));
    expect(line.forceAutomatic == has(L"--force") && line.startupCheck);
    expect(line.evidenceFolder == folder);
    expect(line.testSeconds <= 300);
    if (isFrom(0, 999'999'999)(seconds))
        expect(line.testSeconds == std::min(std::stoul(std::wstring(seconds)), 300ul));
}

void checkConsumer(Words words) {
    static const std::map<std::wstring_view, std::vector<Option>> commands{
        {L"watch",
         {{L"--seconds", isFrom(1, 86'400)},
          {L"--frames", isFrom(1, 999'999'999)},
          {L"--png", isNotEmpty},
          {L"--json", isNotEmpty},
          {L"--bridge", isNotEmpty},
          {L"--demand", isNotEmpty},
          {L"--progress", {}},
          {L"--no-lease", {}}}},
        {L"lease", {{L"--hold-seconds", isFrom(0, 86'400)}, {L"--demand", isNotEmpty}, {L"--crash", {}}}},
        {L"read", {{L"--png", isNotEmpty}, {L"--bridge", isNotEmpty}}},
    };
    const auto options = vextra::parseConsumerOptions(words);
    const auto command = words.empty() ? commands.end() : commands.find(words[0]);
    std::optional<Line> line;
    if (command != commands.end())
        line = Line::takenApart(words.subspan(1), command->second);
    if (line && !line->has(L"--seconds") && !line->has(L"--hold-seconds") && command->first != L"read")
        line.reset();
    expect(options.has_value() == line.has_value());
    if (!options)
        return;
    using enum vextra::ConsumerCommand;
    expect(options->command == (command->first == L"watch"   ? kWatch
                                : command->first == L"lease" ? kLease
                                                             : kRead));
    const auto number = [&](std::wstring_view name) {
        return line->has(name) ? std::stoul(std::wstring(line->value(name))) : 0;
    };
    expect(options->seconds == number(L"--seconds") + number(L"--hold-seconds"));
    expect(options->frames == number(L"--frames"));
    expect(options->progress == line->has(L"--progress") && options->noLease == line->has(L"--no-lease"));
    expect(options->crash == line->has(L"--crash"));
    expect(options->pngPath == line->value(L"--png") && options->jsonPath == line->value(L"--json"));
    expect(options->bridgePath == line->value(L"--bridge") &&
           options->demandPath == line->value(L"--demand"));
}

void checkProvisioner(Words words) {
    const auto options = vextra::parseProvisionOptions(words);
    auto line = Line::takenApart(words, {{L"--status", {}},
                                         {L"--remove", {}},
                                         {L"--open-demand-to-owner", {}},
                                         {L"--owner-sid", isSid},
                                         {L"--install-dir", isFolder}});
    if (line) {
        const std::size_t commands = line->count(L"--status") + line->count(L"--remove");
        const bool forProvisioning = line->has(L"--open-demand-to-owner") || line->has(L"--install-dir");
        if (commands > 1 || (commands == 1 && forProvisioning))
            line.reset();
    }
    expect(options.has_value() == line.has_value());
    if (!options)
        return;
    using enum vextra::ProvisionCommand;
    expect(options->command == (line->has(L"--status")   ? kStatus
                                : line->has(L"--remove") ? kRemove
                                                         : kProvision));
    expect((options->demandWriters == vextra::DemandWriters::kServicesAndOwner) ==
           line->has(L"--open-demand-to-owner"));
    expect(options->ownerSid == line->value(L"--owner-sid"));
    std::wstring_view folder = line->value(L"--install-dir");
    folder.remove_suffix(folder.ends_with(L'\\') ? 1 : 0);
    expect(options->installDir == folder);
}

void checkSigner(Words words) {
    using Options = vextra::SignerOptions;
    using Members = std::map<std::wstring_view, std::wstring Options::*>;
    static const std::map<std::wstring_view, Members> commands{
        {L"keygen",
         {{L"--private-key", &Options::privateKeyPath}, {L"--public-key", &Options::publicKeyPath}}},
        {L"sign",
         {{L"--setup", &Options::setupPath},
          {L"--version", &Options::version},
          {L"--origin", &Options::origin},
          {L"--private-key", &Options::privateKeyPath},
          {L"--out", &Options::outFolder}}},
    };
    const auto options = vextra::parseSignerOptions(words);
    const auto command = words.empty() ? commands.end() : commands.find(words[0]);
    if (command == commands.end()) {
        expect(!options);
        return;
    }
    std::vector<Option> grammar;
    for (const auto& [name, member] : command->second)
        grammar.push_back({name, isNotEmpty});
    const auto line = Line::takenApart(words.subspan(1), grammar);
    const bool whole =
        line && std::ranges::all_of(grammar, [&](const Option& o) { return line->count(o.name) == 1; });
    expect(options.has_value() == whole);
    if (!options)
        return;
    expect((options->command == vextra::SignerCommand::kSign) == (command->first == L"sign"));
    for (const auto& [name, member] : command->second)
        expect((*options).*member == line->value(name));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string_view rest(reinterpret_cast<const char*>(data), size);
    std::vector<std::wstring> lines;
    while (!rest.empty())
        lines.push_back(vextra::test::unitsOf(vextra::test::takeLine(rest)));
    // An argument ends at its first zero, as the system would hand it over.
    std::vector<const wchar_t*> words;
    for (const std::wstring& line : lines)
        words.push_back(line.c_str());
    checkBroker(words);
    checkConsumer(words);
    checkProvisioner(words);
    checkSigner(words);
    return 0;
}
