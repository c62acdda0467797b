// A camera that starts over within one stream, by its own commands: one rule for both receivers.
#include "receiver_fixture.h"

namespace gev::streamchannel::impl {
namespace {

using namespace test;

template <class Receiver>
using Restart = receiver_fixture<Receiver>;
TYPED_TEST_SUITE(Restart, both_receivers, receiver_names);
using RestartResend = receiver_fixture<gvsp_recv_resend>;
using RestartSimple = receiver_fixture<gvsp_recv_simple>;

constexpr resend_parameters automatic{.auto_time_per_frame = true};

} // namespace

// Rounds of each length; the first or the last frame of each may lack a packet when what follows begins.
TYPED_TEST(Restart, every_frame_of_every_round_is_delivered_and_stragglers_open_nothing) {
    constexpr uint32_t rounds = 4;
    for (const uint64_t length : {1U, 2U, 4U, 5U, 15U, 16U, 17U, 18U, 40U}) {
        for (uint32_t kind = 0; kind < 16; ++kind) {
            const bool damaged = (kind & 1) != 0;
            const bool timestamps = (kind & 2) == 0;
            const bool extended = (kind & 4) != 0;
            const uint64_t damaged_block = (kind & 8) != 0 ? 1 : length;
            SCOPED_TRACE(testing::Message() << length << " frames, damaged " << damaged << ' ' << damaged_block
                                            << ", timestamps " << timestamps << ", extended " << extended);
            this->begin({.extended = extended, .timestamps = timestamps});
            std::vector<uint64_t> expected;
            for (uint32_t round = 0; round < rounds; ++round) {
                this->wire.round = round;
                for (uint64_t block = 1; block <= length; ++block) {
                    this->whole(block, damaged && block == damaged_block ? 2 : UINT32_MAX);
                    expected.push_back(block);
                    if (!(damaged && block == damaged_block)) this->send(block, {0, 3, 5});
                    EXPECT_EQ(this->taken, expected.size());
                }
                if (!timestamps) this->pass(250'000); // four frame times after the end
            }
            this->pass(250'000); // what is still being mended gets its time
            this->receiver.flush(this->now);
            EXPECT_EQ(this->delivered(), expected);
            const auto stats = this->receiver.get_statistics();
            EXPECT_EQ(stats.complete_frames, rounds * (length - (damaged ? 1 : 0)));
            EXPECT_EQ(stats.incomplete_frames, damaged ? rounds : 0U);
            EXPECT_EQ(stats.skipped_frames, 0U);
            for (size_t i = 0; i < this->frames.size() && timestamps; ++i) {
                EXPECT_TRUE(this->bytes_right(i)) << i;
                EXPECT_EQ(this->frames[i].timestamp, i / length * ticks_per_round + expected[i]);
            }
        }
    }
}

// A camera's clock that is set, or runs backwards.
TYPED_TEST(Restart, timestamps_that_jump_start_nothing_over) {
    this->begin();
    uint64_t block = 0;
    for (const uint32_t round : {3U, 0U, UINT32_MAX, 1U, 2U}) {
        this->wire.round = round;
        this->send(++block, {0, 1, 2});
        EXPECT_EQ(this->receiver.progress().serial, block);
        EXPECT_EQ(this->receiver.progress().packets, 3U);
        this->send(block, {3, 4, 5});
        EXPECT_TRUE(this->bytes_right(block - 1)) << block;
    }
    EXPECT_EQ(this->delivered(), (std::vector<uint64_t>{1, 2, 3, 4, 5}));
    EXPECT_EQ(this->receiver.get_statistics().complete_frames, 5U);
}

// Without a timestamp only time tells a new frame from a repeat.
TYPED_TEST(Restart, repeated_leader_without_timestamp_opens_nothing_for_four_frame_times) {
    this->begin({.timestamps = false});
    this->whole(1);
    this->now += 4 * 33'333;
    this->whole(1);
    EXPECT_EQ(this->taken, 1U);
    ++this->now;
    this->whole(1);
    EXPECT_EQ(this->taken, 2U);
}

// A leader that comes late, for a frame that ended without it, is no new frame, however late it is.
TYPED_TEST(Restart, late_leader_of_a_frame_that_ended_without_one_opens_nothing) {
    for (const uint64_t count : {5U, 30U}) {
        this->begin();
        for (uint64_t block = 1; block <= count; ++block) this->whole(block, block == 2 ? 0 : UINT32_MAX);
        for (const uint64_t patience : {100'000U, 1'000'000U}) {
            this->pass(patience);
            this->send(2, {0, 3});
            EXPECT_EQ(this->taken, count) << patience;
        }
        this->whole(count + 1);
        EXPECT_EQ(this->statistics()[0], count);
        EXPECT_EQ(this->frames.back().frame_id, count);
    }
}

// Of an open frame, too: this thread was away for longer than any frame takes.
TYPED_TEST(Restart, late_leader_of_an_open_frame_completes_it) {
    this->begin();
    this->whole(1);
    this->send(2, {1, 3, 4, 5});
    this->send(3, {0, 1, 2, 3, 4});
    this->now += 200'000;
    this->send(2, {0, 2});
    this->send(3, {5});
    EXPECT_EQ(this->delivered(), (std::vector<uint64_t>{1, 2, 3}));
    EXPECT_EQ(this->statistics()[0], 3U);
}

TYPED_TEST(Restart, stragglers_of_the_round_before_stay_out_of_the_new_one) {
    this->begin({});
    for (uint64_t block = 1; block <= 5; ++block) this->whole(block);
    this->wire.round = 1;
    this->send(1, {0});
    this->wire.round = 0;
    for (const uint64_t block : {5U, 4U, 2U}) this->send(block, {0, 2, 5});
    EXPECT_EQ(this->taken, 6U);
    this->wire.round = 1;
    this->whole(1, 0);
    for (uint64_t block = 2; block <= 5; ++block) this->whole(block);
    EXPECT_EQ(this->taken, 10U);
    EXPECT_EQ(this->receiver.get_statistics().complete_frames, 10U);
    for (size_t i = 0; i < this->frames.size(); ++i) EXPECT_TRUE(this->bytes_right(i)) << i;
}

// A round's timestamps then lie among those of the one before.
TYPED_TEST(Restart, a_clock_that_starts_anew_with_each_round_costs_no_frame) {
    this->begin();
    for (const uint64_t first : {1000U, 15'000U, 3000U}) {
        for (uint64_t block = 1; block <= 3; ++block, this->pass(10'000)) {
            this->wire.timestamp = first + 10'000 * (block - 1);
            this->whole(block);
        }
        ++this->wire.round;
    }
    EXPECT_EQ(this->delivered(), (std::vector<uint64_t>{1, 2, 3, 1, 2, 3, 1, 2, 3}));
    EXPECT_EQ(this->flags(), std::vector<uint32_t>(9, 0));
    EXPECT_TRUE(this->requests.empty());
}

// A frame that lacks a packet has the first id, and so has the next one, whose leader is lost.
TYPED_TEST(Restart, packets_of_a_new_round_complete_no_frame_of_the_old_one) {
    constexpr bool resends = std::is_same_v<TypeParam, gvsp_recv_resend>;
    using packets = std::vector<uint32_t>;
    struct row {
        const char* name;
        packets before, after;
        uint64_t pause;        // microseconds
        bool alike = false;    // the pictures
        bool delivers = false; // the new frame, whole
    };
    const row rows[] = {
        {"back to back", {0, 1, 3, 4, 5}, {1, 2, 3, 4, 5}, 0},
        {"before the request", {0, 1, 3, 4, 5}, {1, 2, 3, 4, 5}, 10'000},
        {"behind it", {0, 1, 3, 4, 5}, {1, 2, 3, 4, 5}, 40'000},
        {"a minute later", {0, 1, 3, 4, 5}, {1, 2, 3, 4, 5}, 60'000'000},
        {"before the old trailer", {0, 1, 3, 4}, {1, 2, 3, 4, 5}, 10'000},
        {"two lost", {0, 3, 4, 5}, {2, 3, 4, 5, 1}, 10'000},
        {"two lost, the other way", {0, 1, 3, 5}, {4, 3, 2, 5}, 10'000},
        {"a shorter one", {0, 1, 2, 4, 5}, {3}, 10'000},
        {"alike, after a while", {0, 1, 3, 4, 5}, {1, 2, 3, 4, 5}, 300'000, true},
        {"alike, after a lost trailer", {0, 1, 2, 4}, {1, 2, 3, 4, 5}, 300'000, true},
        {"begins with the missing one", {0, 1, 3, 4, 5}, {2, 3, 4, 5}, 300'000},
        {"leader late", {0, 1, 3, 4, 5}, {1, 0, 1, 2, 3, 4, 5}, 10'000, false, true},
    };
    for (const row& r : rows) {
        SCOPED_TRACE(r.name);
        this->begin();
        for (const uint32_t packet : r.before) this->send(1, {packet});
        this->pass(r.pause);
        if (!r.alike) this->wire.round = 1;
        for (const uint32_t packet : r.after) {
            if (std::string_view{r.name} == "a shorter one" && packet == 3) {
                this->feed_one(header(1, 2, 3).u32(1).u32(2)); // its trailer
            } else {
                this->send(1, {packet});
            }
        }
        this->pass(1'000'000);
        this->receiver.flush(this->now);
        ASSERT_EQ(this->frames.size(), r.delivers ? 2U : 1U);
        EXPECT_EQ(this->frames[0].flags & incomplete, incomplete);
        EXPECT_EQ(this->taken, this->frames.size());
        if (r.delivers) {
            EXPECT_EQ(this->frames[1].flags, 0U);
            EXPECT_TRUE(this->bytes_right(1));
        }
        EXPECT_TRUE(this->requests.empty() || (resends && r.pause > 10'000)) << "mixed before the first deadline";
    }
}

// Of single frames, where each leader comes behind the rest of its frame.
TEST_F(RestartSimple, overtaken_leader_gets_no_packets_of_the_next_frame) {
    for (const bool first_of_two : {false, true}) {
        begin();
        whole(1);
        for (uint32_t round = 1; round <= 3; ++round) {
            now += 300'000;
            wire.round = round;
            whole(1, 0);
            if (first_of_two && round == 1) whole(2);
            now += 10'000;
            send(1, {0});
        }
        now += 300'000;
        ++wire.round;
        whole(1);
        for (size_t i = 0; i < frames.size(); ++i) EXPECT_TRUE(bytes_right(i)) << frames[i].timestamp;
        EXPECT_EQ(statistics()[0], first_of_two ? 3U : 2U);
        EXPECT_EQ(statistics()[1], 3U);
        EXPECT_EQ(taken, returned);
    }
    begin();
    for (const uint32_t lost : {2U, 0U, 0U}) { // the first one is open until the second one's packets come
        whole(1, lost);
        if (lost == 0) send(1, {0});
        now += 300'000;
        ++wire.round;
    }
    receiver.flush(now);
    EXPECT_EQ(statistics()[0], 0U) << "each lacked packets";
    begin();
    for (; wire.round < 3; ++wire.round, now += 300'000) send(1, {1, 0, 2, 3, 4, 5});
    receiver.flush(now);
    ASSERT_EQ(frames.size(), 3U);
    EXPECT_EQ(frames[1].filled_size, frame_size) << "what comes behind the leader is kept";
}

// What the network repeats says nothing against a frame, before its end or behind it.
TYPED_TEST(Restart, repeats_leave_a_frame_whole) {
    for (const bool short_last : {false, true}) {
        this->begin();
        datagram last = packet_of(1, 4, this->wire);
        if (short_last) last.resize(last.size() - 30);
        this->send(1, {0, 0, 1, 1, 3, 3});
        for (int i = 0; i < 2; ++i) this->feed_one(last);
        this->send(1, {5, 5, 3});
        this->feed_one(last);
        this->pass(20'000);
        this->send(1, {3, 1, 0, 5, 2, 2});
        EXPECT_EQ(this->flags(), std::vector<uint32_t>{0});
        EXPECT_TRUE(short_last || this->bytes_right(0));
    }
}

// An answer for the last frame of the old round comes just before or within the frame that has its id in the new one.
TEST_F(RestartResend, late_answers_of_the_old_round_are_not_taken_for_the_new_one) {
    for (const bool within : {false, true}) {
        SCOPED_TRACE(within);
        begin({}, automatic);
        for (uint64_t block = 1; block <= 20; ++block, now += 1000) whole(block, block == 20 ? 2 : UINT32_MAX);
        pass(5000);
        ASSERT_EQ(requests, (std::vector<request>(3, {20, 2, 2})));
        ASSERT_EQ(flags().back(), incomplete);
        const datagram answer = packet_of(20, 2, wire);
        wire.round = 1;
        for (uint64_t block = 1; block < 20; ++block, now += 1000) whole(block);
        if (within) send(20, {0, 1});
        feed_one(answer);
        for (uint32_t packet = within ? 2 : 0; packet <= trailer_id; ++packet) send(20, {packet});
        pass(100'000);
        ASSERT_EQ(frames.size(), 40U);
        EXPECT_EQ(frames.back().flags & incomplete, within ? incomplete : 0U);
        EXPECT_TRUE(within || bytes_right(39));
    }
}

// The frame at the end of a burst lost its leader, and no newer timestamp says that a leader is an old one.
TEST_F(RestartResend, late_leader_of_the_last_frame_opens_nothing) {
    for (const bool timestamps : {false, true}) {
        for (const uint64_t late : {6'000U, 30'000U, 300'000U}) {
            SCOPED_TRACE(late);
            begin({.timestamps = timestamps}, automatic);
            for (uint64_t block = 1; block <= 20; ++block, now += 1000) whole(block, block == 20 ? 0 : UINT32_MAX);
            pass(late);
            ASSERT_EQ(frames.size(), 20U);
            send(20, {0, 3});
            EXPECT_EQ(taken, 20U);
            now += 2'000'000;
            wire.round = 1;
            whole(20);
            EXPECT_EQ(taken, 21U) << "an answer so late is none";
        }
    }
}

// A frame that lacked an answer says nothing against the next ones but in that packet's place, for a second; and what
// is marked is assembled on.
TEST_F(RestartResend, only_what_may_be_an_old_answer_costs_a_frame) {
    struct row {
        const char* name;
        std::vector<uint32_t> packets;
        uint64_t begins_after, pause; // microseconds, the pause before the third of the packets
        bool complete;
    };
    const row rows[] = {
        {"the same place", {0, 1, 3, 2, 4, 5}, 100'000, 0, false},
        {"ahead of its turn", {0, 2, 1, 3, 4, 5}, 100'000, 0, false},
        {"another place", {0, 1, 2, 4, 3, 5}, 100'000, 0, true},
        {"none", {0, 1, 2, 3, 4, 5}, 100'000, 0, true},
        {"more than a second after", {0, 3, 1, 2, 4, 5}, 955'000, 20'000, true},
    };
    for (const row& r : rows) {
        SCOPED_TRACE(r.name);
        begin();
        whole(1, 2);
        pass(100'000); // asked for, and given up
        ASSERT_EQ(flags(), std::vector<uint32_t>{incomplete});
        pass(r.begins_after);
        ++wire.round;
        for (size_t i = 0; i < r.packets.size(); ++i) {
            if (i == 2) now += r.pause;
            send(1, {r.packets[i]});
        }
        pass(100'000);
        ++wire.round;
        send(1, {0, 1, 3, 2, 4, 5});
        ASSERT_EQ(flags(), (std::vector<uint32_t>{incomplete, r.complete ? 0 : incomplete, 0}));
        EXPECT_EQ(frames[1].received_bytes, frame_size);
        EXPECT_TRUE(bytes_right(1) && bytes_right(2));
    }
}

// Of single frames, the one behind a frame without leader gets lost, as it may be that frame's own; no more of them do.
TEST_F(RestartResend, frame_without_leader_keeps_out_no_more_than_the_next_one) {
    for (const auto& [own_comes, timestamps] : {std::pair{false, true}, {true, true}, {false, false}, {true, false}}) {
        begin({.timestamps = timestamps});
        whole(1, 0);
        pass(250'000);
        const datagram own = packet_of(1, 0, wire);
        for (uint32_t i = 0; i < 5; ++i) {
            ++wire.round;
            whole(1);
            if (i == 0 && own_comes) feed_one(own);
            send(1, {0, 1});
            pass(200'000);
        }
        EXPECT_EQ(flags(), (std::vector<uint32_t>{incomplete, 0, 0, 0, 0}));
        EXPECT_EQ(taken, 5U);
    }
}

// The last frame of the old round lost its leader, whose answer comes around the frame with its id in the new round.
// What the camera would send again for a frame opened by it were the new round's packets.
TEST_F(RestartResend, late_leader_of_the_old_round_opens_nothing_in_the_new_one) {
    for (const size_t sent_before : {0U, 2U, 6U}) {
        SCOPED_TRACE(sent_before);
        begin({}, automatic);
        for (uint64_t block = 1; block <= 20; ++block, now += 1000) whole(block, block == 20 ? 0 : UINT32_MAX);
        pass(5000);
        const datagram old = packet_of(20, 0, wire);
        wire.round = 1;
        for (uint64_t block = 1; block < 20; ++block, now += 1000) whole(block);
        for (uint32_t packet = 0; packet <= trailer_id; ++packet) {
            if (packet == sent_before) feed_one(old);
            send(20, {packet});
        }
        pass(5000);
        feed_one(old);
        EXPECT_EQ(taken, 40U);
        ASSERT_EQ(frames.size(), 40U);
        EXPECT_EQ(frames.back().flags, 0U);
        EXPECT_TRUE(bytes_right(39));
    }
}

// Behind a round of one frame the new round begins unnoticed with its second one. Its first leader starts over, and
// what it overtook counts as lost: the camera is asked for it, and sends the same once more.
TEST_F(RestartResend, frames_in_front_of_a_late_first_leader_are_delivered_once) {
    for (const bool damaged : {false, true}) {
        for (const bool leader_first : {true, false}) {
            SCOPED_TRACE(testing::Message() << "damaged " << damaged << ", leader first " << leader_first);
            begin({}, {.time_per_frame = 10'000});
            whole(1);
            pass(300'000);
            wire.round = 1;
            whole(1, 0);
            whole(2, damaged ? 3 : UINT32_MAX);
            pass(3000);
            send(1, {0});
            pass(9000);
            whole(3);
            ASSERT_EQ(requests.back(), (request{2, 0, trailer_id}));
            for (uint32_t i = 0; i <= trailer_id; ++i) send(2, {leader_first ? i : trailer_id - i});
            send(2, {0, 3});
            pass(100'000);
            whole(4);
            std::vector<uint64_t> in_time;
            for (const frame_info& frame : frames) {
                if ((frame.flags & incomplete) == 0) in_time.push_back(frame.timestamp % ticks_per_round);
            }
            EXPECT_EQ(in_time, (std::vector<uint64_t>{1, 2, 3, 4}));
            EXPECT_EQ(taken, returned);
        }
    }
}

// The thread was away for longer than any frame takes, and the frame is open still.
TEST_F(RestartResend, leader_that_an_open_frame_asked_for_is_its_own_after_a_stall) {
    for (const bool timestamps : {true, false}) {
        begin({.timestamps = timestamps}, automatic);
        for (uint64_t block = 1; block <= 20; ++block) {
            whole(block, block == 20 ? 0 : UINT32_MAX);
            pass(block == 20 ? 600 : 1000);
        }
        ASSERT_EQ(requests, (std::vector<request>{{20, 0, 0}}));
        now += 6000;
        send(20, {0});
        EXPECT_EQ(flags(), std::vector<uint32_t>(20, 0));
        EXPECT_EQ(taken, 20U);
    }
}

// The thread was away before it could ask for the leader, which packets of its frame had overtaken. Where it does not
// ask, what lacks more than the leader is given up behind the first datagram.
TYPED_TEST(Restart, leader_that_a_stall_held_up_behind_its_frame_is_its_own) {
    struct row {
        uint32_t ahead;
        bool asks = true;
    };
    for (const row& r : {row{1}, row{4}, row{5}, row{5, false}}) {
        for (const bool timestamps : {true, false}) {
            for (const uint64_t stall : {5'000U, 150'000U, 240'000U}) {
                SCOPED_TRACE(testing::Message() << r.ahead << " ahead, asks " << r.asks << ", timestamps " << timestamps
                                                << ", away " << stall);
                this->begin({.timestamps = timestamps}, {.time_per_frame = 1000, .resend_enabled = r.asks});
                for (uint64_t block = 1; block < 20; ++block, this->now += 1000) this->whole(block);
                for (uint32_t packet = 1; packet <= r.ahead; ++packet) this->send(20, {packet});
                this->now += stall;
                this->send(20, {0});
                for (uint32_t packet = r.ahead + 1; packet <= trailer_id; ++packet) this->send(20, {packet});
                this->whole(21);
                EXPECT_EQ(this->flags(), std::vector<uint32_t>(21, 0));
                EXPECT_EQ(this->taken, 21U);
            }
        }
    }
}

// The packet came by itself, or with the answer to another request; its answer comes when the ids have begun anew, and
// the frame that has its id there may still have lost its leader.
TEST_F(RestartResend, answer_to_a_frame_that_had_become_whole_opens_nothing_in_the_new_round) {
    begin({}, automatic);
    for (uint64_t block = 1; block <= 20; ++block, now += 1000) whole(block, block == 20 ? 2 : UINT32_MAX);
    pass(100);
    ASSERT_EQ(requests, (std::vector<request>{{20, 2, 2}}));
    const datagram packet = packet_of(20, 2, wire);
    feed_one(packet);
    pass(2000);
    wire.round = 1;
    for (uint64_t block = 1; block <= 20; ++block) {
        if (block == 4) feed_one(packet);
        whole(block, block == 20 ? 0 : UINT32_MAX);
        pass(block == 20 ? 600 : 1000);
    }
    send(20, {0});
    EXPECT_EQ(flags(), std::vector<uint32_t>(40, 0));
    EXPECT_EQ(taken, 40U);
    EXPECT_EQ(requests, (std::vector<request>{{20, 2, 2}, {20, 0, 0}}));
}

TEST_F(RestartResend, refusal_of_what_the_old_frame_asked_for_gives_up_nothing_of_the_new_one) {
    for (const uint32_t code : {0x800CU, 0x8012U, 0x8011U}) {
        SCOPED_TRACE(testing::Message() << std::hex << code);
        begin({}, automatic);
        for (uint64_t block = 1; block <= 20; ++block, now += 1000) whole(block, block == 20 ? 2 : UINT32_MAX);
        pass(100);
        ASSERT_EQ(requests, (std::vector<request>{{20, 2, 2}}));
        send(20, {2});
        pass(2000);
        wire.round = 1;
        for (uint64_t block = 1; block <= 19; ++block, now += 1000) whole(block);
        send(20, {0, 1, 3});
        status(20, 2, code);
        send(20, {2, 4, 5});
        EXPECT_EQ(flags(), std::vector<uint32_t>(40, 0));
    }
}

// One stray id far ahead loses nothing; frames that are missing in front of one that others follow are lost.
TYPED_TEST(Restart, a_jump_of_the_ids_counts_when_it_is_borne_out) {
    constexpr uint64_t recovered = std::is_same_v<TypeParam, gvsp_recv_resend> ? 2 : 0;
    for (const bool extended : {false, true}) {
        for (const uint64_t far : {9U, 40U, 3000U, 60'000U, 65'400U}) {
            for (const bool stray : {false, true}) {
                SCOPED_TRACE(testing::Message() << far << ", extended " << extended << ", stray " << stray);
                if (stray && far < 20) continue; // so near it is taken at its word
                this->begin({.extended = extended});
                for (uint64_t block = 1; block <= 3; ++block) this->whole(block);
                this->send(far, {2});
                for (uint64_t block = stray ? 4 : far + 1; block != (stray ? 7 : far + 4); ++block) this->whole(block);
                EXPECT_EQ(this->receiver.get_statistics().skipped_frames, stray ? 0 : far - 4 - recovered);
                this->receiver.flush(this->now);
            }
        }
    }
}

constexpr ended_frames::requests leader_alone{.all = {0, 0}, .unanswered = {}};

TEST(EndedFrames, a_round_whose_leaders_were_all_asked_for_holds_back_no_new_one) {
    ended_frames ended;
    ended.add(1, {}, 0, {.all = {0, 0}, .unanswered = {0, 0}}, false);
    ended.add(2, {}, 1000, {.all = {0, 0}, .unanswered = {0, 0}}, false);
    const uint64_t first = 100, next_round = 900;
    EXPECT_EQ(ended.judge(1, 0, &first, 5000, 1000), ended_frames::verdict::late);
    EXPECT_EQ(ended.judge(1, 0, &next_round, 50'000, 1000), ended_frames::verdict::restart);
}

TEST(EndedFrames, a_second_answer_of_the_round_before_restarts_nothing) {
    ended_frames ended;
    const uint64_t first = 100, next_round = 500;
    ended.leader_came(first);
    ended.add(1, {true, first}, 0, leader_alone, true);
    ended.start_over(10'000);
    ended.leader_came(next_round);
    ended.add(1, {true, next_round}, 12'000, {}, true);
    EXPECT_EQ(ended.judge(1, 0, &first, 20'000, 1000), ended_frames::verdict::late);
}

} // namespace gev::streamchannel::impl
