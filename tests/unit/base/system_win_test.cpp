#include "base/system_win.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <sddl.h>

#include <string>

#include "base/unique_win.h"
#include "broker_fixture_win.h"
#include "import_swap_win.h"

namespace vextra {
namespace {

constexpr wchar_t kVariable[] = L"VEXTRA_TEST_OF_VARIABLES";

TEST(EnvironmentVariable, IsItsValue) {
    const ScopedVariable set(kVariable, L"C:\\Câmera • 1");
    EXPECT_EQ(environmentVariable(kVariable), L"C:\\Câmera • 1");
}

TEST(EnvironmentVariable, MayBeAsLongAsTheSystemKeepsThem) {
    const std::wstring longest(32'766, L'x');
    const ScopedVariable set(kVariable, longest.c_str());
    EXPECT_TRUE(environmentVariable(kVariable) == longest);  // too long to be printed
}

TEST(EnvironmentVariable, IsNothingWhereThereIsNone) {
    const ScopedVariable unset(kVariable, nullptr);
    EXPECT_EQ(environmentVariable(kVariable), std::nullopt);
}

TEST(EnvironmentVariable, IsNothingWhereItIsEmpty) {
    const ScopedVariable empty(kVariable, L"");
    SetLastError(ERROR_SUCCESS);  // by which alone the system tells it from none
    EXPECT_EQ(environmentVariable(kVariable), std::nullopt);
}

// The system then answers with the room that it would need.
TEST(EnvironmentVariable, IsNothingWhereItDoesNotFit) {
    const test::RefusedImport<decltype(GetEnvironmentVariableW), 32'768> tooLong("GetEnvironmentVariableW");
    EXPECT_EQ(environmentVariable(kVariable), std::nullopt);
}

// The system gives a path now as it was written by the caller, now as it stands in the folder.
bool sameButForCase(const std::wstring& a, const std::wstring& b) {
    return _wcsicmp(a.c_str(), b.c_str()) == 0;
}

TEST(ModulePath, IsThatOfTheProgram) {
    wchar_t program[1024];
    DWORD units = ARRAYSIZE(program);
    ASSERT_TRUE(QueryFullProcessImageNameW(GetCurrentProcess(), 0, program, &units));
    EXPECT_PRED2(sameButForCase, modulePath(nullptr), program);
}

TEST(ModulePath, IsThatOfALibrary) {
    wchar_t folder[MAX_PATH];
    ASSERT_NE(GetSystemDirectoryW(folder, ARRAYSIZE(folder)), 0u);
    EXPECT_PRED2(sameButForCase, modulePath(GetModuleHandleW(L"kernel32.dll")),
                 std::wstring(folder) + L"\\kernel32.dll");
}

TEST(ModulePath, IsEmptyWhenTheSystemDoesNotTell) {
    const test::RefusedImport<decltype(GetModuleFileNameW)> refused("GetModuleFileNameW");
    EXPECT_EQ(modulePath(nullptr), L"");
}

TEST(EqualsIgnoringCase, OfEveryLetter) {
    EXPECT_TRUE(equalsIgnoringCase(L"C:\\Vídeo\\AÇÃO.BIN", L"c:\\vÍdeo\\ação.bin"));
}

TEST(EqualsIgnoringCase, OverlooksNothingElse) {
    EXPECT_FALSE(equalsIgnoringCase(L"C:\\a", L"C:\\ab"));
    EXPECT_FALSE(equalsIgnoringCase(L"C:\\ab", L"C:\\a"));
    EXPECT_FALSE(equalsIgnoringCase(L"video", L"vídeo"));
    EXPECT_FALSE(equalsIgnoringCase(std::wstring(L"a\0b", 3), std::wstring(L"a\0c", 3)));
}

TEST(CurrentUserSid, IsThatOfTheAccountByName) {
    wchar_t name[257];
    DWORD nameUnits = ARRAYSIZE(name);
    ASSERT_TRUE(GetUserNameW(name, &nameUnits));
    alignas(SID) BYTE sid[SECURITY_MAX_SID_SIZE];
    DWORD sidBytes = sizeof sid;
    wchar_t domain[257];
    DWORD domainUnits = ARRAYSIZE(domain);
    SID_NAME_USE use{};
    ASSERT_TRUE(LookupAccountNameW(nullptr, name, sid, &sidBytes, domain, &domainUnits, &use));
    wchar_t* text = nullptr;
    ASSERT_TRUE(ConvertSidToStringSidW(sid, &text));
    const UniqueLocalMemory owner(text);
    EXPECT_EQ(currentUserSidString(), text);
}

TEST(Elevation, IsWhatTheProcessTokenSays) {
    TOKEN_ELEVATION elevation{};
    DWORD written = 0;
    HANDLE raw = nullptr;
    ASSERT_TRUE(OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &raw));
    const UniqueHandle token(raw);
    ASSERT_TRUE(GetTokenInformation(token.get(), TokenElevation, &elevation, sizeof elevation, &written));
    EXPECT_EQ(isElevatedOrUnknown(), elevation.TokenIsElevated != 0);
}

TEST(CurrentUserSid, IsEmptyWhenTheSystemDoesNotTell) {
    {
        const test::RefusedImport<decltype(OpenProcessToken)> refused("OpenProcessToken");
        EXPECT_EQ(currentUserSidString(), L"");
    }
    {
        const test::RefusedImport<decltype(GetTokenInformation)> refused("GetTokenInformation");
        EXPECT_EQ(currentUserSidString(), L"");
    }
    const test::RefusedImport<decltype(ConvertSidToStringSidW)> refused("ConvertSidToStringSidW");
    EXPECT_EQ(currentUserSidString(), L"");
}

TEST(Elevation, IsAssumedWhenTheSystemDoesNotTell) {
    {
        const test::RefusedImport<decltype(OpenProcessToken)> refused("OpenProcessToken");
        EXPECT_TRUE(isElevatedOrUnknown());
    }
    const test::RefusedImport<decltype(GetTokenInformation)> refused("GetTokenInformation");
    EXPECT_TRUE(isElevatedOrUnknown());
}

TEST(SessionOfProcess, OfThisProcessIsInteractive) {
    const auto session = sessionOfProcess(GetCurrentProcessId());
    ASSERT_TRUE(session.has_value());
    EXPECT_NE(*session, 0u);
}

TEST(SessionOfProcess, OfNoProcessIsUnknown) {
    constexpr std::uint32_t kNobodysId = 0xFFFFFFF0;
    EXPECT_FALSE(sessionOfProcess(kNobodysId).has_value());
}

TEST(Descriptor, IsWhatItsTextSays) {
    constexpr wchar_t kText[] = L"D:P(A;;FA;;;SY)(A;;FR;;;BA)";
    const UniqueLocalMemory descriptor = descriptorFromSddl(kText);
    ASSERT_TRUE(descriptor);
    wchar_t* text = nullptr;
    ASSERT_TRUE(ConvertSecurityDescriptorToStringSecurityDescriptorW(
        descriptor.get(), SDDL_REVISION_1, DACL_SECURITY_INFORMATION, &text, nullptr));
    const UniqueLocalMemory owner(text);
    EXPECT_STREQ(text, kText);
}

TEST(Descriptor, OfAnotherTextIsInvalid) {
    EXPECT_FALSE(descriptorFromSddl(L"D:(A;;FA;;;no such account)"));
}

TEST(Descriptor, LeavesTheReasonWhenItIsInvalid) {
    const test::RefusedImport<decltype(ConvertStringSecurityDescriptorToSecurityDescriptorW)> refused(
        "ConvertStringSecurityDescriptorToSecurityDescriptorW");
    SetLastError(ERROR_SUCCESS);
    const UniqueLocalMemory descriptor = descriptorFromSddl(L"D:P(A;;FA;;;SY)");
    EXPECT_EQ(GetLastError(), test::kRefusedError);
    EXPECT_FALSE(descriptor);
}

TEST(PlainFile, IsNeitherALinkNorAFolder) {
    EXPECT_TRUE(isPlainFile(FILE_ATTRIBUTE_NORMAL));
    EXPECT_TRUE(isPlainFile(FILE_ATTRIBUTE_ARCHIVE | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_READONLY));
    EXPECT_FALSE(isPlainFile(FILE_ATTRIBUTE_ARCHIVE | FILE_ATTRIBUTE_REPARSE_POINT));
    EXPECT_FALSE(isPlainFile(FILE_ATTRIBUTE_DIRECTORY));
    EXPECT_FALSE(isPlainFile(FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT));
}

// What the system says of the file that is opened next, changed by the test.
void (*changeInformation)(BY_HANDLE_FILE_INFORMATION&) = nullptr;

BOOL WINAPI informDifferently(HANDLE file, BY_HANDLE_FILE_INFORMATION* information) {
    const BOOL known = test::realFunction<decltype(GetFileInformationByHandle)>("GetFileInformationByHandle")(
        file, information);
    changeInformation(*information);
    return known;
}

class OpenPlainFile : public testing::Test {
protected:
    void SetUp() override { writeFile(path, "abcde"); }
    PlainFile openToRead() const { return openPlainFile(path, GENERIC_READ, FILE_SHARE_READ); }
    PlainFile openChanged(void (*change)(BY_HANDLE_FILE_INFORMATION&)) const {
        changeInformation = change;
        const test::ImportSwap<decltype(GetFileInformationByHandle)> changed("GetFileInformationByHandle",
                                                                             informDifferently);
        return openToRead();
    }

