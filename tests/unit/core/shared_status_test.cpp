#include "core/shared_status.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <vector>

#include "bridge/bridge_layout.h"

namespace vextra {
namespace {

TEST(ManualPreview, RunsUntilItsDeadline) {
    SharedStatus shared;
    EXPECT_FALSE(shared.previewRuns(0));
    shared.previewDeadline = 1000;
    EXPECT_TRUE(shared.previewRuns(999));
    EXPECT_FALSE(shared.previewRuns(1000));
}

TEST(StatusText, SaysWhetherItIsNew) {
    SharedStatus shared;
    EXPECT_TRUE(replaceStatusText(shared, L"a"));
    EXPECT_FALSE(replaceStatusText(shared, L"a"));
    EXPECT_TRUE(replaceStatusText(shared, L"b"));
    EXPECT_EQ(statusTextNow(shared), L"b");
}

TEST(PreviewFrame, IsACopyThatLaterFramesDoNotChange) {
    SharedStatus shared;
    const std::vector<std::byte> first(kFrameBytes, std::byte{1});
    const std::vector<std::byte> second(kFrameBytes, std::byte{2});
    std::vector<std::byte> shown;
    keepPreviewFrame(shared, first.data());
    copyPreviewFrame(shared, shown);
    keepPreviewFrame(shared, second.data());
    EXPECT_EQ(shown, first);
    copyPreviewFrame(shared, shown);
    EXPECT_EQ(shown, second);
}

TEST(SharedSettings, AreReplacedAsAWhole) {
    SharedStatus shared;
    BrokerSettings settings;
    settings.source = SourceKind::kSyntheticTest;
    settings.directUser = SecretText(L"u");
    replaceSettings(shared, settings);
    settings.directUser = SecretText(L"v");  // a copy was taken
    EXPECT_EQ(settingsNow(shared).source, SourceKind::kSyntheticTest);
    EXPECT_EQ(settingsNow(shared).directUser.view(), L"u");
}

TEST(SharedStatus, StartsIdleWithNothingToReport) {
    const SharedStatus shared;
    EXPECT_EQ(shared.mailbox, SupervisorCommand::kNone);
    EXPECT_EQ(shared.leaseCount, 0);
    EXPECT_EQ(shared.status, BrokerStatus::kIdle);
    EXPECT_EQ(shared.lastFrameTick, 0u);
    EXPECT_EQ(shared.frameCounter, 0u);
    EXPECT_EQ(shared.effectiveBackend, EffectiveBackend::kNone);
    EXPECT_FALSE(shared.active);
    EXPECT_FALSE(shared.paused);
    EXPECT_FALSE(shared.testPattern);
}

TEST(FailureReason, IsTakenOnceByWhoeverShowsIt) {
    SharedStatus shared;
    std::wstring known;
    EXPECT_FALSE(renewFailureReason(shared, known));
    replaceFailureReason(shared, L"why");
    EXPECT_TRUE(renewFailureReason(shared, known));
    EXPECT_EQ(known, L"why");
    EXPECT_FALSE(renewFailureReason(shared, known));
    replaceFailureReason(shared, L"");
    EXPECT_TRUE(renewFailureReason(shared, known));
    EXPECT_EQ(known, L"");
}

}  // namespace
}  // namespace vextra
