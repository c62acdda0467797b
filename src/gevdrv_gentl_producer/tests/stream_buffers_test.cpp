// Too few and too small buffers: what the consumer gets and what the counters say.
#include "device_stream.h"

namespace {

using namespace fake;

constexpr uint64_t payload = camera::payload_size;

struct five_buffers {
    explicit five_buffers(const camera_traits& traits = {}) : own(device_stream::make(traits)) {
        for (int i = 0; i < 5; ++i) handles.push_back(own->announce());
    }
    template <class T>
    [[nodiscard]] T of(BUFFER_HANDLE handle, BUFFER_INFO_CMD command) const {
        return own->info<T>(handle, command);
    }
    [[nodiscard]] uint64_t delivered() const { return own->info<uint64_t>(STREAM_INFO_NUM_DELIVERED); }
    [[nodiscard]] uint64_t underruns() const { return own->info<uint64_t>(STREAM_INFO_NUM_UNDERRUN); }
    [[nodiscard]] uint64_t drops() const { return own->info<uint64_t>(STREAM_INFO_KRV_NUM_TRANSMISSION_DROP); }
    void queue(size_t index) { ASSERT_FALSE(own->stream->QueueBuffer(handles[index]).failed()); }
    void expect_frame(BUFFER_HANDLE handle, uint64_t block) const {
        ASSERT_NE(handle, nullptr);
        EXPECT_EQ(of<uint64_t>(handle, BUFFER_INFO_FRAMEID), block);
        EXPECT_EQ(of<uint8_t>(handle, BUFFER_INFO_IS_INCOMPLETE), 0);
        EXPECT_TRUE(own->bytes_right(handle));
    }

    std::unique_ptr<device_stream> own;
    std::vector<BUFFER_HANDLE> handles;
};

} // namespace

TEST(StreamBuffers, WithoutABufferFramesAreUnderrunsUntilOneIsQueued) {
    five_buffers b;
    ASSERT_TRUE(b.own->start());
    for (uint16_t block = 1; block <= 3; ++block) {
        b.own->cam.send_frame(block);
        EXPECT_TRUE(eventually([&] { return b.underruns() == block; }));
    }
    // Counted as its block ends, which is a little later.
    const feature<uint64_t> packets{dynamic_cast<IPort&>(*b.own->stream), "StreamExpectedPacketCount"};
    EXPECT_TRUE(eventually([&] { return packets.get() == 3U * (camera::trailer_id + 1); })) << packets.get();
    EXPECT_EQ(b.delivered(), 0U);
    EXPECT_EQ(b.own->next(0), nullptr);
    b.queue(0);
    b.own->cam.send_frame(4);
    b.expect_frame(b.own->next(long_enough_ms), 4);
    EXPECT_EQ(b.underruns(), 3U);
    EXPECT_EQ(b.delivered(), 1U);
    EXPECT_EQ(b.drops(), 0U);
    EXPECT_TRUE(b.own->stop());
    EXPECT_TRUE(b.own->all_accounted_for());
    EXPECT_EQ(b.own->mine().size(), 5U);
}

TEST(StreamBuffers, OneBufferServesEverySecondFrame) {
    five_buffers b;
    b.queue(2);
    ASSERT_TRUE(b.own->start());
    for (uint16_t pair = 0; pair < 10; ++pair) {
        const auto block = static_cast<uint16_t>(2 * pair + 1);
        b.own->cam.send_frame(block);
        const BUFFER_HANDLE handle = b.own->next(long_enough_ms);
        ASSERT_EQ(handle, b.handles[2]);
        b.expect_frame(handle, block);
        b.own->cam.send_frame(static_cast<uint16_t>(block + 1)); // meanwhile the consumer works on the one before
        EXPECT_TRUE(eventually([&] { return b.underruns() == pair + 1U; }));
        b.expect_frame(handle, block); // and still has it
        b.queue(2);
        EXPECT_TRUE(b.own->all_accounted_for());
    }
    EXPECT_EQ(b.delivered(), 10U);
    EXPECT_EQ(b.own->info<size_t>(STREAM_INFO_NUM_STARTED), 10U);
}

