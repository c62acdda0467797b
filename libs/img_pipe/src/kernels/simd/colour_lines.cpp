#include "../colour_lines.h"
#include "level.h"

#include "colour_steps-inl.h"

namespace img_pipe {
namespace HWY_NAMESPACE {

kernel_fn find_colour_lines(img_type destination, img_type source) {
    return find_colour_lines_of<steps>(destination.format, source.format);
}

} // namespace HWY_NAMESPACE
} // namespace img_pipe
