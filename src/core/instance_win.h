// One broker a user: the lock file that says who it is, and the signal that asks it to stop.
#pragma once

#include <cstdint>
#include <string>

#include "base/product.h"
#include "base/unique_win.h"

namespace vextra {

inline constexpr wchar_t kMainWindowClass[] = VEXTRA_OBJECT_PREFIX_W VEXTRA_CLASS_DIGITS_W;

// The lock file, which names its holder. Let go in order it names nobody: the id may soon be that of another
// program, which --shutdown-broker would take for a broker that is not the installed one. The id of a
// broker that crashed stays.
void closeInstanceLock(HANDLE file);
using InstanceLock = Unique<HANDLE, &closeInstanceLock, kInvalidHandleValue>;

// Takes <dataFolder>\app.lock and writes this process's id into it. The lock holds as long as the result
// lives; invalid when another broker holds it.
InstanceLock takeInstanceLock(const std::wstring& dataFolder);

// The process id in app.lock; 0 when there is none to be read.
std::uint32_t readInstanceLock(const std::wstring& dataFolder);

// Posts the show-window message to the running broker, if its window can be found, and lets it rise above the
// windows of others.
void showRunningBroker();

// Local\VextraMfBetaStop_<user SID>: auto-reset, initially clear, full access for Local System,
// Administrators and the user only. Invalid on any failure.
UniqueHandle createStopSignal();

// Opens the running broker's signal, only to set it. Invalid on any failure.
UniqueHandle openStopSignal();

}  // namespace vextra
