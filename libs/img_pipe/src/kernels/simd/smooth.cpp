#include "../smooth.h"
#include "level.h"

#include "smooth_rows-inl.h"

namespace img_pipe {
namespace HWY_NAMESPACE {

namespace {
struct steps {
    static constexpr auto mean_2x2 = &mean_2x2_v;
};
} // namespace

kernel_fn find_smooth(img_type destination, img_type source) {
    return find_smooth_of<steps>(destination.format, source.format);
}

} // namespace HWY_NAMESPACE
} // namespace img_pipe
