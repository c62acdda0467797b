// A receiver on a clock of the test's own, its surroundings and its log.
#pragma once

#include "gevdrv_streamchannel/packet_recv/gvsp_recv_resend.h"
#include "gevdrv_streamchannel/packet_recv/gvsp_recv_simple.h"

#include <gds_helper/log.h>
#include <support/datagrams.h>
#include <support/log_capture.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <deque>
#include <string>

namespace gev::streamchannel::test {

constexpr uint32_t incomplete = frame_flags::incomplete;

struct request {
    uint64_t block = 0;
    uint32_t first = 0, last = 0;
    bool extended = false;
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
    shape wire;
    bool out_of_buffers = false;
    uint64_t buffer_size = frame_size;
    size_t taken = 0;
    size_t returned = 0;      // flushed ones included
    frame_receive_stats told; // with the last frame

    surroundings() {
        functions.get_frame = [this]() -> frame_context {
            if (out_of_buffers) return {};
            ++taken;
            auto& buffer = memory.emplace_back(buffer_size + 2 * guard, guard_byte);
            return {&buffer, buffer.data() + guard, buffer_size};
        };
        functions.deliver = [this](const frame_info& info, const frame_receive_stats& stats) {
            told = stats;
            if (info.context.buffer == nullptr) return;
            ++returned;
            frames.push_back(info);
            const std::byte* data = info.context.data;
            pictures.emplace_back(data, data + info.context.size);
        };
        functions.send_resend = [this](uint64_t block, uint32_t first, uint32_t last, bool extended) {
            requests.push_back({block, first, last, extended});
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

    // Every packet's bytes are the frame's own up to a point and untouched behind it. Of a complete frame all are.
    [[nodiscard]] bool bytes_right(size_t index) const {
        const bool complete = (frames[index].flags & frame_flags::incomplete) == 0;
        const auto& picture = pictures[index];
        const uint64_t round = frames[index].timestamp / ticks_per_round;
        for (uint64_t at = 0; at < picture.size(); at += wire.payload) {
            const uint64_t end = std::min<uint64_t>(at + wire.payload, picture.size());
            uint64_t i = at;
            while (i < end && picture[i] == pixel(frames[index].block_id, i, round)) ++i;
            if (complete && i < end) return false;
            while (i < end && picture[i] == guard_byte) ++i;
            if (i < end) return false;
        }
        return true;
    }
    [[nodiscard]] std::vector<uint64_t> delivered() const {
        std::vector<uint64_t> ids;
        for (const frame_info& frame : frames) ids.push_back(frame.block_id);
        return ids;
    }
    void start_over(const shape& with) {
        wire = with;
        buffer_size = wire.frame_size();
        out_of_buffers = false;
        frames.clear();
        pictures.clear();
        requests.clear();
        memory.clear();
        taken = returned = 0;
    }
};

// complete, incomplete, skipped, no buffer, packets asked for, requests
using counts = std::array<uint64_t, 6>;
inline counts counts_of(const frame_receive_stats& stats) {
    return {stats.complete_frames,  stats.incomplete_frames,        stats.skipped_frames,
            stats.no_buffer_frames, stats.resend_packets_requested, stats.resend_requests};
}

// The thread's order of calls.
template <class Receiver>
void feed(Receiver& receiver, uint64_t now, const datagram& data) {
    datagram padded = data; // readable behind its end
    padded.resize(data.size() + 16);
    if (receiver.receive_packet(now, {padded.data(), data.size()})) receiver.check_timers(now);
}

struct log_capture : test_support::log_capture {
    log_capture() : test_support::log_capture(gds_helper::log::gvsp_logger()) {}
};

template <class Receiver>
struct receiver_fixture : testing::Test, surroundings {
    Receiver receiver{functions};
    uint64_t now = 1'000'000;
    uint64_t began = now;                // of the current stream
    std::vector<uint64_t> request_times; // since `began`

    receiver_fixture() {
        functions.send_resend = [this](uint64_t block, uint32_t first, uint32_t last, bool extended) {
            requests.push_back({block, first, last, extended});
            request_times.push_back(now - began);
        };
        begin();
    }
    void begin(const shape& with = {}, const resend_parameters& parameters = {}) {
        start_over(with);
        request_times.clear();
        receiver.set_resend_params(parameters);
        receiver.setup(wire.packet_size(), wire.frame_size());
        began = now;
    }
    void feed_one(const datagram& data) { feed(receiver, now, data); }
    void send(uint64_t block, std::initializer_list<uint32_t> packets) {
        for (const uint32_t packet : packets) feed_one(packet_of(block, packet, wire));
    }
    void whole(uint64_t block, uint32_t lost = UINT32_MAX) {
        for (uint32_t packet = 0; packet <= wire.trailer(); ++packet) {
            if (packet != lost) send(block, {packet});
        }
    }
    void status(uint64_t block, uint32_t packet, uint32_t code) {
        feed_one(header(block, 3, packet, code, wire.extended));
    }
    // Lets time pass, deadline by deadline.
    void pass(uint64_t microseconds) {
        const uint64_t until = now + microseconds;
        for (int64_t wait = receiver.check_timers(now); wait > 0 && now + static_cast<uint64_t>(wait) <= until;) {
            now += static_cast<uint64_t>(wait);
            wait = receiver.check_timers(now);
        }
        now = until;
    }
    [[nodiscard]] counts statistics() const { return counts_of(receiver.get_statistics()); }
    [[nodiscard]] std::vector<uint32_t> flags() const {
        std::vector<uint32_t> all;
        for (const frame_info& frame : frames) all.push_back(frame.flags);
        return all;
    }
};

// The two receivers that assemble frames, by turns.
using both_receivers = testing::Types<impl::gvsp_recv_resend, impl::gvsp_recv_simple>;
struct receiver_names {
    template <class Receiver>
    static std::string GetName(int) {
        return std::is_same_v<Receiver, impl::gvsp_recv_resend> ? "resend" : "simple";
    }
};

} // namespace gev::streamchannel::test
