#include "genicam_string.h"

#include "impl/log.h"

#include <limits>

namespace GenICam::impl {

void string_type::do_resolve_references(document_services& services_, const element_view& view) {
    stored = view[tag::Value].child_value();
    if (!view.has(tag::pValue)) return;
    target = node_cast<IString>(services_.find_node(text_of(view[tag::pValue])));
    if (target == nullptr) log(level_fault, "{}. Failed to parse or resolve \"pValue\" xml node.", name);
    add_source(target);
}

result<std::string> string_type::get_val(unsigned flags) const {
    const access_scope access{*this, false, flags};
    if (access.denied()) return fail(access.error);
    if (target != nullptr) return target->get_val(flags);
    return stored;
}

std::error_code string_type::set_val(std::string_view text, unsigned flags) {
    const access_scope access{*this, true, flags};
    if (access.denied()) return access.error;
    if (target != nullptr) return target->set_val(text, flags);
    stored = text;
    invalidate_dependents(false);
    return {};
}

result<uint64_t> string_type::get_max_length(unsigned flags) const {
    const eval_scope steps;
    if (!steps) return eval_scope::error();
    if (target != nullptr) return target->get_max_length(flags);
    return static_cast<uint64_t>(std::numeric_limits<int64_t>::max());
}

} // namespace GenICam::impl
