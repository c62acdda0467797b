#include "nearest_names.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <numeric>
#include <utility>

namespace cli {

namespace {

// Letters to insert, drop or change.
size_t edit_distance(std::string_view a, std::string_view b) {
    std::vector<size_t> row(b.size() + 1);
    std::iota(row.begin(), row.end(), size_t{0});
    for (size_t i = 0; i < a.size(); ++i) {
        size_t diagonal = std::exchange(row[0], i + 1);
        for (size_t j = 0; j < b.size(); ++j) {
            const size_t changed = diagonal + (a[i] == b[j] ? 0 : 1);
            diagonal = std::exchange(row[j + 1], std::min({changed, row[j] + 1, row[j + 1] + 1}));
        }
    }
    return row.back();
}

} // namespace

std::string lower_case(std::string_view text) {
    std::string lower{text};
    for (char& c : lower)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    return lower;
}

std::vector<std::string> nearest_names(std::string_view wanted, const std::vector<std::string>& candidates) {
    constexpr size_t most = 3;
    const std::string low = lower_case(wanted);
    const size_t tolerated =
        low.size() < 4 ? 1 : std::max<size_t>(2, low.size() / 4); // two letters that changed places
    std::vector<std::pair<size_t, std::string>> ranked;
    for (const std::string& candidate : candidates) {
        const std::string other = lower_case(candidate);
        const size_t distance = edit_distance(low, other);
        if (distance <= tolerated)
            ranked.emplace_back(distance, candidate);
        else if (low.size() >= 3 && other.find(low) != other.npos)
            ranked.emplace_back(tolerated + distance, candidate);
    }
    std::ranges::stable_sort(ranked, {}, [](const auto& each) { return each.first; });
    std::vector<std::string> names;
    for (const auto& [distance, name] : ranked)
        if (names.size() < most && std::ranges::find(names, name) == names.end()) names.push_back(name);
    return names;
}

std::string did_you_mean(std::string_view wanted, const std::vector<std::string>& candidates) {
    const auto names = nearest_names(wanted, candidates);
    return names.empty() ? "" : fmt::format(" Did you mean '{}'?", fmt::join(names, "', '"));
}

} // namespace cli
