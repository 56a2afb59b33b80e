#include "diag/diagnostic_report.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>

#include "base/product.h"
#include "ui/labels.h"

namespace vextra {
namespace {

DiagnosticFigures sample() {
    DiagnosticFigures figures;
    figures.sourceLabel = L"Câmera direta • IPv4 protegido";
    figures.statusLabel = L"Ao vivo • imagem recente";
    figures.backendLabel = L"FFmpeg";
    figures.leaseCount = 2;
    figures.previewRuns = true;
    figures.observedFps = 15.96;
    figures.frameCounter = 12'345;
    figures.lastFrameTick = 100'000;
    figures.now = 100'062;
    figures.reconnects = 3;
    figures.generation = 4;
    figures.lastError = static_cast<std::int32_t>(0x8007000E);
    return figures;
}

// The rest of the line that begins with `name`.
std::wstring valueOf(const std::wstring& report, std::wstring_view name) {
    const std::size_t at = (L"\r\n" + report).find(L"\r\n" + std::wstring(name) + L": ");
    if (at == std::wstring::npos)
        return L"(no such line)";
    const std::size_t from = at + name.size() + 2;
    return report.substr(from, report.find(L"\r\n", from) - from);
}

template <typename Change>
std::wstring valueWith(const Change& change, std::wstring_view name) {
    DiagnosticFigures figures = sample();
    change(figures);
    return valueOf(buildDiagnosticReport(figures), name);
}

TEST(DiagnosticReport, IsThisText) {
    EXPECT_EQ(buildDiagnosticReport(sample()),
              L"Vextra MF " VEXTRA_VERSION_W L"\r\n"
              L"Fonte: Câmera direta • IPv4 protegido\r\n"
              L"Entrada: Ao vivo • imagem recente\r\n"
              L"Backend efetivo: FFmpeg\r\n"
              L"Demanda MF (leases, não aplicativos): 2\r\n"
              L"Prévia manual: ativa (até 60s)\r\n"
              L"FPS observado: 16.0\r\n"
              L"Frames: 12345\r\n"
              L"Idade do frame: 62 ms\r\n"
              L"Reconexões: 3\r\n"
              L"Geração: 4\r\n"
              L"Erro sanitizado: 0x8007000E\r\n"
              L"Saída: System/CurrentUser, 1280x720 BGRA, alvo 16 fps\r\n"
              L"Latência ponta a ponta: não medida\r\n"
              L"Recebimento nas reuniões: não verificado\r\n");
}

TEST(DiagnosticReport, OfABrokerThatHasDoneNothingIsAllZeros) {
    DiagnosticFigures figures;
    figures.sourceLabel = protectedSourceLabel(SourceKind::kSyntheticTest);
    figures.statusLabel = statusLabel({});
    figures.backendLabel = reportBackendLabel(EffectiveBackend::kNone);
    figures.now = 5'000'000;
    EXPECT_EQ(buildDiagnosticReport(figures),
              L"Vextra MF " VEXTRA_VERSION_W L"\r\n"
              L"Fonte: Teste sintético • sem rede\r\n"
              L"Entrada: Automático • aguardando aplicativo\r\n"
              L"Backend efetivo: Nenhum • ocioso\r\n"
              L"Demanda MF (leases, não aplicativos): 0\r\n"
              L"Prévia manual: inativa\r\n"
              L"FPS observado: 0.0\r\n"
              L"Frames: 0\r\n"
              L"Idade do frame: 0 ms\r\n"
              L"Reconexões: 0\r\n"
              L"Geração: 0\r\n"
              L"Erro sanitizado: 0x00000000\r\n"
              L"Saída: System/CurrentUser, 1280x720 BGRA, alvo 16 fps\r\n"
              L"Latência ponta a ponta: não medida\r\n"
              L"Recebimento nas reuniões: não verificado\r\n");
}

TEST(DiagnosticReport, EndsEveryLineInCrLf) {
    const std::wstring report = buildDiagnosticReport(sample());
    std::size_t lines = 0;
    for (std::size_t at = 0; at < report.size(); ++at) {
        if (report[at] == L'\n') {
            ++lines;
            EXPECT_EQ(report[at - 1], L'\r');
        }
        if (report[at] == L'\r') {
            EXPECT_EQ(report[at + 1], L'\n');
        }
    }
    EXPECT_EQ(lines, 15u);
}

TEST(DiagnosticReport, TakesItsLabelsByTheirLength) {
    const std::wstring_view longer = L"FFmpeg and what follows it";
    EXPECT_EQ(valueWith([&](auto& f) { f.backendLabel = longer.substr(0, 6); }, L"Backend efetivo"),
              L"FFmpeg");
    EXPECT_EQ(valueWith([&](auto& f) { f.statusLabel = longer.substr(0, 2); }, L"Entrada"), L"FF");
    EXPECT_EQ(valueWith([&](auto& f) { f.sourceLabel = longer.substr(11, 4); }, L"Fonte"), L"what");
}

TEST(DiagnosticReport, CountsTheAgeOfTheFrameFromItsTick) {
    const auto age = [](Tick last, Tick now) {
        return valueWith([&](auto& f) { f.lastFrameTick = last, f.now = now; }, L"Idade do frame");
    };
    EXPECT_EQ(age(1000, 1000), L"0 ms");
    EXPECT_EQ(age(1000, 3001), L"2001 ms");
    EXPECT_EQ(age(1, std::numeric_limits<Tick>::max()), L"18446744073709551614 ms");
}

TEST(DiagnosticReport, KnowsNoAgeBeforeTheFirstFrame) {
    EXPECT_EQ(valueWith([](auto& f) { f.lastFrameTick = 0; }, L"Idade do frame"), L"0 ms");
}

// The window may have read its clock just before the frame came.
TEST(DiagnosticReport, KnowsNoNegativeAge) {
    EXPECT_EQ(valueWith([](auto& f) { f.lastFrameTick = 1001, f.now = 1000; }, L"Idade do frame"), L"0 ms");
}

TEST(DiagnosticReport, ShowsAnUnknownDemandAsMinusOne) {
    EXPECT_EQ(valueWith([](auto& f) { f.leaseCount = -1; }, L"Demanda MF (leases, não aplicativos)"), L"-1");
}

TEST(DiagnosticReport, RoundsTheFrameRateToOneDecimal) {
    const auto rate = [](double fps) {
        return valueWith([&](auto& f) { f.observedFps = fps; }, L"FPS observado");
    };
    EXPECT_EQ(rate(0.04), L"0.0");
    EXPECT_EQ(rate(0.06), L"0.1");
    EXPECT_EQ(rate(15.94), L"15.9");
    EXPECT_EQ(rate(15.96), L"16.0");
}

TEST(DiagnosticReport, ShowsTheLastErrorAsEightUpperCaseDigits) {
    const auto error = [](std::int32_t value) {
        return valueWith([&](auto& f) { f.lastError = value; }, L"Erro sanitizado");
    };
    EXPECT_EQ(error(0), L"0x00000000");
    EXPECT_EQ(error(3), L"0x00000003");
    EXPECT_EQ(error(-1), L"0xFFFFFFFF");
    EXPECT_EQ(error(0x00ABCDEF), L"0x00ABCDEF");
}

TEST(DiagnosticReport, HoldsTheLargestNumbersWithTheLongestLabels) {
    DiagnosticFigures figures = sample();
    figures.sourceLabel = protectedSourceLabel(SourceKind::kCustomUrl);
    figures.statusLabel = L"Indisponível • broker sem canal de demanda";
    figures.backendLabel = reportBackendLabel(EffectiveBackend::kNone);
    figures.leaseCount = std::numeric_limits<std::int32_t>::min();
    figures.observedFps = 1e6;
    figures.frameCounter = std::numeric_limits<std::uint64_t>::max();
    figures.lastFrameTick = 1;
    figures.now = std::numeric_limits<Tick>::max();
    figures.reconnects = std::numeric_limits<std::uint32_t>::max();
    figures.generation = std::numeric_limits<std::uint32_t>::max();
    figures.lastError = -1;
    const std::wstring report = buildDiagnosticReport(figures);
    EXPECT_EQ(valueOf(report, L"Frames"), L"18446744073709551615");
    EXPECT_EQ(valueOf(report, L"Reconexões"), L"4294967295");
    EXPECT_EQ(valueOf(report, L"Geração"), L"4294967295");
    EXPECT_EQ(valueOf(report, L"Demanda MF (leases, não aplicativos)"), L"-2147483648");
    EXPECT_TRUE(report.ends_with(L"Recebimento nas reuniões: não verificado\r\n"));
}

// 600 units with the terminator.
TEST(DiagnosticReport, IsWholeOrEmpty) {
    DiagnosticFigures figures = sample();
    figures.sourceLabel = {};
    const std::size_t rest = buildDiagnosticReport(figures).size();
    ASSERT_LT(rest, 599u);
    const std::wstring fitting(599 - rest, L'é');
    figures.sourceLabel = fitting;
    EXPECT_EQ(buildDiagnosticReport(figures).size(), 599u);
    const std::wstring tooLong = fitting + L"é";
    figures.sourceLabel = tooLong;
    EXPECT_EQ(buildDiagnosticReport(figures), L"");
}

TEST(DiagnosticsView, ShowsTheReportAboveTheEventsAsTheyStand) {
    EXPECT_EQ(diagnosticsView(L"report\r\n", L"tick=1 UI_READY\ntick=2"),
              L"report\r\n\r\nEventos sanitizados (sessão atual):\r\ntick=1 UI_READY\ntick=2");
    EXPECT_EQ(diagnosticsView(L"", L""), L"\r\nEventos sanitizados (sessão atual):\r\n");
}

}  // namespace
}  // namespace vextra
