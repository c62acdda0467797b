#include "../demosaic.h"
#include "level.h"

#include "correct_rows-inl.h"
#include "demosaic_rows-inl.h"
#include "sample_rows-inl.h"

namespace img_pipe {
namespace HWY_NAMESPACE {

namespace {
struct rows {
    static constexpr auto load = &load_line_v;
    static constexpr auto correct = &correct_line_v;
    static constexpr auto split_line = &split_line_v;
    static constexpr auto split_bytes = &split_bytes_v;
    static constexpr auto candidates = &candidates_v;
    static constexpr auto steps = &steps_v;
    static constexpr auto choose = &choose_v;
    static constexpr auto colours = &colours_v;
    static constexpr auto store_bgr3 = &store_bgr3_v;
    static constexpr auto store_bgr4 = &store_bgr4_v;
    // As they are: the compiler's own vectors, on every level the same.
    static constexpr auto apply_fixed_matrix = &img_pipe::apply_fixed_matrix;
    static constexpr auto store_luma = &img_pipe::store_luma;
    static constexpr auto chroma = &img_pipe::chroma;
    static constexpr auto store_chroma = &img_pipe::store_chroma;
    static constexpr auto widen = &img_pipe::widen;
    static constexpr auto apply_matrix = &img_pipe::apply_matrix;
    static constexpr auto store_rgb6 = &img_pipe::store_rgb6;
};
} // namespace

kernel_fn find_demosaic(img_type destination, img_type source) {
    return find_demosaic_of<rows>(destination.format, source.format);
}

} // namespace HWY_NAMESPACE
} // namespace img_pipe
