// Datagrams of a stream of small frames.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace gev::streamchannel::test {

using datagram = std::vector<std::byte>;

// Fields as they stand on the wire, one behind the other.
class builder {
public:
    builder& u8(uint64_t value) { return put(value, 1); }
    builder& u16(uint64_t value) { return put(value, 2); }
    builder& u24(uint64_t value) { return put(value, 3); }
    builder& u32(uint64_t value) { return put(value, 4); }
    builder& u64(uint64_t value) { return put(value, 8); }
    builder& fill(size_t count, uint32_t value = 0) {
        bytes.insert(bytes.end(), count, static_cast<std::byte>(value));
        return *this;
    }
    builder& cut(size_t size) {
        bytes.resize(size);
        return *this;
    }
    operator datagram() const { return bytes; }
    datagram bytes;

private:
    builder& put(uint64_t value, int count) {
        while (count-- > 0) bytes.push_back(static_cast<std::byte>(value >> (8 * count) & 0xFF));
        return *this;
    }
};

inline builder standard(uint32_t status, uint64_t block, uint32_t format, uint32_t packet) {
    return builder{}.u16(status).u16(block).u8(format).u24(packet);
}
inline builder extended(uint32_t status, uint32_t flags, uint64_t block, uint32_t format, uint32_t packet) {
    return builder{}.u16(status).u16(flags).u8(0x80 | format).u24(0).u64(block).u32(packet);
}

inline constexpr uint32_t payload_per_packet = 100;
inline constexpr uint32_t packet_size = payload_per_packet + 36;
inline constexpr uint32_t data_packets = 4;
inline constexpr uint32_t frame_size = payload_per_packet * data_packets;
inline constexpr uint32_t trailer_id = data_packets + 1;

// Frames of whole packets.
struct shape {
    uint32_t payload = payload_per_packet;
    uint32_t count = data_packets;
    bool extended = false;
    uint32_t round = 0; // of a camera that starts over: other times, other bytes
    bool timestamps = true;
    uint64_t timestamp = 0; // of the next leader, unless 0
    [[nodiscard]] uint32_t frame_size() const { return payload * count; }
    [[nodiscard]] uint32_t packet_size() const { return payload + (extended ? 48 : 36); }
    [[nodiscard]] uint32_t trailer() const { return count + 1; }
};

inline constexpr uint64_t ticks_per_round = 1'000'000;

inline std::byte pixel(uint64_t block, uint64_t position, uint64_t round = 0) {
    return static_cast<std::byte>((block * 31 + position * 7 + position / 100 + round * 83) & 0xFF);
}

inline builder header(uint64_t block, uint32_t format, uint32_t packet, uint32_t status = 0, bool ext = false) {
    return ext ? extended(status, 0, block, format, packet) : standard(status, block, format, packet);
}

// Packet 0 is the leader, the one behind the data the trailer.
inline datagram packet_of(uint64_t block, uint32_t packet, const shape& wire = {}) {
    const bool leader = packet == 0;
    const bool trailer = packet == wire.trailer();
    builder result = header(block, leader ? 1 : trailer ? 2 : 3, packet, 0, wire.extended);
    if (leader) {
        const uint64_t own = wire.timestamps ? wire.round * ticks_per_round + (block & 0xFFFF) : 0;
        const uint64_t timestamp = wire.timestamp != 0 ? wire.timestamp : own;
        result.u32(1).u64(timestamp).u32(0x01080001).u32(wire.payload).u32(wire.count).u64(0).u32(0); // 1: image
    } else if (trailer) {
        result.u32(1).u32(wire.count);
    } else {
        for (uint32_t i = 0; i < wire.payload; ++i) {
            result.bytes.push_back(pixel(block, uint64_t{packet - 1} * wire.payload + i, wire.round));
        }
    }
    return result;
}

} // namespace gev::streamchannel::test
