// No memory, at each place in turn where a stream's start or end asks for some, in the middle of a frame: nothing is
// left running that would write into the consumer's memory, or keep the camera's channel.
#include "device_stream.h"

#include <support/failing_memory.h>

namespace {

using namespace fake;

constexpr int most_places = 3000;

// The service is another process.
bool asked_by_the_library() { return failing_memory::this_thread() && !service::answering; }

std::unique_ptr<device_stream> stream_with_buffers(bool mailbox, const camera_traits& traits = {}) {
    auto own = device_stream::make(traits);
    if (!own) return own;
    own->use_dedicated_thread(mailbox);
    own->patient(10'000'000);
    own->queue_new(5);
    return own;
}

// Half of it, in a buffer of the consumer's.
void begin_frame(device_stream& own) {
    const auto before = own.info<uint64_t>(STREAM_INFO_NUM_STARTED);
    for (uint32_t id = 0; id <= camera::data_packets / 2; ++id) own.cam.send(own.cam.own_packet(1, id));
    ASSERT_TRUE(eventually([&] { return own.info<uint64_t>(STREAM_INFO_NUM_STARTED) > before; }));
}

void expect_nothing_runs(device_stream& own) {
    EXPECT_EQ(own.connection->open_leases(), 0U);
    EXPECT_EQ(own.cam.target().port, 0) << "the camera still sends";
}

// `end` with a stream that runs.
template <class End>
void end_at_each_place(End end) {
    for (const bool mailbox : {false, true}) {
        int place = 0;
        for (bool failed = true; failed && place < most_places; ++place) {
            SCOPED_TRACE(testing::Message() << "mailbox " << mailbox << ", place " << place);
            const auto own = stream_with_buffers(mailbox);
            ASSERT_TRUE(own);
            ASSERT_TRUE(own->start());
            ASSERT_NO_FATAL_FAILURE(begin_frame(*own));
            failing_memory::fail(place, asked_by_the_library);
            EXPECT_NO_THROW(end(*own));
            failed = failing_memory::stop() != 0;
            expect_nothing_runs(*own);
            if (own->stream != nullptr) {
                EXPECT_TRUE(own->all_accounted_for());
            }
            if (testing::Test::HasFailure()) return;
        }
        EXPECT_GT(place, 3);
        EXPECT_LT(place, most_places);
    }
}

} // namespace

TEST(StreamMemory, AStreamStopsWithoutIt) {
    end_at_each_place([](device_stream& own) { EXPECT_TRUE(own.stop()); });
}

TEST(StreamMemory, AStreamClosesWithoutIt) {
    end_at_each_place([](device_stream& own) {
        IDataStream* const closed = std::exchange(own.stream, nullptr);
        EXPECT_FALSE(own.device->OnDataStreamClosed(closed).failed());
        failing_memory::stop();
        own.open_stream();
    });
}

TEST(StreamMemory, ADeviceClosesWithoutIt) {
    end_at_each_place([](device_stream& own) { own.close_device(); });
}

TEST(StreamMemory, AStreamStartsOrLeavesNothingBehind) {
    for (const bool mailbox : {false, true}) {
        // Frames come while the start goes on, so the receive thread waits for the lock that the start holds.
        const auto own = stream_with_buffers(mailbox, {.free_running = true});
        ASSERT_TRUE(own);
        int place = 0;
        for (bool failed = true; failed && place < most_places; ++place) {
            SCOPED_TRACE(testing::Message() << "mailbox " << mailbox << ", place " << place);
            Error error;
            failing_memory::fail(place, asked_by_the_library);
            EXPECT_NO_THROW(error = own->stream->StartAcquisition(ACQ_START_FLAGS_DEFAULT, GENTL_INFINITE));
            failed = failing_memory::stop() != 0;
            if (error.failed()) {
                EXPECT_TRUE(error.code == GC_ERR_OUT_OF_MEMORY || error.message.ends_with("Cannot allocate memory"))
                    << error.text();
                expect_nothing_runs(*own);
                ASSERT_TRUE(own->start());
            }
            ASSERT_NE(own->next(long_enough_ms), nullptr);
            EXPECT_TRUE(own->stop());
            EXPECT_TRUE(own->all_accounted_for());
            EXPECT_FALSE(own->stream->FlushQueue(ACQ_QUEUE_ALL_TO_INPUT).failed());
            if (HasFailure()) return;
        }
        EXPECT_GT(place, 20);
        EXPECT_LT(place, most_places);
    }
}
