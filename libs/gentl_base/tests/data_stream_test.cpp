// Buffers on their way through the queues.
#include "fake_modules.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <condition_variable>
#include <future>
#include <mutex>
#include <thread>

using namespace fake;

namespace {

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
    auto& object = chain.stream_object();
    struct {
        std::function<void()> enter;
        const char* text;
    } const states[] = {
        {[] {}, "hBuffer is in input queue"},
        {[&] { object.fill(); }, "hBuffer is being filled"},
        {[&] { object.queue_buffer_from_filling_to_output(std::exchange(object.filling, {}).front()); },
         "hBuffer is in output queue"},
    };
    const auto flag = [&](BUFFER_INFO_CMD command) {
        return answer_of<bool8_t>([&](auto... out) { return DSGetBufferInfo(chain.ds, buffers[0], command, out...); });
    };
    for (const auto& s : states) {
        s.enter();
        EXPECT_EQ(flag(BUFFER_INFO_NEW_DATA), 0);
        EXPECT_EQ(flag(BUFFER_INFO_IS_QUEUED), 1);
        EXPECT_EQ(flag(BUFFER_INFO_IS_ACQUIRING), s.text == states[1].text);
        EXPECT_THAT(DSQueueBuffer(chain.ds, buffers[0]), IsRefused(GC_ERR_RESOURCE_IN_USE, s.text));
        EXPECT_THAT(DSRevokeBuffer(chain.ds, buffers[0], nullptr, nullptr), IsRefused(GC_ERR_BUSY, s.text));
    }
    EXPECT_EQ(DSFlushQueue(chain.ds, ACQ_QUEUE_OUTPUT_DISCARD), GC_ERR_SUCCESS);
    EXPECT_EQ(DSRevokeBuffer(chain.ds, buffers[0], nullptr, nullptr), GC_ERR_SUCCESS);
    EXPECT_THAT(DSRevokeBuffer(chain.ds, buffers[0], nullptr, nullptr),
                IsRefused(GC_ERR_INVALID_HANDLE, "hBuffer was not announced"));
}

TEST(DataStream, MemoryOfTheConsumerComesBack) {
    const open_chain chain;
    std::vector<std::byte> memory(64);
    int user = 0;
    BUFFER_HANDLE buffer = nullptr;
    ASSERT_EQ(DSAnnounceBuffer(chain.ds, memory.data(), memory.size(), &user, &buffer), GC_ERR_SUCCESS);
    BUFFER_HANDLE twice = nullptr;
    EXPECT_THAT(DSAnnounceBuffer(chain.ds, memory.data(), memory.size(), &user, &twice),
                IsRefused(GC_ERR_RESOURCE_IN_USE, "pBuffer already announced"));
    void* base = nullptr;
    void* priv = nullptr;
    EXPECT_EQ(DSRevokeBuffer(chain.ds, buffer, &base, &priv), GC_ERR_SUCCESS);
    EXPECT_EQ(base, memory.data());
    EXPECT_EQ(priv, &user);
    ASSERT_EQ(DSAllocAndAnnounceBuffer(chain.ds, 64, &user, &buffer), GC_ERR_SUCCESS);
    EXPECT_EQ(DSRevokeBuffer(chain.ds, buffer, &base, &priv), GC_ERR_SUCCESS);
    EXPECT_EQ(base, nullptr);
    for (const size_t size : {SIZE_MAX, SIZE_MAX - 4095, SIZE_MAX / 2 + 1}) { // none wraps to a small block
        EXPECT_EQ(DSAllocAndAnnounceBuffer(chain.ds, size, nullptr, &buffer), GC_ERR_OUT_OF_MEMORY) << size;
    }
}

