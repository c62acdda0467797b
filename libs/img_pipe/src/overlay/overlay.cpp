#include <img_pipe/overlay.h>

#include "../kernels/plain/sample_rows.h"
#include "font.h"

#include <algorithm>

namespace img_pipe {

namespace {

// Sets one pixel white or black; false for formats that cannot show one.
class pixel_writer {
public:
    explicit pixel_writer(const img_descriptor& view) : image(view), samples(layout_of(view.format)) {
        if (view.format == fcc("BGR3")) bytes_per_pixel = 3;
        if (view.format == fcc("BGR4")) bytes_per_pixel = 4;
        if (view.format == fcc("RGB6")) bytes_per_pixel = 8;
        if (view.format == fcc("YUY2")) group = {2, 4, {0, 2}, {1, 3}};
        if (view.format == fcc("UYVY")) group = {2, 4, {1, 3}, {0, 2}};
        if (view.format == fcc("Y411")) group = {4, 6, {1, 2, 4, 5}, {0, 3}};
        if (view.format == fcc("Y412")) group = {4, 6, {0, 1, 3, 4}, {2, 5}};
        if (view.format == fcc("IYU2")) group = {1, 3, {1}, {0, 2}};
        luma_plane = format_description(view.format).plane_count > 1 &&
                     format_description(view.format).planes[0].format == fcc("Y800");
    }

    bool able() const {
        return (samples.pack != packing::none && samples.pack != packing::real) || bytes_per_pixel != 0 ||
               group.pixels != 0 || luma_plane;
    }

    void put(std::int32_t x, std::int32_t y, bool white) {
        std::uint8_t* line = image.plane_data[0].data + static_cast<std::ptrdiff_t>(image.plane_data[0].stride) * y;
        const std::uint8_t level = white ? 0xFF : 0;
        if (samples.pack != packing::none) {
            const std::uint8_t* end = line + line_stride(image.format, image.width);
            store_sample(samples, line, end, static_cast<std::size_t>(x), white ? 0xFFFF : 0);
        } else if (bytes_per_pixel != 0) {
            const std::int32_t alpha = bytes_per_pixel == 3 ? 3 : bytes_per_pixel / 4 * 3;
            std::fill_n(line + x * bytes_per_pixel, alpha, level);
            std::fill_n(line + x * bytes_per_pixel + alpha, bytes_per_pixel - alpha, std::uint8_t{0xFF});
        } else if (group.pixels != 0) {
            const std::int32_t at = x / group.pixels * group.bytes;
            const std::int32_t end = line_stride(image.format, image.width);
            const auto set = [&](std::int32_t place, std::uint8_t value) {
                if (at + place < end) line[at + place] = value;
            };
            set(group.luma[x % group.pixels], level);
            set(group.chroma[0], 128);
            set(group.chroma[1], 128);
        } else {
            line[x] = level;
        }
    }

private:
    struct yuv_group {
        std::int32_t pixels, bytes;
        std::int32_t luma[4];
        std::int32_t chroma[2];
    };
    const img_descriptor& image;
    sample_layout samples;
    std::int32_t bytes_per_pixel = 0;
    yuv_group group{};
    bool luma_plane;
};

} // namespace

void draw_overlay_text(const img_descriptor& image, std::int32_t row, std::string_view text) {
    if (!is_valid(image) || row < 0) return;
    pixel_writer writer(image);
    if (!writer.able()) return;
    const std::int32_t scale = image.width >= 1280 ? 2 : 1;
    const std::int64_t top = std::int64_t{row} * overlay_cell_height * scale;
    if (top >= image.height) return;
    const auto first = static_cast<std::int32_t>(top);
    const std::int32_t lines = std::min(overlay_cell_height * scale, image.height - first);
    const auto columns = static_cast<std::int32_t>(
        std::min<std::int64_t>(image.width, static_cast<std::int64_t>(text.size()) * overlay_cell_width * scale));
    for (std::int32_t y = 0; y < lines; ++y)
        for (std::int32_t x = 0; x < columns; ++x) {
            const char c = text[static_cast<std::size_t>(x / scale / overlay_cell_width)];
            const int glyph = c < ' ' || c > '~' ? '?' - ' ' : c - ' ';
            const std::int32_t column = x / scale % overlay_cell_width, line = y / scale;
            const bool white = column < 5 && line < 7 && (overlay_font[glyph][column] >> line & 1) != 0;
            writer.put(x, first + y, white);
        }
}

} // namespace img_pipe
