#include "genicam_register.h"

#include "impl/xml_readers.h"

namespace GenICam::impl {

void register_type::do_resolve_references(document_services&, const element_view& view) {
    set_actual_access_mode(get_element_AccessMode(view[tag::AccessMode], name));
    access.endianess = get_element_Endianess(view[tag::Endianess], name);
    access.resolve_caching(*this, view, CachingMode_t::WriteThrough);
    access.resolve_port_interface(*this, view);
    address.resolve_references(*this, view);
    address.resolve_references_len(*this, view);
}

void register_type::invalidate_register() {
    if (access.port != nullptr) access.invalidate(address.get(0));
}

result<uint64_t> register_type::get_length(unsigned flags) const {
    const eval_scope steps;
    if (!steps) return eval_scope::error();
    return address.get_length(flags);
}

result<int64_t> register_type::get_address(unsigned flags) const {
    const eval_scope steps;
    if (!steps) return eval_scope::error();
    const auto range = address.get(flags);
    if (!range) return fail(range.error());
    return range->address;
}

result<address_range> register_type::checked_range(std::size_t wanted, unsigned flags) const {
    auto range = address.get(flags);
    if (range && wanted > range->length) return fail(genicam_errc::invalid_parameter);
    return range;
}

std::error_code register_type::get(std::span<std::byte> data, unsigned flags) const {
    const access_scope access_check{*this, false, flags};
    if (access_check.denied()) return access_check.error;
    if (access.port_node == nullptr) return genicam_errc::not_implemented;
    const auto range = checked_range(data.size(), flags);
    if (!range) return range.error();
    const auto count = access.port_node->read(range->address, data, flags);
    if (!count) return count.error();
    return *count < data.size() ? make_error_code(genicam_errc::generic_error) : std::error_code{};
}

std::error_code register_type::set(std::span<const std::byte> data, unsigned flags) {
    if (access.port_node == nullptr) return genicam_errc::not_implemented;
    const access_scope access_check{*this, true, flags};
    if (access_check.denied()) return access_check.error;
    const auto range = checked_range(data.size(), flags);
    if (!range) return range.error();
    if (const auto error = access.port_node->write(range->address, data, flags)) return error;
    invalidate_dependents(false);
    return {};
}

} // namespace GenICam::impl