TEST(DataStream, FlushesMoveWhatTheyName) {
    // Before: five announced, of which one unqueued, one filling, one in output, two in input.
    struct {
        ACQ_QUEUE_TYPE operation;
        std::array<size_t, 3> after; // announced, input and filling, output
    } const rows[] = {
        {ACQ_QUEUE_INPUT_TO_OUTPUT, {5, 1, 3}}, {ACQ_QUEUE_OUTPUT_DISCARD, {5, 3, 0}},
        {ACQ_QUEUE_ALL_TO_INPUT, {5, 5, 0}},    {ACQ_QUEUE_UNQUEUED_TO_INPUT, {5, 4, 1}},
        {ACQ_QUEUE_ALL_DISCARD, {5, 0, 0}},
    };
    for (const auto& r : rows) {
        const open_chain chain;
        chain.announce(4);
        chain.announce(1, false);
        chain.fill_and_deliver();
        chain.stream_object().fill();
        EXPECT_EQ(DSFlushQueue(chain.ds, r.operation), GC_ERR_SUCCESS);
        EXPECT_EQ(triple(chain.ds), r.after) << "operation " << r.operation;
    }
    const open_chain chain;
    EXPECT_EQ(DSFlushQueue(chain.ds, 5), GC_ERR_NOT_IMPLEMENTED);
}

// The filling side cannot wait then: the flush waits for it.
TEST(DataStream, AFrameThatBeginsDuringAFlushIsLostAndCounted) {
    const open_chain chain;
    static_cast<void>(chain.announce(5));
    auto& object = chain.stream_object();
    const auto begin_a_frame = [&] {
        EXPECT_EQ(std::async(std::launch::async, [&] { return object.fill(); }).get(), nullptr);
    };
    object.on_flush = object.on_stop = begin_a_frame;
    ASSERT_EQ(chain.start(), GC_ERR_SUCCESS);
    EXPECT_EQ(DSFlushQueue(chain.ds, ACQ_QUEUE_ALL_TO_INPUT), GC_ERR_SUCCESS);
    EXPECT_EQ(stream_info<uint64_t>(chain.ds, STREAM_INFO_NUM_UNDERRUN), 1U);
    EXPECT_EQ(DSStopAcquisition(chain.ds, 0), GC_ERR_SUCCESS);
    EXPECT_EQ(stream_info<uint64_t>(chain.ds, STREAM_INFO_NUM_UNDERRUN), 1U) << "nobody waits for frames any more";
}

TEST(DataStream, AFlushLeavesWhatTheFillingSideKeeps) {
    const open_chain chain;
    static_cast<void>(chain.announce(2));
    auto& object = chain.stream_object();
    Buffer* const kept = object.fill();
    object.filling.clear(); // the flush does not get it back
    EXPECT_EQ(DSFlushQueue(chain.ds, ACQ_QUEUE_ALL_TO_INPUT), GC_ERR_SUCCESS);
    EXPECT_NE(object.fill(), kept) << "one frame would be written over another";
    EXPECT_EQ(object.fill(), nullptr);
}

TEST(DataStream, FramesComeInTheOrderOfTheirDelivery) {
    const open_chain chain;
    static_cast<void>(chain.announce(3));
    const EVENT_HANDLE event = chain.register_for_buffers();
    auto& object = chain.stream_object();
    const std::array<Buffer*, 3> delivered{object.fill(), object.fill(), object.fill()};
    object.filling.clear();
    for (Buffer* buffer : delivered) object.queue_buffer_from_filling_to_output(buffer);
    for (Buffer* buffer : delivered) {
        EVENT_NEW_BUFFER_DATA data{};
        EXPECT_EQ(take(event, data), GC_ERR_SUCCESS);
        EXPECT_EQ(data.BufferHandle, buffer);
    }
}

TEST(DataStream, StartAsksForEnoughBuffersByMode) {
    for (const bool shared : {false, true}) {
        const open_chain chain{shared};
        chain.announce(1);
        EXPECT_THAT(chain.start(),
                    IsRefused(GC_ERR_INVALID_BUFFER, "Number of announced buffers < BUF_ANNOUNCE_MIN (5)"));
        chain.announce(3);
        EXPECT_EQ(chain.start(), shared ? GC_ERR_INVALID_BUFFER : GC_ERR_SUCCESS);
    }
}

