#include "genicam_command.h"

#include "impl/log.h"

namespace GenICam::impl {

namespace {

void resolve_command_value(node_or_const_value<int64_t>& value, node_base_data& owner, const element_view& view) {
    value.resolve(owner, view, tag::CommandValue, tag::pCommandValue);
    if (value.is_absent()) {
        log(level_fault, "{}. Failed to parse contents of 'CommandValue'/'pCommandValue' xml node.",
            owner.get_node_name());
    }
}

} // namespace

void command_Value_type::do_resolve_references(document_services&, const element_view& view) {
    const auto value = parse_integer(text_of(view[tag::Value]));
    if (!value) log(level_fault, "{}. Failed to parse contents of 'Value' xml node.", name);
    stored = value.value_or(0);
    resolve_command_value(command_value, *this, view);
    resolve_selected(view);
}

std::error_code command_Value_type::execute(unsigned flags) {
    const access_scope access{*this, true, flags};
    if (access.denied()) return access.error;
    const auto value = command_value.get(flags);
    if (!value) return value.error();
    if (stored == *value) return {};
    stored = *value;
    invalidate_dependents(false);
    return {};
}

result<bool> command_Value_type::is_done(unsigned flags) const {
    const access_scope access{*this, false, flags};
    // What cannot be read cannot be waited for: a write-only command is done at once.
    if (access.denied()) return true;
    const auto value = command_value.get(flags);
    if (!value) return fail(value.error());
    return stored != *value;
}

void command_pValue_type::do_resolve_references(document_services& services_, const element_view& view) {
    target = services_.find_node(text_of(view[tag::pValue]));
    if (target == nullptr) log(level_fault, "{}. Failed to parse/resolve contents of 'pValue' xml node.", name);
    add_source(target);
    resolve_command_value(command_value, *this, view);
    resolve_selected(view);
}

std::error_code command_pValue_type::execute(unsigned flags) {
    const access_scope access{*this, true, flags};
    if (access.denied()) return access.error;
    if (target == nullptr) return genicam_errc::not_implemented;
    const auto value = command_value.get(flags);
    if (!value) return value.error();
    return set_eval_val<int64_t>(*target, *value, flags);
}

result<bool> command_pValue_type::is_done(unsigned flags) const {
    const access_scope access{*this, false, flags};
    if (access.denied()) return true;
    if (target == nullptr) return fail(genicam_errc::not_implemented);
    const auto value = command_value.get(flags);
    if (!value) return fail(value.error());
    const auto current = get_eval_val<int64_t>(*target, flags);
    if (!current) return fail(current.error());
    return *current != *value;
}

} // namespace GenICam::impl
