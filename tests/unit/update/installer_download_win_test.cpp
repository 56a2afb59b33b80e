#include "update/installer_win.h"

#include <windows.h>

#include <objbase.h>
#include <psapi.h>
#include <shlobj.h>
#include <winhttp.h>

#include <gtest/gtest.h>

#include <regex>
#include <thread>

#include "local_app_data_win.h"
#include "signed_installer_win.h"

namespace vextra {
namespace {

using test::ImportSwap;
using test::realFunction;
using test::RefusedImport;
using test::ScratchLocalAppData;
using test::SignedInstaller;
using test::UpdateServer;

constexpr const wchar_t* kVerified =
    L"Instalador baixado: assinatura, tamanho e SHA-256 verificados. Instale quando a câmera estiver ociosa.";
constexpr const wchar_t* kFailed = L"Download não concluído; nenhuma instalação foi iniciada.";
constexpr const wchar_t* kUntrusted = L"Atualização sem assinatura MF válida; download recusado.";

template <typename Function>
Function* realWinHttp(const char* name) {
    return reinterpret_cast<Function*>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"winhttp.dll"), name)));
}

// No two pieces alike.
std::string installerBytes(std::size_t size) {
    std::string bytes(size, '\0');
    std::uint32_t value = 12'345;
    for (char& byte : bytes) {
        value = value * 1'664'525 + 1'013'904'223;
        byte = static_cast<char>(value >> 24);
    }
    return bytes;
}

class InstallerDownload : public testing::Test {
protected:
    void SetUp() override {
        VEXTRA_SKIP_WITHOUT_UPDATE_SERVER();
        server.emplace(*UpdateServer::find());
        installer.emplace(*server, SignedInstaller::uniqueVersion());
        localAppData.emplace();
    }

    DownloadResult download(const UpdateManifest& manifest) {
        return downloadInstaller(manifest, installer->channel(), cancel, progress);
    }
    void expectFailure(const UpdateManifest& manifest) {
        const DownloadResult result = download(manifest);
        EXPECT_FALSE(result.verified);
        EXPECT_EQ(result.installerPath, L"");
        EXPECT_EQ(result.message, kFailed);
        EXPECT_TRUE(localAppData->downloads().empty());
    }

    std::optional<UpdateServer> server;
    std::optional<SignedInstaller> installer;
    std::optional<ScratchLocalAppData> localAppData;
    std::atomic<bool> cancel{false};
    std::atomic<std::uint32_t> progress{0};
    const std::string bytes = installerBytes(200'000);
};
using ReleaseTimedInstallerDownload = InstallerDownload;

TEST_F(InstallerDownload, BringsTheFileUnderItsFinalName) {
    const DownloadResult result = download(installer->publish(bytes));
    EXPECT_TRUE(result.verified);
    EXPECT_EQ(result.message, kVerified);
    EXPECT_EQ(progress, 100u);
    ASSERT_EQ(localAppData->downloads().size(), 1u);
    const std::filesystem::path folder = localAppData->downloads()[0];
    EXPECT_EQ(result.installerPath, folder.wstring() + L"\\Setup.exe");
    EXPECT_EQ(readFile(result.installerPath), bytes);
    EXPECT_FALSE(fileExists(folder.wstring() + L"\\Setup.download"));
    const std::wregex guid(L"\\{[0-9A-Fa-f]{8}(-[0-9A-Fa-f]{4}){3}-[0-9A-Fa-f]{12}\\}");
    EXPECT_TRUE(std::regex_match(folder.filename().wstring(), guid)) << folder;
}

TEST_F(InstallerDownload, UsesANewFolderEveryTime) {
    const UpdateManifest manifest = installer->publish(bytes);
    const DownloadResult first = download(manifest);
    const DownloadResult second = download(manifest);
    EXPECT_TRUE(first.verified && second.verified);
    EXPECT_NE(first.installerPath, second.installerPath);
}

// --- What earlier downloads left ---

class EarlierDownloads : public InstallerDownload {
protected:
    // A folder below `updates`, with these files.
    std::wstring leave(const std::wstring& name, std::initializer_list<const wchar_t*> files) const {
        const std::wstring folder = localAppData->updates() + L"\\" + name;
        std::filesystem::create_directories(folder);
        for (const wchar_t* file : files)
            writeFile(folder + L"\\" + file, "earlier");
        return folder;
    }
    void downloadAnother() { EXPECT_TRUE(download(installer->publish(bytes)).verified); }

