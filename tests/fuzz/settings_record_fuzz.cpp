// Any bytes as a stored record: no crash, no read behind the end, and whatever is accepted is written the
// same again.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>

#include "config/settings_record.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto bytes = std::as_bytes(std::span(data, size));
    if (const auto settings = vextra::parseSettings(bytes)) {
        const vextra::SecretBytes again = vextra::serializeSettings(*settings);
        if (!std::equal(again.begin(), again.end(), bytes.begin(), bytes.end()))
            std::abort();
    }
    return 0;
}
