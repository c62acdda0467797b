// Datagrams as a camera sends them, in both id forms.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace datagrams {

// Bytes behind the datagram, as every receive buffer has them.
inline constexpr size_t margin = 100;

class builder {
public:
    builder& u8(uint32_t value) {
        bytes.push_back(static_cast<std::byte>(value));
        return *this;
    }
    builder& u16(uint32_t value) { return u8(value >> 8 & 255).u8(value & 255); }
    builder& u24(uint32_t value) { return u8(value >> 16 & 255).u16(value & 65535); }
    builder& u32(uint32_t value) { return u16(value >> 16).u16(value & 65535); }
    builder& u64(uint64_t value) { return u32(static_cast<uint32_t>(value >> 32)).u32(static_cast<uint32_t>(value)); }
    builder& fill(size_t count, uint32_t value = 0) {
        bytes.insert(bytes.end(), count, static_cast<std::byte>(value));
        return *this;
    }
    builder& cut(size_t size) {
        bytes.resize(size);
        return *this;
    }
    std::vector<std::byte> bytes;
};

inline builder standard(uint32_t status, uint32_t block, uint32_t format, uint32_t packet) {
    return builder{}.u16(status).u16(block).u8(format).u24(packet);
}
inline builder extended(uint32_t status, uint32_t flags, uint64_t block, uint32_t format, uint32_t packet) {
    return builder{}.u16(status).u16(flags).u8(0x80 | format).u24(0).u64(block).u32(packet);
}
inline builder standard_leader(uint32_t block, uint32_t payload_type = 1, uint32_t packet = 0, uint32_t status = 0) {
    return standard(status, block, 1, packet)
        .u16(0)
        .u16(payload_type)
        .u64(0x1122334455667788)
        .u32(0x01080001)
        .u32(640)
        .u32(480)
        .u64(0);
}
inline builder extended_leader(uint64_t block, uint32_t payload_type = 1, uint32_t packet = 0) {
    return extended(0, 0, block, 1, packet)
        .u16(0)
        .u16(payload_type)
        .u64(0x1122334455667788)
        .u32(0x01080001)
        .u32(640)
        .u32(480)
        .u32(0)
        .u32(0)
        .u32(0);
}

} // namespace datagrams
