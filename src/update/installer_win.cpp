#include "update/installer_win.h"

#include <objbase.h>
#include <shellapi.h>
#include <shlobj.h>

#include <vector>

#include "base/product.h"
#include "base/system_win.h"
#include "base/text.h"
#include "base/unique_win.h"
#include "update/download_folder.h"
#include "update/https_transfer_win.h"
#include "update/signature.h"

namespace vextra {
namespace {

constexpr std::size_t kFilePieceBytes = 65'536;
constexpr std::size_t kGuidUnits = 39;  // {xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx} and its terminator

using UniqueFileSearch = Unique<HANDLE, &FindClose, kInvalidHandleValue>;

struct Progress {
    const std::atomic<bool>& cancel;
    std::atomic<std::uint32_t>& percent;
};

std::wstring finishedFileName() {
    return widenedAscii(kInstallerFileName);
}

std::wstring fileIn(const std::wstring& folder, std::wstring_view name) {
    return folder + L"\\" + std::wstring(name);
}

bool isLink(DWORD attributes) {
    return (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
}

// By the two names that a download gives its files: what else may lie there is not ours, nor is what a link
// leads to.
void removeDownload(const std::wstring& folder) {
    for (const std::wstring& name : {finishedFileName(), std::wstring(kUnfinishedFileName)}) {
        const std::wstring path = fileIn(folder, name);
        if (!isLink(GetFileAttributesW(path.c_str())))
            DeleteFileW(path.c_str());
    }
    RemoveDirectoryW(folder.c_str());
}

// What earlier downloads left: installers that were run or not, and the beginnings of a broker that was
// killed. An installer that runs stays.
void removeEarlierDownloads(const std::wstring& updates) {
    WIN32_FIND_DATAW found{};
    const UniqueFileSearch search(FindFirstFileW(fileIn(updates, L"*").c_str(), &found));
    if (!search)
        return;
    do {
        const bool isFolder = (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
        if (isFolder && !isLink(found.dwFileAttributes) && isDownloadFolderName(found.cFileName))
            removeDownload(fileIn(updates, found.cFileName));
    } while (FindNextFileW(search.get(), &found));
}

// A new folder for one download, the only one of its kind as far as possible; empty on failure.
std::wstring makeDownloadFolder() {
    UniqueTaskText local;
    if (FAILED(SHGetKnownFolderPath(FOLDERID_LocalAppData, KF_FLAG_DEFAULT, nullptr, local.put())))
        return {};
    const std::wstring updates = std::wstring(local.get()) + L"\\" VEXTRA_FOLDER_W L"\\updates";
    const int made = SHCreateDirectoryExW(nullptr, updates.c_str(), nullptr);
    if (made != ERROR_SUCCESS && made != ERROR_ALREADY_EXISTS && made != ERROR_FILE_EXISTS)
        return {};
    removeEarlierDownloads(updates);
    GUID id{};
    wchar_t name[kGuidUnits];
    if (FAILED(CoCreateGuid(&id)) || StringFromGUID2(id, name, kGuidUnits) == 0)
        return {};
    const std::wstring folder = fileIn(updates, name);
    return CreateDirectoryW(folder.c_str(), nullptr) ? folder : std::wstring();
}

bool writeAll(HANDLE file, std::span<const std::byte> bytes) {
    DWORD written = 0;
    return WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr) &&
           written == bytes.size();
}

// Until the end of the body. False as soon as it is certain that this cannot become the signed file.
bool receiveBody(HttpsTransfer& transfer, HANDLE file, Sha256& hash, const UpdateManifest& manifest,
                 const Progress& progress) {
    std::vector<std::byte> piece(kInstallerReadBytes);
    std::uint64_t written = 0;
    while (transfer.elapsedMs() <= kInstallerLimits.totalTimeoutMs) {
        const std::optional<std::size_t> count = transfer.read(piece);
        if (!count)
            return false;
        if (*count == 0)
            return written == manifest.sizeBytes;
        const auto bytes = std::span<const std::byte>(piece).first(*count);
        if (bytes.size() > manifest.sizeBytes - written || !writeAll(file, bytes) || !hash.add(bytes))
            return false;
        written += bytes.size();
        progress.percent = static_cast<std::uint32_t>(written * 100 / manifest.sizeBytes);
        if (progress.cancel)
            return false;
    }
    return false;
}

bool receiveInstaller(HANDLE file, const UpdateManifest& manifest, const Progress& progress) {
    Sha256 hash;
    HttpsTransfer transfer;
    if (!hash.ready() ||
        !transfer.open(kInstallerTransfer, widenedAscii(manifest.installerUrl),
                       kInstallerLimits.operationTimeoutMs) ||
        progress.cancel || !transfer.send() || progress.cancel ||
        !transfer.setHeadTimeout(kInstallerLimits.operationTimeoutMs) || !transfer.receiveHead() ||
        progress.cancel || !receiveBody(transfer, file, hash, manifest, progress))
        return false;
    const std::optional<Sha256Digest> digest = hash.finish();
    return digest && isInstallerDigest(manifest, *digest) && FlushFileBuffers(file);
}

// A scanner may hold a file that was just written; it is done with it in an instant.
bool rename(const std::wstring& from, const std::wstring& to) {
    constexpr int kAttempts = 6;
    constexpr DWORD kPauseMs = 100;
    for (int attempt = 1;; ++attempt) {
        if (MoveFileExW(from.c_str(), to.c_str(), MOVEFILE_WRITE_THROUGH))
            return true;
        const DWORD error = GetLastError();
        if (attempt == kAttempts || (error != ERROR_SHARING_VIOLATION && error != ERROR_ACCESS_DENIED))
            return false;
        Sleep(kPauseMs);
    }
}

// The path of the finished installer; empty, and nothing left of the folder, on failure.
std::wstring downloadInto(const std::wstring& folder, const UpdateManifest& manifest,
                          const Progress& progress) {
    const std::wstring unfinished = fileIn(folder, kUnfinishedFileName);
    std::wstring finished = fileIn(folder, finishedFileName());
    UniqueFile file(CreateFileW(unfinished.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW,
                                FILE_ATTRIBUTE_NORMAL, nullptr));
    const bool received = file && receiveInstaller(file.get(), manifest, progress);
    file.reset();
    if (received && !progress.cancel && rename(unfinished, finished))
        return finished;
    DeleteFileW(unfinished.c_str());
    RemoveDirectoryW(folder.c_str());
    return {};
}

}  // namespace

DownloadResult downloadInstaller(const UpdateManifest& manifest, const UpdateChannelIdentity& channel,
                                 const std::atomic<bool>& cancel,
                                 std::atomic<std::uint32_t>& progressPercent) {
    if (!isManifestStillTrusted(manifest, channel, verifyManifestSignature))
        return {false, {}, L"Atualização sem assinatura MF válida; download recusado."};
    DownloadResult result{false, {}, L"Download não concluído; nenhuma instalação foi iniciada."};
    const std::wstring folder = makeDownloadFolder();
    if (folder.empty())
        return result;
    result.installerPath = downloadInto(folder, manifest, {cancel, progressPercent});
    result.verified = !result.installerPath.empty();
    if (result.verified)
        result.message =
            L"Instalador baixado: assinatura, tamanho e SHA-256 verificados. Instale quando a câmera estiver "
            L"ociosa.";
    return result;
}

// --- The last look at it, and its start ---
namespace {

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

std::optional<Sha256Digest> sha256OfFile(HANDLE file) {
    Sha256 hash;
    std::vector<std::byte> piece(kFilePieceBytes);
    for (;;) {
        DWORD taken = 0;
        if (!ReadFile(file, piece.data(), static_cast<DWORD>(piece.size()), &taken, nullptr))
            return std::nullopt;
        if (taken == 0)
            return hash.finish();
        if (!hash.add(std::span(piece).first(taken)))
            return std::nullopt;
    }
}

bool isAnnouncedInstaller(HANDLE file, const UpdateManifest& manifest) {
    LARGE_INTEGER size{};
    if (!GetFileSizeEx(file, &size) || static_cast<std::uint64_t>(size.QuadPart) != manifest.sizeBytes)
        return false;
    const std::optional<Sha256Digest> digest = sha256OfFile(file);
    return digest && isInstallerDigest(manifest, *digest);
}

bool openVerifiedInstaller(HWND owner, const UpdateManifest& manifest, const std::wstring& path,
                           const UpdateChannelIdentity& channel) {
    if (!isManifestStillTrusted(manifest, channel, verifyManifestSignature))
        return false;
    // Shared for reading only, and held until the program has started: the file that was checked stays as it
    // is. The shell opens it by its path once more, so this does not keep the user's own programs from moving
    // folders.
    const PlainFile installer = openPlainFile(path, GENERIC_READ, FILE_SHARE_READ);
    return installer && isAnnouncedInstaller(installer.file.get(), manifest) && start(owner, path);
}

}  // namespace vextra
