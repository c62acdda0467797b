// From a camera's format to the one that was asked for, through the image pipeline.
#pragma once

#include <img_pipe/transform_pipe.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace cli {

// A format by its PFNC name, its four characters or its display name.
struct picture_format {
    std::string name;
    uint32_t pfnc = 0; // 0: the standard has no number for it
    uint32_t id = 0;   // in the pipeline's vocabulary; 0: it has none
    size_t bits = 0;   // of a pixel
    bool known() const { return pfnc != 0 || id != 0; }
};
[[nodiscard]] picture_format format_from_text(const std::string& text);
[[nodiscard]] picture_format format_from_pfnc(uint32_t pfnc);

// Converts frames of one format to another in up to two passes of the pipe, and by simple steps at both ends for what
// the pipe has no row for: the order of red and blue, samples of other widths.
class picture_converter {
public:
    // Throws std::runtime_error when there is no way, naming what there is.
    picture_converter(const picture_format& from, const picture_format& to);
    ~picture_converter();

    // The converted picture; valid until the next call. Throws std::runtime_error for data that is too short and sizes
    // that the formats do not have.
    std::span<const std::byte> convert(std::span<const std::byte> data, uint32_t width, uint32_t height);

private:
    enum class end_step {
        none,
        swap_red_and_blue,
        drop_alpha,
        swap_and_drop_alpha,
        wide_samples,
        double_bytes,
        uyv_to_yuy2,
        uyvy_to_yuy2
    };
    void choose_way();
    bool find_way(uint32_t from, uint32_t to);
    void apply(end_step step, std::span<const std::byte> in, size_t pixels, size_t line_pixels,
               std::vector<std::byte>& out);

    picture_format source, target;
    bool lines_end_on_bytes = true;
    end_step before = end_step::none, after = end_step::none;
    std::vector<uint32_t> way;                                  // format ids, the first that of the source
    std::vector<std::byte> prepared, between, result, finished; // after each step
    std::unique_ptr<img_pipe::transform_pipe> pipes[2];         // one for each pass: each keeps its choice
};

struct convert_options {
    std::string file, output; // output empty: the file with the format's name
    std::string from, to;
    uint32_t width = 0, height = 0;
    bool json = false;
};
int convert_file(const convert_options& options);

} // namespace cli
