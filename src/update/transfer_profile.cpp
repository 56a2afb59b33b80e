#include "update/transfer_profile.h"

#include <limits>

#include "base/text.h"

namespace vextra {

bool isJsonContentType(std::wstring_view header) {
    std::wstring_view type = header.substr(0, header.find(L';'));
    type = type.substr(0, type.find_last_not_of(L' ') + 1);
    return equalsIgnoringAsciiCase<wchar_t>(type, L"application/json");
}

std::optional<std::uint64_t> contentLengthFrom(std::wstring_view header) {
    constexpr std::uint64_t kLargest = std::numeric_limits<std::uint64_t>::max();
    if (header.empty())
        return std::nullopt;
    std::uint64_t length = 0;
    for (const wchar_t unit : header) {
        if (unit < L'0' || unit > L'9')
            return std::nullopt;
        const auto digit = static_cast<std::uint64_t>(unit - L'0');
        length = length > (kLargest - digit) / 10 ? kLargest : length * 10 + digit;
    }
    return length;
}

}  // namespace vextra
