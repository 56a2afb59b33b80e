#include "bridge/shared_file_win.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "broker_fixture_win.h"
#include "import_swap_win.h"

namespace vextra {
namespace {

constexpr std::uint32_t kSizeBytes = 4096;

class SharedFileOnDisk : public testing::Test {
protected:
    SharedFile open(FileAccess access) const { return SharedFile::open(path, kSizeBytes, access); }
    bool opens() const { return open(FileAccess::kReadOnly) && open(FileAccess::kReadWrite); }
    bool opensAnyWay() const { return open(FileAccess::kReadOnly) || open(FileAccess::kReadWrite); }

    TemporaryFolder folder;
    const std::wstring path = folder / L"shared.bin";
};

TEST_F(SharedFileOnDisk, OpensWhenItHasItsSize) {
    makeFile(path, kSizeBytes);
    EXPECT_TRUE(opens());
}

TEST_F(SharedFileOnDisk, IsRefusedWithAnyOtherSize) {
    for (const std::uint32_t size : {0u, 1u, kSizeBytes - 1, kSizeBytes + 1, 2 * kSizeBytes}) {
        makeFile(path, size);
        EXPECT_FALSE(opensAnyWay()) << size;
        EXPECT_EQ(readFile(path).size(), size);
    }
}

TEST_F(SharedFileOnDisk, IsNeverCreated) {
    EXPECT_FALSE(opensAnyWay());
    EXPECT_FALSE(fileExists(path));
}

TEST_F(SharedFileOnDisk, MayNotBeAFolder) {
    ASSERT_TRUE(CreateDirectoryW(path.c_str(), nullptr));
    EXPECT_FALSE(opensAnyWay());
}

TEST_F(SharedFileOnDisk, NeedsAPath) {
    EXPECT_FALSE(SharedFile::open(L"", kSizeBytes, FileAccess::kReadOnly));
}

TEST_F(SharedFileOnDisk, MayNotLieBehindALinkedFolder) {
    makeFile(path, kSizeBytes);
    const TemporaryFolder elsewhere;
    makeFile(elsewhere / L"shared.bin", kSizeBytes);
    const FolderLink link(folder / L"link", elsewhere.path());
    if (!link.exists())
        GTEST_SKIP() << "this system lets no test make a link to a folder";
    ASSERT_TRUE(fileExists(folder / L"link\\shared.bin"));
    EXPECT_FALSE(SharedFile::open(folder / L"link\\shared.bin", kSizeBytes, FileAccess::kReadOnly));
}

TEST_F(SharedFileOnDisk, ShowsWhatANeighbourWrites) {
    makeFile(path, kSizeBytes);
    const SharedFile file = open(FileAccess::kReadOnly);
    const NeighbourView<DemandFile> neighbour(path);
    neighbour->slots[15].leaseId = 0x0102030405060708;
    EXPECT_EQ(static_cast<const DemandFile*>(file.data())->slots[15].leaseId, 0x0102030405060708u);
}

TEST_F(SharedFileOnDisk, ShowsANeighbourWhatIsWritten) {
    makeFile(path, kSizeBytes);
    const SharedFile file = open(FileAccess::kReadWrite);
    const NeighbourView<DemandFile> neighbour(path);
    static_cast<DemandFile*>(file.data())->reserved[3839] = std::byte{7};
    EXPECT_EQ(neighbour->reserved[3839], std::byte{7});
}

TEST_F(SharedFileOnDisk, CannotBeWrittenThroughAReadOnlyView) {
    makeFile(path, kSizeBytes);
    const SharedFile file = open(FileAccess::kReadOnly);
    MEMORY_BASIC_INFORMATION memory{};
    ASSERT_NE(VirtualQuery(file.data(), &memory, sizeof memory), 0u);
    EXPECT_EQ(memory.Protect, static_cast<DWORD>(PAGE_READONLY));
}

TEST_F(SharedFileOnDisk, CanBeReadButNotWrittenWhenWriteProtected) {
    makeFile(path, kSizeBytes);
    const WriteProtection protection(path);
    if (!protection.holds())
        GTEST_SKIP() << "this account may write any file (root under Wine)";
    EXPECT_TRUE(open(FileAccess::kReadOnly));
    EXPECT_FALSE(open(FileAccess::kReadWrite));
}

TEST_F(SharedFileOnDisk, IsRefusedWhileANeighbourSharesNothing) {
    makeFile(path, kSizeBytes);
    const UniqueFile exclusive = openFile(path, GENERIC_READ, 0, OPEN_EXISTING);
    ASSERT_TRUE(exclusive);
    EXPECT_FALSE(opensAnyWay());
}

TEST_F(SharedFileOnDisk, MayBeWrittenButNotDeletedByOthersMeanwhile) {
    makeFile(path, kSizeBytes);
    const SharedFile file = open(FileAccess::kReadOnly);
    EXPECT_TRUE(
        openFile(path, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, OPEN_EXISTING));
    EXPECT_FALSE(DeleteFileW(path.c_str()));
}

TEST_F(SharedFileOnDisk, IsLetGoAtTheEnd) {
    makeFile(path, kSizeBytes);
    {
        const SharedFile file = open(FileAccess::kReadWrite);
        EXPECT_TRUE(isHeldOpen(path));
    }
    EXPECT_FALSE(isHeldOpen(path));
}

TEST_F(SharedFileOnDisk, IsLetGoWhenItIsRefused) {
    makeFile(path, kSizeBytes + 1);
    EXPECT_FALSE(opensAnyWay());
    EXPECT_FALSE(isHeldOpen(path));
}

TEST_F(SharedFileOnDisk, IsLetGoWhenTheSystemRefusesAStep) {
    makeFile(path, kSizeBytes);
    {
        const test::RefusedImport<decltype(GetFileInformationByHandle)> refused("GetFileInformationByHandle");
        EXPECT_FALSE(opensAnyWay());
    }
    {
        const test::RefusedImport<decltype(CreateFileMappingW)> refused("CreateFileMappingW");
        EXPECT_FALSE(opensAnyWay());
    }
    {
        const test::RefusedImport<decltype(MapViewOfFile)> refused("MapViewOfFile");
        EXPECT_FALSE(opensAnyWay());
    }
    EXPECT_FALSE(isHeldOpen(path));
    EXPECT_TRUE(opens());
}

TEST_F(SharedFileOnDisk, IsLetGoWhenAnotherIsMovedOver) {
    makeFile(path, kSizeBytes);
    SharedFile file = open(FileAccess::kReadWrite);
    file = SharedFile();
    EXPECT_FALSE(isHeldOpen(path));
}

// --- What the system is asked, and what it answers of links ---

// Links to files are followed silently where the tests run, and folders cannot be opened at all: the system
// is made to say that the file is one.
template <DWORD kAttribute>
BOOL WINAPI withAttribute(HANDLE file, BY_HANDLE_FILE_INFORMATION* information) {
    const BOOL known = test::realFunction<decltype(GetFileInformationByHandle)>("GetFileInformationByHandle")(
        file, information);
    information->dwFileAttributes |= kAttribute;
    return known;
}

TEST_F(SharedFileOnDisk, MayNotBeWhatTheSystemCallsALink) {
    makeFile(path, kSizeBytes);
    const test::ImportSwap<decltype(GetFileInformationByHandle)> linked(
        "GetFileInformationByHandle", withAttribute<FILE_ATTRIBUTE_REPARSE_POINT>);
    EXPECT_FALSE(opensAnyWay());
}

TEST_F(SharedFileOnDisk, MayNotBeWhatTheSystemCallsAFolder) {
    makeFile(path, kSizeBytes);
    const test::ImportSwap<decltype(GetFileInformationByHandle)> called(
        "GetFileInformationByHandle", withAttribute<FILE_ATTRIBUTE_DIRECTORY>);
    EXPECT_FALSE(opensAnyWay());
}

// What was opened and closed, in order.
std::vector<std::string> calls;
std::set<HANDLE> openedFiles;

HANDLE WINAPI noteCreate(LPCWSTR path, DWORD access, DWORD share, SECURITY_ATTRIBUTES* security,
                         DWORD disposition, DWORD flags, HANDLE like) {
    calls.push_back("access=" + std::to_string(access >> 30) + " share=" + std::to_string(share) +
                    " security=" + std::to_string(security != nullptr) +
                    " disposition=" + std::to_string(disposition) + " flags=" + std::to_string(flags));
    const HANDLE file = test::realFunction<decltype(CreateFileW)>("CreateFileW")(
        path, access, share, security, disposition, flags, like);
    openedFiles.insert(file);
    return file;
}
BOOL WINAPI noteUnmap(LPCVOID view) {
    calls.emplace_back("unmap");
    return test::realFunction<decltype(UnmapViewOfFile)>("UnmapViewOfFile")(view);
}
BOOL WINAPI noteClose(HANDLE handle) {
    calls.emplace_back(openedFiles.erase(handle) != 0 ? "close file" : "close mapping");
    return test::realFunction<decltype(CloseHandle)>("CloseHandle")(handle);
}

// 2,097,152 is FILE_FLAG_OPEN_REPARSE_POINT: a link is opened itself, and what it points at never is.
TEST_F(SharedFileOnDisk, IsOpenedAsItStandsAndSharedForReadingAndWriting) {
    makeFile(path, kSizeBytes);
    calls.clear();
    const test::ImportSwap<decltype(CreateFileW)> watch("CreateFileW", noteCreate);
    EXPECT_TRUE(opens());
    EXPECT_EQ(calls, (std::vector<std::string>{"access=2 share=3 security=0 disposition=3 flags=2097152",
                                               "access=3 share=3 security=0 disposition=3 flags=2097152"}));
}

TEST_F(SharedFileOnDisk, IsUnmappedBeforeItIsClosed) {
    makeFile(path, kSizeBytes);
    openedFiles.clear();
    const test::ImportSwap<decltype(CreateFileW)> opens("CreateFileW", noteCreate);
    const std::vector<std::string> inOrder{"unmap", "close mapping", "close file"};
    SharedFile replaced = open(FileAccess::kReadWrite);
    auto ended = std::make_unique<SharedFile>(open(FileAccess::kReadWrite));
    const test::ImportSwap<decltype(UnmapViewOfFile)> unmaps("UnmapViewOfFile", noteUnmap);
    const test::ImportSwap<decltype(CloseHandle)> closes("CloseHandle", noteClose);
    calls.clear();
    replaced = {};
    EXPECT_EQ(calls, inOrder);
    calls.clear();
    ended.reset();
    EXPECT_EQ(calls, inOrder);
}

}  // namespace
}  // namespace vextra
