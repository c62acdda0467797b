// Text written into an image: fixed-width characters, white on black, in the samples of the image's own format.
#pragma once
#include <img_pipe/format.h>

#include <string_view>

namespace img_pipe {

constexpr std::int32_t overlay_cell_width = 6;
constexpr std::int32_t overlay_cell_height = 9;

// Writes `text` (ASCII; anything else shows as '?') at text row `row` from the left edge; what does not fit is cut.
// Images from 1280 pixels' width on get characters of twice the size. Does nothing to formats without integer samples
// (compressed, float) and to views that are not valid.
void draw_overlay_text(const img_descriptor& image, std::int32_t row, std::string_view text);

} // namespace img_pipe
