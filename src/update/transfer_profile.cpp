#include "update/transfer_profile.h"

#include "base/ascii.h"

namespace vextra {

bool isJsonContentType(std::wstring_view header) {
    std::wstring_view type = header.substr(0, header.find(L';'));
    type = type.substr(0, type.find_last_not_of(L' ') + 1);
    return equalsIgnoringAsciiCase<wchar_t>(type, L"application/json");
}

}  // namespace vextra
