// COM for one thread, and an owner for its objects.
#pragma once

#include <windows.h>

#include <objbase.h>

#include "base/unique_win.h"

namespace vextra {

// This thread in an apartment, as long as the object lives.
class ComApartment {
public:
    // COINIT_APARTMENTTHREADED for threads with windows, else COINIT_MULTITHREADED
    explicit ComApartment(DWORD model) : result_(CoInitializeEx(nullptr, model)) {}
    ~ComApartment() {
        if (SUCCEEDED(result_))
            CoUninitialize();
    }
    ComApartment(const ComApartment&) = delete;
    ComApartment& operator=(const ComApartment&) = delete;

private:
    const HRESULT result_;
};

template <typename Interface>
struct ComObjectTraits {
    using Value = Interface*;
    static Value invalid() { return nullptr; }
    static void close(Value value) { value->Release(); }
};
template <typename Interface>
using UniqueCom = Unique<ComObjectTraits<Interface>>;

}  // namespace vextra
