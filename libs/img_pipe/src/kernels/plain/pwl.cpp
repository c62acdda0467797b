#include "../pwl.h"
#include "../module.h"

namespace img_pipe::plain {

namespace {
struct steps {
    static constexpr auto load = &load_line;
};
} // namespace

kernel_fn find_pwl(img_type destination, img_type source) {
    return find_in(pwl_rows<steps>, destination.format, source.format);
}

} // namespace img_pipe::plain
