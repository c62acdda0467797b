// Which packets of a block came, and whether they are all.
#pragma once

#include "gvsp_recv_interface.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <vector>

namespace gev::streamchannel::impl {

// What a payload packet brings of that which its id stands for.
enum class packet_share {
    all, // it is full
    end, // it is not, and the announced payload ends in it
    part,
    more,
};

// A frame is complete only when every byte of it came. So a payload packet counts when it is full, reaches the end of
// the payload or stands directly before the trailer; a shorter one anywhere else lost bytes and is missing like any
// other. A frame that is longer than announced is whole only if the one at the announced end is full, too. Ids that no
// bitmap of the announced size holds cannot be told apart, and count only as far as they came in order: none of them
// stands in for a lost one. What a packet has beyond its share may be padding; in a frame of fewer packets than
// expected it was data, for which there is no place. A block that got a packet of another frame with its id may hold
// more of them, and is complete never more.
class received_packets {
public:
    // The only call that allocates.
    void reserve(uint32_t most_packets) {
        words.assign((size_t{most_packets} + bits_per_word - 1) / bits_per_word, 0);
        clear({});
    }
    void clear(const block_geometry& geometry) noexcept {
        std::ranges::fill(words, 0);
        expected = geometry.expected_packets;
        counted = top = trailer_id = short_id = in_order_behind = 0;
        any_too_large = end_not_full = mixed = false;
    }
    // A packet of another frame came with this one's id.
    void mark_mixed() noexcept { mixed = true; }
    [[nodiscard]] bool is_mixed() const noexcept { return mixed; }

    [[nodiscard]] bool holds(uint32_t id) const noexcept {
        return id < expected && (words[id / bits_per_word] >> (id % bits_per_word) & 1) != 0;
    }
    // Packets behind the bitmap are never asked for.
    [[nodiscard]] bool is_missing(uint32_t id) const noexcept { return id < expected && !holds(id); }
    [[nodiscard]] uint32_t count() const noexcept { return counted; }
    [[nodiscard]] uint32_t highest() const noexcept { return top; }        // id of those counted
    [[nodiscard]] uint32_t trailer() const noexcept { return trailer_id; } // 0 until it came
    // Of those that count(), how many there are; fewer than announced when the trailer says so.
    [[nodiscard]] uint32_t due() const noexcept {
        return trailer_id != 0 ? std::min(trailer_id, expected - 1) + 1 : expected;
    }
    // Of the run of missing packets that ends with `last`, which is missing; not looked for below `lowest`.
    [[nodiscard]] uint32_t start_of_missing_run(uint32_t last, uint32_t lowest) const noexcept {
        while (last > lowest && is_missing(last - 1)) --last;
        return last;
    }
    // `last` + 1 when nothing of the range is missing. A word at a time: with odd frames it is asked for each datagram.
    [[nodiscard]] uint64_t first_missing(uint64_t first, uint64_t last) const noexcept {
        const uint64_t end = std::min<uint64_t>(last + 1, expected);
        while (first < end) {
            const uint64_t bit = first % bits_per_word;
            const auto held = static_cast<uint64_t>(std::countr_one(words[first / bits_per_word] >> bit));
            first += held;
            if (held + bit < bits_per_word) break;
        }
        return first < end ? first : last + 1;
    }

    // These three: true for a packet that no earlier one with its id took forward and whose id tells how far the frame
    // has come. A short one does so, too, while it is still missing.
    bool add(uint32_t id) noexcept {
        if (id >= expected) {
            if (id == uint64_t{expected} + in_order_behind) ++in_order_behind;
            return false;
        }
        uint64_t& word = words[id / bits_per_word];
        const uint64_t bit = uint64_t{1} << (id % bits_per_word);
        if ((word & bit) != 0) return false;
        word |= bit;
        ++counted;
        top = std::max(top, id);
        return true;
    }
    bool add_payload(uint32_t id, packet_share share, uint64_t size) noexcept {
        if (id == 0) return false; // the leader's
        if (share == packet_share::more) any_too_large = true;
        if (share == packet_share::end && !holds(id)) end_not_full = true;
        if (share == packet_share::part) {
            const bool forward = add_short(id, size);
            if (uint64_t{id} + 1 != trailer_id) return forward;
        }
        return add(id);
    }
    bool add_trailer(uint32_t id) noexcept {
        if (id == 0 || id == trailer_id) return false;
        if (trailer_id != 0) mark_mixed(); // a frame has one end
        trailer_id = id;
        if (short_id != 0 && short_id + 1 == id) {
            if (counts(short_id))
                short_id = 0; // whole by now
            else
                add(short_id);
        }
        return add(id) || id >= expected;
    }

