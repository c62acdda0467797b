// A port: the only place where the engine touches a device, a piece of memory or a cache, and the only one with locks.
#pragma once

#include "impl/implement_inode.h"
#include "impl/node_or_value.h"
#include "impl/port_reg_interface.h"
#include "impl/register_cache.h"

#include <GenICam/ports.h>

#include <atomic>
#include <shared_mutex>

namespace GenICam::impl {

// Thread-safe. Transfers hold `lock` shared, so that binding waits for them. Order: lock, then cache_lock; neither is
// held when dependents are invalidated.
class port_device_type final : public implement_inode<node_base_impl_value, IPort>, public port_reg_interface {
public:
    port_device_type(document_services& services_, const element_view& view);

    void do_resolve_references(document_services& services_, const element_view& view) override;

    [[nodiscard]] result<std::size_t> read(int64_t address, std::span<std::byte> data, unsigned flags) override;
    [[nodiscard]] std::error_code write(int64_t address, std::span<const std::byte> data, unsigned flags) override;
    [[nodiscard]] std::error_code bind(IDevicePort* device, unsigned flags) override;
    [[nodiscard]] std::error_code bind(std::span<std::byte> bytes, unsigned flags) override;
    [[nodiscard]] std::error_code bind_readonly(std::span<const std::byte> bytes, unsigned flags) override;
    void unbind(unsigned flags) override;
    [[nodiscard]] bool is_bound() const override;
    [[nodiscard]] result<uint64_t> get_chunk_id(unsigned flags) const override;

    [[nodiscard]] std::error_code write_cached(const caching_terms& how, int64_t address,
                                               std::span<const std::byte> data, unsigned flags) override;
    [[nodiscard]] std::error_code read_cached(const caching_terms& how, int64_t address, std::span<std::byte> data,
                                              unsigned flags) override;
    uint64_t invalidate_range(int64_t address, uint64_t length) override;
    uint64_t invalidate_all() override;
    [[nodiscard]] std::error_code write_text(CachingMode_t mode, text_entry& entry, int64_t address, std::string text,
                                             unsigned flags) override;
    [[nodiscard]] std::error_code read_text(CachingMode_t mode, text_entry& entry, int64_t address, std::string& text,
                                            unsigned flags) override;
    void invalidate_text(text_entry& entry) override;

private:
    // Where an access to the bound memory begins. lock held.
    [[nodiscard]] result<std::size_t> memory_offset(int64_t address, std::size_t length) const;
    [[nodiscard]] std::error_code bind_memory(std::span<const std::byte> bytes, bool writable, unsigned flags);
    void after_binding(unsigned flags);
    // The transfer, without the cache.
    [[nodiscard]] std::error_code transfer(int64_t address, std::span<const std::byte> data, unsigned flags);
    [[nodiscard]] uint64_t changes_so_far() const;
    [[nodiscard]] std::error_code read_whole(int64_t address, std::span<std::byte> data, unsigned flags);

    node_or_const_value<uint64_t> chunk_id;
    bool cache_chunk_data;
    std::atomic<bool> cache_enabled{true}; // written under lock; a stale answer costs a transfer or a spare entry

    mutable std::shared_mutex lock; // guards the binding: the members up to copied
    IDevicePort* device_port = nullptr;
    // Whoever binds read-only memory gets read_only, which keeps every write away from it.
    std::span<std::byte> memory;
    bool memory_bound = false;
    bool read_only = false;
    std::vector<std::byte> copied;

    mutable std::shared_mutex cache_lock; // guards cache and its texts
    // Its changes let a transfer see that its bytes were overtaken by one on another thread.
    register_cache cache;
};

} // namespace GenICam::impl
