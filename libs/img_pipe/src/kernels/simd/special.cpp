#include "../polarisation.h"
#include "../pwl.h"
#include "../smooth.h"
#include "level.h"

#include "polarisation_rows-inl.h"
#include "smooth_rows-inl.h"

namespace img_pipe {
namespace HWY_NAMESPACE {

namespace {
struct steps {
    static constexpr auto load = &load_line_v;
    static constexpr auto store = &store_line_v;
    static constexpr auto split_pairs = &split_pairs_v;
    static constexpr auto find_stokes = &find_stokes_v;
    static constexpr auto mean_2x2 = &mean_2x2_v;
};
} // namespace

kernel_fn find_polarisation(img_type destination, img_type source) {
    return find_in(polarisation_rows<steps>, destination.format, source.format);
}
kernel_fn find_pwl(img_type destination, img_type source) {
    return find_in(pwl_rows<steps>, destination.format, source.format);
}
kernel_fn find_float_samples(img_type destination, img_type source) {
    return find_in(float_rows<steps>, destination.format, source.format);
}
kernel_fn find_smooth(img_type destination, img_type source) {
    return find_smooth_of<steps>(destination.format, source.format);
}

} // namespace HWY_NAMESPACE
} // namespace img_pipe
