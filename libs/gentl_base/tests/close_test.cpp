// Closing beside calls that are under way, and the end of the library.
#include "fake_modules.h"

#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <future>
#include <span>
#include <thread>

using namespace fake;
using namespace std::chrono_literals;

namespace {

struct close_call {
    const char* name;
    GC_ERROR (*close)(const open_chain&);
};
// From the lowest module upwards.
const close_call closes[] = {
    {"DSClose", [](const open_chain& chain) { return DSClose(chain.ds); }},
    {"DevClose", [](const open_chain& chain) { return DevClose(chain.dev); }},
    {"IFClose", [](const open_chain& chain) { return IFClose(chain.iface); }},
    {"TLClose", [](const open_chain& chain) { return TLClose(chain.tl); }},
    {"GCCloseLib", [](const open_chain&) { return GCCloseLib(); }},
};

template <class Module>
Module& module_of(void* handle) {
    return *dynamic_cast<Module*>(static_cast<IHandleTarget*>(handle));
}

} // namespace

TEST(Close, ACallUnderWayKeepsItsModulesWhileStreamsStopAtOnce) {
    for (size_t level = 0; level < std::size(closes); ++level) {
        const close_call& r = closes[level];
        SCOPED_TRACE(r.name);
        const open_chain chain;
        chain.announce(5);
        std::vector<std::weak_ptr<IHandleTarget>> modules;
        for (void* handle : {chain.tl, chain.iface, chain.dev, chain.ds}) {
            modules.push_back(static_cast<IHandleTarget*>(handle)->weak_from_this());
        }
        EVENT_HANDLE events[4] = {};
        GCRegisterEvent(chain.ds, EVENT_NEW_BUFFER, &events[0]);
        GCRegisterEvent(chain.dev, EVENT_ERROR, &events[1]);
        GCRegisterEvent(chain.iface, EVENT_MODULE, &events[2]);
        GCRegisterEvent(chain.tl, EVENT_MODULE, &events[3]);
        auto& object = chain.stream_object();
        int stops = 0;
        object.on_stop = [&] { ++stops; };
        ASSERT_EQ(DSStartAcquisition(chain.ds, 0, GENTL_INFINITE), GC_ERR_SUCCESS);
        object.on_payload_size = [&] {
            ASSERT_EQ(r.close(chain), GC_ERR_SUCCESS);
            EXPECT_EQ(stops, 1) << "the consumer may free his buffers from here on";
            for (const auto& module : modules) ASSERT_FALSE(module.expired());
            const GC_ERROR gone = level == 4 ? GC_ERR_NOT_INITIALIZED : GC_ERR_INVALID_HANDLE;
            EXPECT_EQ(DSGetInfo(chain.ds, STREAM_INFO_ID, nullptr, nullptr, nullptr), gone);
            for (size_t i = 0; i < std::size(events); ++i) {
                EXPECT_EQ(EventKill(events[i]), i <= level ? gone : GC_ERR_SUCCESS) << "who waits for event " << i;
            }
            EXPECT_EQ(object.RegisterEvent(EVENT_NEW_BUFFER, &events[0]).code, GC_ERR_INVALID_HANDLE);
        };
        EXPECT_EQ(stream_info<size_t>(chain.ds, STREAM_INFO_PAYLOAD_SIZE), 4096U);
        EXPECT_TRUE(modules.back().expired()) << "nothing holds what is closed once the call is over";
        EXPECT_EQ(stops, 1);
    }
    EXPECT_EQ(HandleMapCount(), 0);
    EXPECT_EQ(ObjectTrackerCount(), 0);
}

