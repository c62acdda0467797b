// What every vector kernel file includes: the level that this object is compiled for. The files of this folder are
// compiled once for each; HWY_NAMESPACE is N_SSE4, N_AVX2 or N_NEON.
#pragma once
#include "../module.h"

#include <hwy/highway.h>

#if HWY_TARGET != HWY_SSE4 && HWY_TARGET != HWY_AVX2 && HWY_TARGET != HWY_NEON
#error "compile with HWY_BASELINE_TARGETS set to one level"
#endif

namespace img_pipe {
namespace HWY_NAMESPACE {
IMG_PIPE_LOOKUPS
} // namespace HWY_NAMESPACE
} // namespace img_pipe
