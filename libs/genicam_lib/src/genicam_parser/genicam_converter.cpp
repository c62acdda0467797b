#include "genicam_converter.h"

#include "impl/log.h"

#include <cmath>
#include <limits>

namespace GenICam::impl {

using math_parser::tValue;

namespace {

template <class T>
T number_of(tValue value) noexcept {
    if constexpr (std::is_integral_v<T>) {
        return value.to_integer();
    } else {
        return value.to_double();
    }
}

// On integers if both are, else on doubles.
bool is_less(tValue a, tValue b) noexcept {
    return a.is_integer() && b.is_integer() ? a.to_integer() < b.to_integer() : a.to_double() < b.to_double();
}

// The limit of a number without limits.
bool is_extreme(tValue value) noexcept {
    if (value.is_integer()) {
        using limits = std::numeric_limits<int64_t>;
        return value.to_integer() == limits::min() || value.to_integer() == limits::max();
    }
    return !(std::fabs(value.to_double()) < std::numeric_limits<double>::max());
}

} // namespace

namespace converter {

void converter_impl::resolve_converter_references(node_base_data& owner, const element_view& view, bool is_integer) {
    const std::string_view name = owner.get_node_name();
    INode* found = owner.document().find_node(text_of(view[tag::pValue]));
    if (found == nullptr) {
        log(level_fault, "Converter ('{}'). Failed due to missing pValue element.", name);
        return;
    }
    const std::string_view from = view[tag::FormulaFrom].child_value();
    if (trimmed(from).empty()) {
        log(level_fault, "Converter '{}'. Failed due to empty FormulaFrom expression.", name);
        return;
    }
    const std::string_view to = view[tag::FormulaTo].child_value();
    if (trimmed(to).empty()) {
        log(level_fault, "Converter '{}'. Failed due to empty FormulaTo expression.", name);
        return;
    }
    value_node = found;
    owner.add_source(found);
    formula_name_lookup lookup{false};
    build_formula_name_lookup(lookup, owner, view, is_integer);
    variables.resolve_converter_references(lookup, owner, view);
    const auto compile_into = [&](math_parser::compiled_formula_data& formula, std::string_view text) {
        if (auto program = compile(owner, text, lookup)) {
            formula = std::move(*program);
        } else {
            log(level_fault, "Converter ('{}'). failed to evaluate '{}'.", name, text);
        }
    };
    compile_into(formula_from, from);
    compile_into(formula_to, to);
}

result<tValue> converter_impl::read(unsigned flags) const {
    if (value_node == nullptr || formula_from.empty()) return fail(genicam_errc::not_implemented);
    const auto value = get_eval_val<tValue>(*value_node, flags);
    if (!value) return value;
    return variables.exec_formula(formula_from, flags, variables.coerced(*value));
}

std::error_code converter_impl::write(tValue value, unsigned flags) const {
    if (!is_writable()) return genicam_errc::not_implemented;
    const auto converted = variables.exec_formula(formula_to, flags, value);
    if (!converted) return converted.error();
    if (std::isnan(converted->to_double())) return genicam_errc::value_out_of_range; // an integer would be 0
    if (value_node->node_type() != NodeType_t::Integer || (flags & access_flags::no_range_check))
        return set_eval_val<tValue>(*value_node, *converted, flags);
    return set_eval_val<int64_t>(*value_node, within_target(converted->to_integer(), value, flags), flags);
}

int64_t converter_impl::within_target(int64_t wanted, tValue value, unsigned flags) const {
    if (formula_from.empty()) return wanted;
    const auto lowest = get_eval_limit<int64_t>(*value_node, limit::min, flags);
    const auto highest = get_eval_limit<int64_t>(*value_node, limit::max, flags);
    const bool is_below = lowest && wanted < *lowest;
    if (!is_below && !(highest && wanted > *highest)) return wanted;
    // How far from the value the node is with this in the target.
    const auto distance = [&](int64_t raw) {
        const auto shown = variables.exec_formula(formula_from, flags, variables.coerced(raw));
        if (!shown || (value.is_integer() && shown->to_integer() != value.to_integer())) return HUGE_VAL;
        return value.is_integer() ? 0 : std::fabs(shown->to_double() - value.to_double());
    };
    const int64_t bound = is_below ? *lowest : *highest;
    const double off = distance(bound);
    if (!(off < limit_tolerance)) return wanted;
    // The low bytes, as a register over all its values reads them again.
    const uint64_t values =
        lowest && highest ? static_cast<uint64_t>(*highest) - static_cast<uint64_t>(*lowest) + 1 : 0;
    if (values == 0) return bound;
    const uint64_t above = (static_cast<uint64_t>(wanted) - static_cast<uint64_t>(*lowest)) % values;
    const int64_t kept = static_cast<int64_t>(static_cast<uint64_t>(*lowest) + above);
    return distance(kept) < off ? wanted : bound;
}

result<converter_impl::converted_limit> converter_impl::from_target_limit(limit which, unsigned flags) const {
    if (value_node == nullptr || formula_from.empty()) return fail(genicam_errc::not_implemented);
    const auto theirs = get_eval_limit<tValue>(*value_node, which, flags);
    if (!theirs) return fail(theirs.error());
    // Intended: a target that cannot be read has no limits either, though its value is not needed here. One that is
    // only written keeps them, or nothing could be written to it.
    if (value_node->get_access_mode() != Access_t::WO) {
        if (const auto value = get_eval_val<tValue>(*value_node, flags); !value) return fail(value.error());
    }
    const bool extreme = is_extreme(*theirs);
    // As a double it does not wrap, which is enough to tell on which side it lies.
    const tValue argument = extreme ? tValue{theirs->to_double()} : variables.coerced(*theirs);
    const auto converted = variables.exec_formula(formula_from, flags, argument);
    // A formula without a result there, as 1000000/FROM at 0, gives no limit: every value that has one may be written.
    if (!converted && converted.error() == genicam_errc::bad_formula) return fail(genicam_errc::not_implemented);
    if (!converted) return fail(converted.error());
    return converted_limit{*converted, extreme};
}

std::optional<result<tValue>> converter_impl::limit_value(limit which, Slope_t slope, unsigned flags) const {
    const auto chosen = [](const result<converted_limit>& limit) -> std::optional<result<tValue>> {
        if (!limit) return fail(limit.error());
        if (limit->is_extreme) return std::nullopt;
        return limit->value;
    };
    switch (slope) {
    case Slope_t::Increasing:
        return chosen(from_target_limit(which, flags));
    case Slope_t::Decreasing:
        return chosen(from_target_limit(which == limit::max ? limit::min : limit::max, flags));
    case Slope_t::Varying:
        return std::nullopt;
    case Slope_t::Automatic:
        break;
    }
    const auto by_max = from_target_limit(limit::max, flags);
    if (!by_max) return chosen(by_max);
    const auto by_min = from_target_limit(limit::min, flags);
    if (!by_min || (by_max->is_extreme && by_min->is_extreme)) return chosen(by_min);
    // Unordered values (NaN) leave the one of the target's maximum.
    const bool take_min =
        which == limit::max ? is_less(by_max->value, by_min->value) : is_less(by_min->value, by_max->value);
    return chosen(take_min ? by_min : by_max);
}

result<std::vector<tValue>> converter_impl::valid_values(unsigned flags) const {
    const auto* integer = node_cast<IInteger>(value_node);
    if (integer == nullptr || formula_from.empty() || integer->get_inc_mode() == IncMode_t::None)
        return fail(genicam_errc::not_implemented);
    const auto theirs = integer->get_valid_value_set(flags);
    if (!theirs) return fail(theirs.error());
    std::vector<tValue> values;
    for (const int64_t value : *theirs) {
        const auto converted = variables.exec_formula(formula_from, flags, variables.coerced(value));
        if (converted) values.push_back(*converted);
        // The rest would be missing, and refused as no value of the set.
        if (!converted && eval_scope::is_used_up()) return eval_scope::error();
    }
    return values;
}

} // namespace converter

template <class T>
converter_node<T>::converter_node(document_services& services_, const element_view& view)
    : implement_inode<node_base_impl_dependent_cache, number_interface<T>>(services_, view),
      conversion(std::is_integral_v<T>) {}

template <class T>
void converter_node<T>::do_resolve_references(document_services&, const element_view& view) {
    slope = get_element_Slope(view[tag::Slope], this->name);
    is_linear = get_element_IsLinear(view[tag::IsLinear], this->name);
    conversion.resolve_converter_references(*this, view, std::is_integral_v<T>);
    if constexpr (std::is_integral_v<T>) this->resolve_selected(view);
}

template <class T>
result<T> converter_node<T>::get_val(unsigned flags) const {
    const access_scope access{*this, false, flags};
    if (access.denied()) return fail(access.error);
    const auto value = conversion.read(flags);
    if (!value) return fail(value.error());
    return number_of<T>(*value);
}

template <class T>
std::error_code converter_node<T>::set_val(T value, unsigned flags) {
    const access_scope access{*this, true, flags};
    if (access.denied()) return access.error;
    if (!conversion.is_writable()) return genicam_errc::not_implemented;
    if (const auto error = check_value<T>(*this, value, flags)) return error;
    return conversion.write(tValue{value}, flags);
}

template <class T>
result<T> converter_node<T>::get_limit(limit which, unsigned flags) const {
    const eval_scope steps;
    if (!steps) return eval_scope::error();
    const auto value = conversion.limit_value(which, slope, flags);
    if (!value) return which == limit::min ? std::numeric_limits<T>::lowest() : std::numeric_limits<T>::max();
    if (!*value) return fail(value->error());
    return number_of<T>(**value);
}

template <class T>
result<T> converter_node<T>::get_min(unsigned flags) const {
    return get_limit(limit::min, flags);
}

template <class T>
result<T> converter_node<T>::get_max(unsigned flags) const {
    return get_limit(limit::max, flags);
}

template <class T>
result<T> converter_node<T>::get_inc(unsigned flags) const {
    if constexpr (std::is_integral_v<T>) {
        (void)flags;
        return 1;
    } else {
        const eval_scope steps;
        if (!steps) return eval_scope::error();
        // Intended: the target's increment as it is, not converted.
        if (!is_linear || conversion.target() == nullptr) return fail(genicam_errc::not_implemented);
        return get_eval_limit<T>(*conversion.target(), limit::inc, flags);
    }
}

template <class T>
IncMode_t converter_node<T>::get_inc_mode() const {
    const eval_scope steps;
    if (!steps || conversion.target() == nullptr) return IncMode_t::None;
    return inc_mode_of(*conversion.target());
}

template <class T>
result<std::vector<T>> converter_node<T>::get_valid_value_set(unsigned flags) const {
    const eval_scope steps;
    if (!steps) return eval_scope::error();
    const auto values = conversion.valid_values(flags);
    if (!values) return fail(values.error());
    std::vector<T> out;
    out.reserve(values->size());
    for (const tValue value : *values) out.push_back(number_of<T>(value));
    return out;
}

template class converter_node<int64_t>;
template class converter_node<double>;

IntRepresentation_t int_converter_type::get_representation() const {
    return get_element_IntRepresentation(child("Representation"), name);
}

FloatRepresentation_t float_converter_type::get_representation() const {
    return get_element_FloatRepresentation(child("Representation"), name);
}

DisplayNotation_t float_converter_type::get_display_notation() const {
    return get_element_DisplayNotation(child("DisplayNotation"), name);
}

int64_t float_converter_type::get_display_precision() const {
    return get_element_DisplayPrecision(child("DisplayPrecision"), name);
}

} // namespace GenICam::impl
