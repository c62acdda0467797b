// One picture to one file, in what a viewer or a program reads, and what was done to it on the way.
#pragma once

#include <nlohmann/json.hpp>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <span>
#include <string>
#include <vector>

namespace cli {

enum class file_kind { png, tiff, raw };

// Takes away what stands behind each line of `height` of a frame; what comes behind the last stays.
void join_lines(std::span<const std::byte> data, uint32_t width, uint32_t height, uint32_t pfnc, size_t padding,
                std::vector<std::byte>& joined);

struct picture {
    std::span<const std::byte> data; // lines without padding
    uint32_t width = 0, height = 0;
    uint32_t pfnc = 0;
};

struct written_picture {
    std::filesystem::path path;
    std::string pixel_format; // of the samples in the file
    std::string note;         // what differs from the camera's samples; empty: nothing
};

// "Mono8", or the hexadecimal value of a number that the standard does not name.
[[nodiscard]] std::string pixel_format_name(uint32_t pfnc);
// Whether PNG and TIFF hold the format as it is: 8- and 16-bit samples of grey, Bayer (as grey) and colour.
[[nodiscard]] bool is_storable(uint32_t pfnc);

// PNG: samples of 10 to 14 bits are moved up to fill 16, which an sBIT entry tells. TIFF: they stay as they are. What
// neither holds becomes a raw file, which always has a JSON file of the same stem beside it: `about`, with size, format
// and length. Throws failure(cause::output).
written_picture write_picture(const std::filesystem::path& stem, const picture& shown, file_kind kind,
                              const nlohmann::json& about);

} // namespace cli
