#include "value_eval_indexed.h"

#include "log.h"
#include "text_values.h"

namespace GenICam::impl {

namespace {

template <class T>
T number_of(math_parser::tValue value) noexcept {
    if constexpr (std::is_integral_v<T>) {
        return value.to_integer();
    } else {
        return value.to_double();
    }
}

} // namespace

template <class T>
bool value_eval_indexed<T>::resolve_references(node_base_data& owner, const element_view& view) {
    const auto standard = resolve_link_or_value_from_contents(owner, view[tag::ValueDefault], view[tag::pValueDefault]);
    if (!standard) {
        log(level_fault, "{}. Invalid or no 'pValueDefault'/'ValueDefault' element.", owner.get_node_name());
        return false;
    }
    fallback.node = standard->node;
    fallback.value = number_of<T>(standard->value);
    owner.add_source(standard->node);

    auto& memory = owner.document().memory_resource();
    view.for_each(tag::pValueIndexed, [&](pugi::xml_node element) {
        const auto index = parse_integer(element.attribute("Index").value());
        if (!index) {
            log(level_fault, "{}. Failed to parse 'Index' attribute of 'pValueIndexed' element.",
                owner.get_node_name());
            return;
        }
        INode* node = owner.document().find_node(text_of(element));
        if (node == nullptr) {
            log(level_fault, "{}. Failed to parse resolve contents of 'pValueIndexed' element.", owner.get_node_name());
            return;
        }
        owner.add_source(node);
        entries.push_back({*index, node, {}}, memory);
    });
    view.for_each(tag::ValueIndexed, [&](pugi::xml_node element) {
        const auto index = parse_integer(element.attribute("Index").value());
        if (!index) {
            log(level_fault, "{}. Failed to parse 'Index' attribute of 'ValueIndexed' element.", owner.get_node_name());
            return;
        }
        const auto value = parse_value(text_of(element));
        if (!value) {
            log(level_fault, "{}. Failed to parse resolve contents of 'ValueIndexed' element.", owner.get_node_name());
            return;
        }
        entries.push_back({*index, nullptr, number_of<T>(*value)}, memory);
    });
    return true;
}

template class value_eval_indexed<int64_t>;
template class value_eval_indexed<double>;

} // namespace GenICam::impl
