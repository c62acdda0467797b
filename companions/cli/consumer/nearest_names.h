// Names that a mistyped one may have meant.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace cli {

// At most three of the candidates, the nearest first: those that differ in few letters, then those that hold the text.
// Upper and lower case are alike.
[[nodiscard]] std::vector<std::string> nearest_names(std::string_view wanted,
                                                     const std::vector<std::string>& candidates);
// " Did you mean 'A', 'B'?", or nothing.
[[nodiscard]] std::string did_you_mean(std::string_view wanted, const std::vector<std::string>& candidates);

[[nodiscard]] std::string lower_case(std::string_view text);

} // namespace cli
