// Consumer operations at any moment of a frame, while a camera sends with loss and answers resends: no buffer is lost,
// no complete frame is wrong, nothing hangs or leaks.
#include "device_stream.h"

#include <support/temporary_folder.h>

namespace {

using namespace fake;
using test_support::entries_of;

// ORV_STREAM_OPERATIONS sets the number for a long run.
unsigned operations() {
    if (const char* text = std::getenv("ORV_STREAM_OPERATIONS")) return static_cast<unsigned>(std::atoi(text));
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    return 1500;
#else
    return 4000;
#endif
}

void slow_transform(const device_stream& own) {
    const auto settings = own.settings();
    settings.set_flag(gds_producer::settings_block::master_enable, true);
    settings.store(gds_producer::settings_block::sharpness, int32_t{64});
    settings.store(gds_producer::settings_block::denoise, int32_t{8});
}

struct kind_of_stream {
    uint32_t seed;
    bool can_resend = true;
    bool mailbox = false;
    bool slow_transform = false; // of large pictures, so that most operations come in the middle of one
};

class consumer {
public:
    consumer(device_stream& with, const kind_of_stream& which)
        : own(with), stream(*with.stream), random(which.seed), kind(which) {}

    void run(unsigned count) {
        for (int i = 0; i < 8; ++i) own.announce();
        ASSERT_TRUE(own.all_accounted_for());
        for (unsigned i = 0; i < count; ++i) {
            SCOPED_TRACE(testing::Message() << "operation " << i);
            operate();
            if (testing::Test::HasFatalFailure()) return;
            ASSERT_TRUE(own.all_accounted_for());
            if (below(3) == 0) std::this_thread::sleep_for(std::chrono::microseconds{below(400)});
        }
        if (running) {
            ASSERT_TRUE(own.stop());
        }
        ASSERT_FALSE(stream.FlushQueue(ACQ_QUEUE_ALL_DISCARD).failed());
        ASSERT_TRUE(own.all_accounted_for());
        const auto handles = own.mine();
        EXPECT_EQ(handles.size(), announced());
        for (const BUFFER_HANDLE handle : handles) EXPECT_TRUE(own.revoke(handle));
        EXPECT_EQ(announced(), 0U);
    }

    unsigned starts = 0;
    unsigned complete = 0;
    unsigned incomplete = 0;

private:
    uint32_t below(uint32_t bound) { return static_cast<uint32_t>(random() % bound); }
    [[nodiscard]] size_t announced() const { return own.info<size_t>(STREAM_INFO_NUM_ANNOUNCED); }

    void operate() {
        const uint32_t what = below(100);
        if (what < 30) {
            take(below(3));
        } else if (what < 55) {
            for (const BUFFER_HANDLE handle : own.mine()) {
                if (below(3) != 0) {
                    ASSERT_FALSE(stream.QueueBuffer(handle).failed());
                }
            }
        } else if (what < 70) {
            toggle();
        } else if (what < 85) {
            ASSERT_FALSE(stream.FlushQueue(static_cast<ACQ_QUEUE_TYPE>(what % 5)).failed());
        } else if (what < 90) {
            revoke_any();
        } else if (what < 95) {
            if (announced() < 16) {
                if (below(4) == 0)
                    own.announce(camera::payload_size / 2);
                else
                    own.announce();
            }
        } else if (what < 97) {
            own.settings().set_flag(gds_producer::settings_block::drop_incomplete_frames, below(2) == 0);
        } else if (what == 97) {
            ASSERT_FALSE(own.event->Flush().failed());
        } else if (what == 98) {
            ASSERT_FALSE(own.event->Kill().failed());
            take(1000); // ends at once
        } else if (!running) {
            own.connection->refuse_leases = true;
            EXPECT_FALSE(own.start());
            own.connection->refuse_leases = false;
        }
    }
    void take(uint64_t timeout_ms) {
        const BUFFER_HANDLE handle = own.next(timeout_ms);
        if (handle == nullptr || own.info<uint8_t>(handle, BUFFER_INFO_NEW_DATA) == 0) return;
        if (own.info<uint8_t>(handle, BUFFER_INFO_IS_INCOMPLETE) != 0) {
            ++incomplete;
            return;
        }
        ++complete;
        if (!kind.slow_transform) {
            EXPECT_TRUE(own.bytes_right(handle));
        }
    }
    void toggle() {
        if (running) {
            ASSERT_TRUE(own.stop(below(2) == 0 ? ACQ_STOP_FLAGS_KILL : ACQ_STOP_FLAGS_DEFAULT));
            running = false;
            if (kind.mailbox) own.use_dedicated_thread(below(3) != 0);
            own.settings().set_flag(gds_producer::settings_block::master_enable, kind.mailbox || kind.slow_transform);
            return;
        }
        while (announced() < 5) own.announce();
        ASSERT_TRUE(own.start());
        running = true;
        ++starts;
    }
    void revoke_any() {
        std::vector<BUFFER_HANDLE> all;
        for (uint32_t i = 0; i < announced(); ++i) {
            BUFFER_HANDLE handle = nullptr;
            ASSERT_FALSE(stream.GetBufferID(i, &handle).failed());
            all.push_back(handle);
        }
        if (all.empty()) return;
        const BUFFER_HANDLE handle = all[below(static_cast<uint32_t>(all.size()))];
        const bool free = own.info<uint8_t>(handle, BUFFER_INFO_IS_QUEUED) == 0;
        // What the consumer holds can be revoked; what the stream holds may have come to the output meanwhile at most.
        EXPECT_EQ(own.revoke(handle), free);
    }

