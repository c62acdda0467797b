// Accounts of this host.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace service {

// The number of the group of this name; nothing when there is none.
[[nodiscard]] std::optional<uint32_t> group_named(const std::string& name);

} // namespace service
