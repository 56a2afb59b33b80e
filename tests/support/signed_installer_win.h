// An installer on the test server, announced by a signed manifest of a key that belongs to one test.
#pragma once

#include <optional>
#include <string>

#include "base/sha256.h"
#include "base/text.h"
#include "signer/signer_win.h"
#include "update_server_win.h"

namespace vextra::test {

class SignedInstaller {
public:
    SignedInstaller(const UpdateServer& server, std::string version, std::string_view kind = "good")
        : key_(*generateSigningKey()),
          channel_{server.origin(kind), key_.point},
          version_(std::move(version)),
          folder_(server, "/camera-virtual-vextra-mf/" + version_) {}

    // A version that no other test publishes at this time.
    static std::string uniqueVersion() { return "1.0.0-test." + uniqueTestNumber(); }

    // Puts the file on the server and announces it as it is.
    UpdateManifest publish(std::string_view bytes, std::string_view reply = {}) const {
        folder_.put("Setup.exe", bytes, reply);
        return manifestOf(lowerHex(sha256Of(std::as_bytes(std::span(bytes))).value()), bytes.size());
    }
    // Announces a file that need not lie on the server.
    UpdateManifest manifestOf(const std::string& sha256, std::uint64_t sizeBytes) const {
        UpdateManifest manifest{version_, installerUrl(version_, channel_), sha256, sizeBytes, ""};
        manifest.signature = signMessage(buildSignedMessage(manifest), key_).value();
        return manifest;
    }

    const UpdateChannelIdentity& channel() const { return channel_; }
    const ServedFolder& folder() const { return folder_; }

private:
    const SigningKey key_;
    const UpdateChannelIdentity channel_;
    const std::string version_;
    const ServedFolder folder_;
};

}  // namespace vextra::test
