#include "core/command_line.h"

#include <gtest/gtest.h>

#include <initializer_list>
#include <string>
#include <vector>

namespace vextra {
namespace {

CommandLine parse(std::initializer_list<const wchar_t*> arguments) {
    return parseCommandLine(std::vector<const wchar_t*>(arguments));
}

constexpr bool CommandLine::*kFlags[] = {
    &CommandLine::testPattern,
    &CommandLine::startupCheck,
    &CommandLine::background,
    &CommandLine::importLegacyEnv,
    &CommandLine::runtimeSelfTest,
    &CommandLine::version,
    &CommandLine::help,
    &CommandLine::forceAutomatic,
};

std::vector<bool> flagsOf(const CommandLine& line) {
    std::vector<bool> flags;
    for (const auto flag : kFlags)
        flags.push_back(line.*flag);
    return flags;
}

void expectDefaults(const CommandLine& line) {
    EXPECT_EQ(line.mode, RunMode::kNormal);
    EXPECT_EQ(flagsOf(line), (std::vector<bool>{false, true, false, false, false, false, false, false}));
    EXPECT_EQ(line.testSeconds, 0u);
    EXPECT_EQ(line.evidenceFolder, L"");
}

TEST(CommandLine, WithoutArgumentsIsANormalRunWithTheStartupCheck) {
    expectDefaults(parse({}));
}

TEST(CommandLine, NamesEachMaintenanceMode) {
    EXPECT_EQ(parse({L"--reset"}).mode, RunMode::kReset);
    EXPECT_EQ(parse({L"--install"}).mode, RunMode::kInstallHint);
    EXPECT_EQ(parse({L"--register-camera"}).mode, RunMode::kRegisterCamera);
    EXPECT_EQ(parse({L"--remove-camera"}).mode, RunMode::kRemoveCamera);
    EXPECT_EQ(parse({L"--maintenance-check"}).mode, RunMode::kMaintenanceCheck);
    EXPECT_EQ(parse({L"--shutdown-broker"}).mode, RunMode::kShutdownBroker);
}

TEST(CommandLine, TakesTheLastMaintenanceMode) {
    EXPECT_EQ(parse({L"--install", L"--reset"}).mode, RunMode::kReset);
    EXPECT_EQ(parse({L"--reset", L"--help", L"--install"}).mode, RunMode::kInstallHint);
}

TEST(CommandLine, SetsOneFlagForEachFlagOption) {
    const struct {
        const wchar_t* option;
        bool CommandLine::*flag;
    } kOptions[] = {
        {L"--test-pattern", &CommandLine::testPattern},
        {L"--background", &CommandLine::background},
        {L"--import-legacy-env", &CommandLine::importLegacyEnv},
        {L"--runtime-self-test", &CommandLine::runtimeSelfTest},
        {L"--version", &CommandLine::version},
        {L"--help", &CommandLine::help},
        {L"--force", &CommandLine::forceAutomatic},
    };
    for (const auto& [option, flag] : kOptions) {
        CommandLine line = parse({option});
        EXPECT_TRUE(line.*flag) << std::wstring(option);
        line.*flag = false;
        expectDefaults(line);
    }
}

TEST(CommandLine, AutoStartStatesTheDefault) {
    expectDefaults(parse({L"--auto-start"}));
}

TEST(CommandLine, CombinesFlags) {
    const CommandLine line =
        parse({L"--version", L"--help", L"--background", L"--test-pattern", L"--reset", L"--force"});
    EXPECT_EQ(line.mode, RunMode::kReset);
    EXPECT_EQ(flagsOf(line), (std::vector<bool>{true, true, true, false, false, true, true, true}));
}

TEST(CommandLine, IgnoresWhatIsNoOption) {
    expectDefaults(parse({L"", L"reset", L"--", L"-h", L"/help", L"--unknown", L"--helpme", L"--hel",
                          L" --help", L"--help ", L"--reset=1"}));
}

TEST(CommandLine, IsCaseSensitive) {
    expectDefaults(parse({L"--HELP", L"--Reset", L"--Test-Seconds", L"5", L"--Evidence-Dir", L"C:\\e"}));
}

TEST(TestSeconds, AreANumberUpTo300) {
    const struct {
        const wchar_t* text;
        std::uint32_t seconds;
    } kCases[] = {{L"0", 0},
                  {L"1", 1},
                  {L"300", 300},
                  {L"301", 300},
                  {L"900", 300},
                  {L"4294967297", 300},
                  {L"007", 7},
                  {L"5s", 0},
                  {L" 12", 12},
                  {L"", 0},
                  {L"abc", 0},
                  {L"0x10", 0},
                  {L"99999999999999999999", 300},
                  {L"-1", 300}};  // as the system reads it, and that is more than 300
    for (const auto& [text, seconds] : kCases)
        EXPECT_EQ(parse({L"--test-seconds", text}).testSeconds, seconds) << std::wstring(text);
}

TEST(TestSeconds, AreIgnoredWithoutANumberBehind) {
    expectDefaults(parse({L"--test-seconds"}));
    EXPECT_EQ(parse({L"--test-seconds", L"7", L"--test-seconds"}).testSeconds, 7u);
}

TEST(TestSeconds, TakeTheNextArgumentWhateverItIs) {
    const CommandLine line = parse({L"--test-seconds", L"--help", L"--version"});
    EXPECT_EQ(line.testSeconds, 0u);
    EXPECT_FALSE(line.help);
    EXPECT_TRUE(line.version);
}

TEST(TestSeconds, TakeTheLastOfSeveral) {
    EXPECT_EQ(parse({L"--test-seconds", L"7", L"--test-seconds", L"8"}).testSeconds, 8u);
}

TEST(EvidenceFolder, IsTheNextArgumentAsItStands) {
    EXPECT_EQ(parse({L"--evidence-dir", L"D:\\my evidence"}).evidenceFolder, L"D:\\my evidence");
}

TEST(EvidenceFolder, IsIgnoredWithoutAPathBehind) {
    expectDefaults(parse({L"--evidence-dir"}));
}

TEST(EvidenceFolder, MayLookLikeAnOption) {
    const CommandLine line = parse({L"--evidence-dir", L"--reset", L"--background"});
    EXPECT_EQ(line.evidenceFolder, L"--reset");
    EXPECT_EQ(line.mode, RunMode::kNormal);
    EXPECT_TRUE(line.background);
}

TEST(InstallRoot, IsTheFolderAboveBin) {
    EXPECT_EQ(installRootOf(L"C:\\Vextra\\bin\\broker.exe"), L"C:\\Vextra");
    EXPECT_EQ(installRootOf(L"C:\\Vextra\\beta-bin\\broker.exe"), L"C:\\Vextra");
}

TEST(InstallRoot, IsTheExecutablesFolderOtherwise) {
    EXPECT_EQ(installRootOf(L"C:\\Vextra\\broker.exe"), L"C:\\Vextra");
    EXPECT_EQ(installRootOf(L"C:\\Vextra\\Bin\\broker.exe"), L"C:\\Vextra\\Bin");
    EXPECT_EQ(installRootOf(L"C:\\Vextra\\xbin\\broker.exe"), L"C:\\Vextra\\xbin");
    EXPECT_EQ(installRootOf(L"C:\\Vextra\\bin2\\broker.exe"), L"C:\\Vextra\\bin2");
    EXPECT_EQ(installRootOf(L"C:\\Vextra\\beta-bin\\x\\broker.exe"), L"C:\\Vextra\\beta-bin\\x");
}

TEST(InstallRoot, IsCutOnlyOnce) {
    EXPECT_EQ(installRootOf(L"C:\\Vextra\\bin\\bin\\broker.exe"), L"C:\\Vextra\\bin");
}

TEST(InstallRoot, OfABinFolderInTheDriveRootIsTheDrive) {
    EXPECT_EQ(installRootOf(L"C:\\bin\\broker.exe"), L"C:");
}

TEST(InstallRoot, OfAnExecutableInTheDriveRootIsTheDrive) {
    EXPECT_EQ(installRootOf(L"C:\\broker.exe"), L"C:");
}

}  // namespace
}  // namespace vextra
