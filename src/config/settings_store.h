// The settings on disk, encrypted for this user: settings.dpapi in the settings folder, and the record before
// it as settings.dpapi.bak. A save is whole or has not happened; a load falls back on the backup. Main thread
// only.
#pragma once

#include <string>

#include "config/settings.h"

namespace vextra {

// False when the record was not saved; what was saved before can then still be loaded. A save that was cut
// off (a crash, a power failure) leaves settings.dpapi.new, and no save succeeds until that is removed by
// hand. One that this process could not delete, since another held it open, goes with its next save.
bool saveSettings(const std::wstring& folder, const BrokerSettings& settings);

// False, and `settings` as it was, when neither file gives a record. Nothing is written. `fromBackup`: it is
// the record before the last. The broker does not tell the user, for whom it is as good as the other; the
// tests ask for it, for the two records may be alike.
bool loadSettings(const std::wstring& folder, BrokerSettings& settings, bool& fromBackup);

// True also for a settings.dpapi that cannot be loaded.
bool settingsFileExists(const std::wstring& folder);

}  // namespace vextra
