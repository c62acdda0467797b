// How the samples of a pixel format stand in memory.
#pragma once

#include <cstdint>
#include <string_view>

namespace gige {

enum class sample_packing : uint8_t {
    stream, // containers one after the other, least significant bit first
    legacy, // GigE Vision 1.x: two samples in three bytes, the low parts share the middle one
    rgb565, // 5, 6 and 5 bits
};

struct picture_format {
    uint32_t pfnc{};
    std::string_view samples; // of one group in storage order: Y R G B A U V
    uint8_t pixels{};         // in one group
    uint8_t bits{};           // significant ones of a sample
    uint8_t container{};      // bits a sample takes in memory
    sample_packing packing{};
    std::string_view second_line{}; // Bayer tiles: the samples of every odd line
};

// The layout of a format; one without a known layout reads as a grey sample of its whole pixel size.
[[nodiscard]] picture_format find_picture_format(uint32_t pfnc) noexcept;

// False where find_picture_format() can only guess.
[[nodiscard]] bool has_known_layout(uint32_t pfnc) noexcept;

} // namespace gige
