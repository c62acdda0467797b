#include "genicam_float_reg.h"

#include "impl/log.h"

#include <bit>

namespace GenICam::impl {

template <class AddressEval>
void float_reg_type<AddressEval>::do_resolve_references(document_services&, const element_view& view) {
    // Intended: unlike integers, floats do not trust the cache after a write, since devices round them.
    this->resolve_access(view, CachingMode_t::WriteAround);
    this->address.resolve_references(*this, view);
    this->address.resolve_references_len(*this, view);
}

template <class AddressEval>
result<address_range> float_reg_type<AddressEval>::checked_range(unsigned flags) const {
    auto range = this->address.get(flags);
    if (range && range->length != 4 && range->length != 8) {
        log(level_fault, "{}. Invalid length value ({}). For a FloatReg this must be either 4 or 8.", this->name,
            range->length);
        return fail(genicam_errc::index_out_of_range);
    }
    return range;
}

template <class AddressEval>
result<double> float_reg_type<AddressEval>::get_val(unsigned flags) const {
    const access_scope access_check{*this, false, flags};
    if (access_check.denied()) return fail(access_check.error);
    if (this->access.port == nullptr) return fail(genicam_errc::invalid_document);
    const auto range = checked_range(flags);
    if (!range) return fail(range.error());
    std::byte buffer[8];
    const std::span data{buffer, static_cast<std::size_t>(range->length)};
    if (const auto error = this->access.port->read_cached(this->access.caching, range->address, data, flags))
        return fail(error);
    const auto bits = static_cast<uint64_t>(decode_integer(data, this->access.endianess, false));
    return range->length == 4 ? static_cast<double>(std::bit_cast<float>(static_cast<uint32_t>(bits)))
                              : std::bit_cast<double>(bits);
}

template <class AddressEval>
std::error_code float_reg_type<AddressEval>::set_val(double value, unsigned flags) {
    const access_scope access_check{*this, true, flags};
    if (access_check.denied()) return access_check.error;
    if (this->access.port == nullptr) return genicam_errc::invalid_document;
    const auto range = checked_range(flags);
    if (!range) return range.error();
    std::byte buffer[8];
    const std::span data{buffer, static_cast<std::size_t>(range->length)};
    const uint64_t bits =
        range->length == 4 ? std::bit_cast<uint32_t>(static_cast<float>(value)) : std::bit_cast<uint64_t>(value);
    encode_integer(static_cast<int64_t>(bits), data, this->access.endianess);
    if (const auto error = this->access.port->write_cached(this->access.caching, range->address, data, flags))
        return error;
    this->invalidate_dependents(true);
    return {};
}

template <class AddressEval>
FloatRepresentation_t float_reg_type<AddressEval>::get_representation() const {
    return get_element_FloatRepresentation(this->child("Representation"), this->name);
}

template <class AddressEval>
DisplayNotation_t float_reg_type<AddressEval>::get_display_notation() const {
    return get_element_DisplayNotation(this->child("DisplayNotation"), this->name);
}

template <class AddressEval>
int64_t float_reg_type<AddressEval>::get_display_precision() const {
    return get_element_DisplayPrecision(this->child("DisplayPrecision"), this->name);
}

template class float_reg_type<register_const_address_eval>;
template class float_reg_type<address_eval>;

} // namespace GenICam::impl
