// A machine on which the installer has been for this user, as other processes see it: the broker's key in the
// real HKEY_LOCAL_MACHINE, a program data folder of the test's own, and both shared files. Undone when it
// ends. One at a time on a machine, and never where a broker is really installed or runs.
#pragma once

#include "broker_fixture_win.h"
#include "own_machine_win.h"

namespace vextra::test {

class InstalledMachine {
public:
    InstalledMachine() {
        refuseSomebodysMachine();
        setString(kTestsMark, L"yes");
        repair();
    }
    InstalledMachine(const InstalledMachine&) = delete;
    InstalledMachine& operator=(const InstalledMachine&) = delete;
    ~InstalledMachine() { RegDeleteTreeW(HKEY_LOCAL_MACHINE, kBrokerRegistryKey); }

    std::wstring root() const { return root_.path(); }
    std::wstring bridgeFolder() const { return root_ / L"Vextra\\CameraVirtualMFBeta\\" + owner_; }
    std::wstring bridgePath() const { return bridgeFolder() + L"\\latest.frame"; }
    std::wstring demandPath() const { return bridgeFolder() + L"\\demand.bin"; }

    // Whatever a test spoilt is whole again; files of the right size stay as they are.
    void repair() {
        std::filesystem::create_directories(bridgeFolder());
        makeWhole(bridgePath(), kBridgeFileBytes);
        makeWhole(demandPath(), kDemandFileBytes);
        setString(kOwnerSidValue, owner_);
        setString(kBridgePathValue, bridgePath());
        setString(kDemandPathValue, demandPath());
        setString(kInstallDirValue, root_ / L"install");
    }

    void setString(const wchar_t* name, const std::wstring& text) {
        set(name, REG_SZ, text.c_str(), static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t)));
    }
    void setNumber(const wchar_t* name, DWORD number) { set(name, REG_DWORD, &number, sizeof number); }
    void removeValue(const wchar_t* name) {
        RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, kBrokerRegistryKey, name);
    }

private:
    static void makeWhole(const std::wstring& path, std::uint32_t sizeBytes) {
        namespace fs = std::filesystem;
        if (fs::is_regular_file(path) && fs::file_size(path) == sizeBytes)
            return;
        fs::remove_all(path);
        makeFile(path, sizeBytes);
    }
    static void set(const wchar_t* name, DWORD type, const void* data, DWORD bytes) {
        const LSTATUS status =
            RegSetKeyValueW(HKEY_LOCAL_MACHINE, kBrokerRegistryKey, name, type, data, bytes);
        if (status != ERROR_SUCCESS)
            failSetUp("registry value", static_cast<DWORD>(status));
    }

    const TemporaryFolder root_;
    const ScopedVariable programData_{L"ProgramData", root_.path().c_str()};
    const std::wstring owner_ = currentUserSidString();
};

}  // namespace vextra::test