    static constexpr const wchar_t* kName = L"{01234567-89ab-CDEF-0123-456789abcdef}";
};

TEST_F(EarlierDownloads, GoWhenAnotherBegins) {
    const std::wstring folders[] = {
        leave(L"{00000000-0000-0000-0000-000000000001}", {L"Setup.exe"}),
        leave(L"{00000000-0000-0000-0000-000000000002}", {L"Setup.download"}),
        leave(L"{00000000-0000-0000-0000-000000000003}", {L"Setup.exe", L"Setup.download"}),
        leave(L"{00000000-0000-0000-0000-000000000004}", {}),
    };
    downloadAnother();
    for (const std::wstring& folder : folders)
        EXPECT_FALSE(fileExists(folder)) << std::filesystem::path(folder);
    EXPECT_EQ(localAppData->downloads().size(), 1u);
}

TEST_F(EarlierDownloads, GoThoughTheNextOneFails) {
    const std::wstring folder = leave(kName, {L"Setup.exe"});
    expectFailure(installer->publish(bytes, R"({"status":500})"));
    EXPECT_FALSE(fileExists(folder));
}

TEST_F(EarlierDownloads, KeepWhatNoDownloadLeft) {
    const std::wstring shared = leave(kName, {L"Setup.exe", L"notes.txt"});
    const std::wstring deeper = leave(kName + std::wstring(L"\\inner"), {L"Setup.exe"});
    downloadAnother();
    EXPECT_FALSE(fileExists(shared + L"\\Setup.exe"));
    EXPECT_TRUE(fileExists(shared + L"\\notes.txt"));
    EXPECT_TRUE(fileExists(deeper + L"\\Setup.exe"));
}

TEST_F(EarlierDownloads, AreOnlyWhatIsCalledLikeOne) {
    const std::wstring other = leave(L"my copies", {L"Setup.exe", L"Setup.download"});
    const std::wstring nearly = leave(std::wstring(kName) + L".old", {L"Setup.exe"});
    const std::wstring file = localAppData->updates() + L"\\" + kName;
    writeFile(file, "a file");
    writeFile(localAppData->updates() + L"\\Setup.exe", "a file");
    downloadAnother();
    for (const std::wstring& path : {other + L"\\Setup.exe", other + L"\\Setup.download",
                                     nearly + L"\\Setup.exe", file, localAppData->updates() + L"\\Setup.exe"})
        EXPECT_TRUE(fileExists(path)) << std::filesystem::path(path);
}

TEST_F(EarlierDownloads, AreNotLookedForBehindALink) {
    const TemporaryFolder target;
    writeFile(target / L"Setup.exe", "somebody's");
    std::filesystem::create_directories(localAppData->updates());
    const FolderLink link(localAppData->updates() + L"\\" + kName, target.path());
    if (!link.exists())
        GTEST_SKIP() << "this system lets no test make a link";
    downloadAnother();
    EXPECT_TRUE(fileExists(target / L"Setup.exe"));
    EXPECT_TRUE(link.exists());
}

const wchar_t* linkedName = nullptr;
DWORD WINAPI seeALink(LPCWSTR path) {
    const DWORD attributes = realFunction<DWORD WINAPI(LPCWSTR)>("GetFileAttributesW")(path);
    return std::wstring_view(path).ends_with(linkedName) ? attributes | FILE_ATTRIBUTE_REPARSE_POINT
                                                         : attributes;
}

TEST_F(EarlierDownloads, KeepAFileThatIsALink) {
    const std::wstring folder = leave(kName, {L"Setup.exe", L"Setup.download"});
    linkedName = L"\\Setup.exe";
    {
        const ImportSwap<decltype(seeALink)> swap("GetFileAttributesW", seeALink);
        downloadAnother();
    }
    EXPECT_TRUE(fileExists(folder + L"\\Setup.exe"));
    EXPECT_FALSE(fileExists(folder + L"\\Setup.download"));
}

TEST_F(EarlierDownloads, ThatAreInUseAreNoHindrance) {
    const std::wstring folder = leave(kName, {L"Setup.exe"});
    const UniqueFile inUse = openFile(folder + L"\\Setup.exe", GENERIC_READ, FILE_SHARE_READ, OPEN_EXISTING);
    downloadAnother();
    EXPECT_TRUE(fileExists(folder + L"\\Setup.exe"));
}

TEST_F(InstallerDownload, IntroducesItselfByItsOwnNameAndNamesNoType) {
    download(installer->publish(bytes));
    const std::string request = installer->folder().requests("Setup.exe");
    EXPECT_NE(request.find("\"User-Agent\": \"CameraVirtualVextraMF/" VEXTRA_VERSION "\""), std::string::npos)
        << request;
    EXPECT_EQ(request.find("application/json"), std::string::npos) << request;
    for (const char* header : {"Cookie", "Authorization", "Referer"})
        EXPECT_EQ(request.find(header), std::string::npos) << request;
}

TEST_F(InstallerDownload, SpeaksTls12) {
    download(installer->publish(bytes));
    EXPECT_NE(installer->folder().requests("Setup.exe").find("\"tls\": \"TLSv1.2\""), std::string::npos);
}

// Odd but meant: see kInstallerTransfer.
TEST_F(InstallerDownload, SpeaksNoTls13) {
    const SignedInstaller modern(*server, SignedInstaller::uniqueVersion(), "tls13");
    EXPECT_EQ(downloadInstaller(modern.publish(bytes), modern.channel(), cancel, progress).message, kFailed);
    EXPECT_EQ(modern.folder().requests("Setup.exe"), "");
}

TEST_F(InstallerDownload, TakesADigestInUpperCase) {
    UpdateManifest manifest = installer->publish(bytes);
    std::string upper = manifest.sha256;
    for (char& c : upper)
        c = static_cast<char>(std::toupper(c));
    EXPECT_TRUE(download(installer->manifestOf(upper, manifest.sizeBytes)).verified);
}

TEST_F(InstallerDownload, TakesAnyTypeAndNoAnnouncedLength) {
    EXPECT_TRUE(download(installer->publish(bytes, R"({"type":"text/html"})")).verified);
    EXPECT_TRUE(download(installer->publish(bytes, R"({"type":null,"length":"none"})")).verified);
}

TEST_F(InstallerDownload, OfOneByteIsADownload) {
    EXPECT_TRUE(download(installer->publish("x")).verified);
}

TEST_F(InstallerDownload, RefusesAManifestThatIsNotTrustedAndSendsNothing) {
    UpdateManifest manifest = installer->publish(bytes);
    manifest.sizeBytes += 1;
    const DownloadResult result = download(manifest);
    EXPECT_FALSE(result.verified);
    EXPECT_EQ(result.message, kUntrusted);
    EXPECT_EQ(result.installerPath, L"");
    EXPECT_EQ(installer->folder().requests("Setup.exe"), "");
    EXPECT_FALSE(fileExists(localAppData->updates()));
}

TEST_F(InstallerDownload, FailsWithOneByteMore) {
    const UpdateManifest manifest = installer->publish(bytes);
    installer->folder().setReply("Setup.exe", R"({"more":1})");
    expectFailure(manifest);
    installer->folder().setReply("Setup.exe", R"({"more":1,"length":"none"})");
    expectFailure(manifest);
}

TEST_F(InstallerDownload, FailsWithOneByteLess) {
    const UpdateManifest manifest = installer->publish(bytes);
    installer->folder().put("Setup.exe", std::string_view(bytes).substr(1));
    expectFailure(manifest);
    installer->folder().put("Setup.exe", std::string_view(bytes).substr(0, bytes.size() - 1),
                            R"({"length":"none"})");
    expectFailure(manifest);
    installer->folder().put("Setup.exe", "");
    expectFailure(manifest);
}

TEST_F(InstallerDownload, FailsWithAnotherDigest) {
    const UpdateManifest manifest = installer->publish(bytes);
    std::string other = bytes;
    other.back() = static_cast<char>(other.back() ^ 1);
    installer->folder().put("Setup.exe", other);
    expectFailure(manifest);
}

std::uint64_t mostWritten = 0;
using WriteFileFunction = BOOL WINAPI(HANDLE, LPCVOID, DWORD, LPDWORD, LPOVERLAPPED);
BOOL WINAPI countWritten(HANDLE file, LPCVOID data, DWORD bytes, LPDWORD written, LPOVERLAPPED overlapped) {
    mostWritten += bytes;
    return realFunction<WriteFileFunction>("WriteFile")(file, data, bytes, written, overlapped);
}

TEST_F(InstallerDownload, WritesNoByteBeyondTheAnnouncedSize) {
    const UpdateManifest manifest = installer->publish(bytes);
    installer->folder().setReply("Setup.exe", R"({"more":300000,"length":"none"})");
    const ImportSwap<WriteFileFunction> swap("WriteFile", countWritten);
    mostWritten = 0;
    expectFailure(manifest);
    EXPECT_LE(mostWritten, manifest.sizeBytes);
    EXPECT_GT(mostWritten, 0u);
}

TEST_F(InstallerDownload, TakesStatus200Alone) {
    for (const int status : {201, 204, 206, 301, 302, 304, 307, 308, 401, 403, 404, 500, 503})
        expectFailure(installer->publish(bytes, "{\"status\":" + std::to_string(status) + "}"));
}

TEST_F(InstallerDownload, FollowsNoRedirect) {
    installer->folder().put("Other.exe", bytes);
    const std::string target = server->origin() + installer->folder().place() + "/Other.exe";
    expectFailure(installer->publish(bytes, R"({"status":302,"headers":{"Location":")" + target + "\"}}"));
    EXPECT_EQ(installer->folder().requests("Other.exe"), "");
}

