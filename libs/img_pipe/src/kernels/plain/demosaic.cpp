#include "../demosaic.h"
#include "../module.h"

namespace img_pipe::plain {

namespace {

template <class T>
void green_and_pixels(const green_step<T>& below, const mosaic_lines<T>& in, std::int32_t width, three<T> line,
                      pixel_lines out) {
    find_green(below);
    colours(in, 0, (width + 1) / 2, line);
    join_pixels(out.channels, three<const T>{{line.line[0], line.line[1], line.line[2]}}, 0, width, out.to);
}

template <class T>
void finished_pixels(const colour_finish<T>& f, const mosaic_lines<T>& in, std::int32_t width, three<T> line,
                     three8 bytes, const pixel_lines& out) {
    colours(in, 0, (width + 1) / 2, line);
    finish_line(f, 0, width, line, bytes);
    join_bgr(out.channels, {{bytes.line[0], bytes.line[1], bytes.line[2]}}, 0, width, out.to);
}

void finish() {}

template <class T>
struct rows {
    static constexpr auto load = &load_line;
    static constexpr auto correct = &correct_line;
    static constexpr auto map_sites = &img_pipe::map_sites;
    static constexpr auto split_line = &img_pipe::split_line<T>;
    static constexpr auto split_bytes = &img_pipe::split_bytes;
    static constexpr auto split_words = &img_pipe::split_words;
    static constexpr auto split_corrected = &img_pipe::split_corrected;
    static constexpr auto find_green = &img_pipe::find_green<T>;
    static constexpr auto colours = &img_pipe::colours<T>;
    static constexpr auto green_and_pixels = &plain::green_and_pixels<T>;
    static constexpr auto finished_pixels = &plain::finished_pixels<T>;
    static constexpr auto finish = &plain::finish;
    static void fixed_matrix(const img_pipe::fixed_matrix<T>& f, std::int32_t x, std::int32_t n, three<T> lines) {
        apply_fixed_matrix(f, x, n, lines);
    }
    static constexpr auto matrix16 = &apply_matrix<std::uint16_t>;
    static constexpr auto gamma = &gamma_words;
    static constexpr auto narrow = &img_pipe::narrow;
    static constexpr auto join8 = &join_bgr;
    static constexpr auto join16 = &join_bgr16;
    static constexpr auto luma8 = &bgr_to_luma;
    static constexpr auto bgr_to_yuv = &img_pipe::bgr_to_yuv;
    static constexpr auto halve = &img_pipe::halve;
};

} // namespace

kernel_fn find_demosaic(img_type destination, img_type source) {
    return find_demosaic_of<rows>(destination.format, source.format);
}

} // namespace img_pipe::plain
