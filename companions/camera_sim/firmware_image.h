// The simulated camera's firmware: a header of text, and bytes behind it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace camera_sim {

struct firmware_header {
    std::string model;
    std::string version; // up to 31 characters
};
[[nodiscard]] std::optional<firmware_header> parse_firmware_image(std::span<const std::byte> image);
[[nodiscard]] std::vector<std::byte> make_firmware_image(const firmware_header& header, std::size_t size);

// A package (*.fwpack) for a simulated camera of this maker and model: the image, and a manifest that names it.
struct firmware_package_options {
    std::string vendor = "Orv";
    std::string model = "SimCam";
    std::string version = "2.0.0";
    std::size_t size = 100'001; // of the image, at least its header's
};
[[nodiscard]] std::vector<std::byte> make_firmware_package(const firmware_package_options& chosen);

} // namespace camera_sim
