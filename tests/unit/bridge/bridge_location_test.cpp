#include "bridge/bridge_location.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace vextra {
namespace {

std::wstring sidOfLength(std::size_t length) {
    std::wstring sid = L"S-1-5-21-";
    sid.resize(length, L'1');
    return sid;
}

TEST(OwnerSidForm, AcceptsAUserOfTheMachineOrADomain) {
    EXPECT_TRUE(isOwnerSidForm(L"S-1-5-21-1004336348-1177238915-682003330-512"));
}

TEST(OwnerSidForm, RefusesServiceAccountsAndGroups) {
    EXPECT_FALSE(isOwnerSidForm(L"S-1-5-18"));
    EXPECT_FALSE(isOwnerSidForm(L"S-1-5-32-544"));
}

TEST(OwnerSidForm, RefusesThePrefixInLowerCase) {
    EXPECT_FALSE(isOwnerSidForm(L"s-1-5-21-1-2-3-1000"));
}

TEST(OwnerSidForm, RefusesTextInFrontOfThePrefix) {
    EXPECT_FALSE(isOwnerSidForm(L" S-1-5-21-1-2-3-1000"));
    EXPECT_FALSE(isOwnerSidForm(L"..\\S-1-5-21-1-2-3-1000"));
}

TEST(OwnerSidForm, RefusesNothing) {
    EXPECT_FALSE(isOwnerSidForm(L""));
}

TEST(OwnerSidForm, TakesNineCharactersButNotEight) {
    EXPECT_TRUE(isOwnerSidForm(L"S-1-5-21-"));
    EXPECT_FALSE(isOwnerSidForm(L"S-1-5-21"));
}

TEST(OwnerSidForm, Takes184CharactersButNot185) {
    EXPECT_TRUE(isOwnerSidForm(sidOfLength(184)));
    EXPECT_FALSE(isOwnerSidForm(sidOfLength(185)));
}

TEST(BridgePath, LiesBelowProgramDataInTheOwnersFolder) {
    EXPECT_EQ(deriveBridgePath(L"C:\\ProgramData", L"S-1-5-21-7"),
              L"C:\\ProgramData\\Vextra\\CameraVirtualMFBeta\\S-1-5-21-7\\latest.frame");
}

TEST(DemandPath, LiesBesideTheBridge) {
    EXPECT_EQ(deriveDemandPath(L"C:\\a\\latest.frame"), L"C:\\a\\demand.bin");
}

TEST(DemandPath, IsNoneWithoutABackslash) {
    EXPECT_EQ(deriveDemandPath(L""), L"");
    EXPECT_EQ(deriveDemandPath(L"C:/a/latest.frame"), L"");
}

TEST(ParentFolders, AreAllFoldersOnTheWayWithoutTheDriveRoot) {
    const std::vector<std::wstring> expected{L"C:\\ProgramData", L"C:\\ProgramData\\Vextra",
                                             L"C:\\ProgramData\\Vextra\\S"};
    EXPECT_EQ(parentFolders(L"C:\\ProgramData\\Vextra\\S\\latest.frame"), expected);
}

TEST(ParentFolders, BeginAtTheFourthCharacter) {
    EXPECT_EQ(parentFolders(L"C:\\\\a"), (std::vector<std::wstring>{L"C:\\"}));
    EXPECT_EQ(parentFolders(L"\\\\s\\share\\f"), (std::vector<std::wstring>{L"\\\\s", L"\\\\s\\share"}));
}

TEST(ParentFolders, AreNoneForAFileInTheRootAndForNoPath) {
    EXPECT_TRUE(parentFolders(L"C:\\file").empty());
    EXPECT_TRUE(parentFolders(L"C:").empty());
    EXPECT_TRUE(parentFolders(L"").empty());
}

TEST(MediaSourceAccount, IsLocalServiceOrLocalSystem) {
    EXPECT_TRUE(isMediaSourceAccount(L"S-1-5-19"));
    EXPECT_TRUE(isMediaSourceAccount(L"S-1-5-18"));
}

TEST(MediaSourceAccount, IsNobodyElse) {
    for (const wchar_t* sid :
         {L"", L"S-1-5-20", L"S-1-5-1", L"S-1-5-190", L"s-1-5-19", L" S-1-5-18", L"S-1-5-21-1-2-3-1000"})
        EXPECT_FALSE(isMediaSourceAccount(sid)) << std::wstring(sid);
}

}  // namespace
}  // namespace vextra
