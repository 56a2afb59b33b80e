// What a test program learns of its heap once it is linked with heap_watch.cpp, which replaces the global
// operator new and delete: for programs of their own, since a sanitizer loses its checks of these two.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <iterator>

namespace vextra::test {

// Blocks that were taken since the program began, by any thread.
inline std::atomic<std::uint64_t> allocationCount{0};

// Looks into every block at the moment when it is given back to the heap: the only moment at which it can be
// seen whether a secret stays behind. One watch at a time, on one thread.
class HeapWatch {
public:
    explicit HeapWatch(unsigned char secretByte) : secretByte_(secretByte) { active = this; }
    ~HeapWatch() { active = nullptr; }
    HeapWatch(const HeapWatch&) = delete;
    HeapWatch& operator=(const HeapWatch&) = delete;

    void noteAllocation(void* block, std::size_t bytes) {
        Block* const unused =
            std::find_if(blocks_, std::end(blocks_), [](const Block& b) { return !b.start; });
        if (unused == std::end(blocks_))
            std::abort();  // a watch too small would be blind
        *unused = {static_cast<unsigned char*>(block), bytes};
    }
    void noteRelease(void* block) {
        Block* const known =
            std::find_if(blocks_, std::end(blocks_), [&](const Block& b) { return b.start == block; });
        if (known == std::end(blocks_))
            return;  // older than the watch
        ++blocksFreed;
        const volatile unsigned char* bytes = known->start;
        for (std::size_t i = 0; i < known->bytes; ++i) {
            if (bytes[i] == secretByte_)
                ++secretBytesLeft;
        }
        *known = {};
    }

    int blocksFreed = 0;
    int secretBytesLeft = 0;

    static inline std::atomic<HeapWatch*> active{nullptr};

private:
    struct Block {
        unsigned char* start = nullptr;
        std::size_t bytes = 0;
    };
    const unsigned char secretByte_;
    Block blocks_[256];
};

}  // namespace vextra::test
