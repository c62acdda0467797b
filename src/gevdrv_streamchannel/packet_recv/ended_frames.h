// The frames that ended last: what is late for one of them opens nothing, and a camera that starts over is noticed.
//
// A camera begins its ids anew with each acquisition start of its own, within one stream of ours. What tells such a
// frame from a repeat of the one that had its id before is the timestamp in its leader, or, where there is none to
// compare, the time that went by. Other packets carry no such mark, so they are taken for late ones; for those of an
// open frame see frame_block::brings_the_same.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>

namespace gev::streamchannel::impl {

// Where frames are short an answer to a request can be dozens of them late, and must not open its frame a second time.
//
// Times in microseconds.
class ended_frames {
public:
    static constexpr size_t capacity = 1024;
    // An answer to a request is no later, however short frames are.
    static constexpr uint64_t longest_answer = 1'000'000;

    struct packet_span {
        uint32_t first = 1;
        uint32_t last = 0; // inclusive
        [[nodiscard]] bool empty() const noexcept { return last < first; }
        [[nodiscard]] bool holds(uint32_t id) const noexcept { return first <= id && id <= last; }
        void include(uint32_t from, uint32_t to) noexcept {
            *this = empty() ? packet_span{from, to} : packet_span{std::min(first, from), std::max(last, to)};
        }
    };
    // Packets that a frame asked the camera for once more. Each span is from the first to the last of them.
    struct requests {
        packet_span all;
        packet_span unanswered; // what lacked in the end
    };
    struct leader_mark {
        bool seen = false;
        uint64_t timestamp = 0; // 0 from a camera that sends none
        bool operator==(const leader_mark&) const = default;
    };
    enum class verdict {
        unknown, // no frame that ended: the packet may open one
        late,
        restart, // the camera started over, with this packet
    };

    // Whether a leader begins another frame than the one of the same id that was `known`, `quiet` after its last sign.
    [[nodiscard]] bool begins_another(const leader_mark& known, uint64_t quiet, uint64_t leader_timestamp,
                                      uint64_t frame_time) const noexcept {
        if (known.seen && (known.timestamp != 0 || leader_timestamp != 0)) return known.timestamp != leader_timestamp;
        // A frame's own leader may come at last, later than any frame time says.
        if (is_timed(leader_timestamp) && leader_timestamp <= newest_timestamp) return false;
        return quiet > 4 * frame_time;
    }
    [[nodiscard]] static uint64_t elapsed(uint64_t now, uint64_t since) noexcept {
        return now > since ? now - since : 0;
    }

