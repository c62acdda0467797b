#include "../float_samples.h"
#include "../module.h"

namespace img_pipe::plain {

namespace {
struct steps {
    static constexpr auto store = &store_line;
};
} // namespace

kernel_fn find_float_samples(img_type destination, img_type source) {
    return find_in(float_rows<steps>, destination.format, source.format);
}

} // namespace img_pipe::plain
