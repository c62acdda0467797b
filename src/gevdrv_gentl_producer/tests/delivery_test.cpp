// From received frames to buffer fields, the mailbox, and what a device keeps beyond its streams.
#include "device_stream.h"
#include "module_feature.h"

#include <gds_gentl_producer/delivery_statistics.h>
#include <gentl_producer/Library.h>

#include <spdlog/logger.h>
#include <spdlog/sinks/base_sink.h>

namespace {

using namespace fake;

// Frame 1 with this timestamp in its leader.
void send_frame(camera& cam, uint64_t timestamp) {
    for (uint32_t id = 0; id <= camera::trailer_id; ++id) {
        auto packet = camera::packet(1, id);
        if (id == 0) {
            for (size_t i = 0; i < 8; ++i) packet[12 + i] = static_cast<std::byte>(timestamp >> (56 - 8 * i) & 0xFF);
        }
        cam.send(packet);
    }
}

// Holds the first thread that writes to it until it is let go.
class blocking_sink final : public spdlog::sinks::base_sink<std::mutex> {
public:
    std::atomic<bool> entered = false;
    std::atomic<bool> open = false;

private:
    void sink_it_(const spdlog::details::log_msg&) override {
        entered = true;
        eventually([&] { return open.load(); });
    }
    void flush_() override {}
};

} // namespace

