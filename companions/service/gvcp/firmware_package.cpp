#include "firmware_package.h"

#include <GenICam/zip.h>
#include <gige/firmware.h>
#include <gige/udp_socket.h>

#include <fmt/format.h>
#include <nlohmann/json.hpp>
#include <zlib.h>

#include <charconv>

namespace gvcp_master {

namespace {

using nlohmann::json;

constexpr std::size_t largest_manifest = 64 << 10;
constexpr uint32_t first_own_address = 0xA000; // below lie the standard's registers

std::unexpected<std::string> wrong(std::string text) { return std::unexpected(std::move(text)); }

// A text of a manifest; empty when there is none.
std::string text_of(const json& object, const char* name) {
    const auto found = object.find(name);
    return found != object.end() && found->is_string() ? found->get<std::string>() : std::string{};
}

std::expected<uint32_t, std::string> number_of(const json& object, const char* name) {
    const std::string text = text_of(object, name);
    uint32_t value = 0;
    const char* end = text.data() + text.size();
    if (!text.starts_with("0x") || std::from_chars(text.data() + 2, end, value, 16).ptr != end || text.size() < 3 ||
        text.size() > 10)
        return wrong(fmt::format("the manifest's '{}' is no number such as \"0x00100000\"", name));
    return value;
}

std::string problem_of(const std::error_code& error) {
    if (error == std::errc::file_too_large) return "is too large";
    if (error == std::errc::no_such_file_or_directory) return "is missing";
    return "is damaged";
}

} // namespace

std::expected<firmware_package, std::string> read_firmware_package(std::span<const std::byte> bytes) {
    auto archive = GenICam::zip_archive::open(bytes);
    if (!archive) return wrong("the package is no zip archive");
    const auto manifest = archive->read("manifest.json", largest_manifest);
    if (!manifest) return wrong(fmt::format("the package's manifest {}", problem_of(manifest.error())));
    const json object = json::parse(*manifest, nullptr, false);
    if (!object.is_object()) return wrong("the manifest is no JSON object");
    if (object.value("format", json{}) != json(1)) return wrong("the manifest's format is not 1");

    firmware_package package;
    package.vendor = text_of(object, "vendor");
    package.model = text_of(object, "model");
    package.version = text_of(object, "version");
    if (package.model.empty() || package.version.empty()) return wrong("the manifest names no model or no version");
    if (package.version.size() > 31) return wrong("the manifest's version is longer than a camera can tell");
    const auto region = object.value("region", json::object());
    for (const auto& [target, holder, name] : {std::tuple{&package.region, &region, "address"},
                                               {&package.region_size, &region, "size"},
                                               {&package.registers, &object, "registers"},
                                               {&package.checksum, &object, "crc32"}}) {
        const auto value = number_of(holder->is_object() ? *holder : json::object(), name);
        if (!value) return wrong(value.error());
        *target = *value;
    }
    const auto misplaced = [](uint32_t start, uint64_t size) {
        return start % 4 != 0 || start < first_own_address || size > uint64_t{0x1'0000'0000} - start;
    };
    if (misplaced(package.region, package.region_size) || misplaced(package.registers, gige::firmware::registers_size))
        return wrong("the manifest's region or registers lie where no camera has them");

    const uint64_t image_end = uint64_t{package.region} + package.region_size;
    const uint64_t registers_end = uint64_t{package.registers} + gige::firmware::registers_size;
    if (package.region < registers_end && package.registers < image_end)
        return wrong("the manifest's region holds the registers that control the update");
    if (package.region_size % 4 != 0) return wrong("the manifest's region is not of whole words");

    auto image = archive->read(text_of(object, "image"), largest_firmware);
    if (!image) return wrong(fmt::format("the package's image {}", problem_of(image.error())));
    package.image = std::move(*image);
    if (package.image.empty() || package.image.size() > package.region_size)
        return wrong(fmt::format("the image has {} bytes, its region {}", package.image.size(), package.region_size));
    const auto sum =
        ::crc32(0, reinterpret_cast<const Bytef*>(package.image.data()), static_cast<uInt>(package.image.size()));
    if (sum != package.checksum) return wrong("the image's checksum is not the manifest's");
    return package;
}

} // namespace gvcp_master
