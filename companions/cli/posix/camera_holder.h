// Who has a camera that cannot be opened.
#pragma once

#include "../gentl_library.h"

#include <memory>
#include <string>

namespace cli {

// The rest of a sentence "Camera ... is in use", with its end: by which address where the camera tells, and for this
// host's own which processes have the library loaded. Opens the camera read only, and says less where that fails.
[[nodiscard]] std::string who_holds(const gentl_library& lib, const std::shared_ptr<const tl_interface>& interface,
                                    const std::string& device_id);

} // namespace cli
