// Media Foundation for one thread. It is taken from the system folder at run time: the N editions of Windows
// lack the library, and there the broker must say so instead of not starting.
#pragma once

#include <windows.h>

#include <cstdint>

namespace vextra {

// Used by one thread, which has initialised COM.
class MediaFoundation {
public:
    // The full start-up. An HRESULT; a missing library is a failing one.
    std::int32_t startup();
    // An HRESULT. Only after a good start-up.
    std::int32_t shutdown();

private:
    HMODULE library_ = nullptr;  // never unloaded: its worker threads may outlive the shut-down
};

}  // namespace vextra
