#include "provisioner/provision_win.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <sddl.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

#include "base/system_win.h"
#include "base/unique_win.h"
#include "bridge/bridge_location.h"
#include "bridge/shared_file_win.h"

namespace vextra {
namespace {

namespace fs = std::filesystem;

constexpr wchar_t kInstallDir[] = L"C:\\Program Files\\Vextra Teste";
constexpr wchar_t kOtherOwner[] = L"S-1-5-21-7-7-7-1007";
const std::wstring kVendorKey = L"SOFTWARE\\Vextra";

bool keyExists(const std::wstring& path) {
    HKEY key = nullptr;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, KEY_QUERY_VALUE | KEY_WOW64_64KEY, &key) !=
        ERROR_SUCCESS)
        return false;
    RegCloseKey(key);
    return true;
}

void setValue(const std::wstring& keyPath, const wchar_t* name, const std::wstring& text) {
    HKEY key = nullptr;
    ASSERT_EQ(RegCreateKeyExW(HKEY_LOCAL_MACHINE, keyPath.c_str(), 0, nullptr, 0,
                              KEY_SET_VALUE | KEY_WOW64_64KEY, nullptr, &key, nullptr),
              ERROR_SUCCESS);
    RegSetValueExW(key, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(text.c_str()),
                   static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t)));
    RegCloseKey(key);
}

void writeBytes(const fs::path& path, std::size_t count) {
    std::ofstream(path, std::ios::binary) << std::string(count, 'x');
}

bool contains(const std::vector<std::wstring>& lines, std::wstring_view part) {
    return std::any_of(lines.begin(), lines.end(),
                       [&](const std::wstring& line) { return line.find(part) != std::wstring::npos; });
}

