#include "../float_samples.h"
#include "level.h"

#include "sample_rows-inl.h"

namespace img_pipe {
namespace HWY_NAMESPACE {

namespace {
struct steps {
    static constexpr auto store = &store_line_v;
};
} // namespace

kernel_fn find_float_samples(img_type destination, img_type source) {
    return find_in(float_rows<steps>, destination.format, source.format);
}

} // namespace HWY_NAMESPACE
} // namespace img_pipe
