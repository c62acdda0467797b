// The pieces of a frame that threads of the pool take, and the part of an image that a piece is.
#include <img_pipe/work_pool.h>

namespace img_pipe {

line_split split_lines(std::int32_t height, std::int32_t threads) {
    if (threads < 2 || height < 128) return {1, height};
    const std::int32_t start = height / threads < 64 ? height / 64 + 1 : threads;
    for (std::int32_t n = start; n >= 2; --n)
        if (const std::int32_t piece = height / n & ~3; piece >= 64) return {n, piece};
    return {1, height};
}

img_descriptor lines_of(const img_descriptor& view, std::int32_t first, std::int32_t count) {
    img_descriptor part = view;
    part.height = count;
    part.data_size -= static_cast<std::uint32_t>(static_cast<std::ptrdiff_t>(view.plane_data[0].stride) * first);
    const format_description d(view.format);
    for (std::int32_t plane = 0; plane < d.plane_count; ++plane)
        if (image_plane& p = part.plane_data[plane]; p.data != nullptr)
            p.data += static_cast<std::ptrdiff_t>(p.stride) * (first / d.planes[plane].vertical_subsampling);
    return part;
}

} // namespace img_pipe
