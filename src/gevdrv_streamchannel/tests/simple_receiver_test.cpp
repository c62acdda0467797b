#include "datagram_bytes.h"

#include <gevdrv_streamchannel/packet_recv/gvsp_recv_copy_packets.h>
#include <gevdrv_streamchannel/packet_recv/gvsp_recv_simple.h>

#include <gtest/gtest.h>

#include <cstring>
#include <deque>
#include <random>

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
    struct row {
        std::vector<uint32_t> blocks;
        uint64_t skipped;
    };
    for (const row& r : {row{{65534, 65535, 1, 2}, 0}, row{{65535, 2}, 1}, row{{2, 6}, 3}, row{{1, 4, 5, 7}, 3},
                         row{{65534, 3}, 3}, row{{65281, 65282}, 0}, row{{1023, 1024, 1025}, 0},
                         row{{65280, 65281, 65282}, 0}, row{{65535, 1, 1023, 1024}, 1021}}) {
        Bench bench;
        for (const uint32_t block : r.blocks) bench.whole(block);
        ASSERT_EQ(bench.frames.size(), r.blocks.size());
        const auto laps = [&](size_t i) { return r.blocks[i] < r.blocks[0] ? 65535U : 0U; };
        for (size_t i = 1; i < bench.frames.size(); ++i) {
            EXPECT_EQ(bench.frames[i].frame_id, bench.frames[0].frame_id + r.blocks[i] + laps(i) - r.blocks[0]);
        }
        EXPECT_EQ(bench.stats.skipped_frames, r.skipped);
    }
}

