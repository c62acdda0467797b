#include "../module.h"

namespace img_pipe::plain {

kernel_fn find_colour_lines(img_type, img_type) { return nullptr; }

} // namespace img_pipe::plain
