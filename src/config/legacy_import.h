// How settings of earlier releases come in: environment variables on request, the private profile by itself
// at the first start. What is read is never changed or deleted.
#pragma once

#include <functional>
#include <string>

#include "config/settings.h"

namespace vextra {

// The value of an environment variable; empty when it is unset, empty or longer than 8192 units.
using ReadVariable = std::function<SecretText(const wchar_t* name)>;

// Fills in every field whose variable is set. False at the first value that is not understood, and when the
// resulting record may not be used; `settings` is then half filled and to be thrown away. Pure.
bool importLegacyVariables(const ReadVariable& read, BrokerSettings& settings);

// --- Doors; main thread ---

// The same with the variables of this process.
bool importLegacyEnvironment(BrokerSettings& settings);

// Reads `url` and `transport` of section [source] in <legacyFolder>\source.private.ini into `settings`: the
// internal profile's address and its RTSP transport ("udp" exactly; anything else is TCP). A missing file, a
// missing key and an address of more than 8192 characters leave an empty address.
void readPrivateProfile(const std::wstring& legacyFolder, BrokerSettings& settings);

}  // namespace vextra
