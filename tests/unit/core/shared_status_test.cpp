#include "core/shared_status.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "bridge/bridge_layout.h"

namespace vextra {
namespace {

std::wstring labelOf(const StatusView& view) {
    return std::wstring(statusLabel(view));
}

std::wstring liveLabel(Tick lastFrameTick, Tick now) {
    return labelOf({BrokerStatus::kLive, 1, lastFrameTick, now});
}

constexpr wchar_t kRecent[] = L"Ao vivo • imagem recente";
constexpr wchar_t kOutdated[] = L"Imagem desatualizada • fallback";

TEST(StatusLabel, NamesEveryState) {
    const struct {
        BrokerStatus status;
        const wchar_t* label;
    } kLabels[] = {
        {BrokerStatus::kIdle, L"Automático • aguardando aplicativo"},
        {BrokerStatus::kConnecting, L"Conectando / aguardando imagem"},
        {BrokerStatus::kLive, kRecent},
        {BrokerStatus::kPaused, L"Pausada • fallback local"},
        {BrokerStatus::kUnavailable, L"Indisponível • recuperação limitada"},
        {BrokerStatus::kSuspended, L"Suspensa • fallback local"},
    };
    for (const auto& [status, label] : kLabels)
        EXPECT_EQ(labelOf({status, 0, 1000, 1000}), label);
}

TEST(StatusLabel, OfIdleSaysWhenTheDemandChannelIsMissing) {
    EXPECT_EQ(labelOf({BrokerStatus::kIdle, -1, 0, 0}), L"Indisponível • broker sem canal de demanda");
    EXPECT_EQ(labelOf({BrokerStatus::kIdle, 3, 0, 0}), L"Automático • aguardando aplicativo");
}

TEST(StatusLabel, OfOtherStatesDoesNotDependOnTheDemandChannel) {
    EXPECT_EQ(labelOf({BrokerStatus::kPaused, -1, 0, 0}), L"Pausada • fallback local");
    EXPECT_EQ(labelOf({BrokerStatus::kLive, -1, 1000, 1000}), kRecent);
}

TEST(StatusLabel, OfLiveIsRecentUpTo2000Ms) {
    EXPECT_EQ(liveLabel(10'000, 12'000), kRecent);
    EXPECT_EQ(liveLabel(10'000, 12'001), kOutdated);
}

TEST(StatusLabel, OfLiveWithoutAnyFrameIsOutdated) {
    EXPECT_EQ(liveLabel(0, 100), kOutdated);
}

// The window may have read its clock just before the frame came.
TEST(StatusLabel, OfLiveIsRecentForAFrameYoungerThanTheClockReading) {
    EXPECT_EQ(liveLabel(10'001, 10'000), kRecent);
}

TEST(StatusLabel, OfAnUnknownStateIsEmpty) {
    EXPECT_EQ(labelOf({static_cast<BrokerStatus>(6), 0, 0, 0}), L"");
}

TEST(BackendLabel, NamesWhatDecodes) {
    EXPECT_EQ(std::wstring(backendLabel(0)), L"Nenhum");
    EXPECT_EQ(std::wstring(backendLabel(1)), L"FFmpeg");
    EXPECT_EQ(std::wstring(backendLabel(2)), L"GStreamer");
    EXPECT_EQ(std::wstring(backendLabel(3)), L"Nenhum");
}

TEST(BackendLabel, OfTheReportSaysWhatNoneMeans) {
    EXPECT_EQ(std::wstring(reportBackendLabel(0)), L"Nenhum • ocioso");
    EXPECT_EQ(std::wstring(reportBackendLabel(1)), L"FFmpeg");
    EXPECT_EQ(std::wstring(reportBackendLabel(2)), L"GStreamer");
    EXPECT_EQ(std::wstring(reportBackendLabel(3)), L"Nenhum • ocioso");
}

TEST(SourceLabel, NamesTheKindOfSourceOnly) {
    const std::pair<SourceKind, const wchar_t*> kLabels[] = {
        {SourceKind::kInternalProfile, L"Perfil interno Vextra • protegido"},
        {SourceKind::kDirectCamera, L"Câmera direta • IPv4 protegido"},
        {SourceKind::kCustomUrl, L"URL personalizada • endereço protegido"},
        {SourceKind::kSyntheticTest, L"Teste sintético • sem rede"},
    };
    for (const auto& [source, label] : kLabels)
        EXPECT_EQ(std::wstring(protectedSourceLabel(source)), label);
}

TEST(SourceLabel, OfAnUnknownSourceIsEmpty) {
    EXPECT_EQ(std::wstring(protectedSourceLabel(static_cast<SourceKind>(4))), L"");
}

TEST(RecentFrame, IsAtMost2000MsOld) {
    EXPECT_TRUE(frameIsRecent(10'000, 10'000));
    EXPECT_TRUE(frameIsRecent(10'000, 12'000));
    EXPECT_FALSE(frameIsRecent(10'000, 12'001));
    EXPECT_TRUE(frameIsRecent(10'001, 10'000));
}

TEST(RecentFrame, HasCome) {
    EXPECT_FALSE(frameIsRecent(0, 0));
    EXPECT_FALSE(frameIsRecent(0, 100));
    EXPECT_TRUE(frameIsRecent(1, 100));
}

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

TEST(PlaceholderFrame, IsADarkFieldWithABarAndNothingElse) {
    std::vector<std::byte> frame(3, std::byte{1});  // whatever was there
    fillPlaceholderFrame(frame);
    ASSERT_EQ(frame.size(), 3'686'400u);

    const auto pixelAt = [&](std::size_t x, std::size_t y) {
        const std::byte* at = frame.data() + y * 5120 + x * 4;
        return std::to_integer<std::uint32_t>(at[0]) | std::to_integer<std::uint32_t>(at[1]) << 8 |
               std::to_integer<std::uint32_t>(at[2]) << 16 | std::to_integer<std::uint32_t>(at[3]) << 24;
    };
    constexpr std::uint32_t kField = 0xFF121924;  // A R G B: 255 18 25 36
    constexpr std::uint32_t kBar = 0xFFECA53E;    // A R G B: 255 236 165 62
    for (std::size_t y = 0; y < 720; ++y) {
        for (std::size_t x = 0; x < 1280; ++x) {
            const bool inBar = 214 <= x && x < 1066 && 345 <= y && y < 376;
            ASSERT_EQ(pixelAt(x, y), inBar ? kBar : kField) << x << "," << y;
        }
    }
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
