// A frame as a picture that everything can show.
#pragma once

#include <cstddef>
#include <span>
#include <string>

namespace vextra {

// Writes kFrameBytes of BGRA as an opaque PNG, for the camera ignores A. Replaces an existing file; false on
// any failure.
bool writePng(const std::wstring& path, std::span<const std::byte> pixels);

}  // namespace vextra
