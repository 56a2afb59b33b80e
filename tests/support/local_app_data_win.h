// For this process, the user's local application data is a folder that is gone when this ends. One at a time.
#pragma once

#include <windows.h>

#include <objbase.h>
#include <shlobj.h>

#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "import_swap_win.h"

namespace vextra::test {

class ScratchLocalAppData {
public:
    ScratchLocalAppData() { path() = folder_.path(); }

    std::wstring updates() const { return folder_ / L"Vextra\\CameraVirtualMFBeta\\updates"; }
    // The folders of single downloads.
    std::vector<std::filesystem::path> downloads() const {
        std::vector<std::filesystem::path> found;
        if (std::filesystem::exists(updates())) {
            for (const auto& entry : std::filesystem::directory_iterator(updates()))
                found.push_back(entry.path());
        }
        return found;
    }
    const TemporaryFolder& folder() const { return folder_; }

private:
    static std::wstring& path() {
        static std::wstring path;
        return path;
    }
    static HRESULT WINAPI answer(REFKNOWNFOLDERID, DWORD, HANDLE, PWSTR* out) {
        const std::size_t bytes = (path().size() + 1) * sizeof(wchar_t);
        *out = static_cast<PWSTR>(CoTaskMemAlloc(bytes));
        std::memcpy(*out, path().c_str(), bytes);
        return S_OK;
    }

    const TemporaryFolder folder_;
    const ImportSwap<decltype(answer)> swap_{"SHGetKnownFolderPath", answer};
};

}  // namespace vextra::test