// When either returns, the consumer may free his buffers; and nothing is opened in between.
TEST(Close, ASecondCloseWaitsForTheFirst) {
    for (size_t first = 0; first < 4; ++first) {
        for (size_t second = first + 1; second < std::size(closes); ++second) {
            SCOPED_TRACE(std::string{closes[first].name} + ", " + closes[second].name);
            const open_chain chain;
            chain.announce(5);
            auto& device = chain.device_object();
            auto& interface = module_of<fake::interface>(chain.iface);
            auto& system = module_of<fake::system>(chain.tl);
            std::atomic<bool> closing{false}, stopped{false};
            std::future<GC_ERROR> other;
            chain.stream_object().on_stop = [&] {
                void* handle = nullptr;
                if (first >= 1) {
                    EXPECT_EQ(device.OpenDataStream("Stream0", &handle).code, GC_ERR_INVALID_HANDLE);
                    EXPECT_EQ(device.GetPort(&handle).code, GC_ERR_INVALID_HANDLE);
                }
                if (first >= 2) {
                    EXPECT_EQ(interface.OpenDevice("dev1", 4, &handle).code, GC_ERR_INVALID_HANDLE);
                }
                if (first >= 3) {
                    EXPECT_EQ(system.OpenInterface("if0", &handle).code, GC_ERR_INVALID_HANDLE);
                }
                other = std::async(std::launch::async, [&] {
                    closing = true;
                    const GC_ERROR answer = closes[second].close(chain);
                    EXPECT_TRUE(stopped);
                    return answer;
                });
                while (!closing) std::this_thread::yield();
                std::this_thread::sleep_for(20ms); // for a close that would not wait
                stopped = true;
            };
            ASSERT_EQ(DSStartAcquisition(chain.ds, 0, GENTL_INFINITE), GC_ERR_SUCCESS);
            EXPECT_EQ(closes[first].close(chain), GC_ERR_SUCCESS);
            EXPECT_EQ(other.get(), GC_ERR_SUCCESS);
        }
    }
}

// As a signal's handler that ends the process, and with it the library, does to a thread that closes.
TEST(Close, AThreadDoesNotWaitForItself) {
#if defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "takes locks in another order, of which only this thread's own is held";
#endif
    for (size_t first = 1; first < 4; ++first) {
        SCOPED_TRACE(closes[first].name);
        const open_chain chain;
        chain.announce(5);
        GC_ERROR inner = GC_ERR_ERROR;
        chain.stream_object().on_stop = [&] { inner = GCCloseLib(); };
        ASSERT_EQ(DSStartAcquisition(chain.ds, 0, GENTL_INFINITE), GC_ERR_SUCCESS);
        EXPECT_EQ(closes[first].close(chain), GC_ERR_SUCCESS);
        EXPECT_EQ(inner, GC_ERR_SUCCESS);
    }
}

TEST(Close, AForkedChildDoesNotWaitForItsParent) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "sanitizers do not follow a fork of threads";
#endif
    for (size_t first = 0; first < std::size(closes); ++first) {
        SCOPED_TRACE(closes[first].name);
        const open_chain chain;
        chain.announce(5);
        EVENT_HANDLE event = nullptr;
        GCRegisterEvent(chain.dev, EVENT_ERROR, &event);
        int status = -1;
        const auto close_in_a_child = [&] {
            const pid_t child = fork();
            if (child == 0) {
                alarm(10);
                for (const close_call& each : std::span{closes, 4}) each.close(chain);
                _exit(GCCloseLib() == (first < 4 ? GC_ERR_SUCCESS : GC_ERR_NOT_INITIALIZED) ? 0 : 1);
            }
            waitpid(child, &status, 0);
        };
        // A condition that was waited for at the fork is waited for by nobody in the child, and never comes free.
        const auto waits = std::async(std::launch::async, [&] {
            char data[260];
            size_t size = sizeof data;
            EventGetData(event, data, &size, GENTL_INFINITE);
        });
        std::this_thread::sleep_for(5ms); // most likely it waits then
        chain.stream_object().on_stop = [&] { std::thread{close_in_a_child}.join(); };
        EXPECT_EQ(DSStartAcquisition(chain.ds, 0, GENTL_INFINITE), GC_ERR_SUCCESS);
        EXPECT_EQ(closes[first].close(chain), GC_ERR_SUCCESS);
        EXPECT_EQ(status, 0);
        GCCloseLib(); // ends the wait
    }
}

