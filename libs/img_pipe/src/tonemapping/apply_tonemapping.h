// Tone mapping as a step in front of a conversion.
#pragma once
#include "../transform/transform_state.h"

#include <img_pipe/tonemapping.h>

namespace img_pipe {

namespace functions {
// Maps `source` into `image`, in place when both are the same memory: false when a kernel or memory is missing, and
// then nothing is written. The state's table is built when it was for other factors.
bool apply_tonemapping(transform_state& state, const img_descriptor& image, const img_descriptor& source,
                       const tonemapping_factors& factors);
} // namespace functions

namespace impl {

enum class tone_result { failed, unchanged, mapped };

struct transform_helper {
    // Measures `source`, or takes the fixed factors, and maps it into `image`. Measured factors go to `factors_out`.
    static tone_result apply_tonemapping(transform_state& state, const img_descriptor& image,
                                         const img_descriptor& source, const transform_params& params,
                                         transform_scratch* factors_out);
};

} // namespace impl

bool tone_mapping_is_due(const transform_params& params, const transform_scratch* scratch);

using convert_function = bool (*)(transform_pipe&, const img_descriptor& destination, const img_descriptor& source,
                                  const transform_params&, transform_scratch*);

// White balance and tone mapping on the samples, then the conversion with what is left of the parameters. In place the
// image itself is changed; otherwise a temporary one of the source's type, packed samples widened to 16 bits.
bool convert_tone_mapped(convert_function convert, transform_pipe& pipe, const img_descriptor& destination,
                         const img_descriptor& source, const transform_params& params, transform_scratch* scratch);

} // namespace img_pipe
