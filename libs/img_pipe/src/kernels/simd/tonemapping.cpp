#include "../tonemapping.h"
#include "level.h"

#include "byte_map-inl.h"
#include "tone_rows-inl.h"

namespace img_pipe {
namespace HWY_NAMESPACE {

namespace {
struct steps {
    static constexpr auto load = &load_line_v;
    static constexpr auto store = &store_line_v;
    static constexpr auto index_bytes = &index_bytes_v;
    static constexpr auto index_words = &index_words_v;
    static constexpr auto map_sites = &map_sites_v;
    static constexpr auto look_up = &look_up_v;
    static constexpr auto map_words = &map_words_v;
};
} // namespace

kernel_fn find_tonemapping(img_type destination, img_type source) {
    return find_tonemapping_of<steps>(destination.format, source.format);
}

} // namespace HWY_NAMESPACE
} // namespace img_pipe
