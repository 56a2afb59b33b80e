#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "bridge/shared_file_win.h"
#include "broker_fixture_win.h"

namespace vextra {
namespace {

// A machine that belongs to another account.
constexpr wchar_t kOtherUser[] = L"S-1-5-21-1-2-3-1001";

class BridgeOnDisk : public testing::Test {
protected:
    NeighbourView<BridgeFile> camera() const { return NeighbourView<BridgeFile>(machine.bridgePath()); }

    ProvisionedMachine machine;
    BridgeWriter writer;
};
using ElevatedBridgeOnDisk = BridgeOnDisk;

TEST_F(BridgeOnDisk, OpensForReadingAndForWriting) {
    VEXTRA_SKIP_IF_ELEVATED();
    EXPECT_TRUE(writer.open(FileAccess::kReadOnly));
    EXPECT_TRUE(writer.open(FileAccess::kReadWrite));
}

TEST_F(BridgeOnDisk, IsRefusedOneByteTooShortOrTooLong) {
    for (const std::uint32_t size : {3'686'527u, 3'686'529u}) {
        makeFile(machine.bridgePath(), size);
        EXPECT_FALSE(writer.open(FileAccess::kReadOnly)) << size;
        EXPECT_FALSE(writer.open(FileAccess::kReadWrite)) << size;
    }
}

TEST_F(BridgeOnDisk, IsNeverCreated) {
    ASSERT_TRUE(DeleteFileW(machine.bridgePath().c_str()));
    EXPECT_FALSE(writer.open(FileAccess::kReadOnly));
    EXPECT_FALSE(writer.open(FileAccess::kReadWrite));
    EXPECT_FALSE(fileExists(machine.bridgePath()));
}

TEST_F(BridgeOnDisk, MayNotBeAFolder) {
    ASSERT_TRUE(DeleteFileW(machine.bridgePath().c_str()));
    ASSERT_TRUE(CreateDirectoryW(machine.bridgePath().c_str(), nullptr));
    EXPECT_FALSE(writer.open(FileAccess::kReadOnly));
}

TEST_F(BridgeOnDisk, IsRefusedWhenItIsNotRegistered) {
    machine.registry.remove(kBridgePathValue);
    EXPECT_FALSE(writer.open(FileAccess::kReadOnly));
}

TEST_F(BridgeOnDisk, IsRefusedBehindALinkedFolder) {
    const std::wstring real = machine.root / L"real";
    ASSERT_TRUE(MoveFileW(machine.vextraFolder().c_str(), real.c_str()));
    const FolderLink link(machine.vextraFolder(), real);
    if (!link.exists())
        GTEST_SKIP() << "this system lets no test make a link to a folder";
    ASSERT_TRUE(fileExists(machine.bridgePath()));
    EXPECT_FALSE(writer.open(FileAccess::kReadOnly));
    EXPECT_FALSE(writer.open(FileAccess::kReadWrite));
}

TEST_F(BridgeOnDisk, OfAnotherUserMayBeReadButNotWritten) {
    const std::wstring bridge = deriveBridgePath(machine.root.path(), kOtherUser);
    std::filesystem::create_directories(std::filesystem::path(bridge).parent_path());
    makeFile(bridge, kBridgeFileBytes);
    machine.registry.set(kOwnerSidValue, kOtherUser);
    machine.registry.set(kBridgePathValue, bridge);
    EXPECT_TRUE(writer.open(FileAccess::kReadOnly));
    EXPECT_FALSE(writer.open(FileAccess::kReadWrite));
}

TEST_F(ElevatedBridgeOnDisk, MayBeReadButNotWrittenElevated) {
    if (!isElevatedOrUnknown())
        GTEST_SKIP() << "runs unelevated: start the tests elevated for this one";
    EXPECT_TRUE(writer.open(FileAccess::kReadOnly));
    EXPECT_FALSE(writer.open(FileAccess::kReadWrite));
}

TEST_F(BridgeOnDisk, CarriesWhoWroteAndWhen) {
    VEXTRA_SKIP_IF_ELEVATED();
    ASSERT_TRUE(writer.open(FileAccess::kReadWrite));
    const Tick before = GetTickCount64();
    writer.publish(nullptr, BridgeState::kUnavailable, 41);
    const Tick after = GetTickCount64();

    const auto view = camera();
    const BridgeHeader& header = view->header;
    EXPECT_EQ(header.sequence, 2u);
    EXPECT_EQ(header.magic, 0x31464D56u);
    EXPECT_EQ(header.state, 4u);
    EXPECT_EQ(header.frameCounter, 41u);
    EXPECT_GE(header.tickMs, before);
    EXPECT_LE(header.tickMs, after);
    EXPECT_EQ(header.writerPid, GetCurrentProcessId());
    DWORD session = 0;
    ASSERT_TRUE(ProcessIdToSessionId(GetCurrentProcessId(), &session));
    EXPECT_EQ(header.writerSession, session);
}

TEST_F(BridgeOnDisk, ShowsTheWholeFrameAtOnce) {
    VEXTRA_SKIP_IF_ELEVATED();
    std::vector<std::byte> frame(kFrameBytes);
    for (std::size_t i = 0; i < frame.size(); ++i)
        frame[i] = static_cast<std::byte>(i * 31 % 251);
    ASSERT_TRUE(writer.open(FileAccess::kReadWrite));
    writer.publish(frame.data(), BridgeState::kLive, 1);
    EXPECT_EQ(std::memcmp(camera()->pixels, frame.data(), frame.size()), 0);
}

TEST_F(BridgeOnDisk, IsRepairedAfterAWriterThatDiedInItsUpdate) {
    VEXTRA_SKIP_IF_ELEVATED();
    const auto view = camera();
    view->header.sequence = 7;
    ASSERT_TRUE(writer.open(FileAccess::kReadWrite));
    writer.publish(nullptr, BridgeState::kFallback, 0);
    EXPECT_EQ(view->header.sequence, 10u);
}

TEST_F(BridgeOnDisk, IsNotTouchedByOpeningAndClosing) {
    VEXTRA_SKIP_IF_ELEVATED();
    const auto view = camera();
    view->header.sequence = 7;
    const std::string before = view.bytes();
    ASSERT_TRUE(writer.open(FileAccess::kReadWrite));
    writer.close();
    EXPECT_TRUE(view.bytes() == before);
}

TEST_F(BridgeOnDisk, KeepsTheLastHeaderAfterTheWriterClosed) {
    VEXTRA_SKIP_IF_ELEVATED();
    ASSERT_TRUE(writer.open(FileAccess::kReadWrite));
    writer.publish(nullptr, BridgeState::kFallback, 9);
    writer.publish(nullptr, BridgeState::kStopped, 9);
    writer.close();
    const auto view = camera();
    EXPECT_EQ(view->header.state, 0u);
    EXPECT_EQ(view->header.frameCounter, 9u);
    EXPECT_EQ(view->header.sequence, 4u);
}

TEST_F(BridgeOnDisk, IsNotChangedThroughAReadOnlyWriter) {
    const auto view = camera();
    const std::string before = view.bytes();
    ASSERT_TRUE(writer.open(FileAccess::kReadOnly));
    const std::vector<std::byte> frame(kFrameBytes, std::byte{1});
    writer.publish(frame.data(), BridgeState::kLive, 1);
    EXPECT_TRUE(view.bytes() == before);
}

TEST_F(BridgeOnDisk, IsNotChangedThroughAClosedWriter) {
    VEXTRA_SKIP_IF_ELEVATED();
    const auto view = camera();
    const std::string before = view.bytes();
    writer.publish(nullptr, BridgeState::kFallback, 1);  // never opened
    ASSERT_TRUE(writer.open(FileAccess::kReadWrite));
    writer.close();
    writer.publish(nullptr, BridgeState::kFallback, 1);
    EXPECT_TRUE(view.bytes() == before);
}

TEST_F(BridgeOnDisk, IsLetGoByAnOpenThatFails) {
    VEXTRA_SKIP_IF_ELEVATED();
    ASSERT_TRUE(writer.open(FileAccess::kReadWrite));
    machine.registry.remove(kBridgePathValue);
    EXPECT_FALSE(writer.open(FileAccess::kReadWrite));
    EXPECT_FALSE(isHeldOpen(machine.bridgePath()));
    writer.publish(nullptr, BridgeState::kFallback, 1);
    EXPECT_EQ(camera()->header.sequence, 0u);
}

TEST_F(BridgeOnDisk, OpensAgainAfterARepair) {
    VEXTRA_SKIP_IF_ELEVATED();
    machine.registry.remove(kBridgePathValue);
    EXPECT_FALSE(writer.open(FileAccess::kReadWrite));
    machine.registry.set(kBridgePathValue, machine.bridgePath());
    EXPECT_TRUE(writer.open(FileAccess::kReadWrite));
}

TEST_F(BridgeOnDisk, MayBeClosedTwice) {
    EXPECT_TRUE(writer.open(FileAccess::kReadOnly));
    writer.close();
    writer.close();
    EXPECT_FALSE(isHeldOpen(machine.bridgePath()));
}

}  // namespace
}  // namespace vextra
