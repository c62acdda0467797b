#include "datagrams.h"

#include "gevdrv_streamchannel/packet_recv/gvsp_recv_simple.h"

#include <gtest/gtest.h>

namespace gev::streamchannel::impl {
namespace {

using namespace test;

struct gvsp_recv_simple_test : testing::Test, surroundings {
    gvsp_recv_simple receiver{functions};
    gvsp_recv_simple_test() { receiver.setup(packet_size, frame_size); }
    void send(uint32_t block, std::initializer_list<uint32_t> packets) {
        for (const uint32_t packet : packets) feed(receiver, 1000, packet_of(block, packet));
    }
    std::vector<uint64_t> delivered() const {
        std::vector<uint64_t> ids;
        for (const auto& frame : frames) ids.push_back(frame.block_id);
        return ids;
    }
};

TEST_F(gvsp_recv_simple_test, ids_wrap_without_a_skip) {
    for (const uint32_t block : {30000U, 65534U, 65535U, 1U, 2U}) send(block, {0, 1, 2, 3, 4, 5});
    ASSERT_EQ(frames.size(), 5U);
    EXPECT_EQ(frames[2].frame_id, 65534U);
    EXPECT_EQ(frames[4].frame_id, 65536U);
    EXPECT_EQ(receiver.get_statistics().skipped_frames, 65534U - 30000U - 1);
    for (size_t i = 0; i < frames.size(); ++i) EXPECT_TRUE(bytes_right(i));
}

TEST_F(gvsp_recv_simple_test, lost_trailer_waits_for_a_younger_frame) {
    send(1, {0, 1, 2, 3, 4, 4});
    EXPECT_TRUE(frames.empty());
    send(2, {0, 1, 2, 3, 4, 5});
    ASSERT_EQ(delivered(), (std::vector<uint64_t>{1, 2}));
    EXPECT_EQ(frames[0].flags, frame_flags::incomplete);
    EXPECT_EQ(frames[1].flags, 0U);
}

TEST_F(gvsp_recv_simple_test, three_interleaved_blocks_stay_open) {
    for (const uint32_t block : {1U, 2U, 3U}) send(block, {0, 1});
    EXPECT_TRUE(frames.empty());
    send(4, {0});
    EXPECT_EQ(delivered(), (std::vector<uint64_t>{1}));
    send(5, {0});
    EXPECT_EQ(delivered(), (std::vector<uint64_t>{1, 2}));
    receiver.flush(2000);
    EXPECT_EQ(frames.size(), taken);
    EXPECT_NE(frames.back().flags & frame_flags::flushed, 0U);
}

TEST_F(gvsp_recv_simple_test, strays_and_missing_buffers_write_nothing) {
    send(1, {0, 9, 1});
    feed(receiver, 1000, header(1, 3, 0)); // payload with the leader's id
    out_of_buffers = true;
    send(2, {0, 1, 2, 3, 4, 5});
    EXPECT_EQ(receiver.get_statistics().no_buffer_frames, 1U);
    receiver.flush(2000);
    ASSERT_EQ(frames.size(), 1U);
    EXPECT_EQ(frames[0].filled_size, payload_per_packet);
    EXPECT_TRUE(guards_intact());
}

} // namespace
} // namespace gev::streamchannel::impl