TEST_F(InstallerDownload, FailsWhenTheServerIsCutOff) {
    expectFailure(installer->publish(bytes, R"({"cut":70000})"));
    expectFailure(installer->publish(bytes, R"({"cut":70000,"length":"none"})"));
    expectFailure(installer->publish(bytes, R"({"cut":0})"));
}

TEST_F(InstallerDownload, FailsWhenTheServerStalls) {
    const Tick begin = GetTickCount64();
    expectFailure(installer->publish(bytes, R"({"stall":150000})"));
    EXPECT_GE(GetTickCount64() - begin, 2500u);
    EXPECT_LT(GetTickCount64() - begin, 8000u);
}

TEST_F(InstallerDownload, TrustsNoStrangersCertificate) {
    for (const char* kind : {"untrusted", "expired", "wronghost", "tls11"}) {
        const SignedInstaller foreign(*server, SignedInstaller::uniqueVersion(), kind);
        const DownloadResult result =
            downloadInstaller(foreign.publish(bytes), foreign.channel(), cancel, progress);
        EXPECT_EQ(result.message, kFailed) << kind;
        EXPECT_EQ(foreign.folder().requests("Setup.exe"), "") << kind;
    }
    EXPECT_TRUE(localAppData->downloads().empty());
}

// --- Cancel ---

