// The registers that every camera has, through its port.
#pragma once

#include "gentl_library.h"

#include <cstdint>
#include <optional>

namespace cli {

// Nothing where it cannot be read.
[[nodiscard]] std::optional<uint32_t> read_register(const gentl_library& lib, void* port, uint64_t address);
[[nodiscard]] bool write_register(const gentl_library& lib, void* port, uint64_t address, uint32_t value);

} // namespace cli
