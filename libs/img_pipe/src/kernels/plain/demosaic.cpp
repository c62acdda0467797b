#include "../demosaic.h"
#include "../module.h"

namespace img_pipe::plain {

namespace {
struct rows {
    static constexpr auto load = &load_line;
    static constexpr auto correct = &correct_line;
    static constexpr auto split_line = &img_pipe::split_line;
    static constexpr auto split_bytes = &img_pipe::split_bytes;
    static constexpr auto candidates = &img_pipe::candidates;
    static constexpr auto steps = &img_pipe::steps;
    static constexpr auto choose = &img_pipe::choose;
    static constexpr auto colours = &img_pipe::colours;
    static constexpr auto apply_fixed_matrix = &img_pipe::apply_fixed_matrix;
    static constexpr auto store_bgr3 = &img_pipe::store_bgr3;
    static constexpr auto store_bgr4 = &img_pipe::store_bgr4;
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

} // namespace img_pipe::plain
