// What a register talks to.
#pragma once

#include "register_cache.h"

#include <GenICam/error.h>
#include <GenICam/types.h>

#include <atomic>
#include <cstddef>
#include <span>

namespace GenICam::impl {

struct caching_terms {
    CachingMode_t mode = CachingMode_t::WriteThrough;
    std::atomic<uint64_t> since{register_cache::from_the_start}; // bytes cached before this invalidation do not count
};

class port_reg_interface {
public:
    [[nodiscard]] virtual std::error_code write_cached(const caching_terms& how, int64_t address,
                                                       std::span<const std::byte> data, unsigned flags) = 0;
    [[nodiscard]] virtual std::error_code read_cached(const caching_terms& how, int64_t address,
                                                      std::span<std::byte> data, unsigned flags) = 0;
    // These give the number of the invalidation, for caching_terms::since.
    virtual uint64_t invalidate_range(int64_t address, uint64_t length) = 0;
    virtual uint64_t invalidate_all() = 0;

    // The same for a text register, with its entry. A text with a NUL in it stands for the whole register unless the
    // flags ask for raw bytes.
    [[nodiscard]] virtual std::error_code write_text(CachingMode_t mode, text_entry& entry, int64_t address,
                                                     std::string text, unsigned flags) = 0;
    [[nodiscard]] virtual std::error_code read_text(CachingMode_t mode, text_entry& entry, int64_t address,
                                                    std::string& text, unsigned flags) = 0;
    virtual void invalidate_text(text_entry& entry) = 0;

protected:
    ~port_reg_interface() = default;
};

} // namespace GenICam::impl
