#include "genicam_masked_int_reg.h"

#include "impl/log.h"

#include <algorithm>
#include <bit>

namespace GenICam::impl {

bit_range bit_range::from(const element_view& view) {
    if (const pugi::xml_node bit = view[tag::Bit]) {
        const int64_t position = parse_integer(text_of(bit)).value_or(0);
        return {position, position};
    }
    const auto lsb = parse_integer(text_of(view[tag::LSB]));
    const auto msb = parse_integer(text_of(view[tag::MSB]));
    if (!lsb || !msb) return {};
    return {*lsb, *msb};
}

bit_field::bit_field(bit_range bits, uint64_t length, Endianess_t order) noexcept {
    const auto register_bits = static_cast<int64_t>(length * 8);
    const auto inside = [&](int64_t bit) { return bit >= 0 && bit < register_bits; };
    // Bits outside the register leave an empty field: it reads 0 and changes nothing.
    if (!inside(bits.lsb) || !inside(bits.msb)) return;
    // Which of the two is the smaller follows from the byte order. Where a document has them the other way round they
    // are the same bits.
    const auto [first, last] = std::minmax(bits.lsb, bits.msb);
    width = static_cast<unsigned>(last - first + 1);
    shift = static_cast<unsigned>(order == Endianess_t::LittleEndian ? first : register_bits - 1 - last);
    mask = (~uint64_t{0} >> (64 - width)) << shift;
}

template <class AddressEval>
result<address_range> masked_register_node<AddressEval>::checked_range(unsigned flags) const {
    auto range = this->get_address_and_length(flags);
    if (range && !is_number_length(*this, range->length)) return fail(genicam_errc::index_out_of_range);
    return range;
}

template <class AddressEval>
result<uint64_t> masked_register_node<AddressEval>::read_raw(const address_range& range, unsigned flags) const {
    std::byte buffer[8];
    const std::span data{buffer, static_cast<std::size_t>(range.length)};
    if (const auto error = this->access.port->read_cached(this->access.caching, range.address, data, flags))
        return fail(error);
    return static_cast<uint64_t>(decode_integer(data, this->access.endianess, false));
}

template <class AddressEval>
result<int64_t> masked_register_node<AddressEval>::get_val(unsigned flags) const {
    const access_scope access_check{*this, false, flags};
    if (access_check.denied()) return fail(access_check.error);
    if (this->access.port == nullptr) return fail(genicam_errc::invalid_document);
    const auto range = checked_range(flags);
    if (!range) return fail(range.error());
    const auto raw = read_raw(*range, flags);
    if (!raw) return fail(raw.error());
    const bit_field field = field_for(range->length);
    const uint64_t value = (*raw & field.mask) >> field.shift;
    const auto bits = static_cast<unsigned>(std::popcount(field.mask));
    if (!this->is_signed() || bits == 0) return static_cast<int64_t>(value);
    return static_cast<int64_t>(value << (64 - bits)) >> (64 - bits);
}

template <class AddressEval>
std::error_code masked_register_node<AddressEval>::set_val(int64_t value, unsigned flags) {
    const access_scope access_check{*this, true, flags};
    if (access_check.denied()) return access_check.error;
    if (this->access.port == nullptr) return genicam_errc::invalid_document;
    const auto range = checked_range(flags);
    if (!range) return range.error();
    // The other bits of the register are read by the same rules as a value, caches included.
    const auto raw = read_raw(*range, flags);
    if (!raw) return raw.error();
    const bit_field field = field_for(range->length);
    const uint64_t changed = (*raw & ~field.mask) | ((static_cast<uint64_t>(value) << field.shift) & field.mask);
    std::byte buffer[8];
    const std::span data{buffer, static_cast<std::size_t>(range->length)};
    encode_integer(static_cast<int64_t>(changed), data, this->access.endianess);
    if (const auto error = this->access.port->write_cached(this->access.caching, range->address, data, flags))
        return error;
    this->invalidate_dependents(true);
    return {};
}

template <class AddressEval>
result<int64_t> masked_register_node<AddressEval>::get_min(unsigned flags) const {
    const eval_scope steps;
    if (!steps) return eval_scope::error();
    const auto length = get_length(flags);
    if (!length) return fail(length.error());
    if (!is_number_length(*this, *length)) return fail(genicam_errc::index_out_of_range);
    return lowest_of_bits(field_for(*length).width, this->is_signed());
}

template <class AddressEval>
result<int64_t> masked_register_node<AddressEval>::get_max(unsigned flags) const {
    const eval_scope steps;
    if (!steps) return eval_scope::error();
    const auto length = get_length(flags);
    if (!length) return fail(length.error());
    if (!is_number_length(*this, *length)) return fail(genicam_errc::index_out_of_range);
    return highest_of_bits(field_for(*length).width, this->is_signed());
}

namespace {

// 1 to 8; everything else, zero and a bad text included, is 4.
uint64_t fetch_masked_int_reg_Length(const node_base_data& owner, const element_view& view) {
    constexpr uint64_t standard = 4;
    const pugi::xml_node element = view[tag::Length];
    if (!element) return standard;
    const auto value = parse_integer(text_of(element));
    if (!value) log(level_fault, "{}. Failed to parse 'Length' XML element.", owner.get_node_name());
    return value && *value >= 1 && *value <= 8 ? static_cast<uint64_t>(*value) : standard;
}

} // namespace

template <class AddressEval>
void masked_int_reg_type<AddressEval>::do_resolve_references(document_services&, const element_view& view) {
    this->sign = get_element_Sign(view[tag::Sign], this->name).value_or(Sign_t::Unsigned);
    this->resolve_access(view, CachingMode_t::WriteThrough);
    this->address.resolve_references(*this, view);
    length = fetch_masked_int_reg_Length(*this, view);
    field = bit_field{bit_range::from(view), length, this->access.endianess};
    this->resolve_selected(view);
}

template <class AddressEval>
result<address_range> masked_int_reg_type<AddressEval>::get_address_and_length(unsigned flags) const {
    const auto start = this->address.calc_address(length, flags);
    if (!start) return fail(start.error());
    return address_range{*start, length};
}

void struct_entry_type::do_resolve_references(document_services& services_, const element_view& view) {
    const element_view* const structure = services_.struct_view(view.element().parent());
    if (structure == nullptr) {
        services_.note_fault(*this, "The structures of the document have too many entries and links.");
        return;
    }
    const element_view& parent = *structure;
    sign = get_element_Sign(view[tag::Sign], name).value_or(Sign_t::Unsigned);
    // Real documents state the access mode at the structure, its conditions and invalidators too.
    inherit_links(parent, view);
    set_actual_access_mode(get_element_AccessMode((view.has(tag::AccessMode) ? view : parent)[tag::AccessMode], name));
    bits = bit_range::from(view);
    access.endianess = get_element_Endianess(parent[tag::Endianess], name);
    const auto own = get_element_Cachable(view[tag::Cachable], name);
    access.caching.mode =
        own ? *own : get_element_Cachable(parent[tag::Cachable], name).value_or(CachingMode_t::NoCache);
    access.resolve_port_interface(*this, parent);
    address.resolve_references(*this, parent);
    address.resolve_references_len(*this, parent);
    resolve_selected(view);
}

template class masked_register_node<register_const_address_eval>;
template class masked_register_node<address_eval>;
template class masked_int_reg_type<register_const_address_eval>;
template class masked_int_reg_type<address_eval>;

} // namespace GenICam::impl
