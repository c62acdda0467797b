// The camera's side of an update: the image written, checked and taken over by the camera.
#pragma once

#include "device_control.h"
#include "firmware_package.h"

namespace gvcp_master {

// Runs until the camera has installed the image or goes off to restart, which the next search must confirm; else a
// sentence that says why not. `tell` gets a state for people. Minutes; ends early when the control's `stop` is
// requested.
[[nodiscard]] std::expected<void, std::string> write_firmware(device_control& camera, const firmware_package& package,
                                                              const std::stop_token& stop,
                                                              const std::function<void(std::string)>& tell);

} // namespace gvcp_master
