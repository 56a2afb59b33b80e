#include "update/installer_win.h"

#include <windows.h>

#include <bcrypt.h>
#include <shellapi.h>

#include <gtest/gtest.h>

#include "base/sha256.h"
#include "base/text.h"
#include "import_swap_win.h"
#include "signer/signer_win.h"

namespace vextra {
namespace {

using test::ImportSwap;

// What the shell was asked to start; nothing is started.
struct Started {
    int count = 0;
    std::wstring verb, file, parameters;
    HWND owner = nullptr;
    ULONG mask = 0;
    int show = 0;
    bool writable = true;  // whether others could change the file at that moment
    BOOL answer = TRUE;
};
Started started;

BOOL WINAPI noteStart(SHELLEXECUTEINFOW* execution) {
    ++started.count;
    started.verb = execution->lpVerb;
    started.file = execution->lpFile;
    started.parameters = execution->lpParameters;
    started.owner = execution->hwnd;
    started.mask = execution->fMask;
    started.show = execution->nShow;
    started.writable =
        static_cast<bool>(openFile(execution->lpFile, GENERIC_WRITE, kShareAll, OPEN_EXISTING));
    return started.answer;
}

class InstallerLaunch : public testing::Test {
protected:
    void SetUp() override {
        started = {};
        const auto key = generateSigningKey();
        ASSERT_TRUE(key);
        channel = {"https://updates.example", key->point};
        writeFile(path, bytes);
        manifest = {"0.3.0", installerUrl("0.3.0", channel),
                    lowerHex(sha256Of(std::as_bytes(std::span(bytes))).value()), bytes.size(), ""};
        manifest.signature = signMessage(buildSignedMessage(manifest), *key).value();
    }
    bool open() const { return openVerifiedInstaller(reinterpret_cast<HWND>(7), manifest, path, channel); }
    void expectNotStarted() const {
        EXPECT_FALSE(open());
        EXPECT_EQ(started.count, 0);
    }

