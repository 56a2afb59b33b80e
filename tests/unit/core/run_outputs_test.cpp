#include "core/run_outputs.h"

#include <gtest/gtest.h>

#include "base/product.h"

namespace vextra {
namespace {

TEST(VersionFile, HoldsTheVersionAndALineFeed) {
    EXPECT_EQ(kVersionFileText, VEXTRA_VERSION "\n");
}

TEST(HelpFile, HoldsTwoLines) {
    EXPECT_EQ(
        kHelpFileText,
        "CameraVirtualVextraMF --help --version --runtime-self-test --import-legacy-env --background --force "
        "--install --reset --maintenance-check --shutdown-broker\n"
        "--reset: only owned MF device, idle required; never AK. --force: automatic mode, no forced "
        "network.\n");
}

TEST(SelfTestJson, IsOneLineWithEveryAnswer) {
    EXPECT_EQ(selfTestJson({}),
              "{\"version\":\"" VEXTRA_VERSION
              "\",\"pureContracts\":false,\"ffmpegAvailable\":false,"
              "\"gstreamerAvailable\":false,\"settingsLoaded\":false,\"networkUsed\":false}\n");
}

TEST(SelfTestJson, GivesEachAnswerUnderItsName) {
    const struct {
        bool SelfTestResult::*answer;
        const char* text;
    } kAnswers[] = {{&SelfTestResult::pureContracts, "\"pureContracts\":true"},
                    {&SelfTestResult::ffmpegAvailable, "\"ffmpegAvailable\":true"},
                    {&SelfTestResult::gstreamerAvailable, "\"gstreamerAvailable\":true"},
                    {&SelfTestResult::settingsLoaded, "\"settingsLoaded\":true"}};
    for (const auto& [answer, text] : kAnswers) {
        SelfTestResult result;
        result.*answer = true;
        const std::string json = selfTestJson(result);
        EXPECT_NE(json.find(text), std::string::npos) << json;
        EXPECT_EQ(json.find("true"), json.rfind("true")) << json;
    }
}

TEST(SelfTest, PassesWithGoodContractsAndADecoder) {
    EXPECT_TRUE((SelfTestResult{true, true, false, false}.passed()));
    EXPECT_FALSE((SelfTestResult{true, false, true, true}.passed()));
    EXPECT_FALSE((SelfTestResult{false, true, true, true}.passed()));
}

TEST(OutputFolder, IsTheEvidenceFolderWhereOneIsGiven) {
    EXPECT_EQ(outputFolder(L"C:\\evidence", L"C:\\data"), L"C:\\evidence");
    EXPECT_EQ(outputFolder(L"", L"C:\\data"), L"C:\\data");
}

TEST(PureContracts, HoldInThisBuild) {
    EXPECT_TRUE(pureContractsHold());
}

}  // namespace
}  // namespace vextra
