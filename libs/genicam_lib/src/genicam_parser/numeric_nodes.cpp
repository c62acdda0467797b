#include "numeric_nodes.h"

#include "impl/log.h"

namespace GenICam::impl {

INode* resolve_pValue(node_base_data& owner, const element_view& view) {
    INode* target = owner.document().find_node(text_of(view[tag::pValue]));
    if (target == nullptr) {
        log(level_fault, "{}. Failed to parse or resolve 'pValue' ('{}') xml element.", owner.get_node_name(),
            text_of(view[tag::pValue]));
    }
    owner.add_source(target);
    return target;
}

IInteger* resolve_pIndex(node_base_data& owner, const element_view& view) {
    auto* node = node_cast<IInteger>(owner.document().find_node(text_of(view[tag::pIndex])));
    if (node == nullptr) {
        log(level_fault, "{}. Invalid or no IInteger base 'pIndex' element.", owner.get_node_name());
        return nullptr;
    }
    owner.add_source(node);
    return node;
}

namespace {

template <class T>
T stored_value(const node_base_data& owner, const element_view& view) {
    const auto value = parse_value(text_of(view[tag::Value]));
    if (!value) {
        log(level_fault, "{}. Failed to parse or resolve 'Value' ('{}') xml element.", owner.get_node_name(),
            text_of(view[tag::Value]));
        return {};
    }
    if constexpr (std::is_integral_v<T>) {
        return value->to_integer();
    } else {
        return value->to_double();
    }
}

} // namespace

template <class T>
void floating_value_type<T>::do_resolve_references(document_services&, const element_view& view) {
    value = stored_value<T>(*this, view);
    this->resolve_limits(view);
}

template <class T>
result<T> floating_value_type<T>::get_val(unsigned flags) const {
    const access_scope access{*this, false, flags};
    if (access.denied()) return fail(access.error);
    return value;
}

template <class T>
std::error_code floating_value_type<T>::set_val(T wanted, unsigned flags) {
    const access_scope access{*this, true, flags};
    if (access.denied()) return access.error;
    if (const auto error = check_value<T>(*this, wanted, flags)) return error;
    if (wanted == value) return {};
    value = wanted;
    this->invalidate_dependents(false);
    return {};
}

template <class T>
void constant_value_type<T>::do_resolve_references(document_services&, const element_view& view) {
    value = stored_value<T>(*this, view);
    this->resolve_limits(view);
}

template <class T>
result<T> constant_value_type<T>::get_val(unsigned flags) const {
    const access_scope access{*this, false, flags};
    if (access.denied()) return fail(access.error);
    return value;
}

template <class T>
void pValue_type<T>::do_resolve_references(document_services&, const element_view& view) {
    target = resolve_pValue(*this, view);
    this->resolve_limits(view);
}

template <class T>
result<T> pValue_type<T>::get_val(unsigned flags) const {
    const access_scope access{*this, false, flags};
    if (access.denied()) return fail(access.error);
    if (target == nullptr) return fail(genicam_errc::not_implemented);
    return get_eval_val<T>(*target, flags);
}

template <class T>
std::error_code pValue_type<T>::set_val(T wanted, unsigned flags) {
    const access_scope access{*this, true, flags};
    if (access.denied()) return access.error;
    if (target == nullptr) return genicam_errc::not_implemented;
    if (const auto error = check_value<T>(*this, wanted, flags)) return error;
    return set_eval_val<T>(*target, wanted, flags);
}

template <class T>
void pIndex_type<T>::do_resolve_references(document_services&, const element_view& view) {
    index = resolve_pIndex(*this, view);
    if (index == nullptr) return;
    if (!values.resolve_references(*this, view)) index = nullptr;
    this->resolve_limits(view);
}

template <class T>
auto pIndex_type<T>::current_entry(unsigned flags) const -> result<entry*> {
    if (index == nullptr) return fail(genicam_errc::not_implemented);
    const auto at = index->get_val(flags);
    if (!at) return fail(at.error());
    constexpr std::size_t entries_in_a_step = 16; // compared in the time of one
    if (!eval_scope::take(values.size() / entries_in_a_step)) return eval_scope::error();
    return &values.choose(*at);
}

template <class T>
result<INode*> pIndex_type<T>::value_source(unsigned flags) const {
    const eval_scope steps;
    if (!steps) return eval_scope::error();
    const auto chosen = current_entry(flags);
    if (!chosen) return fail(chosen.error());
    return (*chosen)->node;
}

template <class T>
result<T> pIndex_type<T>::get_val(unsigned flags) const {
    const access_scope access{*this, false, flags};
    if (access.denied()) return fail(access.error);
    const auto chosen = current_entry(flags);
    if (!chosen) return fail(chosen.error());
    if ((*chosen)->node != nullptr) return get_eval_val<T>(*(*chosen)->node, flags);
    return (*chosen)->value;
}

template <class T>
std::error_code pIndex_type<T>::set_val(T wanted, unsigned flags) {
    const access_scope access{*this, true, flags};
    if (access.denied()) return access.error;
    if (const auto error = check_value<T>(*this, wanted, flags)) return error;
    const auto chosen = current_entry(flags);
    if (!chosen) return chosen.error();
    entry& current = **chosen;
    if (current.node != nullptr) return set_eval_val<T>(*current.node, wanted, flags);
    if (current.value == wanted) return {};
    current.value = wanted;
    this->invalidate_dependents(false);
    return {};
}

template class floating_value_type<int64_t>;
template class floating_value_type<double>;
template class constant_value_type<int64_t>;
template class constant_value_type<double>;
template class pValue_type<int64_t>;
template class pValue_type<double>;
template class pIndex_type<int64_t>;
template class pIndex_type<double>;

} // namespace GenICam::impl
