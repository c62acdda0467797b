// What a register talks to.
#pragma once

#include <GenICam/error.h>
#include <GenICam/types.h>

#include <cstddef>
#include <span>

namespace GenICam::impl {

class port_reg_interface {
public:
    [[nodiscard]] virtual std::error_code write_cached(CachingMode_t mode, int64_t address,
                                                       std::span<const std::byte> data, unsigned flags) = 0;
    [[nodiscard]] virtual std::error_code read_cached(CachingMode_t mode, int64_t address, std::span<std::byte> data,
                                                      unsigned flags) = 0;
    virtual void invalidate_range(int64_t address, uint64_t length) = 0;

protected:
    ~port_reg_interface() = default;
};

} // namespace GenICam::impl
