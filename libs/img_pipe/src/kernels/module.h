// The parts that make up a module, one set per level. A level is a namespace: `plain`, or Highway's N_SSE4, N_AVX2
// and N_NEON.
// Each part answers lookups of its slots, and null for pairs it has no kernel for.
#pragma once
#include <img_pipe/filter_module.h>

#define IMG_PIPE_LOOKUPS                                                                                               \
    kernel_fn find_sample_lines(img_type destination, img_type source); /* mono, mosaic, raw: any packing to any */    \
    kernel_fn find_demosaic(img_type destination, img_type source);     /* mosaics to colours and luma */              \
    kernel_fn find_colour_tone(img_type destination, img_type source);  /* blue-green-red and YU8p */                  \
    kernel_fn find_colour_matrix(img_type destination, img_type source);                                               \
    kernel_fn find_sharpness(img_type destination, img_type source);   /* and Y800, Y16 */                             \
    kernel_fn find_tonemapping(img_type destination, img_type source); /* mono and mosaics */                          \
    kernel_fn find_polarisation(img_type destination, img_type source);                                                \
    kernel_fn find_pwl(img_type destination, img_type source);                                                         \
    kernel_fn find_float_samples(img_type destination,                                                                 \
                                 img_type source); /* float mosaics to integers and themselves */                      \
    kernel_fn find_smooth(img_type destination, img_type source);                                                      \
    kernel_fn find_colour_lines(img_type destination, img_type source); /* YUV, blue-green-red, mono to those */

namespace img_pipe {
namespace plain {
IMG_PIPE_LOOKUPS
}
const filter_module* plain_module();
const filter_module* vector_module(); // the one that is built in; null for a processor that has none
} // namespace img_pipe
