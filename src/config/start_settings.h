// Which settings a run of the broker begins with. Pure; what reads and writes them is handed in.
#pragma once

#include <functional>
#include <optional>

#include "config/settings.h"

namespace vextra {

// What the command line asks for.
struct StartRequest {
    bool importEnvironment = false;
    bool testPattern = false;
};

// The store and what earlier releases left, as settings_store.h and legacy_import.h describe them.
struct SettingsAccess {
    std::function<bool(BrokerSettings&)> load;
    std::function<bool()> fileExists;
    std::function<void(BrokerSettings&)> readProfile;
    std::function<bool(BrokerSettings&)> importEnvironment;
    std::function<bool(const BrokerSettings&)> save;
};

struct StartSettings {
    BrokerSettings settings;
    bool loaded = false;       // from the store, or from its backup
    bool sourceUsable = true;  // false: the user has to name a source first
};

// The stored record; without a store the private profile of the earlier release, which is then stored; the
// defaults otherwise. An import changes a copy, which is used only once it is saved. Nothing when the import
// that was asked for failed: what was stored is then as it was.
std::optional<StartSettings> startSettings(const StartRequest& request, const SettingsAccess& access);

}  // namespace vextra
