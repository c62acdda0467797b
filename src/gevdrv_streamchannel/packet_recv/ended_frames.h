// The frames that ended last: what is late for one of them opens nothing, and a camera that starts over is noticed.
//
// A camera begins its ids anew with each acquisition start of its own, within one stream of ours. What tells such a
// frame from a repeat of the one that had its id before is the timestamp in its leader, or, where there is none to
// compare, the time that went by. Other packets carry no such mark, so they are taken for late ones.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>

namespace gev::streamchannel::impl {

// Times in microseconds.
class ended_frames {
public:
    static constexpr size_t capacity = 16;

    struct leader_mark {
        bool seen = false;
        uint64_t timestamp = 0; // 0 from a camera that sends none
    };
    enum class verdict {
        unknown, // no frame that ended: the packet may open one
        late,
        restart, // the camera started over, with this packet
    };

    // Whether a leader begins another frame than the one of the same id that was `known`, `quiet` after its last sign.
    [[nodiscard]] static bool begins_another(const leader_mark& known, uint64_t quiet, uint64_t leader_timestamp,
                                             uint64_t frame_time) noexcept {
        if (known.seen && (known.timestamp != 0 || leader_timestamp != 0)) return known.timestamp != leader_timestamp;
        return quiet > 4 * frame_time;
    }
    [[nodiscard]] static uint64_t elapsed(uint64_t now, uint64_t since) noexcept {
        return now > since ? now - since : 0;
    }

    void clear() noexcept { *this = {}; }
    void add(uint64_t block_id, const leader_mark& leader, uint64_t now) noexcept {
        entries[next++ % capacity] = {block_id, leader, now, false};
    }
    // The ids begin anew. Stragglers of the old ones are kept out for one more frame time.
    void start_over(uint64_t now) noexcept {
        for (entry& each : entries) each.of_earlier_round = true;
        started_over = now;
    }
    // Whether a frame of this id ended since the ids began.
    [[nodiscard]] bool holds(uint64_t block_id) const noexcept {
        return std::ranges::any_of(
            entries, [&](const entry& each) { return each.block_id == block_id && !each.of_earlier_round; });
    }
    // `leader_timestamp`: null for any other packet.
    [[nodiscard]] verdict judge(uint64_t block_id, const uint64_t* leader_timestamp, uint64_t now,
                                uint64_t frame_time) const noexcept {
        for (size_t back = 1; back <= capacity; ++back) { // newest first
            const entry& each = entries[(next - back) % capacity];
            if (each.block_id != block_id) continue;
            if (each.of_earlier_round) {
                if (leader_timestamp == nullptr) {
                    return elapsed(now, started_over) < frame_time ? verdict::late : verdict::unknown;
                }
                const bool repeated = each.leader.timestamp != 0 && each.leader.timestamp == *leader_timestamp;
                return repeated ? verdict::late : verdict::unknown;
            }
            const bool another = leader_timestamp != nullptr &&
                                 begins_another(each.leader, elapsed(now, each.ended), *leader_timestamp, frame_time);
            return another ? verdict::restart : verdict::late;
        }
        return verdict::unknown;
    }

private:
    struct entry {
        uint64_t block_id = 0; // as on the wire; 0 is no frame's
        leader_mark leader;
        uint64_t ended = 0;
        bool of_earlier_round = false;
    };
    std::array<entry, capacity> entries{};
    size_t next = 0;
    uint64_t started_over = 0;
};

} // namespace gev::streamchannel::impl
