// How the store works: what it asks of the system and in which order, what it leaves when a step fails, and
// what stays in memory.
#include <windows.h>

#include <sddl.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <optional>
#include <type_traits>
#include <vector>

#include "import_swap_win.h"
#include "settings_store_fixture_win.h"

namespace vextra {
namespace {

using test::ImportSwap;
using test::realFunction;
using test::StoredRecord;

// --- The calls of a save and a load ---

// What was asked of the system, in order and with what matters of the arguments.
std::vector<std::string> calls;

std::string number(DWORD value) {
    return std::to_string(value);
}
std::string fileName(const wchar_t* path) {
    const std::wstring name = std::filesystem::path(path).filename().wstring();
    return {name.begin(), name.end()};
}
std::string narrow(const wchar_t* text) {
    const std::wstring wide(text != nullptr ? text : L"(none)");
    return {wide.begin(), wide.end()};
}

BOOL WINAPI noteProtect(DATA_BLOB* in, LPCWSTR description, DATA_BLOB* entropy, PVOID reserved,
                        CRYPTPROTECT_PROMPTSTRUCT* prompt, DWORD flags, DATA_BLOB* out) {
    calls.push_back("protect '" + narrow(description) + "' entropy=" + number(entropy != nullptr) +
                    " flags=" + number(flags));
    return realFunction<decltype(CryptProtectData)>("CryptProtectData")(in, description, entropy, reserved,
                                                                        prompt, flags, out);
}
BOOL WINAPI noteUnprotect(DATA_BLOB* in, LPWSTR* description, DATA_BLOB* entropy, PVOID reserved,
                          CRYPTPROTECT_PROMPTSTRUCT* prompt, DWORD flags, DATA_BLOB* out) {
    calls.push_back("unprotect entropy=" + number(entropy != nullptr) + " flags=" + number(flags));
    return realFunction<decltype(CryptUnprotectData)>("CryptUnprotectData")(in, description, entropy,
                                                                            reserved, prompt, flags, out);
}
HANDLE WINAPI noteCreate(LPCWSTR path, DWORD access, DWORD share, SECURITY_ATTRIBUTES* security,
                         DWORD disposition, DWORD flags, HANDLE like) {
    std::string descriptor = "none";
    wchar_t* text = nullptr;
    if (security != nullptr &&
        ConvertSecurityDescriptorToStringSecurityDescriptorW(security->lpSecurityDescriptor, SDDL_REVISION_1,
                                                             DACL_SECURITY_INFORMATION, &text, nullptr)) {
        descriptor = narrow(text);
        LocalFree(text);
    }
    calls.push_back("create " + fileName(path) + " access=" + number(access >> 30) +
                    " share=" + number(share) + " disposition=" + number(disposition) +
                    " flags=" + number(flags) + " " + descriptor);
    return realFunction<decltype(CreateFileW)>("CreateFileW")(path, access, share, security, disposition,
                                                              flags, like);
}
BOOL WINAPI noteWrite(HANDLE file, LPCVOID bytes, DWORD size, DWORD* written, OVERLAPPED* overlapped) {
    calls.push_back("write");
    return realFunction<decltype(WriteFile)>("WriteFile")(file, bytes, size, written, overlapped);
}
BOOL WINAPI noteRead(HANDLE file, LPVOID bytes, DWORD size, DWORD* taken, OVERLAPPED* overlapped) {
    calls.push_back("read " + number(size));
    return realFunction<decltype(ReadFile)>("ReadFile")(file, bytes, size, taken, overlapped);
}
BOOL WINAPI noteFlush(HANDLE file) {
    calls.push_back("flush");
    return realFunction<decltype(FlushFileBuffers)>("FlushFileBuffers")(file);
}
BOOL WINAPI noteReplace(LPCWSTR replaced, LPCWSTR replacement, LPCWSTR backup, DWORD flags, LPVOID exclude,
                        LPVOID reserved) {
    calls.push_back("replace " + fileName(replaced) + " " + fileName(replacement) + " " + fileName(backup) +
                    " flags=" + number(flags));
    return realFunction<decltype(ReplaceFileW)>("ReplaceFileW")(replaced, replacement, backup, flags, exclude,
                                                                reserved);
}
BOOL WINAPI noteMove(LPCWSTR from, LPCWSTR to, DWORD flags) {
    calls.push_back("move " + fileName(from) + " " + fileName(to) + " flags=" + number(flags));
    return realFunction<decltype(MoveFileExW)>("MoveFileExW")(from, to, flags);
}
BOOL WINAPI noteDelete(LPCWSTR path) {
    calls.push_back("delete " + fileName(path));
    return realFunction<decltype(DeleteFileW)>("DeleteFileW")(path);
}

// Notes every call of interest until it ends.
class CallNotes {
public:
    CallNotes() { calls.clear(); }

private:
    const ImportSwap<decltype(CryptProtectData)> protect_{"CryptProtectData", noteProtect};
    const ImportSwap<decltype(CryptUnprotectData)> unprotect_{"CryptUnprotectData", noteUnprotect};
    const ImportSwap<decltype(CreateFileW)> create_{"CreateFileW", noteCreate};
    const ImportSwap<decltype(WriteFile)> write_{"WriteFile", noteWrite};
    const ImportSwap<decltype(ReadFile)> read_{"ReadFile", noteRead};
    const ImportSwap<decltype(FlushFileBuffers)> flush_{"FlushFileBuffers", noteFlush};
    const ImportSwap<decltype(ReplaceFileW)> replace_{"ReplaceFileW", noteReplace};
    const ImportSwap<decltype(MoveFileExW)> move_{"MoveFileExW", noteMove};
    const ImportSwap<decltype(DeleteFileW)> delete_{"DeleteFileW", noteDelete};
};

TEST_F(SettingsStore, SavesInFixedSteps) {
    const std::string sid = narrow(currentUserSidString().c_str());
    const std::vector<std::string> steps = {
        "protect 'Vextra MF beta settings' entropy=0 flags=1",
        "create settings.dpapi.new access=1 share=0 disposition=1 flags=128 D:P(A;;FA;;;SY)(A;;FA;;;" + sid +
            ")",
        "write", "flush"};
    std::vector<std::string> first = steps, second = steps;
    first.push_back("move settings.dpapi.new settings.dpapi flags=8");
    second.push_back("replace settings.dpapi settings.dpapi.new settings.dpapi.bak flags=2");
    {
        const CallNotes notes;
        save(L"first");
    }
    EXPECT_EQ(calls, first);
    {
        const CallNotes notes;
        save(L"second");
    }
    EXPECT_EQ(calls, second);
}

TEST_F(SettingsStore, LoadsInFixedSteps) {
    saveWithBackup();
    const std::string size = number(static_cast<DWORD>(std::filesystem::file_size(current)));
    {
        const CallNotes notes;
        load();
    }
    EXPECT_EQ(calls, (std::vector<std::string>{
                         "create settings.dpapi access=2 share=1 disposition=3 flags=2097152 none",
                         "read " + size, "unprotect entropy=0 flags=1"}));
    ASSERT_TRUE(DeleteFileW(current.c_str()));
    {
        const CallNotes notes;
        load();
    }
    ASSERT_EQ(calls.size(), 4u);
    EXPECT_EQ(calls[0], "create settings.dpapi access=2 share=1 disposition=3 flags=2097152 none");
    EXPECT_EQ(calls[1], "create settings.dpapi.bak access=2 share=1 disposition=3 flags=2097152 none");
}

TEST_F(SettingsStore, DoesNotEvenReadAFileOfTheWrongSize) {
    saveWithBackup();
    ASSERT_TRUE(DeleteFileW(backup.c_str()));
    for (const std::size_t size : {0u, 15u, 65'537u, 1'000'000u}) {
        writeFile(current, std::string(size, 'x'));
        const CallNotes notes;
        EXPECT_EQ(load(), L"");
        EXPECT_EQ(calls.size(), 2u) << size;  // both files opened, nothing read
    }
    for (const std::size_t size : {16u, 65'536u}) {
        writeFile(current, std::string(size, 'x'));
        const CallNotes notes;
        EXPECT_EQ(load(), L"");
        ASSERT_EQ(calls.size(), 4u) << size;
        EXPECT_EQ(calls[2], "unprotect entropy=0 flags=1");
    }
}

// What the system says of each file that is opened, changed by the test.
void (*changeInformation)(BY_HANDLE_FILE_INFORMATION&) = nullptr;

BOOL WINAPI informDifferently(HANDLE file, BY_HANDLE_FILE_INFORMATION* information) {
    const BOOL known =
        realFunction<decltype(GetFileInformationByHandle)>("GetFileInformationByHandle")(file, information);
    changeInformation(*information);
    return known;
}

// Whether a load goes on to read after such an answer.
bool isRead(const std::function<std::wstring()>& load, void (*change)(BY_HANDLE_FILE_INFORMATION&)) {
    changeInformation = change;
    const ImportSwap<decltype(GetFileInformationByHandle)> changed("GetFileInformationByHandle",
                                                                   informDifferently);
    const CallNotes notes;
    const bool loaded = !load().empty();
    EXPECT_EQ(calls.size() == 2, !loaded);  // both files opened, nothing read
    return loaded;
}

// Where links to files cannot be made, the system is made to say that one is there.
TEST_F(SettingsStore, DoesNotReadWhatTheSystemCallsALinkAFolderOrLarge) {
    saveWithBackup();
    const auto loading = [this] { return load(); };
    using Information = BY_HANDLE_FILE_INFORMATION;
    EXPECT_TRUE(isRead(loading, [](Information&) {}));
    EXPECT_TRUE(isRead(loading, [](Information& file) { file.dwFileAttributes = FILE_ATTRIBUTE_NORMAL; }));
    EXPECT_FALSE(
        isRead(loading, [](Information& file) { file.dwFileAttributes |= FILE_ATTRIBUTE_REPARSE_POINT; }));
    EXPECT_FALSE(
        isRead(loading, [](Information& file) { file.dwFileAttributes |= FILE_ATTRIBUTE_DIRECTORY; }));
    EXPECT_FALSE(isRead(loading, [](Information& file) { file.nFileSizeHigh = 1; }));
}

TEST_F(SettingsStore, RefusesAFileThatGivesFewerBytesThanItHas) {
    saveWithBackup();
    const ImportSwap<decltype(ReadFile)> shortRead(
        "ReadFile", [](HANDLE file, LPVOID bytes, DWORD size, DWORD* taken, OVERLAPPED* overlapped) -> BOOL {
            return realFunction<decltype(ReadFile)>("ReadFile")(file, bytes, size - 1, taken, overlapped);
        });
    const ImportSwap<decltype(CryptUnprotectData)> watch("CryptUnprotectData", noteUnprotect);
    calls.clear();
    EXPECT_EQ(load(), L"");
    EXPECT_TRUE(calls.empty());  // not even tried
}

// --- Steps that fail ---

TEST_F(SettingsStore, WritesNothingWhenItCannotEncrypt) {
    {
        const ImportSwap<decltype(CryptProtectData)> failing(
            "CryptProtectData",
            [](DATA_BLOB*, LPCWSTR, DATA_BLOB*, PVOID, CRYPTPROTECT_PROMPTSTRUCT*, DWORD,
               DATA_BLOB*) -> BOOL { return FALSE; });
        EXPECT_FALSE(save(L"h"));
    }
    EXPECT_TRUE(files().empty());
}

TEST_F(SettingsStore, WritesNothingWithoutItsSecurityDescriptor) {
    {
        const ImportSwap<decltype(ConvertStringSecurityDescriptorToSecurityDescriptorW)> failing(
            "ConvertStringSecurityDescriptorToSecurityDescriptorW",
            [](LPCWSTR, DWORD, PSECURITY_DESCRIPTOR*, ULONG*) -> BOOL { return FALSE; });
        EXPECT_FALSE(save(L"h"));
    }
    EXPECT_TRUE(files().empty());
}

TEST_F(SettingsStore, WritesNothingForAnUnknownUser) {
    {
        const test::RefusedImport<decltype(GetTokenInformation)> refused("GetTokenInformation");
        EXPECT_FALSE(save(L"h"));
    }
    EXPECT_TRUE(files().empty());
}

class FailingSave : public SettingsStore {
protected:
    void SetUp() override { saveWithBackup(); }
    // The save under test has failed: all is as before, and the next one succeeds.
    void expectNothingLost(bool saved) {
        EXPECT_FALSE(saved);
        EXPECT_FALSE(fileExists(replacement));
        EXPECT_EQ(load(), L"newer");
        EXPECT_TRUE(save(L"later"));
        EXPECT_EQ(load(), L"later");
    }
};

TEST_F(FailingSave, AtAWriteThatFails) {
    std::optional<ImportSwap<decltype(WriteFile)>> failing(
        std::in_place, "WriteFile",
        [](HANDLE, LPCVOID, DWORD, DWORD*, OVERLAPPED*) -> BOOL { return FALSE; });
    const bool saved = save(L"lost");
    failing.reset();
    expectNothingLost(saved);
}

TEST_F(FailingSave, AtAWriteThatEndsEarly) {
    std::optional<ImportSwap<decltype(WriteFile)>> failing(
        std::in_place, "WriteFile",
        [](HANDLE file, LPCVOID bytes, DWORD size, DWORD* written, OVERLAPPED* overlapped) -> BOOL {
            return realFunction<decltype(WriteFile)>("WriteFile")(file, bytes, size - 1, written, overlapped);
        });
    const bool saved = save(L"lost");
    failing.reset();
    expectNothingLost(saved);
}

TEST_F(FailingSave, AtAFlushThatFails) {
    std::optional<ImportSwap<decltype(FlushFileBuffers)>> failing(std::in_place, "FlushFileBuffers",
                                                                  [](HANDLE) -> BOOL { return FALSE; });
    const bool saved = save(L"lost");
    failing.reset();
    expectNothingLost(saved);
}

TEST_F(FailingSave, AtAnExchangeThatFails) {
    std::optional<ImportSwap<decltype(ReplaceFileW)>> failing(
        std::in_place, "ReplaceFileW",
        [](LPCWSTR, LPCWSTR, LPCWSTR, DWORD, LPVOID, LPVOID) -> BOOL { return FALSE; });
    const bool saved = save(L"lost");
    failing.reset();
    expectNothingLost(saved);
}

// A program that reads the new file, as a virus scanner does: no exchange while it has it open, and no
// deletion.
UniqueFile scanner;

BOOL WINAPI replaceUnderAScanner(LPCWSTR, LPCWSTR replacement, LPCWSTR, DWORD, LPVOID, LPVOID) {
    scanner = openFile(replacement, GENERIC_READ, FILE_SHARE_READ, OPEN_EXISTING);
    SetLastError(ERROR_SHARING_VIOLATION);
    return FALSE;
}

class ScannedSave : public FailingSave {
protected:
    ~ScannedSave() override { scanner.reset(); }
    bool saveUnderAScanner() {
        const ImportSwap<decltype(ReplaceFileW)> scanned("ReplaceFileW", replaceUnderAScanner);
        return save(L"lost");
    }
};

TEST_F(ScannedSave, LeavesNothingInTheWayOfTheNextOne) {
    EXPECT_FALSE(saveUnderAScanner());
    ASSERT_TRUE(fileExists(replacement)) << "the scanner did not hold the file";
    scanner.reset();
    EXPECT_TRUE(save(L"later"));
    EXPECT_EQ(load(), L"later");
}

TEST_F(ScannedSave, FailsAgainWhileTheFileIsHeldAndNoLonger) {
    EXPECT_FALSE(saveUnderAScanner());
    EXPECT_FALSE(save(L"still held"));
    EXPECT_EQ(load(), L"newer");
    scanner.reset();
    EXPECT_TRUE(save(L"later"));
    EXPECT_EQ(load(), L"later");
}

TEST_F(ScannedSave, LeavesNothingWhenTheScannerIsSoonDone) {
    const ImportSwap<decltype(DeleteFileW)> soonDone("DeleteFileW", [](LPCWSTR path) -> BOOL {
        if (realFunction<decltype(DeleteFileW)>("DeleteFileW")(path))
            return TRUE;
        scanner.reset();
        return FALSE;
    });
    EXPECT_FALSE(saveUnderAScanner());
    EXPECT_FALSE(fileExists(replacement));
}

// Another program put it there after ours had gone; so had it been a crash's, it stays.
TEST_F(ScannedSave, TakesNoOtherFileForItsOwn) {
    EXPECT_FALSE(saveUnderAScanner());
    scanner.reset();
    ASSERT_TRUE(save(L"later"));
    writeFile(replacement, "left over");
    EXPECT_FALSE(save(L"newest"));
    EXPECT_EQ(readFile(replacement), "left over");
}

TEST_F(FailingSave, AtAFirstMoveThatFails) {
    ASSERT_TRUE(DeleteFileW(current.c_str()));
    std::optional<ImportSwap<decltype(MoveFileExW)>> failing(
        std::in_place, "MoveFileExW", [](LPCWSTR, LPCWSTR, DWORD) -> BOOL { return FALSE; });
    EXPECT_FALSE(save(L"lost"));
    failing.reset();
    EXPECT_FALSE(fileExists(replacement));
    EXPECT_EQ(load(), L"good");
    EXPECT_TRUE(fromBackup);
}

// ERROR_UNABLE_TO_MOVE_REPLACEMENT_2: the old file already has the backup's name when the system gives up.
TEST_F(FailingSave, AtAnExchangeThatFailsHalfWay) {
    std::optional<ImportSwap<decltype(ReplaceFileW)>> failing(
        std::in_place, "ReplaceFileW",
        [](LPCWSTR replaced, LPCWSTR, LPCWSTR kept, DWORD, LPVOID, LPVOID) -> BOOL {
            MoveFileExW(replaced, kept, MOVEFILE_REPLACE_EXISTING);
            SetLastError(ERROR_UNABLE_TO_MOVE_REPLACEMENT_2);
            return FALSE;
        });
    const bool saved = save(L"lost");
    failing.reset();
    EXPECT_FALSE(settingsFileExists(folder.path()));
    expectNothingLost(saved);  // "newer", from the backup
}

// --- What stays in memory ---

// Blocks that went back to the system with LocalFree, as they were at that moment.
struct FreedBlock {
    std::size_t bytes;
    std::size_t leadingZeros;
};
std::vector<FreedBlock> freedBlocks;

HLOCAL WINAPI noteFree(HLOCAL block) {
    const auto* const bytes = static_cast<const unsigned char*>(block);
    const std::size_t size = LocalSize(block);
    const auto* const firstByte =
        std::find_if(bytes, bytes + size, [](unsigned char byte) { return byte != 0; });
    freedBlocks.push_back({size, static_cast<std::size_t>(firstByte - bytes)});
    return realFunction<decltype(LocalFree)>("LocalFree")(block);
}

// How many blocks were freed that had held so many bytes, and held them no more. A cipher's padding may
// follow.
std::size_t wipedBlocksOf(std::size_t bytes) {
    constexpr std::size_t kMaxPaddingBytes = 64;
    std::size_t count = 0;
    for (const FreedBlock& block : freedBlocks) {
        if (block.bytes >= bytes && block.bytes <= bytes + kMaxPaddingBytes) {
            EXPECT_GE(block.leadingZeros, bytes);
            ++count;
        }
    }
    return count;
}

TEST_F(SettingsStore, WipesWhatTheSystemAllocatedForIt) {
    BrokerSettings settings = named(L"h");
    settings.directPassword.assign(std::wstring(200, L'\x1234'));
    freedBlocks.clear();
    {
        const ImportSwap<decltype(LocalFree)> watch("LocalFree", noteFree);
        ASSERT_TRUE(saveSettings(folder.path(), settings));
    }
    EXPECT_EQ(wipedBlocksOf(static_cast<std::size_t>(std::filesystem::file_size(current))), 1u);
    EXPECT_TRUE(std::any_of(freedBlocks.begin(), freedBlocks.end(), [](const FreedBlock& block) {
        return block.leadingZeros < block.bytes;  // the descriptor is no secret: the watch can tell
    }));
    freedBlocks.clear();
    {
        const ImportSwap<decltype(LocalFree)> watch("LocalFree", noteFree);
        ASSERT_TRUE(loadSettings(folder.path(), settings, fromBackup));
    }
    EXPECT_EQ(wipedBlocksOf(serializeSettings(settings).size()), 1u);
}

// A password that occurs nowhere in this program: it is only ever made unit by unit.
constexpr std::size_t kMarkerUnits = 64;
wchar_t markerUnit(std::size_t i) {
    return static_cast<wchar_t>(0x4E00 + (i * 7919 + 4271) % 20'000);
}

// Copies of the middle of that password in all memory that this process may write, its heaps and stacks.
std::size_t markerCopies() {
    constexpr std::size_t kFirst = 16, kBytes = 2 * 32;
    std::size_t copies = 0;
    const BYTE* address = nullptr;
    MEMORY_BASIC_INFORMATION region{};
    while (VirtualQuery(address, &region, sizeof region) != 0) {
        const auto* const start = static_cast<const BYTE*>(region.BaseAddress);
        const BYTE* const end = start + region.RegionSize;
        const bool writable =
            region.State == MEM_COMMIT && (region.Protect & PAGE_GUARD) == 0 &&
            (region.Protect & (PAGE_READWRITE | PAGE_WRITECOPY | PAGE_EXECUTE_READWRITE)) != 0;
        const wchar_t first = markerUnit(kFirst);
        for (const BYTE* at = start; writable && at + kBytes <= end; ++at) {
            if (at[0] != (first & 0xFF) || at[1] != (first >> 8))
                continue;
            std::size_t same = 0;
            while (2 * same < kBytes && at[2 * same] == (markerUnit(kFirst + same) & 0xFF) &&
                   at[2 * same + 1] == (markerUnit(kFirst + same) >> 8))
                ++same;
            copies += 2 * same == kBytes;
        }
        address = end;
    }
    return copies;
}

TEST_F(SettingsStore, LeavesNoPasswordInMemory) {
    EXPECT_EQ(markerCopies(), 0u);
    {
        BrokerSettings settings = named(L"h");
        settings.directPassword.reserve(kMarkerUnits);
        for (std::size_t i = 0; i < kMarkerUnits; ++i)
            settings.directPassword.append(markerUnit(i));
        EXPECT_EQ(markerCopies(), 1u);  // the scan sees the one that there is
        ASSERT_TRUE(saveSettings(folder.path(), settings));
        ASSERT_TRUE(saveSettings(folder.path(), settings));
        EXPECT_EQ(markerCopies(), 1u) << "after saving";
        BrokerSettings loaded;
        ASSERT_TRUE(loadSettings(folder.path(), loaded, fromBackup));
        EXPECT_EQ(markerCopies(), 2u) << "after loading";
        StoredRecord refused;
        writeFile(current, protectBytes(refused.bytes() + "x"));
        ASSERT_TRUE(loadSettings(folder.path(), loaded, fromBackup));
        EXPECT_TRUE(fromBackup);
        EXPECT_EQ(markerCopies(), 2u) << "after loading the backup";
    }
    EXPECT_EQ(markerCopies(), 0u) << "at the end";
}

}  // namespace
}  // namespace vextra
