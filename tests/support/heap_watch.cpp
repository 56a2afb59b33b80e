#include "heap_watch.h"

#ifdef _WIN32
#include <malloc.h>
#endif

#include <new>

namespace {

using vextra::test::HeapWatch;

void* taken(void* block, std::size_t bytes) {
    if (block == nullptr)
        throw std::bad_alloc();
    ++vextra::test::allocationCount;
    if (HeapWatch* const watch = HeapWatch::active)
        watch->noteAllocation(block, bytes);
    return block;
}

void givenBack(void* block) {
    if (HeapWatch* const watch = HeapWatch::active; watch != nullptr && block != nullptr)
        watch->noteRelease(block);
}

}  // namespace

// The array and nothrow forms call these.
void* operator new(std::size_t bytes) {
    return taken(std::malloc(bytes != 0 ? bytes : 1), bytes);
}
void operator delete(void* block) noexcept {
    givenBack(block);
    std::free(block);
}
void operator delete(void* block, std::size_t) noexcept {
    operator delete(block);
}

#ifdef _WIN32
void* operator new(std::size_t bytes, std::align_val_t alignment) {
    return taken(_aligned_malloc(bytes != 0 ? bytes : 1, static_cast<std::size_t>(alignment)), bytes);
}
void operator delete(void* block, std::align_val_t) noexcept {
    givenBack(block);
    _aligned_free(block);
}
void operator delete(void* block, std::size_t, std::align_val_t alignment) noexcept {
    operator delete(block, alignment);
}
#endif
