// Life cycle, handles and their words, through the exported functions.
#include "fake_modules.h"

#include <gtest/gtest.h>

#include <sys/resource.h>

#include <thread>

using namespace fake;

namespace {

class Library : public testing::Test {
protected:
    void SetUp() override { installed_factory(); }
    void TearDown() override {
        EXPECT_EQ(GCCloseLib(), GC_ERR_NOT_INITIALIZED) << "a test left the library open";
        EXPECT_EQ(HandleMapCount(), 0);
        EXPECT_EQ(ObjectTrackerCount(), 0);
    }
};

TEST_F(Library, EveryFunctionAsksForInitialisationBeforeItsArguments) {
    for (const GC_ERROR answer :
         {GCGetInfo(TL_INFO_ID, nullptr, nullptr, nullptr), TLOpen(nullptr), IFClose(nullptr), DevClose(nullptr),
          DSQueueBuffer(nullptr, nullptr), GCReadPort(nullptr, 0, nullptr, nullptr),
          EventGetData(nullptr, nullptr, nullptr, 0), GCRegisterEvent(nullptr, EVENT_MODULE, nullptr)}) {
        EXPECT_EQ(answer, GC_ERR_NOT_INITIALIZED);
    }
    GC_ERROR code = 0;
    EXPECT_EQ(GCGetLastError(&code, nullptr, nullptr), GC_ERR_NOT_INITIALIZED);
}

TEST_F(Library, ModesExcludeEachOther) {
    ASSERT_EQ(GCInitLib(), GC_ERR_SUCCESS);
    EXPECT_THAT(GCInitLib(), IsRefused(GC_ERR_RESOURCE_IN_USE, "GCInitLib called twice"));
    EXPECT_THAT(GCInitLibShared(),
                IsRefused(GC_ERR_RESOURCE_IN_USE, "GCInitLib has been called, initialized in exclusive mode"));
    TL_HANDLE first = nullptr;
    TL_HANDLE second = nullptr;
    EXPECT_EQ(TLOpen(&first), GC_ERR_SUCCESS);
    EXPECT_THAT(TLOpen(&second), IsRefused(GC_ERR_RESOURCE_IN_USE, "Module already opened"));
    EXPECT_EQ(GCCloseLib(), GC_ERR_SUCCESS);
}

// Its size and its text are two questions.
TEST_F(Library, ItsPathStaysWhatItWas) {
    ASSERT_EQ(GCInitLib(), GC_ERR_SUCCESS);
    const auto size_of_path = [] {
        INFO_DATATYPE type = 0;
        size_t size = 0;
        EXPECT_EQ(GCGetInfo(TL_INFO_PATHNAME, &type, nullptr, &size), GC_ERR_SUCCESS);
        return size;
    };
    const size_t before = size_of_path();
    EXPECT_GT(before, 1U);
    rlimit enough{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &enough), 0);
    const rlimit none{0, enough.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    EXPECT_EQ(size_of_path(), before);
    setrlimit(RLIMIT_NOFILE, &enough);
    EXPECT_EQ(GCCloseLib(), GC_ERR_SUCCESS);
}

TEST_F(Library, SharedModeStacksAndTellsTheFactoryOnce) {
    const int closed = installed_factory().closed;
    ASSERT_EQ(GCInitLibShared(), GC_ERR_SUCCESS);
    ASSERT_EQ(GCInitLibShared(), GC_ERR_SUCCESS);
    EXPECT_THAT(GCInitLib(), IsRefused(GC_ERR_RESOURCE_IN_USE, "GCInitLib called twice"));
    TL_HANDLE first = nullptr;
    TL_HANDLE second = nullptr;
    EXPECT_EQ(TLOpen(&first), GC_ERR_SUCCESS);
    EXPECT_EQ(TLOpen(&second), GC_ERR_SUCCESS);
    EXPECT_NE(first, second);
    EXPECT_EQ(GCCloseLib(), GC_ERR_SUCCESS);
    EXPECT_EQ(installed_factory().closed, closed);
    EXPECT_EQ(GCCloseLib(), GC_ERR_SUCCESS);
    EXPECT_EQ(installed_factory().closed, closed + 1);
}

TEST_F(Library, HandlesOfEveryFamilyAreCheckedWithTheirOwnWords) {
    const open_chain chain;
    int unknown = 0;
    struct {
        GC_ERROR (*call)(void*);
        const char *null_text, *unknown_text;
        void* wrong_family;
    } const rows[] = {
        {[](void* h) { return TLClose(h); }, "hTL == nullptr", "hTL is invalid", chain.iface},
        {[](void* h) { return IFClose(h); }, "hIface == nullptr", "Unknown hIface", chain.dev},
        {[](void* h) { return DevClose(h); }, "hDevice == nullptr", "Unknown hDevice", chain.ds},
        {[](void* h) { return DSClose(h); }, "hDataStream == nullptr", "Unknown hDataStream", chain.tl},
        {[](void* h) { return EventKill(h); }, "hEvent == nullptr", "Unknown hEvent", chain.ds},
        {[](void* h) { return GCUnregisterEvent(h, EVENT_MODULE); }, "hEventSrc == nullptr", "Unknown hEventSrc",
         nullptr},
        {[](void* h) { return GCGetPortURL(h, nullptr, nullptr); }, "hPort == nullptr", "Unknown hPort", nullptr},
    };
    for (const auto& r : rows) {
        EXPECT_THAT(r.call(nullptr), IsRefused(GC_ERR_INVALID_HANDLE, r.null_text));
        EXPECT_THAT(r.call(&unknown), IsRefused(GC_ERR_INVALID_HANDLE, r.unknown_text));
        if (r.wrong_family == nullptr) continue;
        EXPECT_THAT(r.call(r.wrong_family), IsRefused(GC_ERR_INVALID_HANDLE, r.unknown_text));
    }
    EXPECT_THAT(DSQueueBuffer(chain.ds, nullptr), IsRefused(GC_ERR_INVALID_HANDLE, "hBuffer == nullptr"));
    BUFFER_HANDLE buffer = nullptr;
    EXPECT_EQ(DSGetBufferID(chain.ds, 7, &buffer), GC_ERR_INVALID_INDEX);
    EXPECT_THAT(DSQueueBuffer(chain.ds, &unknown), IsRefused(GC_ERR_INVALID_HANDLE, "Unknown hBuffer"));
}

TEST_F(Library, TheLastErrorIsPerThreadAndSurvivesSuccess) {
    const open_chain chain;
    EXPECT_EQ(TLOpenInterface(chain.tl, "nowhere", nullptr), GC_ERR_INVALID_PARAMETER);
    uint32_t count = 0;
    EXPECT_THAT(TLGetNumInterfaces(chain.tl, &count), IsRefused(GC_ERR_SUCCESS, "phInterface == nullptr"));
    std::thread{[] { EXPECT_EQ(last_error_text(), "No Error"); }}.join();

    GC_ERROR code = 0;
    size_t size = 0;
    EXPECT_EQ(GCGetLastError(&code, nullptr, &size), GC_ERR_SUCCESS);
    EXPECT_EQ(code, GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(size, sizeof "phInterface == nullptr");
    EXPECT_EQ(GCGetLastError(nullptr, nullptr, &size), GC_ERR_INVALID_PARAMETER);
    EXPECT_EQ(last_error_text(), "phInterface == nullptr") << "its own failures are not recorded";
}

TEST_F(Library, DevicesAnswerByTheirState) {
    const open_chain chain;
    struct {
        const char* id;
        DEVICE_INFO_CMD command;
        GC_ERROR code;
        const char* text;
    } const rows[] = {
        {"dev1", DEVICE_INFO_SERIAL_NUMBER, GC_ERR_NOT_AVAILABLE, "Device without serial number"},
        {"dev1", DEVICE_INFO_VERSION, GC_ERR_NOT_AVAILABLE, "Device without version"},
        {"dev1", DEVICE_INFO_USER_DEFINED_NAME, GC_ERR_NOT_IMPLEMENTED, "Function is not implemented"},
        {"dev0", DEVICE_INFO_CUSTOM_ID, GC_ERR_NOT_IMPLEMENTED, "Function is not implemented"},
        {"none", DEVICE_INFO_ID, GC_ERR_INVALID_ID, "Unknown sDeviceID"},
        {nullptr, DEVICE_INFO_ID, GC_ERR_INVALID_ID, "sDeviceID == nullptr"},
    };
    for (const auto& r : rows) {
        INFO_DATATYPE type = 0;
        size_t size = 0;
        EXPECT_THAT(IFGetDeviceInfo(chain.iface, r.id, r.command, &type, nullptr, &size), IsRefused(r.code, r.text));
    }
    DEV_HANDLE again = nullptr;
    EXPECT_THAT(IFOpenDevice(chain.iface, "dev0", DEVICE_ACCESS_CONTROL, &again),
                IsRefused(GC_ERR_RESOURCE_IN_USE, "Device already opened"));
    EXPECT_THAT(IFOpenDevice(chain.iface, "dev1", DEVICE_ACCESS_NONE, &again),
                IsRefused(GC_ERR_INVALID_PARAMETER, "iOpenFlags == GenTL::DEVICE_ACCESS_NONE"));

    EVENT_HANDLE event = nullptr;
    ASSERT_EQ(GCRegisterEvent(chain.dev, EVENT_ERROR, &event), GC_ERR_SUCCESS);
    chain.device_object().mark_lost();
    INFO_DATATYPE type = 0;
    size_t size = 0;
    EXPECT_THAT(DevGetInfo(chain.dev, DEVICE_INFO_ID, &type, nullptr, &size),
                IsRefused(GC_ERR_CUSTOM_ID, "Device lost"));
    ErrorEventRecord record{};
    size = sizeof record;
    EXPECT_EQ(EventGetData(event, &record, &size, 0), GC_ERR_SUCCESS);
    EXPECT_EQ(record.error_id, GC_ERR_CUSTOM_ID);
    EXPECT_STREQ(record.text, "Device lost");
    EXPECT_EQ(DevClose(chain.dev), GC_ERR_SUCCESS);
}

TEST_F(Library, ListUpdatesOnlyRaiseTheFlag) {
    const open_chain chain;
    bool8_t changed = 7;
    EXPECT_EQ(IFUpdateDeviceList(chain.iface, &changed, 0), GC_ERR_SUCCESS);
    EXPECT_EQ(changed, 7);
    chain.system_object().devices.pop_back();
    EXPECT_EQ(IFUpdateDeviceList(chain.iface, &changed, 0), GC_ERR_SUCCESS);
    EXPECT_EQ(changed, 1);
    EXPECT_EQ(IFUpdateDeviceList(chain.iface, nullptr, 0), GC_ERR_SUCCESS);
}

} // namespace
