#include "diag/diagnostic_report.h"

#include <cwchar>

#include "base/product.h"

namespace vextra {

std::wstring buildDiagnosticReport(const DiagnosticFigures& figures) {
    const Tick frameAgeMs = figures.lastFrameTick == 0 || figures.now < figures.lastFrameTick
                                ? 0
                                : figures.now - figures.lastFrameTick;
    // Views are not terminated: each is printed by its length.
    const auto length = [](std::wstring_view text) { return static_cast<int>(text.size()); };
    wchar_t text[kReportUnits];
    const int written =
        std::swprintf(text, kReportUnits,
                      VEXTRA_SHORT_NAME_W L" " VEXTRA_VERSION_W L"\r\n"
                      L"Fonte: %.*ls\r\n"
                      L"Entrada: %.*ls\r\n"
                      L"Backend efetivo: %.*ls\r\n"
                      L"Demanda MF (leases, não aplicativos): %d\r\n"
                      L"Prévia manual: %ls\r\n"
                      L"FPS observado: %.1f\r\n"
                      L"Frames: %llu\r\n"
                      L"Idade do frame: %llu ms\r\n"
                      L"Reconexões: %u\r\n"
                      L"Geração: %u\r\n"
                      L"Erro sanitizado: 0x%08lX\r\n"
                      L"Saída: System/CurrentUser, 1280x720 BGRA, alvo 16 fps\r\n"
                      L"Latência ponta a ponta: não medida\r\n"
                      L"Recebimento nas reuniões: não verificado\r\n",
                      length(figures.sourceLabel), figures.sourceLabel.data(), length(figures.statusLabel),
                      figures.statusLabel.data(), length(figures.backendLabel), figures.backendLabel.data(),
                      figures.leaseCount, figures.previewRuns ? L"ativa (até 60s)" : L"inativa",
                      figures.observedFps, static_cast<unsigned long long>(figures.frameCounter),
                      static_cast<unsigned long long>(frameAgeMs), figures.reconnects, figures.generation,
                      static_cast<unsigned long>(static_cast<std::uint32_t>(figures.lastError)));
    // A text that does not fit is reported by a negative number or by the length that it would have.
    const bool fits = written >= 0 && static_cast<std::size_t>(written) < kReportUnits;
    return fits ? std::wstring(text, static_cast<std::size_t>(written)) : std::wstring();
}

std::wstring diagnosticsView(std::wstring_view report, std::wstring_view logTail) {
    std::wstring view(report);
    view += L"\r\nEventos sanitizados (sessão atual):\r\n";
    view += logTail;
    return view;
}

}  // namespace vextra
