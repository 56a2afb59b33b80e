#include <gtest/gtest.h>
#include <windows.h>

#include <sddl.h>

#include "bridge/bridge_location.h"
#include "broker_fixture_win.h"
#include "import_swap_win.h"

namespace vextra {
namespace {

constexpr wchar_t kSomeValue[] = L"SomeValue";

std::wstring upperCase(std::wstring text) {
    CharUpperBuffW(text.data(), static_cast<DWORD>(text.size()));
    return text;
}

// Changes one thing at a time on a machine that is in order.
class BridgeLocation : public testing::Test {
protected:
    void expectBoth() {
        EXPECT_EQ(resolveBridgePath(), machine.bridgePath());
        EXPECT_EQ(resolveDemandPath(), machine.demandPath());
    }
    void expectNeither() {
        EXPECT_EQ(resolveBridgePath(), L"");
        EXPECT_EQ(resolveDemandPath(), L"");
    }
    void expectBridgeOnly() {
        EXPECT_EQ(resolveBridgePath(), machine.bridgePath());
        EXPECT_EQ(resolveDemandPath(), L"");
    }
    // Registers paths for an owner as an installer would.
    void registerOwner(const std::wstring& owner) {
        const std::wstring bridge = deriveBridgePath(machine.root.path(), owner);
        machine.registry.set(kOwnerSidValue, owner);
        machine.registry.set(kBridgePathValue, bridge);
        machine.registry.set(kDemandPathValue, deriveDemandPath(bridge));
    }

