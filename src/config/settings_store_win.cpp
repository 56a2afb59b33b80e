#include <windows.h>

#include <dpapi.h>
#include <sddl.h>

#include <optional>
#include <span>
#include <utility>

#include "base/product.h"
#include "base/system_types.h"
#include "base/system_win.h"
#include "base/unique_win.h"
#include "config/settings_record.h"
#include "config/settings_store.h"

namespace vextra {
namespace {

struct StorePaths {
    explicit StorePaths(const std::wstring& folder)
        : current(folder + L"\\settings.dpapi"), fresh(current + L".new"), backup(current + L".bak") {}
    std::wstring current;
    std::wstring fresh;
    std::wstring backup;
};

bool exists(const std::wstring& path) {
    return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

// What the data-protection functions allocate for their result; wiped before it goes back to the system.
class ProtectionResult {
public:
    ProtectionResult() = default;
    ProtectionResult(const ProtectionResult&) = delete;
    ProtectionResult& operator=(const ProtectionResult&) = delete;
    ~ProtectionResult() { free(); }

    DATA_BLOB* put() {
        free();
        return &blob_;
    }
    std::span<const std::byte> bytes() const {
        return {reinterpret_cast<const std::byte*>(blob_.pbData), blob_.cbData};
    }
    void free() {
        if (blob_.pbData == nullptr)
            return;
        wipeMemory(blob_.pbData, blob_.cbData);
        LocalFree(blob_.pbData);
        blob_ = {};
    }

private:
    DATA_BLOB blob_{};
};

// The functions take their input as writable, but do not write it.
DATA_BLOB asBlob(const SecretBytes& bytes) {
    return {static_cast<DWORD>(bytes.size()), const_cast<BYTE*>(reinterpret_cast<const BYTE*>(bytes.data()))};
}

bool protect(const SecretBytes& plain, ProtectionResult& result) {
    DATA_BLOB in = asBlob(plain);
    return CryptProtectData(&in, VEXTRA_SHORT_NAME_W L" beta settings", nullptr, nullptr, nullptr,
                            CRYPTPROTECT_UI_FORBIDDEN, result.put()) != FALSE;
}

bool unprotect(const SecretBytes& blob, ProtectionResult& result) {
    DATA_BLOB in = asBlob(blob);
    return CryptUnprotectData(&in, nullptr, nullptr, nullptr, nullptr, CRYPTPROTECT_UI_FORBIDDEN,
                              result.put()) != FALSE;
}

// Full access for the system and this user; nothing inherited, nothing for administrators.
UniqueLocalMemory ownerOnlyDescriptor() {
    const std::wstring sid = currentUserSidString();
    if (sid.empty())
        return {};
    const std::wstring sddl = L"D:P(A;;FA;;;SY)(A;;FA;;;" + sid + L")";
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    if (!ConvertStringSecurityDescriptorToSecurityDescriptorW(sddl.c_str(), SDDL_REVISION_1, &descriptor,
                                                              nullptr))
        return {};
    return UniqueLocalMemory(descriptor);
}

// Creates the file, which may not be there yet.
UniqueFile createFresh(const std::wstring& path) {
    const UniqueLocalMemory descriptor = ownerOnlyDescriptor();
    if (!descriptor)
        return {};
    SECURITY_ATTRIBUTES security{sizeof security, descriptor.get(), FALSE};
    return UniqueFile(
        CreateFileW(path.c_str(), GENERIC_WRITE, 0, &security, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr));
}

// To the disk, not only to the system: the exchange that follows must never name a file without its content.
bool writeThrough(HANDLE file, std::span<const std::byte> bytes) {
    const auto size = static_cast<DWORD>(bytes.size());
    DWORD written = 0;
    const bool whole = WriteFile(file, bytes.data(), size, &written, nullptr) && written == size;
    const bool flushed = whole && FlushFileBuffers(file);
    return flushed;
}

// ReplaceFileW may fail half-way (error 1177): the old record then has the backup's name already, where
// loading finds it, and the next save finds no current file and moves its own into place.
bool moveIntoPlace(const StorePaths& paths) {
    if (exists(paths.current))
        return ReplaceFileW(paths.current.c_str(), paths.fresh.c_str(), paths.backup.c_str(),
                            REPLACEFILE_IGNORE_MERGE_ERRORS, nullptr, nullptr) != FALSE;
    return MoveFileExW(paths.fresh.c_str(), paths.current.c_str(), MOVEFILE_WRITE_THROUGH) != FALSE;
}

// A .new of this process's that another program held open when it was to be deleted; empty when there is
// none. Main thread, as all of the store.
std::wstring leftBehind;

constexpr Tick kHeldWaitMs = 100;
constexpr DWORD kHeldStepMs = 10;

// What made the exchange fail, a virus scanner or a backup that reads the new file, makes its deletion fail
// too, as a rule for some milliseconds. A file that stayed would be in the way of every later save.
void discardFresh(const std::wstring& path) {
    const Tick end = GetTickCount64() + kHeldWaitMs;
    while (!DeleteFileW(path.c_str()) && exists(path)) {
        if (GetTickCount64() >= end) {
            leftBehind = path;
            return;
        }
        Sleep(kHeldStepMs);
    }
    leftBehind.clear();
}

std::optional<SecretBytes> readWhole(const std::wstring& path) {
    const UniqueFile file(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                      FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
    BY_HANDLE_FILE_INFORMATION information{};
    if (!file || !GetFileInformationByHandle(file.get(), &information))
        return std::nullopt;
    const std::uint64_t size = (std::uint64_t{information.nFileSizeHigh} << 32) | information.nFileSizeLow;
    if (!isReadableSettingsFile(information.dwFileAttributes, size))
        return std::nullopt;
    SecretBytes bytes(static_cast<std::size_t>(size));
    DWORD taken = 0;
    if (!ReadFile(file.get(), bytes.data(), static_cast<DWORD>(bytes.size()), &taken, nullptr) ||
        taken != bytes.size())
        return std::nullopt;
    return bytes;
}

bool loadFile(const std::wstring& path, BrokerSettings& settings) {
    const std::optional<SecretBytes> blob = readWhole(path);
    ProtectionResult plain;
    if (!blob || !unprotect(*blob, plain))
        return false;
    std::optional<BrokerSettings> record = parseSettings(plain.bytes());
    if (!record)
        return false;
    settings = std::move(*record);
    return true;
}

// The record as the file will hold it; the plain bytes end, wiped, with this function. What no load would
// accept (a string or a file that is too long) is not saved either: it would take the place of a record that
// can be read.
bool protectRecord(const BrokerSettings& settings, ProtectionResult& blob) {
    const SecretBytes plain = serializeSettings(settings);
    return parseSettings(plain) && protect(plain, blob) && blob.bytes().size() <= kMaxSettingsFileBytes;
}

}  // namespace

bool saveSettings(const std::wstring& folder, const BrokerSettings& settings) {
    ProtectionResult blob;
    if (!protectRecord(settings, blob))
        return false;

    const StorePaths paths(folder);
    if (leftBehind == paths.fresh)
        discardFresh(paths.fresh);
    UniqueFile file = createFresh(paths.fresh);
    if (!file)
        return false;
    const bool written = writeThrough(file.get(), blob.bytes());
    file.reset();
    blob.free();

    const bool saved = written && moveIntoPlace(paths);
    if (!saved) {
        discardFresh(paths.fresh);
    }
    return saved;
}

bool loadSettings(const std::wstring& folder, BrokerSettings& settings, bool& fromBackup) {
    const StorePaths paths(folder);
    const bool fromCurrent = loadFile(paths.current, settings);
    fromBackup = !fromCurrent && loadFile(paths.backup, settings);
    return fromCurrent || fromBackup;
}

bool settingsFileExists(const std::wstring& folder) {
    return exists(StorePaths(folder).current);
}

}  // namespace vextra