    // Of a complete frame, the packet before the trailer, in bytes.
    [[nodiscard]] uint64_t last_size(uint32_t full) const noexcept {
        return short_id + 1 == trailer_id ? short_size : full;
    }
    // What came of a payload packet that it holds(), in bytes, at least.
    [[nodiscard]] uint64_t size_of(uint32_t id, uint32_t full) const noexcept {
        if (id == trailer_id) return 0;
        return id == short_id ? short_size : full;
    }
    // Not for a frame that is shorter than announced.
    [[nodiscard]] bool complete_as_announced() const noexcept {
        return uint64_t{trailer_id} + 1 >= expected && complete();
    }
    [[nodiscard]] bool complete() const noexcept {
        if (trailer_id == 0 || counted <= std::min(trailer_id, expected - 1)) return false;
        if (mixed) return false;
        // Of a frame that goes on behind it, the packet at the announced end is as full as the others.
        if (trailer_id >= expected && end_not_full) return false;
        if (trailer_id >= expected) return trailer_id <= uint64_t{expected} + in_order_behind;
        if (any_too_large && trailer_id + 1 < expected) return false;
        return top <= trailer_id || first_missing(0, trailer_id) > trailer_id;
    }

private:
    [[nodiscard]] bool counts(uint32_t id) const noexcept {
        return id < expected ? holds(id) : id < uint64_t{expected} + in_order_behind;
    }
    // Kept in mind until the trailer says whether it is the last.
    bool add_short(uint32_t id, uint64_t size) noexcept {
        if (id < short_id || counts(id) || id > uint64_t{expected} + in_order_behind) return false;
        if (id == short_id) {
            short_size = std::max(short_size, size);
            return false;
        }
        short_id = id;
        short_size = size;
        return id < expected;
    }

    static constexpr uint32_t bits_per_word = 64;

    std::vector<uint64_t> words;
    uint32_t expected = 0;
    uint32_t counted = 0;
    uint32_t top = 0; // highest id counted
    uint32_t trailer_id = 0;
    uint32_t short_id = 0;        // the highest payload packet that was too short to count
    uint64_t short_size = 0;      // of it, in bytes
    uint32_t in_order_behind = 0; // packets behind the bitmap that came one after the other
    bool any_too_large = false;
    bool end_not_full = false; // the packet with which the announced payload ends
    bool mixed = false;
};

[[nodiscard]] inline packet_share share_of(const block_geometry& geometry, uint64_t payload_size, uint32_t packet_id,
                                           uint64_t data_size) noexcept {
    if (data_size == geometry.payload_per_packet) return packet_share::all;
    if (data_size > geometry.payload_per_packet) return packet_share::more;
    const uint64_t begin = (uint64_t{packet_id} - 1) * geometry.payload_per_packet;
    const bool reaches_end = packet_id != 0 && begin < payload_size && begin + data_size >= payload_size;
    return reaches_end ? packet_share::end : packet_share::part;
}

// What a frame has, in bytes, or would have had: what was announced, unless it was longer. Its buffer need not have
// held it all.
[[nodiscard]] inline uint64_t data_size_of(const received_packets& packets, const block_geometry& geometry,
                                           uint64_t payload_size) noexcept {
    if (packets.trailer() < geometry.expected_packets || !packets.complete()) return payload_size;
    return (uint64_t{packets.trailer()} - 2) * geometry.payload_per_packet +
           packets.last_size(geometry.payload_per_packet);
}

} // namespace gev::streamchannel::impl
