// Formats that the image pipeline has no id for, or no row: their samples become 16 bits each, in a format it has.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace cli {

// The format id that wide_samples() gives: grey or a mosaic of 16 bits, or blue, green, red and alpha of 16 bits; 0
// when the layout of `pfnc` is unknown or is none of these.
[[nodiscard]] uint32_t wide_format(uint32_t pfnc);

// Samples of up to 8 bits fill the range of 16, wider ones stand at its top. Lines are joined without padding. `data`
// holds the picture's bits; wide_format(pfnc) is not 0.
void wide_samples(uint32_t pfnc, std::span<const std::byte> data, size_t pixels, std::vector<std::byte>& out);

} // namespace cli
