// How long a frame is expected to take; the patience with lost packets is counted in it.
#pragma once

#include "gvsp_recv_interface.h"

#include <algorithm>
#include <array>
#include <cstdint>

namespace gev::streamchannel::impl {

// Microseconds. A set time stands. An automatic one follows the frames that come, down from the time at the start and
// never beyond it: where frames are triggered by hand their distance says nothing about how long one takes. Less than a
// millisecond it becomes only where the camera's rate allows for it and the frames bear it out: the rate may be one
// that a triggered camera could do, and its packets lie farther apart.
class frame_time {
public:
    static constexpr uint64_t shortest_set = 1000; // below it no patience is left with a lossless frame's own gaps
    static constexpr uint64_t longest = uint64_t{1} << 40;

    // True when a set time was too short and is replaced.
    bool set(const resend_parameters& parameters) noexcept {
        const uint64_t given = parameters.time_per_frame;
        automatic = parameters.auto_time_per_frame || given == 0;
        const uint64_t usable = given == 0 ? resend_parameters{}.time_per_frame : std::min(given, longest);
        const bool too_short = !automatic && usable < shortest_set;
        at_start = std::max(usable, shortest_set);
        shortest = std::min(usable, shortest_set);
        restart();
        return too_short;
    }
    void restart() noexcept {
        distances.fill(at_start);
        current = static_cast<int64_t>(at_start);
        measured_from = -1;
        overdue = 0;
    }
    [[nodiscard]] int64_t operator()() const noexcept { return current; }

    // A frame began; `follows`: it is the one behind the last. Distances are averaged over a millisecond at least, for
    // datagrams that were read together have one time. What waited while this thread was away comes faster than it was
    // sent: what frames of less than a millisecond fall short is made up from the time that it may have been away.
    void frame_began(int64_t now, bool follows) noexcept {
        if (!automatic) return;
        ++frames;
        if (follows && measured_from >= 0 && now >= measured_from) {
            auto elapsed = static_cast<uint64_t>(now - measured_from);
            if (elapsed < shortest_set) return;
            const uint64_t expected = frames * static_cast<uint64_t>(current);
            if (elapsed >= expected) {
                overdue = std::min(overdue + (elapsed - expected), longest_away);
            } else if (elapsed < frames * shortest_set) {
                const uint64_t made_up = std::min(overdue, expected - elapsed);
                overdue -= made_up;
                elapsed += made_up;
            }
            distances[next++ % distances.size()] = elapsed / frames;
            auto sorted = distances;
            const auto middle = sorted.begin() + sorted.size() / 2;
            std::nth_element(sorted.begin(), middle, sorted.end());
            current = static_cast<int64_t>(std::clamp(*middle, shortest, at_start));
        }
        measured_from = now;
        frames = 0;
    }

private:
    // The socket's buffer holds no more at 10 MB/s and above. Where frames pause and are that short behind it, the time
    // is to follow soon.
    static constexpr uint64_t longest_away = 1'000'000;

    std::array<uint64_t, 9> distances{};
    size_t next = 0;
    uint64_t at_start = resend_parameters{}.time_per_frame;
    uint64_t shortest = shortest_set; // that an automatic time becomes
    int64_t current = static_cast<int64_t>(resend_parameters{}.time_per_frame);
    int64_t measured_from = -1; // a frame's start
    uint64_t frames = 0;        // begun since
    uint64_t overdue = 0;       // by which distances were longer than expected
    bool automatic = false;
};

} // namespace gev::streamchannel::impl