    const TemporaryFolder folder;
    const std::wstring path = folder / L"Setup.exe";
    const std::string bytes = std::string(200'000, 'i') + "end";
    UpdateChannelIdentity channel;
    UpdateManifest manifest;
    const ImportSwap<decltype(noteStart)> shell{"ShellExecuteExW", noteStart};
};

TEST_F(InstallerLaunch, StartsTheVerifiedFile) {
    EXPECT_TRUE(open());
    EXPECT_EQ(started.count, 1);
    EXPECT_EQ(started.verb, L"open");
    EXPECT_EQ(started.file, path);
    EXPECT_EQ(started.parameters, L"/NORESTART");
    EXPECT_EQ(started.owner, reinterpret_cast<HWND>(7));
    EXPECT_EQ(started.mask, ULONG{SEE_MASK_NOCLOSEPROCESS | SEE_MASK_NOASYNC});
    EXPECT_EQ(started.show, SW_SHOWNORMAL);
}

TEST_F(InstallerLaunch, LetsNobodyChangeTheFileMeanwhile) {
    EXPECT_TRUE(open());
    EXPECT_FALSE(started.writable);
    EXPECT_FALSE(isHeldOpen(path));
}

TEST_F(InstallerLaunch, SaysWhenTheUserDeclined) {
    started.answer = FALSE;
    EXPECT_FALSE(open());
    EXPECT_EQ(started.count, 1);
    EXPECT_FALSE(isHeldOpen(path));
}

TEST_F(InstallerLaunch, StartsNoOtherFileOfTheSameSize) {
    std::string other = bytes;
    other[100'000] = 'x';
    writeFile(path, other);
    expectNotStarted();
}

TEST_F(InstallerLaunch, StartsNoFileOfAnotherSize) {
    writeFile(path, bytes + "x");
    expectNotStarted();
    writeFile(path, std::string_view(bytes).substr(1));
    expectNotStarted();
    writeFile(path, "");
    expectNotStarted();
}

TEST_F(InstallerLaunch, StartsNoFileThatIsGone) {
    DeleteFileW(path.c_str());
    expectNotStarted();
}

TEST_F(InstallerLaunch, StartsNoFolder) {
    DeleteFileW(path.c_str());
    CreateDirectoryW(path.c_str(), nullptr);
    expectNotStarted();
}

BOOL WINAPI sayItIsALink(HANDLE, BY_HANDLE_FILE_INFORMATION* information) {
    *information = {};
    information->dwFileAttributes = FILE_ATTRIBUTE_ARCHIVE | FILE_ATTRIBUTE_REPARSE_POINT;
    return TRUE;
}
BOOL WINAPI sayItIsAFolder(HANDLE, BY_HANDLE_FILE_INFORMATION* information) {
    *information = {};
    information->dwFileAttributes = FILE_ATTRIBUTE_DIRECTORY;
    return TRUE;
}

// Wine follows links to files; so the system is made to say that this is one.
TEST_F(InstallerLaunch, StartsNoLink) {
    const ImportSwap<decltype(sayItIsALink)> swap("GetFileInformationByHandle", sayItIsALink);
    expectNotStarted();
}

TEST_F(InstallerLaunch, StartsNothingThatTheSystemCallsAFolder) {
    const ImportSwap<decltype(sayItIsAFolder)> swap("GetFileInformationByHandle", sayItIsAFolder);
    expectNotStarted();
}

TEST_F(InstallerLaunch, StartsNoLinkToAFolder) {
    DeleteFileW(path.c_str());
    const TemporaryFolder target;
    const FolderLink link(path, target.path());
    if (!link.exists())
        GTEST_SKIP() << "this system lets no test make a link to a folder";
    expectNotStarted();
}

using CreateFileFunction = HANDLE WINAPI(LPCWSTR, DWORD, DWORD, LPSECURITY_ATTRIBUTES, DWORD, DWORD, HANDLE);
DWORD openedFlags = 0;
DWORD openedShare = 0;
HANDLE WINAPI noteOpening(LPCWSTR name, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security,
                          DWORD disposition, DWORD flags, HANDLE like) {
    if (openedFlags == 0) {
        openedFlags = flags;
        openedShare = share;
    }
    return test::realFunction<CreateFileFunction>("CreateFileW")(name, access, share, security, disposition,
                                                                 flags, like);
}

TEST_F(InstallerLaunch, OpensTheFileItselfAndNotWhatALinkPointsAt) {
    openedFlags = 0;
    const ImportSwap<CreateFileFunction> swap("CreateFileW", noteOpening);
    EXPECT_TRUE(open());
    EXPECT_EQ(openedFlags, DWORD{FILE_FLAG_OPEN_REPARSE_POINT});
    EXPECT_EQ(openedShare, DWORD{FILE_SHARE_READ});
}

TEST_F(InstallerLaunch, StartsNothingWhileSomebodyMayWriteToTheFile) {
    const UniqueFile writer = openFile(path, GENERIC_WRITE, kShareAll, OPEN_EXISTING);
    expectNotStarted();
}

TEST_F(InstallerLaunch, StartsNothingThatCannotBeReadToItsEnd) {
    {
        const test::RefusedImport<decltype(GetFileInformationByHandle)> refused("GetFileInformationByHandle");
        expectNotStarted();
    }
    {
        const test::RefusedImport<decltype(GetFileSizeEx)> refused("GetFileSizeEx");
        expectNotStarted();
    }
    const test::RefusedImport<decltype(ReadFile)> refused("ReadFile");
    expectNotStarted();
}

// The signature has been verified by then, so that what fails is the digest of the file.
int hashedPieces = 0;
NTSTATUS WINAPI hashTheManifestAlone(BCRYPT_HASH_HANDLE hash, PUCHAR bytes, ULONG count, ULONG flags) {
    using Hash = NTSTATUS WINAPI(BCRYPT_HASH_HANDLE, PUCHAR, ULONG, ULONG);
    const auto real = reinterpret_cast<Hash*>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"bcrypt.dll"), "BCryptHashData")));
    return ++hashedPieces == 1 ? real(hash, bytes, count, flags) : test::kRefusedStatus;
}

TEST_F(InstallerLaunch, StartsNothingThatCannotBeHashed) {
    hashedPieces = 0;
    const ImportSwap<decltype(hashTheManifestAlone)> swap("BCryptHashData", hashTheManifestAlone);
    expectNotStarted();
    EXPECT_EQ(hashedPieces, 2);
}

TEST_F(InstallerLaunch, StartsNothingUnderAManifestThatIsNotTrustedAnyMore) {
    manifest.signature[0] = manifest.signature[0] == '0' ? '1' : '0';
    expectNotStarted();
}

TEST_F(InstallerLaunch, TakesADigestInUpperCaseIfItIsSignedSo) {
    const auto key = generateSigningKey();
    channel.publicKey = key->point;
    for (char& c : manifest.sha256)
        c = static_cast<char>(std::toupper(c));
    manifest.signature = signMessage(buildSignedMessage(manifest), *key).value();
    EXPECT_TRUE(open());
}

}  // namespace
}  // namespace vextra
