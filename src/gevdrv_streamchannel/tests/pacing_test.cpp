// The pacing on a clock, a socket and cameras of the test's own.
#include <gevdrv_streamchannel/pacing.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <numeric>
#include <string>
#include <vector>

namespace gev::streamchannel::impl {
namespace {

constexpr uint32_t packet_size = 9000;
constexpr uint32_t expected = 562;
constexpr size_t roomy = 20 << 20; // of the kernel's memory
constexpr size_t wake = 5;         // microseconds from a datagram to its reader
constexpr size_t batch = 64;
constexpr uint64_t catch_up_distance = 2; // microseconds

struct sent_frame {
    uint64_t begin = 0;
    uint32_t packets = expected;
    uint32_t announced = expected;
    double distance = 20; // microseconds between packets
    uint32_t group = 1;   // so many leave together
    bool trailer = true;
    uint64_t leader_early = 0; // before the rest
    // From the packet on, the sender is held up; what is overdue then follows at its line's rate.
    uint32_t held_at = 0;
    uint64_t held_for = 0; // microseconds
};
using camera_stream = std::vector<sent_frame>;

// Frames of a rate, which `change` makes odd.
camera_stream frames(uint32_t count, uint64_t period, const std::function<void(uint32_t, sent_frame&)>& change = {}) {
    camera_stream all(count);
    uint64_t begin = 1'000'000;
    for (uint32_t i = 0; i < count; ++i) {
        all[i].begin = begin;
        if (change) change(i, all[i]);
        const auto length = static_cast<uint64_t>(all[i].packets * all[i].distance) + all[i].leader_early;
        begin += std::max(period, length + 500);
    }
    return all;
}

struct outcome {
    std::vector<uint64_t> late; // from a frame's last packet to its reading
    std::vector<uint32_t> reads;
    size_t lost = 0;
    int64_t longest_sleep = 0;

    [[nodiscard]] size_t later_than(uint64_t limit, size_t from = 0) const {
        return static_cast<size_t>(std::ranges::count_if(late.begin() + static_cast<ptrdiff_t>(from), late.end(),
                                                         [&](uint64_t each) { return each > limit; }));
    }
};

outcome receive(const camera_stream& frames, size_t memory = roomy, int64_t patience = 1'000'000,
                size_t packets_held = 1000, size_t bytes = packet_size) {
    struct arrival {
        uint64_t time;
        uint32_t frame, packet;
    };
    std::vector<arrival> line;
    for (uint32_t f = 0; f < frames.size(); ++f) {
        const auto due = [&](uint32_t p) {
            const uint32_t step = p / frames[f].group * frames[f].group;
            return frames[f].begin + static_cast<uint64_t>(step * frames[f].distance) +
                   (p == 0 ? 0 : frames[f].leader_early);
        };
        const uint64_t free_from = due(frames[f].held_at) + frames[f].held_for;
        for (uint32_t p = 0; p < frames[f].packets; ++p) {
            const bool held = frames[f].held_for != 0 && p >= frames[f].held_at;
            const uint64_t follows = held ? free_from + (p - frames[f].held_at) * catch_up_distance : 0;
            line.push_back({std::max(due(p), follows), f, p});
        }
    }
    pacing sut{memory, packet_size};
    outcome seen{.late = std::vector<uint64_t>(frames.size()), .reads = std::vector<uint32_t>(frames.size())};
    frame_progress progress{.patience = patience};
    uint64_t now = 0;
    size_t next = 0;
    pacing::decision decision;
    while (next < line.size() || decision.next != pacing::action::wait) {
        if (decision.next == pacing::action::wait) {
            now = std::max(now, line[next].time) + wake;
        } else if (decision.next == pacing::action::sleep) {
            seen.longest_sleep = std::max(seen.longest_sleep, decision.time);
            now += static_cast<uint64_t>(decision.time) + wake;
        }
        size_t waiting = 0;
        while (next + waiting < line.size() && line[next + waiting].time <= now) ++waiting;
        if (waiting > packets_held) seen.lost += waiting - packets_held;
        const size_t taken = std::min(waiting, batch);
        now += taken;
        for (size_t i = 0; i < taken; ++i, ++next) {
            const arrival& each = line[next];
            if (each.frame + 1 != progress.serial) progress.packets = 0;
            progress.serial = each.frame + 1;
            progress.packets = each.packet + 1;
            progress.packets_expected = frames[each.frame].announced;
            const bool last = each.packet + 1 == frames[each.frame].packets;
            progress.under_way = !(last && frames[each.frame].trailer);
            if (last) seen.late[each.frame] = now - each.time;
        }
        if (progress.serial > 0) ++seen.reads[progress.serial - 1];
        decision = sut.after({.now = now, .bytes = taken * bytes, .full = taken == batch, .frame = progress});
    }
    return seen;
}

} // namespace

// Each of these streams ends its frames in time once it is known, with few wakes.
TEST(Pacing, AFramesEndIsReadAtOnceAndItsMiddleSeldom) {
    struct row {
        const char* what;
        double distance;
        uint32_t group;
        uint32_t most_reads; // in a frame
    };
    for (const row& each : {row{"paced evenly, 115 MB/s while it lasts", 78, 1, 50},
                            {"in groups, 230 MB/s", 39, 5, 30},
                            {"in groups, 800 MB/s", 11, 16, 25},
                            {"at once", 5, 64, 30}}) {
        const auto seen = receive(frames(60, 50'000, [&](uint32_t, sent_frame& frame) {
            frame.distance = each.distance;
            frame.group = each.group;
        }));
        EXPECT_EQ(seen.later_than(150, 3), 0U) << each.what;
        EXPECT_EQ(seen.later_than(250), 0U) << each.what;
        EXPECT_LE(*std::max_element(seen.reads.begin() + 3, seen.reads.end()), each.most_reads) << each.what;
        EXPECT_EQ(seen.lost, 0U) << each.what;
    }
}

