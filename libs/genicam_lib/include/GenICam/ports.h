// Ports and registers: where a document meets a device or a piece of memory.
#pragma once

#include <GenICam/INode.h>

#include <cstddef>

namespace GenICam {

// What a producer implements so that a document can reach its device. Called from every thread that uses the document,
// several at once; the calls block for as long as the transfer takes.
class IDevicePort {
public:
    virtual ~IDevicePort() = default;
    // The number of bytes read. The engine takes less than asked for as an error.
    [[nodiscard]] virtual result<std::size_t> read(int64_t address, std::span<std::byte> data, unsigned flags) = 0;
    [[nodiscard]] virtual std::error_code write(int64_t address, std::span<const std::byte> data, unsigned flags) = 0;
};

// A port is bound either to a device or to memory. A memory binding may be replaced at any time (that is how chunk and
// event data arrive); a device binding must be undone first. Thread-safe: a rebind waits for transfers under way.
class IPort : public INode {
public:
    static constexpr NodeType_t type = NodeType_t::Port;

    // Straight to the binding, past the register cache. A memory address below 0 counts from the end. Two addresses of
    // a memory binding are reserved and need 8 bytes: 0x7FFFFFFFFFFFFFF0 is the size of the memory in native byte
    // order, 0x7FFFFFFFFFFFFFFF is 0.
    [[nodiscard]] virtual result<std::size_t> read(int64_t address, std::span<std::byte> data, unsigned flags) = 0;
    [[nodiscard]] virtual std::error_code write(int64_t address, std::span<const std::byte> data, unsigned flags) = 0;
    // Not owned: unbind before the device port, or memory bound without bind_flags::copy, goes away.
    [[nodiscard]] virtual std::error_code bind(IDevicePort* device, unsigned flags) = 0;
    [[nodiscard]] virtual std::error_code bind(std::span<std::byte> memory, unsigned flags) = 0;
    [[nodiscard]] virtual std::error_code bind_readonly(std::span<const std::byte> memory, unsigned flags) = 0;
    virtual void unbind(unsigned flags) = 0;
    [[nodiscard]] virtual bool is_bound() const = 0;
    // not_implemented for a port that is none of chunk data.
    [[nodiscard]] virtual result<uint64_t> get_chunk_id(unsigned flags) const = 0;

protected:
    ~IPort() = default;
};

class IRegister : public INode {
public:
    static constexpr NodeType_t type = NodeType_t::Register;

    // Bytes.
    [[nodiscard]] virtual result<uint64_t> get_length(unsigned flags) const = 0;
    // A span shorter than the register covers the bytes at its start; a longer one is an error.
    [[nodiscard]] virtual std::error_code get(std::span<std::byte> data, unsigned flags) const = 0;
    [[nodiscard]] virtual std::error_code set(std::span<const std::byte> data, unsigned flags) = 0;
    [[nodiscard]] virtual result<int64_t> get_address(unsigned flags) const = 0;
    // Null when the document names none.
    [[nodiscard]] virtual IPort* get_port() const noexcept = 0;

protected:
    ~IRegister() = default;
};

} // namespace GenICam
