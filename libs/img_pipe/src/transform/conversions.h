// The conversions of the tables. Each looks up all kernels it needs before it touches the destination; false when one
// is missing or memory is out. Views are valid and of one size.
#pragma once
#include "transform_state.h"

namespace img_pipe {

#define IMG_PIPE_CONVERT(name)                                                                                         \
    bool name(transform_pipe& pipe, const img_descriptor& destination, const img_descriptor& source,                   \
              const transform_params& params, transform_scratch* scratch)
#define IMG_PIPE_IN_PLACE(name)                                                                                        \
    bool name(transform_pipe& pipe, const img_descriptor& image, const transform_params& params,                       \
              transform_scratch* scratch)

IMG_PIPE_CONVERT(convert_mono);  // grey to grey, blue-green-red and planar YUV
IMG_PIPE_CONVERT(convert_bayer); // mosaic to colours and luma
IMG_PIPE_CONVERT(repack_bayer);  // mosaic to samples of another depth, companded ones to floats
IMG_PIPE_CONVERT(convert_bgr);   // blue-green-red among each other and to luma
IMG_PIPE_CONVERT(convert_yuv_to_bgr);
IMG_PIPE_CONVERT(convert_yuv_by_planes); // packed YUV to itself and to luma, through planes
IMG_PIPE_CONVERT(convert_to_luma);       // from blue-green-red and packed YUV
IMG_PIPE_CONVERT(convert_pwl_to_colours);
IMG_PIPE_CONVERT(convert_polarization);

IMG_PIPE_IN_PLACE(change_mono);
IMG_PIPE_IN_PLACE(change_bayer);
IMG_PIPE_IN_PLACE(change_yuv);

#undef IMG_PIPE_CONVERT
#undef IMG_PIPE_IN_PLACE

} // namespace img_pipe
