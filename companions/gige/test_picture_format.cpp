#include <gige/test_picture_format.h>

#include <algorithm>
#include <array>

namespace gige {

namespace {

using enum sample_packing;

// clang-format off
constexpr auto known_formats = std::to_array<picture_format>({
    // Mono
    {0x01010037, "Y", 1, 1, 1, stream}, {0x01020038, "Y", 1, 2, 2, stream}, {0x01040039, "Y", 1, 4, 4, stream},
    {0x01080001, "Y", 1, 8, 8, stream}, {0x01080002, "Y", 1, 7, 8, stream},
    {0x010A0046, "Y", 1, 10, 10, stream}, {0x010C0047, "Y", 1, 12, 12, stream}, {0x010E0104, "Y", 1, 14, 14, stream},
    {0x01100003, "Y", 1, 10, 16, stream}, {0x01100005, "Y", 1, 12, 16, stream},
    {0x01100025, "Y", 1, 14, 16, stream}, {0x01100007, "Y", 1, 16, 16, stream},
    {0x010C0004, "Y", 1, 10, 12, legacy}, {0x010C0006, "Y", 1, 12, 12, legacy},
    // Bayer, 8 bits
    {0x01080008, "GR", 2, 8, 8, stream, "BG"}, {0x01080009, "RG", 2, 8, 8, stream, "GB"},
    {0x0108000A, "GB", 2, 8, 8, stream, "RG"}, {0x0108000B, "BG", 2, 8, 8, stream, "GR"},
    // Bayer in 16-bit words
    {0x0110000C, "GR", 2, 10, 16, stream, "BG"}, {0x0110000D, "RG", 2, 10, 16, stream, "GB"},
    {0x0110000E, "GB", 2, 10, 16, stream, "RG"}, {0x0110000F, "BG", 2, 10, 16, stream, "GR"},
    {0x01100010, "GR", 2, 12, 16, stream, "BG"}, {0x01100011, "RG", 2, 12, 16, stream, "GB"},
    {0x01100012, "GB", 2, 12, 16, stream, "RG"}, {0x01100013, "BG", 2, 12, 16, stream, "GR"},
    {0x01100109, "GR", 2, 14, 16, stream, "BG"}, {0x0110010A, "RG", 2, 14, 16, stream, "GB"},
    {0x0110010B, "GB", 2, 14, 16, stream, "RG"}, {0x0110010C, "BG", 2, 14, 16, stream, "GR"},
    {0x0110002E, "GR", 2, 16, 16, stream, "BG"}, {0x0110002F, "RG", 2, 16, 16, stream, "GB"},
    {0x01100030, "GB", 2, 16, 16, stream, "RG"}, {0x01100031, "BG", 2, 16, 16, stream, "GR"},
    // Bayer packed
    {0x0104010D, "GR", 2, 4, 4, stream, "BG"}, {0x0104010E, "RG", 2, 4, 4, stream, "GB"},
    {0x0104010F, "GB", 2, 4, 4, stream, "RG"}, {0x01040110, "BG", 2, 4, 4, stream, "GR"},
    {0x010A0056, "GR", 2, 10, 10, stream, "BG"}, {0x010A0058, "RG", 2, 10, 10, stream, "GB"},
    {0x010A0054, "GB", 2, 10, 10, stream, "RG"}, {0x010A0052, "BG", 2, 10, 10, stream, "GR"},
    {0x010C0057, "GR", 2, 12, 12, stream, "BG"}, {0x010C0059, "RG", 2, 12, 12, stream, "GB"},
    {0x010C0055, "GB", 2, 12, 12, stream, "RG"}, {0x010C0053, "BG", 2, 12, 12, stream, "GR"},
    {0x010E0105, "GR", 2, 14, 14, stream, "BG"}, {0x010E0106, "RG", 2, 14, 14, stream, "GB"},
    {0x010E0107, "GB", 2, 14, 14, stream, "RG"}, {0x010E0108, "BG", 2, 14, 14, stream, "GR"},
    {0x010C0026, "GR", 2, 10, 12, legacy, "BG"}, {0x010C0027, "RG", 2, 10, 12, legacy, "GB"},
    {0x010C0028, "GB", 2, 10, 12, legacy, "RG"}, {0x010C0029, "BG", 2, 10, 12, legacy, "GR"},
    {0x010C002A, "GR", 2, 12, 12, legacy, "BG"}, {0x010C002B, "RG", 2, 12, 12, legacy, "GB"},
    {0x010C002C, "GB", 2, 12, 12, legacy, "RG"}, {0x010C002D, "BG", 2, 12, 12, legacy, "GR"},
    // RGB
    {0x02180014, "RGB", 1, 8, 8, stream}, {0x02180015, "BGR", 1, 8, 8, stream},
    {0x02200016, "RGBA", 1, 8, 8, stream}, {0x02200017, "BGRA", 1, 8, 8, stream},
    {0x02300018, "RGB", 1, 10, 16, stream}, {0x02300019, "BGR", 1, 10, 16, stream},
    {0x0230001A, "RGB", 1, 12, 16, stream}, {0x0230001B, "BGR", 1, 12, 16, stream},
    {0x0230005E, "RGB", 1, 14, 16, stream}, {0x0230004A, "BGR", 1, 14, 16, stream},
    {0x02300033, "RGB", 1, 16, 16, stream}, {0x0230004B, "BGR", 1, 16, 16, stream},
    {0x021E005C, "RGB", 1, 10, 10, stream}, {0x021E0048, "BGR", 1, 10, 10, stream},
    {0x0224005D, "RGB", 1, 12, 12, stream}, {0x02240049, "BGR", 1, 12, 12, stream},
    {0x02280060, "RGBA", 1, 10, 10, stream}, {0x0228004D, "BGRA", 1, 10, 10, stream},
    {0x02300062, "RGBA", 1, 12, 12, stream}, {0x0230004F, "BGRA", 1, 12, 12, stream},
    {0x02400064, "RGBA", 1, 16, 16, stream}, {0x02400051, "BGRA", 1, 16, 16, stream},
    {0x02100035, "RGB", 1, 6, 16, rgb565}, {0x02100036, "BGR", 1, 6, 16, rgb565},
    // YUV 4:4:4
    {0x02180020, "UYV", 1, 8, 8, stream}, {0x0218003A, "UYV", 1, 8, 8, stream}, {0x0218003D, "UYV", 1, 8, 8, stream},
    {0x02180040, "UYV", 1, 8, 8, stream}, {0x021800F4, "UYV", 1, 8, 8, stream}, {0x0218005B, "YUV", 1, 8, 8, stream},
    // YUV 4:2:2
    {0x0210001F, "UYVY", 2, 8, 8, stream}, {0x02100043, "UYVY", 2, 8, 8, stream}, {0x02100044, "UYVY", 2, 8, 8, stream},
    {0x02100045, "UYVY", 2, 8, 8, stream}, {0x021000FB, "UYVY", 2, 8, 8, stream},
    {0x02100032, "YUYV", 2, 8, 8, stream}, {0x0210003B, "YUYV", 2, 8, 8, stream}, {0x0210003E, "YUYV", 2, 8, 8, stream},
    {0x02100041, "YUYV", 2, 8, 8, stream}, {0x021000FA, "YUYV", 2, 8, 8, stream},
    {0x02140087, "YUYV", 2, 10, 10, stream}, {0x0214009A, "UYVY", 2, 10, 10, stream},
    {0x02180088, "YUYV", 2, 12, 12, stream}, {0x0218009C, "UYVY", 2, 12, 12, stream},
    {0x02200065, "YUYV", 2, 10, 16, stream}, {0x02200099, "UYVY", 2, 10, 16, stream},
    {0x02200066, "YUYV", 2, 12, 16, stream}, {0x0220009B, "UYVY", 2, 12, 16, stream},
    // YUV 4:1:1
    {0x020C001E, "UYYVYY", 4, 8, 8, stream}, {0x020C003C, "UYYVYY", 4, 8, 8, stream},
    {0x020C003F, "UYYVYY", 4, 8, 8, stream}, {0x020C0042, "UYYVYY", 4, 8, 8, stream},
    {0x020C00F9, "UYYVYY", 4, 8, 8, stream}, {0x020C005A, "YYUYYV", 4, 8, 8, stream},
});
// clang-format on

} // namespace

picture_format find_picture_format(uint32_t pfnc) noexcept {
    const auto found = std::ranges::find(known_formats, pfnc, &picture_format::pfnc);
    if (found != known_formats.end()) return *found;
    const auto bits = static_cast<uint8_t>(pfnc >> 16);
    return {pfnc, "Y", 1, bits, bits, stream};
}

bool has_known_layout(uint32_t pfnc) noexcept {
    return std::ranges::find(known_formats, pfnc, &picture_format::pfnc) != known_formats.end();
}

} // namespace gige
