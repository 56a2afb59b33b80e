// The text that a user may send to support. Every line is a constant, a number or a label of a fixed list: no
// address, name, password or path has a way in. Pure.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "base/system_types.h"

namespace vextra {

struct DiagnosticFigures {
    std::wstring_view sourceLabel;   // protectedSourceLabel
    std::wstring_view statusLabel;   // statusLabel
    std::wstring_view backendLabel;  // reportBackendLabel
    std::int32_t leaseCount = 0;     // -1: unknown
    bool previewRuns = false;
    double observedFps = 0;
    std::uint64_t frameCounter = 0;
    Tick lastFrameTick = 0;  // 0: no frame yet
    Tick now = 0;
    std::uint32_t reconnects = 0;
    std::uint32_t generation = 0;
    std::int32_t lastError = 0;  // HRESULT
};

constexpr std::size_t kReportUnits = 600;  // terminator included

// Lines end in CR LF. Empty when the labels are so long that the text would not fit into kReportUnits.
std::wstring buildDiagnosticReport(const DiagnosticFigures& figures);

// The report, a heading, and the tail of the event log as it stands.
std::wstring diagnosticsView(std::wstring_view report, std::wstring_view logTail);

}  // namespace vextra
