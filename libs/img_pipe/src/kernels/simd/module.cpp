#include "level.h"

namespace img_pipe {
namespace HWY_NAMESPACE {

namespace {

kernel_fn convert(img_type destination, img_type source) {
    for (const kernel_lookup find :
         {&find_sample_lines, &find_colour_lines, &find_polarisation, &find_pwl, &find_float_samples})
        if (const kernel_fn found = find(destination, source)) return found;
    return nullptr;
}

kernel_fn white_balance(img_type destination, img_type source) {
    const kernel_fn found = find_sample_lines(destination, source);
    return found != nullptr ? found : find_float_samples(destination, source);
}

kernel_fn tone(img_type destination, img_type source) {
    const kernel_fn found = find_sample_lines(destination, source);
    return found != nullptr ? found : find_colour_tone(destination, source);
}

} // namespace

extern const filter_module module_record;
// In the order of kernel_slot.
constexpr filter_module module_record {
#if HWY_TARGET == HWY_AVX2
    cpu::level_avx2,
#elif HWY_TARGET == HWY_NEON
    cpu::level_neon,
#else
    cpu::level_sse,
#endif
        {&find_demosaic,
         &find_demosaic,
         &find_sharpness,
         &find_tonemapping,
         &white_balance,
         &tone,
         &find_colour_matrix,
         nullptr,
         &find_smooth,
         &find_polarisation,
         &find_polarisation,
         &find_float_samples,
         &convert,
         nullptr,
         nullptr,
         nullptr},
        nullptr, 0
};

} // namespace HWY_NAMESPACE

#if HWY_TARGET == HWY_AVX2
namespace {
const filter_module* get_module() { return &HWY_NAMESPACE::module_record; }
} // namespace

extern "C" __attribute__((visibility("default"))) filter_module_getter pixkit_img_filter_get_function_address();
extern "C" filter_module_getter pixkit_img_filter_get_function_address() { return &get_module; }
#else
const filter_module* vector_module() { return &HWY_NAMESPACE::module_record; }
#endif

} // namespace img_pipe
