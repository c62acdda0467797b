#include "BufferQueues.h"
#include "fake_modules.h"

#include <gtest/gtest.h>

#include <thread>

using namespace fake;

TEST(Event, RegistrationFollowsTheStandard) {
    const open_chain chain;
    EVENT_HANDLE event = nullptr;
    EXPECT_EQ(GCRegisterEvent(chain.ds, EVENT_NEW_BUFFER, nullptr), GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(GCRegisterEvent(chain.ds, EVENT_REMOTE_DEVICE, &event), GC_ERR_NOT_IMPLEMENTED);
    EXPECT_THAT(GCUnregisterEvent(chain.ds, EVENT_NEW_BUFFER),
                IsRefused(GC_ERR_NOT_INITIALIZED, "Event was not registered previously"));
    event = chain.register_for_buffers();
    EVENT_HANDLE again = nullptr;
    EXPECT_EQ(GCRegisterEvent(chain.ds, EVENT_NEW_BUFFER, &again), GC_ERR_RESOURCE_IN_USE);
    EXPECT_EQ(GCUnregisterEvent(chain.ds, EVENT_NEW_BUFFER), GC_ERR_SUCCESS);
    EXPECT_EQ(EventKill(event), GC_ERR_INVALID_HANDLE);
}

TEST(Event, KillOutranksDataAndReleasesOneCallEach) {
    const open_chain chain;
    chain.announce(5);
    const EVENT_HANDLE event = chain.register_for_buffers();
    EVENT_NEW_BUFFER_DATA data{};
    size_t size = sizeof data;
    for (int i = 0; i < 2; ++i) {
        chain.fill_and_deliver();
        EXPECT_EQ(EventKill(event), GC_ERR_SUCCESS);
    }
    for (int i = 0; i < 2; ++i) EXPECT_EQ(take(event, data), GC_ERR_ABORT);
    EXPECT_EQ(EventGetData(event, nullptr, &size, 0), GC_ERR_SUCCESS) << "taken and not delivered";
    EXPECT_EQ(take(event, data), GC_ERR_SUCCESS);
    EXPECT_NE(data.BufferHandle, nullptr);
    EXPECT_THAT(take(event, data), IsRefused(GC_ERR_TIMEOUT, "Timeout elapsed while waiting for event"));
    size = 15;
    EXPECT_THAT(EventGetData(event, &data, &size, 0),
                IsRefused(GC_ERR_BUFFER_TOO_SMALL, "Buffer too small, expected 16 bytes (15 provided)"));
}

TEST(Event, AWaitEndsWhenTheEventGoes) {
    const open_chain chain;
    const EVENT_HANDLE event = chain.register_for_buffers();
    GC_ERROR result = 0;
    std::string text;
    std::thread waiter{[&] {
        EVENT_NEW_BUFFER_DATA data{};
        result = take(event, data, GENTL_INFINITE);
        text = last_error_text();
    }};
    std::this_thread::sleep_for(std::chrono::milliseconds{20});
    EXPECT_EQ(GCUnregisterEvent(chain.ds, EVENT_NEW_BUFFER), GC_ERR_SUCCESS);
    waiter.join();
    // Either it was waiting, or it came too late for the handle.
    if (result == GC_ERR_ABORT) {
        EXPECT_EQ(text, "Event closed by parent.");
    } else {
        EXPECT_EQ(result, GC_ERR_INVALID_HANDLE);
    }
}

TEST(Event, NearlyInfiniteTimeOutsDoNotWrap) {
    const open_chain chain;
    const EVENT_HANDLE event = chain.register_for_buffers();
    for (const uint64_t timeout : {uint64_t{GENTL_INFINITE}, uint64_t{GENTL_INFINITE} - 1, uint64_t{1} << 62}) {
        std::thread killer{[&] {
            std::this_thread::sleep_for(std::chrono::milliseconds{5});
            EventKill(event);
        }};
        EVENT_NEW_BUFFER_DATA data{};
        EXPECT_EQ(take(event, data, timeout), GC_ERR_ABORT);
        killer.join();
    }
}

TEST(Event, DataAndInfoTables) {
    const open_chain chain;
    auto generic = std::make_shared<GenApiEvent>(EVENT_MODULE);
    const std::byte payload[] = {std::byte{0x40}};
    for (const uint64_t id : {0x4000, 0x4001}) generic->fire(id, payload);
    GenApiEventRecord record{};
    size_t size = 1000;
    EXPECT_FALSE(generic->GetData(nullptr, &size, 0).failed()) << "taken and not delivered";
    EXPECT_EQ(size, sizeof record);
    ASSERT_FALSE(generic->GetData(&record, &size, 0).failed());
    INFO_DATATYPE type = 0;
    char text[16] = {};
    size = sizeof text;
    EXPECT_FALSE(generic->GetDataInfo(&record, sizeof record, EVENT_DATA_ID, &type, text, &size).failed());
    EXPECT_STREQ(text, "4001");
    std::byte value[600];
    size = sizeof value;
    EXPECT_FALSE(generic->GetDataInfo(&record, sizeof record, EVENT_DATA_VALUE, &type, value, &size).failed());
    EXPECT_EQ(size, 1U);
    EXPECT_EQ(value[0], std::byte{0x40});
    EXPECT_EQ(generic->GetDataInfo(&record, 647, EVENT_DATA_ID, &type, text, &size).message, "iInSize too small");
    record.data_size = 100000; // a consumer's memory can hold anything
    size = sizeof value;
    EXPECT_FALSE(generic->GetDataInfo(&record, sizeof record, EVENT_DATA_VALUE, &type, value, &size).failed());
    EXPECT_EQ(size, 600U);

    const EVENT_HANDLE event = chain.register_for_buffers();
    size_t number = 0;
    size = sizeof number;
    EXPECT_EQ(EventGetInfo(event, EVENT_SIZE_MAX, &type, &number, &size), GC_ERR_SUCCESS);
    EXPECT_EQ(number, 16U);
    EXPECT_EQ(EventGetInfo(event, EVENT_INFO_CUSTOM_ID, &type, &number, &size), GC_ERR_NOT_IMPLEMENTED);
}

TEST(Event, CountersFollowFiringTakingAndFlushing) {
    auto event = std::make_shared<GenApiEvent>(EVENT_MODULE);
    const auto counts = [&] {
        const auto count = [&](EVENT_INFO_CMD command) {
            return answer_of<uint64_t>([&](auto... out) { return event->GetInfo(command, out...).code; });
        };
        return std::pair{count(EVENT_NUM_IN_QUEUE), count(EVENT_NUM_FIRED)};
    };
    for (int i = 0; i < 3; ++i) event->fire(1, {});
    EXPECT_EQ(counts(), std::pair(uint64_t{3}, uint64_t{3}));
    GenApiEventRecord record{};
    size_t size = sizeof record;
    ASSERT_FALSE(event->GetData(&record, &size, 0).failed());
    EXPECT_EQ(counts(), std::pair(uint64_t{2}, uint64_t{3}));
    ASSERT_FALSE(event->Flush().failed());
    EXPECT_EQ(counts(), std::pair(uint64_t{0}, uint64_t{3}));
    EXPECT_EQ(event->GetData(nullptr, &size, 0).code, GC_ERR_TIMEOUT);
}

// Each buffer wakes the event of the moment; between two there is none to wake.
TEST(Event, NewBuffersGoToTheEventRegisteredLast) {
    const open_chain chain;
    chain.announce(3);
    chain.fill_and_deliver();
    for (int round = 0; round < 2; ++round) {
        const EVENT_HANDLE event = chain.register_for_buffers();
        chain.fill_and_deliver();
        EXPECT_EQ(answer_of<uint64_t>([&](auto... out) { return EventGetInfo(event, EVENT_NUM_FIRED, out...); }), 1U);
        EXPECT_EQ(GCUnregisterEvent(chain.ds, EVENT_NEW_BUFFER), GC_ERR_SUCCESS);
    }
}

// A consumer registers anew on one thread while another is not done with closing the former event.
TEST(Event, ClosingAnEventLateLeavesTheNextOne) {
    const auto queue = std::make_shared<OutputQueue>();
    NewBufferEvent former{queue};
    NewBufferEvent next{queue};
    former.close();
    const auto buffer = *make_buffer(nullptr, 64, nullptr);
    Buffer* const added = buffer.get();
    queue->append(std::span{&added, 1});
    EXPECT_EQ(answer_of<uint64_t>([&](auto... out) { return next.GetInfo(EVENT_NUM_FIRED, out...).code; }), 1U);
    next.close();
}
