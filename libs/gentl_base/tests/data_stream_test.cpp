// Buffers on their way through the queues.
#include "fake_modules.h"

#include <gtest/gtest.h>

#include <array>
#include <random>
#include <thread>

using namespace fake;

namespace {

template <class T>
T stream_info(DS_HANDLE ds, STREAM_INFO_CMD command) {
    INFO_DATATYPE type = 0;
    T value{};
    size_t size = sizeof value;
    EXPECT_EQ(DSGetInfo(ds, command, &type, &value, &size), GC_ERR_SUCCESS);
    return value;
}

std::array<size_t, 3> triple(DS_HANDLE ds) {
    return stream_info<std::array<size_t, 3>>(ds, STREAM_INFO_KRV_NUM_ANNOUNCED_QUEUED_AWAITDELIVERY);
}

} // namespace

TEST(DataStream, TheBufferQueuedLastIsFilledFirst) {
    const open_chain chain;
    const auto buffers = chain.announce(2);
    EXPECT_EQ(chain.stream_object().fill(), buffers[1]);
    EXPECT_EQ(chain.stream_object().fill(), buffers[0]);
    EXPECT_EQ(chain.stream_object().fill(), nullptr);
    EXPECT_EQ(stream_info<uint64_t>(chain.ds, STREAM_INFO_NUM_UNDERRUN), 1U);
}

TEST(DataStream, BuffersInUseAreRefusedByTheirState) {
    const open_chain chain;
    const auto buffers = chain.announce(1);
    struct state {
        std::function<void()> enter;
        const char* text;
    };
    const state states[] = {
        {[] {}, "hBuffer is in input queue"},
        {[&] { chain.stream_object().fill(); }, "hBuffer is being filled"},
        {[&] {
             chain.stream_object().queue_buffer_from_filling_to_output(chain.stream_object().filling.front());
             chain.stream_object().filling.clear();
         },
         "hBuffer is in output queue"},
    };
    for (const state& s : states) {
        s.enter();
        EXPECT_EQ(DSQueueBuffer(chain.ds, buffers[0]), GC_ERR_RESOURCE_IN_USE);
        EXPECT_EQ(last_error_text(), s.text);
        EXPECT_EQ(DSRevokeBuffer(chain.ds, buffers[0], nullptr, nullptr), GC_ERR_BUSY);
        EXPECT_EQ(last_error_text(), s.text);
    }
    EXPECT_EQ(DSFlushQueue(chain.ds, ACQ_QUEUE_OUTPUT_DISCARD), GC_ERR_SUCCESS);
    EXPECT_EQ(DSRevokeBuffer(chain.ds, buffers[0], nullptr, nullptr), GC_ERR_SUCCESS);
    EXPECT_EQ(DSRevokeBuffer(chain.ds, buffers[0], nullptr, nullptr), GC_ERR_INVALID_HANDLE);
    EXPECT_EQ(last_error_text(), "hBuffer was not announced");
}

TEST(DataStream, MemoryOfTheConsumerComesBack) {
    const open_chain chain;
    std::vector<std::byte> memory(64);
    int user = 0;
    BUFFER_HANDLE buffer = nullptr;
    ASSERT_EQ(DSAnnounceBuffer(chain.ds, memory.data(), memory.size(), &user, &buffer), GC_ERR_SUCCESS);
    BUFFER_HANDLE twice = nullptr;
    EXPECT_EQ(DSAnnounceBuffer(chain.ds, memory.data(), memory.size(), &user, &twice), GC_ERR_RESOURCE_IN_USE);
    EXPECT_EQ(last_error_text(), "pBuffer already announced");
    void* base = nullptr;
    void* priv = nullptr;
    EXPECT_EQ(DSRevokeBuffer(chain.ds, buffer, &base, &priv), GC_ERR_SUCCESS);
    EXPECT_EQ(base, memory.data());
    EXPECT_EQ(priv, &user);
    ASSERT_EQ(DSAllocAndAnnounceBuffer(chain.ds, 64, &user, &buffer), GC_ERR_SUCCESS);
    EXPECT_EQ(DSRevokeBuffer(chain.ds, buffer, &base, &priv), GC_ERR_SUCCESS);
    EXPECT_EQ(base, nullptr);
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__) // whose allocators end the process instead
    EXPECT_EQ(DSAllocAndAnnounceBuffer(chain.ds, size_t{1} << 62, nullptr, &buffer), GC_ERR_OUT_OF_MEMORY);
#endif
}

TEST(DataStream, FlushesMoveWhatTheyName) {
    struct row {
        ACQ_QUEUE_TYPE operation;
        std::array<size_t, 3> after; // announced, input and filling, output
    };
    // Before: five announced, of which one unqueued, one filling, one in output, two in input.
    const row rows[] = {
        {ACQ_QUEUE_INPUT_TO_OUTPUT, {5, 1, 3}}, {ACQ_QUEUE_OUTPUT_DISCARD, {5, 3, 0}},
        {ACQ_QUEUE_ALL_TO_INPUT, {5, 5, 0}},    {ACQ_QUEUE_UNQUEUED_TO_INPUT, {5, 4, 1}},
        {ACQ_QUEUE_ALL_DISCARD, {5, 0, 0}},
    };
    for (const row& r : rows) {
        const open_chain chain;
        chain.announce(4);
        chain.announce(1, false);
        auto& object = chain.stream_object();
        object.queue_buffer_from_filling_to_output(object.fill());
        object.filling.clear();
        object.fill();
        EXPECT_EQ(DSFlushQueue(chain.ds, r.operation), GC_ERR_SUCCESS);
        EXPECT_EQ(triple(chain.ds), r.after) << "operation " << r.operation;
    }
    const open_chain chain;
    EXPECT_EQ(DSFlushQueue(chain.ds, 5), GC_ERR_NOT_IMPLEMENTED);
}

