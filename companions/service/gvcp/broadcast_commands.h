// Commands that go to an interface instead of to an open camera: ForceIP and actions.
#pragma once

#include <gige/network.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <stop_token>
#include <system_error>

namespace gvcp_master {

// Gives the camera with this MAC an address until its next start; address 0 starts its own configuration again.
// Repeated until acknowledged; gigecam_errc::timeout when nothing answers in time, access_denied when it is in use,
// std::errc::operation_canceled when stopped.
[[nodiscard]] std::error_code force_ip(const gige::network_interface& through, uint64_t mac, uint32_t address,
                                       uint32_t mask, uint32_t gateway, std::stop_token stop = {},
                                       std::chrono::milliseconds timeout = std::chrono::milliseconds{2000});

struct action_command {
    uint32_t device_key{};
    uint32_t group_key{};
    uint32_t group_mask{};
    std::optional<uint64_t> time{}; // in the cameras' ticks
    uint8_t flags{};                // further flags of the command, such as gvcp::flag::acknowledge
};

// One datagram, by limited broadcast: a camera that got it twice would act twice. Acknowledges that the flags ask for
// are not collected: anybody could send any number of them.
[[nodiscard]] std::error_code send_action(const gige::network_interface& through, const action_command& action);

} // namespace gvcp_master
