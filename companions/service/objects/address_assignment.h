// Gives cameras addresses: one that a client names, or a free one of the interface's own networks.
#pragma once

#include "service_core.h"

#include <stop_token>
#include <string>
#include <system_error>

namespace service {

// Both end with std::errc::operation_canceled soon after `stop` was requested, and touch no camera that anybody has
// control of, gigecam_errc::access_denied, or that a client of the service is opening or has it update, busy. Requests
// for one camera are done one after the other.

// By ForceIP, until the camera's next start. Refused with std::errc::invalid_argument when the address is no host's or
// the gateway's, with address_in_use when somebody on the interface's network, this host or another camera has it. Done
// when the camera has answered there, and gigecam_errc::device_unreachable when it did not within seconds. Address 0
// makes the camera start its own IP configuration again, and is not waited for.
[[nodiscard]] std::error_code force_address(service_core& core, const std::string& interface_name, uint64_t mac,
                                            uint32_t address, uint32_t mask, uint32_t gateway,
                                            const std::stop_token& stop);

// The device functions by name: a free address until the next start, the same for good, or DHCP from the next start
// on, with a free address until then for a camera that cannot be reached. function_not_supported for any other name,
// gigecam_errc::not_implemented when the camera does not offer it, address_not_available when no address is free,
// operation_canceled when stopped.
[[nodiscard]] std::error_code run_address_function(service_core& core, const std::string& interface_name,
                                                   const gvcp_master::discovery::found_device& camera,
                                                   const std::string& name, const std::stop_token& stop);

} // namespace service
