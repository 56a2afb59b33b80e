// What the earlier release kept in a private INI file. Read only: the file is never written, moved or
// deleted.
#pragma once

#include <string>

#include "config/settings.h"

namespace vextra {

// Reads `url` and `transport` of section [source] in <legacyFolder>\source.private.ini into `settings`: the
// internal profile's address and its RTSP transport ("udp" exactly; anything else is TCP). A missing file, a
// missing key and an address of more than 8192 characters leave an empty address. Main thread.
void readPrivateProfile(const std::wstring& legacyFolder, BrokerSettings& settings);

}  // namespace vextra
