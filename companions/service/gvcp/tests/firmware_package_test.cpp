// Packages that are not what they say, or that were made to do harm.
#include <camera_sim/firmware_image.h>
#include <camera_sim/zip_writer.h>
#include <gvcp/firmware_package.h>

#include <gtest/gtest.h>

namespace {

using namespace gvcp_master;
using bytes = std::vector<std::byte>;

bytes of(std::string_view text) {
    const auto raw = std::as_bytes(std::span{text});
    return {raw.begin(), raw.end()};
}

constexpr std::string_view manifest =
    R"({"format": 1, "model": "M", "version": "2", "image": "i", "crc32": "0x352441C2",
        "region": {"address": "0x02000000", "size": "0x4"}, "registers": "0x00020000"})";

// The manifest with one piece of it replaced, beside an image.
bytes pack(std::string_view from, std::string_view to, const bytes& image = of("abc")) {
    std::string text{manifest};
    if (!from.empty()) text.replace(text.find(from), from.size(), to);
    return camera_sim::zip_files(std::array{camera_sim::zip_member{"manifest.json", std::as_bytes(std::span{text})},
                                            camera_sim::zip_member{"i", image}});
}

std::string problem(const bytes& package) {
    const auto read = read_firmware_package(package);
    return read ? "none" : read.error();
}

TEST(FirmwarePackage, WhatIsWrongIsSaid) {
    EXPECT_EQ(problem(pack("", "")), "none");
    EXPECT_EQ(problem(camera_sim::make_firmware_package({})), "none");
    auto cut = camera_sim::make_firmware_package({});
    cut[cut.size() / 2] ^= std::byte{1};
    const struct {
        bytes package;
        const char* says;
    } cases[] = {
        {{}, "no zip archive"},
        {bytes(100 << 10), "no zip archive"},
        {camera_sim::zip_one_file("i", of("abc")), "manifest is missing"},
        {camera_sim::zip_one_file("manifest.json", bytes(1 << 20)), "manifest is too large"},
        {camera_sim::zip_one_file("manifest.json", of("[1]")), "no JSON object"},
        {camera_sim::zip_one_file("manifest.json", of(std::string(60000, '['))), "no JSON object"},
        {cut, "image is damaged"},
        {pack("1,", "2,"), "format is not 1"},
        {pack("\"M\"", "5"), "no model"},
        {pack("\"2\"", "\"01234567890123456789012345678901\""), "longer than"},
        {pack("0x352441C2", "0x352441C3"), "checksum"},
        {pack("0x352441C2", "352441C2"), "'crc32' is no number"},
        {pack("0x02000000", "0x1FFFFFFFF"), "'address' is no number"},
        {pack("{\"address\"", "[\"address\""), "no JSON object"},
        {pack("0x02000000", "0x00000A00"), "where no camera"},
        {pack("0x02000000", "0x02000002"), "where no camera"},
        {pack("0x02000000", "0xFFFFFFFC", of("abcde")), "has 5 bytes"},
        {pack("0x00020000", "0xFFFFFFF8"), "where no camera"},
        {pack("0x00020000", "0x02000000"), "holds the registers"},
        {pack("0x4", "0x6"), "not of whole words"},
        {pack("\"i\"", "\"../i\""), "image is missing"},
        {pack("", "", {}), "has 0 bytes"},
        {pack("0x4", "0xFFFFFFF0"), "where no camera"},
        {pack("", "", bytes(largest_firmware + 1)), "image is too large"}, // 64 KiB when packed
    };
    for (const auto& each : cases)
        EXPECT_NE(problem(each.package).find(each.says), std::string::npos)
            << "expected: " << each.says << "\nsaid: " << problem(each.package);
}

} // namespace
