// The address of a network interface, as a camera that owns one changes it.
#pragma once

#include <cstdint>
#include <string>
#include <system_error>

namespace camera_sim::posix {

// Takes the place of the address the interface had. Needs CAP_NET_ADMIN.
[[nodiscard]] std::error_code set_interface_address(const std::string& name, uint32_t address, uint32_t mask);

} // namespace camera_sim::posix
