// What is the simple receiver's alone, the ids that both receivers share, and the one that keeps datagrams.
#include "receiver_fixture.h"

#include <gevdrv_streamchannel/packet_recv/gvsp_recv_copy_packets.h>

#include <cstring>
#include <random>

namespace gev::streamchannel::impl {
namespace {

using namespace test;
using SimpleReceiver = receiver_fixture<gvsp_recv_simple>;
using ids = std::vector<uint64_t>;

} // namespace

// Late packets of the old lap keep its base, until the ids have left the bottom of the new one.
TEST_F(SimpleReceiver, UnwrappingKnowsBothSidesOfTheWrap) {
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

TEST_F(SimpleReceiver, ALostTrailerWaitsForAYoungerFrame) {
    begin({});
    whole(1, trailer_id);
    EXPECT_TRUE(frames.empty());
    whole(2);
    EXPECT_EQ(delivered(), (ids{1, 2})) << "older first";
    EXPECT_EQ(frames[0].flags, frame_flags::incomplete);
    EXPECT_EQ(frames[1].flags, 0U);
}

TEST_F(SimpleReceiver, AtMostThreeFramesAreOpen) {
    begin({});
    for (uint64_t block = 1; block <= 5; ++block) send(block, {0});
    EXPECT_EQ(delivered(), (ids{1, 2}));
    EXPECT_EQ(receiver.get_statistics().incomplete_frames, 2U);
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
        sent.emplace_back(random() % 4 == 0 ? random() % 2993 : random() % 200, static_cast<std::byte>(i));
        receiver.receive_packet(1, sent.back());
    }
    EXPECT_EQ(receiver.check_timers(2), -1);
    receiver.flush(2);
    receiver.flush(2);
    EXPECT_EQ(found, sent);
    EXPECT_EQ(receiver.get_statistics().complete_frames, memory.size());
    EXPECT_TRUE(receiver.receive_packet(3, datagram(5000))) << "cannot be kept, must not loop";
    EXPECT_TRUE(receiver.revoke_frame(&memory.back()));
    EXPECT_FALSE(receiver.revoke_frame(&memory.back()));
    functions.get_frame = [] { return frame_context{}; };
    EXPECT_TRUE(receiver.receive_packet(4, datagram(20)));
    EXPECT_EQ(receiver.get_statistics().no_buffer_frames, 1U);
}

} // namespace gev::streamchannel::impl
