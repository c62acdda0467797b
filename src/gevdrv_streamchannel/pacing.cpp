#include "pacing.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace gev::streamchannel::impl {

namespace {

constexpr double fastest_line = 1250;      // bytes per microsecond, 10 Gbit/s: what may begin at any time
constexpr double sudden_rise = 4;          // of the rate, that the socket holds in a sleep all the same
constexpr double fewest_held = 4;          // packets
constexpr double fewest_gathered = 2;      // packets in a sleep; to wake for each costs no more, and is sooner
constexpr uint64_t shortest_stretch = 500; // over which a rate is measured; cameras send in groups
constexpr int64_t tolerated_delay = 150;   // of a wake
constexpr double brief_share = 0.25;       // of the doubt, that a sleep within it may take
constexpr double longest_brief_sleep = 100;
constexpr uint32_t least_doubtful = 4; // frames
constexpr uint32_t most_doubtful = 256;
constexpr uint32_t forgiven_after = 8; // frames, at least

// The kernel rounds a datagram's memory up, to twice its size at worst, and adds its own records.
double memory_of_packet(uint32_t size) noexcept { return 2.0 * size + 1024; }

} // namespace

pacing::pacing(size_t socket_memory, uint32_t packet_size) noexcept
    : packets_held(static_cast<double>(socket_memory) / memory_of_packet(packet_size)),
      line_rate(fastest_line / std::max(packet_size, 1U)) {}

pacing::decision pacing::after(const reading& seen) noexcept {
    if (asleep) woke_late = seen.now > last_at + static_cast<uint64_t>(last.time + tolerated_delay);
    asleep = false;
    if (seen.frame.serial != serial) {
        if (under_way) frame_ended(seen.now);
        frame_began(seen);
    }
    if (under_way) {
        packets = seen.frame.packets;
        if (!seen.full) measure(seen);
        if (!seen.frame.under_way) {
            length_before_that = std::exchange(length_before, packets);
            frame_ended(seen.now);
        }
    }
    if (seen.full) return {action::read};
    last = decide(seen);
    last_at = seen.now;
    asleep = last.next == action::sleep;
    return last;
}

pacing::decision pacing::decide(const reading& seen) const noexcept {
    if (seen.bytes == 0) return {action::wait};
    const bool crowded = distance != 0 && distance < 2 * gathering_time; // nobody waits for a single frame either
    if (serial == 0 || crowded) return gather(seen.bytes);
    if (!seen.frame.under_way) return {action::wait};
    const double fastest = std::max(rate, rate_before);
    const uint32_t usual = std::min(length_before, length_before_that);
    const uint32_t length = packets < usual ? usual : seen.frame.packets_expected;
    if (fastest == 0 || packets >= length) return gather(seen.bytes);
    const double by_rate = (length - packets - 1) / fastest; // the last one may have come a whole distance ago
    const double left = std::min(by_rate, std::max(left_by_time(seen.now, length), brief()));
    const double most =
        std::min(static_cast<double>(std::min(longest_sleep, seen.frame.patience / 2)), longest_at(fastest));
    const double time = std::min({left * 0.75, std::max(left - doubt, brief()), most});
    const int64_t sleep = std::max(static_cast<int64_t>(time), shortest_sleep);
    const bool pays = time >= shortest_sleep / 2.0 && static_cast<double>(sleep) * fastest >= fewest_gathered;
    if (!pays || most < shortest_sleep) return {action::wait};
    return {action::sleep, sleep, left};
}

// A sender that was held up makes up for it: its frame ends when it always does, however much of it is missing.
double pacing::left_by_time(uint64_t now, uint32_t length) const noexcept {
    const double step = std::min(step_before, step_before_that);
    if (step == 0) return std::numeric_limits<double>::infinity();
    const double left = (length - packets_at_begin) * step - static_cast<double>(now - began);
    // Far behind it, the frame is no late one but a slower one.
    return left < -static_cast<double>(longest_sleep) ? std::numeric_limits<double>::infinity() : left;
}

double pacing::brief() const noexcept {
    return std::clamp<double>(doubt * brief_share, shortest_sleep, longest_brief_sleep);
}

pacing::decision pacing::gather(size_t bytes) const noexcept {
    if (bytes >= little) return {action::wait};
    const double time = std::min<double>(gathering_time, longest_at(0));
    if (time < shortest_sleep) return {action::wait};
    return {action::sleep, static_cast<int64_t>(time)};
}

// Long sleeps are for sockets that hold whatever a fast line may begin to bring meanwhile.
double pacing::longest_at(double packets_per_us) const noexcept {
    const double share = packets_held / 2;
    if (share < fewest_held) return 0;
    const double expected = sudden_rise * packets_per_us;
    const double brief = share > gathering_time * expected ? gathering_time : share / expected;
    return std::max(brief, share / std::max(line_rate, expected));
}

void pacing::frame_began(const reading& seen) noexcept {
    if (serial != 0 && seen.frame.serial > serial) {
        const double passed = static_cast<double>(seen.now - began) / static_cast<double>(seen.frame.serial - serial);
        distance = distance == 0 ? passed : distance + (passed - distance) / 8;
    }
    serial = seen.frame.serial;
    began = stretch_began = seen.now;
    packets_at_begin = stretch_from = seen.frame.packets;
    rate = 0;
    under_way = serial != 0;
}

void pacing::frame_ended(uint64_t now) noexcept {
    under_way = false;
    if (packets > packets_at_begin && now > began) {
        const double step = static_cast<double>(now - began) / (packets - packets_at_begin);
        step_before_that = std::exchange(step_before, step);
    }
    if (rate == 0 && now > began) rate = (packets - packets_at_begin) / static_cast<double>(now - began);
    if (rate > 0) rate_before = rate;
    if (last.left > 0 && static_cast<double>(last.time) > brief() && !woke_late) {
        doubt = std::max(doubt, last.left);
        doubtful = std::clamp(2 * doubtful, least_doubtful, most_doubtful);
        in_time = 0;
        return;
    }
    doubt -= doubt / std::max(doubtful, 1U);
    if (++in_time >= std::max(forgiven_after, 2 * doubtful)) {
        doubtful /= 2;
        in_time = 0;
    }
}

// A rate that only seems high has the thread read early, which costs little.
void pacing::measure(const reading& seen) noexcept {
    const uint64_t passed = seen.now - stretch_began;
    if (passed < shortest_stretch || packets < stretch_from) return;
    rate = std::max(rate, (packets - stretch_from) / static_cast<double>(passed));
    stretch_began = seen.now;
    stretch_from = packets;
}

} // namespace gev::streamchannel::impl
