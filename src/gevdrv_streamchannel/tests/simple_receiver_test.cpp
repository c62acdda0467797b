#include "datagram_bytes.h"

#include <gevdrv_streamchannel/packet_recv/gvsp_recv_copy_packets.h>
#include <gevdrv_streamchannel/packet_recv/gvsp_recv_simple.h>

#include <gtest/gtest.h>

#include <cstring>
#include <deque>

using namespace gev::streamchannel;
using namespace gev::streamchannel::impl;
using namespace datagrams;

namespace {

constexpr uint32_t packet_size = 136; // 100 bytes of payload with standard ids
constexpr uint32_t payload_size = 350;
constexpr uint32_t trailer_id = 5; // leader, four payload packets, trailer

// A receiver with a camera that sends what the test says.
class Bench {
public:
    Bench() {
        functions.deliver = [this](const frame_info& info, const frame_receive_stats& counts) {
            frames.push_back(info);
            stats = counts;
        };
        functions.get_frame = [this] {
            if (!buffers_left) return frame_context{};
            memory.emplace_back(frame_capacity + margin, std::byte{0xEE});
            return frame_context{&memory.back(), memory.back().data(), frame_capacity};
        };
        receiver.setup(packet_size, payload_size);
    }
    void send(builder from) {
        const size_t size = from.bytes.size();
        from.fill(margin);
        if (receiver.receive_packet(now, {from.bytes.data(), size})) {
            EXPECT_EQ(receiver.check_timers(now), -1);
        }
    }
    void leader(uint32_t block) { send(standard_leader(block)); }
    void payload(uint32_t block, uint32_t id, size_t size = 100) { send(standard(0, block, 3, id).fill(size, block)); }
    void trailer(uint32_t block) { send(standard(0, block, 2, trailer_id).u16(0).u16(1).u32(0)); }
    void whole(uint32_t block) {
        leader(block);
        for (uint32_t id = 1; id < trailer_id; ++id) payload(block, id, id == 4 ? 50 : 100);
        trailer(block);
    }

    size_t frame_capacity = payload_size;
    bool buffers_left = true;
    uint64_t now = 1;
    std::vector<frame_info> frames;
    frame_receive_stats stats;
    std::deque<std::vector<std::byte>> memory;
    stream_functions functions;
    gvsp_recv_simple receiver{functions};
};

} // namespace

TEST(SimpleReceiver, AWholeFrameIsDeliveredOnceWithItsFields) {
    Bench bench;
    bench.whole(1);
    bench.trailer(1); // late duplicate
    ASSERT_EQ(bench.frames.size(), 1U);
    const frame_info& info = bench.frames[0];
    EXPECT_EQ(info.flags, 0U);
    EXPECT_EQ(info.filled_size, payload_size);
    EXPECT_EQ(info.expected_payload_size, payload_size);
    EXPECT_EQ(info.size_x, 640U);
    EXPECT_EQ(info.block_id, 1U);
    EXPECT_EQ(info.frame_id, 0U);
    for (size_t i = 0; i < payload_size; ++i) ASSERT_EQ(info.context.data[i], std::byte{1});
    EXPECT_EQ(info.context.data[payload_size], std::byte{0xEE}) << "nothing behind the frame is touched";
    EXPECT_EQ(bench.stats.complete_frames, 1U);
}

TEST(SimpleReceiver, IdsWrapWithoutASkip) {
    Bench bench;
    for (const uint32_t block : {65534U, 65535U, 1U, 2U}) bench.whole(block);
    ASSERT_EQ(bench.frames.size(), 4U);
    for (size_t i = 1; i < 4; ++i) EXPECT_EQ(bench.frames[i].frame_id, bench.frames[i - 1].frame_id + 1);
    EXPECT_EQ(bench.stats.skipped_frames, 0U);
}

TEST(SimpleReceiver, MissingFramesAreCounted) {
    Bench bench;
    bench.whole(2);
    bench.whole(6);
    EXPECT_EQ(bench.stats.skipped_frames, 3U);
    EXPECT_EQ(bench.stats.complete_frames, 2U);
}

