// Stored records, byte by byte, written out here: not made by the code under test.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace vextra::test {

// Tests spoil the one field that they are about.
struct StoredRecord {
    std::uint32_t magic = 0x33474643;
    std::uint32_t version = 1;
    std::uint32_t source = 0;
    std::uint32_t stream = 1;
    std::uint32_t decoder = 0;
    std::uint32_t latencyMs = 50;
    std::uint32_t firstFrameDeadlineMs = 7000;
    std::uint32_t rtspUdp = 0;
    std::uint32_t updateDisabled = 0;
    std::u16string strings[6];

    std::string bytes() const {
        std::string out;
        for (const std::uint32_t number : {magic, version, source, stream, decoder, latencyMs,
                                           firstFrameDeadlineMs, rtspUdp, updateDisabled})
            put(out, number, 4);
        for (const std::u16string& string : strings) {
            put(out, static_cast<std::uint32_t>(string.size()), 4);
            for (const char16_t unit : string)
                put(out, unit, 2);
        }
        return out;
    }

    static void put(std::string& out, std::uint32_t value, int bytes) {
        for (int i = 0; i < bytes; ++i)
            out.push_back(static_cast<char>(static_cast<unsigned char>(value >> (8 * i))));
    }
};

inline std::span<const std::byte> asBytes(std::string_view text) {
    return std::as_bytes(std::span(text.data(), text.size()));
}

}  // namespace vextra::test
