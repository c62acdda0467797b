// A camera that starts over within one stream, by its own commands: one rule for both receivers.
#include "receiver_fixture.h"

namespace gev::streamchannel::impl {
namespace {

using namespace test;

template <class Receiver>
using restart_test = receiver_fixture<Receiver>;
TYPED_TEST_SUITE(restart_test, both_receivers, receiver_names);

} // namespace

// Rounds of each length; the first or the last frame of each may lack a packet when what follows begins.
TYPED_TEST(restart_test, every_frame_of_every_round_is_delivered_and_stragglers_open_nothing) {
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
TYPED_TEST(restart_test, timestamps_that_jump_start_nothing_over) {
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
TYPED_TEST(restart_test, repeated_leader_without_timestamp_opens_nothing_for_four_frame_times) {
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
TYPED_TEST(restart_test, late_leader_of_a_frame_that_ended_without_one_opens_nothing) {
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
TYPED_TEST(restart_test, late_leader_of_an_open_frame_completes_it) {
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

TYPED_TEST(restart_test, stragglers_of_the_round_before_stay_out_of_the_new_one) {
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

// One stray id far ahead loses nothing; frames that are missing in front of one that others follow are lost.
TYPED_TEST(restart_test, a_jump_of_the_ids_counts_when_it_is_borne_out) {
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

} // namespace gev::streamchannel::impl