TEST(SimpleReceiver, ALostTrailerWaitsForAYoungerFrame) {
    Bench bench;
    bench.leader(1);
    for (uint32_t id = 1; id < trailer_id; ++id) bench.payload(1, id);
    EXPECT_TRUE(bench.frames.empty());
    bench.whole(2);
    ASSERT_EQ(bench.frames.size(), 2U);
    EXPECT_EQ(bench.frames[0].block_id, 1U) << "older first";
    EXPECT_EQ(bench.frames[0].flags, frame_flags::incomplete);
    EXPECT_EQ(bench.frames[1].flags, 0U);
}

TEST(SimpleReceiver, DuplicatesDoNotCount) {
    Bench bench;
    bench.leader(1);
    for (int i = 0; i < 10; ++i) bench.payload(1, 1);
    EXPECT_TRUE(bench.frames.empty());
}

TEST(SimpleReceiver, PayloadNeverLeavesTheFrame) {
    Bench bench;
    bench.frame_capacity = 150;
    bench.leader(1);
    bench.payload(1, 0);        // before the frame
    bench.payload(1, 2);        // half of it fits
    bench.payload(1, 4);        // behind it
    bench.payload(1, 0xFFFFFF); // far behind it
    bench.payload(1, 1, 5000);  // longer than a packet
    bench.receiver.flush(2);
    ASSERT_EQ(bench.frames.size(), 1U);
    EXPECT_EQ(bench.frames[0].filled_size, 150U);
    EXPECT_EQ(bench.memory[0][150], std::byte{0xEE});
    EXPECT_NE(bench.frames[0].flags & frame_flags::flushed, 0U);
}

TEST(SimpleReceiver, AtMostThreeFramesAreOpen) {
    Bench bench;
    for (const uint32_t block : {1U, 2U, 3U, 4U}) bench.leader(block);
    bench.leader(5);
    std::vector<uint64_t> ended;
    for (const auto& frame : bench.frames) ended.push_back(frame.block_id);
    EXPECT_EQ(ended, (std::vector<uint64_t>{1, 2}));
    EXPECT_EQ(bench.stats.incomplete_frames, 2U);
}

TEST(SimpleReceiver, FramesWithoutABufferAreCountedOnly) {
    Bench bench;
    bench.buffers_left = false;
    bench.whole(1);
    bench.buffers_left = true;
    bench.whole(2);
    ASSERT_EQ(bench.frames.size(), 1U);
    EXPECT_EQ(bench.stats.no_buffer_frames, 1U);
}

TEST(SimpleReceiver, ExtendedIdsAndChunksAreFlagged) {
    Bench bench;
    bench.send(extended_leader(1));
    for (uint32_t id = 1; id < 5; ++id) bench.send(extended(0, 0, 1, 3, id).fill(id == 4 ? 86 : 88, 9));
    bench.send(extended(0, 0, 1, 2, 5).u16(0).u16(0x4001).u32(480).u32(20).u32(3));
    ASSERT_EQ(bench.frames.size(), 1U);
    EXPECT_EQ(bench.frames[0].flags, frame_flags::extended_ids | frame_flags::has_chunk);
    EXPECT_EQ(bench.frames[0].chunk_layout_id, 3U);
}

TEST(SimpleReceiver, StatusAndGarbageAreIgnored) {
    Bench bench;
    bench.send(standard(0x8011, 1, 3, 1));
    bench.send(builder{}.fill(3));
    bench.send(standard(0, 0, 3, 1).fill(100));
    bench.receiver.flush(2);
    EXPECT_TRUE(bench.frames.empty());
}

TEST(CopyReceiver, KeepsWholeDatagramsAndStartsANewBufferWhenFull) {
    stream_functions functions;
    std::vector<std::byte> memory(64);
    std::vector<frame_info> frames;
    functions.get_frame = [&] { return frame_context{&memory, memory.data(), memory.size()}; };
    functions.deliver = [&](const frame_info& info, const frame_receive_stats&) { frames.push_back(info); };
    gvsp_recv_copy_packets receiver{functions};
    receiver.setup(0, 0);
    const std::vector<std::byte> datagram(20, std::byte{7});
    for (int i = 0; i < 3; ++i) EXPECT_TRUE(receiver.receive_packet(1, datagram));
    ASSERT_EQ(frames.size(), 1U);
    EXPECT_EQ(frames[0].filled_size, 48U);
    const std::vector<std::byte> huge(100);
    EXPECT_TRUE(receiver.receive_packet(1, huge)) << "cannot be kept, must not loop";
    receiver.flush(2);
}
