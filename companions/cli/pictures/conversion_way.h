// Pixel formats as people name them, and the way from one to another through the image pipeline.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
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

// What is done before and after the pipe for formats that it has no row for.
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

struct conversion_way {
    end_step before = end_step::none, after = end_step::none;
    std::vector<uint32_t> formats; // ids, one pass of the pipe between each two
};

// Nothing when there is no way. `lines_end_on_bytes`: of the source's packed lines, whose width decides that.
[[nodiscard]] std::optional<conversion_way> find_way(const picture_format& from, const picture_format& to,
                                                     bool lines_end_on_bytes);

// The other formats that there is a way to: PFNC names, and four characters of what the standard has no number for.
[[nodiscard]] std::vector<std::string> reachable_formats(const picture_format& from, bool lines_end_on_bytes);

} // namespace cli
