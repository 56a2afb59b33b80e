// A manifest as a publisher's server hands it out, field by field, so that tests can spoil one.
#pragma once

#include <string>

#include "update/channel.h"
#include "update/manifest.h"

namespace vextra::test {

inline const UpdateChannelIdentity& testChannel() {
    static const UpdateChannelIdentity channel{"https://updates.example:8443", EcPoint{std::byte{4}}};
    return channel;
}

// Each value in the notation of JSON.
struct ManifestText {
    std::string schemaVersion = "1";
    std::string app = "\"CameraVirtualVextraMF\"";
    std::string channel = "\"beta\"";
    std::string version = "\"0.2.1\"";
    std::string kind = "\"mf-installer\"";
    std::string url = "\"https://updates.example:8443/camera-virtual-vextra-mf/0.2.1/Setup.exe\"";
    std::string sha256 = "\"" + std::string(64, 'a') + "\"";
    std::string size = "1048576";
    std::string moreInRoot;   // ',"x":1'
    std::string moreInAsset;  // likewise

    std::string asset() const {
        return R"({"kind":)" + kind + R"(,"url":)" + url + R"(,"sha256":)" + sha256 + R"(,"size":)" + size +
               moreInAsset + "}";
    }
    std::string json() const { return jsonWithAsset(asset()); }
    std::string jsonWithAsset(const std::string& assetJson) const {
        return R"({"schema_version":)" + schemaVersion + R"(,"app":)" + app + R"(,"channel":)" + channel +
               R"(,"version":)" + version + R"(,"asset":)" + assetJson + moreInRoot + "}";
    }

    static ManifestText forVersion(const std::string& version,
                                   const UpdateChannelIdentity& channel = testChannel()) {
        ManifestText text;
        text.version = "\"" + version + "\"";
        text.url = "\"" + installerUrl(version, channel) + "\"";
        return text;
    }
};

}  // namespace vextra::test
