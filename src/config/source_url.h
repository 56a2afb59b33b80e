// Which addresses a producer may be given, and how the address of a direct camera is built. Narrow on
// purpose: spaces, quotes, backslashes and unusable ports are refused before any decoder is started. Pure.
#pragma once

#include <string_view>

#include "base/secret.h"
#include "config/settings.h"

namespace vextra {

// Four decimal numbers of 1 to 3 digits between 0 and 255; leading zeros pass and read as decimal.
bool isValidIpv4(std::wstring_view text);

// http, https, rtsp or rtsps with a host, and a port from 1 to 65535 if one is named. 1 to 8192 units. Path,
// query, fragment and user information are not judged.
bool isUsableSourceUrl(std::wstring_view url);

// The address that the producer opens; empty for the synthetic test and for a direct camera without a valid
// address. Profile and custom addresses are given back as they stand: isUsableSourceUrl judges them.
SecretText sourceUrl(const BrokerSettings& settings);

// UTF-8, every byte outside A-Z a-z 0-9 - . _ ~ as %XX (RFC 3986, unreserved). Empty on an unpaired
// surrogate.
SecretText percentEncode(std::wstring_view text);

}  // namespace vextra
