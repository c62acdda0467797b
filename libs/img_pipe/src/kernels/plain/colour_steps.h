// The plain level's steps, as the drivers of the kernels take them.
#pragma once
#include "adjust_rows.h"
#include "sample_rows.h"

namespace img_pipe::plain {
namespace {

struct steps {
    static constexpr auto load = &load_line;
    static constexpr auto store = &store_line;
    static constexpr auto correct = &correct_line;
    static constexpr auto unpack_yuv = &img_pipe::unpack_yuv;
    static constexpr auto pack_yuv = &img_pipe::pack_yuv;
    static constexpr auto split8 = &split_bgr;
    static constexpr auto split16 = &split_bgr16;
    static constexpr auto join8 = &join_bgr;
    static constexpr auto join16 = &join_bgr16;
    static constexpr auto yuv_to_bgr = &img_pipe::yuv_to_bgr;
    static constexpr auto bgr_to_yuv = &img_pipe::bgr_to_yuv;
    static constexpr auto luma8 = &bgr_to_luma;
    static constexpr auto luma16 = &bgr16_to_luma;
    static constexpr auto narrow = &img_pipe::narrow;
    static constexpr auto widen = &img_pipe::widen;
    static constexpr auto pick8 = &pick_sites<std::uint8_t>;
    static constexpr auto pick16 = &pick_sites<std::uint16_t>;
    static constexpr auto halve = &img_pipe::halve;
    static constexpr auto matrix8 = &apply_matrix<std::uint8_t>;
    static constexpr auto matrix16 = &apply_matrix<std::uint16_t>;
    static constexpr auto find_detail = &img_pipe::find_detail;
    static constexpr auto add_detail8 = &img_pipe::add_detail8;
    static constexpr auto add_detail16 = &img_pipe::add_detail16;
    // The reference goes by lines of samples always.
    static std::int32_t yuv_to_bgr_straight(const yuv_group&, const std::uint8_t*, std::int32_t, std::int32_t,
                                            std::uint8_t*) {
        return 0;
    }
    static std::int32_t grey_to_bgr_straight(const std::uint8_t*, std::int32_t, std::int32_t, std::uint8_t*) {
        return 0;
    }
    static std::int32_t bgr_to_luma_straight(std::int32_t, const std::uint8_t*, std::int32_t, std::uint8_t*) {
        return 0;
    }
    static std::int32_t luma_straight(const yuv_group&, const std::uint8_t*, std::int32_t, std::uint8_t*) { return 0; }
};

} // namespace
} // namespace img_pipe::plain
