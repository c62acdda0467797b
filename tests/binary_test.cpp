// What the loader and other libraries in a consumer's process see.
#include "support/built.h"
#include "support/test_system.h"

#include <gtest/gtest.h>

#include <dlfcn.h>

#include <array>
#include <cstdio>
#include <iterator>
#include <set>
#include <sstream>

namespace built = test_support::built;

namespace {

std::string output_of(const std::string& command) {
    std::string text;
    FILE* pipe = popen(command.c_str(), "r");
    std::array<char, 4096> buffer;
    while (size_t count = fread(buffer.data(), 1, buffer.size(), pipe)) text.append(buffer.data(), count);
    pclose(pipe);
    return text;
}

std::set<std::string> words(const std::string& text) {
    std::istringstream in{text};
    return {std::istream_iterator<std::string>{in}, {}};
}

std::set<std::string> exports_of(const std::string& file) {
    return words(output_of("nm -D --defined-only '" + file + "' | awk '{print $3}'"));
}

} // namespace

TEST(Binary, ExportsExactlyTheInterface) {
    auto expected = words(R"(
        GCGetInfo GCGetLastError GCInitLib GCInitLibShared GCCloseLib GCReadPort GCWritePort
        GCReadPortStacked GCWritePortStacked GCGetPortURL GCGetPortInfo GCGetNumPortURLs GCGetPortURLInfo
        GCRegisterEvent GCUnregisterEvent EventGetData EventGetDataInfo EventGetInfo EventFlush EventKill
        TLOpen TLClose TLGetInfo TLGetNumInterfaces TLGetInterfaceID TLGetInterfaceInfo TLOpenInterface
        TLUpdateInterfaceList IFClose IFGetInfo IFGetNumDevices IFGetDeviceID IFUpdateDeviceList
        IFGetDeviceInfo IFOpenDevice IFGetParentTL DevGetPort DevGetNumDataStreams DevGetDataStreamID
        DevOpenDataStream DevGetInfo DevClose DevGetParentIF DSAnnounceBuffer DSAllocAndAnnounceBuffer
        DSFlushQueue DSStartAcquisition DSStopAcquisition DSGetInfo DSGetBufferID DSClose DSRevokeBuffer
        DSQueueBuffer DSGetBufferInfo DSGetBufferChunkData DSGetParentDev DSGetBufferInfoStacked
        HandleMapCount ObjectTrackerCount)");
    EXPECT_EQ(expected.size(), 59U);
    EXPECT_EQ(exports_of(built::cti), expected);
    expected.insert({"DSGetNumBufferParts", "DSGetBufferPartInfo"});
    EXPECT_EQ(exports_of(built::multipart_cti), expected);
}

TEST(Binary, NeedsOnlyTheLanguageRuntime) {
    if (built::sanitized) GTEST_SKIP() << "sanitizers bring libraries of their own";
    const std::set<std::string> allowed{
        "libc.so.6", "libm.so.6", "libstdc++.so.6", "libgcc_s.so.1", "ld-linux-x86-64.so.2", "ld-linux-aarch64.so.1"};
    for (const char* file : {built::cti, built::multipart_cti}) {
        const auto needed = words(output_of(std::string{"objdump -p '"} + file + "' | awk '/NEEDED/ {print $2}'"));
        for (const std::string& name : needed) EXPECT_TRUE(allowed.contains(name)) << name;
        EXPECT_FALSE(needed.empty());
    }
}

TEST(Binary, BothLibrariesLiveInOneProcess) {
    const cli::gentl_library plain{built::cti};
    const cli::gentl_library multipart{built::multipart_cti};
    const auto path = [](const cli::gentl_library& lib) {
        return cli::ask_text(lib, "GCGetInfo", [&](GenTL::INFO_DATATYPE* type, void* text, size_t* size) {
            return lib.GCGetInfo(GenTL::TL_INFO_PATHNAME, type, text, size);
        });
    };
    EXPECT_EQ(path(plain), std::filesystem::canonical(built::cti));
    EXPECT_EQ(path(multipart), std::filesystem::canonical(built::multipart_cti));
}
