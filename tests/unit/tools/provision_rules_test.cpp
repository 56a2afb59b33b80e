#include "provisioner/provision_rules.h"

#include <gtest/gtest.h>

#include <initializer_list>
#include <vector>

namespace vextra {
namespace {

constexpr wchar_t kOwner[] = L"S-1-5-21-1-2-3-1001";

std::optional<ProvisionOptions> parse(std::initializer_list<const wchar_t*> arguments) {
    const std::vector<const wchar_t*> list(arguments);
    return parseProvisionOptions(list);
}

TEST(ProvisionOptions, NeedNothingToProvision) {
    const auto options = parse({});
    ASSERT_TRUE(options);
    EXPECT_EQ(options->command, ProvisionCommand::kProvision);
    EXPECT_EQ(options->demandWriters, DemandWriters::kServicesOnly);
    EXPECT_EQ(options->ownerSid, L"");
    EXPECT_EQ(options->installDir, L"");
}

TEST(ProvisionOptions, NameOwnerFolderAndTrial) {
    const auto options = parse({L"--owner-sid", kOwner, L"--install-dir", L"C:\\Program Files\\Vextra\\",
                                L"--open-demand-to-owner"});
    ASSERT_TRUE(options);
    EXPECT_EQ(options->ownerSid, kOwner);
    EXPECT_EQ(options->installDir, L"C:\\Program Files\\Vextra") << "without the last backslash";
    EXPECT_EQ(options->demandWriters, DemandWriters::kServicesAndOwner);
}

TEST(ProvisionOptions, AskForOneCommandAtMost) {
    EXPECT_EQ(parse({L"--status"})->command, ProvisionCommand::kStatus);
    EXPECT_EQ(parse({L"--remove", L"--owner-sid", kOwner})->command, ProvisionCommand::kRemove);
    EXPECT_FALSE(parse({L"--status", L"--remove"}));
    EXPECT_FALSE(parse({L"--remove", L"--remove"}));
}

TEST(ProvisionOptions, AreRefusedWhereTheyMeanNothing) {
    EXPECT_FALSE(parse({L"--remove", L"--install-dir", L"C:\\a"}));
    EXPECT_FALSE(parse({L"--open-demand-to-owner", L"--status"}));
    EXPECT_FALSE(parse({L"--owner-sid"}));
    EXPECT_FALSE(parse({L"--owner-sid", L"S-1-5-18"}));
    EXPECT_FALSE(parse({L"--install-dir"}));
    EXPECT_FALSE(parse({L"--install-dir", L"relative"}));
    EXPECT_FALSE(parse({L"--Status"}));
    EXPECT_FALSE(parse({L"anything"}));
}

TEST(OwnerSid, MayNotReachIntoPathsOrAccessLists) {
    EXPECT_TRUE(isOwnerSidText(kOwner));
    EXPECT_FALSE(isOwnerSidText(L"S-1-5-21-1)(A;;FA;;;WD"));
    EXPECT_FALSE(isOwnerSidText(L"S-1-5-21-1\\..\\..\\x1"));
    EXPECT_FALSE(isOwnerSidText(L"S-1-5-21-1 "));
    EXPECT_FALSE(isOwnerSidText(L"S-1-5-21-1-"));
    EXPECT_FALSE(isOwnerSidText(L"S-1-5-21--1"));
    EXPECT_FALSE(isOwnerSidText(L"S-1-5-32-544"));
    EXPECT_FALSE(isOwnerSidText(L"s-1-5-21-1-2-3-1001"));
    EXPECT_FALSE(isOwnerSidText(L""));
}

TEST(OwnerSid, OfEntraIdIsNoOwnersAndKnownForWhatItIs) {
    constexpr std::wstring_view kEntra = L"S-1-12-1-1234567890-1234567890-1234567890-1234567890";
    EXPECT_FALSE(isOwnerSidText(kEntra));
    EXPECT_TRUE(isEntraIdSid(kEntra));
    EXPECT_FALSE(isEntraIdSid(kOwner));
    EXPECT_FALSE(parse({L"--owner-sid", kEntra.data()}));
    EXPECT_NE(std::wstring_view(kProvisionUsage).find(L"Entra ID, S-1-12-1-..., não servem"),
              std::wstring_view::npos);
}

TEST(InstallFolder, IsWrittenAsWindowsWouldWriteIt) {
    for (const wchar_t* good : {L"C:\\a", L"z:\\Program Files\\Vextra", L"C:\\Câmera\\.x\\y..z"})
        EXPECT_TRUE(isPlainAbsoluteFolder(good));
    for (const wchar_t* bad :
         {L"", L"C:", L"C:\\", L"C:a", L"\\a", L"\\\\server\\share", L"C:/a", L"C:\\a/b", L"C:\\a\\",
          L"C:\\a\\\\b", L"C:\\a\\..\\b", L"C:\\.", L"C:\\a:b", L"C:\\\"a\"", L"1:\\a", L"\\\\?\\C:\\a"})
        EXPECT_FALSE(isPlainAbsoluteFolder(bad));
}

TEST(InstallRoot, IsAboveTheFolderOfTheTools) {
    EXPECT_EQ(installRootOfTool(L"C:\\V\\tools\\vextra-provision.exe"), L"C:\\V");
    EXPECT_EQ(installRootOfTool(L"C:\\V\\bin\\vextra-provision.exe"), L"C:\\V");
    EXPECT_EQ(installRootOfTool(L"C:\\V\\beta-bin\\vextra-provision.exe"), L"C:\\V");
    EXPECT_EQ(installRootOfTool(L"C:\\V\\my-tools\\vextra-provision.exe"), L"C:\\V\\my-tools");
}

TEST(SharedObjects, AreThreeFoldersAndTwoFiles) {
    const auto objects = sharedObjects(L"C:\\ProgramData\\Vextra\\CameraVirtualMFBeta\\S\\latest.frame",
                                       kOwner, DemandWriters::kServicesOnly);
    ASSERT_EQ(objects.size(), 5u);
    EXPECT_EQ(objects[0].path, L"C:\\ProgramData\\Vextra");
    EXPECT_EQ(objects[1].path, L"C:\\ProgramData\\Vextra\\CameraVirtualMFBeta");
    EXPECT_EQ(objects[2].path, L"C:\\ProgramData\\Vextra\\CameraVirtualMFBeta\\S");
    EXPECT_EQ(objects[3].path, L"C:\\ProgramData\\Vextra\\CameraVirtualMFBeta\\S\\latest.frame");
    EXPECT_EQ(objects[4].path, L"C:\\ProgramData\\Vextra\\CameraVirtualMFBeta\\S\\demand.bin");
    EXPECT_EQ(objects[3].sizeBytes, 3'686'528u);
    EXPECT_EQ(objects[4].sizeBytes, 4096u);
    for (std::size_t i = 0; i < objects.size(); ++i)
        EXPECT_EQ(objects[i].kind, i < 3 ? SharedObjectKind::kFolder : SharedObjectKind::kFile);
}

}  // namespace
}  // namespace vextra
