// The simulated camera's moving picture, a pure function of frame number, size and format: a consumer that knows the
// frame number can check every byte.
//
// What it shows: a ramp of 512 pixels' period that moves 8 pixels per frame and one group of 8 per 8 lines (colours
// shifted by a third each), a bright square that travels, and in the first 8 lines the frame number, bit i as a light
// or dark bar of 8 pixels at x = 8 * i.
//
// Frame number and block id: frames count from 0 at each acquisition start. With 64-bit (extended) ids the block id is
// frame + 1. With 16-bit ids it is frame % 65535 + 1, for the id wraps from 65535 to 1 and skips 0; past the first
// wrap the number follows from the last known frame (frame_of_block). Chunk data, where on, stand behind the picture
// (which is padded with zeros to a multiple of 4 bytes) and carry the frame number in the FrameID chunk.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace gige {

// Bytes of one picture: ceil(width * height * bits per pixel / 8), lines without padding.
[[nodiscard]] std::size_t test_picture_size(uint32_t width, uint32_t height, uint32_t pfnc) noexcept;

// Fills the first test_picture_size() bytes of `out`; does nothing when it is smaller. `brightness` scales luma and
// colour components (not chroma), saturating; 1 is the neutral picture. Fast when format, width and brightness stay
// the same from call to call on one thread. Formats without a known layout get bytes that move just the same.
void fill_test_picture(uint64_t frame, uint32_t width, uint32_t height, uint32_t pfnc, std::span<std::byte> out,
                       double brightness = 1.0);

[[nodiscard]] constexpr uint64_t block_of_frame(uint64_t frame, bool extended) noexcept {
    return extended ? frame + 1 : frame % 65535 + 1;
}

// The frame number of a block; with 16-bit ids the one nearest to `last_frame`.
[[nodiscard]] constexpr uint64_t frame_of_block(uint64_t block, bool extended, uint64_t last_frame = 0) noexcept {
    if (extended) return block - 1;
    constexpr uint64_t period = 65535;
    const uint64_t candidate = last_frame / period * period + (block - 1) % period;
    if (candidate + period / 2 < last_frame) return candidate + period;
    if (candidate > last_frame + period / 2 && candidate >= period) return candidate - period;
    return candidate;
}

} // namespace gige
