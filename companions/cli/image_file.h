// Pictures to files.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <span>
#include <string>

namespace cli {

// "Mono8", or the hexadecimal value of a format without a name here.
[[nodiscard]] std::string pixel_format_name(uint32_t pfnc);

// Writes a PNG: grey and Bayer formats as grey of 8 or 16 bits, RGB8 and BGR8 as colour. A format that PNG does not
// hold goes into a file of the same stem with the extension ".raw". Returns the path written; throws on failure.
std::filesystem::path write_picture(const std::filesystem::path& stem, std::span<const std::byte> data, uint32_t width,
                                    uint32_t height, uint32_t pfnc, bool force_raw);

} // namespace cli
