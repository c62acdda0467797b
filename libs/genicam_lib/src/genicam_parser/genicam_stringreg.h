// "StringReg".
#pragma once

#include "impl/implement_inode.h"
#include "impl/register_helper.h"

#include <GenICam/value_nodes.h>

namespace GenICam::impl {

// A register that is a text, ended by a NUL byte or by the register's end. Too long for the entries of the port's
// cache, so it brings one of its own, which the port guards and drops like them.
class string_reg_type final : public implement_inode<node_base_impl_value, IString> {
public:
    using implement_inode::implement_inode;

    void do_resolve_references(document_services& services_, const element_view& view) override;
    void invalidate_register() override;

    [[nodiscard]] result<std::string> get_val(unsigned flags) const override;
    [[nodiscard]] std::error_code set_val(std::string_view text, unsigned flags) override;
    [[nodiscard]] result<uint64_t> get_max_length(unsigned flags) const override;

private:
    [[nodiscard]] result<address_range> checked_range(unsigned flags) const;

    reg_access access;
    address_eval address;
    mutable text_entry cached;
};

} // namespace GenICam::impl
