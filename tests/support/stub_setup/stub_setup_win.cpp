// Stands in for an installer: writes the command line that it was started with beside itself, and ends.
#include <windows.h>

#include <string>
#include <vector>

#include "base/text.h"
#include "base/unique_win.h"

int WINAPI wWinMain(HINSTANCE, HINSTANCE, PWSTR, int) {
    std::vector<wchar_t> path(32'768);  // the longest path there is
    GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
    const std::wstring record = std::wstring(path.data()) + L".arguments";
    const std::wstring unfinished = record + L".new";
    const std::string line = vextra::utf8FromWide(GetCommandLineW());
    {
        const vextra::UniqueFile file(
            CreateFileW(unfinished.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr));
        DWORD written = 0;
        if (!file || !WriteFile(file.get(), line.data(), static_cast<DWORD>(line.size()), &written, nullptr))
            return 1;
    }
    return MoveFileExW(unfinished.c_str(), record.c_str(), MOVEFILE_REPLACE_EXISTING) ? 0 : 1;
}
