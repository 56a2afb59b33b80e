// Owners for what the system hands out. One template; the invalid value and the way to close are part of the
// type, one line each.
#pragma once

#include <windows.h>

#include <bcrypt.h>
#include <objbase.h>

#include <cstdint>
#include <utility>

namespace vextra {

// `close` is called with each value but the invalid one, and leaves GetLastError as it was: an owner may end
// between a call that failed and the look at the reason.
template <typename ValueType, auto close, std::intptr_t kInvalid = 0>
class Unique {
public:
    using Value = ValueType;

    Unique() = default;
    explicit Unique(Value value) : value_(value) {}
    Unique(Unique&& other) noexcept : value_(other.release()) {}
    Unique& operator=(Unique&& other) noexcept {
        if (this != &other)
            reset(other.release());
        return *this;
    }
    Unique(const Unique&) = delete;
    Unique& operator=(const Unique&) = delete;
    ~Unique() { reset(); }

    explicit operator bool() const { return value_ != invalid(); }
    Value get() const { return value_; }
    Value operator->() const { return value_; }  // of owners of objects
    Value release() { return std::exchange(value_, invalid()); }
    void reset(Value value = invalid()) {
        const Value old = std::exchange(value_, value);
        if (old == invalid())
            return;
        const DWORD error = GetLastError();
        close(old);
        SetLastError(error);
    }
    // For functions that return the value through a pointer; what was owned is closed first.
    Value* put() {
        reset();
        return &value_;
    }

private:
    static Value invalid() { return reinterpret_cast<Value>(kInvalid); }

    Value value_ = invalid();
};

constexpr std::intptr_t kInvalidHandleValue = -1;  // INVALID_HANDLE_VALUE, which is no constant expression

using UniqueHandle = Unique<HANDLE, &CloseHandle>;  // events, processes, jobs, mappings, pipes
using UniqueFile = Unique<HANDLE, &CloseHandle, kInvalidHandleValue>;  // CreateFileW
using UniqueView = Unique<void*, &UnmapViewOfFile>;                    // MapViewOfFile
using UniqueLocalMemory = Unique<void*, &LocalFree>;
using UniqueTaskText = Unique<wchar_t*, &CoTaskMemFree>;
using UniqueLibrary = Unique<HMODULE, &FreeLibrary>;

// A key or hash has to end before its provider.
inline void closeCryptoProvider(BCRYPT_ALG_HANDLE provider) {
    BCryptCloseAlgorithmProvider(provider, 0);
}
using UniqueCryptoProvider = Unique<BCRYPT_ALG_HANDLE, &closeCryptoProvider>;
using UniqueCryptoHash = Unique<BCRYPT_HASH_HANDLE, &BCryptDestroyHash>;
using UniqueCryptoKey = Unique<BCRYPT_KEY_HANDLE, &BCryptDestroyKey>;

template <typename Interface>
void releaseCom(Interface* object) {
    object->Release();
}
template <typename Interface>
using UniqueCom = Unique<Interface*, &releaseCom<Interface>>;

// This thread in a COM apartment, as long as the object lives.
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

}  // namespace vextra
