// "FloatReg".
#pragma once

#include "impl/register_node.h"

namespace GenICam::impl {

// A register that is an IEEE float of 4 or 8 bytes.
template <class AddressEval>
class float_reg_type final : public register_node<IFloat, AddressEval> {
public:
    using register_node<IFloat, AddressEval>::register_node;

    void do_resolve_references(document_services& services_, const element_view& view) override;
    [[nodiscard]] std::error_code set_val(double value, unsigned flags) override;
    [[nodiscard]] result<double> get_val(unsigned flags) const override;
    [[nodiscard]] result<double> get_min(unsigned) const override { return std::numeric_limits<double>::lowest(); }
    [[nodiscard]] result<double> get_max(unsigned) const override { return std::numeric_limits<double>::max(); }
    [[nodiscard]] result<double> get_inc(unsigned) const override { return fail(genicam_errc::not_implemented); }
    [[nodiscard]] FloatRepresentation_t get_representation() const override;
    [[nodiscard]] std::string_view get_unit() const override { return this->child_text("Unit"); }
    [[nodiscard]] DisplayNotation_t get_display_notation() const override;
    [[nodiscard]] int64_t get_display_precision() const override;
    [[nodiscard]] IncMode_t get_inc_mode() const override { return IncMode_t::None; }
    [[nodiscard]] result<std::vector<double>> get_valid_value_set(unsigned) const override {
        return fail(genicam_errc::not_implemented);
    }

private:
    using access_scope = node_base_data::access_scope;
    [[nodiscard]] result<address_range> checked_range(unsigned flags) const;
};

using float_reg_type_const_address = float_reg_type<register_const_address_eval>;
using float_reg_type_dyn = float_reg_type<address_eval>;

} // namespace GenICam::impl
