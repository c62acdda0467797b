// Against an independent camera in a process of its own.
#include <gds_shared/gigecam_error.h>
#include <gvcp/device_document.h>
#include <gvcp/discovery.h>

#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>

#include <algorithm>

extern char** environ;

namespace {

using namespace gvcp_master;

class fake_camera : public testing::Test {
protected:
    pid_t child = 0;
    void SetUp() override {
        std::string program = ORV_FAKE_CAMERA;
        std::string option = "-i";
        std::string address = "127.0.0.1";
        char* arguments[]{program.data(), option.data(), address.data(), nullptr};
        ASSERT_EQ(::posix_spawn(&child, program.c_str(), nullptr, nullptr, arguments, environ), 0);
        // It says nothing when it is ready: ask until it answers.
        auto channel =
            control_channel::open({0x7F000001, gige::gvcp::port}, {0x7F000001, 0}, {.attempt = milliseconds{50}});
        ASSERT_TRUE(channel);
        ASSERT_TRUE((*channel)->read_register(gige::gvcp::reg::version, milliseconds{10000})) << "it does not answer";
        int state = 0;
        ASSERT_EQ(::waitpid(child, &state, WNOHANG), 0) << "it has ended; does another one hold the address?";
    }
    void TearDown() override {
        if (child <= 0) return;
        ::kill(child, SIGKILL);
        ::waitpid(child, nullptr, 0);
    }
};

TEST_F(fake_camera, is_found_opened_read_and_given_back) {
    discovery finder{
        {.networks = false, .addresses = {0x7F000001}, .interval = milliseconds{100}, .window = milliseconds{100}}, {}};
    std::optional<device_record> found;
    for (int i = 0; i < 50 && !found; ++i) {
        ASSERT_TRUE(finder.scan(milliseconds{5000}));
        for (const auto& each : finder.list())
            for (const auto& device : each.devices)
                if (device.address == 0x7F000001) found = device;
    }
    ASSERT_TRUE(found);
    EXPECT_FALSE(found->vendor.empty());
    EXPECT_FALSE(found->serial.empty());

    const device_control::options chosen{.device = {0x7F000001, gige::gvcp::port}, .local_address = 0x7F000001};
    auto opened = device_control::open(chosen);
    ASSERT_TRUE(opened) << opened.error().message();
    EXPECT_EQ((*opened)->capability() & gige::gvcp::bits::can_resend, 0U) << "it cannot resend";
    const auto document = fetch_document(**opened, {});
    ASSERT_TRUE(document) << document.error().message();
    EXPECT_NE(document->find("RegisterDescription"), std::string::npos);
    EXPECT_NE(document->find("AcquisitionStart"), std::string::npos);

    auto refused = device_control::open(chosen);
    EXPECT_FALSE(refused) << "a second controller";
    opened->reset();
    EXPECT_TRUE(device_control::open(chosen));
}

TEST_F(fake_camera, its_death_is_noticed) {
    std::atomic<bool> lost = false;
    auto opened = device_control::open({.device = {0x7F000001, gige::gvcp::port},
                                        .local_address = 0x7F000001,
                                        .access = access_mode::read_only,
                                        .lost = [&](std::error_code) { lost = true; }});
    ASSERT_TRUE(opened);
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
    child = 0;
    for (int i = 0; i < 1000 && !lost; ++i) std::this_thread::sleep_for(milliseconds{10});
    EXPECT_TRUE(lost);
}

} // namespace
