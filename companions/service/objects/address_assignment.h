// Gives cameras addresses: one that a client names, or a free one of the interface's own networks.
#pragma once

#include "service_core.h"

#include <stop_token>
#include <string>
#include <system_error>

namespace service {

// By ForceIP, until the camera's next start. Refused with std::errc::address_in_use when somebody on the interface's
// network, this host or another camera has the address. Done when discovery has seen the camera there, and
// gigecam_errc::device_unreachable when it did not within seconds. Address 0 makes the camera start its own IP
// configuration again, and is not waited for. Ends with std::errc::operation_canceled when stopped.
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
