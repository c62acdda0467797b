// A switch's port towards the host, which several cameras send through: it forwards at its rate, keeps what comes
// faster in a buffer, and drops what the buffer does not hold.
//
// Time is what the cameras' schedules say, not when their threads get to run: packets are taken in the order of the
// times they were due, and for that each camera waits until no other can still come before it. So what is dropped
// follows from rates and phases alone, however busy the host is.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <vector>

namespace camera_sim {

// Thread-safe; a sender's own calls come from one thread at a time.
class shared_link {
public:
    using time_point = std::chrono::steady_clock::time_point;

    // Both above 0. The cameras' own links have the same rate.
    shared_link(uint64_t rate_bytes_per_second, uint64_t bytes_of_buffer);

    [[nodiscard]] uint64_t bytes_per_second() const noexcept { return rate; }
    [[nodiscard]] std::chrono::nanoseconds time_of(std::size_t wire_bytes) const noexcept;

    [[nodiscard]] std::size_t add_sender();
    // The sender begins now, which is the time returned; its first packet is waited for.
    [[nodiscard]] time_point join(std::size_t sender);
    // The sender will not send before this time; none of its packets is waited for until then.
    void promise(std::size_t sender, time_point earliest);
    // The sender has nothing to send until it promises or sends again.
    void leave(std::size_t sender);
    // Whether a packet that is due at this time gets through. Waits for other senders, or until `given_up`, and for a
    // time that has passed already on this link counts as its newest.
    [[nodiscard]] bool pass(std::size_t sender, time_point due, std::size_t wire_bytes,
                            const std::atomic<bool>& given_up);
    // The same for one that has no place in a schedule: now.
    [[nodiscard]] bool pass_unscheduled(std::size_t wire_bytes);

private:
    [[nodiscard]] bool is_first(std::size_t sender, time_point due) const;
    [[nodiscard]] bool take(time_point due, std::size_t wire_bytes);

    const uint64_t rate;
    const std::chrono::nanoseconds buffer_time; // until a full buffer is empty

    std::mutex mutex; // guards the members below
    std::condition_variable moved;
    std::vector<time_point> earliest; // of each sender's next packet
    time_point newest;                // of all packets so far
    time_point idle_from;             // when all that was taken is forwarded
};

} // namespace camera_sim
