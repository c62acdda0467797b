#include "../tonemapping.h"
#include "../module.h"

namespace img_pipe::plain {

namespace {
struct steps {
    static constexpr auto load = &load_line;
    static constexpr auto store = &store_line;
    static constexpr auto index_bytes = &img_pipe::index_bytes;
    static constexpr auto index_words = &img_pipe::index_words;
    static constexpr auto map_sites = &img_pipe::map_sites;
    static constexpr auto look_up = &img_pipe::look_up;
    static constexpr auto map_words = &img_pipe::map_words;
};
} // namespace

kernel_fn find_tonemapping(img_type destination, img_type source) {
    return find_tonemapping_of<steps>(destination.format, source.format);
}

} // namespace img_pipe::plain
