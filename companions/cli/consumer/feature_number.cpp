#include "feature_number.h"

namespace cli {

using namespace GenICam;

std::optional<double> feature_number(const node_map& nodes, const std::string& name) {
    INode* node = nodes.document().find_node(name);
    if (auto* real = node_cast<IFloat>(node)) {
        const auto value = real->get_val(access_flags::bypass_cache);
        return value ? std::optional{*value} : std::nullopt;
    }
    if (auto* integer = node_cast<IInteger>(node)) {
        const auto value = integer->get_val(access_flags::bypass_cache);
        return value ? std::optional{static_cast<double>(*value)} : std::nullopt;
    }
    return std::nullopt;
}

std::string feature_text(const node_map& nodes, const std::string& name) {
    INode* node = nodes.document().find_node(name);
    std::string error;
    try {
        return node == nullptr ? std::string{} : value_text(*node, error, access_flags::bypass_cache);
    } catch (const failure&) { // the device has gone
        return {};
    }
}

} // namespace cli
