// Text across the border to bytes, for people to read: what is invalid is replaced. Secrets and whatever must
// be exact go through base/utf.h.
#pragma once

#include <string>
#include <string_view>

namespace vextra {

std::string utf8FromWide(std::wstring_view text);
std::wstring wideFromUtf8(std::string_view bytes);

}  // namespace vextra
