// The camera's GenICam document.
#pragma once

#include <camera_sim/camera.h>

#include <string>

namespace camera_sim {

[[nodiscard]] std::string make_document(const camera_options& options);

// The published name of a pixel format the document lists, "Format_<hex>" for others.
[[nodiscard]] std::string pixel_format_name(uint32_t pfnc);

// The value of a listed name or of a number ("0x01080001"); 0 when it is neither.
[[nodiscard]] uint32_t pixel_format_value(const std::string& text);

} // namespace camera_sim
