#include "base/secret.h"

namespace vextra {

void wipeMemory(void* memory, std::size_t bytes) {
    auto* volatile_bytes = static_cast<volatile unsigned char*>(memory);
    for (std::size_t i = 0; i < bytes; ++i)
        volatile_bytes[i] = 0;
}

}  // namespace vextra
