#include "scratch.h"

#include <gds_helper/property_store_map.h>
#include <gds_shared/log_init.h>

#include <gmock/gmock.h>

#include <fcntl.h>
#include <unistd.h>

#include <thread>

using namespace gds_helper;
using log::logger_id;
using testing::HasSubstr;

namespace {

class Log : public scratch {
protected:
    // Loggers are the process's: back to where they start.
    ~Log() override {
        control.reset();
        log::log_control reset{"", ""};
        reset.set_level(5);
        reset.set_flush_level(5);
        for (const auto& row : log::extra_loggers) reset.set_level(row.id, row.default_level);
    }
    void init(bool as_service = false) { gds_shared::log_init(store, *control, as_service); }
    void set(const std::string& name, std::int64_t value) { static_cast<void>(store.write_int64(name, value)); }
    void set(const std::string& name, const std::string& value) { static_cast<void>(store.write_string(name, value)); }

    property_store_map store;
    std::unique_ptr<log::log_control> control = std::make_unique<log::log_control>("cti", "orv-gevsrv");
};

} // namespace

TEST_F(Log, WithoutSettingsOnlyCriticalAndNowhere) {
    init();
    EXPECT_EQ(control->level(), 5);
    for (const auto& row : log::extra_loggers) EXPECT_EQ(control->level(row.id), 6) << row.name;
    EXPECT_FALSE(control->has_console() || control->has_debug_output() || control->has_file());
}

struct level_case {
    std::int64_t setting;
    int main;
    int extra; // of a logger that stood at 2 before
};

TEST_F(Log, LevelsFromTheSettings) {
    for (const auto& [setting, main, extra] :
         {level_case{0, 0, 0}, level_case{6, 6, 6}, level_case{7, 5, 6}, level_case{8, 5, 2}, level_case{-1, 5, 2}}) {
        control->set_level(logger_id::ipc, 2);
        set("log_level", setting);
        set("log_level_IPC", setting);
        init();
        EXPECT_EQ(control->level(), main) << setting;
        EXPECT_EQ(control->level(logger_id::ipc), extra) << setting;
        EXPECT_EQ(control->level(logger_id::gvsp), 6) << "absent: nothing changes";
    }
}

TEST_F(Log, TheRoleChoosesFileAndLabel) {
    set("log_level", 2);
    set("log_flush_level", 0);
    set("cti_log_file", (folder / "cti.log").string());
    set("service_log_file", (folder / "service.log").string());
    control->set_header("srv: product 1.2");
    init(true);
    log::get(logger_id::main)->info("hello {}", 7);
    log::get(logger_id::main)->debug("too low");
    log::get(logger_id::ipc)->critical("off");
    const std::string text = text_of(folder / "service.log");
    EXPECT_THAT(text, HasSubstr("srv: product 1.2"));
    EXPECT_THAT(text,
                testing::ContainsRegex("\\[[0-9:.]+\\]\\[orv-gevsrv       def\\] \\[   info\\] \\[ *:-? *\\] hello 7"));
    EXPECT_THAT(text, testing::Not(HasSubstr("too low")));
    EXPECT_THAT(text, testing::Not(HasSubstr("off")));
    EXPECT_FALSE(std::filesystem::exists(folder / "cti.log"));
}

TEST_F(Log, AFileIsNotReplacedButRemoved) {
    set("cti_log_file", (folder / "first.log").string());
    init();
    set("cti_log_file", (folder / "second.log").string());
    init();
    EXPECT_TRUE(control->has_file());
    EXPECT_FALSE(std::filesystem::exists(folder / "second.log"));
    set("cti_log_file", std::string{});
    init();
    EXPECT_FALSE(control->has_file());
    log::get(logger_id::main)->critical("nobody hears");
    EXPECT_EQ(text_of(folder / "first.log"), "");
}

TEST_F(Log, AFileThatCannotBeOpenedIsLeftOutAndTheServiceMakesNoFolderForIt) {
    set("cti_log_file", (write("plain", "") / "below.log").string());
    init();
    EXPECT_FALSE(control->has_file());
    EXPECT_THAT(control->file_problem(), HasSubstr("below.log"));
    set("cti_log_file", (folder / "deep" / "cti.log").string());
    set("service_log_file", (folder / "mistyped" / "service.log").string());
    init();
    EXPECT_TRUE(control->has_file());
    EXPECT_EQ(control->file_problem(), "");
    control->set_file("");
    init(true);
    EXPECT_FALSE(control->has_file());
    EXPECT_FALSE(std::filesystem::exists(folder / "mistyped"));
    EXPECT_THAT(control->file_problem(), HasSubstr("there is no folder '" + (folder / "mistyped").string() + "'"));
}

// It would wait for one. With a reader a pipe is an output like any other of the service, as the standard error of a
// program in front of another is. The library writes into none: its reader's end would be the consumer's.
TEST_F(Log, APipeThatNobodyReadsIsNoFile) {
    const std::string pipe = make_pipe("cti.log");
    control->set_role(true);
    must_not_wait_for(pipe, [&] { control->set_file(pipe); });
    EXPECT_FALSE(control->has_file());
    EXPECT_THAT(control->file_problem(), HasSubstr("nobody reads"));
    control->set_role(false);
    const int reader = open(pipe.c_str(), O_RDONLY | O_NONBLOCK);
    control->set_file(pipe);
    EXPECT_FALSE(control->has_file());
    EXPECT_THAT(control->file_problem(), HasSubstr("it is a pipe"));
    control->set_role(true);
    control->set_file(pipe);
    EXPECT_TRUE(control->has_file());
    EXPECT_EQ(control->file_problem(), "");
    control->set_file("");
    close(reader);
}

// As `cat` reads one: it waits for somebody who writes, and ends with the last of them.
TEST_F(Log, WhoWaitsAtAPipeReadsTheLog) {
    control->set_header("srv: product 1.2");
    control->set_role(true);
    for (int i = 0; i < 20; ++i) {
        const std::string pipe = make_pipe("read" + std::to_string(i));
        auto read = std::async(std::launch::async, [&] { return text_of(pipe); });
        must_not_wait_for(pipe, [&] {
            for (control->set_file(pipe); !control->has_file(); control->set_file(pipe)) std::this_thread::yield();
        });
        control->set_file("");
        EXPECT_THAT(read.get(), HasSubstr("srv: product 1.2"));
    }
}

TEST_F(Log, OutputsComeAndGoUnderUse) {
    control->set_level(0);
    std::atomic<bool> stop{false};
    std::thread user{[&] {
        while (!stop) log::get(logger_id::main)->info("busy");
    }};
    for (int i = 0; i < 200; ++i) {
        control->set_file((folder / "busy.log").string());
        control->set_file("");
    }
    stop = true;
    user.join();
    EXPECT_FALSE(control->has_file());
}
