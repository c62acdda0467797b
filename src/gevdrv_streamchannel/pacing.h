// When the receive thread reads its socket again: at once, after a sleep, or as soon as a datagram comes.
#pragma once

#include "packet_recv/gvsp_recv_interface.h"

#include <cstddef>
#include <cstdint>

namespace gev::streamchannel::impl {

// A wake costs more than a datagram, and in the middle of a frame nobody waits for a single one: there the thread
// sleeps while the socket's buffer gathers them, for less and less time towards the predicted end. Between frames it
// waits for the first datagram of the next. Where nothing can be predicted it pauses for a moment after a read that
// brought little, as a network card gathers datagrams before it interrupts. A function of what is handed in: no clock,
// no socket. Times are microseconds. Thread-bound.
class pacing {
public:
    static constexpr int64_t gathering_time = 200;
    static constexpr int64_t longest_sleep = 2000;
    static constexpr int64_t shortest_sleep = 40; // less costs as much as the wakes that it saves
    static constexpr size_t little = 16 << 10;    // bytes

    // What the kernel lets the socket's datagrams take of its memory, and the packet size with IP and UDP headers.
    pacing(size_t socket_memory, uint32_t packet_size) noexcept;

    struct reading { // of what one read brought
        uint64_t now = 0;
        size_t bytes = 0;
        bool full = false; // as much as a read can bring: more may wait
        frame_progress frame;
    };
    enum class action { read, sleep, wait }; // wait: until the socket can be read
    struct decision {
        action next = action::wait;
        int64_t time = 0; // of the sleep, from the reading on
        double left = 0;  // of the frame, as predicted; 0: not predicted
    };
    [[nodiscard]] decision after(const reading& seen) noexcept;

private:
    [[nodiscard]] decision decide(const reading& seen) const noexcept;
    [[nodiscard]] decision gather(size_t bytes) const noexcept;
    [[nodiscard]] double left_by_time(uint64_t now, uint32_t length) const noexcept;
    [[nodiscard]] double brief() const noexcept;
    [[nodiscard]] double longest_at(double packets_per_us) const noexcept;
    void frame_began(const reading& seen) noexcept;
    void frame_ended(uint64_t now) noexcept;
    void measure(const reading& seen) noexcept;

    const double packets_held; // by the socket
    const double line_rate;    // packets per microsecond
    // The frame under way or the last one.
    uint64_t serial = 0; // 0: there was none
    uint64_t began = 0;
    uint32_t packets_at_begin = 0;
    uint32_t packets = 0;
    bool under_way = false;
    // Packets per microsecond in the fastest stretch of it and of the one before; 0: not known.
    double rate = 0;
    double rate_before = 0;
    uint64_t stretch_began = 0;
    uint32_t stretch_from = 0;
    uint32_t length_before = 0; // packets; 0: not known
    uint32_t length_before_that = 0;
    // Microseconds per packet, of the frame before and the one before that; 0: not known.
    double step_before = 0;
    double step_before_that = 0;
    double distance = 0; // from one start to the next; 0: not known
    decision last;       // that was none to read on
    uint64_t last_at = 0;
    bool asleep = false;
    bool woke_late = false; // for no fault of the prediction
    // A sleep ran over its frame's end, which came this much before its time at most. Forgotten within so many frames,
    // and more slowly each time.
    double doubt = 0;
    uint32_t doubtful = 0;
    uint32_t in_time = 0; // frames in a row whose end was met
};

} // namespace gev::streamchannel::impl