TEST(DataStream, StartAndStopRefuseWhatIsNotTheirTurn) {
    const open_chain chain;
    chain.announce(5);
    EXPECT_THAT(DSStartAcquisition(chain.ds, 1, 1), IsRefused(GC_ERR_NOT_IMPLEMENTED, "Unexpected iStartFlags (1)"));
    EXPECT_EQ(DSStartAcquisition(chain.ds, 0, 0), GC_ERR_INVALID_PARAMETER);
    EXPECT_THAT(DSStopAcquisition(chain.ds, 0), IsRefused(GC_ERR_RESOURCE_IN_USE, "Acquisition not running"));

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
        ASSERT_EQ(chain.start(), GC_ERR_SUCCESS);
        ASSERT_EQ(DSStopAcquisition(chain.ds, 0), GC_ERR_SUCCESS);
    }
}

// The filling side gives up only while a stop or flush waits for it.
TEST(DataStream, AFlushWithoutMemoryAndAStartThatFailedAreOver) {
    const open_chain chain;
    static_cast<void>(chain.announce(3));
    const auto free = chain.announce(2, false);
    auto& object = chain.stream_object();
    const auto is_filled = [&](BUFFER_HANDLE next) {
        std::future<Buffer*> filled;
        object.on_input_changed = [&] { // with the lock held
            filled = std::async(std::launch::async, [&] { return object.fill(); });
            filled.wait_for(std::chrono::milliseconds{20});
        };
        EXPECT_EQ(DSQueueBuffer(chain.ds, next), GC_ERR_SUCCESS);
        object.on_input_changed = [] {};
        EXPECT_EQ(filled.get(), next);
    };
    object.queue_buffer_from_filling_to_output(object.fill());
    object.filling = {object.fill()};
    const auto before = triple(chain.ds);
    object.on_flush = [] { throw std::bad_alloc{}; };
    for (const ACQ_QUEUE_TYPE operation : {ACQ_QUEUE_ALL_TO_INPUT, ACQ_QUEUE_ALL_DISCARD}) {
        EXPECT_EQ(DSFlushQueue(chain.ds, operation), GC_ERR_OUT_OF_MEMORY);
        EXPECT_EQ(triple(chain.ds), before);
    }
    object.on_flush = [] {};
    object.fill(); // the last of the three
    is_filled(free[0]);
    object.on_start = [&] {
        object.give_up_filling();
        return Error{GC_ERR_IO};
    };
    EXPECT_EQ(DSStartAcquisition(chain.ds, 0, 1), GC_ERR_IO);
    is_filled(free[1]);
}

