// From a camera's format to the one that was asked for, through the image pipeline.
#pragma once

#include "conversion_way.h"

#include <img_pipe/transform_pipe.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

namespace cli {

// Converts frames of one format to another in up to two passes of the pipe, and by simple steps at both ends for what
// the pipe has no row for: the order of red and blue, samples of other widths.
class picture_converter {
public:
    // Throws std::runtime_error when there is no way, naming what there is.
    picture_converter(const picture_format& from, const picture_format& to);
    ~picture_converter();

    // Bytes of a picture before its conversion. Throws as convert() does.
    [[nodiscard]] size_t picture_size(uint32_t width, uint32_t height) const;
    // The converted picture; valid until the next call. Throws std::runtime_error for data that is too short and sizes
    // that the formats do not have.
    std::span<const std::byte> convert(std::span<const std::byte> data, uint32_t width, uint32_t height);

private:
    void choose_way();
    void apply(end_step step, std::span<const std::byte> in, size_t pixels, size_t line_pixels,
               std::vector<std::byte>& out);

    picture_format source, target;
    bool lines_end_on_bytes = true;
    conversion_way way;
    std::vector<std::byte> prepared, between, result, finished; // after each step
    std::unique_ptr<img_pipe::transform_pipe> pipes[2];         // one for each pass: each keeps its choice
};

} // namespace cli
