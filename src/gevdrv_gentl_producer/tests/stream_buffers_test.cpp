// Too few and too small buffers: what the consumer gets and what the counters say.
#include "device_stream.h"

namespace {

using namespace fake;

constexpr uint64_t payload = camera::payload_size;

struct five_buffers {
    explicit five_buffers(const camera_traits& traits = {}) : own(device_stream::make(traits)) {
        for (int i = 0; i < 5; ++i) handles.push_back(own->announce());
        own->patient();
    }
    template <class T>
    [[nodiscard]] T of(BUFFER_HANDLE handle, BUFFER_INFO_CMD command) const {
        return own->info<T>(handle, command);
    }
    [[nodiscard]] uint64_t delivered() const { return own->info<uint64_t>(STREAM_INFO_NUM_DELIVERED); }
    [[nodiscard]] uint64_t underruns() const { return own->info<uint64_t>(STREAM_INFO_NUM_UNDERRUN); }
    [[nodiscard]] uint64_t drops() const { return own->info<uint64_t>(STREAM_INFO_KRV_NUM_TRANSMISSION_DROP); }
    template <class T>
    [[nodiscard]] fake::feature<T> feature(const char* name) const {
        return {dynamic_cast<IPort&>(*own->stream), name};
    }
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
    EXPECT_EQ(b.feature<uint64_t>("StreamLostFrameCount").get(), 10U);
    EXPECT_EQ(b.delivered(), 10U);
    EXPECT_EQ(b.own->info<size_t>(STREAM_INFO_NUM_STARTED), 10U);
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
        five_buffers b{{.loss = 1000}}; // answers never arrive
        b.own->patient(600'000);
        b.queue(0);
        b.feature<uint32_t>("DropIncompleteFrames").set(drop ? 1 : 0);
        ASSERT_TRUE(b.own->start());
        b.own->cam.send_frame(1, nullptr, 3);
        if (drop) {
            EXPECT_TRUE(eventually([&] { return b.drops() == 1; }));
            EXPECT_EQ(b.feature<uint64_t>("StreamPacketLossFrameCount").get(), 1U);
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
