// Which addresses the update channel talks to. Narrower than any URL standard on purpose: an address that two
// programs could read in two ways is refused before anything is sent. Pure.
#pragma once

#include <cstddef>
#include <string_view>

#include "base/secret.h"

namespace vextra {

constexpr std::size_t kMaxUpdateUrlBytes = 8192;

// True for "https://", a host name or a bracketed IPv6 address, an optional port from 1 to 65535, and a path
// and query with whole escapes; no user information, no fragment, printable ASCII only.
bool isStrictHttpsUrl(std::string_view url);

// An address as bytes; empty, which no rule accepts, when it is longer than 8192 units or not ASCII.
SecretUtf8 narrowedUrl(std::wstring_view url);

}  // namespace vextra