TEST(Delivery, TimestampsBecomeNanosecondsAtAnyTickFrequency) {
    struct row {
        uint64_t frequency, ticks, nanoseconds;
    };
    for (const auto& [frequency, ticks, nanoseconds] :
         {row{1'000'000'000, 123'456'789'012, 123'456'789'012}, row{1'000'000'000, UINT64_MAX, UINT64_MAX},
          row{125'000'000, 125'000'000, 1'000'000'000}, row{66'666'667, 0, 0}, row{1'000, 5, 5'000'000},
          row{1, 3, 3'000'000'000}, row{1, UINT64_MAX, UINT64_MAX},
          row{uint64_t{1} << 33, uint64_t{1} << 33, 1'000'000'000}, row{0, 77, 77}}) {
        camera_traits traits;
        traits.tick_frequency = frequency;
        auto own = device_stream::make(traits);
        ASSERT_NE(own, nullptr);
        own->queue_new(5);
        ASSERT_TRUE(own->start());
        send_frame(own->cam, ticks);
        const BUFFER_HANDLE handle = own->next(long_enough_ms);
        ASSERT_NE(handle, nullptr) << frequency;
        EXPECT_EQ(own->info<uint64_t>(handle, BUFFER_INFO_TIMESTAMP_NS), nanoseconds) << frequency << " Hz";
        EXPECT_EQ(own->info<uint64_t>(handle, BUFFER_INFO_TIMESTAMP), nanoseconds);
    }
}

TEST(Delivery, ResendSettingsOutliveTheStreamAndActAtItsNextStart) {
    auto own = device_stream::make({.frame_rate = 50});
    ASSERT_NE(own, nullptr);
    feature<uint32_t>{dynamic_cast<IPort&>(*own->stream), "StreamPacketResendEnable"}.set(0);
    ASSERT_FALSE(own->device->OnDataStreamClosed(own->stream).failed());
    own->open_stream();
    const feature<uint32_t> enable{dynamic_cast<IPort&>(*own->stream), "StreamPacketResendEnable"};
    EXPECT_EQ(enable.get(), 0U);
    for (const uint32_t on : {0U, 1U}) {
        enable.set(on);
        own->queue_new(5);
        ASSERT_TRUE(own->start());
        own->cam.send_frame(1, nullptr, 3);
        const BUFFER_HANDLE handle = own->next(long_enough_ms);
        ASSERT_NE(handle, nullptr);
        EXPECT_EQ(own->cam.resends != 0, on != 0);
        ASSERT_TRUE(own->stop());
        ASSERT_FALSE(own->stream->FlushQueue(ACQ_QUEUE_ALL_DISCARD).failed());
    }
}

TEST(Delivery, TheAutomaticFrameTimeIsTheCamerasUnlessItHasNone) {
    struct row {
        double rate;
        uint32_t time_us;
    };
    for (const auto& [rate, time_us] : {row{50, 20'000}, row{3, 333'333}, row{0, 33'333}, row{-1, 33'333}}) {
        auto own = device_stream::make({.frame_rate = rate});
        ASSERT_NE(own, nullptr);
        for (int i = 0; i < 5; ++i) own->announce();
        ASSERT_TRUE(own->start());
        EXPECT_EQ(own->device->resends().automatic_time_us, time_us) << rate;
        EXPECT_FALSE(own->cam.rate_read_while_open) << "a slow answer would keep the first frames waiting";
    }
}

// Counters of one acquisition: what the receiver skipped counts once, and the next acquisition begins at zero, also
// when it has skipped frames before it delivers the first one.
TEST(Delivery, SkippedFramesCountOnceAndAnewWithEachStart) {
    camera_traits traits;
    traits.can_resend = false;
    auto own = device_stream::make(traits);
    ASSERT_NE(own, nullptr);
    for (int i = 0; i < 8; ++i) own->announce();
    const auto drops = [&] { return own->info<uint64_t>(STREAM_INFO_KRV_NUM_TRANSMISSION_DROP); };
    for (int round = 0; round < 2; ++round) {
        ASSERT_TRUE(own->start());
        for (const uint16_t block : {1, 2}) own->cam.send_frame(block); // find no buffer
        ASSERT_TRUE(eventually([&] { return own->info<uint64_t>(STREAM_INFO_NUM_UNDERRUN) == 2; }));
        for (const BUFFER_HANDLE handle : own->mine()) ASSERT_FALSE(own->stream->QueueBuffer(handle).failed());
        for (const uint16_t block : {5, 6, 8}) {
            own->cam.send_frame(block);
            ASSERT_NE(own->next(long_enough_ms), nullptr) << block;
            EXPECT_EQ(drops(), block == 8 ? 3U : 2U) << "round " << round << ", block " << block;
        }
        ASSERT_TRUE(own->stop());
        ASSERT_FALSE(own->stream->FlushQueue(ACQ_QUEUE_ALL_DISCARD).failed());
    }
}

// A frame that is half there when the stream is flushed or stopped goes back and is never delivered.
TEST(Delivery, AFlushedFrameIsNotDelivered) {
    for (const bool can_resend : {false, true}) {
        for (const bool by_stop : {false, true}) {
            SCOPED_TRACE(testing::Message() << "resend " << can_resend << ", stop " << by_stop);
            auto own = device_stream::make({.can_resend = can_resend});
            ASSERT_NE(own, nullptr);
            own->queue_new(5);
            ASSERT_TRUE(own->start());
            for (uint32_t id = 0; id < camera::data_packets / 2; ++id) own->cam.send(camera::packet(1, id));
            ASSERT_TRUE(eventually([&] { return own->info<size_t>(STREAM_INFO_NUM_STARTED) == 1; }));
            if (by_stop) {
                ASSERT_TRUE(own->stop());
            }
            ASSERT_FALSE(own->stream->FlushQueue(ACQ_QUEUE_ALL_DISCARD).failed());
            EXPECT_EQ(own->info<uint64_t>(STREAM_INFO_NUM_DELIVERED), 0U);
            EXPECT_EQ(own->mine().size(), 5U);
        }
    }
}

// While the thread behind the mailbox is slow, only the newest frame waits for it; the others go back and are counted.
TEST(Delivery, ASlowThreadBehindTheMailboxGetsTheNewestFrame) {
    for (const bool flush : {false, true}) {
        SCOPED_TRACE(testing::Message() << "flush " << flush);
        auto own = device_stream::make({.can_resend = false});
        ASSERT_NE(own, nullptr);
        own->queue_new(5);
        own->use_dedicated_thread(true);
        const feature<uint64_t> drops{dynamic_cast<IPort&>(*own->stream), "TransformQueueDropCount"};
        const auto slow = std::make_shared<blocking_sink>();
        install_system_factory(nullptr, std::make_shared<spdlog::logger>("slow", slow), nullptr);
        // The thread that delivers the last frame asked for says so in the log: there it is held.
        ASSERT_FALSE(own->stream->StartAcquisition(ACQ_START_FLAGS_DEFAULT, 1).failed());
        own->cam.send_frame(1);
        EXPECT_TRUE(eventually([&] { return slow->entered.load(); }));
        for (const uint16_t block : {2, 3, 4}) own->cam.send_frame(block);
        EXPECT_TRUE(eventually([&] { return drops.get() == 2; }));
        EXPECT_EQ(own->info<uint64_t>(STREAM_INFO_NUM_DELIVERED), 1U);
        if (flush) {
            EXPECT_FALSE(own->stream->FlushQueue(ACQ_QUEUE_ALL_DISCARD).failed());
            EXPECT_EQ(own->mine().size(), 5U) << "the mailbox still has one";
        }
        slow->open = true;
        for (const uint64_t block : {1, 4}) {
            const BUFFER_HANDLE handle = own->next(flush ? 0 : long_enough_ms);
            ASSERT_EQ(handle == nullptr, flush);
            if (!flush) {
                EXPECT_EQ(own->info<uint64_t>(handle, BUFFER_INFO_FRAMEID), block);
            }
        }
        EXPECT_TRUE(own->all_accounted_for());
        ASSERT_TRUE(own->stop());
        install_system_factory(nullptr, nullptr, nullptr);
        EXPECT_EQ(drops.get(), 2U);
        ASSERT_TRUE(own->start());
        EXPECT_EQ(drops.get(), 0U);
    }
}

TEST(Delivery, StatisticsAreThoseOfTheLastWholeInterval) {
    gds_producer::delivery_statistics sut;
    uint64_t now = 5'000'000'000;
    for (int i = 0; i <= 29; ++i, now += 100'000) sut.frame(now, 40);
    EXPECT_EQ(sut.last().frames_per_second, 0.0) << "not three seconds yet";
    sut.frame(now, 40);
    EXPECT_DOUBLE_EQ(sut.last().frames_per_second, 10.0);
    EXPECT_EQ(sut.last().avg_transform_us, 40U);
    sut.frame(now + 6'000'000, 10); // one frame in six seconds
    EXPECT_NEAR(sut.last().frames_per_second, 1.0 / 6, 1e-9);
    EXPECT_EQ(sut.last().avg_transform_us, 10U);
    sut.reset();
    EXPECT_EQ(sut.last().frames_per_second, 0.0);
}

TEST(Delivery, ASecondUrlServesWhereTheFirstCannotBeRead) {
    for (const char* bad : {"local:gone.xml;20000;100", "http://192.0.2.1/camera.xml", "nonsense"}) {
        camera_traits traits;
        traits.first_url = bad;
        traits.more_nodes =
            "<IntReg Name=\"AcquisitionStartStopRegister\"><Address>\n\t0x30c</Address><Length>4</Length>"
            "<AccessMode>RW</AccessMode><pPort>Device</pPort></IntReg>";
        auto own = device_stream::make(traits);
        ASSERT_NE(own, nullptr) << bad;
        auto& port = own->device->remote_port();
        EXPECT_EQ(port.acquisition_register(), std::optional<uint64_t>{0x30C});
        const auto word = [&](uint32_t index, URL_INFO_CMD command) {
            int32_t value = -1;
            INFO_DATATYPE type = 0;
            size_t size = sizeof value;
            EXPECT_FALSE(port.GetURLInfo(index, command, &type, &value, &size).failed());
            return value;
        };
        EXPECT_EQ(word(1, URL_INFO_SCHEMA_VER_MAJOR), 1);
        EXPECT_EQ(word(1, URL_INFO_SCHEMA_VER_MINOR), 1);
        EXPECT_EQ(word(1, URL_INFO_FILE_VER_MAJOR), 4);
        EXPECT_EQ(word(1, URL_INFO_FILE_VER_SUBMINOR), 6);
        EXPECT_EQ(word(0, URL_INFO_FILE_VER_MAJOR), 0);
    }
}