    device_stream& own;
    IDataStream& stream;
    std::mt19937 random;
    const kind_of_stream kind;
    bool running = false;
};

void stress(const kind_of_stream& kind) {
    std::jthread{[] {}}.join(); // a sanitizer starts its own thread with the first one
    const size_t threads = entries_of("/proc/self/task");
    const size_t descriptors = entries_of("/proc/self/fd");
    const unsigned count = kind.slow_transform ? operations() / 5 : operations();
    {
        camera_traits traits{
            .loss = 30, .can_resend = kind.can_resend, .free_running = true, .pause_us = 200, .frame_rate = 1000};
        if (kind.slow_transform) traits.width = 640, traits.height = 400;
        const auto own = device_stream::make(traits);
        ASSERT_TRUE(own);
        if (kind.slow_transform) slow_transform(*own);
        consumer user{*own, kind};
        user.run(count);
        EXPECT_GT(user.starts, count / 30);
        EXPECT_GT(user.complete, 0U);
        if (kind.can_resend) {
            EXPECT_GT(own->cam.resends, 0U);
        }
        std::printf("%u operations, %u starts, %u complete and %u incomplete frames, %lu resend requests\n", count,
                    user.starts, user.complete, user.incomplete, own->cam.resends.load());
    }
    // A thread that has been joined may be listed for a moment.
    EXPECT_TRUE(eventually([&] { return entries_of("/proc/self/task") <= threads; }));
    EXPECT_LE(entries_of("/proc/self/fd"), descriptors);
}

} // namespace

TEST(StreamRestart, AnyOperationAtAnyMomentLosesNothing) { stress({.seed = 1}); }
TEST(StreamRestart, AlsoThroughTheMailbox) { stress({.seed = 2, .mailbox = true}); }
TEST(StreamRestart, AlsoWithoutResends) { stress({.seed = 3, .can_resend = false}); }
TEST(StreamRestart, AlsoInTheMiddleOfATransform) { stress({.seed = 4, .slow_transform = true}); }
TEST(StreamRestart, AlsoInTheMiddleOfATransformBehindTheMailbox) {
    stress({.seed = 5, .mailbox = true, .slow_transform = true});
}

// The consumer frees its buffers when the close has returned.
TEST(StreamRestart, AStreamOrDeviceClosesInTheMiddleOfATransform) {
    std::mt19937 random{6};
    for (int round = 0; round < 40; ++round) {
        SCOPED_TRACE(round);
        const auto own = device_stream::make({.free_running = true, .frame_rate = 1000, .width = 640, .height = 400});
        ASSERT_TRUE(own);
        own->use_dedicated_thread(round % 2 == 0);
        slow_transform(*own);
        own->queue_new(8);
        ASSERT_TRUE(own->start());
        std::this_thread::sleep_for(std::chrono::microseconds{random() % 8000});
        if (round % 4 < 2) own->close_device();
    }
}
