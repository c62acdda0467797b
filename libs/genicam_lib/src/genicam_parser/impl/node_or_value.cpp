#include "node_or_value.h"

#include "log.h"
#include "text_values.h"

namespace GenICam::impl {

std::optional<link_or_value> resolve_link_or_value_from_contents(const node_base_data& owner,
                                                                 pugi::xml_node value_element,
                                                                 pugi::xml_node link_element) {
    if (value_element && link_element)
        log(level_fault, "{}. XML element contains link and constant value nodes.", owner.get_node_name());
    if (link_element) {
        INode* node = owner.document().find_node(text_of(link_element));
        if (node == nullptr) {
            log(level_fault, "{}. Failed to resolve link to '{}'.", owner.get_node_name(), text_of(link_element));
            return std::nullopt;
        }
        return link_or_value{node, {}};
    }
    if (!value_element) return std::nullopt;
    const auto value = parse_value(text_of(value_element));
    if (!value) {
        log(level_fault, "{}. Failed to parse '{}' as tValue.", owner.get_node_name(), text_of(value_element));
        return std::nullopt;
    }
    return link_or_value{nullptr, *value};
}

} // namespace GenICam::impl
