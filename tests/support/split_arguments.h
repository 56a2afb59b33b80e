// How a program takes its command line apart: the other side of quoting.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace vextra::test {

// Backslashes count only in front of a quotation mark, where each two make one and an odd one out makes the
// mark an ordinary character.
inline std::vector<std::wstring> splitArguments(std::wstring_view line) {
    std::vector<std::wstring> arguments;
    bool inArgument = false;
    bool inQuotes = false;
    for (std::size_t i = 0; i < line.size();) {
        std::size_t backslashes = 0;
        while (i < line.size() && line[i] == L'\\') {
            ++backslashes;
            ++i;
        }
        const bool atQuote = i < line.size() && line[i] == L'"';
        const bool atBlank = i < line.size() && (line[i] == L' ' || line[i] == L'\t');
        if (!inArgument && (backslashes > 0 || (i < line.size() && !atBlank))) {
            arguments.emplace_back();
            inArgument = true;
        }
        if (backslashes > 0)
            arguments.back().append(atQuote ? backslashes / 2 : backslashes, L'\\');
        if (i >= line.size())
            break;
        if (atQuote && backslashes % 2 == 0) {
            inQuotes = !inQuotes;
        } else if (atBlank && !inQuotes) {
            inArgument = false;
        } else {
            arguments.back() += line[i];
        }
        ++i;
    }
    return arguments;
}

}  // namespace vextra::test
