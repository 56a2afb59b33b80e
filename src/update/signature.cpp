#include "update/signature.h"

#include "base/text.h"

namespace vextra {

std::optional<EcSignature> decodeSignature(std::string_view hex) {
    EcSignature signature{};
    if (hex.size() != signature.size() * 2)
        return std::nullopt;
    for (std::size_t i = 0; i < signature.size(); ++i) {
        const int high = hexDigitValue(hex[2 * i]);
        const int low = hexDigitValue(hex[2 * i + 1]);
        if (high < 0 || low < 0)
            return std::nullopt;
        signature[i] = static_cast<std::byte>(high * 16 + low);
    }
    return signature;
}

}  // namespace vextra
