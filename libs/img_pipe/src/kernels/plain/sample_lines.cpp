#include "../sample_lines.h"
#include "../module.h"

namespace img_pipe::plain {

namespace {
struct rows {
    static constexpr auto load = &load_line;
    static constexpr auto store = &store_line;
    static constexpr auto map_sites = &img_pipe::map_sites;
    static constexpr auto correct = &correct_line;
    static constexpr auto correct_packed = &img_pipe::correct_packed;
};
} // namespace

kernel_fn find_sample_lines(img_type destination, img_type source) {
    return find_sample_lines_of<rows>(destination.format, source.format);
}

} // namespace img_pipe::plain
