// Kernels by processor level: the mask, the record of one module of kernels, and the lookups over them.
// Everything here that a kernel object needs is plain data: kernel objects of a higher level must not share inline
// functions with the rest of the library.
#pragma once
#include <img_pipe/format.h>

#include <cstddef>
#include <cstdint>

namespace img_pipe {

// A mask of what a processor has. A bit means one thing on every processor: those below `neon` are x86-64's, `neon` is
// 64-bit ARM's, every one of which has it.
namespace cpu {
constexpr std::uint32_t c = 0x1, ssse3 = 0x2, sse41 = 0x4, sse42 = 0x8, avx = 0x10, avx2 = 0x20, fma = 0x40;
constexpr std::uint32_t avx512f = 0x100, avx512cd = 0x200, avx512bw = 0x400, avx512dq = 0x800, avx512vl = 0x1000;
constexpr std::uint32_t neon = 0x10000;
constexpr std::uint32_t level_sse = c | ssse3 | sse41 | sse42; // what the built-in vector module of x86-64 needs
constexpr std::uint32_t level_avx2 = level_sse | avx | avx2;   // what the loadable one needs
constexpr std::uint32_t level_neon = c | neon;                 // what the built-in vector module of 64-bit ARM needs
} // namespace cpu

// One run of a kernel over a strip of lines. `dst` and `src` are views of the strip alone; in place both are the same.
// A kernel that looks at neighbouring lines may read source lines from `first_line` lines above the strip to the end of
// the image (`image_height - first_line - src.height` lines below): they exist in memory at the same stride, unless the
// kernel runs in place, when lines outside the strip may be changing under it (see `halo`).
// Strips begin on multiples of 4 lines, so a mosaic's phase is that of the format in every strip.
// A kernel writes exactly the bytes of width x height of `dst` and reads no byte outside the image. Packed lines end
// with their line_stride bytes: bits that a last group lacks there count as 0, wherever the next line begins.
struct kernel_call {
    img_descriptor dst;
    img_descriptor src;
    std::int32_t first_line;
    std::int32_t image_height;
    const std::uint8_t* data_end; // one past the last readable byte of the source image
    const void* params;           // the slot's record of kernel_params.h, or null
    std::byte* scratch;           // of this strip's own, aligned to 64, at least kernel_scratch_bytes(width)
    // In place: the original lines next to the strip, saved before any strip began; two_d array of `halo_lines` lines
    // above, then `halo_lines` below, each `halo_pitch` bytes. Null when the source does not change.
    const std::byte* halo;
    std::int32_t halo_lines;
    std::size_t halo_pitch;
};

// Scratch a kernel gets per strip: 24 lines of `width` samples of 8 bytes, each with 128 samples of padding.
constexpr std::size_t kernel_scratch_bytes(std::int32_t width) {
    return 24 * (static_cast<std::size_t>(width) + 128) * 8;
}

using kernel_fn = void (*)(const kernel_call&);
using kernel_lookup = kernel_fn (*)(img_type destination, img_type source);

enum class kernel_slot : std::uint32_t {
    transform_by_matrix_to_dst = 1,   // params: demosaic_params
    transform_by_edge_to_dst,         // params: demosaic_params
    transform_sharpness_denoise,      // params: sharpness_params
    apply_tonemapping,                // params: tonemapping_params; in place, halo: the line above and the one below
    apply_whitebalance,               // in place on a mosaic; params: sample_params
    apply_brightness_contrast_params, // in place; params: sample_params
    apply_saturation_hue_params,      // in place; params: matrix_params
    apply_j003_pixelfix,
    apply_2x2_smooth_y8, // from Y800 to Y800, not in place
    transform_pol_fmt_to_visualization,
    transform_pol_accu_adi_rgb,
    transform_pwl_fccfloat_to_fcc8,
    convert_lines, // unpacking, packing and colour conversions line by line; params: sample_params or null
    reserved_14,
    reserved_15,
    reserved_16,
};
constexpr std::size_t kernel_slots = 16;

// A row of a kernel table; a zero row ends the table.
struct kernel_row {
    std::uint32_t destination;
    std::uint32_t source;
    kernel_fn function;
    std::int32_t destination_x, destination_y; // pixels and lines that the kernel works on at a time
    std::int32_t source_x, source_y;
};
static_assert(sizeof(kernel_row) == 32);

// The record of one module: the processor it needs, then 18 words.
struct filter_module {
    std::uint32_t required_cpu;
    kernel_lookup lookup[kernel_slots]; // by kernel_slot - 1; null where the module has no such family
    const kernel_row* table;            // not used, null: each lookup has tables of its own
    std::size_t table_rows;
};
static_assert(sizeof(filter_module) == 19 * 8);

// What a loadable module exports under this name: a function that gives the function that gives the record.
using filter_module_getter = const filter_module* (*)();
using filter_export = filter_module_getter (*)();
constexpr char filter_export_name[] = "pixkit_img_filter_get_function_address";

} // namespace img_pipe
