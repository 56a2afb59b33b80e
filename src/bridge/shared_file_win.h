// The one way in which the broker maps a file that it shares with the camera's media source.
#pragma once

#include <cstdint>
#include <string>

#include "base/system_win.h"
#include "base/unique_win.h"

namespace vextra {

enum class FileAccess { kReadOnly = 1, kReadWrite = 2 };

// A mapping of a whole file of known size. Movable; used by one thread at a time.
class SharedFile {
public:
    // Maps `path` when it exists, is a plain file (no link, no folder) of exactly `sizeBytes`, and every
    // folder on the way to it is plain. Nothing is created, resized or repaired. An empty path is a refusal.
    static SharedFile open(const std::wstring& path, std::uint32_t sizeBytes, FileAccess access);

    SharedFile() = default;
    SharedFile(SharedFile&&) = default;
    SharedFile& operator=(SharedFile&& other) noexcept;
    ~SharedFile() = default;

    explicit operator bool() const { return static_cast<bool>(view_); }
    void* data() const { return view_.get(); }

private:
    // What is mapped goes before what it is a view of: members end in reverse order.
    UniqueFile file_;
    UniqueHandle mapping_;
    UniqueView view_;
};

}  // namespace vextra
