#include "genicam_swissknife.h"

#include "impl/log.h"

namespace GenICam::impl {

template <class T>
swissknife_node<T>::swissknife_node(document_services& services_, const element_view& view)
    : implement_inode<node_base_impl_dependent_cache, number_interface<T>>(services_, view),
      variables(std::is_integral_v<T>) {}

template <class T>
void swissknife_node<T>::do_resolve_references(document_services&, const element_view& view) {
    if (!view.has(tag::Formula)) {
        log(level_fault, "SwissKnife ('{}'). Failed due to missing Formula member.", this->name);
        return;
    }
    converter::formula_name_lookup lookup{true};
    converter::build_formula_name_lookup(lookup, *this, view, std::is_integral_v<T>);
    variables.resolve_converter_references(lookup, *this, view);
    const std::string_view text = view[tag::Formula].child_value();
    if (auto program = converter::compile(*this, text, lookup)) {
        formula = std::move(*program);
    } else {
        log(level_fault, "SwissKnife ('{}'). failed to evaluate '{}'.", this->name, text);
    }
    if constexpr (std::is_integral_v<T>) this->resolve_selected(view);
}

template <class T>
result<T> swissknife_node<T>::get_val(unsigned flags) const {
    const access_scope access{*this, false, flags};
    if (access.denied()) return fail(access.error);
    const auto value = variables.exec_formula(formula, flags, int64_t{0});
    if (!value) return fail(value.error());
    if constexpr (std::is_integral_v<T>) {
        return value->to_integer();
    } else {
        return value->to_double();
    }
}

template <class T>
result<T> swissknife_node<T>::get_inc(unsigned) const {
    if constexpr (std::is_integral_v<T>) {
        return 1;
    } else {
        return fail(genicam_errc::not_implemented);
    }
}

template class swissknife_node<int64_t>;
template class swissknife_node<double>;

IntRepresentation_t int_swissknife_type::get_representation() const {
    return get_element_IntRepresentation(child("Representation"), name);
}

FloatRepresentation_t float_swissknife_type::get_representation() const {
    return get_element_FloatRepresentation(child("Representation"), name);
}

DisplayNotation_t float_swissknife_type::get_display_notation() const {
    return get_element_DisplayNotation(child("DisplayNotation"), name);
}

int64_t float_swissknife_type::get_display_precision() const {
    return get_element_DisplayPrecision(child("DisplayPrecision"), name);
}

} // namespace GenICam::impl
