// A feature's number, for what is told where a camera has it.
#pragma once

#include "node_map.h"

#include <optional>
#include <string>

namespace cli {

// Past the cache. Nothing where the feature is not there, is no number or cannot be read.
[[nodiscard]] std::optional<double> feature_number(const node_map& nodes, const std::string& name);
// The value as text, empty in the same cases.
[[nodiscard]] std::string feature_text(const node_map& nodes, const std::string& name);

} // namespace cli
