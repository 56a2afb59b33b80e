// What door tests set up and have to give back: folders, files, variables, and a machine on which an
// installer has been. Every owner undoes its work when it ends. A failing set-up throws, which ends the one
// test.
#pragma once

#include <windows.h>

#include <atomic>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>

#include "base/system_win.h"
#include "base/unique_win.h"
#include "bridge/bridge_layout.h"
#include "bridge/bridge_location.h"
#include "start_process_win.h"

namespace vextra {

[[noreturn]] inline void failSetUp(const char* what, DWORD error = GetLastError()) {
    throw std::system_error(static_cast<int>(error), std::system_category(), what);
}

// --- Files -------------------------------------------------------------------------------------------------

class TemporaryFolder {
public:
    TemporaryFolder() {
        static std::atomic<int> made{0};
        DWORD error = ERROR_ALREADY_EXISTS;  // left by a killed process that had our id
        while (error == ERROR_ALREADY_EXISTS) {
            path_ = std::filesystem::temp_directory_path() /
                    ("vextra-test-" + std::to_string(GetCurrentProcessId()) + "-" + std::to_string(++made));
            error = CreateDirectoryW(path_.c_str(), nullptr) ? ERROR_SUCCESS : GetLastError();
        }
        if (error != ERROR_SUCCESS)
            failSetUp("temporary folder", error);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    ~TemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }

