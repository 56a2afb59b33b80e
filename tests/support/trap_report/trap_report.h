// What the programs of a checked build and the test launcher agree on.
#pragma once

namespace vextra::test {

// Names the file to which a program adds one line when a check ends it. Unset: the standard error.
inline constexpr wchar_t kTrapReportVariable[] = L"VEXTRA_TRAP_REPORT";

}  // namespace vextra::test