// The one command for many: type, size and value of each row of the published table, and errors that stay in theirs.
TEST(DataStream, StackedInfosAnswerTheWholeTable) {
    const open_chain chain;
    int consumers = 0;
    std::vector<std::byte> memory(100);
    BUFFER_HANDLE handle = nullptr;
    ASSERT_EQ(DSAnnounceBuffer(chain.ds, memory.data(), memory.size(), &consumers, &handle), GC_ERR_SUCCESS);
    auto& buffer = *static_cast<Buffer*>(handle);
    buffer.size_filled = 90;
    buffer.frame_id = 7;
    buffer.timestamp = 8;
    buffer.width = 9;
    buffer.height = 10;
    buffer.pixel_format = 0x01080001;
    buffer.pixel_format_namespace = 2;
    buffer.data_size = 101;
    buffer.x_padding = 3;
    buffer.chunk_layout_id = 4;
    buffer.fill_state = FillState::incomplete;
    struct row {
        BUFFER_INFO_CMD command;
        INFO_DATATYPE type;
        size_t size;
        uint64_t value;
    };
    const row rows[] = {
        {BUFFER_INFO_BASE, INFO_DATATYPE_PTR, 8, reinterpret_cast<uint64_t>(memory.data())},
        {BUFFER_INFO_SIZE, INFO_DATATYPE_SIZET, 8, 100},
        {BUFFER_INFO_USER_PTR, INFO_DATATYPE_PTR, 8, reinterpret_cast<uint64_t>(&consumers)},
        {BUFFER_INFO_TIMESTAMP, INFO_DATATYPE_UINT64, 8, 8},
        {BUFFER_INFO_NEW_DATA, INFO_DATATYPE_BOOL8, 1, 1},
        {BUFFER_INFO_IS_QUEUED, INFO_DATATYPE_BOOL8, 1, 0},
        {BUFFER_INFO_IS_ACQUIRING, INFO_DATATYPE_BOOL8, 1, 0},
        {BUFFER_INFO_IS_INCOMPLETE, INFO_DATATYPE_BOOL8, 1, 1},
        {BUFFER_INFO_TLTYPE, INFO_DATATYPE_STRING, 4, 0x564547}, // "GEV"
        {BUFFER_INFO_SIZE_FILLED, INFO_DATATYPE_SIZET, 8, 90},
        {BUFFER_INFO_WIDTH, INFO_DATATYPE_SIZET, 8, 9},
        {BUFFER_INFO_HEIGHT, INFO_DATATYPE_SIZET, 8, 10},
        {BUFFER_INFO_XOFFSET, INFO_DATATYPE_SIZET, 8, 0},
        {BUFFER_INFO_YOFFSET, INFO_DATATYPE_SIZET, 8, 0},
        {BUFFER_INFO_XPADDING, INFO_DATATYPE_SIZET, 8, 3},
        {BUFFER_INFO_YPADDING, INFO_DATATYPE_SIZET, 8, 0},
        {BUFFER_INFO_FRAMEID, INFO_DATATYPE_UINT64, 8, 7},
        {BUFFER_INFO_IMAGEPRESENT, INFO_DATATYPE_BOOL8, 1, 1},
        {BUFFER_INFO_IMAGEOFFSET, INFO_DATATYPE_SIZET, 8, 0},
        {BUFFER_INFO_PAYLOADTYPE, INFO_DATATYPE_SIZET, 8, 1},
        {BUFFER_INFO_PIXELFORMAT, INFO_DATATYPE_UINT64, 8, 0x01080001},
        {BUFFER_INFO_PIXELFORMAT_NAMESPACE, INFO_DATATYPE_UINT64, 8, 2},
        {BUFFER_INFO_DELIVERED_IMAGEHEIGHT, INFO_DATATYPE_SIZET, 8, 10},
        {BUFFER_INFO_CHUNKLAYOUTID, INFO_DATATYPE_UINT64, 8, 4},
        {BUFFER_INFO_PIXEL_ENDIANNESS, INFO_DATATYPE_INT32, 4, 1},
        {BUFFER_INFO_DATA_SIZE, INFO_DATATYPE_SIZET, 8, 101},
        {BUFFER_INFO_TIMESTAMP_NS, INFO_DATATYPE_UINT64, 8, 8},
        {BUFFER_INFO_DATA_LARGER_THAN_BUFFER, INFO_DATATYPE_BOOL8, 1, 1},
        {BUFFER_INFO_CONTAINS_CHUNKDATA, INFO_DATATYPE_BOOL8, 1, 0},
    };
    std::vector<DS_BUFFER_INFO_STACKED> stack;
    std::vector<uint64_t> values(std::size(rows) + 2, 0);
    for (const row& each : rows) stack.push_back({each.command, 0, &values[stack.size()], 8, 1});
    stack.push_back({BUFFER_INFO_FILENAME, 0, &values[stack.size()], 8, 1});
    stack.push_back({BUFFER_INFO_SIZE, 0, &values[stack.size()], 4, 1}); // too small
    ASSERT_EQ(DSGetBufferInfoStacked(chain.ds, handle, stack.data(), stack.size()), GC_ERR_SUCCESS);
    for (size_t i = 0; i < std::size(rows); ++i) {
        EXPECT_EQ(GC_ERROR{stack[i].iResult}, GC_ERR_SUCCESS) << rows[i].command;
        EXPECT_EQ(INFO_DATATYPE{stack[i].iType}, rows[i].type) << rows[i].command;
        EXPECT_EQ(size_t{stack[i].iSize}, rows[i].size) << rows[i].command;
        EXPECT_EQ(values[i], rows[i].value) << rows[i].command;
    }
    EXPECT_EQ(GC_ERROR{stack[std::size(rows)].iResult}, GC_ERR_NOT_IMPLEMENTED);
    EXPECT_EQ(GC_ERROR{stack.back().iResult}, GC_ERR_BUFFER_TOO_SMALL);
    EXPECT_EQ(DSGetBufferInfoStacked(chain.ds, handle, nullptr, 1), GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(DSGetBufferInfoStacked(chain.ds, handle, stack.data(), 0), GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(DSGetBufferInfoStacked(chain.ds, &consumers, stack.data(), 1), GC_ERR_INVALID_HANDLE);
}

// Several consumers wait on one event, queue and ask for counts while one thread fills: each frame reaches one of them,
// and no count is ever beyond what was announced.
TEST(DataStream, SeveralConsumersShareOneStreamsQueues) {
    const open_chain chain;
    constexpr size_t buffers = 6;
    constexpr uint64_t frames = 20'000;
    static_cast<void>(chain.announce(buffers));
    const EVENT_HANDLE event = chain.register_for_buffers();
    ASSERT_EQ(chain.start(), GC_ERR_SUCCESS);
    std::atomic<uint64_t> taken{0};
    std::atomic<size_t> highest{0};
    std::atomic<uint64_t> failures{0};
    const auto consume = [&] {
        EVENT_NEW_BUFFER_DATA data{};
        while (take(event, data, GENTL_INFINITE) == GC_ERR_SUCCESS) {
            ++taken;
            failures += DSQueueBuffer(chain.ds, data.BufferHandle) != GC_ERR_SUCCESS;
            const auto queued = stream_info<size_t>(chain.ds, STREAM_INFO_NUM_QUEUED);
            for (size_t seen = highest; queued > seen && !highest.compare_exchange_weak(seen, queued);) {
            }
        }
    };
    {
        std::jthread first{consume};
        std::jthread second{consume};
        auto& stream = chain.stream_object();
        for (uint64_t sent = 0; sent < frames;) {
            if (Buffer* buffer = stream.fill()) {
                stream.filling.clear();
                stream.queue_buffer_from_filling_to_output(buffer);
                ++sent;
            } else {
                std::this_thread::yield();
            }
        }
        while (taken < frames) std::this_thread::yield();
        EventKill(event);
        EventKill(event);
    }
    EXPECT_EQ(taken, frames);
    EXPECT_EQ(failures, 0U);
    EXPECT_LE(highest, buffers + 1) << "a buffer may be counted before it is queued";
    EXPECT_EQ(triple(chain.ds), (std::array<size_t, 3>{buffers, buffers, 0}));
}

// Two devices of one interface: each waits, in the middle of being opened, for the other to come as far.
TEST(DataStream, DevicesOfOneInterfaceOpenSideBySide) {
    const open_chain chain;
    ASSERT_EQ(DevClose(chain.dev), GC_ERR_SUCCESS);
    std::mutex mutex;
    std::condition_variable arrived;
    int inside = 0;
    std::atomic<int> met{0};
    interface::on_open = [&](const std::string&) {
        std::unique_lock held{mutex};
        ++inside;
        arrived.notify_all();
        met += arrived.wait_for(held, std::chrono::seconds{20}, [&] { return inside == 2; });
    };
    DEV_HANDLE devices[2] = {};
    {
        std::jthread other{[&] { IFOpenDevice(chain.iface, "dev1", DEVICE_ACCESS_CONTROL, &devices[1]); }};
        EXPECT_EQ(IFOpenDevice(chain.iface, "dev0", DEVICE_ACCESS_CONTROL, &devices[0]), GC_ERR_SUCCESS);
    }
    interface::on_open = [](const std::string&) {};
    EXPECT_EQ(met, 2);
    EXPECT_NE(devices[1], nullptr);
    DEV_HANDLE again = nullptr;
    EXPECT_EQ(IFOpenDevice(chain.iface, "dev1", DEVICE_ACCESS_CONTROL, &again), GC_ERR_RESOURCE_IN_USE);
}
