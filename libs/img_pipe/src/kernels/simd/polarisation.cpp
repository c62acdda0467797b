#include "../polarisation.h"
#include "level.h"

#include "polarisation_rows-inl.h"

namespace img_pipe {
namespace HWY_NAMESPACE {

namespace {
struct steps {
    static constexpr auto load = &load_line_v;
    static constexpr auto split_pairs = &split_pairs_v;
    static constexpr auto find_stokes = &find_stokes_v;
};
} // namespace

kernel_fn find_polarisation(img_type destination, img_type source) {
    return find_in(polarisation_rows<steps>, destination.format, source.format);
}

} // namespace HWY_NAMESPACE
} // namespace img_pipe