TEST(StreamBuffers, TheBufferQueuedLastIsFilledFirst) {
    five_buffers b;
    for (size_t i = 0; i < 3; ++i) b.queue(i);
    ASSERT_TRUE(b.own->start());
    for (uint16_t block = 1; block <= 3; ++block) {
        b.own->cam.send_frame(block);
        EXPECT_EQ(b.own->next(long_enough_ms), b.handles[3U - block]);
    }
}

TEST(StreamBuffers, ASmallBufferTakesWhatFitsAndSaysSo) {
    five_buffers b;
    ASSERT_TRUE(b.own->start());
    uint16_t block = 0;
    for (const size_t size : {size_t{1}, size_t{199}, size_t{200}, size_t{201}, payload - 1, payload, payload + 100}) {
        const BUFFER_HANDLE handle = b.own->announce(size);
        ASSERT_FALSE(b.own->stream->QueueBuffer(handle).failed());
        b.own->cam.send_frame(++block);
        ASSERT_EQ(b.own->next(long_enough_ms), handle);
        b.expect_frame(handle, block);
        EXPECT_EQ(b.of<size_t>(handle, BUFFER_INFO_SIZE_FILLED), std::min<size_t>(size, payload));
        EXPECT_EQ(b.of<size_t>(handle, BUFFER_INFO_DATA_SIZE), payload);
        EXPECT_EQ(b.of<uint8_t>(handle, BUFFER_INFO_DATA_LARGER_THAN_BUFFER) != 0, size < payload) << size;
    }
    EXPECT_EQ(b.delivered(), 7U);
    EXPECT_EQ(b.underruns(), 0U);
}

TEST(StreamBuffers, SkippedFramesAreRecoveredOrCountedAsLoss) {
    five_buffers b;
    for (size_t i = 0; i < 5; ++i) b.queue(i);
    ASSERT_TRUE(b.own->start());
    b.own->cam.send_frame(1);
    b.expect_frame(b.own->next(long_enough_ms), 1);
    b.own->cam.send_frame(5);
    for (const uint16_t block : {3, 4, 5}) b.expect_frame(b.own->next(long_enough_ms), block);
    EXPECT_EQ(b.drops(), 1U);
    EXPECT_EQ(b.delivered(), 4U);
    EXPECT_EQ(b.own->info<size_t>(STREAM_INFO_NUM_AWAIT_DELIVERY), 0U);
}

TEST(StreamBuffers, IncompleteFramesAreDeliveredOrDroppedAsSet) {
    for (const bool drop : {false, true}) {
        five_buffers b{{.loss = 1000, .frame_rate = 20}}; // answers never arrive
        b.queue(0);
        b.own->settings().set_flag(gds_producer::settings_block::drop_incomplete_frames, drop);
        ASSERT_TRUE(b.own->start());
        b.own->cam.send_frame(1, nullptr, 3);
        if (drop) {
            EXPECT_TRUE(eventually([&] { return b.drops() == 1; }));
            EXPECT_EQ(b.delivered(), 0U);
            b.own->cam.send_frame(2); // into the same buffer
            b.expect_frame(b.own->next(long_enough_ms), 2);
        } else {
            const BUFFER_HANDLE handle = b.own->next(long_enough_ms);
            ASSERT_NE(handle, nullptr);
            EXPECT_NE(b.of<uint8_t>(handle, BUFFER_INFO_IS_INCOMPLETE), 0);
            EXPECT_EQ(b.of<size_t>(handle, BUFFER_INFO_SIZE_FILLED), payload);
            EXPECT_FALSE(b.own->bytes_right(handle));
            EXPECT_EQ(b.drops(), 0U);
        }
        EXPECT_EQ(b.own->cam.resends, 3U);
        EXPECT_EQ(b.delivered(), 1U);
        EXPECT_TRUE(b.own->all_accounted_for());
    }
}
