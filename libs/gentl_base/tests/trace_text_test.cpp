// The forms of call traces.
#include "CallFrame.h"

#include "fake_modules.h"

#include <spdlog/logger.h>
#include <support/log_capture.h>

#include <gtest/gtest.h>

#include <algorithm>

using namespace GenTL;
using namespace GenTL::Producer;

// Each argument's form by its kind; a name and a number beyond an enumeration's names.
TEST(TraceText, Arguments) {
    int* null_pointer = nullptr;
    auto* pointer = reinterpret_cast<int*>(0x1234);
    const char* text = "abc";
    const uint64_t iAddress = 0xAB;
    const int32_t command = 1000, beyond = 4711, event = EVENT_MODULE;
    uint32_t out = 7;
    uint32_t* piOut = &out;
    const unsigned char many[20] = {1, 2, 3, 4};
    INFO_DATATYPE type = INFO_DATATYPE_UINT64;
    const INFO_DATATYPE *piType = &type, *no_type = nullptr;
    const uint64_t value = 9;
    const void* pBuffer = &value;
    const std::pair<std::string, const char*> rows[] = {
        {ORV_ARG(null_pointer), "null_pointer = <null>"},
        {ORV_ARG(pointer), "pointer = 0x1234"},
        {ORV_ARG(text), "text = \"abc\""},
        {ORV_HEX(iAddress), "iAddress = 0xab"},
        {ORV_ENUM(DEVICE_INFO_CMD, command), "command = DEVICE_INFO_CUSTOM_ID"},
        {ORV_ENUM(DEVICE_INFO_CMD, beyond), "beyond = 4711"},
        {ORV_ENUM(EVENT_TYPE, event), "event = EVENT_TYPE::EVENT_MODULE"},
        {ORV_OUT(piOut), "*piOut = 7"},
        {Debug::argument_text("b", Debug::dump_buffer{many, 4}), "b = <01020304> Bytes (u32 0x4030201)"},
        {Debug::argument_text("b", Debug::dump_buffer{many, 3}), "b = <010203> Bytes"},
        {Debug::argument_text("b", Debug::dump_buffer{many, 20}), "b = <01020304000000000000000000000000... > Bytes"},
        {ORV_ARG(Debug::dump_void_ptr(pBuffer, piType)), "*(uint64_t*) pBuffer = 9"},
        {ORV_ARG(Debug::dump_void_ptr(pBuffer, no_type)), "pBuffer = <no type>"},
    };
    for (const auto& [found, wanted] : rows) EXPECT_EQ(found, wanted);
}

TEST(TraceText, CallsLeaveALineAtBothEnds) {
    const auto logger = std::make_shared<spdlog::logger>("trace");
    const test_support::log_capture log{*logger, spdlog::level::trace};
    install_system_factory(&fake::installed_factory(), nullptr, logger);
    set_trace_mask(trace_calls);
    GCInitLib();
    TL_HANDLE tl = nullptr;
    TLOpen(&tl);
    uint32_t count = 0;
    TLGetNumInterfaces(tl, &count);
    TLGetNumInterfaces(nullptr, nullptr);
    GCCloseLib();
    set_trace_mask(0);
    install_system_factory(&fake::installed_factory(), nullptr, nullptr);

    const auto has = [&](const std::string& wanted) { return std::ranges::count(log.holding(wanted), wanted) != 0; };
    EXPECT_TRUE(has(">> GenTL::GCInitLib(  );"));
    EXPECT_TRUE(has("<< GenTL::GCInitLib(  ) SUCCEEDED"));
    EXPECT_TRUE(has("<< GenTL::TLGetNumInterfaces( *piNumIfaces = 1 ) SUCCEEDED"));
    EXPECT_TRUE(has("<< GenTL::TLGetNumInterfaces( ... ) FAILED with return = GC_ERR_INVALID_HANDLE, message: 'hTL == "
                    "nullptr'"));
}