TEST(DataStream, StartAsksForEnoughBuffersByMode) {
    for (const bool shared : {false, true}) {
        const open_chain chain{shared};
        chain.announce(1);
        EXPECT_EQ(DSStartAcquisition(chain.ds, 0, GENTL_INFINITE), GC_ERR_INVALID_BUFFER);
        EXPECT_EQ(last_error_text(), "Number of announced buffers < BUF_ANNOUNCE_MIN (5)");
        chain.announce(3);
        EXPECT_EQ(DSStartAcquisition(chain.ds, 0, GENTL_INFINITE), shared ? GC_ERR_INVALID_BUFFER : GC_ERR_SUCCESS);
    }
}

TEST(DataStream, StartAndStopRefuseWhatIsNotTheirTurn) {
    const open_chain chain;
    chain.announce(5);
    EXPECT_EQ(DSStartAcquisition(chain.ds, 1, 1), GC_ERR_NOT_IMPLEMENTED);
    EXPECT_EQ(last_error_text(), "Unexpected iStartFlags (1)");
    EXPECT_EQ(DSStartAcquisition(chain.ds, 0, 0), GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(DSStopAcquisition(chain.ds, 0), GC_ERR_RESOURCE_IN_USE);
    EXPECT_EQ(last_error_text(), "Acquisition not running");

    chain.stream_object().on_start = [] { return Error{GC_ERR_IO, "no camera"}; };
    EXPECT_EQ(DSStartAcquisition(chain.ds, 0, 1), GC_ERR_IO);
    EXPECT_EQ(stream_info<bool8_t>(chain.ds, STREAM_INFO_IS_GRABBING), 1) << "tests what was asked for";
    EXPECT_EQ(DSStopAcquisition(chain.ds, 0), GC_ERR_RESOURCE_IN_USE);

    chain.stream_object().on_start = [] { return success(); };
    EXPECT_EQ(DSStartAcquisition(chain.ds, 0, 1), GC_ERR_SUCCESS);
    EXPECT_EQ(DSStartAcquisition(chain.ds, 0, 1), GC_ERR_RESOURCE_IN_USE);
    EXPECT_EQ(DSStopAcquisition(chain.ds, 2), GC_ERR_NOT_IMPLEMENTED);
    EXPECT_EQ(DSStopAcquisition(chain.ds, 1), GC_ERR_SUCCESS);
}

TEST(DataStream, AStopThatJoinsTheFillingThreadDoesNotDeadlock) {
    const open_chain chain;
    chain.announce(5);
    auto& object = chain.stream_object();
    std::atomic<bool> quit{false};
    std::thread filler;
    object.on_start = [&] {
        filler = std::thread{[&] {
            while (!quit) {
                if (Buffer* buffer = object.take_input_buffer(true)) object.queue_buffer_from_filling_to_input(buffer);
            }
        }};
        return success();
    };
    object.on_stop = [&] {
        quit = true;
        filler.join();
    };
    for (int i = 0; i < 50; ++i) {
        quit = false;
        ASSERT_EQ(DSStartAcquisition(chain.ds, 0, GENTL_INFINITE), GC_ERR_SUCCESS);
        ASSERT_EQ(DSStopAcquisition(chain.ds, 0), GC_ERR_SUCCESS);
    }
}

// Fillers, deliverers and a consumer that queues, flushes and revokes at random: no buffer may get lost or be in two
// places, and what was announced must be there in the end.
TEST(DataStream, NoBufferIsLostUnderRandomUse) {
    const open_chain chain;
    const auto buffers = chain.announce(8);
    EVENT_HANDLE event = nullptr;
    ASSERT_EQ(GCRegisterEvent(chain.ds, EVENT_NEW_BUFFER, &event), GC_ERR_SUCCESS);
    std::atomic<bool> quit{false};
    auto& object = chain.stream_object();
    std::thread filler{[&] {
        std::mt19937 random{1};
        while (!quit) {
            Buffer* buffer = object.take_input_buffer(false);
            if (buffer == nullptr) {
                std::this_thread::yield();
            } else if (random() % 3 == 0) {
                object.queue_buffer_from_filling_to_input(buffer);
            } else {
                object.queue_buffer_from_filling_to_output(buffer);
            }
        }
    }};
    std::mt19937 random{2};
    for (int i = 0; i < 20000; ++i) {
        if (random() % 50 == 0) {
            const ACQ_QUEUE_TYPE operations[] = {ACQ_QUEUE_INPUT_TO_OUTPUT, ACQ_QUEUE_OUTPUT_DISCARD,
                                                 ACQ_QUEUE_UNQUEUED_TO_INPUT};
            ASSERT_EQ(DSFlushQueue(chain.ds, operations[random() % 3]), GC_ERR_SUCCESS);
        }
        EVENT_NEW_BUFFER_DATA data{};
        size_t size = sizeof data;
        if (EventGetData(event, &data, &size, 0) == GC_ERR_SUCCESS) {
            ASSERT_EQ(DSQueueBuffer(chain.ds, data.BufferHandle), GC_ERR_SUCCESS);
        }
    }
    quit = true;
    filler.join();
    ASSERT_EQ(DSFlushQueue(chain.ds, ACQ_QUEUE_ALL_DISCARD), GC_ERR_SUCCESS);
    EXPECT_EQ(triple(chain.ds), (std::array<size_t, 3>{8, 0, 0}));
    for (const BUFFER_HANDLE buffer : buffers) {
        EXPECT_EQ(DSRevokeBuffer(chain.ds, buffer, nullptr, nullptr), GC_ERR_SUCCESS);
    }
}
