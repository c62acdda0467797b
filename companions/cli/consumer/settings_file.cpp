#include "settings_file.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <map>

namespace cli {

using namespace GenICam;

namespace {

// Puts selectors back to what they were, the last changed first.
class kept_selectors {
public:
    explicit kept_selectors(const node_map& of) : nodes(of) {}
    ~kept_selectors() {
        for (auto each = before.rbegin(); each != before.rend(); ++each) {
            try {
                set_from_text(require_node(nodes, each->first), each->second);
            } catch (const failure&) {
                // It was so before and cannot be so now: nothing better can be done.
            }
        }
    }
    kept_selectors(const kept_selectors&) = delete;
    kept_selectors& operator=(const kept_selectors&) = delete;

    void remember(const std::string& name) {
        if (std::ranges::find(before, name, [](const auto& each) { return each.first; }) != before.end()) return;
        std::string error;
        std::string now = value_text(require_node(nodes, name), error, access_flags::bypass_cache);
        if (error.empty()) before.emplace_back(name, std::move(now));
    }

private:
    const node_map& nodes;
    std::vector<std::pair<std::string, std::string>> before;
};

bool is_writable(const INode& node) { return access_text(node) == "RW"; }

// A selector's own place is a view, not a setting.
bool is_selector(INode& node) {
    const auto selects = [](auto* known) { return known != nullptr && !known->get_selected().empty(); };
    return selects(node_cast<IInteger>(&node)) || selects(node_cast<IEnumeration>(&node)) ||
           selects(node_cast<IBoolean>(&node));
}

// What a selector can be; nothing for one that cannot be walked.
std::vector<std::string> choices_of(INode& selector) {
    if (auto* choice = node_cast<IEnumeration>(&selector)) return entries_of(*choice);
    if (node_cast<IBoolean>(&selector) != nullptr) return {"false", "true"};
    std::vector<std::string> numbers;
    if (auto* integer = node_cast<IInteger>(&selector)) {
        constexpr uint64_t most = 4096; // more is a table, which has a feature for the whole
        const auto first = integer->get_min(0), last = integer->get_max(0), step = integer->get_inc(0);
        if (!first || !last || *last < *first) return {};
        // Unsigned, for a selector without limits has those of its type.
        const uint64_t span = static_cast<uint64_t>(*last) - static_cast<uint64_t>(*first);
        if (span > most) return {};
        const auto by = static_cast<uint64_t>(std::max<int64_t>(1, step.value_or(1)));
        for (uint64_t i = 0; i <= span / by; ++i)
            numbers.push_back(std::to_string(static_cast<int64_t>(static_cast<uint64_t>(*first) + i * by)));
    }
    return numbers;
}

// Of all selectors of a feature together: a minute, at a millisecond for each write to the camera.
constexpr size_t most_choices = 65536;

// The feature's values over all choices of its selectors from `at` on; those before it are set. False, at once, when
// there are more than `most` of them.
[[nodiscard]] bool walk(const node_map& nodes, INode& node, std::span<INode* const> selectors, size_t at, size_t most,
                        setting& so_far, std::vector<setting>& all, std::vector<std::string>& left_out) {
    if (at == selectors.size()) {
        if (is_writable(node)) { // with these choices
            std::string error;
            so_far.value = value_text(node, error);
            if (error.empty())
                all.push_back(so_far);
            else
                left_out.push_back(fmt::format("{}: {}", so_far.left_side(), error));
        }
        nodes.throw_if_unanswered();
        return true;
    }
    INode& selector = *selectors[at];
    if (!is_writable(selector)) // it stays where it is
        return walk(nodes, node, selectors, at + 1, most, so_far, all, left_out);
    const auto choices = choices_of(selector);
    if (choices.size() > most) return false;
    if (choices.empty())
        left_out.push_back(fmt::format("{}: {} has too many choices", node.get_name(), selector.get_name()));
    for (const std::string& choice : choices) {
        try {
            set_from_text(selector, choice);
        } catch (const failure& refused) {
            if (refused.why() == cause::lost) throw;
            nodes.throw_if_unanswered();
            continue; // not beside the choices of the other selectors
        }
        so_far.selectors.emplace_back(selector.get_name(), choice);
        if (!walk(nodes, node, selectors, at + 1, most / choices.size(), so_far, all, left_out)) return false;
        so_far.selectors.pop_back();
    }
    return true;
}

// What belongs to the connection and to the camera's place on the network, and must not come from a file.
bool is_of_the_link(std::string_view name) {
    constexpr std::array beginnings{"GevSC",
                                    "GevMC",
                                    "GevCCP",
                                    "GevPrimaryApplication",
                                    "GevPersistent",
                                    "GevCurrent",
                                    "GevHeartbeat",
                                    "DeviceLinkHeartbeat",
                                    "GevStreamChannelSelector"};
    return std::ranges::any_of(beginnings, [&](std::string_view each) { return name.starts_with(each); });
}

// Documents mark their settings; in one that marks none, all that can be written are.
bool is_setting(const INode& node, bool marked) {
    switch (node.node_type()) {
    case NodeType_t::Category:
    case NodeType_t::Command:
    case NodeType_t::Port:
    case NodeType_t::EnumEntry:
        return false;
    default:
        return marked ? node.is_streamable() : !is_of_the_link(node.get_name());
    }
}

// What the feature says now, or why it says nothing; true when that is the value saved.
bool is_as_saved(const node_map& nodes, const setting& saved, std::string& now) {
    INode& node = require_node(nodes, saved.name);
    std::string error;
    now = value_text(node, error, access_flags::bypass_cache);
    if (!error.empty()) {
        now = error;
        return false;
    }
    return is_same_value(node, saved.value, now);
}

} // namespace

std::vector<setting> collect_settings(const node_map& nodes, std::vector<std::string>& left_out) {
    std::vector<setting> all;
    kept_selectors kept{nodes};
    const bool marked = !nodes.document().get_streamable_nodes().empty();
    for (INode* node : nodes.document().get_root_features()) {
        if (!is_setting(*node, marked) || is_selector(*node)) continue;
        // Outer selectors first, as the document lists them.
        std::vector<INode*> selectors;
        for (INode* selector : node->get_selecting_nodes()) {
            for (INode* outer : selector->get_selecting_nodes())
                if (std::ranges::find(selectors, outer) == selectors.end()) selectors.push_back(outer);
            if (std::ranges::find(selectors, selector) == selectors.end()) selectors.push_back(selector);
        }
        for (const INode* selector : selectors) kept.remember(std::string{selector->get_name()});
        setting empty;
        empty.name = node->get_name();
        const size_t others = all.size(), others_left_out = left_out.size();
        if (walk(nodes, *node, selectors, 0, most_choices, empty, all, left_out)) continue;
        all.resize(others); // all or nothing
        left_out.resize(others_left_out);
        left_out.push_back(
            fmt::format("{}: its selectors have more than {} choices together", empty.name, most_choices));
    }
    nodes.throw_if_unanswered();
    return all;
}

std::string settings_text(const std::vector<setting>& settings, const std::vector<std::string>& comments) {
    std::string text;
    for (const std::string& comment : comments) text += fmt::format("# {}\n", comment);
    for (const setting& each : settings) {
        // A line ends where the value does: what holds a line break or is quoted like this goes escaped.
        std::string value;
        for (const char c : each.value) {
            if (c == '\\')
                value += "\\\\";
            else if (c == '\n')
                value += "\\n";
            else if (c == '\r')
                value += "\\r";
            else
                value += c;
        }
        text += fmt::format("{}={}\n", each.left_side(), value);
    }
    return text;
}

std::vector<setting> read_settings(const std::string& path) {
    std::ifstream file{path};
    std::vector<setting> settings;
    std::string line;
    for (int number = 1; std::getline(file, line); ++number) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        if (line.find_first_not_of(" \t") == line.npos || line.starts_with('#')) continue;
        try {
            settings.push_back(parse_setting(line));
        } catch (const failure& bad) {
            throw failure(bad.why(), fmt::format("'{}', line {}: {}", path, number, bad.what()));
        }
        std::string& value = settings.back().value;
        for (size_t at = value.find('\\'); at != value.npos; at = value.find('\\', at + 1)) {
            const char escaped = at + 1 < value.size() ? value[at + 1] : '\\';
            value.replace(at, 2, 1, escaped == 'n' ? '\n' : escaped == 'r' ? '\r' : escaped);
        }
    }
    // A folder opens and cannot be read.
    if (!file.is_open() || file.bad() || !file.eof())
        throw failure(cause::arguments, fmt::format("Cannot read '{}'.", path));
    // Of all settings none: the file was cut off, or it is another.
    if (settings.empty()) throw failure(cause::arguments, fmt::format("There is no setting in '{}'.", path));
    return settings;
}

