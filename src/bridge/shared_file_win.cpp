#include "bridge/shared_file_win.h"

#include <utility>

#include "bridge/bridge_location.h"

namespace vextra {

SharedFile SharedFile::open(const std::wstring& path, std::uint32_t sizeBytes, FileAccess access) {
    const bool writable = access == FileAccess::kReadWrite;
    if (path.empty() || !parentChainIsPlain(path))
        return {};

    SharedFile opened;
    opened.file_.reset(CreateFileW(path.c_str(), GENERIC_READ | (writable ? GENERIC_WRITE : 0u),
                                   FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                                   FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
    if (!opened.file_)
        return {};
    BY_HANDLE_FILE_INFORMATION information{};
    if (!GetFileInformationByHandle(opened.file_.get(), &information) ||
        !isPlainFile(information.dwFileAttributes))
        return {};
    LARGE_INTEGER size{};
    if (!GetFileSizeEx(opened.file_.get(), &size) || size.QuadPart != sizeBytes)
        return {};

    opened.mapping_.reset(CreateFileMappingW(
        opened.file_.get(), nullptr, writable ? PAGE_READWRITE : PAGE_READONLY, 0, sizeBytes, nullptr));
    if (!opened.mapping_)
        return {};
    opened.view_.reset(MapViewOfFile(
        opened.mapping_.get(), writable ? FILE_MAP_READ | FILE_MAP_WRITE : FILE_MAP_READ, 0, 0, sizeBytes));
    if (!opened.view_)
        return {};
    return opened;
}

// In the order in which they would end: member by member, the file would be closed under its mapping.
SharedFile& SharedFile::operator=(SharedFile&& other) noexcept {
    view_ = std::move(other.view_);
    mapping_ = std::move(other.mapping_);
    file_ = std::move(other.file_);
    return *this;
}

}  // namespace vextra
