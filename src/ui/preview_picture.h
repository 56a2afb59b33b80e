// What the preview of the main window shows. Pure.
#pragma once

#include <cstddef>
#include <vector>

namespace vextra {

// The picture that stands for "no frame yet": a dark field with a bar. Fills kFrameBytes of BGRA.
void fillPlaceholderFrame(std::vector<std::byte>& frame);

}  // namespace vextra
