// The settings of a camera as a text that can be kept, compared and given back: one "Name=Value" or
// "Name[Selector=Choice]=Value" a line, in the document's order; '#' begins a comment line.
#pragma once

#include "setting.h"

#include <string>
#include <vector>

namespace cli {

// Every feature that the document marks as part of the settings (in one that marks none: every feature but those of the
// link) and that can be written and read now. Selectors are walked over all that they can be and put back; they are no
// settings themselves. `left_out` tells what is missing, and why: also a feature whose selectors have too many choices
// together. Of a camera that leaves a question unanswered nothing is kept: throws failure(cause::lost or
// cause::timeout).
[[nodiscard]] std::vector<setting> collect_settings(const node_map& nodes, std::vector<std::string>& left_out);

[[nodiscard]] std::string settings_text(const std::vector<setting>& settings, const std::vector<std::string>& comments);
// Throws failure(cause::arguments) with the line, or when the file cannot be read or has no setting.
[[nodiscard]] std::vector<setting> read_settings(const std::string& path);

struct difference {
    std::string what, saved, now; // `now` is the reason where the feature cannot be set or read
};
// Those whose values are others now; selectors are set and put back.
[[nodiscard]] std::vector<difference> compare_settings(const node_map& nodes, const std::vector<setting>& saved);
// Sets all in order, and once more those that did not take: what a later line allows may come after its user. Returns
// those that differ in the end.
[[nodiscard]] std::vector<difference> load_settings(const node_map& nodes, const std::vector<setting>& saved);

} // namespace cli
