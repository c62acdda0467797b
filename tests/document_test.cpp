// The modules of the real library describe themselves to a consumer that knows only the standard.
#include "support/document_log_capture.h"
#include "support/document_rules.h"
#include "support/test_system.h"

#include <gtest/gtest.h>

#include <cstdio>

using namespace test_support;

namespace {

// Writes back what was read; the error's text, or nothing.
std::string write_back(GenICam::INode& node) {
    using namespace GenICam;
    std::error_code error;
    if (auto* integer = node_cast<IInteger>(&node)) {
        if (const auto value = integer->get_val(0)) error = integer->set_val(*value, 0);
    } else if (auto* real = node_cast<IFloat>(&node)) {
        if (const auto value = real->get_val(0)) error = real->set_val(*value, 0);
    } else if (auto* flag = node_cast<IBoolean>(&node)) {
        if (const auto value = flag->get_val(0)) error = flag->set_val(*value, 0);
    } else if (auto* string = node_cast<IString>(&node)) {
        if (const auto value = string->get_val(0)) error = string->set_val(*value, 0);
    } else if (auto* choice = node_cast<IEnumeration>(&node)) {
        if (const auto value = choice->get_selected_entry(0)) error = choice->set_selected_entry(*value, 0);
    }
    return error ? error.message() : std::string{};
}

} // namespace

TEST(Documents, EveryFeatureOfEveryModuleReadsAndWrites) {
    small_system own;
    open_camera camera;
    camera.start();
    camera.stop();
    const std::pair<void*, const char*> modules[] = {{camera.system->get(), "system"},
                                                     {camera.interface->get(), "interface"},
                                                     {camera.device->get(), "device"},
                                                     {camera.stream->get(), "stream"}};
    for (const auto& [port, name] : modules) {
        SCOPED_TRACE(name);
        GenICam::testing::log_capture log;
        const cli::node_map nodes{*camera.lib, port};
        size_t read = 0;
        for (GenICam::INode* feature : nodes.document().get_root_features()) {
            const std::string access = cli::access_text(*feature);
            // Event data stands in memory that only an event brings.
            if (access == "NA" || access == "NI" || feature->get_name().starts_with("Event")) continue;
            SCOPED_TRACE(feature->get_name());
            std::string error;
            if (access != "WO") {
                static_cast<void>(cli::value_text(*feature, error));
                EXPECT_EQ(error, "");
                ++read;
            }
            if (access == "RW") {
                EXPECT_EQ(write_back(*feature), "");
            }
            if (feature->get_name().ends_with("UpdateList")) {
                EXPECT_NO_THROW(cli::execute(*feature));
            }
        }
        EXPECT_GE(read, 10U);
        EXPECT_EQ(log.lines, std::vector<std::string>{});
    }
}

TEST(Documents, KeepTheRulesOfTheStandard) {
    small_system own;
    open_camera camera;
    camera.start(); // opens the stream module
    camera.stop();
    for (void* port : {camera.system->get(), camera.interface->get(), camera.device->get(), camera.stream->get()}) {
        const std::string url = cli::node_map{*camera.lib, port}.url();
        SCOPED_TRACE(url);
        unsigned long long address = 0;
        size_t size = 0;
        ASSERT_EQ(std::sscanf(url.c_str(), "local:%*[^;];%llx;%zx", &address, &size), 2);
        std::string text(size, '\0');
        ASSERT_EQ(camera.lib->GCReadPort(port, address, text.data(), &size), GenTL::GC_ERR_SUCCESS);
        EXPECT_EQ(document_rules::broken(text), std::vector<std::string>{});
    }
}

TEST(Documents, AreTheSameInEveryProcess) {
    small_system own;
    const auto url = [&](const char* module) {
        const auto run = own.run_consumer({"features", "--module", module, "--json"});
        const auto object = nlohmann::json::parse(run.output, nullptr, false);
        return object.is_object() ? object.value("url", "none") : run.output;
    };
    for (const char* module : {"system", "stream"}) {
        const std::string first = url(module);
        EXPECT_EQ(first.substr(0, 6), "local:");
        EXPECT_EQ(url(module), first) << "the hash of the text is part of the name";
    }
}
