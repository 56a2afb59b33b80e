#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <string>

#include "bridge/shared_file_win.h"
#include "broker_fixture_win.h"
#include "import_swap_win.h"

namespace vextra {
namespace {

class DemandOnDisk : public testing::Test {
protected:
    NeighbourView<DemandFile> mediaSource() const { return NeighbourView<DemandFile>(machine.demandPath()); }

    ProvisionedMachine machine;
    DemandChannel channel;
};
using ElevatedDemandOnDisk = DemandOnDisk;

TEST_F(DemandOnDisk, HasNoLeasesWhenFresh) {
    EXPECT_EQ(channel.activeLeases(), 0);
}

TEST_F(DemandOnDisk, CountsLeasesByTheSystemsClock) {
    const auto source = mediaSource();
    source->slots[0] = {1, GetTickCount64()};
    source->slots[15] = {2, GetTickCount64()};
    source->slots[7] = {3, GetTickCount64() + 60'000};
    source->slots[8] = {4, 1};
    EXPECT_EQ(channel.activeLeases(), 2);
}

TEST_F(DemandOnDisk, SeesLeasesComeAndGo) {
    const auto source = mediaSource();
    EXPECT_EQ(channel.activeLeases(), 0);
    source->slots[3] = {1, GetTickCount64()};
    EXPECT_EQ(channel.activeLeases(), 1);
    source->slots[3] = {};
    EXPECT_EQ(channel.activeLeases(), 0);
}

TEST_F(DemandOnDisk, IsUnknownOneByteTooShortOrTooLong) {
    for (const std::uint32_t size : {4095u, 4097u}) {
        makeFile(machine.demandPath(), size);
        EXPECT_EQ(channel.activeLeases(), -1) << size;
    }
}

TEST_F(DemandOnDisk, IsUnknownWithoutItsFileAndDoesNotMakeIt) {
    ASSERT_TRUE(DeleteFileW(machine.demandPath().c_str()));
    EXPECT_EQ(channel.activeLeases(), -1);
    EXPECT_FALSE(fileExists(machine.demandPath()));
}

TEST_F(DemandOnDisk, IsUnknownWithAFolderInItsPlace) {
    ASSERT_TRUE(DeleteFileW(machine.demandPath().c_str()));
    ASSERT_TRUE(CreateDirectoryW(machine.demandPath().c_str(), nullptr));
    EXPECT_EQ(channel.activeLeases(), -1);
}

TEST_F(DemandOnDisk, IsUnknownWhenItIsNotRegistered) {
    machine.registry.remove(kDemandPathValue);
    EXPECT_EQ(channel.activeLeases(), -1);
}

TEST_F(DemandOnDisk, IsUnknownBehindALinkedFolder) {
    const std::wstring real = machine.root / L"real";
    ASSERT_TRUE(MoveFileW(machine.vextraFolder().c_str(), real.c_str()));
    const FolderLink link(machine.vextraFolder(), real);
    if (!link.exists())
        GTEST_SKIP() << "this system lets no test make a link to a folder";
    ASSERT_TRUE(fileExists(machine.demandPath()));
    EXPECT_EQ(channel.activeLeases(), -1);
}

TEST_F(DemandOnDisk, IsKnownAgainAfterARepair) {
    ASSERT_TRUE(DeleteFileW(machine.demandPath().c_str()));
    EXPECT_EQ(channel.activeLeases(), -1);
    makeFile(machine.demandPath(), kDemandFileBytes);
    EXPECT_EQ(channel.activeLeases(), 0);
}

TEST_F(DemandOnDisk, StaysOpenOnceItIs) {
    EXPECT_EQ(channel.activeLeases(), 0);
    machine.registry.remove(kDemandPathValue);
    EXPECT_EQ(channel.activeLeases(), 0);
    EXPECT_TRUE(isHeldOpen(machine.demandPath()));
    channel.close();
    EXPECT_EQ(channel.activeLeases(), -1);
}

TEST_F(DemandOnDisk, IsReadByAnyUser) {
    constexpr wchar_t kOtherUser[] = L"S-1-5-21-1-2-3-1001";
    const std::wstring bridge = deriveBridgePath(machine.root.path(), kOtherUser);
    const std::wstring demand = deriveDemandPath(bridge);
    std::filesystem::create_directories(std::filesystem::path(bridge).parent_path());
    makeFile(demand, kDemandFileBytes);
    machine.registry.set(kOwnerSidValue, kOtherUser);
    machine.registry.set(kBridgePathValue, bridge);
    machine.registry.set(kDemandPathValue, demand);
    EXPECT_EQ(channel.activeLeases(), 0);
}

TEST_F(ElevatedDemandOnDisk, IsReadElevated) {
    if (!isElevatedOrUnknown())
        GTEST_SKIP() << "runs unelevated: start the tests elevated for this one";
    mediaSource()->slots[0] = {1, GetTickCount64()};
    EXPECT_EQ(channel.activeLeases(), 1);
}

int looksForTheFile = 0;

HANDLE WINAPI countOpen(LPCWSTR path, DWORD access, DWORD share, SECURITY_ATTRIBUTES* security,
                        DWORD disposition, DWORD flags, HANDLE like) {
    ++looksForTheFile;
    return test::realFunction<decltype(CreateFileW)>("CreateFileW")(path, access, share, security,
                                                                    disposition, flags, like);
}
LSTATUS WINAPI countRegistryRead(HKEY key, LPCWSTR subkey, LPCWSTR value, DWORD flags, LPDWORD type,
                                 PVOID data, LPDWORD bytes) {
    ++looksForTheFile;
    return test::realFunction<decltype(RegGetValueW)>("RegGetValueW")(key, subkey, value, flags, type, data,
                                                                      bytes);
}

// The file would let itself be written: the refusal is the channel's own, and comes before any look at it.
TEST_F(DemandOnDisk, IsNeverOpenedForWritingByAnInteractiveUser) {
    ASSERT_TRUE(openFile(machine.demandPath(), GENERIC_READ | GENERIC_WRITE, kShareAll, OPEN_EXISTING));
    const test::ImportSwap<decltype(CreateFileW)> opens("CreateFileW", countOpen);
    const test::ImportSwap<decltype(RegGetValueW)> reads("RegGetValueW", countRegistryRead);
    looksForTheFile = 0;
    EXPECT_FALSE(channel.open(FileAccess::kReadWrite));
    EXPECT_EQ(looksForTheFile, 0);
    EXPECT_EQ(channel.activeLeases(), 0);
    EXPECT_GT(looksForTheFile, 0) << "nothing was counted at all";
}

TEST_F(DemandOnDisk, IsStillCountedAfterARefusedOpenForWriting) {
    mediaSource()->slots[0] = {1, GetTickCount64()};
    EXPECT_FALSE(channel.open(FileAccess::kReadWrite));
    EXPECT_EQ(channel.activeLeases(), 1);
}

TEST_F(DemandOnDisk, IsNotChangedByAReaderWhateverItClaimsToHold) {
    const auto source = mediaSource();
    source->slots[4] = {77, GetTickCount64()};
    const std::string before = source.bytes();
    EXPECT_EQ(channel.activeLeases(), 1);
    channel.heldLeaseId = 77;
    channel.heldSlot = 4;
    channel.close();
    EXPECT_EQ(source.bytes(), before);
    EXPECT_EQ(channel.heldSlot, -1);
}

// A service's account, as far as the caller can tell.
BOOL WINAPI namesLocalService(PSID, LPWSTR* text) {
    constexpr wchar_t kLocalService[] = L"S-1-5-19";
    *text = static_cast<wchar_t*>(LocalAlloc(LMEM_FIXED, sizeof kLocalService));
    if (*text == nullptr)
        return FALSE;
    std::copy(std::begin(kLocalService), std::end(kLocalService), *text);
    return TRUE;
}

TEST_F(DemandOnDisk, GivesBackTheLeaseOfAWriterThatCloses) {
    const auto source = mediaSource();
    source->slots[4] = {77, GetTickCount64()};
    source->slots[5] = {78, GetTickCount64()};
    const test::ImportSwap<decltype(namesLocalService)> swap("ConvertSidToStringSidW", namesLocalService);
    ASSERT_TRUE(channel.open(FileAccess::kReadWrite));
    channel.heldLeaseId = 77;
    channel.heldSlot = 4;
    channel.close();
    EXPECT_EQ(source->slots[4].leaseId, 0u);
    EXPECT_EQ(source->slots[4].heartbeatTickMs, 0u);
    EXPECT_EQ(source->slots[5].leaseId, 78u);
}

TEST_F(DemandOnDisk, KeepsALeaseThatAnotherHasTakenFromItsWriter) {
    const auto source = mediaSource();
    source->slots[4] = {78, GetTickCount64()};
    const std::string before = source.bytes();
    const test::ImportSwap<decltype(namesLocalService)> swap("ConvertSidToStringSidW", namesLocalService);
    ASSERT_TRUE(channel.open(FileAccess::kReadWrite));
    channel.heldLeaseId = 77;
    channel.heldSlot = 4;
    channel.close();
    EXPECT_EQ(source.bytes(), before);
}

TEST_F(DemandOnDisk, IsLetGoAfterACountInPassing) {
    mediaSource()->slots[0] = {1, GetTickCount64()};
    EXPECT_EQ(countLeasesOnce(), 1);
    EXPECT_FALSE(isHeldOpen(machine.demandPath()));
}

TEST_F(DemandOnDisk, IsUnknownToACountInPassingWhenItCannotBeRead) {
    machine.registry.remove(kDemandPathValue);
    EXPECT_EQ(countLeasesOnce(), -1);
}

}  // namespace
}  // namespace vextra
