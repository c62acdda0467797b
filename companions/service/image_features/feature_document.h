// Adds the software functions to a camera's GenICam document, as features that consumers cannot tell from its own.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace image_features {

// What the camera has, which decides what is offered beside it.
struct camera_abilities {
    bool exposure = false;
    bool gain = false;
    bool iris = false;
    bool focus = false;
    bool colour = false;            // it has a format with colours
    bool balance_in_camera = false; // and white balance gains of its own
};

// What is larger is served as it is: parsed it would take many times its size.
inline constexpr std::size_t most_document_bytes = 16U << 20;

struct merge_result {
    std::optional<std::string> text; // none: serve the camera's own
    std::string reason;              // then
};

// A feature whose name the camera uses is left out, with those that mean nothing without it.
[[nodiscard]] merge_result merge_features(std::string_view document, const camera_abilities& camera);

} // namespace image_features