TEST(Close, AForkedChildOpensModulesOfItsOwn) {
    const open_chain chain;
    const pid_t child = fork();
    if (child == 0) {
        alarm(10);
        GCCloseLib();
        const open_chain own;
        own.announce(5);
        int stops = 0;
        own.stream_object().on_stop = [&] { ++stops; };
        DSStartAcquisition(own.ds, 0, GENTL_INFINITE);
        const bool closed = DSClose(own.ds) == GC_ERR_SUCCESS && TLClose(own.tl) == GC_ERR_SUCCESS;
        _exit(closed && stops == 1 && !end_library() ? 0 : 1); // the parent's are never destroyed here
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
}

// For the sanitizers above all: whatever is freed too early is touched by somebody.
TEST(Close, AnyCallBesideAnyCloseIsSafe) {
    installed_factory();
    std::array<std::atomic<void*>, 4> handles{}; // system, interface, device, stream: of the moment or just closed
    std::atomic<bool> quit{false};
    const auto ask = [&] {
        while (!quit) {
            INFO_DATATYPE type = 0;
            std::array<char, 64> answer{};
            size_t size = answer.size();
            void* parent = nullptr;
            BUFFER_HANDLE buffer = nullptr;
            DSGetInfo(handles[3], STREAM_INFO_TLTYPE, &type, answer.data(), &size);
            DSAllocAndAnnounceBuffer(handles[3], 64, nullptr, &buffer);
            DSStartAcquisition(handles[3], 0, 1);
            GCGetPortURL(handles[2], answer.data(), &(size = answer.size()));
            DSGetParentDev(handles[3], &parent);
            GCRegisterEvent(handles[2], EVENT_ERROR, &parent);
            IFUpdateDeviceList(handles[1], nullptr, 0);
            DSClose(handles[3]);
            DevClose(handles[2]);
        }
    };
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i) threads.emplace_back(ask);
    for (int round = 0; round < 300; ++round) {
        const open_chain chain;
        void* const open[] = {chain.tl, chain.iface, chain.dev, chain.ds};
        for (size_t i = 0; i < handles.size(); ++i) handles[i] = open[i];
        chain.announce(3);
        if (round % 4 == 1) DevClose(chain.dev);
        if (round % 4 == 2) IFClose(chain.iface);
        if (round % 4 == 3) TLClose(chain.tl);
    }
    quit = true;
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(HandleMapCount(), 0);
    EXPECT_EQ(ObjectTrackerCount(), 0);
}

TEST(Close, AStreamClosedWhileItStartsIsStopped) {
    for (const bool whole_device : {false, true}) {
        const open_chain chain;
        chain.announce(5);
        auto& object = chain.stream_object();
        std::atomic<int> stops{0};
        std::atomic<bool> closing{false};
        std::future<GC_ERROR> closed;
        object.on_stop = [&] { ++stops; };
        object.on_start = [&] {
            closed = std::async(std::launch::async, [&] {
                closing = true;
                return whole_device ? DevClose(chain.dev) : DSClose(chain.ds);
            });
            while (!closing) std::this_thread::yield();
            std::this_thread::sleep_for(20ms); // for a close that would not wait for the start
            return success();
        };
        EXPECT_EQ(DSStartAcquisition(chain.ds, 0, GENTL_INFINITE), GC_ERR_SUCCESS);
        EXPECT_EQ(closed.get(), GC_ERR_SUCCESS);
        EXPECT_EQ(stops, 1) << "what the start achieved is undone before the buffers go";
    }
}

// A start or an announcement that got past the handle check, and then waited while the stream was closed.
TEST(Close, AClosedStreamTakesNothingMore) {
    const open_chain chain;
    chain.announce(5);
    auto& object = chain.stream_object();
    int starts = 0;
    object.on_start = [&] {
        ++starts;
        return success();
    };
    object.on_payload_size = [&] {
        ASSERT_EQ(DSClose(chain.ds), GC_ERR_SUCCESS);
        BUFFER_HANDLE buffer = nullptr;
        std::byte memory[64];
        EXPECT_EQ(object.AllocAndAnnounceBuffer(64, nullptr, &buffer).code, GC_ERR_INVALID_HANDLE);
        EXPECT_EQ(object.AnnounceBuffer(memory, sizeof memory, nullptr, &buffer).code, GC_ERR_INVALID_HANDLE);
        EXPECT_EQ(object.StartAcquisition(0, 1).code, GC_ERR_INVALID_HANDLE);
    };
    EXPECT_EQ(stream_info<size_t>(chain.ds, STREAM_INFO_PAYLOAD_SIZE), 4096U);
    EXPECT_EQ(starts, 0);
}

