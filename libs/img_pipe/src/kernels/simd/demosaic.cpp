#include "../demosaic.h"
#include "level.h"

#include "adjust_rows-inl.h"
#include "finished_pixels-inl.h"

namespace img_pipe {
namespace HWY_NAMESPACE {

namespace {

template <class T>
struct rows {
    static constexpr auto load = &load_line_v;
    static constexpr auto correct = &correct_line_v;
    static constexpr auto map_sites = &map_sites_v;
    static constexpr auto split_line = &split_line_v<T>;
    static constexpr auto split_bytes = &split_bytes_v;
    static constexpr auto split_words = &split_words_v;
    static constexpr auto split_corrected = &split_corrected_v;
    static constexpr auto find_green = &find_green_v<T>;
    static constexpr auto colours = &colours_v<T>;
    static constexpr auto green_and_pixels = &green_and_pixels_v<T>;
    static void finished_pixels(const colour_finish<T>& f, const mosaic_lines<T>& in, std::int32_t width, three<T> line,
                                three8 bytes, const pixel_lines& out) {
        finished_pixels_v(f, in, width, line, bytes, out);
    }
    static constexpr auto finish = &finish_v;
    static constexpr auto fixed_matrix = &fixed_matrix_v<T>;
    static constexpr auto matrix16 = &apply_matrix_v<std::uint16_t>;
    static constexpr auto gamma = &gamma_words_v;
    static constexpr auto narrow = &narrow_v;
    static constexpr auto join8 = &join_bgr_v;
    static constexpr auto join16 = &join_bgr16_v;
    static constexpr auto luma8 = &bgr_to_luma_v;
    static constexpr auto bgr_to_yuv = &bgr_to_yuv_v;
    static constexpr auto halve = &halve_v;
};

} // namespace

kernel_fn find_demosaic(img_type destination, img_type source) {
    return find_demosaic_of<rows>(destination.format, source.format);
}

} // namespace HWY_NAMESPACE
} // namespace img_pipe
