#include "../polarisation.h"
#include "../module.h"

namespace img_pipe::plain {

namespace {
struct steps {
    static constexpr auto load = &load_line;
    static constexpr auto split_pairs = &img_pipe::split_pairs;
    static constexpr auto find_stokes = &img_pipe::find_stokes;
};
} // namespace

kernel_fn find_polarisation(img_type destination, img_type source) {
    return find_in(polarisation_rows<steps>, destination.format, source.format);
}

} // namespace img_pipe::plain
