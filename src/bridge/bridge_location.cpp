#include "bridge/bridge_location.h"

namespace vextra {

bool isOwnerSidForm(std::wstring_view sid) {
    return sid.size() >= 9 && sid.size() <= 184 && sid.starts_with(L"S-1-5-21-");
}

std::wstring deriveBridgePath(std::wstring_view programData, std::wstring_view ownerSid) {
    std::wstring path(programData);
    path += L"\\" VEXTRA_FOLDER_W L"\\";
    path += ownerSid;
    path += L"\\latest.frame";
    return path;
}

std::wstring deriveDemandPath(std::wstring_view bridgePath) {
    const std::size_t cut = bridgePath.rfind(L'\\');
    if (cut == std::wstring_view::npos)
        return {};
    std::wstring path(bridgePath.substr(0, cut));
    path += L"\\demand.bin";
    return path;
}

std::vector<std::wstring> parentFolders(std::wstring_view path) {
    std::vector<std::wstring> folders;
    for (std::size_t i = path.find(L'\\', 3); i != std::wstring_view::npos; i = path.find(L'\\', i + 1))
        folders.emplace_back(path.substr(0, i));
    return folders;
}

bool isMediaSourceAccount(std::wstring_view sid) {
    return sid == L"S-1-5-19" || sid == L"S-1-5-18";
}

}  // namespace vextra