bool isLink(const fs::path& path) {
    const DWORD attributes = GetFileAttributesW(path.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
}

// Wine neither makes nor removes links, although it says so; but it starts the host's own programs, which do.
void runOnHost(const fs::path& folder, std::wstring commandLine) {
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process{};
    if (!CreateProcessW(nullptr, commandLine.data(), nullptr, nullptr, FALSE, 0, nullptr, folder.c_str(),
                        &startup, &process))
        return;
    const UniqueHandle started(process.hProcess);
    const UniqueHandle thread(process.hThread);
}

bool becomesLink(const fs::path& path, bool wanted) {
    for (int i = 0; i < 500 && isLink(path) != wanted; ++i)
        Sleep(10);  // the handle of a host's program tells nothing of its end
    return isLink(path) == wanted;
}

bool makeFolderLink(const fs::path& folder, const std::wstring& target, const std::wstring& name) {
    const fs::path link = folder / name;
    CreateSymbolicLinkW(link.c_str(), target.c_str(), SYMBOLIC_LINK_FLAG_DIRECTORY);
    if (isLink(link))
        return true;
    std::error_code ignored;
    fs::remove(link, ignored);
    runOnHost(folder, L"Z:\\bin\\ln -s " + target + L" " + name);
    return becomesLink(link, true);
}

void removeFolderLink(const fs::path& folder, const std::wstring& name) {
    if (!isLink(folder / name))
        return;
    if (accessListsAreKept()) {
        RemoveDirectoryW((folder / name).c_str());
        return;
    }
    runOnHost(folder, L"Z:\\bin\\rm " + name);
    becomesLink(folder / name, false);
}

// A program data folder of the test's own; the registry key is the machine's, and gone afterwards.
class Provisioner : public testing::Test {
protected:
    void SetUp() override {
        // The place is the machine's: another test of this project that uses it must not be disturbed.
        lock_.reset(CreateMutexW(nullptr, FALSE, L"Global\\VextraMachineKeyTest"));
        ASSERT_TRUE(lock_);
        ASSERT_EQ(WaitForSingleObject(lock_.get(), 30'000), WAIT_OBJECT_0);
        ASSERT_FALSE(keyExists(kBrokerRegistryKey)) << "this machine is provisioned; not a place for tests";
        ours_ = true;
        base_ = fs::path(L"C:\\vextra-provision-test-" + std::to_wstring(GetCurrentProcessId()));
        fs::create_directory(base_);
        wchar_t former[1024];
        formerProgramData_ = {former, GetEnvironmentVariableW(L"ProgramData", former, ARRAYSIZE(former))};
        SetEnvironmentVariableW(L"ProgramData", base_.c_str());
    }
    void TearDown() override {
        if (!ours_)  // what is there is an installation's
            return;
        RegDeleteTreeW(HKEY_LOCAL_MACHINE, kBrokerRegistryKey);
        RegDeleteKeyExW(HKEY_LOCAL_MACHINE, kVendorKey.c_str(), KEY_WOW64_64KEY, 0);
        SetEnvironmentVariableW(L"ProgramData", formerProgramData_.c_str());
        std::error_code ignored;
        removeFolderLink(base_, L"Vextra");
        fs::remove_all(base_, ignored);
        ReleaseMutex(lock_.get());
    }

    ProvisionReport run(DemandWriters writers = DemandWriters::kServicesOnly) {
        return provision({owner_, kInstallDir, writers});
    }
    fs::path ownerFolder() const { return base_ / L"Vextra" / L"CameraVirtualMFBeta" / owner_; }
    fs::path bridge() const { return ownerFolder() / L"latest.frame"; }
    fs::path demand() const { return ownerFolder() / L"demand.bin"; }

    const std::wstring owner_ = currentUserSidString();
    fs::path base_;

private:
    UniqueHandle lock_;
    bool ours_ = false;
    std::wstring formerProgramData_;
};

TEST_F(Provisioner, SaysThatAnEntraIdAccountIsNotServed) {
    const ProvisionReport report = provision({L"S-1-12-1-1-2-3-4", kInstallDir});
    EXPECT_NE(report.trouble.find(L"Entra ID"), std::wstring::npos) << fs::path(report.trouble);
    EXPECT_TRUE(fs::is_empty(base_));
    EXPECT_FALSE(keyExists(kBrokerRegistryKey));
}

TEST_F(Provisioner, MakesWhatTheBrokerAccepts) {
    const ProvisionReport report = run();
    ASSERT_TRUE(report.ok()) << fs::path(report.trouble);
    EXPECT_EQ(fs::file_size(bridge()), 3'686'528u);
    EXPECT_EQ(fs::file_size(demand()), 4096u);
    EXPECT_EQ(readBrokerRegistryValue(kInstallDirValue), kInstallDir);
    EXPECT_EQ(resolveBridgePath(), bridge().wstring());
    EXPECT_EQ(resolveDemandPath(), demand().wstring());
    EXPECT_TRUE(ownerIsCurrentUser());
    BridgeWriter reader;
    EXPECT_TRUE(reader.open(FileAccess::kReadOnly));
    EXPECT_EQ(countLeasesOnce(), 0);
}

TEST_F(Provisioner, ChangesNothingTheSecondTime) {
    ASSERT_TRUE(run().ok());
    const auto written = fs::last_write_time(bridge());
    const ProvisionReport report = run();
    EXPECT_TRUE(report.ok());
    EXPECT_TRUE(report.lines.empty());
    EXPECT_EQ(fs::last_write_time(bridge()), written);
}

TEST_F(Provisioner, RunsAgainWhileTheFilesAreInUse) {
    ASSERT_TRUE(run().ok());
    const SharedFile inUse = SharedFile::open(bridge().wstring(), kBridgeFileBytes, FileAccess::kReadWrite);
    ASSERT_TRUE(inUse);
    static_cast<BridgeFile*>(inUse.data())->header.sequence = 12;
    EXPECT_TRUE(run().ok());
    EXPECT_EQ(static_cast<BridgeFile*>(inUse.data())->header.sequence, 12u);
}

TEST_F(Provisioner, CompletesWhatIsMissing) {
    ASSERT_TRUE(run().ok());
    fs::remove(demand());
    const ProvisionReport report = run();
    EXPECT_TRUE(report.ok());
    ASSERT_EQ(report.lines.size(), 1u);
    EXPECT_TRUE(contains(report.lines, L"criado: " + demand().wstring()));
}

TEST_F(Provisioner, RefusesAFileOfAWrongSizeAndLeavesIt) {
    fs::create_directories(ownerFolder());
    for (const std::size_t size : {std::size_t{0}, std::size_t{3'686'527}, std::size_t{3'686'529}}) {
        writeBytes(bridge(), size);
        const ProvisionReport report = run();
        // Elsewhere than under Wine the planted folder's owner may be what is refused first.
        EXPECT_FALSE(report.ok());
        if (!accessListsAreKept()) {
            EXPECT_NE(report.trouble.find(std::to_wstring(size) + L" bytes"), std::wstring::npos);
        }
        EXPECT_EQ(fs::file_size(bridge()), size);
    }
    EXPECT_FALSE(keyExists(kBrokerRegistryKey));
}

TEST_F(Provisioner, RefusesAFolderInThePlaceOfAFile) {
    ASSERT_TRUE(run().ok());
    fs::remove(demand());
    fs::create_directory(demand());
    const ProvisionReport report = run();
    EXPECT_NE(report.trouble.find(L"é uma pasta"), std::wstring::npos) << fs::path(report.trouble);
    EXPECT_TRUE(fs::is_directory(demand()));
}

TEST_F(Provisioner, RefusesAFileInThePlaceOfAFolder) {
    writeBytes(base_ / L"Vextra", 1);
    const ProvisionReport report = run();
    EXPECT_NE(report.trouble.find(L"é um arquivo"), std::wstring::npos) << fs::path(report.trouble);
    EXPECT_TRUE(fs::is_regular_file(base_ / L"Vextra"));
}

TEST_F(Provisioner, RefusesAFileThatHasASecondName) {
    ASSERT_TRUE(run().ok());
    ASSERT_TRUE(CreateHardLinkW((base_ / L"second").c_str(), bridge().c_str(), nullptr));
    const ProvisionReport report = run();
    EXPECT_NE(report.trouble.find(L"hard link"), std::wstring::npos) << fs::path(report.trouble);
}

TEST_F(Provisioner, RefusesALinkOnTheWay) {
    fs::create_directory(base_ / L"elsewhere");
    if (!makeFolderLink(base_, L"elsewhere", L"Vextra"))
        GTEST_SKIP() << "no directory link could be made";
    EXPECT_NE(run().trouble.find(L"link"), std::wstring::npos);
    EXPECT_TRUE(fs::is_empty(base_ / L"elsewhere"));
}

TEST_F(Provisioner, RemovesNothingBehindALink) {
    ASSERT_TRUE(run().ok());
    fs::rename(base_ / L"Vextra", base_ / L"elsewhere");
    if (!makeFolderLink(base_, L"elsewhere", L"Vextra"))
        GTEST_SKIP() << "no directory link could be made";
    EXPECT_NE(removeProvision(owner_).trouble.find(L"link"), std::wstring::npos);
    EXPECT_TRUE(fs::exists(bridge()));
    EXPECT_FALSE(describeProvision(owner_).ok());
}

TEST_F(Provisioner, RefusesAnOwnerThatIsNoUserAndARelativeProgramData) {
    EXPECT_FALSE(provision({L"S-1-5-18", kInstallDir, DemandWriters::kServicesOnly}).ok());
    EXPECT_FALSE(provision({L"", kInstallDir, DemandWriters::kServicesOnly}).ok());
    EXPECT_FALSE(provision({owner_, L"relative", DemandWriters::kServicesOnly}).ok());
    SetEnvironmentVariableW(L"ProgramData", L"relative");
    EXPECT_FALSE(run().ok());
    EXPECT_FALSE(keyExists(kBrokerRegistryKey));
}

TEST_F(Provisioner, DescribesWhatIsThere) {
    const ProvisionReport before = describeProvision(owner_);
    EXPECT_FALSE(before.ok());
    EXPECT_EQ(before.lines.size(), 9u);
    EXPECT_TRUE(std::all_of(before.lines.begin(), before.lines.end(),
                            [](const std::wstring& line) { return line.starts_with(L"[falta]"); }));
    ASSERT_TRUE(run().ok());
    const ProvisionReport after = describeProvision(owner_);
    EXPECT_TRUE(after.ok());
    EXPECT_TRUE(std::all_of(after.lines.begin(), after.lines.end(),
                            [](const std::wstring& line) { return line.starts_with(L"[certo]"); }));
    fs::resize_file(demand(), 4097);
    setValue(kBrokerRegistryKey, kBridgePathValue, L"C:\\elsewhere\\latest.frame");
    const ProvisionReport damaged = describeProvision(owner_);
    EXPECT_FALSE(damaged.ok());
    EXPECT_TRUE(contains(damaged.lines, L"tem 4097 bytes"));
    EXPECT_TRUE(contains(damaged.lines, L"[errado] BridgePath"));
}

TEST_F(Provisioner, RemovesAllThatItMade) {
    ASSERT_TRUE(run().ok());
    EXPECT_TRUE(removeProvision(owner_).ok());
    EXPECT_TRUE(fs::is_empty(base_));
    EXPECT_FALSE(keyExists(kVendorKey));
    const ProvisionReport again = removeProvision(owner_);
    EXPECT_TRUE(again.ok());
    EXPECT_TRUE(again.lines.empty());
}

TEST_F(Provisioner, RemovesNothingThatItDidNotMake) {
    ASSERT_TRUE(run().ok());
    writeBytes(ownerFolder() / L"other.txt", 3);
    setValue(kBrokerRegistryKey, L"Other", L"value");
    EXPECT_TRUE(removeProvision(owner_).ok());
    EXPECT_FALSE(fs::exists(bridge()));
    EXPECT_TRUE(fs::exists(ownerFolder() / L"other.txt"));
    EXPECT_EQ(readBrokerRegistryValue(L"Other"), L"value");
    EXPECT_EQ(readBrokerRegistryValue(kOwnerSidValue), L"");
}

TEST_F(Provisioner, RemovesNothingOfFilesInUse) {
    ASSERT_TRUE(run().ok());
    {
        const SharedFile inUse =
            SharedFile::open(demand().wstring(), kDemandFileBytes, FileAccess::kReadOnly);
        ASSERT_TRUE(inUse);
        const ProvisionReport report = removeProvision(owner_);
        EXPECT_NE(report.trouble.find(L"em uso"), std::wstring::npos) << fs::path(report.trouble);
    }
    EXPECT_TRUE(fs::exists(bridge()));
    EXPECT_TRUE(fs::exists(demand()));
    EXPECT_TRUE(describeProvision(owner_).ok());
}

TEST_F(Provisioner, RemovesNothingOfAnotherSize) {
    ASSERT_TRUE(run().ok());
    fs::resize_file(demand(), 5);
    EXPECT_FALSE(removeProvision(owner_).ok());
    EXPECT_TRUE(fs::exists(bridge()));
    EXPECT_EQ(fs::file_size(demand()), 5u);
}

TEST_F(Provisioner, LeavesTheRegistrationOfAnotherUser) {
    ASSERT_TRUE(provision({kOtherOwner, kInstallDir, DemandWriters::kServicesOnly}).ok());
    const auto others = readBrokerRegistryValue(kBridgePathValue);
    ASSERT_TRUE(removeProvision(owner_).ok());
    EXPECT_EQ(readBrokerRegistryValue(kOwnerSidValue), kOtherOwner);
    EXPECT_TRUE(fs::exists(others));
}

TEST_F(Provisioner, SaysWhoseRegistrationItReplaces) {
    ASSERT_TRUE(provision({kOtherOwner, kInstallDir, DemandWriters::kServicesOnly}).ok());
    const ProvisionReport report = run();
    ASSERT_TRUE(report.ok());
    EXPECT_TRUE(contains(report.lines, std::wstring(L"(antes: ") + kOtherOwner));
    EXPECT_EQ(readBrokerRegistryValue(kOwnerSidValue), owner_);
}

// --- What the access lists mean, as the system reads them ---

constexpr DWORD kReplaceRights = DELETE | WRITE_DAC | WRITE_OWNER;

struct Rights {
    DWORD here = 0;
    bool inherited = false;
};

Rights rightsOf(const std::wstring& sddl, const wchar_t* account) {
    UniqueLocalMemory descriptor;
    UniqueLocalMemory sid;
    EXPECT_TRUE(ConvertStringSecurityDescriptorToSecurityDescriptorW(sddl.c_str(), SDDL_REVISION_1,
                                                                     descriptor.put(), nullptr));
    EXPECT_TRUE(ConvertStringSidToSidW(account, sid.put()));
    PACL list = nullptr;
    BOOL present = FALSE;
    BOOL defaulted = FALSE;
    EXPECT_TRUE(GetSecurityDescriptorDacl(descriptor.get(), &present, &list, &defaulted));
    Rights rights;
    for (DWORD i = 0; list != nullptr && i < list->AceCount; ++i) {
        void* raw = nullptr;
        EXPECT_TRUE(GetAce(list, i, &raw));
        auto* entry = static_cast<ACCESS_ALLOWED_ACE*>(raw);
        EXPECT_EQ(entry->Header.AceType, ACCESS_ALLOWED_ACE_TYPE);
        if (!EqualSid(&entry->SidStart, sid.get()))
            continue;
        rights.here |= entry->Mask;
        rights.inherited = (entry->Header.AceFlags & (OBJECT_INHERIT_ACE | CONTAINER_INHERIT_ACE)) != 0;
    }
    return rights;
}

constexpr wchar_t kSystem[] = L"S-1-5-18";
constexpr wchar_t kAdministrators[] = L"S-1-5-32-544";
constexpr wchar_t kLocalServiceSid[] = L"S-1-5-19";
constexpr wchar_t kUsers[] = L"S-1-5-32-545";
constexpr wchar_t kSomeOwner[] = L"S-1-5-21-1-2-3-1001";

std::vector<SharedObject> objectsFor(DemandWriters writers) {
    return sharedObjects(L"C:\\P\\V\\C\\S\\latest.frame", kSomeOwner, writers);
}

TEST(AccessLists, GiveAllToSystemAndAdministratorsWhoOwnEverything) {
    for (const SharedObject& object : objectsFor(DemandWriters::kServicesOnly)) {
        EXPECT_EQ(rightsOf(object.sddl, kSystem).here, DWORD{FILE_ALL_ACCESS});
        EXPECT_EQ(rightsOf(object.sddl, kAdministrators).here, DWORD{FILE_ALL_ACCESS});
        EXPECT_TRUE(object.sddl.starts_with(L"O:BAD:P(")) << fs::path(object.sddl);
    }
}

TEST(AccessLists, LetNobodyElseDeleteRepermitOrAddAnything) {
    for (const DemandWriters writers : {DemandWriters::kServicesOnly, DemandWriters::kServicesAndOwner}) {
        for (const SharedObject& object : objectsFor(writers)) {
            for (const wchar_t* account : {kSomeOwner, kLocalServiceSid, kUsers}) {
                const DWORD rights = rightsOf(object.sddl, account).here;
                EXPECT_EQ(rights & kReplaceRights, 0u);
                if (object.kind == SharedObjectKind::kFolder) {
                    EXPECT_EQ(rights & (FILE_ADD_FILE | FILE_ADD_SUBDIRECTORY | FILE_DELETE_CHILD |
                                        FILE_WRITE_ATTRIBUTES | FILE_WRITE_EA),
                              0u);
                }
            }
        }
    }
}

TEST(AccessLists, GiveEachSideWhatItOpensTheFilesWith) {
    const auto objects = objectsFor(DemandWriters::kServicesOnly);
    const std::wstring& bridge = objects[3].sddl;
    const std::wstring& demand = objects[4].sddl;
    EXPECT_EQ(rightsOf(bridge, kSomeOwner).here, DWORD{FILE_GENERIC_READ | FILE_GENERIC_WRITE});
    EXPECT_EQ(rightsOf(bridge, kLocalServiceSid).here, DWORD{FILE_GENERIC_READ});
    EXPECT_EQ(rightsOf(demand, kSomeOwner).here, DWORD{FILE_GENERIC_READ});
    EXPECT_EQ(rightsOf(demand, kLocalServiceSid).here, DWORD{FILE_GENERIC_READ | FILE_GENERIC_WRITE});
    EXPECT_EQ(rightsOf(bridge, kUsers).here, 0u);
    EXPECT_EQ(rightsOf(demand, kUsers).here, 0u);
}

TEST(AccessLists, LetTheOwnerWriteTheDemandFileForTrialsOnly) {
    const auto forTrials = objectsFor(DemandWriters::kServicesAndOwner);
    EXPECT_EQ(rightsOf(forTrials[4].sddl, kSomeOwner).here, DWORD{FILE_GENERIC_READ | FILE_GENERIC_WRITE});
    const auto forWork = objectsFor(DemandWriters::kServicesOnly);
    for (std::size_t i = 0; i < 4; ++i)
        EXPECT_EQ(forTrials[i].sddl, forWork[i].sddl);
}

TEST(AccessLists, LetThoseOnTheWayListAndEnterTheFolders) {
    const auto objects = objectsFor(DemandWriters::kServicesOnly);
    constexpr DWORD kListAndEnter = FILE_GENERIC_READ | FILE_GENERIC_EXECUTE;
    EXPECT_EQ(rightsOf(objects[0].sddl, kUsers).here, kListAndEnter);
    EXPECT_EQ(rightsOf(objects[1].sddl, kUsers).here, kListAndEnter);
    EXPECT_EQ(rightsOf(objects[2].sddl, kUsers).here, 0u);
    EXPECT_EQ(rightsOf(objects[2].sddl, kSomeOwner).here, kListAndEnter);
    EXPECT_EQ(rightsOf(objects[2].sddl, kLocalServiceSid).here, kListAndEnter);
    EXPECT_FALSE(rightsOf(objects[2].sddl, kSomeOwner).inherited);
}

TEST_F(Provisioner, SetsTheseAccessListsAndCorrectsThem) {
    if (!accessListsAreKept())
        GTEST_SKIP() << "Wine forgets the access lists of files; to be run on Windows as administrator";
    ASSERT_TRUE(run(DemandWriters::kServicesAndOwner).ok());
    EXPECT_TRUE(contains(describeProvision(owner_).lines, L"aberto ao usuário"));
    const ProvisionReport closed = run();
    ASSERT_TRUE(closed.ok());
    EXPECT_EQ(closed.lines.size(), 1u);
    EXPECT_TRUE(contains(closed.lines, L"permissões corrigidas: " + demand().wstring()));
    EXPECT_FALSE(contains(describeProvision(owner_).lines, L"aberto ao usuário"));
    EXPECT_TRUE(run().lines.empty());
}

}  // namespace
}  // namespace vextra
