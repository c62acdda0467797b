// The level's steps, as the drivers of the kernels take them.
#pragma once
#include "adjust_rows-inl.h"
#include "straight_rows-inl.h"

namespace img_pipe {
namespace HWY_NAMESPACE {
namespace {

struct steps {
    static constexpr auto load = &load_line_v;
    static constexpr auto store = &store_line_v;
    static constexpr auto correct = &correct_line_v;
    static constexpr auto unpack_yuv = &unpack_yuv_v;
    static constexpr auto pack_yuv = &pack_yuv_v;
    static constexpr auto split8 = &split_bgr_v;
    static constexpr auto split16 = &split_bgr16_v;
    static constexpr auto join8 = &join_bgr_v;
    static constexpr auto join16 = &join_bgr16_v;
    static constexpr auto yuv_to_bgr = &yuv_to_bgr_v;
    static constexpr auto bgr_to_yuv = &bgr_to_yuv_v;
    static constexpr auto luma8 = &bgr_to_luma_v;
    static constexpr auto luma16 = &bgr16_to_luma_v;
    static constexpr auto narrow = &narrow_v;
    static constexpr auto widen = &widen_v;
    static constexpr auto pick8 = &pick_sites_v<std::uint8_t>;
    static constexpr auto pick16 = &pick_sites_v<std::uint16_t>;
    static constexpr auto halve = &halve_v;
    static constexpr auto matrix8 = &apply_matrix_v<std::uint8_t>;
    static constexpr auto matrix16 = &apply_matrix_v<std::uint16_t>;
    static constexpr auto find_detail = &find_detail_v;
    static constexpr auto add_detail8 = &add_detail8_v;
    static constexpr auto add_detail16 = &add_detail16_v;
    static constexpr auto yuv_to_bgr_straight = &yuv_to_bgr_straight_v;
    static constexpr auto grey_to_bgr_straight = &grey_to_bgr_straight_v;
    static constexpr auto bgr_to_luma_straight = &bgr_to_luma_straight_v;
    static constexpr auto luma_straight = &luma_straight_v;
};

} // namespace
} // namespace HWY_NAMESPACE
} // namespace img_pipe