std::vector<difference> compare_settings(const node_map& nodes, const std::vector<setting>& saved) {
    std::vector<difference> differences;
    kept_selectors kept{nodes};
    for (const setting& each : saved) {
        std::string now;
        try {
            for (const auto& [selector, choice] : each.selectors) kept.remember(selector);
            apply_selectors(nodes, each);
            if (is_as_saved(nodes, each, now)) continue;
        } catch (const failure& refused) {
            if (refused.why() == cause::lost) throw;
            now = refused.what();
        }
        differences.push_back({each.left_side(), each.value, now});
    }
    return differences;
}

std::vector<difference> load_settings(const node_map& nodes, const std::vector<setting>& saved) {
    kept_selectors kept{nodes};
    std::vector<const setting*> due;
    due.reserve(saved.size());
    for (const setting& each : saved) due.push_back(&each);
    std::map<const setting*, std::string> reasons;
    constexpr int passes = 2;
    for (int pass = 0; pass < passes && !due.empty(); ++pass) {
        std::vector<const setting*> again;
        for (const setting* each : due) {
            reasons.erase(each);
            try {
                for (const auto& [selector, choice] : each->selectors) kept.remember(selector);
                const std::string now = apply(nodes, *each);
                if (!is_same_value(require_node(nodes, each->name), each->value, now)) again.push_back(each);
            } catch (const failure& failed) {
                if (failed.why() == cause::lost) throw;
                reasons[each] = failed.what();
                again.push_back(each);
            }
        }
        due = std::move(again);
    }
    // All are looked at, for a later line may have changed what an earlier one set.
    std::vector<difference> differences = compare_settings(nodes, saved);
    for (difference& each : differences) {
        for (const auto& [which, reason] : reasons)
            if (which->left_side() == each.what) each.now = reason;
    }
    return differences;
}

} // namespace cli
