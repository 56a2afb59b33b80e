#include "ui/labels.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>

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

TEST(StatusLabel, IsOfWhatIsSharedNow) {
    SharedStatus shared;
    shared.leaseCount = -1;
    EXPECT_EQ(labelOf(statusNow(shared, 0)), L"Indisponível • broker sem canal de demanda");
    shared.status = BrokerStatus::kLive;
    shared.lastFrameTick = 10'000;
    EXPECT_EQ(labelOf(statusNow(shared, 12'000)), kRecent);
    EXPECT_EQ(labelOf(statusNow(shared, 12'001)), kOutdated);
}

TEST(StatusLabel, OfAnUnknownStateIsEmpty) {
    EXPECT_EQ(labelOf({static_cast<BrokerStatus>(6), 0, 0, 0}), L"");
}

constexpr auto kUnknown = static_cast<EffectiveBackend>(3);

TEST(BackendLabel, NamesWhatDecodes) {
    EXPECT_EQ(std::wstring(backendLabel(EffectiveBackend::kNone)), L"Nenhum");
    EXPECT_EQ(std::wstring(backendLabel(EffectiveBackend::kFfmpeg)), L"FFmpeg");
    EXPECT_EQ(std::wstring(backendLabel(EffectiveBackend::kGstreamer)), L"GStreamer");
    EXPECT_EQ(std::wstring(backendLabel(kUnknown)), L"Nenhum");
}

TEST(BackendLabel, OfTheReportSaysWhatNoneMeans) {
    EXPECT_EQ(std::wstring(reportBackendLabel(EffectiveBackend::kNone)), L"Nenhum • ocioso");
    EXPECT_EQ(std::wstring(reportBackendLabel(EffectiveBackend::kFfmpeg)), L"FFmpeg");
    EXPECT_EQ(std::wstring(reportBackendLabel(EffectiveBackend::kGstreamer)), L"GStreamer");
    EXPECT_EQ(std::wstring(reportBackendLabel(kUnknown)), L"Nenhum • ocioso");
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

}  // namespace
}  // namespace vextra
