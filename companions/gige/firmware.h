// How a camera takes firmware: the image goes to a region of its memory, four words of control registers tell what to
// do with it. Where both lie is the package's to say, a zip archive (*.fwpack) with "manifest.json":
//   {"format": 1, "vendor": "Orv", "model": "SimCam", "version": "2.0.0", "image": "image.bin", "crc32": "0x89ABCDEF",
//    "region": {"address": "0x02000000", "size": "0x00100000"}, "registers": "0x00020000"}
#pragma once

#include <cstdint>

namespace gige::firmware {

// Offsets of the control registers.
inline constexpr uint32_t length = 0x0;   // of the image, bytes
inline constexpr uint32_t checksum = 0x4; // CRC-32 of the image
inline constexpr uint32_t command = 0x8;
inline constexpr uint32_t progress = 0xC; // state in the upper half, percent in the lower
inline constexpr uint32_t registers_size = 0x10;

inline constexpr uint32_t begin = 1;   // the region takes an image of that length; an earlier one is dropped
inline constexpr uint32_t install = 2; // checks the image, takes it over and restarts

// Control that is given back or lost drops what was received, not what is being installed.
enum class state : uint16_t { idle = 0, receiving = 1, installing = 2, installed = 3, refused = 4 };

[[nodiscard]] constexpr uint32_t progress_value(state now, uint32_t percent) noexcept {
    return static_cast<uint32_t>(now) << 16 | percent;
}
[[nodiscard]] constexpr state state_of(uint32_t progress_register) noexcept {
    return static_cast<state>(progress_register >> 16);
}
[[nodiscard]] constexpr uint32_t percent_of(uint32_t progress_register) noexcept { return progress_register & 0xFFFF; }

} // namespace gige::firmware