    ProvisionedMachine machine;
};
using ElevatedBridgeLocation = BridgeLocation;

class BrokerRegistryValue : public testing::Test {
protected:
    ScratchMachineHive registry;
};

TEST_F(BrokerRegistryValue, IsTheText) {
    registry.set(kSomeValue, L"C:\\Vextra é •");
    EXPECT_EQ(readBrokerRegistryValue(kSomeValue), L"C:\\Vextra é •");
}

TEST_F(BrokerRegistryValue, IsEmptyWithoutAKey) {
    EXPECT_EQ(readBrokerRegistryValue(kSomeValue), L"");
}

TEST_F(BrokerRegistryValue, IsEmptyWhenMissing) {
    registry.set(L"Another", L"text");
    EXPECT_EQ(readBrokerRegistryValue(kSomeValue), L"");
}

TEST_F(BrokerRegistryValue, HasAtMost1023Characters) {
    const std::wstring fits(1023, L'x');
    registry.set(kSomeValue, fits);
    EXPECT_EQ(readBrokerRegistryValue(kSomeValue), fits);
    registry.set(kSomeValue, fits + L'x');
    EXPECT_EQ(readBrokerRegistryValue(kSomeValue), L"");
}

TEST_F(BrokerRegistryValue, NeedsNoTerminatorInTheRegistry) {
    const std::wstring text(10, L'x');
    registry.set(kSomeValue, REG_SZ, text.data(), text.size() * sizeof(wchar_t));
    EXPECT_EQ(readBrokerRegistryValue(kSomeValue), text);
}

TEST_F(BrokerRegistryValue, HasToBePlainText) {
    const DWORD number = 0x00410041;
    registry.set(kSomeValue, REG_DWORD, &number, sizeof number);
    EXPECT_EQ(readBrokerRegistryValue(kSomeValue), L"");
    constexpr wchar_t kText[] = L"text\0";
    registry.set(kSomeValue, REG_QWORD, kText, sizeof(std::uint64_t));
    EXPECT_EQ(readBrokerRegistryValue(kSomeValue), L"");
    registry.set(kSomeValue, REG_MULTI_SZ, kText, sizeof kText);
    EXPECT_EQ(readBrokerRegistryValue(kSomeValue), L"");
    registry.set(kSomeValue, REG_BINARY, kText, sizeof kText);
    EXPECT_EQ(readBrokerRegistryValue(kSomeValue), L"");
}

// So RegGetValueW does it: who asks for text gets expandable text expanded.
TEST_F(BrokerRegistryValue, IsExpandedWhenItIsExpandable) {
    const ScopedVariable variable(L"VEXTRA_TEST_FOLDER", L"C:\\expanded");
    constexpr wchar_t kText[] = L"%VEXTRA_TEST_FOLDER%\\x";
    registry.set(kSomeValue, REG_EXPAND_SZ, kText, sizeof kText);
    EXPECT_EQ(readBrokerRegistryValue(kSomeValue), L"C:\\expanded\\x");
}

TEST_F(BridgeLocation, IsFoundOnAMachineInOrder) {
    expectBoth();
}

TEST_F(BridgeLocation, IsReadAfreshEveryTime) {
    machine.registry.remove(kBridgePathValue);
    expectNeither();
    machine.registry.set(kBridgePathValue, machine.bridgePath());
    expectBoth();
}

TEST_F(BridgeLocation, NeedsAllThreeValues) {
    machine.registry.remove(kDemandPathValue);
    expectBridgeOnly();
    machine.registry.remove(kBridgePathValue);
    expectNeither();
    machine.registry.set(kBridgePathValue, machine.bridgePath());
    machine.registry.remove(kOwnerSidValue);
    expectNeither();
}

TEST_F(BridgeLocation, NeedsTextValues) {
    const std::wstring path = machine.bridgePath();
    machine.registry.set(kBridgePathValue, REG_BINARY, path.c_str(), (path.size() + 1) * sizeof(wchar_t));
    expectNeither();
}

TEST_F(BridgeLocation, IgnoresTheLetterCaseOfTheRegisteredPathsAndKeepsItsOwn) {
    machine.registry.set(kBridgePathValue, upperCase(machine.bridgePath()));
    machine.registry.set(kDemandPathValue, upperCase(machine.demandPath()));
    expectBoth();
}

TEST_F(BridgeLocation, RefusesARegisteredPathThatDiffersInAnythingElse) {
    const std::wstring path = machine.bridgePath();
    std::wstring softHyphen = path;  // which comparisons by language do not see
    softHyphen.insert(path.size() - 3, 1, L'\x00AD');
    std::wstring forwardSlashes = path;
    for (wchar_t& unit : forwardSlashes)
        unit = unit == L'\\' ? L'/' : unit;
    for (const std::wstring& registered :
         {path + L' ', L' ' + path, forwardSlashes, softHyphen, path + L'x', path.substr(0, path.size() - 1),
          std::wstring(), L"\"" + path + L"\"", L"\\\\?\\" + path,
          machine.bridgeFolder() + L"\\.\\latest.frame", machine.bridgeFolder() + L"\\other.frame"}) {
        machine.registry.set(kBridgePathValue, registered);
        EXPECT_EQ(resolveBridgePath(), L"") << registered;
    }
}

TEST_F(BridgeLocation, RefusesADemandFileElsewhereEvenIfItExists) {
    const std::wstring elsewhere = machine.root / L"demand.bin";
    makeFile(elsewhere, kDemandFileBytes);
    machine.registry.set(kDemandPathValue, elsewhere);
    expectBridgeOnly();
}

TEST_F(BridgeLocation, RefusesADemandPathWithATrailingBlank) {
    machine.registry.set(kDemandPathValue, machine.demandPath() + L' ');
    expectBridgeOnly();
}

TEST_F(BridgeLocation, FollowsProgramDataAndIsLostWhenThatChanges) {
    const ScopedVariable changed(L"ProgramData", (machine.root / L"other").c_str());
    expectNeither();
}

TEST_F(BridgeLocation, NeedsProgramData) {
    const ScopedVariable missing(L"ProgramData", nullptr);
    expectNeither();
}

TEST_F(BridgeLocation, NeedsAProgramDataThatIsNotEmpty) {
    const ScopedVariable empty(L"ProgramData", L"");
    machine.registry.set(kBridgePathValue, deriveBridgePath(L"", machine.owner));
    expectNeither();
}

// Too long for the registered value as well, so this shows a refusal and not which of the two checks refuses.
TEST_F(BridgeLocation, RefusesAProgramDataOf1024Characters) {
    const ScopedVariable tooLong(L"ProgramData", (L"C:\\" + std::wstring(1021, L'x')).c_str());
    expectNeither();
}

TEST_F(BridgeLocation, IsForUsersOfTheMachineOrADomainOnly) {
    for (const wchar_t* owner :
         {L"S-1-5-18", L"S-1-5-32-544", L"S-1-5-2", L"s-1-5-21-1-2-3-1000", L"x\\S-1-5-21-1-2-3-1000", L""}) {
        registerOwner(owner);
        EXPECT_EQ(resolveBridgePath(), L"") << std::wstring(owner);
    }
}

TEST_F(BridgeLocation, RefusesAnOwnerThatIsNoSid) {
    registerOwner(L"S-1-5-21-nonsense");
    expectNeither();
}

TEST_F(BridgeLocation, RefusesAnOwnerThatTheSystemRefuses) {
    const test::RefusedImport<decltype(ConvertStringSidToSidW)> refused("ConvertStringSidToSidW");
    expectNeither();
}

TEST_F(BridgeLocation, TakesAnOwnerOf184CharactersButNot185) {
    // 15 sub-authorities at most: ten-digit numbers, padded with leading zeros to the length wanted.
    const auto sidOfLength = [](std::size_t length) {
        std::wstring sid = L"S-1-5-21";
        for (int i = 0; i < 13; ++i)
            sid += L"-1234567890";
        sid += L"-7";
        sid.insert(sid.size() - 1, length - sid.size(), L'0');
        return sid;
    };
    PSID sid = nullptr;
    ASSERT_TRUE(ConvertStringSidToSidW(sidOfLength(184).c_str(), &sid))
        << "the system refuses the test's own SID";
    LocalFree(sid);
    registerOwner(sidOfLength(184));
    EXPECT_NE(resolveBridgePath(), L"");
    registerOwner(sidOfLength(185));
    EXPECT_EQ(resolveBridgePath(), L"");
}

TEST_F(BridgeLocation, DoesNotNeedTheFilesToExist) {
    std::filesystem::remove_all(machine.vextraFolder());
    expectBoth();
}

TEST_F(BridgeLocation, MayBeAnotherUsers) {
    registerOwner(L"S-1-5-21-1-2-3-1001");
    EXPECT_NE(resolveBridgePath(), L"");
}

TEST_F(BridgeLocation, HasAPlainParentChainWhenAllFoldersAreThere) {
    EXPECT_TRUE(parentChainIsPlain(machine.bridgePath()));
    EXPECT_TRUE(parentChainIsPlain(machine.bridgeFolder() + L"\\no such file"));
}

TEST_F(BridgeLocation, HasNoPlainParentChainWhenAFolderIsMissing) {
    EXPECT_FALSE(parentChainIsPlain(machine.vextraFolder() + L"\\missing\\file"));
    EXPECT_FALSE(parentChainIsPlain(machine.root / L"missing\\folder\\file"));
}

TEST_F(BridgeLocation, HasNoPlainParentChainThroughALinkedFolder) {
    const std::wstring real = machine.root / L"real";
    ASSERT_TRUE(MoveFileW(machine.vextraFolder().c_str(), real.c_str()));
    const FolderLink link(machine.vextraFolder(), real);
    if (!link.exists())
        GTEST_SKIP() << "this system lets no test make a link to a folder";
    ASSERT_TRUE(fileExists(machine.bridgePath())) << "the link does not lead to the files";
    EXPECT_FALSE(parentChainIsPlain(machine.bridgePath()));
    EXPECT_TRUE(parentChainIsPlain(real + L"\\CameraVirtualMFBeta\\file"));
}

TEST_F(BridgeLocation, IsOwnedByTheRegisteredUserExactly) {
    EXPECT_TRUE(ownerIsCurrentUser());
    machine.registry.set(kOwnerSidValue, machine.owner + L"1");
    EXPECT_FALSE(ownerIsCurrentUser());
    machine.registry.set(kOwnerSidValue, L"s" + machine.owner.substr(1));
    EXPECT_FALSE(ownerIsCurrentUser());
    machine.registry.remove(kOwnerSidValue);
    EXPECT_FALSE(ownerIsCurrentUser());
}

TEST_F(BridgeLocation, IsNotOwnedByAnUnknownUserThoughNoOwnerIsRegistered) {
    machine.registry.remove(kOwnerSidValue);
    const test::RefusedImport<decltype(OpenProcessToken)> refused("OpenProcessToken");
    EXPECT_FALSE(ownerIsCurrentUser());
}

TEST_F(BridgeLocation, MayBeWrittenByItsOwner) {
    VEXTRA_SKIP_IF_ELEVATED();
    EXPECT_TRUE(mayWriteBridge());
}

TEST_F(BridgeLocation, MayNotBeWrittenByAnotherUser) {
    registerOwner(L"S-1-5-21-1-2-3-1001");
    EXPECT_FALSE(mayWriteBridge());
}

TEST_F(ElevatedBridgeLocation, MayNotBeWrittenByAnElevatedOwner) {
    if (!isElevatedOrUnknown())
        GTEST_SKIP() << "runs unelevated: start the tests elevated for this one";
    EXPECT_TRUE(ownerIsCurrentUser());
    EXPECT_FALSE(mayWriteBridge());
}

}  // namespace
}  // namespace vextra
