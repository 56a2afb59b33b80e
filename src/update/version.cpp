#include "update/version.h"

#include <algorithm>
#include <compare>
#include <limits>

#include "base/text.h"

namespace vextra {
namespace {

constexpr std::size_t kMaxVersionBytes = 128;
constexpr std::size_t kMaxCoreDigits = 10;

std::vector<std::string> splitAtDots(std::string_view text) {
    std::vector<std::string> parts;
    for (std::size_t dot = text.find('.'); dot != std::string_view::npos; dot = text.find('.')) {
        parts.emplace_back(text.substr(0, dot));
        text.remove_prefix(dot + 1);
    }
    parts.emplace_back(text);
    return parts;
}

bool isNumeric(std::string_view identifier) {
    return std::ranges::all_of(identifier, isAsciiDigit);
}

bool hasLeadingZero(std::string_view digits) {
    return digits.size() > 1 && digits.front() == '0';
}

bool isIdentifier(std::string_view text) {
    const auto belongs = [](char c) { return isAsciiLetter(c) || isAsciiDigit(c) || c == '-'; };
    return !text.empty() && std::ranges::all_of(text, belongs);
}

bool isPreReleaseIdentifier(std::string_view text) {
    return isIdentifier(text) && !(isNumeric(text) && hasLeadingZero(text));
}

std::optional<std::uint32_t> parseCoreNumber(std::string_view text) {
    if (text.empty() || text.size() > kMaxCoreDigits || !isNumeric(text) || hasLeadingZero(text))
        return std::nullopt;
    std::uint64_t value = 0;
    for (const char digit : text)
        value = value * 10 + static_cast<std::uint64_t>(digit - '0');
    if (value > std::numeric_limits<std::uint32_t>::max())
        return std::nullopt;
    return static_cast<std::uint32_t>(value);
}

// What `mark` separates from the text, which keeps what stands before it; nothing without a mark.
std::optional<std::string_view> cutAt(char mark, std::string_view& text) {
    const std::size_t at = text.find(mark);
    if (at == std::string_view::npos)
        return std::nullopt;
    const std::string_view rest = text.substr(at + 1);
    text = text.substr(0, at);
    return rest;
}

std::strong_ordering compareIdentifiers(const std::string& a, const std::string& b) {
    const bool aNumeric = isNumeric(a);
    const bool bNumeric = isNumeric(b);
    if (aNumeric != bNumeric)
        return aNumeric ? std::strong_ordering::less : std::strong_ordering::greater;
    // Numbers have no leading zeros, so the longer one is the larger, however long.
    if (aNumeric && a.size() != b.size())
        return a.size() <=> b.size();
    return a <=> b;
}

std::strong_ordering compareParsed(const Version& a, const Version& b) {
    if (const auto order = a.core <=> b.core; order != 0)
        return order;
    if (a.preRelease.empty() || b.preRelease.empty())
        return a.preRelease.empty() <=> b.preRelease.empty();
    return std::lexicographical_compare_three_way(a.preRelease.begin(), a.preRelease.end(),
                                                  b.preRelease.begin(), b.preRelease.end(),
                                                  compareIdentifiers);
}

}  // namespace

std::optional<Version> parseVersion(std::string_view text) {
    if (text.empty() || text.size() > kMaxVersionBytes)
        return std::nullopt;
    Version version;
    if (const auto build = cutAt('+', text); build && !std::ranges::all_of(splitAtDots(*build), isIdentifier))
        return std::nullopt;
    if (const auto preRelease = cutAt('-', text)) {
        version.preRelease = splitAtDots(*preRelease);
        if (!std::ranges::all_of(version.preRelease, isPreReleaseIdentifier))
            return std::nullopt;
    }
    const std::vector<std::string> core = splitAtDots(text);
    if (core.size() != version.core.size())
        return std::nullopt;
    for (std::size_t i = 0; i < core.size(); ++i) {
        const auto number = parseCoreNumber(core[i]);
        if (!number)
            return std::nullopt;
        version.core[i] = *number;
    }
    return version;
}

std::optional<int> compareVersions(std::string_view a, std::string_view b) {
    const auto left = parseVersion(a);
    const auto right = parseVersion(b);
    if (!left || !right)
        return std::nullopt;
    const std::strong_ordering order = compareParsed(*left, *right);
    return order < 0 ? -1 : order > 0 ? 1 : 0;
}

}  // namespace vextra
