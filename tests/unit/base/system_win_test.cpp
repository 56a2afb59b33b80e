#include "base/system_win.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <sddl.h>

#include "base/unique_win.h"
#include "import_swap_win.h"

namespace vextra {
namespace {

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

TEST(PlainFile, IsNeitherALinkNorAFolder) {
    EXPECT_TRUE(isPlainFile(FILE_ATTRIBUTE_NORMAL));
    EXPECT_TRUE(isPlainFile(FILE_ATTRIBUTE_ARCHIVE | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_READONLY));
    EXPECT_FALSE(isPlainFile(FILE_ATTRIBUTE_ARCHIVE | FILE_ATTRIBUTE_REPARSE_POINT));
    EXPECT_FALSE(isPlainFile(FILE_ATTRIBUTE_DIRECTORY));
    EXPECT_FALSE(isPlainFile(FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT));
}

}  // namespace
}  // namespace vextra
