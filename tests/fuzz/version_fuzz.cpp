// Any bytes as three versions, one a line: no crash, and the order is one: it has two sides, and it carries
// over.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "fuzz_text.h"
#include "update/version.h"

using vextra::test::expect;
using vextra::test::takeLine;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string_view rest(reinterpret_cast<const char*>(data), size);
    const std::string_view a = takeLine(rest);
    const std::string_view b = takeLine(rest);
    const std::string_view c = takeLine(rest);
    const auto ab = vextra::compareVersions(a, b);
    const auto ba = vextra::compareVersions(b, a);
    expect(ab.has_value() == (vextra::parseVersion(a) && vextra::parseVersion(b)));
    expect(ab.has_value() == ba.has_value());
    if (!ab)
        return 0;
    expect(*ab == -*ba);
    expect(vextra::compareVersions(a, a) == 0);
    const auto bc = vextra::compareVersions(b, c);
    const auto ac = vextra::compareVersions(a, c);
    if (bc && *ab <= 0 && *bc <= 0)
        expect(*ac <= 0 && (*ac < 0 || (*ab == 0 && *bc == 0)));
    return 0;
}
