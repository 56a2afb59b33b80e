#include "update/strict_url.h"

namespace vextra {
namespace {

bool isAsciiUnit(wchar_t unit) {
    return static_cast<std::uint32_t>(unit) <= 127;
}

}  // namespace

SecretUtf8 narrowedUrl(std::wstring_view url) {
    SecretUtf8 bytes;
    if (url.size() > kMaxUpdateUrlBytes || !std::ranges::all_of(url, isAsciiUnit))
        return bytes;
    bytes.reserve(url.size());
    for (const wchar_t unit : url)
        bytes.append(static_cast<char>(unit));
    return bytes;
}

}  // namespace vextra
