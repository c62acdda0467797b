// Who has a camera that cannot be opened.
#pragma once

#include "gentl_library.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace cli {

// Who has the privilege to control a camera, as the camera tells it.
struct camera_holder {
    std::string address;
    uint16_t port = 0; // 0: unknown
    bool is_of_this_host = false;
    std::string process; // of this host: its name, number and user, as far as they can be seen
    [[nodiscard]] std::string text() const;
};
// Nothing where the camera does not tell, or nobody has it. By an open port; or by a device, which is opened read only.
[[nodiscard]] std::optional<camera_holder> holder_of(const gentl_library& lib, void* port);
[[nodiscard]] std::optional<camera_holder>
holder_of(const gentl_library& lib, const std::shared_ptr<const tl_interface>& interface, const std::string& device_id);

// The rest of a sentence "Camera ... is in use", with its end: by which address where the camera tells, and for this
// host's own which processes have the library loaded. Opens the camera read only, and says less where that fails.
[[nodiscard]] std::string who_holds(const gentl_library& lib, const std::shared_ptr<const tl_interface>& interface,
                                    const std::string& device_id);

} // namespace cli
