#include "base/whole_number.h"

#include <cerrno>
#include <cwchar>
#include <limits>
#include <string_view>

namespace vextra {

std::optional<std::uint32_t> parseWholeNumber(const wchar_t* text, std::size_t length) {
    wchar_t* end = nullptr;
    errno = 0;
    const unsigned long value = std::wcstoul(text, &end, 10);
    if (length == 0 || end != text + length)
        return std::nullopt;
    // The system's library negates even its largest number where a sign stands before one that is too large.
    constexpr std::uint32_t kLargest = std::numeric_limits<std::uint32_t>::max();
    if (errno == ERANGE)
        return kLargest;
    // On Windows an unsigned long has 32 bits; where it has more, it is made to stop at the same number.
    if constexpr (sizeof value > sizeof kLargest) {
        const bool negative = std::wstring_view(text, length).find(L'-') != std::wstring_view::npos;
        if ((negative ? 0 - value : value) > kLargest)
            return kLargest;
    }
    return static_cast<std::uint32_t>(value);
}

}  // namespace vextra
