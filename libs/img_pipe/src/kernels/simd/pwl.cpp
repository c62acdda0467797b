#include "../pwl.h"
#include "level.h"

#include "sample_rows-inl.h"

namespace img_pipe {
namespace HWY_NAMESPACE {

namespace {
struct steps {
    static constexpr auto load = &load_line_v;
};
} // namespace

kernel_fn find_pwl(img_type destination, img_type source) {
    return find_in(pwl_rows<steps>, destination.format, source.format);
}

} // namespace HWY_NAMESPACE
} // namespace img_pipe