    void clear() noexcept { *this = {}; }
    void add(uint64_t block_id, const leader_mark& leader, uint64_t now, const requests& asked, bool whole) noexcept {
        entry& place = entries[block_id % capacity];
        const bool same_id = place.block_id == block_id;
        const uint64_t old_leader_until = same_id ? place.old_leader_until : 0;
        const bool repeated = same_id && place.whole && leader.timestamp != 0 && place.leader == leader;
        place = {block_id, leader, now, ++count, old_leader_until, asked, 0, false, whole || repeated, false};
    }
    void leader_came(uint64_t timestamp) noexcept {
        if (newest_timestamp == 0) first_timestamp = timestamp;
        newest_timestamp = std::max(newest_timestamp, timestamp);
    }
    // The ids begin anew. Stragglers of the old ones are kept out for one more frame time, answers as long as they
    // come.
    void start_over(uint64_t now) noexcept {
        for (entry& each : entries) {
            each.of_earlier_round = true;
            if (each.asked.all.holds(0) || each.asked.unanswered.holds(0))
                each.old_leader_until = each.ended + longest_answer;
        }
        started_over = now;
        newest_timestamp = first_timestamp = 0;
    }
    // Whether a frame of this id ended since the ids began.
    [[nodiscard]] bool holds(uint64_t block_id) const noexcept {
        const entry& known = entries[block_id % capacity];
        return known.block_id == block_id && !known.of_earlier_round;
    }
    // Whether a packet of an open frame may be the answer that the frame with its id lacked in the round before.
    [[nodiscard]] bool may_be_old_answer(uint64_t block_id, uint32_t packet_id, uint64_t now) const noexcept {
        const entry& known = entries[block_id % capacity];
        return known.block_id == block_id && known.of_earlier_round && known.asked.unanswered.holds(packet_id) &&
               answers_come(known, now);
    }
    // Whether what the camera refuses to send may have been asked for by the frame with its id in the round before.
    [[nodiscard]] bool may_be_old_refusal(uint64_t block_id, uint64_t now) const noexcept {
        const entry& known = entries[block_id % capacity];
        return known.block_id == block_id && known.of_earlier_round && !known.asked.all.empty() &&
               answers_come(known, now);
    }
    // Whether a leader is the answer that the frame with its id lacked in the round before.
    [[nodiscard]] bool is_old_leader(uint64_t block_id, uint64_t leader_timestamp, uint64_t now) const noexcept {
        const entry& known = entries[block_id % capacity];
        return known.block_id == block_id && now < known.old_leader_until && leader_timestamp != 0 &&
               leader_timestamp < first_timestamp;
    }
    // A packet of the next frame with this id ended the one before.
    void next_came(uint64_t block_id) noexcept {
        entry& known = entries[block_id % capacity];
        if (known.block_id == block_id) known.next_came = true;
    }
    // A trailer that counts as late is not of the frame that ended but of the next one with its id, whose leader has
    // not come. No packet is held back for longer than `held_back`.
    void trailer_was_late(uint64_t block_id, uint64_t now, uint64_t held_back) noexcept {
        entry& known = entries[block_id % capacity];
        if (known.block_id != block_id) return;
        if (known.next_came || elapsed(now, known.ended) > held_back) known.trailer_of_next = now;
    }
    [[nodiscard]] bool trailer_was_of_next(uint64_t block_id, uint64_t now, uint64_t held_back) const noexcept {
        const entry& known = entries[block_id % capacity];
        return known.block_id == block_id && known.trailer_of_next != 0 &&
               elapsed(now, known.trailer_of_next) <= held_back;
    }
    // Whether a leader is that of a frame which had been delivered whole when the ids began anew: its round's first
    // leader came behind it.
    [[nodiscard]] bool is_leader_of_delivered(uint64_t block_id, uint64_t leader_timestamp) const noexcept {
        const entry& known = entries[block_id % capacity];
        return known.block_id == block_id && known.of_earlier_round && known.whole && leader_timestamp != 0 &&
               known.leader.timestamp == leader_timestamp && elapsed(started_over, known.ended) < longest_answer;
    }
    // `leader_timestamp`: null for any other packet.
    [[nodiscard]] verdict judge(uint64_t block_id, uint32_t packet_id, const uint64_t* leader_timestamp, uint64_t now,
                                uint64_t frame_time) noexcept {
        entry& known = entries[block_id % capacity];
        if (known.block_id != block_id) return verdict::unknown;
        if (leader_timestamp != nullptr && is_old_leader(block_id, *leader_timestamp, now)) return verdict::late;
        if (known.of_earlier_round) {
            if (leader_timestamp == nullptr) {
                // A packet may be answered that came all the same, and twice.
                const bool answers = known.asked.all.holds(packet_id) && answers_come(known, now);
                return answers || elapsed(now, started_over) < frame_time ? verdict::late : verdict::unknown;
            }
            const bool repeated = known.leader.timestamp != 0 && known.leader.timestamp == *leader_timestamp;
            return repeated ? verdict::late : verdict::unknown;
        }
        if (leader_timestamp == nullptr) return verdict::late;
        if (takes_for_answer(known, *leader_timestamp, now)) return verdict::late;
        if (*leader_timestamp == 0 && may_be_next_answer(known, now)) return verdict::late;
        if (begins_another(known.leader, elapsed(now, known.ended), *leader_timestamp, frame_time)) {
            return verdict::restart;
        }
        // With nothing to compare, so far back, the ids tell more than the time.
        return is_timed(*leader_timestamp) || count - known.number < ended_lately ? verdict::late : verdict::unknown;
    }

private:
    [[nodiscard]] bool is_timed(uint64_t leader_timestamp) const noexcept {
        return leader_timestamp != 0 && newest_timestamp != 0;
    }

    static constexpr uint64_t ended_lately = 16; // frames
    struct entry {
        uint64_t block_id = 0; // as on the wire; 0 is no frame's
        leader_mark leader;
        uint64_t ended = 0;
        uint64_t number = 0;           // of frames that ended
        uint64_t old_leader_until = 0; // time until which the leader of the round before may come
        requests asked;
        uint64_t trailer_of_next = 0; // time of it, in front of its leader
        bool of_earlier_round = false;
        bool whole = false; // and delivered
        bool next_came = false;
    };
    [[nodiscard]] static bool answers_come(const entry& known, uint64_t now) noexcept {
        return elapsed(now, known.ended) < longest_answer;
    }
    // Each request for a leader may be answered, within frame times that are far shorter than what an answer takes.
    // Where other frames end in between, the ids say that it is no new one.
    [[nodiscard]] bool may_be_next_answer(const entry& known, uint64_t now) const noexcept {
        return known.asked.all.holds(0) && known.number != count && answers_come(known, now);
    }
    // The next frame's leader may be taken for the one that was asked for, but not the one after it, too.
    [[nodiscard]] static bool takes_for_answer(entry& known, uint64_t leader_timestamp, uint64_t now) noexcept {
        if (!known.asked.unanswered.holds(0) || !answers_come(known, now)) return false;
        if (known.leader.seen) return leader_timestamp != 0 && leader_timestamp < known.leader.timestamp;
        known.leader = {true, leader_timestamp};
        if (leader_timestamp == 0) known.ended = now; // answers to repeated requests follow soon
        return true;
    }
    // By id: each is looked up with one step, however many late packets come.
    std::array<entry, capacity> entries{};
    uint64_t count = 0;
    uint64_t newest_timestamp = 0; // since the ids began, like the next
    uint64_t first_timestamp = 0;
    uint64_t started_over = 0;
};

} // namespace gev::streamchannel::impl
