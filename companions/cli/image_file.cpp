#include "image_file.h"

#include <fmt/format.h>
#include <png.h>

#include <array>
#include <cstdio>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <vector>

namespace cli {

namespace {

struct known_format {
    uint32_t pfnc;
    const char* name;
    int shift; // of 16-bit samples up to full scale; -1: no grey or colour format of PNG
};
constexpr std::array formats{
    known_format{0x01080001, "Mono8", 0},         known_format{0x01100003, "Mono10", 6},
    known_format{0x01100005, "Mono12", 4},        known_format{0x01100025, "Mono14", 2},
    known_format{0x01100007, "Mono16", 0},        known_format{0x01080008, "BayerGR8", 0},
    known_format{0x01080009, "BayerRG8", 0},      known_format{0x0108000A, "BayerGB8", 0},
    known_format{0x0108000B, "BayerBG8", 0},      known_format{0x02180014, "RGB8", 0},
    known_format{0x02180015, "BGR8", 0},          known_format{0x02200016, "RGBa8", 0},
    known_format{0x02200017, "BGRa8", 0},         known_format{0x010C0006, "Mono12Packed", -1},
    known_format{0x010C0047, "Mono12p", -1},      known_format{0x010A0046, "Mono10p", -1},
    known_format{0x010C0004, "Mono10Packed", -1}, known_format{0x0210001F, "YUV422_8_UYVY", -1},
    known_format{0x02100032, "YUV422_8", -1},     known_format{0x0110000C, "BayerGR10", 6},
    known_format{0x0110000D, "BayerRG10", 6},     known_format{0x01100010, "BayerGR12", 4},
    known_format{0x01100011, "BayerRG12", 4},
};

const known_format* find(uint32_t pfnc) {
    for (const known_format& format : formats) {
        if (format.pfnc == pfnc) return &format;
    }
    return nullptr;
}

constexpr uint32_t bits_per_pixel(uint32_t pfnc) { return (pfnc >> 16) & 0xFF; }

void write_raw(const std::filesystem::path& path, std::span<const std::byte> data) {
    std::ofstream file{path, std::ios::binary | std::ios::trunc};
    file.write(reinterpret_cast<const char*>(data.data()), static_cast<std::streamsize>(data.size()));
    file.close();
    if (!file) throw std::runtime_error(fmt::format("Cannot write '{}'.", path.string()));
}

} // namespace

std::string pixel_format_name(uint32_t pfnc) {
    const known_format* format = find(pfnc);
    return format == nullptr ? fmt::format("0x{:08X}", pfnc) : format->name;
}

std::filesystem::path write_picture(const std::filesystem::path& stem, std::span<const std::byte> data, uint32_t width,
                                    uint32_t height, uint32_t pfnc, bool force_raw) {
    const known_format* format = find(pfnc);
    const uint32_t bits = bits_per_pixel(pfnc);
    const size_t line = size_t{width} * bits / 8;
    if (force_raw || format == nullptr || format->shift < 0 || data.size() < line * height || height == 0) {
        std::filesystem::path path = stem;
        path += ".raw";
        write_raw(path, data);
        return path;
    }
    std::filesystem::path path = stem;
    path += ".png";
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    image.width = width;
    image.height = height;
    // The simplified interface takes linear 16-bit samples only, so wide ones are shown by their upper 8 bits.
    std::vector<std::byte> narrowed;
    const void* pixels = data.data();
    if (bits == 24) {
        image.format = pfnc == 0x02180015 ? PNG_FORMAT_BGR : PNG_FORMAT_RGB;
    } else if (bits == 32) {
        image.format = pfnc == 0x02200017 ? PNG_FORMAT_BGRA : PNG_FORMAT_RGBA;
    } else {
        image.format = PNG_FORMAT_GRAY;
        if (bits == 16) {
            narrowed.resize(size_t{width} * height);
            for (size_t i = 0; i < narrowed.size(); ++i) {
                const uint32_t sample =
                    std::to_integer<uint32_t>(data[2 * i]) | std::to_integer<uint32_t>(data[2 * i + 1]) << 8;
                narrowed[i] = static_cast<std::byte>((sample << format->shift) >> 8);
            }
            pixels = narrowed.data();
        }
    }
    if (png_image_write_to_file(&image, path.c_str(), 0, pixels, 0, nullptr) == 0) {
        throw std::runtime_error(fmt::format("Cannot write '{}': {}", path.string(), image.message));
    }
    return path;
}

} // namespace cli
