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
    EXPECT_EQ(std::wstring(kInstallerTransfer.userAgent), L"CameraVirtualVextraMF/" VEXTRA_VERSION_W);
    EXPECT_EQ(kJsonTransfer.tls, TlsVersions::k12And13);
    EXPECT_EQ(kInstallerTransfer.tls, TlsVersions::k12Only);
    EXPECT_EQ(std::wstring(kJsonTransfer.acceptType), L"application/json");
    EXPECT_EQ(kInstallerTransfer.acceptType, nullptr);
    EXPECT_EQ(kJsonTransfer.addressCheck, AddressCheck::kSchemeHostAndNoUser);
    EXPECT_EQ(kInstallerTransfer.addressCheck, AddressCheck::kSchemeOnly);
}

TEST(TransferProfiles, HaveTheirLimits) {
    EXPECT_EQ(kJsonReadBytes, 4096u);
    EXPECT_EQ(kInstallerLimits.operationTimeoutMs, 3000u);
    EXPECT_EQ(kInstallerLimits.totalTimeoutMs, 300'000u);
    EXPECT_EQ(kInstallerReadBytes, 65'536u);
}

TEST(ContentLength, IsADecimalNumber) {
    EXPECT_EQ(contentLengthFrom(L"0"), 0u);
    EXPECT_EQ(contentLengthFrom(L"0065537"), 65'537u);
    EXPECT_EQ(contentLengthFrom(L"4294967297"), 4'294'967'297u);
    EXPECT_EQ(contentLengthFrom(L"18446744073709551615"), 18'446'744'073'709'551'615u);
}

TEST(ContentLength, IsTheLargestNumberAtMost) {
    for (const wchar_t* header :
         {L"18446744073709551616", L"184467440737095516150", L"99999999999999999999999"})
        EXPECT_EQ(contentLengthFrom(header), 18'446'744'073'709'551'615u);
}

TEST(ContentLength, IsNothingElse) {
    for (const wchar_t* header : {L"", L"-1", L"+1", L"1a", L" 1", L"1, 1", L"\xFF11"})
        EXPECT_EQ(contentLengthFrom(header), std::nullopt);
}

}  // namespace
}  // namespace vextra
