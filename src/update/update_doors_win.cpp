#include "update/update_doors_win.h"

#include "update/https_transfer_win.h"
#include "update/installer_win.h"
#include "update/signature.h"

namespace vextra {

UpdateSystemDoors systemUpdateDoors(HWND owner, const UpdateChannelIdentity& channel) {
    return {
        .now = GetTickCount64,
        .ask =
            [owner](const UpdateQuestion& question) {
                return MessageBoxW(owner, std::wstring(question.text).c_str(),
                                   std::wstring(question.title).c_str(),
                                   MB_YESNO | MB_DEFBUTTON2 | MB_ICONQUESTION) == IDYES;
            },
        .openInstaller =
            [owner, &channel](const UpdateManifest& manifest, const std::wstring& path) {
                return openVerifiedInstaller(owner, manifest, path, channel);
            },
        .runCheck =
            [&channel](const UpdateCheckRequest& request, const std::atomic<bool>& cancel) {
                const auto fetch = [&cancel](const SecretText& url, const TransferLimits& limits) {
                    return fetchJson(url, limits, cancel);
                };
                return runUpdateCheck(request, channel,
                                      {.fetchJson = fetch, .verifySignature = verifyManifestSignature});
            },
        .download =
            [&channel](const UpdateManifest& manifest, const std::atomic<bool>& cancel,
                       std::atomic<std::uint32_t>& progressPercent) {
                return downloadInstaller(manifest, channel, cancel, progressPercent);
            },
    };
}

}  // namespace vextra
