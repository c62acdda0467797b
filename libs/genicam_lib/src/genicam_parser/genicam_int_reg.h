// "IntReg".
#pragma once

#include "impl/register_node.h"

namespace GenICam::impl {

// A register that is one integer of 1 to 8 bytes.
template <class AddressEval>
class int_reg_type final : public integer_register_node<AddressEval> {
public:
    using integer_register_node<AddressEval>::integer_register_node;

    void do_resolve_references(document_services& services_, const element_view& view) override;
    // Intended: no range check here. What a register holds is the device's business; features above it check.
    [[nodiscard]] std::error_code set_val(int64_t value, unsigned flags) override;
    [[nodiscard]] result<int64_t> get_val(unsigned flags) const override;
    [[nodiscard]] result<int64_t> get_min(unsigned flags) const override;
    [[nodiscard]] result<int64_t> get_max(unsigned flags) const override;

private:
    using access_scope = node_base_data::access_scope;
    [[nodiscard]] result<address_range> checked_range(unsigned flags) const;
};

using int_reg_type_const_address = int_reg_type<register_const_address_eval>;
using int_reg_type_dyn = int_reg_type<address_eval>;

} // namespace GenICam::impl
