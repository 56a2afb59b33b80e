// The channel's small documents over the network.
#pragma once

#include <atomic>
#include <optional>
#include <string>

#include "update/update_check.h"

namespace vextra {

// The body of the request's address, as bytes: 1 to 65,536 of them, received whole within the total timeout
// with status 200 and the type JSON. Nothing otherwise, without a reason; never tried again. Any thread;
// blocks for about the total timeout and one step at most, and for about one step once `cancel` is set.
std::optional<std::string> fetchJson(const UpdateCheckRequest& request, const std::atomic<bool>& cancel);

}  // namespace vextra
