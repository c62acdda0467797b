// Register and memory access to a device, as a stream channel needs it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <expected>
#include <span>
#include <system_error>

namespace gev::controlchannel {

// Calls block for as long as the transfer takes; time-outs in milliseconds. Thread-safe.
class IControlChannelPort {
public:
    virtual ~IControlChannelPort() = default;
    [[nodiscard]] virtual std::expected<uint32_t, std::error_code> read_reg(uint32_t address, uint32_t count,
                                                                            uint32_t timeout) = 0;
    [[nodiscard]] virtual std::error_code write_reg(uint32_t address, uint32_t value, uint32_t flags,
                                                    uint32_t timeout) = 0;
    [[nodiscard]] virtual std::error_code read_mem(uint32_t address, std::span<std::byte> data, uint32_t flags,
                                                   uint64_t timeout) = 0;
    [[nodiscard]] virtual std::error_code write_mem(uint32_t address, std::span<const std::byte> data, uint32_t flags,
                                                    uint64_t timeout) = 0;
};

} // namespace gev::controlchannel
