// The stub mfsensorgroup.dll in the system folder, for a Windows that has none: Wine's. Every session shares
// that folder's other files with all the others, so nothing is ever replaced. One at a time on a machine.
#pragma once

#include <windows.h>

#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "broker_fixture_win.h"
#include "broker_run_win.h"
#include "stub_camera/stub_camera.h"

namespace vextra::test {

inline std::wstring cameraLibraryPath() {
    wchar_t folder[MAX_PATH] = L"";
    GetSystemDirectoryW(folder, ARRAYSIZE(folder));
    return std::wstring(folder) + L"\\mfsensorgroup.dll";
}

inline std::wstring stubCameraLibrary() {
    return builtFile(L"tests\\stub-mfsensorgroup.dll");
}

// Whether this Windows has the library itself. A stub that a killed test has left is not that, and is taken
// away.
inline bool systemHasCameraLibrary() {
    if (fileExists(cameraLibraryPath()) && readFile(cameraLibraryPath()) == readFile(stubCameraLibrary()))
        DeleteFileW(cameraLibraryPath().c_str());
    return fileExists(cameraLibraryPath());
}

class StubCameraInstall {
public:
    explicit StubCameraInstall(const std::wstring& recordPath)
        : recordPath_(recordPath), recordVariable_(kCameraRecordVariable, recordPath.c_str()) {
        if (!CopyFileW(stubCameraLibrary().c_str(), cameraLibraryPath().c_str(), TRUE))
            failSetUp("stub mfsensorgroup.dll");
    }
    ~StubCameraInstall() {
        // A program that has just ended may hold it for a moment longer.
        waitUntil([] { return DeleteFileW(cameraLibraryPath().c_str()) != FALSE; }, 5000);
    }
    StubCameraInstall(const StubCameraInstall&) = delete;
    StubCameraInstall& operator=(const StubCameraInstall&) = delete;

    // The lines so far, one a call.
    std::vector<std::string> calls() const {
        std::vector<std::string> lines;
        std::istringstream text(fileExists(recordPath_) ? readFile(recordPath_) : "");
        for (std::string line; std::getline(text, line);)
            lines.push_back(line);
        return lines;
    }

private:
    const std::wstring recordPath_;
    const ScopedVariable recordVariable_;
};

}  // namespace vextra::test
