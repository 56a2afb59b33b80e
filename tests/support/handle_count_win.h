// How many handles a process holds, also under Wine.
#pragma once

#include <windows.h>

#include <cstdint>

namespace vextra::test {

// 0 when the system does not tell.
std::uint32_t handleCount(DWORD processId);

}  // namespace vextra::test