    TemporaryFolder folder;
    const std::wstring path = folder / L"file";
};

TEST_F(OpenPlainFile, GivesTheFileAndItsSize) {
    const PlainFile plain = openToRead();
    ASSERT_TRUE(plain);
    EXPECT_EQ(plain.sizeBytes, 5u);
    char bytes[8];
    DWORD taken = 0;
    ASSERT_TRUE(ReadFile(plain.file.get(), bytes, sizeof bytes, &taken, nullptr));
    EXPECT_EQ(std::string(bytes, taken), "abcde");
}

TEST_F(OpenPlainFile, GivesSizesBeyond32Bits) {
    const PlainFile large = openChanged([](BY_HANDLE_FILE_INFORMATION& file) { file.nFileSizeHigh = 2; });
    EXPECT_EQ(large.sizeBytes, 0x2'0000'0005u);
}

TEST_F(OpenPlainFile, RefusesALinkAndAFolder) {
    EXPECT_FALSE(openChanged(
        [](BY_HANDLE_FILE_INFORMATION& file) { file.dwFileAttributes |= FILE_ATTRIBUTE_REPARSE_POINT; }));
    EXPECT_FALSE(openChanged(
        [](BY_HANDLE_FILE_INFORMATION& file) { file.dwFileAttributes |= FILE_ATTRIBUTE_DIRECTORY; }));
}

TEST_F(OpenPlainFile, RefusesWhatTheSystemSaysNothingOfAndClosesIt) {
    {
        const test::RefusedImport<decltype(GetFileInformationByHandle)> refused("GetFileInformationByHandle");
        EXPECT_FALSE(openToRead());
    }
    EXPECT_FALSE(isHeldOpen(path));
}

TEST_F(OpenPlainFile, MakesNoFile) {
    const std::wstring missing = folder / L"missing";
    EXPECT_FALSE(openPlainFile(missing, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ));
    EXPECT_FALSE(fileExists(missing));
}

TEST_F(OpenPlainFile, MayDoWhatWasAskedForAndNoMore) {
    DWORD written = 0;
    EXPECT_FALSE(WriteFile(openToRead().file.get(), "x", 1, &written, nullptr));
    const PlainFile writable = openPlainFile(path, GENERIC_READ | GENERIC_WRITE, 0);
    EXPECT_TRUE(WriteFile(writable.file.get(), "x", 1, &written, nullptr));
}

TEST_F(OpenPlainFile, IsSharedAsWasAskedFor) {
    {
        const PlainFile plain = openToRead();
        EXPECT_TRUE(openFile(path, GENERIC_READ, kShareAll, OPEN_EXISTING));
        EXPECT_FALSE(openFile(path, GENERIC_WRITE, kShareAll, OPEN_EXISTING));
    }
    const PlainFile alone = openPlainFile(path, GENERIC_READ, 0);
    EXPECT_FALSE(openFile(path, GENERIC_READ, kShareAll, OPEN_EXISTING));
}

}  // namespace
}  // namespace vextra
