#include <windows.h>

#include <dpapi.h>

#include <cstdint>
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

// Sizes of an encrypted file that is worth reading; the upper one bounds every allocation of a load.
constexpr std::uint64_t kMinFileBytes = 16;
constexpr std::uint64_t kMaxFileBytes = 65'536;

struct StorePaths {
    explicit StorePaths(const std::wstring& folder)
        : current(folder + L"\\settings.dpapi"), replacement(current + L".new"), backup(current + L".bak") {}
    std::wstring current;
    std::wstring replacement;
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
    ~ProtectionResult() { wipeAndFree(); }

    DATA_BLOB* put() {
        wipeAndFree();
        return &blob_;
    }
    std::span<const std::byte> bytes() const {
        return {reinterpret_cast<const std::byte*>(blob_.pbData), blob_.cbData};
    }
    void wipeAndFree() {
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

// Creates the file, which may not be there yet, with full access for the system and this user; nothing
// inherited, nothing for administrators.
UniqueFile createForOwnerOnly(const std::wstring& path) {
    const std::wstring sid = currentUserSidString();
    if (sid.empty())
        return {};
    const UniqueLocalMemory descriptor = descriptorFromSddl(L"D:P(A;;FA;;;SY)(A;;FA;;;" + sid + L")");
    if (!descriptor)
        return {};
    SECURITY_ATTRIBUTES security{sizeof security, descriptor.get(), FALSE};
    return UniqueFile(
        CreateFileW(path.c_str(), GENERIC_WRITE, 0, &security, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr));
}

// To the disk, not only to the system: the exchange that follows must never name a file without its content.
bool writeAndFlush(HANDLE file, std::span<const std::byte> bytes) {
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
        return ReplaceFileW(paths.current.c_str(), paths.replacement.c_str(), paths.backup.c_str(),
                            REPLACEFILE_IGNORE_MERGE_ERRORS, nullptr, nullptr) != FALSE;
    return MoveFileExW(paths.replacement.c_str(), paths.current.c_str(), MOVEFILE_WRITE_THROUGH) != FALSE;
}

// A .new of this process's that another program held open when it was to be deleted; empty when there is
// none. Main thread, as all of the store.
std::wstring leftBehind;

constexpr Tick kHeldWaitMs = 100;
constexpr DWORD kHeldStepMs = 10;

// What made the exchange fail, a virus scanner or a backup that reads the new file, makes its deletion fail
// too, as a rule for some milliseconds. A file that stayed would be in the way of every later save.
void discardReplacement(const std::wstring& path) {
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
    const PlainFile plain = openPlainFile(path, GENERIC_READ, FILE_SHARE_READ);
    if (!plain || plain.sizeBytes < kMinFileBytes || plain.sizeBytes > kMaxFileBytes)
        return std::nullopt;
    SecretBytes bytes(static_cast<std::size_t>(plain.sizeBytes));
    DWORD taken = 0;
    if (!ReadFile(plain.file.get(), bytes.data(), static_cast<DWORD>(bytes.size()), &taken, nullptr) ||
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
    return parseSettings(plain) && protect(plain, blob) && blob.bytes().size() <= kMaxFileBytes;
}

}  // namespace

bool saveSettings(const std::wstring& folder, const BrokerSettings& settings) {
    ProtectionResult blob;
    if (!protectRecord(settings, blob))
        return false;

    const StorePaths paths(folder);
    if (leftBehind == paths.replacement)
        discardReplacement(paths.replacement);
    UniqueFile file = createForOwnerOnly(paths.replacement);
    if (!file)
        return false;
    const bool written = writeAndFlush(file.get(), blob.bytes());
    file.reset();
    blob.wipeAndFree();

    const bool saved = written && moveIntoPlace(paths);
    if (!saved) {
        discardReplacement(paths.replacement);
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
