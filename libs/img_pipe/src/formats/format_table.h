// Every format of the vocabulary: id, display name, bits per pixel, pixels in a byte-aligned group, kind.
#pragma once
#include <img_pipe/format.h>

namespace img_pipe {

namespace kind {
constexpr unsigned none = 0, mono = 1, yuv = 2, fp = 4, hsv = 8, pol = 16, pwl = 32;
}

struct format_entry {
    std::uint32_t id;
    std::string_view name;
    std::int16_t bits;
    std::uint8_t group;
    std::uint8_t kinds;
};

inline constexpr format_entry format_entries[] = {
    {fcc("Y800"), "Mono8", 8, 1, kind::mono},
    {fcc("Y10 "), "Mono10", 16, 1, kind::mono},
    {fcc("Y12 "), "Mono12", 16, 1, kind::mono},
    {fcc("Y16 "), "Mono16", 16, 1, kind::mono},
    {fcc("Y10p"), "MONO10_PACKED", 10, 4, kind::mono},
    {fcc("Y10P"), "MONO10_MIPI_PACKED", 10, 4, kind::mono},
    {fcc("Y12p"), "MONO12_SPACKED", 12, 2, kind::mono},
    {fcc("Y12P"), "MONO12_PACKED", 12, 2, kind::mono},
    {fcc("Y1DP"), "MONO12_MIPI_PACKED", 12, 2, kind::mono},
    {fcc("MONf"), "mono float", 32, 1, kind::mono | kind::fp},
    {fcc("BA81"), "BGGR8", 8, 1, kind::none},
    {fcc("GBRG"), "GBRG8", 8, 1, kind::none},
    {fcc("GRBG"), "GRBG8", 8, 1, kind::none},
    {fcc("RGGB"), "RGGB8", 8, 1, kind::none},
    {fcc("BG10"), "BGGR10", 16, 1, kind::none},
    {fcc("GB10"), "GBRG10", 16, 1, kind::none},
    {fcc("BA10"), "GRBG10", 16, 1, kind::none},
    {fcc("RG10"), "RGGB10", 16, 1, kind::none},
    {fcc("BG12"), "BGGR12", 16, 1, kind::none},
    {fcc("GB12"), "GBRG12", 16, 1, kind::none},
    {fcc("BA12"), "GRBG12", 16, 1, kind::none},
    {fcc("RG12"), "RGGB12", 16, 1, kind::none},
    {fcc("BG16"), "BGGR16", 16, 1, kind::none},
    {fcc("GB16"), "GBRG16", 16, 1, kind::none},
    {fcc("BA16"), "GRBG16", 16, 1, kind::none},
    {fcc("RG16"), "RGGB16", 16, 1, kind::none},
    {fcc("BGAp"), "BGGR10_SPACKED", 10, 4, kind::none},
    {fcc("GBAp"), "GBRG10_SPACKED", 10, 4, kind::none},
    {fcc("GRAp"), "GRBG10_SPACKED", 10, 4, kind::none},
    {fcc("RGAp"), "RGGB10_SPACKED", 10, 4, kind::none},
    {fcc("BGAP"), "BGGR10_MIPI_PACKED", 10, 4, kind::none},
    {fcc("GBAP"), "GBRG10_MIPI_PACKED", 10, 4, kind::none},
    {fcc("GRAP"), "GRBG10_MIPI_PACKED", 10, 4, kind::none},
    {fcc("RGAP"), "RGGB10_MIPI_PACKED", 10, 4, kind::none},
    {fcc("BGCp"), "BGGR12_SPACKED", 12, 2, kind::none},
    {fcc("GBCp"), "GBRG12_SPACKED", 12, 2, kind::none},
    {fcc("GRCp"), "GRBG12_SPACKED", 12, 2, kind::none},
    {fcc("RGCp"), "RGGB12_SPACKED", 12, 2, kind::none},
    {fcc("BGCP"), "BGGR12_PACKED", 12, 2, kind::none},
    {fcc("GBCP"), "GBRG12_PACKED", 12, 2, kind::none},
    {fcc("GRCP"), "GRBG12_PACKED", 12, 2, kind::none},
    {fcc("RGCP"), "RGGB12_PACKED", 12, 2, kind::none},
    {fcc("BGDP"), "BGGR12_MIPI_PACKED", 12, 2, kind::none},
    {fcc("GBDP"), "GBRG12_MIPI_PACKED", 12, 2, kind::none},
    {fcc("GRDP"), "GRBG12_MIPI_PACKED", 12, 2, kind::none},
    {fcc("RGDP"), "RGGB12_MIPI_PACKED", 12, 2, kind::none},
    {fcc("BGf0"), "BGGRFloat", 32, 1, kind::fp},
    {fcc("GBf0"), "GBRGFloat", 32, 1, kind::fp},
    {fcc("BAf0"), "GRBGFloat", 32, 1, kind::fp},
    {fcc("RGf0"), "RGGBFloat", 32, 1, kind::fp},
    {fcc("BGR3"), "BGR24", 24, 1, kind::none},
    {fcc("BGR4"), "BGRA32", 32, 1, kind::none},
    {fcc("RGB6"), "BGRA64", 64, 1, kind::none},
    {fcc("HSV3"), "HSV24", 24, 1, kind::hsv},
    {fcc("HSV4"), "HSVx32", 32, 1, kind::hsv},
    {fcc("YUY2"), "YUY2", 16, 2, kind::yuv},
    {fcc("UYVY"), "UYVY", 16, 2, kind::yuv},
    {fcc("Y411"), "YCbCr411_8_CbYYCrYY", 12, 4, kind::yuv},
    {fcc("Y412"), "YCbCr411_8", 12, 4, kind::yuv},
    {fcc("IYU2"), "IYU2", 24, 1, kind::yuv},
    {fcc("I420"), "I420", 8, 1, kind::yuv},
    {fcc("YV12"), "YV12", 8, 1, kind::yuv},
    {fcc("NV12"), "NV12", 8, 1, kind::yuv},
    {fcc("YU8p"), "YUV8 planar", 24, 1, kind::yuv},
    {fcc("YUGp"), "YUV16 planar", 48, 1, kind::yuv},
    {fcc("YUfp"), "YUV32 planar", 96, 1, kind::yuv | kind::fp},
    {fcc("RAW1"), "Raw8", 8, 1, kind::mono},
    {fcc("RAW2"), "Raw16", 16, 1, kind::mono},
    {fcc("RAW3"), "Raw24", 24, 1, kind::mono},
    {fcc("RAW4"), "Raw32", 32, 1, kind::mono},
    {fcc("RAWf"), "RawFloat", 32, 1, kind::mono | kind::fp},
    {fcc("P180"), "Polarization Mono8 90 45 135 0", 8, 1, kind::pol},
    {fcc("P280"), "Polarization Bayer8 90 45 135 0", 8, 1, kind::pol},
    {fcc("P116"), "Polarization Mono16 90 45 135 0", 16, 1, kind::pol},
    {fcc("P216"), "Polarization Bayer16 90 45 135 0", 16, 1, kind::pol},
    {fcc("P1CP"), "Polarization Mono12 packed", 12, 2, kind::pol},
    {fcc("P2CP"), "Polarization Bayer12 packed", 12, 2, kind::pol},
    {fcc("P1Cp"), "Polarization Mono12 spacked", 12, 2, kind::pol},
    {fcc("P2Cp"), "Polarization Bayer12 spacked", 12, 2, kind::pol},
    {fcc("ADI1"), "Polarization ADI Mono8", 32, 1, kind::pol},
    {fcc("ADI2"), "Polarization ADI Mono16", 64, 1, kind::pol},
    {fcc("ADC1"), "Polarization ADI RGB8", 64, 1, kind::pol},
    {fcc("ADC2"), "Polarization ADI RGB16", 128, 1, kind::pol},
    {fcc("ADp1"), "Polarization ADI Mono8 planar", 8, 1, kind::pol},
    {fcc("ADp2"), "Polarization ADI Mono16 planar", 16, 1, kind::pol},
    {fcc("PPM1"), "Polarization Packed8", 32, 1, kind::pol},
    {fcc("PPM2"), "Polarization Packed16", 64, 1, kind::pol},
    {fcc("PPB1"), "Polarization Packed8 Bayer BG", 32, 1, kind::pol},
    {fcc("PPB2"), "Polarization Packed16 Bayer BG", 64, 1, kind::pol},
    {fcc("PWL1"), "PWL RGGB 12-bit mipi-packed", 12, 2, kind::pwl},
    {fcc("PWL2"), "PWL RGGB 12-bit packed", 12, 2, kind::pwl},
    {fcc("PWL3"), "PWL RGGB 12-bit spacked", 12, 2, kind::pwl},
    {fcc("MJPG"), "MJPG", 0, 1, kind::none},
};

// Two or more numbers may mean one format; the first one listed is what the format is called on the way back.
struct pfnc_pair {
    std::uint32_t pfnc;
    std::uint32_t id;
};

inline constexpr pfnc_pair pfnc_pairs[] = {
    {0x01080001, fcc("Y800")}, // Mono8
    {0x01100003, fcc("Y10 ")}, // Mono10
    {0x01100005, fcc("Y12 ")}, // Mono12
    {0x01100007, fcc("Y16 ")}, // Mono16
    {0x010A0046, fcc("Y10p")}, // Mono10p
    {0x010C0047, fcc("Y12p")}, // Mono12p
    {0x010C0006, fcc("Y12P")}, // Mono12Packed
    {0x0108000B, fcc("BA81")}, // BayerBG8
    {0x0108000A, fcc("GBRG")}, // BayerGB8
    {0x01080008, fcc("GRBG")}, // BayerGR8
    {0x01080009, fcc("RGGB")}, // BayerRG8
    {0x0110000F, fcc("BG10")}, // BayerBG10
    {0x0110000E, fcc("GB10")}, // BayerGB10
    {0x0110000C, fcc("BA10")}, // BayerGR10
    {0x0110000D, fcc("RG10")}, // BayerRG10
    {0x01100013, fcc("BG12")}, // BayerBG12
    {0x01100012, fcc("GB12")}, // BayerGB12
    {0x01100010, fcc("BA12")}, // BayerGR12
    {0x01100011, fcc("RG12")}, // BayerRG12
    {0x01100031, fcc("BG16")}, // BayerBG16
    {0x01100030, fcc("GB16")}, // BayerGB16
    {0x0110002E, fcc("BA16")}, // BayerGR16
    {0x0110002F, fcc("RG16")}, // BayerRG16
    {0x010A0052, fcc("BGAp")}, // BayerBG10p
    {0x010A0054, fcc("GBAp")}, // BayerGB10p
    {0x010A0056, fcc("GRAp")}, // BayerGR10p
    {0x010A0058, fcc("RGAp")}, // BayerRG10p
    {0x010C0053, fcc("BGCp")}, // BayerBG12p
    {0x010C0055, fcc("GBCp")}, // BayerGB12p
    {0x010C0057, fcc("GRCp")}, // BayerGR12p
    {0x010C0059, fcc("RGCp")}, // BayerRG12p
    {0x010C002D, fcc("BGCP")}, // BayerBG12Packed
    {0x010C002C, fcc("GBCP")}, // BayerGB12Packed
    {0x010C002A, fcc("GRCP")}, // BayerGR12Packed
    {0x010C002B, fcc("RGCP")}, // BayerRG12Packed
    {0x02180015, fcc("BGR3")}, // BGR8
    {0x02200017, fcc("BGR4")}, // BGRa8
    {0x02400051, fcc("RGB6")}, // BGRa16
    {0x0210003B, fcc("YUY2")}, // YCbCr422_8
    {0x02100032, fcc("YUY2")}, // YUV422_8
    {0x02100043, fcc("UYVY")}, // YCbCr422_8_CbYCrY
    {0x0210001F, fcc("UYVY")}, // YUV422_8_UYVY
    {0x020C003C, fcc("Y411")}, // YCbCr411_8_CbYYCrYY
    {0x020C001E, fcc("Y411")}, // YUV411_8_UYYVYY
    {0x020C005A, fcc("Y412")}, // YCbCr411_8
    {0x0218003A, fcc("IYU2")}, // YCbCr8_CbYCr
    {0x02180020, fcc("IYU2")}, // YUV8_UYV
    {0x020C0112, fcc("NV12")}, // YCbCr420_8_YY_CbCr_Semiplanar
    {0x01080116, fcc("RAW1")}, // Data8
    {0x01100118, fcc("RAW2")}, // Data16
    {0x0120011A, fcc("RAW4")}, // Data32
    {0x0120011C, fcc("RAWf")}, // Data32f
};

} // namespace img_pipe
