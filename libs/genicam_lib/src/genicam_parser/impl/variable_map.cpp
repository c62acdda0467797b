#include "variable_map.h"

#include "log.h"
#include "text_values.h"

#include <GenICam/value_nodes.h>
#include <math_parser/execute.h>

#include <algorithm>

namespace GenICam::impl::converter {

using math_parser::compiled_formula_data;
using math_parser::tValue;

namespace {
constexpr std::string_view here = "GenICam::impl::converter::build_formula_name_lookup";
}

bool formula_name_lookup::contains(std::string_view name) const noexcept {
    return std::ranges::find(entries, name, &entry::name) != entries.end();
}

std::optional<math_parser::lookup_func_result_t> formula_name_lookup::find(std::string_view name) const {
    if (!is_swissknife && (name == "TO" || name == "FROM")) return argument_id;
    const auto found = std::ranges::find(entries, name, &entry::name);
    if (found == entries.end()) return std::nullopt;
    return found->meaning;
}

void build_formula_name_lookup(formula_name_lookup& lookup, const node_base_data& owner, const element_view& view,
                               bool is_integer) {
    view.for_each(tag::Constant, [&](pugi::xml_node element) {
        const std::string_view name = trimmed(element.attribute("Name").value());
        const std::string_view text = text_of(element);
        if (name.empty()) {
            log(level_fault, "{}, failed to parse Constant xml-node,because it has no 'Name' attribute content='{}'.",
                here, text);
            return;
        }
        std::optional<tValue> value;
        if (is_integer) {
            if (const auto number = parse_integer(text)) value = tValue{*number};
        } else if (const auto number = parse_float(text)) {
            value = tValue{*number};
        }
        if (!value) {
            log(level_fault, "{}, failed to parse Constant named='{}' content='{}'.", here, name, text);
            return;
        }
        lookup.add_constant(name, *value);
    });
    view.for_each(tag::pVariable, [&](pugi::xml_node element) {
        constexpr std::string_view separator = ".Entry.";
        const std::string_view name = trimmed(element.attribute("Name").value());
        if (name.empty()) {
            log(level_fault, "{}, failed to parse pVariable xml-node, because it has no 'Name' attribute.", here);
            return;
        }
        const std::size_t at = name.find(separator);
        if (at == std::string_view::npos || at + separator.size() == name.size()) return;
        const auto* enumeration = node_cast<IEnumeration>(owner.document().find_node(text_of(element)));
        if (enumeration == nullptr) {
            log(level_fault, "{}, did not find enumeration for pVariable with '.Entry' specifier.", here);
            return;
        }
        const IEnumEntry* entry = enumeration->find_entry_by_name(name.substr(at + separator.size()));
        if (entry == nullptr) {
            log(level_fault, "{}, did not find entry in enumeration for pVariable with '.Entry' specifier.", here);
            return;
        }
        const auto numeric = entry->get_numeric_value();
        if (!numeric) {
            lookup.add_constant(name, tValue{entry->get_value()});
        } else {
            lookup.add_constant(name,
                                is_integer ? tValue{math_parser::truncate_to_integer(*numeric)} : tValue{*numeric});
        }
    });
}

std::optional<compiled_formula_data> compile(std::string_view text, const formula_name_lookup& lookup) {
    auto program = math_parser::compile_formula(
        text, [&](std::string_view name) { return lookup.find(name); },
        [](std::string_view message) { log(level_fault, "{}", message); });
    if (!program) return std::nullopt;
    return std::move(*program);
}

std::optional<variable_map_impl::entry>
variable_map_impl::create_resulting_entry(const node_base_data& owner, INode& node, std::string_view variable_name) {
    const bool is_number = node.node_type() == NodeType_t::Integer || node.node_type() == NodeType_t::Float;
    // A bare ".Entry" names no entry and no value.
    if (variable_name.ends_with(".Entry")) return std::nullopt;
    if (variable_name.ends_with(".Min") || variable_name.ends_with(".Max")) {
        if (!is_number) {
            // Intended: both limits share the text.
            log(level_fault, "{}, invalid node type for pVariable with '.Min' specifier.", owner.get_node_name());
            return std::nullopt;
        }
        return entry{&node, variable_name.ends_with(".Min") ? getter::min : getter::max};
    }
    if (variable_name.ends_with(".Inc")) {
        if (!is_number) {
            log(level_fault, "{}, invalid node type for pVariable with '.Inc' specifier.", owner.get_node_name());
            return std::nullopt;
        }
        return entry{&node, getter::inc};
    }
    return entry{&node, getter::value};
}

void variable_map_impl::resolve_converter_references(formula_name_lookup& lookup, node_base_data& owner,
                                                     const element_view& view) {
    view.for_each(tag::pVariable, [&](pugi::xml_node element) {
        const std::string_view name = trimmed(element.attribute("Name").value());
        if (name.empty() || lookup.contains(name)) return;
        INode* node = owner.document().find_node(text_of(element));
        if (node == nullptr) return;
        const auto made = create_resulting_entry(owner, *node, name);
        if (!made) return;
        lookup.add_variable(name, first_variable_id + entries.size());
        entries.push_back(*made, owner.document().memory_resource());
        owner.add_source(node);
    });
    view.for_each(tag::Expression, [&](pugi::xml_node element) {
        const std::string_view name = trimmed(element.attribute("Name").value());
        if (name.empty()) {
            log(level_fault, "{}, failed to parse Expression xml-node, because it has no 'Name' attribute.",
                owner.get_node_name());
            return;
        }
        if (lookup.contains(name)) return;
        const std::string_view text = element.child_value();
        if (auto formula = compile(text, lookup)) {
            lookup.add_formula(name, std::move(*formula));
        } else {
            log(level_fault, "Failed to parse Constant named='{}' content='{}'.", name, text);
        }
    });
}

result<tValue> variable_map_impl::fetch(uint64_t id, tValue argument, unsigned flags) const {
    if (id == argument_id) return argument;
    const auto variables = entries.view();
    if (id < first_variable_id || id - first_variable_id >= variables.size()) return fail(genicam_errc::bad_formula);
    const entry& variable = variables[id - first_variable_id];
    auto value = [&]() -> result<tValue> {
        switch (variable.what) {
        case getter::min:
            return get_eval_limit<tValue>(*variable.node, limit::min, flags);
        case getter::max:
            return get_eval_limit<tValue>(*variable.node, limit::max, flags);
        case getter::inc:
            return get_eval_limit<tValue>(*variable.node, limit::inc, flags);
        case getter::value:
            break;
        }
        return get_eval_val<tValue>(*variable.node, flags);
    }();
    if (value) *value = coerced(*value);
    return value;
}

result<tValue> variable_map_impl::exec_formula(const compiled_formula_data& formula, unsigned flags,
                                               tValue argument) const {
    const auto outcome = math_parser::execute(formula, [&](uint64_t id) { return fetch(id, argument, flags); });
    if (!outcome) return fail(outcome.error().code);
    return *outcome;
}

} // namespace GenICam::impl::converter
