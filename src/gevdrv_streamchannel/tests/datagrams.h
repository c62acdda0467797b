// Datagrams of a small standard-id stream, and a receiver's surroundings on a clock of the test's own.
#pragma once

#include "gevdrv_streamchannel/packet_recv/gvsp_recv_interface.h"

#include <deque>
#include <map>
#include <tuple>
#include <vector>

namespace gev::streamchannel::test {

using datagram = std::vector<std::byte>;

inline constexpr uint32_t payload_per_packet = 100;
inline constexpr uint32_t packet_size = payload_per_packet + 36;
inline constexpr uint32_t data_packets = 4;
inline constexpr uint32_t frame_size = payload_per_packet * data_packets;
inline constexpr uint32_t trailer_id = data_packets + 1;

inline std::byte pixel(uint64_t block, uint64_t position) {
    return static_cast<std::byte>((block * 31 + position * 7 + position / 100) & 0xFF);
}

inline datagram header(uint32_t block, uint32_t format, uint32_t packet, uint32_t status = 0) {
    datagram result;
    for (const uint32_t value : {status >> 8, status, block >> 8, block, format, packet >> 16, packet >> 8, packet}) {
        result.push_back(static_cast<std::byte>(value & 0xFF));
    }
    return result;
}

// Packet 0 is the leader, 5 the trailer.
inline datagram packet_of(uint32_t block, uint32_t packet) {
    if (packet == 0) {
        datagram result = header(block, 1, 0);
        result.resize(44);
        result[11] = std::byte{1};
        result[19] = static_cast<std::byte>(block & 0xFF);
        return result;
    }
    if (packet == trailer_id) {
        datagram result = header(block, 2, packet);
        result.resize(16);
        result[11] = std::byte{1};
        return result;
    }
    datagram result = header(block, 3, packet);
    for (uint32_t i = 0; i < payload_per_packet; ++i) {
        result.push_back(pixel(block, uint64_t{packet - 1} * payload_per_packet + i));
    }
    return result;
}

struct request {
    uint64_t block;
    uint32_t first, last;
    bool operator==(const request&) const = default;
};

// Buffers have guard bytes on both ends.
struct surroundings {
    static constexpr size_t guard = 64;
    static constexpr std::byte guard_byte{0xA5};

    stream_functions functions;
    std::vector<frame_info> frames;
    std::vector<std::vector<std::byte>> pictures; // of `frames`
    std::vector<request> requests;
    std::deque<std::vector<std::byte>> memory;
    bool out_of_buffers = false;
    size_t taken = 0;

    surroundings() {
        functions.get_frame = [this]() -> frame_context {
            if (out_of_buffers) return {};
            ++taken;
            auto& buffer = memory.emplace_back(frame_size + 2 * guard, guard_byte);
            return {&buffer, buffer.data() + guard, frame_size};
        };
        functions.deliver = [this](const frame_info& info, const frame_receive_stats&) {
            frames.push_back(info);
            const std::byte* data = info.context.data;
            pictures.emplace_back(data, data + info.context.size);
        };
        functions.send_resend = [this](uint64_t block, uint32_t first, uint32_t last, bool) {
            requests.push_back({block, first, last});
        };
    }

    [[nodiscard]] bool guards_intact() const {
        for (const auto& buffer : memory) {
            for (size_t i = 0; i < guard; ++i) {
                if (buffer[i] != guard_byte || buffer[buffer.size() - 1 - i] != guard_byte) return false;
            }
        }
        return true;
    }

    // Every byte that isn't untouched is the frame's own; all of them when it counts as complete.
    [[nodiscard]] bool bytes_right(size_t index) const {
        const bool complete = (frames[index].flags & frame_flags::incomplete) == 0;
        for (uint64_t at = 0; at < frame_size; at += payload_per_packet) {
            bool untouched = true;
            bool right = true;
            for (uint64_t i = at; i < at + payload_per_packet; ++i) {
                untouched = untouched && pictures[index][i] == guard_byte;
                right = right && pictures[index][i] == pixel(frames[index].block_id, i);
            }
            if (!right && (complete || !untouched)) return false;
        }
        return true;
    }
};

// The thread's order of calls.
template <class Receiver>
void feed(Receiver& receiver, uint64_t now, const datagram& data) {
    datagram padded = data; // readable behind its end
    padded.resize(data.size() + 16);
    if (receiver.receive_packet(now, {padded.data(), data.size()})) receiver.check_timers(now);
}

} // namespace gev::streamchannel::test
