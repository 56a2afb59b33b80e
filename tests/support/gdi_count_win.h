// How many GDI objects a process holds, also under Wine.
#pragma once

#include <windows.h>

#include <cstddef>

namespace vextra::test {

// `process` grants PROCESS_QUERY_INFORMATION and PROCESS_VM_READ and is a 64-bit one. 0 when the system does
// not tell. Stock objects may be part of the count: only differences mean something.
std::size_t countGdiObjects(HANDLE process);

}  // namespace vextra::test
