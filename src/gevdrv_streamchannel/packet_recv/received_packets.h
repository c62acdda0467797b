// Which packets of a block came, and whether they are all.
#pragma once

#include "gvsp_recv_interface.h"

#include <algorithm>
#include <cstdint>
#include <vector>

namespace gev::streamchannel::impl {

// A frame is complete only when every byte of it came. So a payload packet counts when it is full, reaches the end of
// the payload or stands directly before the trailer; a shorter one anywhere else lost bytes and is missing like any
// other. Ids that no bitmap of the announced size holds cannot be told apart, and count only as far as they came in
// order: none of them stands in for a lost one.
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
    }

    [[nodiscard]] bool holds(uint32_t id) const noexcept {
        return id < expected && (words[id / bits_per_word] >> (id % bits_per_word) & 1) != 0;
    }
    // Packets behind the bitmap are never asked for.
    [[nodiscard]] bool is_missing(uint32_t id) const noexcept { return id < expected && !holds(id); }
    [[nodiscard]] uint32_t count() const noexcept { return counted; }
    [[nodiscard]] uint32_t trailer() const noexcept { return trailer_id; } // 0 until it came
    [[nodiscard]] uint32_t start_of_missing_run(uint32_t last) const noexcept {
        while (last > 0 && is_missing(last - 1)) --last;
        return last;
    }
    // `last` + 1 when nothing of the range is missing.
    [[nodiscard]] uint64_t first_missing(uint64_t first, uint64_t last) const noexcept {
        while (first <= last && !is_missing(static_cast<uint32_t>(first))) ++first;
        return first;
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
    bool add_payload(uint32_t id, bool whole) noexcept {
        if (id == 0) return false; // the leader's
        if (!whole && uint64_t{id} + 1 != trailer_id) return add_short(id);
        return add(id);
    }
    bool add_trailer(uint32_t id) noexcept {
        if (id == 0 || id == trailer_id) return false;
        trailer_id = id;
        if (short_id != 0 && short_id + 1 == id) add(short_id);
        return add(id) || id >= expected;
    }

    [[nodiscard]] bool all_expected() const noexcept { return counted == expected; }
    [[nodiscard]] bool complete() const noexcept {
        if (trailer_id == 0 || counted <= std::min(trailer_id, expected - 1)) return false;
        if (trailer_id >= expected) return trailer_id <= uint64_t{expected} + in_order_behind;
        return top <= trailer_id || first_missing(0, trailer_id) > trailer_id;
    }

private:
    // Kept in mind until the trailer says whether it is the last.
    bool add_short(uint32_t id) noexcept {
        if (id <= short_id || id > uint64_t{expected} + in_order_behind) return false;
        short_id = id;
        return id < expected;
    }

    static constexpr uint32_t bits_per_word = 64;

    std::vector<uint64_t> words;
    uint32_t expected = 0;
    uint32_t counted = 0;
    uint32_t top = 0; // highest id counted
    uint32_t trailer_id = 0;
    uint32_t short_id = 0;        // the highest payload packet that was too short to count
    uint32_t in_order_behind = 0; // packets behind the bitmap that came one after the other
};

// Whether a payload packet of this size can be all that its id stands for.
[[nodiscard]] inline bool is_whole(const block_geometry& geometry, uint64_t payload_size, uint32_t packet_id,
                                   uint64_t data_size) noexcept {
    if (data_size >= geometry.payload_per_packet) return true;
    const uint64_t begin = (uint64_t{packet_id} - 1) * geometry.payload_per_packet;
    return packet_id != 0 && begin < payload_size && begin + data_size >= payload_size;
}

} // namespace gev::streamchannel::impl
