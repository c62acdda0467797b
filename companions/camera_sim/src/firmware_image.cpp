#include <camera_sim/firmware_image.h>
#include <camera_sim/registers.h>
#include <camera_sim/zip_writer.h>

#include <fmt/format.h>
#include <nlohmann/json.hpp>
#include <zlib.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>

namespace camera_sim {

namespace {

constexpr std::string_view magic = "orv-gev-camera-sim firmware\n";

} // namespace

std::optional<firmware_header> parse_firmware_image(std::span<const std::byte> image) {
    std::string_view text{reinterpret_cast<const char*>(image.data()), image.size()};
    if (!text.starts_with(magic)) return {};
    text.remove_prefix(magic.size());
    firmware_header header;
    for (std::string* field : {&header.model, &header.version}) {
        const auto end = text.find('\n');
        if (end == text.npos || end == 0 || end > 31) return {};
        *field = text.substr(0, end);
        text.remove_prefix(end + 1);
    }
    return header;
}

std::vector<std::byte> make_firmware_image(const firmware_header& header, std::size_t size) {
    const std::string text = fmt::format("{}{}\n{}\n", magic, header.model, header.version);
    std::vector<std::byte> image(std::max(size, text.size()));
    uint32_t noise = 1; // does not compress to nothing
    for (std::byte& each : image) each = static_cast<std::byte>((noise = noise * 1664525 + 1013904223) >> 24);
    std::memcpy(image.data(), text.data(), text.size());
    return image;
}

std::vector<std::byte> make_firmware_package(const firmware_package_options& chosen) {
    const auto image = make_firmware_image({chosen.model, chosen.version}, chosen.size);
    const auto sum = ::crc32(0, reinterpret_cast<const Bytef*>(image.data()), static_cast<uInt>(image.size()));
    const nlohmann::json manifest{{"format", 1},
                                  {"vendor", chosen.vendor},
                                  {"model", chosen.model},
                                  {"version", chosen.version},
                                  {"image", "image.bin"},
                                  {"crc32", fmt::format("0x{:08X}", sum)},
                                  {"region",
                                   {{"address", fmt::format("0x{:08X}", reg::firmware_region)},
                                    {"size", fmt::format("0x{:08X}", reg::firmware_region_size)}}},
                                  {"registers", fmt::format("0x{:08X}", reg::firmware_control)}};
    const std::string text = manifest.dump(2);
    return zip_files(
        std::array{zip_member{"manifest.json", std::as_bytes(std::span{text})}, zip_member{"image.bin", image}});
}

} // namespace camera_sim
