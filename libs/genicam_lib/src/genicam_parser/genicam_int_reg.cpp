#include "genicam_int_reg.h"

namespace GenICam::impl {

template <class AddressEval>
void int_reg_type<AddressEval>::do_resolve_references(document_services&, const element_view& view) {
    this->sign = get_element_Sign(view[tag::Sign], this->name).value_or(Sign_t::Unsigned);
    this->resolve_access(view, CachingMode_t::WriteThrough);
    this->address.resolve_references(*this, view);
    this->address.resolve_references_len(*this, view);
    this->resolve_selected(view);
}

template <class AddressEval>
result<address_range> int_reg_type<AddressEval>::checked_range(unsigned flags) const {
    auto range = this->address.get(flags);
    if (range && !is_number_length(*this, range->length)) return fail(genicam_errc::index_out_of_range);
    return range;
}

template <class AddressEval>
result<int64_t> int_reg_type<AddressEval>::get_val(unsigned flags) const {
    const access_scope access_check{*this, false, flags};
    if (access_check.denied()) return fail(access_check.error);
    if (this->access.port == nullptr) return fail(genicam_errc::invalid_document);
    const auto range = checked_range(flags);
    if (!range) return fail(range.error());
    std::byte buffer[8];
    const std::span data{buffer, static_cast<std::size_t>(range->length)};
    if (const auto error = this->access.port->read_cached(this->access.caching, range->address, data, flags))
        return fail(error);
    return decode_integer(data, this->access.endianess, this->is_signed());
}

template <class AddressEval>
std::error_code int_reg_type<AddressEval>::set_val(int64_t value, unsigned flags) {
    const access_scope access_check{*this, true, flags};
    if (access_check.denied()) return access_check.error;
    if (this->access.port == nullptr) return genicam_errc::invalid_document;
    const auto range = checked_range(flags);
    if (!range) return range.error();
    std::byte buffer[8];
    const std::span data{buffer, static_cast<std::size_t>(range->length)};
    encode_integer(value, data, this->access.endianess);
    if (const auto error = this->access.port->write_cached(this->access.caching, range->address, data, flags))
        return error;
    this->invalidate_dependents(true);
    return {};
}

template <class AddressEval>
result<int64_t> int_reg_type<AddressEval>::get_min(unsigned flags) const {
    const eval_scope steps;
    if (!steps) return eval_scope::error();
    const auto length = this->address.get_length(flags);
    if (!length) return fail(length.error());
    if (!is_number_length(*this, *length)) return fail(genicam_errc::index_out_of_range);
    return lowest_of_bits(static_cast<unsigned>(*length) * 8, this->is_signed());
}

template <class AddressEval>
result<int64_t> int_reg_type<AddressEval>::get_max(unsigned flags) const {
    const eval_scope steps;
    if (!steps) return eval_scope::error();
    const auto length = this->address.get_length(flags);
    if (!length) return fail(length.error());
    if (!is_number_length(*this, *length)) return fail(genicam_errc::index_out_of_range);
    return highest_of_bits(static_cast<unsigned>(*length) * 8, this->is_signed());
}

template class int_reg_type<register_const_address_eval>;
template class int_reg_type<address_eval>;

} // namespace GenICam::impl
