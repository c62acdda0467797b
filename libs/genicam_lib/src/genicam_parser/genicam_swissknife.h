// Nodes that compute a value from any number of others. Read only.
#pragma once

#include "impl/numeric_feature.h"
#include "impl/variable_map.h"

namespace GenICam::impl {

// T is int64_t for "IntSwissKnife" and double for "SwissKnife".
template <class T>
class swissknife_node : public implement_inode<node_base_impl_dependent_cache, number_interface<T>> {
public:
    swissknife_node(document_services& services_, const element_view& view);

    void do_resolve_references(document_services& services_, const element_view& view) final;
    [[nodiscard]] std::error_code set_val(T, unsigned) final { return genicam_errc::not_implemented; }
    [[nodiscard]] result<T> get_val(unsigned flags) const final;
    [[nodiscard]] result<T> get_min(unsigned) const final { return std::numeric_limits<T>::lowest(); }
    [[nodiscard]] result<T> get_max(unsigned) const final { return std::numeric_limits<T>::max(); }
    [[nodiscard]] result<T> get_inc(unsigned flags) const final;
    [[nodiscard]] std::string_view get_unit() const final { return this->child_text("Unit"); }
    [[nodiscard]] IncMode_t get_inc_mode() const final { return IncMode_t::None; }
    [[nodiscard]] result<std::vector<T>> get_valid_value_set(unsigned) const final {
        return fail(genicam_errc::not_implemented);
    }

private:
    using access_scope = node_base_data::access_scope;

    converter::variable_map_impl variables;
    math_parser::compiled_formula_data formula;
};

class int_swissknife_type final : public swissknife_node<int64_t> {
public:
    using swissknife_node::swissknife_node;
    [[nodiscard]] IntRepresentation_t get_representation() const override;
    [[nodiscard]] std::span<INode* const> get_selected() const noexcept override { return selected; }
};

class float_swissknife_type final : public swissknife_node<double> {
public:
    using swissknife_node::swissknife_node;
    [[nodiscard]] FloatRepresentation_t get_representation() const override;
    [[nodiscard]] DisplayNotation_t get_display_notation() const override;
    [[nodiscard]] int64_t get_display_precision() const override;
};

} // namespace GenICam::impl
