// Which conversion serves which formats.
#include "conversions.h"
#include "road.h"

#include <img_pipe/transform_pipe.h>

#include <algorithm>

namespace img_pipe {

namespace {

using capability_bytes = std::uint8_t[8];
constexpr capability_bytes all_but_first = {0, 1, 1, 1, 1, 1, 1, 1};
constexpr capability_bytes grey_alone = {0, 0, 0, 1, 1, 1, 1, 1};
constexpr capability_bytes repacking = {0, 1, 0, 0, 0, 0, 0, 0};
constexpr capability_bytes nothing = {};

// `work` is the widest format that a band of the conversion may have in between.
template <auto function, const capability_bytes& honoured, std::uint32_t work>
transform_plan make(const img_type&, const img_type& source) {
    transform_plan plan;
    plan.convert = function;
    std::ranges::copy(honoured, plan.capabilities);
    plan.scratch_size = road_memory(source.format, work, source.width);
    return plan;
}

template <auto function, const capability_bytes& honoured, std::uint32_t work>
transform_plan make_in_place(const img_type& image) {
    transform_plan plan = make<nullptr, honoured, work>(image, image);
    plan.convert_in_place = function;
    return plan;
}

constexpr auto mono = &make<&convert_mono, grey_alone, fcc("Y16 ")>;
constexpr auto bayer = &make<&convert_bayer, all_but_first, fcc("RGB6")>;
constexpr auto bayer_raw = &make<&repack_bayer, repacking, fcc("RAW2")>;
constexpr auto yuv_self = &make<&convert_yuv_by_planes, all_but_first, fcc("BGR4")>;
constexpr auto yuv_bgr = &make<&convert_yuv_to_bgr, all_but_first, fcc("BGR4")>;
constexpr auto bgr = &make<&convert_bgr, all_but_first, fcc("RGB6")>;
constexpr auto luma = &make<&convert_to_luma, all_but_first, fcc("RGB6")>;
constexpr auto pwl_float = &make<&repack_bayer, repacking, fcc("RGf0")>;
constexpr auto pwl_colours = &make<&convert_pwl_to_colours, all_but_first, fcc("RGB6")>;
constexpr auto polarization = &make<&convert_polarization, nothing, fcc("RGB6")>;

// clang-format off
#define F(id) fcc(id)
#define BAYER8 {F("BA81"), F("GBRG"), F("GRBG"), F("RGGB")}
#define BAYER16 {F("BG16"), F("GB16"), F("BA16"), F("RG16")}
#define BAYER10 {F("BG10"), F("GB10"), F("BA10"), F("RG10")}
#define BAYER12 {F("BG12"), F("GB12"), F("BA12"), F("RG12")}
#define BAYER10_STREAM {F("BGAp"), F("GBAp"), F("GRAp"), F("RGAp")}
#define BAYER10_MIPI {F("BGAP"), F("GBAP"), F("GRAP"), F("RGAP")}
#define BAYER12_STREAM {F("BGCp"), F("GBCp"), F("GRCp"), F("RGCp")}
#define BAYER12_PACKED {F("BGCP"), F("GBCP"), F("GRCP"), F("RGCP")}
#define BAYER12_MIPI {F("BGDP"), F("GBDP"), F("GRDP"), F("RGDP")}
#define MONO_PACKED F("Y10p"), F("Y10P"), F("Y12p"), F("Y12P"), F("Y1DP")
#define BG_10_12 {F("BG10"), F("BG12"), F("BGAp"), F("BGAP"), F("BGCp"), F("BGCP"), F("BGDP")}
#define GB_10_12 {F("GB10"), F("GB12"), F("GBAp"), F("GBAP"), F("GBCp"), F("GBCP"), F("GBDP")}
#define GR_10_12 {F("BA10"), F("BA12"), F("GRAp"), F("GRAP"), F("GRCp"), F("GRCP"), F("GRDP")}
#define RG_10_12 {F("RG10"), F("RG12"), F("RGAp"), F("RGAP"), F("RGCp"), F("RGCP"), F("RGDP")}
#define EIGHT_BITS {F("BGR4"), F("BGR3"), F("YV12"), F("I420")}

// A row for each depth and packing above 8 bits.
#define ROWS_OF_DEEP_BAYER(destinations, plan, name)                                                                   \
    {BAYER16, destinations, plan, 0, name}, {BAYER10, destinations, plan, 0, name},                                     \
    {BAYER12, destinations, plan, 0, name}, {BAYER10_STREAM, destinations, plan, 0, name},                              \
    {BAYER10_MIPI, destinations, plan, 0, name}, {BAYER12_STREAM, destinations, plan, 0, name},                         \
    {BAYER12_PACKED, destinations, plan, 0, name}, {BAYER12_MIPI, destinations, plan, 0, name}
#define LIST(...) {__VA_ARGS__}

constexpr conversion_row conversions[] = {
    {{F("Y16 ")}, {F("Y16 ")}, mono, 0, "transform_Mono8or16_to_Mono8or16"},
    {{F("Y800")}, {F("Y800")}, mono, 0, "transform_Mono8or16_to_Mono8or16"},
    {{F("Y16 "), F("Y10 "), F("Y12 "), MONO_PACKED}, {F("BGR4")}, mono, 0, "transform_MonoXX_to_BGRA32"},
    {{F("Y16 "), MONO_PACKED}, {F("Y800"), F("Y16 ")}, mono, 0, "transform_MonoXX_to_Mono8or16"},
    {{F("Y16 "), MONO_PACKED}, {F("I420"), F("YV12")}, mono, 0, "transform_MONOXX_to_YV12"},
    {{F("Y800")}, {F("BGR3"), F("BGR4")}, mono, 0, "transform_MONO8_to_BGRx"},
    {{F("Y800")}, {F("I420"), F("YV12")}, mono, 0, "transform_MONO8_to_YV12"},
    {BAYER8, EIGHT_BITS, bayer, 0, "transform_bayer8_to_bgr_helper"},
    ROWS_OF_DEEP_BAYER(LIST(F("RGB6")), bayer, "transform_by10or12or16_to_bgra64"),
    ROWS_OF_DEEP_BAYER(EIGHT_BITS, bayer, "transform_by10or12or16_to_bgra32"),
    {BG_10_12, {F("BG16")}, bayer_raw, 0, "transform_by1x_to_raw16"},
    {BG_10_12, {F("BA81")}, bayer_raw, 0, "transform_by1x_to_raw8"},
    {BG_10_12, {F("RAW1")}, bayer_raw, 0, "transform_by1x_to_raw8"},
    {GB_10_12, {F("GB16")}, bayer_raw, 0, "transform_by1x_to_raw16"},
    {GB_10_12, {F("GBRG")}, bayer_raw, 0, "transform_by1x_to_raw8"},
    {GB_10_12, {F("RAW1")}, bayer_raw, 0, "transform_by1x_to_raw8"},
    {GR_10_12, {F("BA16")}, bayer_raw, 0, "transform_by1x_to_raw16"},
    {GR_10_12, {F("GRBG")}, bayer_raw, 0, "transform_by1x_to_raw8"},
    {GR_10_12, {F("RAW1")}, bayer_raw, 0, "transform_by1x_to_raw8"},
    {RG_10_12, {F("RG16")}, bayer_raw, 0, "transform_by1x_to_raw16"},
    {RG_10_12, {F("RGGB")}, bayer_raw, 0, "transform_by1x_to_raw8"},
    {RG_10_12, {F("RAW1")}, bayer_raw, 0, "transform_by1x_to_raw8"},
    {{F("BA81")}, {F("BA81"), F("RAW1")}, bayer_raw, 0, "transform_by8_to_raw8"},
    {{F("GBRG")}, {F("GBRG"), F("RAW1")}, bayer_raw, 0, "transform_by8_to_raw8"},
    {{F("GRBG")}, {F("GRBG"), F("RAW1")}, bayer_raw, 0, "transform_by8_to_raw8"},
    {{F("RGGB")}, {F("RGGB"), F("RAW1")}, bayer_raw, 0, "transform_by8_to_raw8"},
    {{F("BG16")}, {F("BG16"), F("RAW2")}, bayer_raw, 0, "transform_by16_to_raw16"},
    {{F("GB16")}, {F("GB16"), F("RAW2")}, bayer_raw, 0, "transform_by16_to_raw16"},
    {{F("BA16")}, {F("BA16"), F("RAW2")}, bayer_raw, 0, "transform_by16_to_raw16"},
    {{F("RG16")}, {F("RG16"), F("RAW2")}, bayer_raw, 0, "transform_by16_to_raw16"},
    {BAYER10, {F("RAW2")}, bayer_raw, 0, "transform_by1x_to_raw16"},
    {BAYER12, {F("RAW2")}, bayer_raw, 0, "transform_by1x_to_raw16"},
    {BAYER10_STREAM, {F("RAW2")}, bayer_raw, 0, "transform_by1x_to_raw16"},
    {BAYER10_MIPI, {F("RAW2")}, bayer_raw, 0, "transform_by1x_to_raw16"},
    {BAYER12_STREAM, {F("RAW2")}, bayer_raw, 0, "transform_by1x_to_raw16"},
    {BAYER12_PACKED, {F("RAW2")}, bayer_raw, 0, "transform_by1x_to_raw16"},
    {BAYER12_MIPI, {F("RAW2")}, bayer_raw, 0, "transform_by1x_to_raw16"},
    {{F("YUY2")}, {F("YUY2")}, yuv_self, 0, "transform_yuv_to_yuv_via_yuv8p"},
    {{F("Y412")}, {F("Y412")}, yuv_self, 0, "transform_yuv_to_yuv_via_yuv8p"},
    {{F("Y411")}, {F("Y411")}, yuv_self, 0, "transform_yuv_to_yuv_via_yuv8p"},
    {{F("YUY2"), F("UYVY"), F("Y412"), F("Y411")}, {F("BGR3"), F("BGR4")}, yuv_bgr, 0, "transform_yuv_to_bgr"},
    {{F("PWL1"), F("PWL2"), F("PWL3")}, {F("RGf0")}, pwl_float, 0, "transform_pwl_to_float_image"},
    {{F("PWL1"), F("PWL2"), F("PWL3")}, {F("BGR4")}, pwl_colours, 0, "transform_pwl_bayer_to_x"},
    {{F("BGR4")}, {F("BGR4")}, bgr, row_hidden, "transform_bgr_to_bgr"},
    {{F("BGR3")}, {F("BGR3")}, bgr, row_hidden, "transform_bgr_to_bgr"},
    {{F("RGB6")}, {F("BGR4")}, bgr, 0, "transform_bgra64_to_bgrXX"},
    {{F("RGB6")}, {F("BGR3")}, bgr, 0, "transform_bgra64_to_bgrXX"},
    {{F("RGB6"), F("BGR4"), F("BGR3"), F("YUY2"), F("Y412"), F("Y411")}, {F("Y800")}, luma, 0, "transform_BGRXX_and_YUV_to_MONO8"},
    {BAYER8, {F("Y800")}, bayer, 0, "transform_Bayer8_to_MONO8"},
    ROWS_OF_DEEP_BAYER(LIST(F("Y800")), bayer, "transform_BayerXX_to_MONO8"),
    {{F("P180"), F("P280")}, {F("RAW1")}, polarization, 0, "transform_polarization_img_to_XX"},
    {{F("P180")}, {F("ADI1")}, polarization, 0, "transform_polarization_img_to_XX"},
    {{F("P280")}, {F("ADC1")}, polarization, 0, "transform_polarization_img_to_XX"},
    {{F("P180")}, {F("PPM1")}, polarization, 0, "transform_polarization_img_to_XX"},
    {{F("P280")}, {F("PPB1")}, polarization, 0, "transform_polarization_img_to_XX"},
    {{F("P180")}, {F("BGR4")}, polarization, 0, "transform_polarization_img_to_XX"},
    {{F("P280")}, {F("BGR4")}, polarization, 0, "transform_polarization_img_to_XX"},
    {{F("P116"), F("P1CP"), F("P1Cp")}, {F("RAW2")}, polarization, 0, "transform_polarization_img_to_XX"},
    {{F("P216"), F("P2CP"), F("P2Cp")}, {F("RAW2")}, polarization, 0, "transform_polarization_img_to_XX"},
    {{F("P116"), F("P1CP"), F("P1Cp")}, {F("ADI2")}, polarization, 0, "transform_polarization_img_to_XX"},
    {{F("P216"), F("P2CP"), F("P2Cp")}, {F("ADC2")}, polarization, 0, "transform_polarization_img_to_XX"},
    {{F("P116"), F("P1CP"), F("P1Cp")}, {F("PPM2")}, polarization, 0, "transform_polarization_img_to_XX"},
    {{F("P216"), F("P2CP"), F("P2Cp")}, {F("PPB2")}, polarization, 0, "transform_polarization_img_to_XX"},
};
static_assert(std::size(conversions) == 84);

constexpr auto bayer8_in_place = &make_in_place<&change_bayer, all_but_first, fcc("BGR3")>;
constexpr auto bayer_in_place = &make_in_place<&change_bayer, all_but_first, fcc("RGB6")>;
constexpr auto mono_in_place = &make_in_place<&change_mono, grey_alone, fcc("Y16 ")>;
constexpr auto yuv_in_place = &make_in_place<&change_yuv, all_but_first, fcc("YU8p")>;

constexpr in_place_row in_place[] = {
    {BAYER8, bayer8_in_place, "transform_unary_bayer8"},
    {BAYER16, bayer_in_place, "transform_unary_bayerXX"},
    {BAYER10, bayer_in_place, "transform_unary_bayerXX"},
    {BAYER12, bayer_in_place, "transform_unary_bayerXX"},
    {BAYER10_STREAM, bayer_in_place, "transform_unary_bayerXX"},
    {BAYER10_MIPI, bayer_in_place, "transform_unary_bayerXX"},
    {BAYER12_STREAM, bayer_in_place, "transform_unary_bayerXX"},
    {BAYER12_PACKED, bayer_in_place, "transform_unary_bayerXX"},
    {BAYER12_MIPI, bayer_in_place, "transform_unary_bayerXX"},
    {{F("Y800"), F("Y16 ")}, mono_in_place, "transform_unary_mono8or16"},
    {{F("Y10p"), F("Y10P")}, mono_in_place, "transform_unary_MonoXX"},
    {{F("Y12P"), F("Y12p"), F("Y1DP")}, mono_in_place, "transform_unary_MonoXX"},
    {{F("YUY2"), F("Y412"), F("Y411")}, yuv_in_place, "transform_unary_yuv"},
};
static_assert(std::size(in_place) == 13);
// clang-format on

} // namespace

std::span<const conversion_row> conversion_table() { return conversions; }
std::span<const in_place_row> in_place_table() { return in_place; }

std::vector<std::uint32_t> find_transform_outputs(std::uint32_t source) {
    std::vector<std::uint32_t> found;
    if (source == 0) found = {fcc("BGR4"), fcc("RGB6"), fcc("Y800"), fcc("Y16 ")};
    for (const conversion_row& row : conversions) {
        if ((row.flags & row_hidden) != 0) continue;
        if (source != 0 && std::ranges::find(row.sources, source) == std::end(row.sources)) continue;
        for (const std::uint32_t id : row.destinations)
            if (id != 0 && std::ranges::find(found, id) == found.end()) found.push_back(id);
    }
    return found;
}

} // namespace img_pipe
