// Any bytes as a manifest: no crash, in what is accepted every field obeys its rule and can be signed,
// and what names its own installer is read the same when the signer writes it.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "manifest_text.h"
#include "signer/signer_rules.h"
#include "update/strict_url.h"
#include "update/version.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto manifest = vextra::parseUpdateManifest({reinterpret_cast<const char*>(data), size});
    if (!manifest)
        return 0;
    const std::string message = vextra::buildSignedMessage(*manifest);
    const bool official = vextra::isOfficialInstallerUrl(*manifest, vextra::test::testChannel());
    const auto again = vextra::parseUpdateManifest(vextra::manifestJson(*manifest));
    const bool sameAgain = again && vextra::buildSignedMessage(*again) == message;
    const bool good =
        vextra::parseVersion(manifest->version) && vextra::isStrictHttpsUrl(manifest->installerUrl) &&
        manifest->sha256.size() == 64 && vextra::isInstallerSize(manifest->sizeBytes) &&
        manifest->signature.empty() && std::ranges::count(message, '\n') == 6 &&
        (!official ||
         (sameAgain && manifest->installerUrl.ends_with("/" + manifest->version + "/Setup.exe")));
    if (!good)
        std::abort();
    return 0;
}
