#include <windows.h>

#include <shellapi.h>

#include <vector>

#include "base/sha256.h"
#include "base/unique_win.h"
#include "update/installer_launch.h"
#include "update/signature.h"
#include "update/transfer_profile.h"

namespace vextra {
namespace {

bool isPlainFile(HANDLE file) {
    BY_HANDLE_FILE_INFORMATION information{};
    return GetFileInformationByHandle(file, &information) &&
           (information.dwFileAttributes & (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT)) == 0;
}

bool start(HWND owner, const std::wstring& path) {
    SHELLEXECUTEINFOW execution{};
    execution.cbSize = sizeof execution;
    execution.fMask = SEE_MASK_NOCLOSEPROCESS | SEE_MASK_NOASYNC;
    execution.hwnd = owner;
    execution.lpVerb = L"open";
    execution.lpFile = path.c_str();
    execution.lpParameters = L"/NORESTART";
    execution.nShow = SW_SHOWNORMAL;
    const bool started = ShellExecuteExW(&execution) != FALSE;
    const UniqueHandle process(execution.hProcess);  // closed at once
    return started;
}

}  // namespace

bool isAnnouncedInstaller(HANDLE file, const UpdateManifest& manifest) {
    LARGE_INTEGER size{};
    if (!GetFileSizeEx(file, &size) || static_cast<std::uint64_t>(size.QuadPart) != manifest.sizeBytes)
        return false;
    Sha256 hash;
    std::vector<std::byte> piece(kInstallerReadBytes);
    for (;;) {
        DWORD taken = 0;
        if (!ReadFile(file, piece.data(), static_cast<DWORD>(piece.size()), &taken, nullptr))
            return false;
        if (taken == 0)
            break;
        if (!hash.add(std::span(piece).first(taken)))
            return false;
    }
    const std::optional<Sha256Digest> digest = hash.finish();
    return digest && isInstallerDigest(manifest, *digest);
}

bool openVerifiedInstaller(HWND owner, const UpdateManifest& manifest, const std::wstring& path,
                           const UpdateChannelIdentity& channel) {
    if (!isManifestStillTrusted(manifest, channel))
        return false;
    // Shared for reading only, and held until the program has started: the file that was checked stays as it
    // is. The shell opens it by its path once more, so this does not keep the user's own programs from moving
    // folders.
    const UniqueFile file(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                      FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
    return file && isPlainFile(file.get()) && isAnnouncedInstaller(file.get(), manifest) &&
           start(owner, path);
}

}  // namespace vextra