    std::wstring path() const { return path_.wstring(); }
    std::wstring operator/(std::wstring_view name) const { return path() + L"\\" + std::wstring(name); }

private:
    std::filesystem::path path_;
};

inline constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

inline UniqueFile openFile(const std::wstring& path, DWORD access, DWORD share, DWORD disposition) {
    return UniqueFile(CreateFileW(path.c_str(), access, share, nullptr, disposition, 0, nullptr));
}

// A new file of zeros.
inline void makeFile(const std::wstring& path, std::uint32_t sizeBytes) {
    const UniqueFile file = openFile(path, GENERIC_WRITE, 0, CREATE_ALWAYS);
    LARGE_INTEGER end{};
    end.QuadPart = sizeBytes;
    if (!file || !SetFilePointerEx(file.get(), end, nullptr, FILE_BEGIN) || !SetEndOfFile(file.get()))
        failSetUp("file of zeros");
}

inline void writeFile(const std::wstring& path, std::string_view bytes) {
    const UniqueFile file = openFile(path, GENERIC_WRITE, kShareAll, CREATE_ALWAYS);
    DWORD written = 0;
    if (!file || !WriteFile(file.get(), bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr) ||
        written != bytes.size())
        failSetUp("file to be written");
}

// What is there of the file: its writer may cut it at any moment, as a broker that starts does with the log.
inline std::string readFile(const std::wstring& path) {
    const UniqueFile file = openFile(path, GENERIC_READ, kShareAll, OPEN_EXISTING);
    LARGE_INTEGER size{};
    if (!file || !GetFileSizeEx(file.get(), &size))
        failSetUp("file to be read");
    std::string bytes(static_cast<std::size_t>(size.QuadPart), '\0');
    DWORD taken = 0;
    if (!ReadFile(file.get(), bytes.data(), static_cast<DWORD>(bytes.size()), &taken, nullptr))
        failSetUp("file to be read");
    bytes.resize(taken);
    return bytes;
}

inline bool fileExists(const std::wstring& path) {
    return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

// A file that no other handle may write until this ends.
class WriteProtection {
public:
    explicit WriteProtection(const std::wstring& path) : path_(path) {
        if (!SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_READONLY))
            failSetUp("write protection");
    }
    WriteProtection(const WriteProtection&) = delete;
    WriteProtection& operator=(const WriteProtection&) = delete;
    ~WriteProtection() { SetFileAttributesW(path_.c_str(), FILE_ATTRIBUTE_NORMAL); }

    // False for accounts that may write any file, as root under Wine.
    bool holds() const { return !openFile(path_, GENERIC_WRITE, kShareAll, OPEN_EXISTING); }

private:
    const std::wstring path_;
};

// The other side of a shared file: what a neighbour process sees and writes through a mapping of its own.
template <typename File>
class NeighbourView {
public:
    explicit NeighbourView(const std::wstring& path)
        : file_(openFile(path, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                         OPEN_EXISTING)),
          mapping_(file_ ? CreateFileMappingW(file_.get(), nullptr, PAGE_READWRITE, 0, sizeof(File), nullptr)
                         : nullptr),
          view_(mapping_ ? MapViewOfFile(mapping_.get(), FILE_MAP_READ | FILE_MAP_WRITE, 0, 0, sizeof(File))
                         : nullptr) {
        if (!view_)
            failSetUp("neighbour's view");
    }
    File* operator->() const { return static_cast<File*>(view_.get()); }
    File& operator*() const { return *operator->(); }
    std::string bytes() const { return {static_cast<const char*>(view_.get()), sizeof(File)}; }

private:
    UniqueFile file_;
    UniqueHandle mapping_;
    UniqueView view_;
};

// True while some handle to the file, or a view of it, is open.
inline bool isHeldOpen(const std::wstring& path) {
    return !openFile(path, GENERIC_READ | GENERIC_WRITE, 0, OPEN_EXISTING);
}

// --- The process's surroundings ----------------------------------------------------------------------------

// Takes a variable away when `value` is null.
class ScopedVariable {
public:
    ScopedVariable(const wchar_t* name, const wchar_t* value) : name_(name) {
        std::wstring old(32'767, L'\0');
        SetLastError(ERROR_SUCCESS);
        const DWORD length = GetEnvironmentVariableW(name, old.data(), static_cast<DWORD>(old.size()));
        if (length != 0 || GetLastError() != ERROR_ENVVAR_NOT_FOUND)
            old_ = old.substr(0, length);
        if (!SetEnvironmentVariableW(name, value) && value != nullptr)
            failSetUp("variable");
    }
    ScopedVariable(const ScopedVariable&) = delete;
    ScopedVariable& operator=(const ScopedVariable&) = delete;
    ~ScopedVariable() { SetEnvironmentVariableW(name_.c_str(), old_ ? old_->c_str() : nullptr); }

private:
    const std::wstring name_;
    std::optional<std::wstring> old_;
};

// For this process, HKEY_LOCAL_MACHINE is an empty key of the user's until this ends: tests need no rights,
// and never touch what a real installer has left on the machine. One at a time.
class ScratchMachineHive {
public:
    ScratchMachineHive() : path_(L"Software\\vextra-test-" + std::to_wstring(GetCurrentProcessId())) {
        HKEY root = nullptr;
        LSTATUS status = RegCreateKeyExW(HKEY_CURRENT_USER, path_.c_str(), 0, nullptr, REG_OPTION_VOLATILE,
                                         KEY_ALL_ACCESS, nullptr, &root, nullptr);
        if (status == ERROR_SUCCESS) {
            status = RegOverridePredefKey(HKEY_LOCAL_MACHINE, root);
            RegCloseKey(root);
        }
        if (status != ERROR_SUCCESS)
            failSetUp("scratch registry", static_cast<DWORD>(status));
    }
    ScratchMachineHive(const ScratchMachineHive&) = delete;
    ScratchMachineHive& operator=(const ScratchMachineHive&) = delete;
    ~ScratchMachineHive() {
        RegOverridePredefKey(HKEY_LOCAL_MACHINE, nullptr);
        RegDeleteTreeW(HKEY_CURRENT_USER, path_.c_str());
    }

    // A value of the broker's key.
    void set(const wchar_t* name, DWORD type, const void* data, std::size_t bytes) const {
        HKEY key = nullptr;
        LSTATUS status =
            RegCreateKeyExW(HKEY_LOCAL_MACHINE, kBrokerRegistryKey, 0, nullptr, REG_OPTION_VOLATILE,
                            KEY_SET_VALUE | KEY_WOW64_64KEY, nullptr, &key, nullptr);
        if (status == ERROR_SUCCESS) {
            status =
                RegSetValueExW(key, name, 0, type, static_cast<const BYTE*>(data), static_cast<DWORD>(bytes));
            RegCloseKey(key);
        }
        if (status != ERROR_SUCCESS)
            failSetUp("registry value", static_cast<DWORD>(status));
    }
    void set(const wchar_t* name, const std::wstring& text) const {
        set(name, REG_SZ, text.c_str(), (text.size() + 1) * sizeof(wchar_t));
    }
    void remove(const wchar_t* name) const {
        const LSTATUS status = RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, kBrokerRegistryKey, name);
        if (status != ERROR_SUCCESS)
            failSetUp("registry value to be removed", static_cast<DWORD>(status));
    }

private:
    const std::wstring path_;
};

// --- The machine -------------------------------------------------------------------------------------------

// A machine on which the installer has been for this user: a program data folder with both shared files (all
// zeros), and the registry values that name them. Tests spoil what they are about.
class ProvisionedMachine {
public:
    ProvisionedMachine() {
        std::filesystem::create_directories(bridgeFolder());
        makeFile(bridgePath(), kBridgeFileBytes);
        makeFile(demandPath(), kDemandFileBytes);
        registry.set(kOwnerSidValue, owner);
        registry.set(kBridgePathValue, bridgePath());
        registry.set(kDemandPathValue, demandPath());
        registry.set(kInstallDirValue, root / L"install");
    }

