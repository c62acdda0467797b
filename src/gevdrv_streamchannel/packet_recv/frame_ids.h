// Which frame a block id stands for, and how many frames went by of which nothing came.
#pragma once

#include "gvsp_recv_interface.h"

#include <cstdint>

namespace gev::streamchannel::impl {

// A jump far ahead may be one stray id. Its frames count as lost only once something
// follows that bears it out: a frame of that id that is whole, or one behind it. When instead the frames go on where
// they were, the stray one is forgotten.
class frame_ids {
public:
    static constexpr uint64_t far = 16; // frames

    struct opened_frame {
        uint64_t id = 0;      // unwrapped
        uint64_t skipped = 0; // in front of it
        uint64_t lost = 0;    // newly known to be lost for good
        bool follows = false; // the one opened before
    };

    void restart() noexcept { *this = {}; }
    [[nodiscard]] bool started() const noexcept { return any; }
    // Whether the first id stands for a frame far back.
    [[nodiscard]] bool is_old_first(uint64_t block_id, bool extended) const noexcept {
        auto lap = ids;
        return any && highest >= far && lap.unwrap(block_id, extended) == 0;
    }

    // A packet opens the frame of this id. Of the frames skipped in front of it `recoverable` may still be had; in
    // front of the very first one nothing was skipped, as far as is known.
    [[nodiscard]] opened_frame opened(uint64_t block_id, bool extended, uint64_t recoverable) noexcept {
        if (doubted && goes_on_before_jump(block_id, extended)) {
            ids = ids_before_jump;
            highest = highest_before_jump;
            doubted = false;
        }
        const block_id_unwrapper ids_before = ids;
        opened_frame result{.id = ids.unwrap(block_id, extended)};
        if (!any) {
            any = true;
            highest = result.id;
        } else if (result.id > highest) {
            if (doubted) result.lost = borne_out();
            result.skipped = result.id - highest - 1;
            result.follows = result.skipped == 0;
            const uint64_t lost = result.skipped > recoverable ? result.skipped - recoverable : 0;
            if (result.skipped > far) {
                doubted = true;
                lost_in_jump = lost;
                ids_before_jump = ids_before;
                highest_before_jump = highest;
            } else {
                result.lost += lost;
            }
            highest = result.id;
        } else if (highest - result.id >= far && result.id == last_opened + 1) {
            // Two in a row far back: the ids began anew.
            doubted = false;
            highest = result.id;
        }
        last_opened = result.id;
        return result;
    }
    // Every packet of this frame came. The number of frames that are known to be lost now.
    [[nodiscard]] uint64_t completed(uint64_t frame_id) noexcept {
        return doubted && frame_id == highest ? borne_out() : 0;
    }

private:
    [[nodiscard]] uint64_t borne_out() noexcept {
        doubted = false;
        return lost_in_jump;
    }
    [[nodiscard]] bool goes_on_before_jump(uint64_t block_id, bool extended) const noexcept {
        auto before = ids_before_jump;
        const uint64_t id = before.unwrap(block_id, extended);
        return id > highest_before_jump && id - highest_before_jump <= far;
    }

    block_id_unwrapper ids;
    block_id_unwrapper ids_before_jump; // of meaning while doubted, like the next two
    uint64_t highest_before_jump = 0;
    uint64_t lost_in_jump = 0;
    uint64_t highest = 0;     // of meaning while any, like the next
    uint64_t last_opened = 0; // by a packet of its own
    bool any = false;
    bool doubted = false;
};

} // namespace gev::streamchannel::impl
