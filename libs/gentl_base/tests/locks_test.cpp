// While one call waits for a camera, the service or the dynamic loader, what others ask must be answered.
#include "fake_modules.h"

#include <gtest/gtest.h>

#include <dlfcn.h>

#include <array>
#include <chrono>
#include <future>
#include <utility>

using namespace fake;

namespace {

// What another thread does inside the loader's dlopen and dlclose, once each.
std::function<void()> inside_dlopen, inside_dlclose;

template <class Function>
Function* real(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

// Asks on another thread and waits for the answer. One that has to wait for this thread has it after all, when it ends.
class other_thread {
public:
    void must_answer(std::function<void()> question) {
        ++asked;
        answers.push_back(std::async(std::launch::async, std::move(question)));
        EXPECT_EQ(answers.back().wait_for(std::chrono::seconds{30}), std::future_status::ready);
    }
    int asked = 0;

private:
    std::vector<std::future<void>> answers;
};

} // namespace

extern "C" void* dlopen(const char* file, int mode) noexcept {
    if (const auto work = std::exchange(inside_dlopen, nullptr)) {
        work();
        file = nullptr; // a program cannot be opened by its name, as a library can
    }
    return real<void*(const char*, int)>("dlopen")(file, mode);
}

extern "C" int dlclose(void* library) noexcept {
    if (const auto work = std::exchange(inside_dlclose, nullptr)) work();
    return real<int(void*)>("dlclose")(library);
}

TEST(Locks, AStreamAnswersWhileItStartsStopsOrIsFlushed) {
    const open_chain chain;
    const auto buffers = chain.announce(5);
    auto& object = chain.stream_object();
    other_thread other;
    const auto ask_everything = [&] {
        other.must_answer([&] {
            INFO_DATATYPE type = 0;
            std::array<char, 64> answer{};
            size_t size = 0;
            for (const STREAM_INFO_CMD command : {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 12, 13, 1000, 1001}) {
                size = answer.size();
                EXPECT_EQ(DSGetInfo(chain.ds, command, &type, answer.data(), &size), GC_ERR_SUCCESS) << command;
            }
            size = answer.size();
            EXPECT_EQ(DSGetBufferInfo(chain.ds, buffers[0], BUFFER_INFO_SIZE, &type, answer.data(), &size),
                      GC_ERR_SUCCESS);
            DS_BUFFER_INFO_STACKED stacked{BUFFER_INFO_IS_QUEUED, 0, answer.data(), answer.size(), 1};
            EXPECT_EQ(DSGetBufferInfoStacked(chain.ds, buffers[0], &stacked, 1), GC_ERR_SUCCESS);
            BUFFER_HANDLE found = nullptr;
            EXPECT_EQ(DSGetBufferID(chain.ds, 4, &found), GC_ERR_SUCCESS);
            EXPECT_EQ(found, buffers[4]);
            static_cast<void>(DSGetBufferChunkData(chain.ds, buffers[0], nullptr, &size));
        });
    };
    object.on_start = [&] {
        ask_everything();
        return success();
    };
    object.on_stop = object.on_flush = ask_everything;
    EXPECT_EQ(chain.start(), GC_ERR_SUCCESS);
    for (const ACQ_QUEUE_TYPE flush : {ACQ_QUEUE_ALL_TO_INPUT, ACQ_QUEUE_ALL_DISCARD}) {
        EXPECT_EQ(DSFlushQueue(chain.ds, flush), GC_ERR_SUCCESS);
    }
    EXPECT_EQ(DSStopAcquisition(chain.ds, 0), GC_ERR_SUCCESS);
    EXPECT_EQ(other.asked, 4);
}

// Two threads may ask for a list at once.
TEST(Locks, AnEarlierAnswerNeverReplacesALaterOne) {
    const open_chain chain;
    auto& system = chain.system_object();
    const auto count_of = [](auto* call, void* module) {
        uint32_t count = 0;
        EXPECT_EQ(call(module, &count), GC_ERR_SUCCESS);
        return count;
    };
    // With the answer to the first question under way.
    bool is_later = false;
    interface::on_query = [&] {
        if (std::exchange(is_later, true)) return;
        system.devices.push_back({"dev2", {}, {}, "GEV", {}, {}, {}, {}, DEVICE_ACCESS_STATUS_READWRITE, 5, 6, 7, 8});
        bool8_t changed = 0;
        EXPECT_EQ(IFUpdateDeviceList(chain.iface, &changed, 0), GC_ERR_SUCCESS);
        EXPECT_EQ(changed, 1);
    };
    EXPECT_EQ(IFUpdateDeviceList(chain.iface, nullptr, 0), GC_ERR_SUCCESS);
    EXPECT_EQ(count_of(IFGetNumDevices, chain.iface), 3U);
    interface::on_query = [] {};
    is_later = false;
    fake::system::on_query = [&] {
        if (std::exchange(is_later, true)) return;
        system.interfaces.push_back({"if1", "Interface 1", "GEV", {}, {}, 7});
        EXPECT_EQ(TLUpdateInterfaceList(chain.tl, nullptr, 0), GC_ERR_SUCCESS);
    };
    EXPECT_EQ(TLUpdateInterfaceList(chain.tl, nullptr, 0), GC_ERR_SUCCESS);
    EXPECT_EQ(count_of(TLGetNumInterfaces, chain.tl), 2U);
    fake::system::on_query = [] {};
    // A later question is answered as ever.
    system.devices.clear();
    EXPECT_EQ(IFUpdateDeviceList(chain.iface, nullptr, 0), GC_ERR_SUCCESS);
    EXPECT_EQ(count_of(IFGetNumDevices, chain.iface), 0U);
}

// The service is asked for an interface's devices as it is opened.
TEST(Locks, ASystemAnswersWhileAnInterfaceIsOpened) {
    for (const bool closed_meanwhile : {false, true}) {
        const open_chain chain;
        ASSERT_EQ(IFClose(chain.iface), GC_ERR_SUCCESS);
        other_thread other;
        interface::on_query = [&] {
            other.must_answer([&] {
                uint32_t count = 0;
                EXPECT_EQ(TLGetNumInterfaces(chain.tl, &count), GC_ERR_SUCCESS);
                EXPECT_EQ(TLUpdateInterfaceList(chain.tl, nullptr, 0), GC_ERR_SUCCESS);
                IF_HANDLE same = nullptr;
                EXPECT_EQ(TLOpenInterface(chain.tl, "if0", &same), GC_ERR_RESOURCE_IN_USE);
                if (closed_meanwhile) {
                    EXPECT_EQ(TLClose(chain.tl), GC_ERR_SUCCESS);
                }
            });
        };
        IF_HANDLE opened = nullptr;
        EXPECT_EQ(TLOpenInterface(chain.tl, "if0", &opened), closed_meanwhile ? GC_ERR_INVALID_HANDLE : GC_ERR_SUCCESS);
        interface::on_query = [] {};
        EXPECT_EQ(opened == nullptr, closed_meanwhile);
        EXPECT_EQ(other.asked, 1);
    }
    EXPECT_EQ(HandleMapCount(), 0);
    EXPECT_EQ(ObjectTrackerCount(), 0);
}

// A library that is unloaded may open and close ours from its destructors, while it holds the loader's lock.
TEST(Locks, TheLoaderIsAskedWithoutALock) {
    installed_factory();
    other_thread other;
    const auto open_and_close = [&] {
        other.must_answer([] {
            TL_HANDLE system = nullptr;
            EXPECT_EQ(GCInitLibShared(), GC_ERR_SUCCESS);
            EXPECT_EQ(TLOpen(&system), GC_ERR_SUCCESS);
            EXPECT_EQ(TLClose(system), GC_ERR_SUCCESS);
            EXPECT_EQ(GCCloseLib(), GC_ERR_SUCCESS);
        });
    };
    for (const bool by_system : {false, true}) {
        TL_HANDLE system = nullptr;
        ASSERT_EQ(GCInitLibShared(), GC_ERR_SUCCESS);
        inside_dlopen = open_and_close;
        EXPECT_EQ(TLOpen(&system), GC_ERR_SUCCESS);
        inside_dlclose = open_and_close;
        if (by_system) {
            EXPECT_EQ(TLClose(system), GC_ERR_SUCCESS);
        }
        EXPECT_EQ(GCCloseLib(), GC_ERR_SUCCESS);
    }
    EXPECT_EQ(other.asked, 4) << "the loader was asked each time";
}
