#include "scratch.h"

#include <gds_helper/property_store_map.h>
#include <gds_shared/prop_store_init.h>

using namespace gds_helper;
using gds_shared::gev_product;

namespace {

class StartUp : public scratch {
protected:
    StartUp() {
        for (const char* name : {"ORV_GENTL_GEV_DEBUG", "ORV_GENTL_GEV_DEBUG_FILE", "ORV_GENTL_GEV_PROP_INIT"}) {
            set(name, std::nullopt);
        }
        set("XDG_CONFIG_HOME", (folder / "config").string());
    }
    property_store_map init() const {
        property_store_map store;
        static_cast<void>(gds_shared::prop_store_init(store, gev_product, folder));
        return store;
    }
};

} // namespace

TEST_F(StartUp, NamesOfTheProduct) {
    EXPECT_EQ(gds_shared::service_pipe_name(gev_product), "orv-gentl-gev_service_pipe_1.3.1.860_rel");
    EXPECT_EQ(gds_shared::settings_key(gev_product), "Software\\Quillon Optics GmbH\\orv-gentl-gev\\service");
}

TEST_F(StartUp, DebugLevelOfTheEnvironment) {
    for (const auto& [text, level] : std::map<std::string, std::int64_t>{
             {"0", 0}, {"6", 6}, {"7", -1}, {"8", -1}, {"-1", -1}, {"debug", -1}, {"", -1}}) {
        set("ORV_GENTL_GEV_DEBUG", text);
        EXPECT_EQ(read_int64_or(init(), "log_level", -1), level) << '"' << text << '"';
    }
}

TEST_F(StartUp, DebugFileOfTheEnvironmentIsForBothRoles) {
    set("ORV_GENTL_GEV_DEBUG_FILE", "/tmp/x.log");
    EXPECT_EQ(read_string_or(init(), "cti_log_file", ""), "/tmp/x.log");
    EXPECT_EQ(read_string_or(init(), "service_log_file", ""), "/tmp/x.log");
    set("ORV_GENTL_GEV_DEBUG_FILE", "");
    EXPECT_FALSE(init().has_entry("cti_log_file"));
}

TEST_F(StartUp, LaterSourcesOverrideEarlierOnes) {
    set("ORV_GENTL_GEV_DEBUG", "4");
    write("orv-gentl-gev_setup.json", R"({"log_level": 1, "a": "first"})");
    write("orv-gentl-gev_setup_2.json", R"({"a": "second", "b": 1.5})");
    write("orv-gentl-gev_setup_3.txt", R"({"a": "no"})");
    write("other_setup.json", R"({"a": "no"})");
    write("orv-gentl-gev_setup_4.json", "not json");
    std::filesystem::create_directory(folder / "orv-gentl-gev_setup_5.json");
    EXPECT_EQ(read_int64_or(init(), "log_level", -1), 1);
    EXPECT_EQ(read_string_or(init(), "a", ""), "second");
    EXPECT_EQ(read_double_or(init(), "b", 0), 1.5);

    set("ORV_GENTL_GEV_PROP_INIT", write("extra.json", R"({"a": "last"})").string());
    EXPECT_EQ(read_string_or(init(), "a", ""), "last");
    set("ORV_GENTL_GEV_PROP_INIT", "/no/such/file");
    EXPECT_EQ(read_string_or(init(), "a", ""), "second");
}

// It would wait for somebody who writes, within the consumer's dlopen.
TEST_F(StartUp, APipeIsNoFileOfSettings) {
    const std::string pipe = make_pipe("extra.json");
    set("ORV_GENTL_GEV_PROP_INIT", pipe);
    must_not_wait_for(pipe, [&] { EXPECT_EQ(read_string_or(init(), "a", "none"), "none"); });
}

TEST_F(StartUp, ChainAsksTheMapBeforeTheUsersSettings) {
    write("config/Software/Quillon Optics GmbH/orv-gentl-gev/service.json",
          R"({"log_level": 2, "log_flush_level": 1.0, "only_user": 3})");
    write("orv-gentl-gev_setup.json", R"({"log_level": 1})");
    gds_shared::settings_report report;
    const auto chain = gds_shared::make_property_chain(gev_product, folder, report);
    EXPECT_EQ(read_int64_or(*chain, "log_level", -1), 1);
    ASSERT_EQ(report.files.size(), 2U);
    EXPECT_EQ(report.files.back(), folder / "orv-gentl-gev_setup.json") << "it is asked first";
    ASSERT_EQ(report.problems.size(), 1U) << "a number with a point";
    EXPECT_NE(report.problems[0].find("'log_flush_level' is not used"), std::string::npos) << report.problems[0];
    EXPECT_EQ(read_int64_or(*chain, "only_user", -1), 3);
    ASSERT_NE(chain->get_backing_store(), nullptr);
    EXPECT_FALSE(gds_shared::apply_buffer_tracing_setting(*chain));
    EXPECT_FALSE(chain->has_entry("log_level_GenTLProd"));
    EXPECT_FALSE(chain->get_backing_store()->write_int64("cti_enable_gentl_buffer_tracing", 1));
    EXPECT_TRUE(gds_shared::apply_buffer_tracing_setting(*chain));
    EXPECT_EQ(read_int64_or(*chain, "log_level_GenTLProd", -1), 0);
}

TEST_F(StartUp, NothingIsCreatedByLooking) {
    gds_shared::settings_report report;
    static_cast<void>(gds_shared::make_property_chain(gev_product, folder / "absent", report));
    EXPECT_TRUE(report.problems.empty()) << "a file that may be there";
    EXPECT_TRUE(std::filesystem::is_empty(folder));
}

TEST_F(StartUp, FilesThatCannotBeLookedAtAreToldOf) {
    const auto user = folder / "config/Software/Quillon Optics GmbH/orv-gentl-gev/service.json";
    std::filesystem::create_directories(user.parent_path());
    for (const auto& loop : {user, folder / "extra.json"}) std::filesystem::create_symlink(loop, loop);
    set("ORV_GENTL_GEV_PROP_INIT", (folder / "extra.json").string());
    gds_shared::settings_report report;
    static_cast<void>(gds_shared::make_property_chain(gev_product, folder, report));
    EXPECT_EQ(report.problems.size(), 2U);
    EXPECT_TRUE(report.files.empty());
}
