// The software registers beside a camera's own: where consumers find them, how wide they are and what they take. Most
// are fields of the settings block; the rest stand behind it and are the service's.
#pragma once

#include <gds_gentl_producer/settings_block.h>

#include <cstddef>
#include <cstdint>
#include <optional>

namespace image_features {

// GigE Vision addresses have 32 bits, so no camera has registers up here. Values are little-endian, as in the block.
inline constexpr uint64_t first_address = 0x1000100000000;
[[nodiscard]] constexpr bool is_software_address(uint64_t address) { return address >= first_address; }

// Behind the block's fields; offsets from the first address like theirs.
inline constexpr std::size_t own_begin = 0x400;
static_assert(gds_producer::settings_block::full_size <= own_begin);
namespace own_register {
inline constexpr std::size_t white_balance_mode = own_begin;     // unsigned 32, see below
inline constexpr std::size_t focus_start = own_begin + 0x04;     // unsigned 32: 1 starts a run, 0 once it is over
inline constexpr std::size_t exposure_lowest = own_begin + 0x10; // the camera's limits: float, us
inline constexpr std::size_t exposure_highest = own_begin + 0x14;
inline constexpr std::size_t gain_lowest = own_begin + 0x18; // float, dB
inline constexpr std::size_t gain_highest = own_begin + 0x1C;
inline constexpr std::size_t iris_lowest = own_begin + 0x20; // signed 64
inline constexpr std::size_t iris_highest = own_begin + 0x28;
inline constexpr std::size_t end = own_begin + 0x30;
} // namespace own_register

enum white_balance_mode : uint32_t { balance_off = 0, balance_once = 1, balance_continuous = 2 };

enum class value_type : uint8_t { flag, uint32, int32, int64, float32 };
[[nodiscard]] constexpr std::size_t width_of(value_type type) { return type == value_type::int64 ? 8 : 4; }

struct register_entry {
    std::size_t offset = 0;
    value_type type = value_type::flag;
    bool writable = false;
    double min = 0; // of what may be written
    double max = 1;
    // Registers whose values bound it, too: one is never written beyond the other.
    std::optional<std::size_t> not_below{};
    std::optional<std::size_t> not_above{};
};

// The one that begins there, or null.
[[nodiscard]] const register_entry* find_register(std::size_t offset);

} // namespace image_features
