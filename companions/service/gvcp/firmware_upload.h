// The camera's side of an update: the image written, checked and taken over by the camera.
#pragma once

#include "device_control.h"
#include "device_record.h"
#include "firmware_package.h"

#include <gige/firmware.h>

namespace gvcp_master {

struct firmware_times {
    milliseconds upload{std::chrono::hours{1}}; // 64 MiB in blocks of 512 bytes, each taking a slow camera 20 ms
    milliseconds installation{std::chrono::minutes{10}};
};

enum class install_command {
    acknowledged,
    unanswered // the camera may have taken it all the same
};

// Runs until the camera has installed the image, or is not to be heard of any more: what became of it is for
// read_firmware_state to say. Else a sentence that says why not. `tell` gets a state for people. Ends early when the
// control's `stop` is requested.
[[nodiscard]] std::expected<install_command, std::string>
write_firmware(device_control& camera, const firmware_package& package, const std::stop_token& stop,
               const std::function<void(std::string)>& tell, const firmware_times& times = {});

struct firmware_state {
    gige::firmware::state state{}; // idle: it has started since it installed anything
    uint32_t percent{};
    std::string version;
};

// Asked without control. Nothing when the camera cannot be reached, does not answer, or another is at its address.
[[nodiscard]] std::optional<firmware_state> read_firmware_state(const device_record& camera, uint32_t registers,
                                                                const std::stop_token& stop);

} // namespace gvcp_master
