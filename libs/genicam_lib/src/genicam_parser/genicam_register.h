// "Register".
#pragma once

#include "impl/implement_inode.h"
#include "impl/register_helper.h"

namespace GenICam::impl {

// A register of plain bytes. Never cached.
class register_type final : public implement_inode<node_base_impl_value, IRegister> {
public:
    using implement_inode::implement_inode;

    void do_resolve_references(document_services& services_, const element_view& view) override;
    void invalidate_register() override;

    [[nodiscard]] result<uint64_t> get_length(unsigned flags) const override;
    [[nodiscard]] std::error_code get(std::span<std::byte> data, unsigned flags) const override;
    [[nodiscard]] std::error_code set(std::span<const std::byte> data, unsigned flags) override;
    [[nodiscard]] result<int64_t> get_address(unsigned flags) const override;
    [[nodiscard]] IPort* get_port() const noexcept override { return access.port_node; }

private:
    [[nodiscard]] result<address_range> checked_range(std::size_t wanted, unsigned flags) const;

    reg_access access;
    address_eval address;
};

} // namespace GenICam::impl