// Late packets of the old lap keep its base, until the ids have left the bottom of the new one.
TEST(SimpleReceiver, UnwrappingKnowsBothSidesOfTheWrap) {
    block_id_unwrapper ids;
    for (const uint64_t id : {65535U, 1U, 65535U, 2U, 65281U, 1023U}) {
        EXPECT_EQ(ids.unwrap(id, false), id - 1 + (id < 1024 ? 65535 : 0)) << id;
    }
    EXPECT_EQ(ids.unwrap(1024, false), 1023U + 65535);
    EXPECT_EQ(ids.unwrap(65280, false), 65279U + 65535);
    EXPECT_EQ(ids.unwrap(65535, false), 65534U + 65535);
    EXPECT_EQ(ids.unwrap(1, false), 2U * 65535);
    EXPECT_EQ(ids.unwrap(0xFFFF'FFFF'FFFF'FFFF, true), 0xFFFF'FFFF'FFFF'FFFEU);
    ids.reset();
    EXPECT_EQ(ids.unwrap(1, false), 0U);
}

TEST(SimpleReceiver, RevokedFrameIsForgotten) {
    Bench bench;
    bench.leader(1);
    bench.payload(1, 1);
    EXPECT_FALSE(bench.receiver.revoke_frame(nullptr));
    EXPECT_FALSE(bench.receiver.revoke_frame(&bench));
    EXPECT_TRUE(bench.receiver.revoke_frame(&bench.memory[0]));
    EXPECT_FALSE(bench.receiver.revoke_frame(&bench.memory[0]));
    for (uint32_t id = 2; id < trailer_id; ++id) bench.payload(1, id);
    bench.trailer(1);
    EXPECT_EQ(bench.memory[0][100], std::byte{0xEE});
    EXPECT_TRUE(bench.frames.empty());
    bench.whole(2);
    EXPECT_EQ(bench.frames.size(), 1U);
    EXPECT_EQ(bench.stats.no_buffer_frames, 1U);
}

TEST(SimpleReceiver, FlushEndsAllOpenFramesAndSetupStartsOver) {
    Bench bench;
    bench.leader(1);
    bench.leader(2);
    bench.receiver.flush(9);
    bench.receiver.flush(9);
    ASSERT_EQ(bench.frames.size(), 2U);
    for (const frame_info& frame : bench.frames) {
        EXPECT_EQ(frame.flags, frame_flags::flushed | frame_flags::incomplete);
        EXPECT_EQ(frame.end_time, 9U);
    }
    bench.payload(2, 1); // of an ended frame
    EXPECT_EQ(bench.memory.size(), 2U);
    bench.receiver.setup(packet_size, payload_size);
    EXPECT_EQ(bench.receiver.get_statistics().incomplete_frames, 0U);
    bench.whole(2);
    EXPECT_EQ(bench.frames.size(), 3U);
    EXPECT_EQ(bench.frames[2].flags, 0U);
    EXPECT_EQ(bench.stats.skipped_frames, 0U);
}

TEST(SimpleReceiver, AnEmptyBufferCountsAsNoneAndStillGoesBack) {
    Bench bench;
    bench.frame_capacity = 0;
    bench.whole(1);
    EXPECT_EQ(bench.frames.size(), 1U);
    EXPECT_EQ(bench.stats.no_buffer_frames, 1U);
    EXPECT_EQ(bench.stats.complete_frames, 0U);
}

TEST(SimpleReceiver, ALostLeaderIsStoodInForByTheLastOne) {
    Bench bench;
    bench.whole(1);
    for (uint32_t id = 1; id < trailer_id; ++id) bench.payload(2, id);
    bench.trailer(2);
    bench.whole(3);
    ASSERT_EQ(bench.frames.size(), 3U);
    EXPECT_EQ(bench.frames[1].flags, frame_flags::incomplete);
    EXPECT_EQ(bench.frames[1].size_x, 640U);
    EXPECT_EQ(bench.frames[1].timestamp, 0U);
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
    ASSERT_EQ(frames.size(), 2U);
    EXPECT_EQ(frames[1].filled_size, 24U);
    EXPECT_EQ(frames[1].frame_id, 1U);
    EXPECT_TRUE(receiver.receive_packet(5, datagram));
    EXPECT_EQ(receiver.check_timers(5), -1);
    EXPECT_TRUE(receiver.revoke_frame(&memory));
    EXPECT_FALSE(receiver.revoke_frame(&memory));
    EXPECT_TRUE(receiver.receive_packet(6, datagram));
    receiver.flush(7);
    receiver.flush(7);
    ASSERT_EQ(frames.size(), 3U);
    EXPECT_EQ(frames[2].start_time, 6U);
    EXPECT_EQ(frames[2].end_time, 7U);
    functions.get_frame = [] { return frame_context{}; };
    EXPECT_TRUE(receiver.receive_packet(8, datagram));
    receiver.flush(9);
    EXPECT_EQ(frames.size(), 3U);
    EXPECT_EQ(receiver.get_statistics().no_buffer_frames, 1U);
    EXPECT_EQ(receiver.get_statistics().complete_frames, 3U);
}

// What a reader of the capture finds: a length, so many bytes, and so on to a length of nothing.
TEST(CopyReceiver, AnyDatagramsCanBeReadBack) {
    stream_functions functions;
    std::deque<std::vector<std::byte>> memory;
    std::vector<std::vector<std::byte>> sent, found;
    functions.get_frame = [&] {
        auto& buffer = memory.emplace_back(3000, std::byte{0xEE});
        return frame_context{&buffer, buffer.data(), buffer.size()};
    };
    functions.deliver = [&](const frame_info& info, const frame_receive_stats&) {
        for (size_t at = 0;;) {
            uint32_t length = 0;
            ASSERT_LE(at + sizeof length, info.context.size);
            std::memcpy(&length, info.context.data + at, sizeof length);
            if (length == 0 && at == info.filled_size) break;
            at += sizeof length;
            ASSERT_LE(at + length, info.filled_size);
            found.emplace_back(info.context.data + at, info.context.data + at + length);
            at += length;
        }
    };
    gvsp_recv_copy_packets receiver{functions};
    receiver.setup(0, 0);
    std::mt19937 random{5};
    for (int i = 0; i < 2000; ++i) {
        std::vector<std::byte> datagram(random() % 4 == 0 ? random() % 2993 : random() % 200,
                                        static_cast<std::byte>(i));
        receiver.receive_packet(1, datagram);
        sent.push_back(std::move(datagram));
    }
    receiver.flush(2);
    EXPECT_EQ(found, sent);
}
