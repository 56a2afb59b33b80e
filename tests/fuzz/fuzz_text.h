// What the targets share: how an input is taken apart, and how a broken promise is told to the fuzzer.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

namespace vextra::test {

inline void expect(bool holds) {
    if (!holds)
        std::abort();
}

// The next line, without its end; empty behind the last one.
inline std::string_view takeLine(std::string_view& text) {
    const std::string_view line = text.substr(0, text.find('\n'));
    text.remove_prefix(line.size() + (line.size() < text.size() ? 1 : 0));
    return line;
}

// UTF-8 as UTF-16 units, so that inputs can be read by people. Lenient, so that every unit can be written,
// line ends, zero and unpaired surrogates included: any bytes may follow a first byte, and the long way round
// (C0 8A) is a way. UTF-8 that is well-formed becomes what it should.
inline std::wstring unitsOf(std::string_view text) {
    std::wstring units;
    while (!text.empty()) {
        const auto first = static_cast<unsigned char>(text.front());
        std::size_t length = first < 0xC0 ? 1 : first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
        length = length > text.size() ? 1 : length;
        std::uint32_t point = length == 1 ? first : first & (0x7Fu >> length);
        for (std::size_t i = 1; i < length; ++i)
            point = point << 6 | (static_cast<unsigned char>(text[i]) & 0x3Fu);
        text.remove_prefix(length);
        if (point >= 0x10000) {
            units.push_back(static_cast<wchar_t>(0xD800 + ((point - 0x10000) >> 10 & 0x3FF)));
            point = 0xDC00 + (point & 0x3FF);
        }
        units.push_back(static_cast<wchar_t>(point));
    }
    return units;
}

}  // namespace vextra::test
