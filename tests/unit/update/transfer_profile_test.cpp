#include "update/transfer_profile.h"

#include <gtest/gtest.h>

namespace vextra {
namespace {

TEST(JsonContentType, IsJudgedWithoutCaseParametersAndTrailingBlanks) {
    for (const wchar_t* header :
         {L"application/json", L"APPLICATION/JSON", L"Application/Json   ", L"application/json;charset=utf-8",
          L"APPLICATION/JSON  ; charset=\"utf-8\"", L"application/json;", L"application/json ;;"})
        EXPECT_TRUE(isJsonContentType(header)) << std::wstring(header);
}

TEST(JsonContentType, IsNothingElse) {
    for (const wchar_t* header :
         {L"", L" ", L";", L"text/plain", L"text/json", L"application/json5", L"application/jso",
          L"xapplication/json", L"application/problem+json", L" application/json", L"\tapplication/json",
          L"application/json\t", L"application/json, text/html", L"text/html;application/json",
          L"application /json", L"app\x0130lication/json"})
        EXPECT_FALSE(isJsonContentType(header)) << std::wstring(header);
}

// Two agents and two ranges of TLS: not an oversight.
TEST(TransferProfiles, DifferAsTheyAreMeantTo) {
    EXPECT_EQ(std::wstring(kJsonTransfer.userAgent), L"CameraVirtualVextraMF/0.2 beta");
    EXPECT_EQ(std::wstring(kInstallerTransfer.userAgent), L"CameraVirtualVextraMF/0.2.0-beta.5");
    EXPECT_EQ(kJsonTransfer.tls, TlsVersions::k12And13);
    EXPECT_EQ(kInstallerTransfer.tls, TlsVersions::k12Only);
    EXPECT_EQ(std::wstring(kJsonTransfer.acceptType), L"application/json");
    EXPECT_EQ(kInstallerTransfer.acceptType, nullptr);
    EXPECT_EQ(kJsonTransfer.addressCheck, AddressCheck::kSchemeHostAndNoUser);
    EXPECT_EQ(kInstallerTransfer.addressCheck, AddressCheck::kSchemeOnly);
}

TEST(TransferProfiles, HaveTheirLimits) {
    EXPECT_EQ(kMaxJsonBodyBytes, 65'536u);
    EXPECT_EQ(kJsonReadBytes, 4096u);
    EXPECT_EQ(kInstallerTimeoutMs, 3000u);
    EXPECT_EQ(kInstallerTotalMs, 300'000u);
    EXPECT_EQ(kInstallerReadBytes, 65'536u);
}

}  // namespace
}  // namespace vextra
