// No memory, at each place in turn where opening a module asks for some.
#include "fake_modules.h"

#include <support/failing_memory.h>

#include <gtest/gtest.h>

#include <new>
#include <string>

using namespace fake;

namespace {

// Ends with the module open.
template <class Open, class Close>
void open_at_each_place(const char* what, Open open, Close close) {
    for (int place = 0;; ++place) {
        SCOPED_TRACE(what + std::to_string(place));
        bool opened = false;
        failing_memory::fail(place);
        try {
            opened = open() == GC_ERR_SUCCESS;
        } catch (const std::bad_alloc&) { // the consumer's
        }
        const bool failed = failing_memory::stop() != 0;
        if (!opened) {
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
    EXPECT_EQ(GCCloseLib(), GC_ERR_SUCCESS);
}

} // namespace
