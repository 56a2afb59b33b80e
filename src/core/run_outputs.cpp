#include "core/run_outputs.h"

#include "config/source_url.h"

namespace vextra {

bool pureContractsHold() {
    return isValidIpv4(L"127.0.0.1") && !isValidIpv4(L"300.1.1.1") &&
           isUsableSourceUrl(L"http://127.0.0.1:8080/test") && !isUsableSourceUrl(L"file:///x");
}

std::string selfTestJson(const SelfTestResult& result) {
    const auto word = [](bool value) { return value ? "true" : "false"; };
    std::string json = "{\"version\":\"" VEXTRA_VERSION "\"";
    json += std::string(",\"pureContracts\":") + word(result.pureContracts);
    json += std::string(",\"ffmpegAvailable\":") + word(result.ffmpegAvailable);
    json += std::string(",\"gstreamerAvailable\":") + word(result.gstreamerAvailable);
    json += std::string(",\"settingsLoaded\":") + word(result.settingsLoaded);
    json += ",\"networkUsed\":false}\n";
    return json;
}

std::wstring outputFolder(const std::wstring& evidenceFolder, const std::wstring& dataFolder) {
    return evidenceFolder.empty() ? dataFolder : evidenceFolder;
}

}  // namespace vextra
