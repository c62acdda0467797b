#include "setting.h"

#include <fmt/format.h>

namespace cli {

std::string setting::left_side() const {
    std::string text = name;
    for (const auto& [selector, choice] : selectors)
        text += fmt::format("{}{}={}", &selector == &selectors.front().first ? "[" : ",", selector, choice);
    return selectors.empty() ? text : text + ']';
}

setting parse_setting(const std::string& text) {
    const auto bad = [&] {
        return failure{cause::arguments,
                       fmt::format("'{}' is no NAME=VALUE and no NAME[SELECTOR=CHOICE]=VALUE.", text)};
    };
    setting parsed;
    size_t at = text.find_first_of("=[");
    if (at == 0 || at == text.npos) throw bad();
    parsed.name = text.substr(0, at);
    if (text[at] == '[') {
        const size_t close = text.find(']', at);
        if (close == text.npos || close + 1 >= text.size() || text[close + 1] != '=') throw bad();
        std::string_view inside{text.data() + at + 1, close - at - 1};
        while (!inside.empty()) {
            const std::string_view part = inside.substr(0, inside.find(','));
            const size_t equals = part.find('=');
            if (equals == 0 || equals == part.npos) throw bad();
            parsed.selectors.emplace_back(part.substr(0, equals), part.substr(equals + 1));
            inside.remove_prefix(std::min(part.size() + 1, inside.size()));
        }
        at = close + 1;
    }
    parsed.value = text.substr(at + 1);
    return parsed;
}

void apply_selectors(const node_map& nodes, const setting& wanted) {
    for (const auto& [selector, choice] : wanted.selectors) set_from_text(require_node(nodes, selector), choice);
}

std::string read_back(GenICam::INode& node) {
    std::string error;
    std::string now = value_text(node, error, GenICam::access_flags::bypass_cache);
    if (!error.empty() && access_text(node).starts_with('R'))
        throw failure(cause::feature, fmt::format("Cannot read feature '{}' back: {}", node.get_name(), error));
    return now;
}

std::string apply(const node_map& nodes, const setting& wanted) {
    GenICam::INode& node = require_node(nodes, wanted.name);
    apply_selectors(nodes, wanted);
    set_from_text(node, wanted.value);
    return read_back(node);
}

} // namespace cli
