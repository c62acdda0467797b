// Integer and float features in their four common forms; genicam_integer.h and genicam_float.h name them.
#pragma once

#include "impl/numeric_feature.h"
#include "impl/value_eval_indexed.h"

namespace GenICam::impl {

// Holds its value.
template <class T>
class floating_value_type final : public numeric_feature<node_base_impl_value, T> {
public:
    using numeric_feature<node_base_impl_value, T>::numeric_feature;

    void do_resolve_references(document_services& services_, const element_view& view) override;
    [[nodiscard]] std::error_code set_val(T value, unsigned flags) override;
    [[nodiscard]] result<T> get_val(unsigned flags) const override;

private:
    using access_scope = node_base_data::access_scope;
    T value{};
};

// A value imposed RO: never written, whatever the flags.
template <class T>
class constant_value_type final : public numeric_feature<node_base_impl_dependent_cache, T> {
public:
    using numeric_feature<node_base_impl_dependent_cache, T>::numeric_feature;

    void do_resolve_references(document_services& services_, const element_view& view) override;
    [[nodiscard]] std::error_code set_val(T, unsigned) override { return genicam_errc::access_denied; }
    [[nodiscard]] result<T> get_val(unsigned flags) const override;

private:
    using access_scope = node_base_data::access_scope;
    T value{};
};

// The value of another node, limits and display data included where it has none of its own.
template <class T>
class pValue_type final : public numeric_feature<node_base_impl_dependent_cache, T> {
public:
    using numeric_feature<node_base_impl_dependent_cache, T>::numeric_feature;

    void do_resolve_references(document_services& services_, const element_view& view) override;
    [[nodiscard]] INode* get_access_source() const override { return target; }
    [[nodiscard]] std::error_code set_val(T value, unsigned flags) override;
    [[nodiscard]] result<T> get_val(unsigned flags) const override;

private:
    using access_scope = node_base_data::access_scope;
    [[nodiscard]] result<INode*> value_source(unsigned) const override { return target; }
    INode* target = nullptr;
};

// One of several values, chosen by an index node. Constants may be written; each index keeps its own.
template <class T>
class pIndex_type final : public numeric_feature<node_base_impl_value, T> {
public:
    using numeric_feature<node_base_impl_value, T>::numeric_feature;

    void do_resolve_references(document_services& services_, const element_view& view) override;
    [[nodiscard]] INode* get_access_source() const override { return value_source(0).value_or(nullptr); }
    [[nodiscard]] std::error_code set_val(T value, unsigned flags) override;
    [[nodiscard]] result<T> get_val(unsigned flags) const override;

private:
    using access_scope = node_base_data::access_scope;
    using entry = typename value_eval_indexed<T>::entry;
    [[nodiscard]] result<INode*> value_source(unsigned flags) const override;
    [[nodiscard]] result<entry*> current_entry(unsigned flags) const;

    IInteger* index = nullptr; // null when the document is at fault
    mutable value_eval_indexed<T> values;
};

// The "pValue" target of a feature, which becomes its source; logs and gives null when there is none.
[[nodiscard]] INode* resolve_pValue(node_base_data& owner, const element_view& view);
// The "pIndex" node, likewise.
[[nodiscard]] IInteger* resolve_pIndex(node_base_data& owner, const element_view& view);

} // namespace GenICam::impl
