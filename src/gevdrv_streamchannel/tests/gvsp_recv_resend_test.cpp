#include "receiver_fixture.h"

#include <limits>

namespace gev::streamchannel::impl {
namespace {

using namespace test;

using GvspRecvResend = receiver_fixture<gvsp_recv_resend>;

TEST_F(GvspRecvResend, only_the_start_of_a_range_shrinks_and_three_sends_are_the_limit) {
    const log_capture log;
    send(1, {0, 4, 5});
    pass(16'666);
    EXPECT_EQ(requests, (std::vector<request>{{1, 1, 3}}));
    send(1, {1, 3});
    pass(100'000);
    EXPECT_EQ(requests, (std::vector<request>{{1, 1, 3}, {1, 2, 3}, {1, 2, 3}}));
    EXPECT_EQ(request_times, (std::vector<uint64_t>{16'666, 33'332, 49'998}));
    ASSERT_EQ(frames.size(), 1U);
    EXPECT_EQ(frames[0].flags, incomplete);
    EXPECT_EQ(frames[0].resend_packets_requested, 7U);
    EXPECT_EQ(frames[0].end_time - frames[0].start_time, 66'664U) << "a fourth visit ends the range";
    send(1, {2}); // late: must not reach the delivered picture
    EXPECT_TRUE(bytes_right(0));
    EXPECT_EQ(statistics(), (counts{0, 1, 0, 0, 7, 3}));
    EXPECT_EQ(log.count("@t+=  16666. Sending resend-request for range [1,3], sent-count#=0."), 1U);
    EXPECT_EQ(log.count(". Reduced run from [1,3] to [2,3]."), 1U);
    EXPECT_EQ(log.count(". Too many retries for range [2,3], ending resends for this range."), 1U);
    EXPECT_EQ(log.count(". No more pending timers, so mark block with end-pedning."), 1U);
    EXPECT_EQ(log.count(". Delivering __INCOMPLETE__ frame, packets-received=5/6, resend-packets-sent=7."), 1U);
}

TEST_F(GvspRecvResend, completed_range_is_left_with_a_word_only_when_it_was_asked_for) {
    for (const bool reordered : {true, false}) {
        const log_capture log;
        begin();
        send(1, {0, 1, 3});
        if (!reordered) pass(17'000);
        send(1, {2});
        pass(17'000);
        EXPECT_EQ(log.count(". Missing packets for run [2,2] completed."), reordered ? 0U : 1U);
        EXPECT_EQ(requests.size(), reordered ? 0U : 2U) << "the gap, and the tail, overdue";
    }
}

TEST_F(GvspRecvResend, number_of_sends_follows_the_parameter) {
    for (const auto& [retries, sends] : {std::pair{0U, 0U}, {1U, 1U}, {255U, 255U}, {256U, 255U}, {70'000U, 255U}}) {
        begin({}, {.time_per_frame = 1000, .max_retries = retries});
        send(1, {0, 1, 3, 4, 5});
        pass(200'000);
        EXPECT_EQ(statistics(), (counts{0, 1, 0, 0, sends, sends})) << retries;
    }
}

TEST_F(GvspRecvResend, sixty_fifth_range_of_a_block_is_refused) {
    const log_capture log;
    begin({10, 200});
    for (uint32_t packet = 0; packet <= 130; packet += 2) send(1, {packet});
    EXPECT_EQ(log.count(". Failed to queue resend request for range [129,129] due to too few slots."), 1U);
    pass(16'666);
    ASSERT_EQ(requests.size(), 64U);
    for (uint32_t i = 0; i < 64; ++i) {
        EXPECT_EQ(requests[i], (request{1, 2 * i + 1, 2 * i + 1}));
        send(1, {2 * i + 1});
    }
    for (uint32_t packet = 132; packet <= wire.trailer(); ++packet) send(1, {packet});
    EXPECT_EQ(log.count("too few slots"), 2U);
    pass(100'000);
    EXPECT_EQ(statistics(), (counts{0, 1, 0, 0, 64, 64}));
    EXPECT_EQ(log.count("packets-received=200/202"), 1U);
}

// Everything behind packet n is lost, the trailer at least; the first request comes with the end deadline. A packet of
// the tail that comes late is no reason for another round.
TEST_F(GvspRecvResend, lost_tail_is_asked_for_once_the_frame_is_overdue) {
    for (const bool late : {false, true}) {
        for (uint32_t n = 0; n < trailer_id; ++n) {
            SCOPED_TRACE(testing::Message() << "last " << n << " late " << late);
            begin();
            for (uint32_t packet = 0; packet <= n; ++packet) send(1, {packet});
            pass(33'332);
            EXPECT_TRUE(requests.empty());
            pass(1);
            EXPECT_EQ(requests, (std::vector<request>{{1, n + 1, trailer_id}}));
            pass(26'667);
            if (late && n + 1 < trailer_id) send(1, {n + 1});
            pass(100'000);
            EXPECT_EQ(request_times, (std::vector<uint64_t>{33'333, 49'999, 66'665}));
            EXPECT_EQ(flags(), std::vector<uint32_t>{incomplete});
            EXPECT_EQ(frames[0].end_time - frames[0].start_time, 83'331U);
            EXPECT_TRUE(bytes_right(0));
        }
    }
}

TEST_F(GvspRecvResend, nothing_behind_the_trailer_is_asked_for) {
    const shape shorter{payload_per_packet, 2};
    for (const uint32_t packet : {0U, 2U, 3U}) feed_one(packet_of(1, packet, shorter));
    pass(100'000);
    EXPECT_EQ(requests, (std::vector<request>(3, {1, 1, 1})));
}

// The patience with the tail grows to the projected length of the frame.
TEST_F(GvspRecvResend, slow_camera_is_not_asked_too_soon) {
    for (const uint32_t packet : {0U, 1U, 2U, 3U}) {
        send(1, {packet});
        if (packet != 3) pass(20'000);
    }
    pass(119'997); // three steps of 20 ms in 60 ms, six packets: 120 ms less 2 us
    EXPECT_TRUE(requests.empty());
    pass(1);
    EXPECT_EQ(requests, (std::vector<request>{{1, 4, 5}}));
}

TEST_F(GvspRecvResend, disabled_resends_end_by_time_alone) {
    receiver.set_resend_params({.resend_enabled = false});
    send(1, {0, 1, 3, 4});
    pass(66'665);
    EXPECT_TRUE(frames.empty());
    pass(1);
    EXPECT_EQ(frames.size(), 1U);
    EXPECT_TRUE(requests.empty());
}

// Times too short for the frame's own gaps: 0 stands for the automatic time, the rest for the shortest one.
TEST_F(GvspRecvResend, short_times_lose_no_lossless_frame) {
    struct row {
        uint64_t time_per_frame;
        uint64_t gap; // between packets
        size_t words;
        bool automatic = false;
    };
    for (const row& r : {row{0, 5000, 0}, row{1, 900, 1}, row{500, 900, 1}, row{999, 900, 1}, row{1000, 900, 0},
                         row{200, 900, 0, true}}) { // the rate is what the camera could do, and frames are triggered
        const log_capture log;
        begin({}, {.time_per_frame = r.time_per_frame, .auto_time_per_frame = r.automatic});
        for (uint64_t block = 1; block <= 5; ++block) {
            for (uint32_t packet = 0; packet <= trailer_id; ++packet) {
                send(block, {packet});
                pass(r.gap);
            }
        }
        EXPECT_EQ(flags(), std::vector<uint32_t>(5, 0)) << r.time_per_frame;
        EXPECT_TRUE(requests.empty()) << r.time_per_frame;
        EXPECT_EQ(log.count("is too short"), r.words) << r.time_per_frame;
    }
}

// A frame that pauses: its rest is asked for, and each request is answered "not yet available".
TEST_F(GvspRecvResend, camera_that_says_not_yet_is_waited_for) {
    for (const int pause : {1, 6, 10, 1000}) { // half frame times
        begin();
        send(1, {0, 1, 2});
        size_t answered = 0;
        for (int i = 0; i < pause && frames.empty(); ++i) {
            pass(16'667);
            for (; answered < requests.size(); ++answered) status(1, requests[answered].first, 0x8010);
        }
        for (size_t i = 1; i < requests.size(); ++i) EXPECT_GE(request_times[i] - request_times[i - 1], 16'666U);
        if (pause == 1000) {
            EXPECT_EQ(flags(), std::vector<uint32_t>{incomplete}) << "not for ever";
            EXPECT_LE(requests.size(), 16U + 2 * 3);
            continue;
        }
        send(1, {3, 4, 5});
        EXPECT_EQ(flags(), std::vector<uint32_t>{0}) << pause;
        EXPECT_TRUE(bytes_right(0));
    }
}

// The patience with a gap is half a frame time.
TEST_F(GvspRecvResend, automatic_time_follows_the_frames_and_never_exceeds_its_start) {
    struct row {
        uint64_t distance; // of frames
        bool automatic;
        uint64_t asked_after;
        uint64_t pause = 0; // behind each fourth frame
        uint64_t at_start = 50'000;
    };
    for (const row& r : {row{5000, true, 2500}, row{400, true, 500}, row{80'000, true, 25'000},
                         row{5000, false, 25'000}, row{0, true, 25'000}, row{2000, true, 1000, 200'000},
                         row{250, true, 125, 0, 200}, row{90, true, 100, 0, 200}, row{5000, true, 500, 0, 200}}) {
        SCOPED_TRACE(testing::Message() << r.distance << " " << r.automatic << " " << r.pause);
        begin({}, {.time_per_frame = r.at_start, .auto_time_per_frame = r.automatic});
        for (uint64_t block = 1; block <= 200; ++block) {
            whole(block);
            pass(block % 4 == 0 ? r.distance + r.pause : r.distance);
        }
        const uint64_t gap_seen = now - began;
        send(201, {0, 1, 3});
        pass(30'000);
        ASSERT_FALSE(requests.empty());
        EXPECT_EQ(request_times[0] - gap_seen, r.asked_after);
    }
}

// What waited while the thread was away is read at once, or in a few reads, and says nothing of how long frames take.
TEST_F(GvspRecvResend, stalls_shorten_no_automatic_time) {
    struct row {
        uint32_t waiting, at_once;
        uint64_t reading; // microseconds, each time
    };
    for (const auto& [waiting, at_once, reading] :
         {row{10, 10, 50}, row{200, 16, 50}, row{20, 1, 400}, row{40, 2, 600}}) {
        SCOPED_TRACE(testing::Message() << waiting << " in " << reading);
        begin({.count = 2}, {.time_per_frame = 10'000, .auto_time_per_frame = true});
        uint64_t block = 0;
        const auto run = [&](uint64_t count) {
            while (count-- > 0) {
                ++block;
                for (uint32_t packet = 0; packet <= wire.trailer(); ++packet) {
                    send(block, {packet});
                    pass(2500);
                }
            }
        };
        run(20);
        now += waiting * 10'000;
        for (uint32_t i = 0; i < waiting; ++i) {
            whole(++block);
            if (i % at_once == at_once - 1) pass(reading);
        }
        run(20);
        EXPECT_EQ(flags(), std::vector<uint32_t>(40 + waiting, 0));
        EXPECT_TRUE(requests.empty());
    }
}

} // namespace
} // namespace gev::streamchannel::impl
