#include "../colour_lines.h"
#include "../module.h"
#include "colour_steps.h"

namespace img_pipe::plain {

kernel_fn find_colour_lines(img_type destination, img_type source) {
    return find_colour_lines_of<steps>(destination.format, source.format);
}

} // namespace img_pipe::plain
