#include "../sample_lines.h"
#include "level.h"

#include "byte_map-inl.h"
#include "correct_packed-inl.h"

namespace img_pipe {
namespace HWY_NAMESPACE {

namespace {
struct rows {
    static constexpr auto load = &load_line_v;
    static constexpr auto store = &store_line_v;
    static constexpr auto map_sites = &map_sites_v;
    static constexpr auto correct = &correct_line_v;
    static constexpr auto correct_packed = &correct_packed_v;
};
} // namespace

kernel_fn find_sample_lines(img_type destination, img_type source) {
    return find_sample_lines_of<rows>(destination.format, source.format);
}

} // namespace HWY_NAMESPACE
} // namespace img_pipe
