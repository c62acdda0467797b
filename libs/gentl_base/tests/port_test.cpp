// The modules' own documents, read as a consumer reads them: through the port functions only.
#include "fake_modules.h"

#include <GenICam/IGenICamDoc.h>
#include <support/temporary_folder.h>

#include <pugixml.hpp>

#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <thread>

using namespace fake;

namespace {

std::string document_of(void* port) {
    char url[256] = {};
    size_t size = sizeof url;
    EXPECT_EQ(GCGetPortURL(port, url, &size), GC_ERR_SUCCESS);
    unsigned long long address = 0;
    unsigned long long length = 0;
    EXPECT_EQ(sscanf(strchr(url, ';'), ";%llX;%llX", &address, &length), 2) << url;
    EXPECT_EQ(address, 0xF0000000U);
    std::string text(length, '\0');
    size = text.size();
    EXPECT_EQ(GCReadPort(port, address, text.data(), &size), GC_ERR_SUCCESS);
    return text;
}

class handle_port final : public GenICam::IDevicePort {
public:
    explicit handle_port(void* h) : handle(h) {}
    GenICam::result<std::size_t> read(int64_t address, std::span<std::byte> data, unsigned) override {
        size_t size = data.size();
        if (GCReadPort(handle, static_cast<uint64_t>(address), data.data(), &size) != GC_ERR_SUCCESS) {
            return GenICam::fail(GenICam::genicam_errc::generic_error);
        }
        return size;
    }
    std::error_code write(int64_t address, std::span<const std::byte> data, unsigned) override {
        size_t size = data.size();
        return GCWritePort(handle, static_cast<uint64_t>(address), data.data(), &size) == GC_ERR_SUCCESS
                   ? std::error_code{}
                   : make_error_code(GenICam::genicam_errc::generic_error);
    }

private:
    void* handle;
};

} // namespace

TEST(ModulePort, SelectorsReachTheirListAndStopAtItsEnd) {
    const open_chain chain;
    handle_port port{chain.iface};
    const auto document = GenICam::create_document(std::string_view{document_of(chain.iface)});
    ASSERT_FALSE(document->find<GenICam::IPort>("InterfacePort")->bind(&port, 0));
    auto* selector = document->find<GenICam::IInteger>("DeviceSelector");
    auto* id = document->find<GenICam::IString>("DeviceID");
    EXPECT_EQ(selector->get_max(0), 1);
    EXPECT_EQ(id->get_val(0), "dev0");
    ASSERT_FALSE(selector->set_val(1, 0));
    EXPECT_EQ(id->get_val(0), "dev1");
    EXPECT_FALSE(document->find_node("DeviceSerialNumber")->is_available());

    auto& system = chain.system_object();
    system.devices.clear();
    ASSERT_EQ(IFUpdateDeviceList(chain.iface, nullptr, 0), GC_ERR_SUCCESS);
    EXPECT_FALSE(selector->is_available());
    EXPECT_FALSE(id->is_available());
    EXPECT_EQ(selector->get_max(0), 0);
}

TEST(ModulePort, RegistersAnswerAtTheirBorders) {
    const open_chain chain;
    document_of(chain.tl);
    char buffer[8192] = {};
    size_t size = 4;
    const auto read = [&](uint64_t address, size_t bytes) {
        size = bytes;
        return GCReadPort(chain.tl, address, buffer, &size);
    };
    constexpr uint64_t tl_id = 0xA120000; // 4128 bytes, then TLVendorName
    EXPECT_EQ(read(tl_id - 1, 1), GC_ERR_INVALID_ADDRESS);
    EXPECT_EQ(read(tl_id, 4128), GC_ERR_SUCCESS);
    EXPECT_EQ(read(tl_id + 4128, 256), GC_ERR_SUCCESS);
    EXPECT_STREQ(buffer, "Maker");
    size = 4;
    EXPECT_EQ(GCWritePort(chain.tl, tl_id, buffer, &size), GC_ERR_ACCESS_DENIED);

    PORT_REGISTER_STACK_ENTRY entries[3] = {{tl_id + 4128, buffer, 256}, {tl_id + 4128, buffer, 256}, {1, buffer, 4}};
    size_t count = 3;
    EXPECT_EQ(GCReadPortStacked(chain.tl, entries, &count), GC_ERR_INVALID_ADDRESS);
    EXPECT_EQ(count, 2U);
    uint32_t urls = 0;
    EXPECT_EQ(GCGetNumPortURLs(chain.ds, &urls), GC_ERR_SUCCESS);
    EXPECT_EQ(urls, 1U);
}

TEST(ModulePort, ConcurrentFirstAccessBuildsOneDocument) {
    const open_chain chain;
    std::vector<std::thread> threads;
    std::vector<std::string> texts(4);
    for (auto& text : texts) threads.emplace_back([&] { text = document_of(chain.dev); });
    for (auto& thread : threads) thread.join();
    for (const auto& text : texts) EXPECT_EQ(text, texts.front());
    EXPECT_FALSE(texts.front().empty());
}

// A list event carries one byte; the feature of the module's own document reads it from its event port.
TEST(ModulePort, ListEventsAreReadFromWhatTheEventCarries) {
    const open_chain chain;
    for (const auto& [module, feature, value] : {std::tuple{chain.tl, "EventInterfaceListChanged", 0x40},
                                                 std::tuple{chain.iface, "EventDeviceListChanged", 0x30}}) {
        const std::string text = document_of(module);
        const auto document = GenICam::create_document(text);
        ASSERT_NE(document, nullptr);
        std::byte event[1] = {static_cast<std::byte>(value)};
        auto* port = document->find<GenICam::IPort>(std::string{feature} + "Port");
        ASSERT_NE(port, nullptr) << feature;
        ASSERT_FALSE(port->bind(std::span{event}, 0));
        const auto read = document->find<GenICam::IInteger>(feature)->get_val(GenICam::access_flags::bypass_cache);
        ASSERT_TRUE(read) << feature << ": " << read.error().message();
        EXPECT_EQ(*read, value);
    }
}

TEST(ModulePort, ADebugFileHoldsTheDocumentUnderItsNameVersionAndHash) {
    Util::RegisterMap map;
    uint64_t next = 0x1000;
    Util::GenApiInterfaceBuilder builder{
        map, next, genicam_gen::reference(genicam_gen::reference_id::system), {"Maker", "Model", "Tip"}, "Port"};
    builder.add_integer_constant("TLVersionMajor", 1);
    const test_support::temporary_folder folder;
    EXPECT_FALSE(builder.write_debug_file((folder.path / "module").string(), "1.2").failed());
    std::string name;
    for (const auto& entry : std::filesystem::directory_iterator{folder.path}) name = entry.path().filename().string();
    EXPECT_TRUE(name.starts_with("module-1.2-") && name.ends_with(".xml")) << name;
    const std::string gone = folder.path / "gone" / "module";
    const Error error = builder.write_debug_file(gone, "1");
    EXPECT_EQ(error.code, GC_ERR_ERROR);
    EXPECT_TRUE(error.message.starts_with("Failed to open file '" + gone)) << error.message;
    EXPECT_TRUE(error.message.ends_with("'. Err: No such file or directory.")) << error.message;
}
