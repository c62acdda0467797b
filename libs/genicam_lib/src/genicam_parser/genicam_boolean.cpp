#include "genicam_boolean.h"

#include "impl/eval_helper.h"
#include "impl/log.h"
#include "numeric_nodes.h"

namespace GenICam::impl {

void boolean_values::read(const element_view& view) {
    on = parse_integer(text_of(view[tag::OnValue])).value_or(on);
    off = parse_integer(text_of(view[tag::OffValue])).value_or(off);
}

void boolean_Value_type::do_resolve_references(document_services&, const element_view& view) {
    values.read(view);
    const auto value = parse_bool(text_of(view[tag::Value]));
    if (!value) log(level_fault, "{}. Failed to parse or resolve 'Value' xml element.", name);
    stored = value.value_or(false) ? values.on : values.off;
    resolve_selected(view);
}

result<bool> boolean_Value_type::get_val(unsigned flags) const {
    const access_scope access{*this, false, flags};
    if (access.denied()) return fail(access.error);
    if (stored == values.on) return true;
    if (stored == values.off) return false;
    log(level_fault, "{}. Invalid floating_value contents={}.", name, stored);
    return stored != 0;
}

std::error_code boolean_Value_type::set_val(bool value, unsigned flags) {
    const access_scope access{*this, true, flags};
    if (access.denied()) return access.error;
    const int64_t wanted = value ? values.on : values.off;
    if (wanted == stored) return {};
    stored = wanted;
    invalidate_dependents(false);
    return {};
}

void boolean_pValue_type::do_resolve_references(document_services&, const element_view& view) {
    values.read(view);
    target = resolve_pValue(*this, view);
    resolve_selected(view);
}

result<bool> boolean_pValue_type::get_val(unsigned flags) const {
    const access_scope access{*this, false, flags};
    if (access.denied()) return fail(access.error);
    if (target == nullptr) return fail(genicam_errc::not_implemented);
    const auto value = get_eval_val<int64_t>(*target, flags);
    if (!value) return fail(value.error());
    if (*value == values.on) return true;
    if (*value == values.off) return false;
    log(level_fault, "{}. Invalid value for boolean of: '{}' .", name, *value);
    return *value != 0;
}

std::error_code boolean_pValue_type::set_val(bool value, unsigned flags) {
    const access_scope access{*this, true, flags};
    if (access.denied()) return access.error;
    if (target == nullptr) return genicam_errc::not_implemented;
    return set_eval_val<int64_t>(*target, value ? values.on : values.off, flags);
}

} // namespace GenICam::impl
