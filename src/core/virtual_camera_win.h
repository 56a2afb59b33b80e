// The broker's own virtual camera, as Windows knows it.
#pragma once

#include <cstdint>
#include <string>

#include "base/unique_win.h"
#include "core/virtual_camera_api_win.h"

namespace vextra {

// Used by one thread, which has initialised COM and started Media Foundation. Results are HRESULTs.
class VirtualCamera {
public:
    // The object only: the system's list of cameras stays as it is. A missing library is a failing result.
    // Nothing below may be called before a good creation.
    std::int32_t create();
    std::int32_t start();
    std::int32_t remove();
    // The path by which programs open the camera.
    std::int32_t readLink(std::wstring& link);
    void discard();  // shuts the object down and releases it

private:
    UniqueCom<IMFVirtualCamera> camera_;
};

}  // namespace vextra
