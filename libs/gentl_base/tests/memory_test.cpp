// No memory, at each place in turn where opening a module asks for some.
#include "fake_modules.h"

#include <support/failing_memory.h>

#include <gtest/gtest.h>

#include <array>
#include <new>
#include <string>

using namespace fake;

namespace {

// Ends with the module open.
template <class Open, class Close>
void open_at_each_place(const char* what, Open open, Close close) {
    for (int place = 0;; ++place) {
        SCOPED_TRACE(what + std::to_string(place));
        failing_memory::fail(place);
        const GC_ERROR answer = open();
        const bool failed = failing_memory::stop() != 0;
        if (answer != GC_ERR_SUCCESS) {
            EXPECT_EQ(answer, GC_ERR_OUT_OF_MEMORY);
            ASSERT_EQ(open(), GC_ERR_SUCCESS) << last_error_text();
        }
        if (!failed) {
            EXPECT_GT(place, 0);
            return;
        }
        ASSERT_EQ(close(), GC_ERR_SUCCESS);
    }
}

TEST(Memory, ItsLackKeepsNoModulesPlace) {
    installed_factory();
    ASSERT_EQ(GCInitLib(), GC_ERR_SUCCESS);
    void *tl = nullptr, *interface = nullptr, *device = nullptr, *stream = nullptr;
    open_at_each_place(
        "TLOpen ", [&] { return TLOpen(&tl); }, [&] { return TLClose(tl); });
    open_at_each_place(
        "TLOpenInterface ", [&] { return TLOpenInterface(tl, "if0", &interface); }, [&] { return IFClose(interface); });
    EXPECT_EQ(IFUpdateDeviceList(interface, nullptr, 0), GC_ERR_SUCCESS);
    open_at_each_place(
        "IFOpenDevice ", [&] { return IFOpenDevice(interface, "dev0", DEVICE_ACCESS_CONTROL, &device); },
        [&] { return DevClose(device); });
    open_at_each_place(
        "DevOpenDataStream ", [&] { return DevOpenDataStream(device, "Stream0", &stream); },
        [&] { return DSClose(stream); });
    void* port = nullptr;
    open_at_each_place(
        "DevGetPort ", [&] { return DevGetPort(device, &port); },
        [&] {
            std::array<char, 4> word{};
            size_t size = word.size();
            const GC_ERROR read = GCReadPort(port, 0, word.data(), &size);
            // The device keeps its port to the end.
            static_cast<void>(DevClose(device));
            return read == GC_ERR_SUCCESS ? IFOpenDevice(interface, "dev0", DEVICE_ACCESS_CONTROL, &device) : read;
        });
    EXPECT_EQ(GCCloseLib(), GC_ERR_SUCCESS);
}

// What is missing is a place in the list of handles, which grows only now and then.
TEST(Memory, ItsLackKeepsNoEventsPlace) {
    const open_chain chain{true};
    bool refused = false;
    for (int more_handles = 0; more_handles < 40 && !refused; ++more_handles) {
        EVENT_HANDLE event = nullptr;
        failing_memory::fail(1); // with the event made
        refused = GCRegisterEvent(chain.ds, EVENT_NEW_BUFFER, &event) == GC_ERR_OUT_OF_MEMORY;
        failing_memory::stop();
        if (refused) {
            EXPECT_EQ(GCRegisterEvent(chain.ds, EVENT_NEW_BUFFER, &event), GC_ERR_SUCCESS);
        }
        EXPECT_EQ(GCUnregisterEvent(chain.ds, EVENT_NEW_BUFFER), GC_ERR_SUCCESS);
        TL_HANDLE another = nullptr;
        ASSERT_EQ(TLOpen(&another), GC_ERR_SUCCESS);
    }
    EXPECT_TRUE(refused) << "the list has not grown";
}

// Their ids don't fit into a string without memory.
TEST(Memory, ModulesCloseWithoutIt) {
    const char* const long_interface = "an interface of a long name";
    const char* const long_device = "a device of a long name";
    const open_chain chain;
    auto& system = chain.system_object();
    system.interfaces.front().id = long_interface;
    system.devices.front().id = long_device;
    ASSERT_EQ(TLUpdateInterfaceList(chain.tl, nullptr, 0), GC_ERR_SUCCESS);
    void *interface = nullptr, *device = nullptr, *stream = nullptr;
    const auto close_at_each_place = [](const char* what, auto open, auto close) {
        int place = 0;
        do {
            SCOPED_TRACE(what + std::to_string(place));
            ASSERT_EQ(open(), GC_ERR_SUCCESS) << last_error_text();
            failing_memory::fail(place++);
            EXPECT_EQ(close(), GC_ERR_SUCCESS);
        } while (failing_memory::stop() != 0 && place < 100);
        ASSERT_EQ(open(), GC_ERR_SUCCESS) << last_error_text();
    };
    close_at_each_place(
        "IFClose ", [&] { return TLOpenInterface(chain.tl, long_interface, &interface); },
        [&] { return IFClose(interface); });
    close_at_each_place(
        "DevClose ", [&] { return IFOpenDevice(interface, long_device, DEVICE_ACCESS_CONTROL, &device); },
        [&] { return DevClose(device); });
    close_at_each_place(
        "DSClose ", [&] { return DevOpenDataStream(device, "Stream0", &stream); }, [&] { return DSClose(stream); });
}

TEST(Memory, ALostDeviceIsToldOfWithoutIt) {
    const open_chain chain;
    EVENT_HANDLE event = nullptr;
    ASSERT_EQ(GCRegisterEvent(chain.dev, EVENT_ERROR, &event), GC_ERR_SUCCESS);
    failing_memory::fail(0);
    EXPECT_NO_THROW(chain.device_object().mark_lost());
    failing_memory::stop();
    ErrorEventRecord record{};
    size_t size = sizeof record;
    EXPECT_EQ(EventGetData(event, &record, &size, 0), GC_ERR_SUCCESS);
    EXPECT_STREQ(static_cast<const char*>(record.text), "Device lost");
}

// A consumer frees what was not announced.
TEST(Memory, ABufferIsAnnouncedOrNot) {
    const open_chain chain;
    size_t announced = 0;
    for (int place = 0; announced < 40;) {
        SCOPED_TRACE(testing::Message() << "place " << place << " of buffer " << announced);
        BUFFER_HANDLE handle = nullptr;
        static std::array<std::array<char, 64>, 40> blocks;
        failing_memory::fail(place++);
        const GC_ERROR answer = DSAnnounceBuffer(chain.ds, &blocks[announced], 64, nullptr, &handle);
        const bool failed = failing_memory::stop() != 0;
        EXPECT_EQ(answer, failed ? GC_ERR_OUT_OF_MEMORY : GC_ERR_SUCCESS);
        EXPECT_EQ(handle == nullptr, failed);
        if (!failed) {
            ++announced;
            place = 0;
        }
        ASSERT_EQ(stream_info<size_t>(chain.ds, STREAM_INFO_NUM_ANNOUNCED), announced);
    }
}

TEST(Memory, APartOfTheDocumentsIsNotGivenForAll) {
    for (int place = 0;; ++place) {
        SCOPED_TRACE(place);
        documented_port port;
        uint32_t count = 0;
        failing_memory::fail(place);
        try {
            static_cast<void>(port.GetNumURLs(&count).failed());
        } catch (const std::bad_alloc&) { // the exported call's
        }
        const bool failed = failing_memory::stop() != 0;
        EXPECT_FALSE(port.GetNumURLs(&count).failed());
        EXPECT_EQ(count, 2U);
        if (!failed) {
            EXPECT_GT(place, 2);
            return;
        }
    }
}

} // namespace
