#include "../colour_adjust.h"
#include "../sharpen.h"
#include "colour_steps-inl.h"
#include "level.h"

namespace img_pipe {
namespace HWY_NAMESPACE {

kernel_fn find_colour_tone(img_type destination, img_type source) {
    return is_adjustable(destination.format, source.format) ? &adjust_lines<steps>::tone : nullptr;
}
kernel_fn find_colour_matrix(img_type destination, img_type source) {
    return is_adjustable(destination.format, source.format) ? &adjust_lines<steps>::matrix : nullptr;
}
kernel_fn find_sharpness(img_type destination, img_type source) {
    return is_sharpenable(destination.format, source.format) ? &sharpen_lines<steps>::run : nullptr;
}

} // namespace HWY_NAMESPACE
} // namespace img_pipe
