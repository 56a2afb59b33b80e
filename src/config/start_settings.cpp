#include "config/start_settings.h"

#include <utility>

#include "config/source_url.h"

namespace vextra {
namespace {

bool sourceIsUsable(const BrokerSettings& settings) {
    return isUsableSourceUrl(sourceUrl(settings).view());
}

// A profile that could not be saved is used for this run all the same, and not reported: the next start tries
// again.
void migratePrivateProfile(BrokerSettings& settings, const SettingsAccess& access) {
    access.readProfile(settings);
    if (isUsableSourceUrl(settings.profileUrl.view()))
        access.save(settings);
}

bool importAndSave(BrokerSettings& settings, const SettingsAccess& access) {
    BrokerSettings imported = settings;
    if (!access.importEnvironment(imported) || !access.save(imported))
        return false;
    settings = std::move(imported);
    return true;
}

}  // namespace

std::optional<StartSettings> startSettings(const StartRequest& request, const SettingsAccess& access) {
    StartSettings start;
    start.loaded = access.load(start.settings);
    if (!start.loaded && !access.fileExists())
        migratePrivateProfile(start.settings, access);
    if (request.importEnvironment && !importAndSave(start.settings, access))
        return std::nullopt;
    if (request.testPattern) {
        start.settings.source = SourceKind::kSyntheticTest;  // of this run; what is stored stays
        return start;
    }
    const bool nothingStored = !start.loaded && !access.fileExists();
    if (nothingStored && !sourceIsUsable(start.settings)) {
        start.sourceUsable = false;
        start.settings.source = SourceKind::kCustomUrl;  // the field that the user is to fill in
    }
    return start;
}

}  // namespace vextra
