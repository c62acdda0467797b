// What the kernel tells of a network interface.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace cli {

// Mbit/s. Nothing for one that does not exist, has no link, or is not of hardware.
[[nodiscard]] std::optional<uint64_t> link_speed_of(const std::string& interface);
[[nodiscard]] std::optional<uint64_t> mtu_of(const std::string& interface); // bytes

} // namespace cli
