#include "genicam_enumeration.h"

#include "impl/eval_helper.h"
#include "impl/log.h"

#include <algorithm>
#include <cmath>

namespace GenICam::impl {

enum_entry_type::enum_entry_type(document_services& services_, const element_view& view, std::size_t position)
    : implement_inode(services_, view), index(position) {
    const auto number = parse_integer(text_of(view[tag::Value]));
    if (!number) log(level_fault, "{}. Failed to parse 'Value' xml node.", name);
    value = number.value_or(0);
    numeric_value = parse_float(text_of(view[tag::NumericValue]));
}

template <class Base>
enumeration_node<Base>::enumeration_node(document_services& services_, const element_view& view)
    : implement_inode<Base, IEnumeration>(services_, view) {
    auto& memory = services_.memory_resource();
    std::vector<IEnumEntry*> made;
    view.for_each(tag::EnumEntry, [&](pugi::xml_node element) {
        void* place = memory.allocate(sizeof(enum_entry_type), alignof(enum_entry_type));
        made.push_back(
            std::construct_at(static_cast<enum_entry_type*>(place), services_, element_view{element}, made.size()));
    });
    if (made.empty()) return;
    auto* kept = static_cast<IEnumEntry**>(memory.allocate(made.size() * sizeof(IEnumEntry*), alignof(IEnumEntry*)));
    std::ranges::copy(made, kept);
    entries = {kept, made.size()};
    constexpr std::size_t few = 64;
    if (entries.size() <= few) return;
    by_name.reserve(entries.size());
    for (IEnumEntry* entry : entries) by_name.try_emplace(entry->get_name(), entry); // the first of a name
}

template <class Base>
enumeration_node<Base>::~enumeration_node() {
    for (IEnumEntry* entry : entries) std::destroy_at(static_cast<enum_entry_type*>(entry));
}

template <class Base>
void enumeration_node<Base>::resolve_entries() {
    for (IEnumEntry* entry : entries) static_cast<enum_entry_type*>(entry)->resolve_if_linked();
}

template <class Base>
result<int64_t> enumeration_node<Base>::get_val(unsigned flags) const {
    const access_scope access{*this, false, flags};
    if (access.denied()) return fail(access.error);
    return read_value_(flags);
}

template <class Base>
result<IEnumEntry*> enumeration_node<Base>::get_selected_entry(unsigned flags) const {
    const auto value = get_val(flags);
    if (!value) return fail(value.error());
    if (IEnumEntry* entry = find_entry_by_value(*value)) return entry;
    log(level_fault, "{}. Failed to find EnumEntry corresponding to current value={}.", this->name, *value);
    return fail(genicam_errc::no_such_entry);
}

template <class Base>
std::error_code enumeration_node<Base>::set_selected_entry(IEnumEntry* entry, unsigned flags) {
    if (entry == nullptr) return genicam_errc::no_such_entry;
    const access_scope access{*this, true, flags};
    if (access.denied()) return access.error;
    if (!(flags & access_flags::no_access_check)) {
        if (!entry->is_implemented()) return genicam_errc::node_not_implemented;
        if (!entry->is_available()) return genicam_errc::node_not_available;
    }
    return write_value_(entry->get_value(), flags);
}

template <class Base>
IEnumEntry* enumeration_node<Base>::find_nearest_entry(double value) const noexcept {
    IEnumEntry* nearest = nullptr;
    double smallest = 0;
    for (IEnumEntry* entry : entries) {
        const auto numeric = entry->get_numeric_value();
        const double distance = std::fabs((numeric ? *numeric : static_cast<double>(entry->get_value())) - value);
        if (nearest != nullptr && !(distance < smallest)) continue;
        nearest = entry;
        smallest = distance;
    }
    return nearest;
}

template <class Base>
IEnumEntry* enumeration_node<Base>::find_entry_by_value(int64_t value) const noexcept {
    const auto found = std::ranges::find(entries, value, [](const IEnumEntry* entry) { return entry->get_value(); });
    return found != entries.end() ? *found : nullptr;
}

template <class Base>
IEnumEntry* enumeration_node<Base>::find_entry_by_name(std::string_view wanted) const noexcept {
    if (!by_name.empty()) {
        const auto found = by_name.find(wanted);
        return found != by_name.end() ? found->second : nullptr;
    }
    const auto found = std::ranges::find(entries, wanted, [](const IEnumEntry* entry) { return entry->get_name(); });
    return found != entries.end() ? *found : nullptr;
}

template class enumeration_node<node_base_impl_value>;
template class enumeration_node<node_base_impl_dependent_cache>;

void enumeration_Value_type::do_resolve_references(document_services&, const element_view& view) {
    const auto value = parse_integer(text_of(view[tag::Value]));
    if (!value) log(level_fault, "{}. Failed to parse 'Value' xml element.", name);
    stored = value.value_or(0);
    resolve_entries();
    resolve_selected(view);
}

std::error_code enumeration_Value_type::write_value_(int64_t value, unsigned) {
    if (stored == value) return {};
    stored = value;
    invalidate_dependents(false);
    return {};
}

void enumeration_pValue_type::do_resolve_references(document_services& services_, const element_view& view) {
    target = services_.find_node(text_of(view[tag::pValue]));
    if (target == nullptr) log(level_fault, "{}. Failed to parse/resolve 'pValue' xml element.", name);
    add_source(target);
    resolve_entries();
    resolve_selected(view);
}

result<int64_t> enumeration_pValue_type::read_value_(unsigned flags) const {
    if (target == nullptr) return fail(genicam_errc::not_implemented);
    return get_eval_val<int64_t>(*target, flags);
}

std::error_code enumeration_pValue_type::write_value_(int64_t value, unsigned flags) {
    if (target == nullptr) return genicam_errc::not_implemented;
    return set_eval_val<int64_t>(*target, value, flags);
}

} // namespace GenICam::impl