TEST_F(InstallerDownload, ThatIsCancelledBeforeItBeganSendsNothing) {
    cancel = true;
    expectFailure(installer->publish(bytes));
    EXPECT_EQ(installer->folder().requests("Setup.exe"), "");
}

TEST_F(InstallerDownload, ThatIsCancelledWhileTheServerThinksReadsNothing) {
    const UpdateManifest manifest = installer->publish(bytes, R"({"delay":0.5})");
    const std::jthread user([this] {
        while (installer->folder().requests("Setup.exe").empty())
            Sleep(1);
        cancel = true;
    });
    expectFailure(manifest);
    EXPECT_EQ(progress, 0u);
}

TEST_F(InstallerDownload, ThatIsCancelledStopsAfterItsPieceAndCleansUp) {
    const std::string large = installerBytes(40 * 65'536);
    const UpdateManifest manifest = installer->publish(large, R"({"pace":0.1})");
    const std::jthread user([this] {
        while (progress == 0)
            Sleep(1);
        cancel = true;
    });
    const Tick begin = GetTickCount64();
    expectFailure(manifest);
    EXPECT_LT(GetTickCount64() - begin, 3000u);
    EXPECT_LT(progress, 50u);
}

std::atomic<bool>* cancelOnFlush = nullptr;
BOOL WINAPI flushAndCancel(HANDLE file) {
    *cancelOnFlush = true;
    return realFunction<BOOL WINAPI(HANDLE)>("FlushFileBuffers")(file);
}

TEST_F(InstallerDownload, ThatIsCancelledAtTheVeryEndIsNotRenamed) {
    cancelOnFlush = &cancel;
    const UpdateManifest manifest = installer->publish(bytes);
    const ImportSwap<decltype(flushAndCancel)> swap("FlushFileBuffers", flushAndCancel);
    expectFailure(manifest);
    EXPECT_EQ(progress, 100u);
}

// --- Time ---

Tick clockJumpMs = 0;
bool clockJumped = false;
ULONGLONG WINAPI jumpingClock() {
    return realFunction<ULONGLONG WINAPI()>("GetTickCount64")() + (clockJumped ? clockJumpMs : 0);
}
using ReadData = BOOL WINAPI(HINTERNET, LPVOID, DWORD, LPDWORD);
BOOL WINAPI readAndJump(HINTERNET request, LPVOID buffer, DWORD bytes, LPDWORD taken) {
    clockJumped = true;
    return realWinHttp<ReadData>("WinHttpReadData")(request, buffer, bytes, taken);
}

TEST_F(InstallerDownload, FailsAfterFiveMinutesThoughDataStillArrives) {
    const UpdateManifest manifest = installer->publish(bytes);
    const ImportSwap<ULONGLONG WINAPI()> clock("GetTickCount64", jumpingClock);
    const ImportSwap<ReadData> read("WinHttpReadData", readAndJump);
    clockJumpMs = 290'000;
    clockJumped = false;
    EXPECT_TRUE(download(manifest).verified);
    clockJumpMs = 300'001;
    clockJumped = false;
    expectFailure(manifest);
    EXPECT_LT(progress, 100u);
}

DWORD headTimeoutMs = 0;
using SetOption = BOOL WINAPI(HINTERNET, DWORD, LPVOID, DWORD);
BOOL WINAPI noteHeadTimeout(HINTERNET handle, DWORD option, LPVOID value, DWORD bytes) {
    if (option == WINHTTP_OPTION_RECEIVE_RESPONSE_TIMEOUT)
        headTimeoutMs = *static_cast<DWORD*>(value);
    return realWinHttp<SetOption>("WinHttpSetOption")(handle, option, value, bytes);
}

TEST_F(InstallerDownload, WaitsThreeSecondsForTheHead) {
    const UpdateManifest manifest = installer->publish(bytes);
    const ImportSwap<SetOption> swap("WinHttpSetOption", noteHeadTimeout);
    EXPECT_TRUE(download(manifest).verified);
    EXPECT_EQ(headTimeoutMs, 3000u);
}

// --- A disk that fails ---

BOOL WINAPI failToFlush(HANDLE) {
    return FALSE;
}
BOOL WINAPI failToMove(LPCWSTR, LPCWSTR, DWORD) {
    return FALSE;
}
int movesToRefuse = 0;
BOOL WINAPI moveOnceTheScannerIsDone(LPCWSTR from, LPCWSTR to, DWORD flags) {
    if (movesToRefuse-- > 0) {
        SetLastError(ERROR_SHARING_VIOLATION);
        return FALSE;
    }
    return realFunction<BOOL WINAPI(LPCWSTR, LPCWSTR, DWORD)>("MoveFileExW")(from, to, flags);
}
BOOL WINAPI writeShort(HANDLE, LPCVOID, DWORD bytes, LPDWORD written, LPOVERLAPPED) {
    *written = bytes - 1;
    return TRUE;
}
DWORD moveFlags = 0;
using MoveFileFunction = BOOL WINAPI(LPCWSTR, LPCWSTR, DWORD);
BOOL WINAPI noteMove(LPCWSTR from, LPCWSTR to, DWORD flags) {
    moveFlags = flags;
    return realFunction<MoveFileFunction>("MoveFileExW")(from, to, flags);
}

TEST_F(InstallerDownload, FailsWhenTheFileCannotBeFlushed) {
    const UpdateManifest manifest = installer->publish(bytes);
    const ImportSwap<decltype(failToFlush)> swap("FlushFileBuffers", failToFlush);
    expectFailure(manifest);
}

TEST_F(InstallerDownload, FailsWhenTheFileCannotBeRenamed) {
    const UpdateManifest manifest = installer->publish(bytes);
    const ImportSwap<MoveFileFunction> swap("MoveFileExW", failToMove);
    expectFailure(manifest);
}

TEST_F(InstallerDownload, WaitsALittleForWhoeverHoldsTheFile) {
    const UpdateManifest manifest = installer->publish(bytes);
    const ImportSwap<MoveFileFunction> swap("MoveFileExW", moveOnceTheScannerIsDone);
    movesToRefuse = 3;
    EXPECT_TRUE(download(manifest).verified);
    movesToRefuse = 1000;
    const Tick begin = GetTickCount64();
    expectFailure(manifest);
    EXPECT_LT(GetTickCount64() - begin, 3000u);
}

TEST_F(InstallerDownload, FailsWhenAPieceIsWrittenInPart) {
    const UpdateManifest manifest = installer->publish(bytes);
    const ImportSwap<WriteFileFunction> swap("WriteFile", writeShort);
    expectFailure(manifest);
}

TEST_F(InstallerDownload, IsRenamedThroughTheCacheAndReplacesNothing) {
    const UpdateManifest manifest = installer->publish(bytes);
    const ImportSwap<MoveFileFunction> swap("MoveFileExW", noteMove);
    EXPECT_TRUE(download(manifest).verified);
    EXPECT_EQ(moveFlags, DWORD{MOVEFILE_WRITE_THROUGH});
}

using CreateFileFunction = HANDLE WINAPI(LPCWSTR, DWORD, DWORD, LPSECURITY_ATTRIBUTES, DWORD, DWORD, HANDLE);
DWORD unfinishedShare = 99;
DWORD unfinishedDisposition = 0;
HANDLE WINAPI refuseUnfinished(LPCWSTR path, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security,
                               DWORD disposition, DWORD flags, HANDLE like) {
    if (!std::wstring_view(path).ends_with(L"\\Setup.download"))
        return realFunction<CreateFileFunction>("CreateFileW")(path, access, share, security, disposition,
                                                               flags, like);
    unfinishedShare = share;
    unfinishedDisposition = disposition;
    return INVALID_HANDLE_VALUE;
}

TEST_F(InstallerDownload, LeavesNoFolderWhenTheFileCannotBeMade) {
    const UpdateManifest manifest = installer->publish(bytes);
    {
        const ImportSwap<CreateFileFunction> swap("CreateFileW", refuseUnfinished);
        const DownloadResult result = download(manifest);
        EXPECT_EQ(result.message, kFailed);
    }
    EXPECT_TRUE(localAppData->downloads().empty());
    EXPECT_EQ(unfinishedShare, 0u);
    EXPECT_EQ(unfinishedDisposition, DWORD{CREATE_NEW});
    EXPECT_EQ(installer->folder().requests("Setup.exe"), "");
}

TEST_F(InstallerDownload, FailsWhereAFileIsInTheWayOfItsFolder) {
    std::filesystem::create_directories(localAppData->folder() / L"Vextra\\CameraVirtualMFBeta");
    writeFile(localAppData->updates(), "");
    EXPECT_EQ(download(installer->publish(bytes)).message, kFailed);
}

TEST_F(InstallerDownload, AsksForNothingWithoutAFolderOfItsOwn) {
    const UpdateManifest manifest = installer->publish(bytes);
    {
        const RefusedImport<decltype(SHGetKnownFolderPath), test::kRefusedResult> refused(
            "SHGetKnownFolderPath");
        expectFailure(manifest);
    }
    {
        const RefusedImport<decltype(SHCreateDirectoryExW), ERROR_ACCESS_DENIED> refused(
            "SHCreateDirectoryExW");
        expectFailure(manifest);
    }
    {
        const RefusedImport<decltype(CoCreateGuid), test::kRefusedResult> refused("CoCreateGuid");
        expectFailure(manifest);
    }
    {
        const RefusedImport<decltype(CreateDirectoryW)> refused("CreateDirectoryW");
        expectFailure(manifest);
    }
    EXPECT_EQ(installer->folder().requests("Setup.exe"), "");
}

// --- Size ---

SIZE_T privateBytes() {
    PROCESS_MEMORY_COUNTERS counters{};
    if (!GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof counters))
        failSetUp("memory counters");
    return counters.WorkingSetSize;
}

TEST_F(ReleaseTimedInstallerDownload, Of512MiBIsStreamedInConstantMemory) {
    Sha256 hash;
    const std::string zeros(1 << 20, '\0');
    for (int i = 0; i < 512; ++i)
        hash.add(std::as_bytes(std::span(zeros)));
    const UpdateManifest manifest =
        installer->manifestOf(lowerHex(hash.finish().value()), kMaxInstallerBytes);
    installer->folder().setReply("Setup.exe", R"({"zeros":536870912})");

    const SIZE_T before = privateBytes();
    SIZE_T most = before;
    DownloadResult result;
    {
        std::atomic<bool> done{false};
        const std::jthread watcher([&] {
            while (!done) {
                most = std::max(most, privateBytes());
                Sleep(20);
            }
        });
        result = download(manifest);
        done = true;
    }
    EXPECT_TRUE(result.verified);
    EXPECT_LT(most - before, SIZE_T{32} << 20);
    RecordProperty("growthKiB", static_cast<int>((most - before) >> 10));
    std::printf("working set grew by %llu KiB\n", static_cast<unsigned long long>((most - before) >> 10));
}

}  // namespace
}  // namespace vextra
