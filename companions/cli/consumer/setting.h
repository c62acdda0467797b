// One "Name=Value" of a command line or a settings file, with the selectors that it may name:
// "Gain[GainSelector=Red]=3.5".
#pragma once

#include "node_map.h"

#include <string>
#include <utility>
#include <vector>

namespace cli {

struct setting {
    std::vector<std::pair<std::string, std::string>> selectors; // set first, in this order
    std::string name, value;
    [[nodiscard]] std::string left_side() const; // "Gain[GainSelector=Red]"
};

// Everything behind the first '=' outside the brackets is the value. Throws failure(cause::arguments).
[[nodiscard]] setting parse_setting(const std::string& text);

// Sets the selectors and the feature, then reads it back past the cache: what the device made of it. The text is empty
// for a feature that is never read. Throws failure(cause::feature), also when one that can be read is not, and
// failure(cause::lost).
[[nodiscard]] std::string apply(const node_map& nodes, const setting& wanted);
void apply_selectors(const node_map& nodes, const setting& wanted);
[[nodiscard]] std::string read_back(GenICam::INode& node);

} // namespace cli
