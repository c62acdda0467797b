// Blocks of the resend receiver: ids and their wrap, order, skipped frames, buffers, status packets, flush and reset.
#include "resend_bench.h"

namespace gev::streamchannel::impl {
namespace {

using namespace test;
using gvsp_recv_resend_blocks_test = resend_bench;
constexpr uint32_t incomplete = frame_flags::incomplete;
constexpr uint32_t flushed = frame_flags::flushed;

using ids = std::vector<uint64_t>;

} // namespace

TEST_F(gvsp_recv_resend_blocks_test, frames_skipped_are_recovered_as_far_as_blocks_may_be_open) {
    struct row {
        uint32_t max_open_blocks;
        uint64_t next; // block id behind 1
        std::vector<request> recovered;
        uint64_t given_up;
    };
    const row rows[] = {
        {3, 2, {}, 0},
        {3, 3, {{2, 0, 5}}, 0},
        {3, 4, {{3, 0, 5}, {2, 0, 5}}, 0},
        {3, 6, {{5, 0, 5}, {4, 0, 5}}, 2},
        {1, 4, {}, 2},
        {0, 4, {}, 2},
        {2, 4, {{3, 0, 5}}, 1},
        {5, 7, {{6, 0, 5}, {5, 0, 5}, {4, 0, 5}, {3, 0, 5}}, 1},
        {100, 50, {{49, 0, 5}, {48, 0, 5}, {47, 0, 5}, {46, 0, 5}}, 44},
    };
    for (const bool extended : {false, true}) {
        for (const row& r : rows) {
            SCOPED_TRACE(testing::Message() << r.max_open_blocks << " " << r.next << " " << extended);
            const log_capture log;
            restart({.extended = extended}, {.max_open_blocks = r.max_open_blocks});
            whole(1);
            whole(r.next);
            EXPECT_EQ(receiver.get_statistics().skipped_frames, r.given_up);
            EXPECT_EQ(log.count("!!!! we skipped"), r.next == 2 ? 0U : 1U);
            std::vector<request> expected = r.recovered; // at once: the lost frames are overdue
            for (request& each : expected) each.extended = extended;
            EXPECT_EQ(requests, expected);
            ids order{1};
            for (auto each = expected.rbegin(); each != expected.rend(); ++each) {
                order.push_back(each->block);
                whole(each->block);
            }
            order.push_back(r.next);
            EXPECT_EQ(delivered(), order);
            const auto whole_frames = static_cast<uint64_t>(order.size());
            EXPECT_EQ(statistics(), (counts{whole_frames, 0, r.given_up, 0, 6 * expected.size(), expected.size()}));
        }
    }
}

TEST_F(gvsp_recv_resend_blocks_test, leader_of_a_recovered_frame_is_no_restart) {
    restart({}, {.max_open_blocks = 5});
    whole(1);
    pass(100'000);
    whole(6);
    pass(10'000);
    for (uint64_t block = 2; block <= 5; ++block) whole(block);
    EXPECT_EQ(delivered(), (ids{1, 2, 3, 4, 5, 6}));
    EXPECT_EQ(statistics(), (counts{6, 0, 0, 0, 24, 4}));
}

TEST_F(gvsp_recv_resend_blocks_test, lost_frame_that_never_comes_is_delivered_empty_in_its_place) {
    whole(1);
    whole(3);
    pass(100'000);
    EXPECT_EQ(delivered(), (ids{1, 2, 3}));
    EXPECT_EQ(flags(), (std::vector<uint32_t>{0, incomplete, 0}));
    EXPECT_EQ(frames[1].filled_size, 0U);
    EXPECT_EQ(frames[1].timestamp, 0U);
    EXPECT_EQ(frames[1].resend_packets_requested, 18U);
    EXPECT_EQ(statistics(), (counts{2, 1, 0, 0, 18, 3}));
}

TEST_F(gvsp_recv_resend_blocks_test, standard_ids_wrap_from_65535_to_1) {
    struct row {
        ids sent, order;
        std::vector<request> asked;
    };
    const row rows[] = {
        {{65534, 65535, 1, 2}, {65534, 65535, 1, 2}, {}},
        {{65534, 1}, {65534, 65535, 1}, {{65535, 0, 5}}},
        {{65534, 2}, {65534, 65535, 1, 2}, {{1, 0, 5}, {65535, 0, 5}}},
        {{65535, 3}, {65535, 1, 2, 3}, {{2, 0, 5}, {1, 0, 5}}},
    };
    for (const row& r : rows) {
        restart({}, {.max_open_blocks = 1});
        whole(r.sent[0]);
        receiver.set_resend_params({});
        for (size_t i = 1; i < r.sent.size(); ++i) whole(r.sent[i]);
        EXPECT_EQ(requests, r.asked);
        for (auto asked = r.asked.rbegin(); asked != r.asked.rend(); ++asked) whole(asked->block);
        EXPECT_EQ(delivered(), r.order);
        for (size_t i = 1; i < frames.size(); ++i) EXPECT_EQ(frames[i].frame_id, frames[i - 1].frame_id + 1);
        EXPECT_EQ(receiver.get_statistics().skipped_frames, 0U);
        // Late for either side of the wrap.
        for (const uint64_t id : r.order) send(id, {2});
        EXPECT_EQ(taken, r.order.size());
    }
}

TEST_F(gvsp_recv_resend_blocks_test, extended_ids_run_straight) {
    const uint64_t far = 0x1'0000'0000;
    restart({.extended = true}, {.max_open_blocks = 1});
    whole(far - 1);
    EXPECT_EQ(receiver.get_statistics().skipped_frames, 0U) << "joined in the middle";
    receiver.set_resend_params({});
    whole(far);
    whole(far + 2);
    EXPECT_EQ(requests, (std::vector<request>{{far + 1, 0, 5, true}}));
    send(far + 1, {0, 1, 2, 4, 5});
    pass(17'000);
    EXPECT_EQ(requests.back(), (request{far + 1, 3, 5, true})) << "only the start of the range moves";
    send(far + 1, {3});
    EXPECT_EQ(delivered(), (ids{far - 1, far, far + 1, far + 2}));
    EXPECT_EQ(frames[3].frame_id, far + 1);
    EXPECT_EQ(flags(), std::vector<uint32_t>(4, frame_flags::extended_ids));
    for (size_t i = 0; i < 4; ++i) EXPECT_TRUE(bytes_right(i));
    EXPECT_EQ(frames[0].size_x, wire.payload);
    whole(0xFFFF'FFFF'FFFF'FFFF);
    EXPECT_GT(receiver.get_statistics().skipped_frames, uint64_t{1} << 63);
}

TEST_F(gvsp_recv_resend_blocks_test, packets_late_for_a_delivered_frame_open_nothing) {
    for (uint64_t block = 1; block <= 20; ++block) whole(block);
    for (uint64_t block = 5; block <= 20; ++block) { // the last sixteen are remembered
        for (uint32_t packet = 0; packet <= trailer_id; ++packet) send(block, {packet});
    }
    pass(200'000);
    EXPECT_EQ(taken, 20U);
    EXPECT_EQ(statistics(), (counts{20, 0, 0, 0, 0, 0}));
}

// A frame that was given up unseen and comes after all is still worth having.
TEST_F(gvsp_recv_resend_blocks_test, skipped_frame_that_comes_late_is_delivered_late) {
    restart({}, {.max_open_blocks = 1});
    whole(1);
    whole(4);
    whole(2);
    whole(5);
    EXPECT_EQ(delivered(), (ids{1, 4, 2, 5}));
    EXPECT_EQ(statistics(), (counts{4, 0, 2, 0, 0, 0}));
}

TEST_F(gvsp_recv_resend_blocks_test, stream_joined_in_the_middle_has_lost_nothing) {
    struct row {
        uint64_t first;
        std::vector<request> asked;
    };
    // With three blocks only the first two ids can be frames of this stream that went by unseen.
    for (const row& r : {row{1, {}}, row{2, {{1, 0, 5}}}, row{3, {{2, 0, 5}, {1, 0, 5}}}, row{4, {}}, row{501, {}},
                         row{65'281, {}}, row{65'535, {}}}) {
        restart();
        whole(r.first);
        EXPECT_EQ(requests, r.asked) << r.first;
        for (auto asked = r.asked.rbegin(); asked != r.asked.rend(); ++asked) whole(asked->block);
        ASSERT_FALSE(frames.empty());
        EXPECT_EQ(delivered().back(), r.first);
        EXPECT_EQ(receiver.get_statistics().skipped_frames, 0U) << r.first;
    }
}

TEST_F(gvsp_recv_resend_blocks_test, far_id_does_not_end_the_recovery_of_frames) {
    for (const bool extended : {false, true}) {
        for (const uint64_t far : {3000U, 60'000U, 65'400U}) {
            restart({.extended = extended});
            for (uint64_t block = 1; block <= 3; ++block) whole(block);
            send(far, {2});
            for (const uint64_t block : {4U, 5U, 7U}) whole(block);
            EXPECT_EQ(std::ranges::count(requests, request{6, 0, 5, extended}), 1) << far;
            auto all = delivered();
            std::ranges::sort(all);
            EXPECT_EQ(std::ranges::adjacent_find(all), all.end()) << far << ": a frame came twice";
            for (const auto& each : requests) EXPECT_GE(each.block, 6U) << far << ": nothing else was lost";
        }
    }
}

TEST_F(gvsp_recv_resend_blocks_test, too_many_open_blocks_push_the_oldest_out) {
    struct row {
        uint32_t max_open_blocks;
        ids killed; // of seven leaders
        size_t opened;
    };
    const row rows[] = {
        {0, {1, 2, 3, 4, 5, 6}, 7},
        {1, {1, 2, 3, 4, 5, 6}, 7},
        {2, {1, 2, 3, 4, 5}, 7},
        {3, {1, 2, 3, 4}, 7},
        {4, {1, 2, 3}, 7},
        {5, {1, 2}, 7},
        {6, {}, 5},
    };
    for (const row& r : rows) {
        const log_capture log;
        restart({}, {.max_open_blocks = r.max_open_blocks});
        for (uint64_t block = 1; block <= 7; ++block) send(block, {0});
        EXPECT_EQ(delivered(), r.killed) << r.max_open_blocks;
        EXPECT_EQ(flags(), std::vector<uint32_t>(r.killed.size(), incomplete));
        EXPECT_EQ(taken, r.opened);
        EXPECT_EQ(log.count(". Killing block due to too many open blocks."), r.killed.size());
        receiver.flush(now);
        EXPECT_EQ(returned, taken);
        EXPECT_EQ(statistics(), (counts{0, r.opened, 0, 0, 0, 0}));
    }
    // Fewer than before: the next block makes room for itself.
    restart({}, {.max_open_blocks = 5});
    for (uint64_t block = 1; block <= 5; ++block) send(block, {0});
    receiver.set_resend_params({.max_open_blocks = 2});
    send(6, {0});
    EXPECT_EQ(delivered(), (ids{1, 2, 3, 4}));
}

TEST_F(gvsp_recv_resend_blocks_test, frame_without_a_buffer_keeps_its_place_and_is_counted) {
    const log_capture log;
    whole(1);
    out_of_buffers = true;
    send(2, {0, 1, 3, 4, 5});
    out_of_buffers = false;
    whole(3);
    EXPECT_EQ(delivered(), ids{1}) << "its order counts all the same";
    pass(17'000);
    EXPECT_EQ(requests, (std::vector<request>{{2, 2, 2}}));
    send(2, {2});
    EXPECT_EQ(delivered(), (ids{1, 3}));
    send(2, {0, 3, 5});
    EXPECT_EQ(taken, 2U) << "what is late for it takes no buffer";
    EXPECT_EQ(log.count(". Dropped frame due to no shm_mem_handle."), 1U);
    EXPECT_EQ(statistics(), (counts{2, 0, 0, 1, 0, 0})) << "only delivered frames count their resends";
}

TEST_F(gvsp_recv_resend_blocks_test, reset_starts_ids_and_times_again_and_keeps_the_counts) {
    for (uint64_t block = 1; block <= 3; ++block) whole(block);
    send(4, {0, 1, 3});
    now += 1000;
    receiver.reset();
    EXPECT_EQ(flags(), (std::vector<uint32_t>{0, 0, 0, incomplete | flushed}));
    EXPECT_GE(frames[3].end_time, frames[3].start_time);
    EXPECT_EQ(receiver.check_timers(now), -1);
    for (uint64_t block = 1; block <= 4; ++block) whole(block); // none of them is remembered
    EXPECT_EQ(delivered(), (ids{1, 2, 3, 4, 1, 2, 3, 4}));
    EXPECT_EQ(frames[4].frame_id, 0U);
    EXPECT_EQ(statistics(), (counts{7, 1, 0, 0, 0, 0}));
    restart({}, {.max_open_blocks = 1});
    for (const uint64_t block : {65535, 1}) whole(block);
    receiver.reset();
    whole(1);
    EXPECT_EQ(frames.back().frame_id, 0U) << "the lap is forgotten";
    receiver.setup(packet_size, frame_size);
    EXPECT_EQ(statistics(), counts{});
}

TEST_F(gvsp_recv_resend_blocks_test, status_packets_give_the_frame_up_or_only_say_so) {
    struct row {
        uint32_t status;
        uint32_t packet;
        bool given_up;
        const char* text;
    };
    const char* killing = ". pckt=2, Received 'GEV_STATUS_PACKET_UNAVAILABLE', killing resend request at [2,2].";
    const row rows[] = {
        {0x800C, 2, true, killing},
        {0x8012, 2, true, killing},
        {0x800C, 1, false, nullptr}, // in no range: of no interest
        {0x8012, 4, false, nullptr},
        {0x8011, 0, true,
         ". pckt=0, Received 'GEV_STATUS_PACKET_AND_PREV_REMOVED_FROM_MEMORY', killing all resend requests for "
         "previous packet-ids."},
        {0x8011, 3, true, ". pckt=3, Received 'GEV_STATUS_PACKET_AND_PREV_REMOVED_FROM_MEMORY'"},
        {0x8010, 2, false, ". pckt=2,  Received GEV_STATUS_PACKET_NOT_YET_AVAILABLE packet."},
        {0x8013, 2, false, ". pckt=2,  Received status=0x8013 packet."},
    };
    for (const bool extended : {false, true}) {
        for (const row& r : rows) {
            SCOPED_TRACE(testing::Message() << std::hex << r.status << " " << r.packet << " " << extended);
            const log_capture log;
            restart({.extended = extended});
            whole(1);
            send(2, {0, 1, 3, 4, 5});
            status(2, r.packet, r.status);
            const uint32_t mode = extended ? frame_flags::extended_ids : 0;
            EXPECT_EQ(flags(), r.given_up ? std::vector<uint32_t>({mode, incomplete | mode}) : std::vector{mode});
            if (r.text != nullptr) {
                EXPECT_EQ(log.count(r.text), 1U);
            }
            status(2, r.packet, r.status); // of an ended block, or once more
            pass(17'000);
            EXPECT_EQ(requests.size(), r.given_up ? 0U : 1U);
            send(2, {2});
            EXPECT_EQ(frames.size(), 2U);
            EXPECT_EQ(taken, 2U);
        }
    }
}

TEST_F(gvsp_recv_resend_blocks_test, status_of_a_range_that_is_done_is_of_no_interest) {
    send(1, {0, 1, 3});
    send(1, {2});
    pass(17'000);
    status(1, 2, 0x800C);
    send(1, {4, 5});
    EXPECT_EQ(flags(), std::vector<uint32_t>{0});
}

TEST_F(gvsp_recv_resend_blocks_test, given_up_frame_still_waits_for_its_elder_and_may_be_saved_meanwhile) {
    send(1, {0, 1, 3, 4, 5});
    send(2, {0, 1, 3, 4, 5});
    status(2, 2, 0x800C);
    EXPECT_TRUE(frames.empty());
    send(2, {2});
    send(1, {2});
    EXPECT_EQ(flags(), (std::vector<uint32_t>{0, 0}));
    EXPECT_TRUE(bytes_right(1));
}

} // namespace gev::streamchannel::impl
