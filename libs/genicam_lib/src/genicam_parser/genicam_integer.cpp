#include "genicam_integer.h"

#include "impl/log.h"

namespace GenICam::impl {

void integer_pValueCopy_type::do_resolve_references(document_services& services_, const element_view& view) {
    target = resolve_pValue(*this, view);
    for (const pugi::xml_node element : view.element().children()) {
        const tag name_tag = tag_of(element.name());
        if (name_tag != tag::pValue && name_tag != tag::pValueCopy) continue;
        INode* node = element == view[tag::pValue] ? target : resolve_optional_node(element.name(), element);
        if (node == nullptr) continue;
        add_source(node);
        all_targets.push_back(node, services_.memory_resource());
    }
    resolve_limits(view);
}

result<int64_t> integer_pValueCopy_type::get_val(unsigned flags) const {
    const access_scope access{*this, false, flags};
    if (access.denied()) return fail(access.error);
    if (target == nullptr) return fail(genicam_errc::not_implemented);
    return get_eval_val<int64_t>(*target, flags);
}

std::error_code integer_pValueCopy_type::set_val(int64_t value, unsigned flags) {
    const access_scope access{*this, true, flags};
    if (access.denied()) return access.error;
    if (all_targets.empty()) return genicam_errc::not_implemented;
    if (const auto error = check_value<int64_t>(*this, value, flags)) return error;
    for (INode* node : all_targets.view()) {
        if (const auto error = set_eval_val<int64_t>(*node, value, flags)) return error;
    }
    return {};
}

// A target without a limit, as an enumeration, leaves those of the others.
result<int64_t> integer_pValueCopy_type::limit_of_targets(limit which, unsigned flags) const {
    const eval_scope steps;
    if (!steps) return eval_scope::error();
    using limits = std::numeric_limits<int64_t>;
    int64_t tightest = which == limit::min ? limits::min() : limits::max();
    for (INode* node : all_targets.view()) {
        const auto theirs = get_eval_limit<int64_t>(*node, which, flags);
        if (!theirs && !is_absent(theirs.error())) return theirs;
        if (theirs) tightest = which == limit::min ? std::max(tightest, *theirs) : std::min(tightest, *theirs);
    }
    return tightest;
}

} // namespace GenICam::impl
