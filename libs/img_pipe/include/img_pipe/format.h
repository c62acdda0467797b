// The pipeline's own format vocabulary. A format id is four characters in a 32-bit value, the first in the low byte; 0
// is no format. All functions are pure and thread-safe.
#pragma once
#include <cstdint>
#include <string_view>

namespace img_pipe {

constexpr std::uint32_t fcc(const char (&text)[5]) {
    std::uint32_t value = 0;
    for (int i = 0; i < 4; ++i) value |= static_cast<std::uint32_t>(static_cast<unsigned char>(text[i])) << (8 * i);
    return value;
}

struct image_plane {
    std::uint8_t* data;
    std::int32_t stride; // bytes from one line to the next; may exceed what a line needs
};

// A view of one image; it does not own the memory. All zero: no image.
struct img_descriptor {
    std::uint32_t format;
    std::int32_t width;      // pixels
    std::int32_t height;     // lines
    std::uint32_t data_size; // bytes of the whole image from plane_data[0].data on
    std::uint32_t flags;     // 0 for a frame from the stream
    image_plane plane_data[4];
};

constexpr std::uint32_t view_read_only = 1; // flag: the pipe must not write to the source

struct img_type {
    std::uint32_t format;
    std::int32_t width;
    std::int32_t height;
    std::uint32_t data_size;
    friend constexpr bool operator==(const img_type&, const img_type&) = default;
};

constexpr img_type type_of(const img_descriptor& view) {
    return {view.format, view.width, view.height, view.data_size};
}

struct plane_description {
    std::uint32_t format;
    std::int32_t bits; // per sample of the plane
    std::int32_t horizontal_subsampling;
    std::int32_t vertical_subsampling;
};

// What is known of a format; an unknown id gives bits_per_pixel -1.
struct format_description {
    explicit format_description(std::uint32_t format);

    std::int32_t bits_per_pixel = -1;
    std::uint8_t is_mono = 0; // one sample per pixel, no colour
    std::uint8_t is_yuv = 0;
    std::uint8_t is_float = 0; // samples are 32-bit floats
    std::uint8_t is_hsv = 0;
    std::uint8_t is_polarization = 0;
    std::uint8_t is_pwl = 0;       // piecewise-linear companded
    std::int32_t pixel_group = 1;  // pixels in one byte-aligned group
    std::int32_t line_group = 1;   // 2 for 4:2:0
    std::int32_t plane_count = 1;  // 1 to 4
    plane_description planes[4]{}; // the first plane_count count
};

std::uint32_t format_at(std::uint32_t place); // the vocabulary in its order; 0 past its end

std::uint32_t fcc_from_pfnc(std::uint32_t pixel_format);
std::uint32_t pfnc_from_fcc(std::uint32_t format);
std::string_view pfnc_name(std::uint32_t pixel_format); // "UnknownPixelFormat" when there is none
std::uint32_t pfnc_from_name(std::string_view name);    // 0 when there is none
std::string_view fcc_name(std::uint32_t format);        // display name; empty when unknown

// The id whose four characters (blanks at the end may be left out), display name, PFNC name or maker's name `text` is;
// 0 when there is none.
std::uint32_t fcc_from_text(std::string_view text);

// Bytes of one line of a plane, rounded down to whole bytes: a packed line may share its last byte with the next.
// 0 for sizes below 1 and for a result that does not fit.
std::int32_t line_stride(std::uint32_t format, std::int32_t width, std::int32_t plane = 0);
// Whether every line of such an image begins on a byte. Samples that are packed without a gap run on into the next line
// where they do not, which no view with a stride in bytes describes.
bool lines_end_on_bytes(std::uint32_t format, std::int32_t width);
// Bytes of the image with lines of line_stride; 0 for unknown formats, sizes below 1 and results beyond 32 bits.
std::uint32_t image_size(std::uint32_t format, std::int32_t width, std::int32_t height);
// A view with strides by line_stride and planes one behind the other. Empty (all zero) when the format has no id, the
// size is not positive, the pointer is null or `data_size` is less than the image and its planes need.
img_descriptor make_view(void* data, std::uint32_t data_size, std::uint32_t format, std::int32_t width,
                         std::int32_t height);
// The same for lines that each begin on a byte of their own and have `padding` bytes behind them; the last line's may
// be missing. Empty, too, for formats of several planes: nobody says which lines are meant.
img_descriptor make_padded_view(void* data, std::uint32_t data_size, std::uint32_t format, std::int32_t width,
                                std::int32_t height, std::uint32_t padding);
// Whether the view's planes are non-null, its strides at least a line, and its size and format known.
bool is_valid(const img_descriptor& view);

} // namespace img_pipe
