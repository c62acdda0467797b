// Takes new firmware: the image in its region, checked and taken over on command. Control thread only.
#pragma once

#include "device_state.h"

#include <gige/firmware.h>

#include <optional>
#include <string>

namespace camera_sim {

class firmware_slot {
public:
    explicit firmware_slot(device_state& shared) : device{shared} {}

    void add_registers(); // under the device's mutex, once

    // Of a write that the address space allows. Under the device's mutex.
    [[nodiscard]] gige::gvcp::status validate(uint32_t address, uint32_t value) const;
    void after_write(uint32_t address, uint32_t value);

    // Control is given back or lost: what was received is dropped.
    void abandon();
    void restarted(); // a start in the middle of an installation leaves the old firmware

    [[nodiscard]] std::optional<std::chrono::steady_clock::time_point> next_deadline() const { return next_step; }
    // True when the new firmware is in and the camera is to restart.
    [[nodiscard]] bool work_deadline();

private:
    void enter(gige::firmware::state next, uint32_t percent);
    [[nodiscard]] bool image_is_sound();

    device_state& device;
    gige::firmware::state now = gige::firmware::state::idle;
    uint32_t percent = 0;
    std::string new_version; // of the image that is being installed
    std::optional<std::chrono::steady_clock::time_point> next_step;
};

} // namespace camera_sim
