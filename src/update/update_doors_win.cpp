#include "update/update_doors_win.h"
#include "update/https_transfer_win.h"
#include "update/installer_win.h"
#include "update/signature.h"

namespace vextra {

UpdateCheckResult checkForUpdate(UpdateCheckRequest request, const UpdateChannelIdentity& channel,
                                 const std::atomic<bool>& cancel) {
    return runUpdateCheck(
        request, channel,
        {.fetchJson = [&cancel](const SecretText& url,
                                const TransferLimits& limits) { return fetchJson(url, limits, cancel); },
         .verifySignature = verifyManifestSignature});
}

UpdateChannelDoors systemUpdateDoors(HWND owner, const UpdateChannelIdentity& channel) {
    UpdateChannelDoors doors;
    doors.now = GetTickCount64;
    doors.ask = [owner](const UpdateQuestion& question) {
        return MessageBoxW(owner, std::wstring(question.text).c_str(), std::wstring(question.title).c_str(),
                           MB_YESNO | MB_DEFBUTTON2 | MB_ICONQUESTION) == IDYES;
    };
    doors.openInstaller = [owner, &channel](const UpdateManifest& manifest, const std::wstring& path) {
        return openVerifiedInstaller(owner, manifest, path, channel);
    };
    doors.runCheck = [&channel](UpdateCheckRequest request, const std::atomic<bool>& cancel) {
        return checkForUpdate(std::move(request), channel, cancel);
    };
    doors.download = [&channel](const UpdateManifest& manifest, const std::atomic<bool>& cancel,
                                std::atomic<std::uint32_t>& progressPercent) {
        return downloadInstaller(manifest, channel, cancel, progressPercent);
    };
    return doors;
}

}  // namespace vextra
