#include "../smooth.h"
#include "../module.h"

namespace img_pipe::plain {

namespace {
struct steps {
    static constexpr auto mean_2x2 = &img_pipe::mean_2x2;
};
} // namespace

kernel_fn find_smooth(img_type destination, img_type source) {
    return find_smooth_of<steps>(destination.format, source.format);
}

} // namespace img_pipe::plain
