// A firmware package (*.fwpack) as a client hands it over; gige/firmware.h says what it is.
#pragma once

#include <cstdint>
#include <expected>
#include <span>
#include <string>

namespace gvcp_master {

struct firmware_package {
    std::string vendor; // empty: any
    std::string model;
    std::string version;
    uint32_t region{};      // where the image goes
    uint32_t region_size{}; // at least the image's size
    uint32_t registers{};   // of gige/firmware.h
    uint32_t checksum{};
    std::string image;
};

inline constexpr std::size_t largest_firmware = std::size_t{64} << 20;

// Everything in it tested, the image's checksum too; else a sentence that says what is wrong.
[[nodiscard]] std::expected<firmware_package, std::string> read_firmware_package(std::span<const std::byte> bytes);

} // namespace gvcp_master