// A wrong prediction costs its frame 2 ms, and the next ones nothing.
TEST(Pacing, WhatNobodyForeseesCostsTwoMillisecondsOnce) {
    struct row {
        const char* what;
        size_t most_late; // frames
        std::function<void(uint32_t, sent_frame&)> change;
    };
    const auto from = [](uint32_t first, std::function<void(sent_frame&)> change) {
        return [=](uint32_t i, sent_frame& frame) {
            if (i >= first) change(frame);
        };
    };
    for (const row& each : {
             row{"shorter frames", 1, from(50, [](sent_frame&frame) { frame.packets = 250; })},
             {"one short frame", 1,
              [](uint32_t i, sent_frame&frame) {
                  if (i == 50) frame.packets = 300;
              }},
             {"a hundred times as fast", 1, [](uint32_t i, sent_frame&frame) { frame.distance = i < 50 ? 200 : 2; }},
             {"a hundred times as slow", 0, from(50, [](sent_frame&frame) { frame.distance = 2000; })},
             {"a camera that stops in the middle", 1,
              [](uint32_t i, sent_frame&frame) {
                  if (i != 50) return;
                  frame.packets = 281;
                  frame.trailer = false;
              }},
             {"leaders long before the rest, and the rest at once", 8,
              [](uint32_t, sent_frame&frame) {
                  frame.distance = 1;
                  frame.leader_early = 5000;
              }},
             {"lengths by turns", 8, [](uint32_t i, sent_frame&frame) { frame.packets = i % 2 != 0 ? 562 : 80; }},
         }) {
        const auto seen = receive(frames(300, 30'000, each.change));
        EXPECT_EQ(seen.later_than(2200), 0U) << each.what;
        EXPECT_LE(seen.later_than(250), each.most_late) << each.what;
        EXPECT_EQ(seen.lost, 0U) << each.what;
    }
}

// As cameras that compress send them: no two frames of one length, and none as long as announced.
TEST(Pacing, FramesOfChangingLengthsAreReadSoonAfterTheirEnds) {
    struct row {
        double distance;
        uint64_t usually;    // microseconds from the end, in all but a few frames
        uint32_t most_reads; // in a frame, on average
    };
    for (const row& each : {row{15, 120, 30}, row{39, 110, 60}, row{78, 20, 150}, row{360, 20, 220}}) {
        uint32_t random = 1;
        const auto seen = receive(frames(300, 0, [&](uint32_t, sent_frame& frame) {
            random = random * 1664525 + 1013904223;
            frame.packets = expected - 12 - (random >> 16) % 100;
            frame.distance = each.distance;
        }));
        EXPECT_LE(seen.later_than(each.usually, 20), 14U) << each.distance;
        EXPECT_LE(seen.later_than(250, 20), 10U) << each.distance;
        EXPECT_EQ(seen.later_than(2200), 0U) << each.distance;
        const uint64_t reads = std::accumulate(seen.reads.begin(), seen.reads.end(), uint64_t{0});
        EXPECT_LE(reads, 300 * each.most_reads) << each.distance;
    }
}

// A sender that something held up is behind its own clock and makes up for it.
TEST(Pacing, AFrameThatIsBehindItsTimeMayEndAtAnyMoment) {
    struct row {
        double distance;
        uint32_t group;
        uint32_t most_reads; // in a frame, on average
    };
    for (const row& each : {row{14.8, 13, 18}, row{39, 5, 18}, row{20, 1, 18}}) {
        uint32_t random = 1;
        const auto seen = receive(frames(300, 50'000, [&](uint32_t i, sent_frame& frame) {
            frame.distance = each.distance;
            frame.group = each.group;
            random = random * 1664525 + 1013904223;
            if (i % 4 != 3) return;
            frame.held_for = 500 + (random >> 16) % 2000;
            frame.held_at = expected - 10 - (random >> 8) % 200;
        }));
        const uint64_t reads = std::accumulate(seen.reads.begin(), seen.reads.end(), uint64_t{0});
        EXPECT_LE(reads, 300 * each.most_reads) << each.distance;
        EXPECT_EQ(seen.later_than(150, 3), 0U) << each.distance;
    }
}

// Cameras that share a link are slower whenever the other one sends: such frames are not late ones.
TEST(Pacing, FramesThatTakeLongerByTurnsAreNotReadPacketByPacket) {
    const auto seen =
        receive(frames(100, 50'000, [](uint32_t i, sent_frame& frame) { frame.distance = i % 2 == 0 ? 20 : 40; }));
    EXPECT_LE(std::accumulate(seen.reads.begin(), seen.reads.end(), uint64_t{0}), 100U * 45);
    EXPECT_EQ(seen.later_than(150, 3), 0U);
}

// However little the socket holds, and whatever the line brings at once.
TEST(Pacing, ASleepIsNoLongerThanTheSocketHolds) {
    for (const size_t buffer : {size_t{2304}, size_t{212'992}, size_t{1} << 20, size_t{10} << 20}) {
        const size_t held = 2 * buffer / (2 * packet_size + 1024);
        const auto seen = receive(frames(40, 20'000,
                                         [&](uint32_t i, sent_frame& frame) {
                                             // Slow for a long time; then 10 Gbit/s.
                                             const double slow = buffer < 1 << 20 ? 30 : 300;
                                             frame.distance = i < 30 ? slow : 7.2;
                                         }),
                                  2 * buffer, 1'000'000, std::max<size_t>(held, 1));
        EXPECT_EQ(seen.lost, 0U) << buffer;
        EXPECT_EQ(seen.longest_sleep > 0, buffer > 2304) << buffer;
    }
}

TEST(Pacing, ALostPacketIsNoticedInTime) {
    for (const int64_t patience : {int64_t{100}, int64_t{500}, int64_t{2000}}) {
        const auto seen = receive(frames(20, 30'000), roomy, patience);
        EXPECT_LE(seen.longest_sleep, std::max(patience / 2, pacing::gathering_time));
    }
}

// Cameras send in groups, so that a frame's end comes up to a group's time before the packets' rate lets expect it.
TEST(Pacing, AnEndThatComesALittleEarlyCostsNoLongSleeps) {
    struct row {
        double distance;
        uint32_t group;
        uint32_t most_reads; // in a frame, on average
    };
    for (const row& each : {row{22, 9, 16}, row{43, 4, 20}, row{90, 2, 30}}) {
        const auto seen = receive(frames(300, 100'000, [&](uint32_t, sent_frame& frame) {
            frame.packets = frame.announced = 252;
            frame.distance = each.distance;
            frame.group = each.group;
        }));
        const uint64_t reads = std::accumulate(seen.reads.begin(), seen.reads.end(), uint64_t{0});
        EXPECT_LE(reads, 300 * each.most_reads) << each.distance;
        EXPECT_LE(seen.later_than(150, 20), 6U) << each.distance;
    }
}

// A frame that came whole in a sleep seems to have taken as long as the sleep.
TEST(Pacing, ASleepDoesNotConfirmItself) {
    const auto seen = receive(frames(300, 2000, [](uint32_t i, sent_frame& frame) {
        frame.packets = frame.announced = 37;
        frame.distance = i < 20 ? 7 : 1;
    }));
    EXPECT_LE(seen.later_than(100, 30), 3U);
}

// Frames that come faster than the thread should wake are gathered as they come.
TEST(Pacing, SmallFastFramesAreReadSeveralAtATime) {
    const auto all = frames(2000, 140, [](uint32_t, sent_frame& frame) {
        frame.packets = 3;
        frame.distance = 1;
    });
    auto faster = all;
    for (size_t i = 0; i < faster.size(); ++i) faster[i].begin = 1'000'000 + i * 140;
    const auto seen = receive(faster, roomy, 1'000'000, 1000, 1500);
    uint32_t reads = 0;
    for (const uint32_t each : seen.reads) reads += each;
    EXPECT_LE(reads, 1600U);
    EXPECT_EQ(seen.later_than(pacing::gathering_time + 50), 0U);
}

} // namespace gev::streamchannel::impl
