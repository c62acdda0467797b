#include "datagrams.h"

#include "gevdrv_streamchannel/packet_recv/gvsp_recv_resend.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

namespace gev::streamchannel::impl {
namespace {

using namespace test;

struct gvsp_recv_resend_test : testing::Test, surroundings {
    gvsp_recv_resend receiver{functions};
    uint64_t now = 1'000'000;
    gvsp_recv_resend_test() { receiver.setup(packet_size, frame_size); }
    void send(uint32_t block, std::initializer_list<uint32_t> packets) {
        for (const uint32_t packet : packets) feed(receiver, now, packet_of(block, packet));
    }
    // Lets time pass, deadline by deadline.
    void pass(uint64_t microseconds) {
        const uint64_t until = now + microseconds;
        for (int64_t wait = receiver.check_timers(now); wait > 0 && now + static_cast<uint64_t>(wait) <= until;) {
            now += static_cast<uint64_t>(wait);
            wait = receiver.check_timers(now);
        }
        now = until;
    }
};

// Bit i of the pattern: packet i is lost. The camera answers each request.
TEST_F(gvsp_recv_resend_test, repairs_every_loss_pattern_of_a_frame) {
    for (uint32_t lost = 0; lost < 63; ++lost) {
        receiver.setup(packet_size, frame_size);
        frames.clear();
        pictures.clear();
        requests.clear();
        for (uint32_t packet = 0; packet <= trailer_id; ++packet) {
            if ((lost >> packet & 1) == 0) feed(receiver, now, packet_of(1, packet));
        }
        size_t answered = 0;
        std::vector<bool> asked(trailer_id + 1);
        for (int round = 0; round < 8 && frames.empty(); ++round) {
            pass(17'000);
            for (; answered < requests.size(); ++answered) {
                for (uint32_t id = requests[answered].first; id <= requests[answered].last; ++id) {
                    asked[id] = true;
                    feed(receiver, now, packet_of(1, id));
                }
            }
        }
        ASSERT_EQ(frames.size(), 1U) << lost;
        EXPECT_EQ(frames[0].flags, 0U) << lost;
        EXPECT_TRUE(bytes_right(0)) << lost;
        for (uint32_t id = 0; id <= trailer_id; ++id) EXPECT_EQ(asked[id], (lost >> id & 1) != 0) << lost;
    }
}

TEST_F(gvsp_recv_resend_test, reordered_packet_is_not_asked_for) {
    send(1, {0, 1, 3, 2});
    pass(20'000);
    send(1, {4, 5});
    EXPECT_TRUE(requests.empty());
    EXPECT_EQ(frames.size(), 1U);
}

TEST_F(gvsp_recv_resend_test, only_the_start_of_a_range_shrinks_and_three_sends_are_the_limit) {
    send(1, {0, 4, 5});
    pass(16'666);
    EXPECT_EQ(requests, (std::vector<request>{{1, 1, 3}}));
    send(1, {1, 3});
    pass(100'000);
    EXPECT_EQ(requests, (std::vector<request>{{1, 1, 3}, {1, 2, 3}, {1, 2, 3}}));
    ASSERT_EQ(frames.size(), 1U);
    EXPECT_EQ(frames[0].flags, frame_flags::incomplete);
    EXPECT_EQ(frames[0].resend_packets_requested, 7U);
    send(1, {2}); // late: must not reach the delivered picture
    EXPECT_TRUE(bytes_right(0));
}

TEST_F(gvsp_recv_resend_test, younger_frame_waits_for_the_older) {
    send(1, {0, 1, 3, 4, 5});
    send(2, {0, 1, 2, 3, 4, 5});
    EXPECT_TRUE(frames.empty());
    send(1, {2});
    ASSERT_EQ(frames.size(), 2U);
    EXPECT_EQ(frames[0].block_id, 1U);
    send(2, {3}); // delivered: opens nothing
    EXPECT_EQ(taken, 2U);
}

TEST_F(gvsp_recv_resend_test, four_skipped_frames_leave_two_to_recover) {
    send(1, {0, 1, 2, 3, 4, 5});
    send(6, {0, 1, 2, 3, 4, 5});
    EXPECT_EQ(receiver.get_statistics().skipped_frames, 2U);
    pass(40'000);
    ASSERT_GE(requests.size(), 2U);
    EXPECT_NE(std::ranges::find(requests, request{4, 0, 5}), requests.end());
    EXPECT_NE(std::ranges::find(requests, request{5, 0, 5}), requests.end());
}

// Late packets of frame 0 open nothing; a camera that starts over with its id is heard.
TEST_F(gvsp_recv_resend_test, the_first_frame_is_delivered_once) {
    send(1, {0, 1, 2, 3, 4, 5, 5, 0});
    EXPECT_EQ(taken, 1U);
    send(2, {0, 1, 2, 3, 4, 5});
    send(1, {3});
    EXPECT_EQ(taken, 2U);
    EXPECT_EQ(frames.size(), 2U);
    EXPECT_TRUE(requests.empty());
}

TEST_F(gvsp_recv_resend_test, every_frame_of_single_frame_operation_has_the_first_id) {
    send(1, {0, 1, 2, 3, 4, 5, 5});
    datagram leader = packet_of(1, 0);
    leader[8 + 11] ^= std::byte{1}; // the timestamp's last byte
    feed(receiver, now, leader);
    send(1, {1, 2, 3, 4, 5});
    EXPECT_EQ(frames.size(), 2U);
    pass(200'000);
    send(1, {1, 2, 3, 4, 5, 0}); // the leader comes late
    EXPECT_EQ(frames.size(), 3U);
    EXPECT_EQ(taken, 3U);
}

TEST_F(gvsp_recv_resend_test, the_first_frame_is_missed_when_all_of_it_was_lost) {
    send(2, {0, 1, 2, 3, 4, 5});
    EXPECT_TRUE(frames.empty());
    ASSERT_EQ(requests, (std::vector<request>{{1, 0, 5}}));
    send(1, {0, 1, 2, 3, 4, 5});
    ASSERT_EQ(frames.size(), 2U);
    EXPECT_EQ(frames[0].block_id, 1U);
    EXPECT_EQ(frames[0].flags, 0U);
    EXPECT_EQ(receiver.get_statistics().skipped_frames, 0U);
}

TEST_F(gvsp_recv_resend_test, status_packets_give_a_frame_up) {
    for (const uint32_t status : {0x800CU, 0x8012U, 0x8011U}) {
        receiver.setup(packet_size, frame_size);
        frames.clear();
        send(1, {0, 1, 3, 4, 5});
        feed(receiver, now, header(1, 3, 2, 0x8010));
        EXPECT_TRUE(frames.empty());
        feed(receiver, now, header(1, 3, 2, status));
        ASSERT_EQ(frames.size(), 1U) << status;
        EXPECT_EQ(frames[0].flags, frame_flags::incomplete);
    }
}

TEST_F(gvsp_recv_resend_test, disabled_resends_end_by_time_alone) {
    receiver.set_resend_params({.resend_enabled = false});
    send(1, {0, 1, 3, 4});
    pass(66'665);
    EXPECT_TRUE(frames.empty());
    pass(1);
    EXPECT_EQ(frames.size(), 1U);
    EXPECT_TRUE(requests.empty());
}

TEST_F(gvsp_recv_resend_test, survives_mutated_traffic) {
    std::mt19937 random{20240607};
    const auto below = [&](uint32_t bound) { return static_cast<uint32_t>(random() % bound); };
    for (int i = 0; i < 20'000; ++i) {
        const uint32_t block = 1 + static_cast<uint32_t>(i) / 12 + below(3);
        datagram data = packet_of(block, below(trailer_id + 1));
        if (below(8) == 0) data[below(8)] = static_cast<std::byte>(below(256));
        if (below(16) == 0) data.resize(below(static_cast<uint32_t>(data.size())));
        now += below(5000);
        feed(receiver, now, data);
    }
    receiver.flush(now);
    EXPECT_EQ(frames.size(), taken);
    EXPECT_TRUE(guards_intact());
    EXPECT_GT(receiver.get_statistics().complete_frames, 0U);
}

} // namespace
} // namespace gev::streamchannel::impl
