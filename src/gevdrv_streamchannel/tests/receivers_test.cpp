// What both receivers make of frames, buffers and packets that are none of theirs.
#include "receiver_fixture.h"

namespace gev::streamchannel::impl {
namespace {

using namespace test;

template <class Receiver>
using Receivers = receiver_fixture<Receiver>;
TYPED_TEST_SUITE(Receivers, both_receivers, receiver_names);

} // namespace

TYPED_TEST(Receivers, whole_frame_is_delivered_once_with_its_fields) {
    for (const bool extended : {false, true}) {
        this->begin({.extended = extended});
        this->send(1, {0, 1, 1, 1});
        this->whole(1, trailer_id);
        this->send(1, {trailer_id});
        this->send(1, {0, 2, 5});
        ASSERT_EQ(this->frames.size(), 1U);
        const frame_info& info = this->frames[0];
        EXPECT_EQ(info.flags, extended ? frame_flags::extended_ids : 0U);
        EXPECT_EQ(info.filled_size, frame_size);
        EXPECT_EQ(info.received_bytes, (std::is_same_v<TypeParam, gvsp_recv_resend> ? frame_size : 0U));
        EXPECT_EQ(info.expected_payload_size, frame_size);
        EXPECT_EQ(info.size_x, this->wire.payload);
        EXPECT_EQ(info.size_y, this->wire.count);
        EXPECT_EQ(info.pixel_format, 0x01080001U);
        EXPECT_EQ(info.timestamp, 1U);
        EXPECT_EQ(info.block_id, 1U);
        EXPECT_EQ(info.frame_id, 0U);
        EXPECT_TRUE(this->bytes_right(0));
        EXPECT_EQ(this->taken, 1U);
        EXPECT_EQ(this->statistics(), (counts{1, 0, 0, 0, 0, 0}));
    }
}

TYPED_TEST(Receivers, packet_that_comes_with_other_bytes_changes_none_and_makes_the_frame_incomplete) {
    this->send(1, {0, 1, 2});
    this->feed_one(header(1, 3, 1).fill(100, 0xEE));
    this->send(1, {3, 4, 5});
    this->receiver.flush(this->now);
    ASSERT_EQ(this->frames.size(), 1U);
    EXPECT_EQ(this->frames[0].flags, incomplete);
    EXPECT_TRUE(this->bytes_right(0));
}

TYPED_TEST(Receivers, progress_is_that_of_the_youngest_frame) {
    const auto expect = [&](uint64_t serial, uint32_t packets, bool under_way) {
        const frame_progress progress = this->receiver.progress();
        EXPECT_EQ(progress.serial, serial);
        EXPECT_EQ(progress.packets, packets);
        EXPECT_EQ(progress.under_way, under_way);
        EXPECT_EQ(progress.packets_expected, serial == 0 ? 0 : trailer_id + 1);
    };
    this->begin({});
    expect(0, 0, false);
    this->send(1, {0, 1});
    expect(1, 2, true);
    this->send(2, {0, 1, 3});
    this->send(1, {2});
    expect(2, 4, true);
    this->send(2, {trailer_id});
    expect(2, trailer_id + 1, false); // waits for a packet, but not in the middle
    this->whole(3);
    expect(3, trailer_id + 1, false);
    this->send(4, {0});
    this->receiver.flush(this->now);
    expect(4, 1, false);
}

TYPED_TEST(Receivers, lost_leader_is_stood_in_for_by_the_last_one) {
    this->begin({});
    this->whole(1);
    this->whole(2, 0);
    this->whole(3);
    this->pass(100'000);
    ASSERT_EQ(this->frames.size(), 3U);
    EXPECT_EQ(this->frames[1].flags, incomplete);
    EXPECT_EQ(this->frames[1].size_x, this->wire.payload);
    EXPECT_EQ(this->frames[1].pixel_format, 0x01080001U);
    EXPECT_EQ(this->frames[1].timestamp, 0U);
}

TYPED_TEST(Receivers, packets_are_counted_by_what_became_of_them) {
    this->begin({});
    this->whole(1);
    this->whole(2, 2);
    this->whole(3);
    this->pass(100'000); // until none waits for its turn
    this->send(2, {2, 2});
    this->send(3, {1});
    this->out_of_buffers = true;
    this->whole(4);
    this->send(5, {0, 1});
    this->receiver.flush(this->now); // nobody knows what would have come
    const frame_receive_stats stats = this->receiver.get_statistics();
    const uint64_t per_frame = this->wire.trailer() + 1;
    EXPECT_EQ(stats.packets_expected, 4 * per_frame);
    EXPECT_EQ(stats.packets_received, 4 * per_frame - 1);
    EXPECT_EQ(stats.packets_late, 3U);
}

TYPED_TEST(Receivers, chunks_are_announced_by_the_trailer) {
    for (const bool extended : {false, true}) {
        this->begin({.extended = extended});
        for (const uint64_t block : {1, 2}) {
            this->whole(block, trailer_id);
            const uint32_t length = block == 1 ? 77 : 0;
            const builder trailer = header(block, 2, trailer_id, 0, extended);
            this->feed_one(extended ? builder{trailer}.u32(0x4001).u32(4).u32(length).u32(9)
                                    : builder{trailer}.u32(5).u32(length).u64(9));
        }
        const uint32_t mode = extended ? frame_flags::extended_ids : 0;
        ASSERT_EQ(this->frames.size(), 2U);
        EXPECT_EQ(this->frames[0].flags, mode | frame_flags::has_chunk);
        EXPECT_EQ(this->frames[1].flags, mode);
        EXPECT_EQ(this->frames[0].chunk_layout_id, 9U);
        EXPECT_EQ(this->frames[0].chunk_length, 77U);
    }
}

TYPED_TEST(Receivers, buffer_smaller_than_the_frame_takes_what_fits) {
    for (const uint64_t size : {0U, 1U, 99U, 100U, 101U, 250U, 399U}) {
        this->begin({});
        this->buffer_size = size;
        this->feed_one(header(1, 3, 0)); // payload in front of the frame, and far behind it
        this->feed_one(header(1, 3, 0xFFFFFF));
        this->whole(1, 1);
        datagram longer = packet_of(1, 1);
        longer.resize(longer.size() + 5000);
        this->feed_one(longer);
        ASSERT_EQ(this->frames.size(), 1U) << "an empty one goes back, too";
        EXPECT_EQ(this->frames[0].filled_size, size);
        EXPECT_EQ(this->frames[0].flags, 0U) << "all packets came";
        EXPECT_TRUE(this->bytes_right(0));
        EXPECT_TRUE(this->guards_intact());
        EXPECT_EQ(this->statistics(), (counts{size != 0, 0, 0, size == 0, 0, 0}));
    }
}

TYPED_TEST(Receivers, frame_without_a_buffer_is_counted_only) {
    this->begin({});
    this->whole(1);
    this->out_of_buffers = true;
    this->whole(2, 2);
    this->out_of_buffers = false;
    this->whole(3);
    this->pass(100'000);
    this->send(2, {0});
    EXPECT_EQ(this->delivered(), (std::vector<uint64_t>{1, 3}));
    EXPECT_EQ(this->taken, 2U) << "what is late for it takes no buffer";
    EXPECT_EQ(this->statistics(), (counts{2, 0, 0, 1, 0, 0}));
}

TYPED_TEST(Receivers, revoked_frame_is_forgotten_and_the_rest_goes_on) {
    this->begin({});
    this->send(1, {0, 1, 2});
    this->send(2, {0});
    EXPECT_FALSE(this->receiver.revoke_frame(nullptr));
    EXPECT_TRUE(this->receiver.revoke_frame(&this->memory[0]));
    EXPECT_FALSE(this->receiver.revoke_frame(&this->memory[0]));
    const auto before = this->memory[0];
    this->send(1, {3, 4, 5});
    this->whole(2, 0);
    EXPECT_EQ(this->memory[0], before);
    EXPECT_EQ(this->delivered(), std::vector<uint64_t>{2});
    EXPECT_FALSE(this->receiver.revoke_frame(&this->memory[1])) << "delivered";
    EXPECT_EQ(this->statistics(), (counts{1, 0, 0, 1, 0, 0}));
}

TYPED_TEST(Receivers, flush_returns_every_open_frame_and_setup_starts_over) {
    this->begin({});
    this->send(1, {0, 1, 3});
    this->send(2, {0});
    for (int i = 0; i < 2; ++i) this->receiver.flush(this->now + 5);
    EXPECT_EQ(this->delivered(), (std::vector<uint64_t>{2, 1})) << "newest first";
    for (const frame_info& frame : this->frames) {
        EXPECT_EQ(frame.flags, incomplete | frame_flags::flushed);
        EXPECT_EQ(frame.end_time, this->now + 5);
    }
    this->send(2, {1}); // flushed counts as delivered
    this->pass(100'000);
    EXPECT_EQ(this->taken, 2U);
    EXPECT_TRUE(this->requests.empty());
    this->begin({});
    EXPECT_EQ(this->statistics(), counts{});
    this->whole(1);
    EXPECT_EQ(this->delivered(), std::vector<uint64_t>{1}) << "nothing is remembered";
}

TYPED_TEST(Receivers, status_and_garbage_open_nothing) {
    for (const uint32_t code : {0x800CU, 0x8011U, 0x8001U, 0x0100U | 0x800CU}) this->status(1, 2, code);
    this->feed_one(datagram(3));
    this->feed_one(packet_of(0, 1)); // a test packet
    EXPECT_EQ(this->taken, 0U);
    EXPECT_EQ(this->receiver.check_timers(this->now), -1);
}

TYPED_TEST(Receivers, frames_of_an_unsupported_form_are_told_once_a_stream) {
    const log_capture log;
    for (int stream = 1; stream <= 2; ++stream) {
        this->begin({});
        for (uint64_t block = 1; block <= 3; ++block) {
            this->feed_one(header(block, 1, 0).u32(10).fill(32));
            this->feed_one(header(block, 1, 0, 0, true).u32(10).fill(32));
        }
        EXPECT_EQ(this->taken, 0U);
        EXPECT_EQ(log.count("payload type that is not supported"), static_cast<size_t>(stream));
    }
}

// Sizes that no camera has: the bitmap follows the id form with the smaller packets.
TYPED_TEST(Receivers, extreme_geometry_stays_inside_the_bitmap) {
    for (const uint32_t size : {0U, 40U, 49U, 0xFFFFFFFFU}) {
        for (const uint32_t payload : {0U, 0xFFFFFFFEU, 0xFFFFFFFFU}) {
            this->start_over({});
            this->receiver.setup(size, payload);
            for (const uint32_t packet : {1U, 2U, 1000U, 0xFFFFFEU, 0xFFFFFFU}) {
                this->feed_one(header(1, 3, packet));
                this->feed_one(header(2, 3, packet, 0, true));
            }
            this->receiver.flush(this->now);
            EXPECT_EQ(this->taken, this->returned);
        }
    }
}

} // namespace gev::streamchannel::impl