    std::wstring vextraFolder() const { return root / L"Vextra"; }
    std::wstring bridgeFolder() const { return vextraFolder() + L"\\CameraVirtualMFBeta\\" + owner; }
    std::wstring bridgePath() const { return bridgeFolder() + L"\\latest.frame"; }
    std::wstring demandPath() const { return bridgeFolder() + L"\\demand.bin"; }

    const TemporaryFolder root;
    const ScopedVariable programData{L"ProgramData", root.path().c_str()};
    const ScratchMachineHive registry;
    const std::wstring owner = currentUserSidString();
};

// Publishing is for unelevated processes; a test that publishes says so at its beginning.
#define VEXTRA_SKIP_IF_ELEVATED() \
    if (isElevatedOrUnknown())    \
    GTEST_SKIP() << "runs elevated, and an elevated broker may not publish: start the tests without"

// A link to a folder, as an attacker would put in the way of the broker.
class FolderLink {
public:
    FolderLink(const std::wstring& link, const std::wstring& target) : link_(link) {
        CreateSymbolicLinkW(link.c_str(), target.c_str(),
                            SYMBOLIC_LINK_FLAG_DIRECTORY | SYMBOLIC_LINK_FLAG_ALLOW_UNPRIVILEGED_CREATE);
        // Wine makes no links itself, but shows the host's as what they are, and can start the host's
        // programs.
        if (!exists() && runsUnderWine())
            runOnHost(L"ln", L"-s \"" + hostPath(target) + L"\" \"" + hostPath(link) + L"\"",
                      [&] { return exists(); });
    }
    FolderLink(const FolderLink&) = delete;
    FolderLink& operator=(const FolderLink&) = delete;
    ~FolderLink() {
        if (exists() && !RemoveDirectoryW(link_.c_str()))
            runOnHost(L"rm", L"\"" + hostPath(link_) + L"\"", [&] { return !exists(); });
    }

    // False where this system lets no test make a link.
    bool exists() const {
        const DWORD attributes = GetFileAttributesW(link_.c_str());
        return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
    }

private:
    static std::wstring hostPath(const std::wstring& path) {
        using GetUnixFileName = char*(CDECL*)(LPCWSTR);
        const auto getUnixFileName = reinterpret_cast<GetUnixFileName>(reinterpret_cast<void*>(
            GetProcAddress(GetModuleHandleW(L"kernel32.dll"), "wine_get_unix_file_name")));
        char* const name = getUnixFileName != nullptr ? getUnixFileName(path.c_str()) : nullptr;
        if (name == nullptr)
            return {};
        const std::wstring text(name, name + std::strlen(name));  // temporary folders have plain names
        HeapFree(GetProcessHeap(), 0, name);
        return text;
    }
    template <typename Done>
    static void runOnHost(const std::wstring& program, const std::wstring& arguments, Done done) {
        std::wstring command = program + L" " + arguments;
        STARTUPINFOW startup{};
        startup.cb = sizeof startup;
        PROCESS_INFORMATION child{};
        if (!CreateProcessW((L"\\\\?\\unix\\bin\\" + program).c_str(), command.data(), nullptr, nullptr,
                            FALSE, 0, nullptr, nullptr, &startup, &child))
            return;
        const UniqueHandle process(child.hProcess);
        const UniqueHandle thread(child.hThread);
        for (int waitedMs = 0; !done() && waitedMs < 5000;
             waitedMs += 5)  // a host's program cannot be waited for
            Sleep(5);
    }

    const std::wstring link_;
};

}  // namespace vextra
