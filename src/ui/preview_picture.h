// What the preview of the main window shows. Pure.
#pragma once

#include <cstddef>
#include <vector>

#include "core/shared_status.h"
#include "ui/window_view.h"

namespace vextra {

// The picture that stands for "no frame yet": a dark field with a bar. Fills kFrameBytes of BGRA.
void fillPlaceholderFrame(std::vector<std::byte>& frame);

class PreviewPicture {
public:
    // The newest frame while the preview is live, else the placeholder, so that no picture of the camera
    // stays when it is over. kFrameBytes of BGRA, until the next call.
    const std::byte* pixelsFor(const PreviewView& view, SharedStatus& shared);

private:
    std::vector<std::byte> pixels_;
    bool isPlaceholder_ = false;
};

}  // namespace vextra
