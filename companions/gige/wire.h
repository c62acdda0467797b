// Big-endian fields as both GigE Vision protocols carry them. Callers check sizes.
#pragma once

#include <cstddef>
#include <cstdint>

namespace gige {

[[nodiscard]] inline uint16_t load16(const std::byte* from) noexcept {
    return static_cast<uint16_t>(std::to_integer<unsigned>(from[0]) << 8 | std::to_integer<unsigned>(from[1]));
}

[[nodiscard]] inline uint32_t load32(const std::byte* from) noexcept {
    return static_cast<uint32_t>(load16(from)) << 16 | load16(from + 2);
}

[[nodiscard]] inline uint64_t load64(const std::byte* from) noexcept {
    return static_cast<uint64_t>(load32(from)) << 32 | load32(from + 4);
}

inline void store16(std::byte* to, uint16_t value) noexcept {
    to[0] = static_cast<std::byte>(value >> 8);
    to[1] = static_cast<std::byte>(value);
}

inline void store32(std::byte* to, uint32_t value) noexcept {
    store16(to, static_cast<uint16_t>(value >> 16));
    store16(to + 2, static_cast<uint16_t>(value));
}

inline void store64(std::byte* to, uint64_t value) noexcept {
    store32(to, static_cast<uint32_t>(value >> 32));
    store32(to + 4, static_cast<uint32_t>(value));
}

} // namespace gige