// Of a call that found its buffer and waited meanwhile. The consumer may have freed what is read for chunks.
TEST(Close, ABufferThatIsTheStreamsNoMoreIsNotRead) {
    const open_chain chain;
    std::vector<std::shared_ptr<Buffer>> made;
    chain.stream_object().with_chunks = &made;
    const auto buffers = chain.announce(2, false);
    for (const auto& buffer : made) {
        std::memset(buffer->base, 0, buffer->size);
        buffer->size_filled = 64;
        buffer->contains_chunk_data = true;
    }
    EXPECT_EQ(DSRevokeBuffer(chain.ds, buffers[0], nullptr, nullptr), GC_ERR_SUCCESS);
    EXPECT_EQ(DSClose(chain.ds), GC_ERR_SUCCESS);
    for (const auto& buffer : made) {
        size_t count = 0;
        EXPECT_EQ(buffer->GetChunkData(nullptr, &count).message, "The buffer's pointer is invalid");
    }
}

TEST(Close, ABufferIsQueuedUnderTheLockThatThePopsHold) {
    const open_chain chain;
    const auto buffers = chain.announce(1, false);
    auto& object = chain.stream_object();
    Buffer* taken = nullptr;
    object.on_input_changed = [&] {
        object.give_up_filling(); // who cannot have the lock gives up instead of waiting
        std::thread{[&] { taken = object.take_input_buffer(false); }}.join();
    };
    EXPECT_EQ(DSQueueBuffer(chain.ds, buffers[0]), GC_ERR_SUCCESS);
    EXPECT_EQ(taken, nullptr);
}

TEST(Close, ABufferIsEitherQueuedOrRevoked) {
    for (int round = 0; round < 50; ++round) {
        const open_chain chain;
        const auto buffers = chain.announce(5, false);
        auto& object = chain.stream_object();
        std::future<GC_ERROR> queued;
        std::atomic<bool> queueing{false};
        object.on_stop = [&] {
            // Waits for the lock that the stop holds; meanwhile the buffer goes.
            queued = std::async(std::launch::async, [&] {
                queueing = true;
                return DSQueueBuffer(chain.ds, buffers[0]);
            });
            while (!queueing) std::this_thread::yield();
            std::this_thread::sleep_for(2ms);
        };
        ASSERT_EQ(DSStartAcquisition(chain.ds, 0, GENTL_INFINITE), GC_ERR_SUCCESS);
        ASSERT_EQ(DSStopAcquisition(chain.ds, 0), GC_ERR_SUCCESS);
        const GC_ERROR revoked = DSRevokeBuffer(chain.ds, buffers[0], nullptr, nullptr);
        const GC_ERROR answer = queued.get();
        ASSERT_EQ(revoked == GC_ERR_SUCCESS, answer == GC_ERR_INVALID_HANDLE) << revoked << " and " << answer;
    }
}

// In a process of its own each: the end is for good.
TEST(Close, AfterTheEndNothingIsDone) {
    struct row {
        const char* name;
        bool may_destroy;
        std::function<bool()> end; // the answer of end_library
    };
    const row rows[] = {
        {"idle", true, [] { return end_library(); }},
        {"closed", true,
         [] {
             { const open_chain chain; }
             return end_library();
         }},
        {"open", false,
         [] {
             static_cast<void>(new open_chain);
             return end_library();
         }},
        {"a call under way", false,
         [] {
             bool answer = true;
             const open_chain chain;
             chain.stream_object().on_payload_size = [&] {
                 GCCloseLib();
                 answer = end_library();
             };
             static_cast<void>(stream_info<size_t>(chain.ds, STREAM_INFO_PAYLOAD_SIZE));
             return answer;
         }},
    };
    for (const row& r : rows) {
        SCOPED_TRACE(r.name);
        EXPECT_EXIT(
            {
                const bool answer = r.end();
                const bool silent = GCInitLib() == GC_ERR_NOT_INITIALIZED && GCCloseLib() == GC_ERR_NOT_INITIALIZED &&
                                    DSClose(nullptr) == GC_ERR_NOT_INITIALIZED && HandleMapCount() == 0 &&
                                    ObjectTrackerCount() == 0;
                std::_Exit(silent ? (answer ? 1 : 2) : 3);
            },
            testing::ExitedWithCode(r.may_destroy ? 1 : 2), "");
    }
}
