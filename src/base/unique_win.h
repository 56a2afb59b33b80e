// Owners for what the system hands out. One template; the invalid value and the way to close are part of the
// type.
#pragma once

#include <windows.h>

#include <utility>

namespace vextra {

template <typename Traits>
class Unique {
public:
    using Value = typename Traits::Value;

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

    explicit operator bool() const { return value_ != Traits::invalid(); }
    Value get() const { return value_; }
    Value operator->() const { return value_; }  // of owners of objects
    Value release() { return std::exchange(value_, Traits::invalid()); }
    void reset(Value value = Traits::invalid()) {
        const Value old = std::exchange(value_, value);
        if (old != Traits::invalid())
            Traits::close(old);
    }
    // For functions that return the value through a pointer; whatever was owned is closed first.
    Value* put() {
        reset();
        return &value_;
    }

private:
    Value value_ = Traits::invalid();
};

struct KernelHandleTraits {
    using Value = HANDLE;
    static Value invalid() { return nullptr; }
    static void close(Value value) { CloseHandle(value); }
};
struct FileHandleTraits {
    using Value = HANDLE;
    static Value invalid() { return INVALID_HANDLE_VALUE; }
    static void close(Value value) { CloseHandle(value); }
};
struct MappedViewTraits {
    using Value = void*;
    static Value invalid() { return nullptr; }
    static void close(Value value) { UnmapViewOfFile(value); }
};
struct LocalMemoryTraits {
    using Value = void*;
    static Value invalid() { return nullptr; }
    static void close(Value value) { LocalFree(value); }
};

using UniqueHandle = Unique<KernelHandleTraits>;  // events, processes, jobs, mappings, pipes: invalid is null
using UniqueFile = Unique<FileHandleTraits>;      // CreateFileW: invalid is INVALID_HANDLE_VALUE
using UniqueView = Unique<MappedViewTraits>;      // MapViewOfFile
using UniqueLocalMemory = Unique<LocalMemoryTraits>;  // what LocalFree gives back

}  // namespace vextra
