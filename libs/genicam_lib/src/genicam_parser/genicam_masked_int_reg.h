// Registers that are a range of bits.
#pragma once

#include "impl/register_node.h"

namespace GenICam::impl {

// Bits as the document counts them: from the low end of the value when LittleEndian, from the top when BigEndian.
struct bit_range {
    int64_t lsb = 0;
    int64_t msb = 0;

    [[nodiscard]] static bit_range from(const element_view& view);
};

// The same for a register of a certain length.
struct bit_field {
    uint64_t mask = 0;
    unsigned shift = 0;
    unsigned width = 1;

    bit_field() = default;
    bit_field(bit_range bits, uint64_t length, Endianess_t order) noexcept;
};

template <class AddressEval>
class masked_register_node : public integer_register_node<AddressEval> {
public:
    using integer_register_node<AddressEval>::integer_register_node;

    [[nodiscard]] std::error_code set_val(int64_t value, unsigned flags) final;
    [[nodiscard]] result<int64_t> get_val(unsigned flags) const final;
    [[nodiscard]] result<int64_t> get_min(unsigned flags) const final;
    [[nodiscard]] result<int64_t> get_max(unsigned flags) const final;

protected:
    using access_scope = node_base_data::access_scope;
    [[nodiscard]] virtual bit_field field_for(uint64_t length) const = 0;
    [[nodiscard]] virtual result<uint64_t> get_length(unsigned flags) const { return this->address.get_length(flags); }
    // The range, with a length of 1 to 8.
    [[nodiscard]] result<address_range> checked_range(unsigned flags) const;

private:
    [[nodiscard]] result<uint64_t> read_raw(const address_range& range, unsigned flags) const;
};

// Its length is a constant, also where the address is not.
template <class AddressEval>
class masked_int_reg_type final : public masked_register_node<AddressEval> {
public:
    using masked_register_node<AddressEval>::masked_register_node;
    void do_resolve_references(document_services& services_, const element_view& view) override;

protected:
    [[nodiscard]] result<address_range> get_address_and_length(unsigned flags) const override;
    [[nodiscard]] bit_field field_for(uint64_t) const override { return field; }
    [[nodiscard]] result<uint64_t> get_length(unsigned) const override { return length; }

private:
    uint64_t length = 4;
    bit_field field;
};

using masked_int_reg_type_const_address = masked_int_reg_type<register_const_address_eval>;
using masked_int_reg_type_dyn_address = masked_int_reg_type<address_eval>;

// One field of a "StructReg", which gives it address, length, port and byte order and is no node itself.
class struct_entry_type final : public masked_register_node<address_eval> {
public:
    using masked_register_node::masked_register_node;
    void do_resolve_references(document_services& services_, const element_view& view) override;

protected:
    [[nodiscard]] bit_field field_for(uint64_t length) const override { return {bits, length, access.endianess}; }

private:
    bit_range bits;
};

} // namespace GenICam::impl
