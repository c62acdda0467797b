#include "variable_map.h"

#include "log.h"
#include "text_values.h"

#include <GenICam/value_nodes.h>
#include <math_parser/execute.h>

#include <fmt/format.h>

#include <algorithm>

namespace GenICam::impl::converter {

using math_parser::compiled_formula_data;
using math_parser::tValue;

namespace {
constexpr std::string_view here = "GenICam::impl::converter::build_formula_name_lookup";
}

std::optional<math_parser::lookup_func_result_t> formula_name_lookup::find(std::string_view name) const {
    if (!is_swissknife && (name == "TO" || name == "FROM")) return argument_id;
    const auto found = names.find(name);
    if (!found) return std::nullopt;
    return meanings[*found];
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

std::optional<compiled_formula_data> compile(node_base_data& owner, std::string_view text,
                                             const formula_name_lookup& lookup) {
    math_parser::compile_report found{math_parser::parse_status::output_full};
    if (std::size_t& left = owner.document().formula_tokens_left(); left != 0) {
        math_parser::compile_report* const report = &found;
        auto program = math_parser::compile_formula(
            text, [&](std::string_view name) { return lookup.find(name); },
            [](std::string_view message) { log(level_fault, "{}", message); }, report, math_parser::dialect::documents);
        left -= std::min(left, found.size);
        if (program) return std::move(*program);
    }
    owner.document().note_fault(owner, fmt::format("Formula '{}' of '{}', character {}: {}", trimmed(text),
                                                   owner.get_node_name(), found.offset + 1,
                                                   math_parser::status_text(found.status)));
    return std::nullopt;
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
    key_positions<entry, entry_hash> present; // as entries
    view.for_each(tag::pVariable, [&](pugi::xml_node element) {
        const std::string_view name = trimmed(element.attribute("Name").value());
        if (name.empty() || lookup.contains(name)) return;
        INode* node = owner.document().find_node(text_of(element));
        if (node == nullptr) return;
        const auto made = create_resulting_entry(owner, *node, name);
        if (!made) return;
        // Two names of one value share its place, so that it is fetched once.
        const auto same = present.find(*made);
        lookup.add_variable(name, first_variable_id + same.value_or(entries.size()));
        if (same) return;
        present.add(*made);
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
        if (auto formula = compile(owner, text, lookup)) {
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
    if (!eval_scope::take(formula.size())) return eval_scope::error();
    // Each variable is fetched once per run, however often it stands in the formula.
    constexpr uint64_t kept_variables = 16;
    union storage {
        storage() noexcept {}
        tValue values[kept_variables];
    } kept;
    uint32_t is_kept = 0;
    std::vector<std::optional<tValue>> more; // of a formula with more variables
    const auto fetch_once = [&](uint64_t id) -> result<tValue> {
        const uint64_t at = id - first_variable_id;
        if (at < kept_variables) {
            if (is_kept >> at & 1) return kept.values[at];
            auto value = fetch(id, argument, flags);
            if (value) {
                kept.values[at] = *value;
                is_kept |= 1U << at;
            }
            return value;
        }
        if (at >= entries.size()) return fetch(id, argument, flags);
        if (more.empty()) {
            if (!eval_scope::take(entries.size())) return eval_scope::error();
            more.resize(entries.size());
        }
        if (!more[at]) {
            auto value = fetch(id, argument, flags);
            if (!value) return value;
            more[at] = *value;
        }
        return *more[at];
    };
    const auto outcome = math_parser::execute(formula, fetch_once);
    if (!outcome) return fail(outcome.error().code);
    return *outcome;
}

} // namespace GenICam::impl::converter
