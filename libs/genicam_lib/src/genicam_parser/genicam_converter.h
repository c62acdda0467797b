// Nodes that compute their value from another node's, both ways.
#pragma once

#include "impl/numeric_feature.h"
#include "impl/variable_map.h"

namespace GenICam::impl {

namespace converter {

// Two formulas around a target. Each stands alone: neither is taken as the other's inverse.
class converter_impl {
public:
    explicit converter_impl(bool is_integer) noexcept : variables(is_integer) {}

    void resolve_converter_references(node_base_data& owner, const element_view& view, bool is_integer);

    [[nodiscard]] INode* target() const noexcept { return value_node; }
    [[nodiscard]] bool is_writable() const noexcept { return value_node != nullptr && !formula_to.empty(); }
    [[nodiscard]] result<math_parser::tValue> read(unsigned flags) const;
    // Intended: a value that is rounded to a limit of an integer target, or lies within the tolerance beyond it, writes
    // the limit. The formula's result for it lies beyond, and registers, which check nothing, would take its low bytes:
    // FROM*0.5 over one byte reads 255 as 128, of which TO*2 makes 256, written as 0. What else is beyond the target's
    // limits goes to the target as it is, and so does what its low bytes show better than the limit: documents that
    // count on the bytes of a negative number do exist.
    [[nodiscard]] std::error_code write(math_parser::tValue value, unsigned flags) const;
    // The node's limit by the target's, as far as the slope tells; nothing for a varying slope, and for a target
    // without the limit that counts: formulas wrap, so the type's extreme cannot be converted.
    [[nodiscard]] std::optional<result<math_parser::tValue>> limit_value(limit which, Slope_t slope,
                                                                         unsigned flags) const;
    // The target's set, converted; values that fail are dropped.
    [[nodiscard]] result<std::vector<math_parser::tValue>> valid_values(unsigned flags) const;

private:
    struct converted_limit {
        math_parser::tValue value;
        bool is_extreme = false; // of the target's type: the target has no such limit
    };
    [[nodiscard]] result<converted_limit> from_target_limit(limit which, unsigned flags) const;
    // The result of the formula for `value`, or the target's limit if it is off by the rounding only.
    [[nodiscard]] int64_t within_target(int64_t wanted, math_parser::tValue value, unsigned flags) const;

    INode* value_node = nullptr;
    variable_map_impl variables;
    math_parser::compiled_formula_data formula_from;
    math_parser::compiled_formula_data formula_to;
};

} // namespace converter

// T is int64_t for "IntConverter" and double for "Converter".
template <class T>
class converter_node : public implement_inode<node_base_impl_dependent_cache, number_interface<T>> {
public:
    converter_node(document_services& services_, const element_view& view);

    void do_resolve_references(document_services& services_, const element_view& view) final;
    [[nodiscard]] INode* get_access_source() const final { return conversion.target(); }
    [[nodiscard]] std::error_code set_val(T value, unsigned flags) final;
    [[nodiscard]] result<T> get_val(unsigned flags) const final;
    [[nodiscard]] result<T> get_min(unsigned flags) const final;
    [[nodiscard]] result<T> get_max(unsigned flags) const final;
    [[nodiscard]] result<T> get_inc(unsigned flags) const final;
    [[nodiscard]] std::string_view get_unit() const final { return this->child_text("Unit"); }
    [[nodiscard]] IncMode_t get_inc_mode() const final;
    [[nodiscard]] result<std::vector<T>> get_valid_value_set(unsigned flags) const final;

private:
    using access_scope = node_base_data::access_scope;
    [[nodiscard]] result<T> get_limit(limit which, unsigned flags) const;

    converter::converter_impl conversion;
    Slope_t slope = Slope_t::Automatic;
    bool is_linear = false;
};

class int_converter_type final : public converter_node<int64_t> {
public:
    using converter_node::converter_node;
    [[nodiscard]] IntRepresentation_t get_representation() const override;
    [[nodiscard]] std::span<INode* const> get_selected() const noexcept override { return selected; }
};

class float_converter_type final : public converter_node<double> {
public:
    using converter_node::converter_node;
    [[nodiscard]] FloatRepresentation_t get_representation() const override;
    [[nodiscard]] DisplayNotation_t get_display_notation() const override;
    [[nodiscard]] int64_t get_display_precision() const override;
};

} // namespace GenICam::impl
