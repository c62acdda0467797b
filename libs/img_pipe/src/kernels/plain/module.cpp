#include "../module.h"

namespace img_pipe {

namespace {

kernel_fn convert(img_type destination, img_type source) {
    for (const kernel_lookup find : {&plain::find_sample_lines, &plain::find_colour_lines, &plain::find_polarisation,
                                     &plain::find_pwl, &plain::find_float_samples})
        if (const kernel_fn found = find(destination, source)) return found;
    return nullptr;
}

kernel_fn white_balance(img_type destination, img_type source) {
    const kernel_fn found = plain::find_sample_lines(destination, source);
    return found != nullptr ? found : plain::find_float_samples(destination, source);
}

kernel_fn tone(img_type destination, img_type source) {
    const kernel_fn found = plain::find_sample_lines(destination, source);
    return found != nullptr ? found : plain::find_colour_tone(destination, source);
}

} // namespace

const filter_module* plain_module() {
    // In the order of kernel_slot.
    static constexpr filter_module module{
        cpu::c,
        {&plain::find_demosaic, &plain::find_demosaic, &plain::find_sharpness, &plain::find_tonemapping, &white_balance,
         &tone, &plain::find_colour_matrix, nullptr, &plain::find_smooth, &plain::find_polarisation,
         &plain::find_polarisation, &plain::find_float_samples, &convert, nullptr, nullptr, nullptr},
        nullptr,
        0};
    return &module;
}

} // namespace img_pipe
