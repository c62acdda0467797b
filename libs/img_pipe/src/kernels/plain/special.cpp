#include "../module.h"
#include "../polarisation.h"
#include "../pwl.h"
#include "../smooth.h"

namespace img_pipe::plain {

namespace {
struct steps {
    static constexpr auto load = &load_line;
    static constexpr auto store = &store_line;
    static constexpr auto split_pairs = &img_pipe::split_pairs;
    static constexpr auto find_stokes = &img_pipe::find_stokes;
    static constexpr auto mean_2x2 = &img_pipe::mean_2x2;
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

} // namespace img_pipe::plain
