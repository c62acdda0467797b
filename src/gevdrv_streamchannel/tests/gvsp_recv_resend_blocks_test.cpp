// Blocks of the resend receiver: ids and their wrap, order, skipped frames, buffers, status packets, flush and reset.
#include "receiver_fixture.h"

namespace gev::streamchannel::impl {
namespace {

using namespace test;
using GvspRecvResendBlocks = receiver_fixture<gvsp_recv_resend>;
constexpr uint32_t flushed = frame_flags::flushed;

using ids = std::vector<uint64_t>;

} // namespace

TEST_F(GvspRecvResendBlocks, frames_skipped_are_recovered_as_far_as_blocks_may_be_open) {
    struct row {
        uint32_t max_open_blocks;
        uint64_t next; // block id behind 1
        ids recovered; // youngest first
        uint64_t given_up;
    };
    const row rows[] = {
        {3, 2, {}, 0}, {3, 3, {2}, 0}, {3, 4, {3, 2}, 0},       {3, 6, {5, 4}, 2},
        {1, 4, {}, 2}, {0, 4, {}, 2},  {5, 7, {6, 5, 4, 3}, 1}, {100, 50, {49, 48, 47, 46}, 44},
    };
    for (const row& r : rows) {
        SCOPED_TRACE(testing::Message() << r.max_open_blocks << " " << r.next);
        const log_capture log;
        begin({}, {.max_open_blocks = r.max_open_blocks});
        whole(1);
        whole(r.next);
        EXPECT_EQ(receiver.get_statistics().skipped_frames, r.given_up);
        EXPECT_EQ(log.count("!!!! we skipped"), r.next == 2 ? 0U : 1U);
        ids order{1};
        ASSERT_EQ(requests.size(), r.recovered.size()) << "at once: the lost frames are overdue";
        for (size_t i = r.recovered.size(); i-- > 0;) {
            EXPECT_EQ(requests[i], (request{r.recovered[i], 0, 5}));
            order.push_back(r.recovered[i]);
            whole(r.recovered[i]);
        }
        order.push_back(r.next);
        EXPECT_EQ(delivered(), order);
        EXPECT_EQ(statistics(), (counts{order.size(), 0, r.given_up, 0, 6 * requests.size(), requests.size()}));
    }
}

// Without timestamps the time since a frame's last packet tells, and the start of a recovered one lies far back.
TEST_F(GvspRecvResendBlocks, leader_of_a_recovered_frame_is_no_restart) {
    begin({.timestamps = false}, {.time_per_frame = 500'000, .max_open_blocks = 5});
    whole(1);
    pass(2'000'000);
    whole(6);
    pass(100'000);
    for (uint64_t block = 2; block <= 5; ++block) whole(block);
    EXPECT_EQ(delivered(), (ids{1, 2, 3, 4, 5, 6}));
    EXPECT_EQ(statistics()[0], 6U);
}

TEST_F(GvspRecvResendBlocks, standard_ids_wrap_from_65535_to_1) {
    for (const auto& [sent, recovered] :
         {std::pair{ids{65534, 65535, 1, 2}, ids{}}, {{65534, 1}, {65535}}, {{65534, 2}, {1, 65535}}}) {
        begin({}, {.max_open_blocks = 1});
        whole(sent[0]); // the stream is joined here
        receiver.set_resend_params({});
        for (size_t i = 1; i < sent.size(); ++i) whole(sent[i]);
        ASSERT_EQ(requests.size(), recovered.size());
        for (size_t i = recovered.size(); i-- > 0;) {
            EXPECT_EQ(requests[i], (request{recovered[i], 0, 5}));
            whole(recovered[i]);
        }
        ASSERT_EQ(frames.size(), sent.size() + recovered.size());
        for (size_t i = 1; i < frames.size(); ++i) EXPECT_EQ(frames[i].frame_id, frames[i - 1].frame_id + 1);
        EXPECT_EQ(receiver.get_statistics().skipped_frames, 0U);
        for (const uint64_t id : delivered()) send(id, {2}); // late for either side of the wrap
        EXPECT_EQ(taken, frames.size());
    }
}

TEST_F(GvspRecvResendBlocks, stream_joined_in_the_middle_has_lost_nothing) {
    // With three blocks only the first two ids can be frames of this stream that went by unseen.
    for (const auto& [first, recovered] :
         {std::pair{1U, 0U}, {2U, 1U}, {3U, 2U}, {4U, 0U}, {501U, 0U}, {65'281U, 0U}, {65'535U, 0U}}) {
        begin();
        whole(first);
        ASSERT_EQ(requests.size(), recovered) << first;
        for (uint64_t id = first - recovered; id < first; ++id) whole(id);
        EXPECT_EQ(statistics()[0], recovered + 1);
        EXPECT_EQ(statistics()[2], 0U) << first;
    }
}

TEST_F(GvspRecvResendBlocks, too_many_open_blocks_push_the_oldest_out) {
    for (const uint32_t most : {0U, 1U, 2U, 3U, 5U}) {
        const log_capture log;
        begin({}, {.max_open_blocks = most});
        for (uint64_t block = 1; block <= 7; ++block) send(block, {0});
        const size_t killed = 7 - std::max(most, 1U);
        EXPECT_EQ(flags(), std::vector<uint32_t>(killed, incomplete)) << most;
        EXPECT_EQ(log.count(". Killing block due to too many open blocks."), killed);
        receiver.flush(now);
        EXPECT_EQ(returned, 7U);
        EXPECT_EQ(statistics(), (counts{0, 7, 0, 0, 0, 0}));
    }
    // Fewer than before: the next block makes room for itself.
    begin({}, {.max_open_blocks = 5});
    for (uint64_t block = 1; block <= 5; ++block) send(block, {0});
    receiver.set_resend_params({.max_open_blocks = 2});
    send(6, {0});
    EXPECT_EQ(delivered(), (ids{1, 2, 3, 4}));
}

TEST_F(GvspRecvResendBlocks, reset_starts_ids_and_times_again_and_keeps_the_counts) {
    begin({}, {.max_open_blocks = 1});
    for (const uint64_t block : {65535, 1}) whole(block);
    send(2, {0, 1, 3});
    now += 1000;
    receiver.reset();
    EXPECT_EQ(flags(), (std::vector<uint32_t>{0, 0, incomplete | flushed}));
    EXPECT_GE(frames[2].end_time, frames[2].start_time);
    EXPECT_EQ(receiver.check_timers(now), -1);
    for (uint64_t block = 1; block <= 2; ++block) whole(block); // none of them is remembered
    EXPECT_EQ(delivered(), (ids{65535, 1, 2, 1, 2}));
    EXPECT_EQ(frames[3].frame_id, 0U) << "the lap is forgotten";
    EXPECT_EQ(statistics(), (counts{4, 1, 0, 0, 0, 0}));
}

TEST_F(GvspRecvResendBlocks, status_packets_give_the_frame_up_or_only_say_so) {
    struct row {
        uint32_t status;
        uint32_t packet;
        bool given_up;
        const char* text;
        bool asked = false; // for the packet, before
    };
    const char* killing = ". pckt=2, Received 'GEV_STATUS_PACKET_UNAVAILABLE', killing resend request at [2,2].";
    const char* killing_all = "_AND_PREV_REMOVED_FROM_MEMORY', killing all resend requests for previous packet-ids.";
    const row rows[] = {
        {0x800C, 2, true, killing, true},
        {0x8012, 2, true, killing, true},
        {0x800C, 2, true, killing},
        {0x800C, 1, false, "", true}, // in no range: of no interest
        {0x8011, 0, true, killing_all, true},
        {0x8011, 3, true, killing_all},
        {0x8010, 2, false, ". pckt=2,  Received GEV_STATUS_PACKET_NOT_YET_AVAILABLE packet."},
        {0x8013, 2, false, ". pckt=2,  Received status=0x8013 packet."},
    };
    for (const bool extended : {false, true}) {
        for (const row& r : rows) {
            SCOPED_TRACE(testing::Message() << std::hex << r.status << " " << r.packet << " " << extended);
            const log_capture log;
            begin({.extended = extended});
            send(1, {0, 1, 3, 4, 5});
            if (r.asked) pass(17'000);
            status(1, r.packet, r.status);
            EXPECT_EQ(frames.size(), r.given_up ? 1U : 0U);
            EXPECT_GE(log.count(r.text), 1U);
            status(1, r.packet, r.status); // of an ended block, or once more
            pass(17'000);
            EXPECT_EQ(requests.size(), (r.asked ? 1U : 0U) + (r.given_up ? 0U : 1U));
            send(1, {2});
            ASSERT_EQ(frames.size(), 1U);
            EXPECT_EQ(frames[0].flags & incomplete, r.given_up ? incomplete : 0U);
            EXPECT_EQ(taken, 1U);
        }
    }
}

TEST_F(GvspRecvResendBlocks, given_up_frame_still_waits_for_its_elder_and_may_be_saved_meanwhile) {
    send(1, {0, 1, 3, 4, 5});
    send(2, {0, 1, 3, 4, 5});
    pass(17'000);
    status(2, 2, 0x800C);
    EXPECT_TRUE(frames.empty());
    send(2, {2});
    send(1, {2});
    EXPECT_EQ(flags(), (std::vector<uint32_t>{0, 0}));
    EXPECT_TRUE(bytes_right(1));
}

} // namespace gev::streamchannel::impl
