// COM and Media Foundation for one thread. Media Foundation is taken from the system folder at run time: the
// N editions of Windows lack the library, and there the broker must say so instead of not starting.
#pragma once

#include <windows.h>

#include <objbase.h>

#include <cstdint>

namespace vextra {

// This thread in the multithreaded apartment, as long as the object lives.
class ComApartment {
public:
    ComApartment() : result_(CoInitializeEx(nullptr, COINIT_MULTITHREADED)) {}
    ~ComApartment() {
        if (SUCCEEDED(result_))
            CoUninitialize();
    }
    ComApartment(const ComApartment&) = delete;
    ComApartment& operator=(const ComApartment&) = delete;

private:
    const HRESULT result_;
};

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
