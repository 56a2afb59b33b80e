// Any bytes as a key file and as a signature: what is accepted is, line breaks aside, the very text that
// is written for it, so that no two texts but by their breaks mean the same key; and bytes that are written
// come back.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "base/text.h"
#include "fuzz_text.h"
#include "signer/signer_rules.h"
#include "update/channel.h"
#include "update/signature.h"

namespace {

using vextra::test::expect;

bool sameButForBreaks(std::string_view a, std::string_view b) {
    const auto joined = [](std::string_view text) {
        std::string line(text);
        std::erase_if(line, [](char c) { return c == '\r' || c == '\n'; });
        return line;
    };
    return joined(a) == joined(b);
}

template <std::size_t Bytes>
void checkBlock(std::string_view text) {
    if (const auto bytes = vextra::decodePem<Bytes>(text, "X"))
        expect(sameButForBreaks(text, vextra::encodePem<std::string>(*bytes, "X")));
    if (text.size() < Bytes)
        return;
    const auto bytes = std::as_bytes(std::span(text)).template first<Bytes>();
    const auto again = vextra::decodePem<Bytes>(vextra::encodePem<std::string>(bytes, "X"), "X");
    expect(again && std::ranges::equal(*again, bytes));
}

void checkKeys(std::string_view text) {
    if (const auto point = vextra::publicKeyFromPem(text))
        expect(sameButForBreaks(text, vextra::publicKeyPem(*point)));
    if (const auto key = vextra::privateKeyFromPem(text))
        expect(sameButForBreaks(text, vextra::privateKeyPem(*key).view()));
}

void checkSignature(std::string_view text) {
    const auto isHex = [](char c) {
        return std::string_view("0123456789abcdefABCDEF").find(c) != std::string_view::npos;
    };
    const auto signature = vextra::bytesFromHex<64>(text);
    expect(signature.has_value() == (text.size() == 128 && std::ranges::all_of(text, isHex)));
    expect(!signature || vextra::equalsIgnoringAsciiCase<char>(vextra::lowerHex(*signature), text));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    // One of each padding, and one of more than a line.
    checkBlock<1>(text);
    checkBlock<2>(text);
    checkBlock<3>(text);
    checkBlock<50>(text);
    checkKeys(text);
    checkSignature(text);
    return 0;
}
