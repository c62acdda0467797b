// What only two hosts with real broadcasts show of the service's network side.
#include "service_network.h"

#include <gige/gvcp.h>
#include <objects/device_object.h>
#include <objects/interface_object.h>
#include <support/eventually.h>

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <thread>

namespace {

using namespace test_support;

constexpr uint32_t device_key = 0x5EED;

TEST_F(ServiceNetwork, AnActionIsOneDatagramAndAnInterfaceThatFailsStopsNoOther) {
    give(hosts.camera_side(), "10.99.0.5/24");
    give(hosts.consumer_side(), "10.99.0.1/24");
    give(hosts.consumer_side(), "10.98.0.1/24");
    gige::udp_socket ear;
    at(hosts.camera_side(), [&] { ear = std::move(*gige::udp_socket::open({0, gige::gvcp::port})); });
    const auto next_action = [&] {
        std::vector<std::byte> bytes(600);
        gige::endpoint from;
        for (;;) {
            if (gige::wait_readable(std::array{ear.native()}, std::chrono::steady_clock::now() + milliseconds{5000}) ==
                0)
                return std::vector<std::byte>{};
            const auto size = ear.receive(bytes, from);
            if (!size) continue;
            const auto header = gige::gvcp::parse_command(std::span{bytes}.first(*size));
            if (header && header->code == gige::gvcp::command::action) break;
        }
        return bytes;
    };
    at(hosts.consumer_side(), [&] {
        // Searches once: it does not see that the first interface goes down.
        service::service_core::options options;
        options.discovery = {.loopback = true, .interval = std::chrono::hours{1}, .window = milliseconds{1}};
        const auto core = std::make_shared<service::service_core>(std::move(options));
        const auto session = std::make_shared<service::client_session>([](uint64_t) {}, std::nullopt);
        ASSERT_TRUE(eventually([&] { return core->discovery().list().size() == 2; }));
        ASSERT_TRUE(hosts.run(hosts.consumer_side(), {"ip", "link", "set", "lo", "down"}));
        const service::interface_object interface { core, session, "cable" };
        EXPECT_TRUE(interface.send_action(device_key, 1, 1, false, 0, gige::gvcp::flag::acknowledge, false));
        EXPECT_TRUE(interface.send_action(device_key, 2, 1, false, 0, 0, true)) << "loopback fails, the cable does not";
        EXPECT_TRUE(interface.send_action(device_key, 3, 1, true, 99, 0xFF, false));
        const service::interface_object gone{core, session, "lo"};
        EXPECT_FALSE(gone.send_action(device_key, 4, 1, false, 0, 0, false));
    });
    struct {
        uint8_t flags;
        uint16_t length;
    } const expected[]{{1, 12}, {0, 12}, {0xFF, 20}};
    for (uint32_t i = 0; i < 3; ++i) {
        const auto got = next_action();
        ASSERT_FALSE(got.empty());
        const auto header = gige::gvcp::parse_command(got);
        EXPECT_EQ(gige::load32(&got[8]), device_key);
        EXPECT_EQ(gige::load32(&got[12]), i + 1) << "each once";
        EXPECT_EQ(gige::load32(&got[16]), 1U);
        EXPECT_EQ(header->flags, expected[i].flags);
        EXPECT_EQ(header->length, expected[i].length);
    }
}

TEST_F(ServiceNetwork, AnInterfaceThatGoesTakesItsSessionsWithIt) {
    give(hosts.camera_side(), "10.99.0.5/24");
    give(hosts.consumer_side(), "10.99.0.1/24");
    start_camera(0x0A630005);
    ASSERT_TRUE(camera);
    at(hosts.consumer_side(), [&] {
        service::service_core::options options;
        options.discovery = {.interval = milliseconds{100}, .window = milliseconds{50}, .misses = 40};
        options.heartbeat_timeout = milliseconds{600'000}; // a heartbeat would notice after hours
        const auto core = std::make_shared<service::service_core>(std::move(options));
        std::atomic<uint64_t> raised = 0;
        const auto session = std::make_shared<service::client_session>(
            [&](uint64_t number) { raised |= uint64_t{1} << number; }, std::nullopt);
        service::interface_object interface { core, session, "cable" };
        ASSERT_TRUE(eventually([&] { return interface.enum_devices()->size() == 1; }));
        const auto device = interface.open_device(interface.enum_devices()->front().id, ipc_rpc::open_access::control);
        ASSERT_TRUE(device) << device.error().message();
        const uint64_t lost = (*device)->service_info().device_lost_notification_id;
        EXPECT_EQ(raised >> lost & 1, 0U);
        const uint64_t changed = interface.service_info()->device_list_notification_id;
        const auto answers = [&] { return interface.enum_devices()->front().reachable_status == 2; }; // the last change
        ASSERT_TRUE(eventually([&] { return (raised >> changed & 1) == 1 && answers(); }));
        ASSERT_TRUE(core->discovery().scan(milliseconds{5000})); // told of it
        raised = 0;
        ASSERT_TRUE(hosts.run(hosts.consumer_side(), {"ip", "link", "set", "cable", "down"}));
        EXPECT_TRUE(eventually([&] { return (raised >> lost & 1) == 1; }));
        const auto list = interface.enum_devices();
        ASSERT_TRUE(list) << "an empty list is no error";
        EXPECT_TRUE(list->empty());
        EXPECT_TRUE(eventually([&] { return (raised >> changed & 1) == 1; }));
    });
}

// Its client has gone at the same time, and the service ends: the search must not end what it is a part of.
TEST_F(ServiceNetwork, TheSearchIsNotTheLastToHoldTheCoreOnceItIsStopped) {
    give(hosts.consumer_side(), "10.99.0.1/24");
    at(hosts.consumer_side(), [&] {
        std::promise<void> told, go_on;
        struct user final : service::interface_user {
            std::shared_ptr<service::service_core> core;
            std::promise<void>& told;
            std::promise<void>& go_on;
            user(std::shared_ptr<service::service_core> used, std::promise<void>& when_told, std::promise<void>& until)
                : core(std::move(used)), told(when_told), go_on(until) {}
            void interface_gone() override {
                told.set_value();
                go_on.get_future().wait();
            }
        };
        service::service_core::options options;
        options.discovery = {.interval = milliseconds{50}, .window = milliseconds{25}};
        auto core = std::make_shared<service::service_core>(std::move(options));
        auto last = std::make_shared<user>(core, told, go_on);
        core->watch_end_of("cable", last);
        ASSERT_TRUE(core->discovery().scan(milliseconds{5000}));
        ASSERT_TRUE(hosts.run(hosts.consumer_side(), {"ip", "link", "set", "cable", "down"}));
        told.get_future().wait();
        last.reset(); // the search's thread has it yet
        std::thread client{[&] {
            std::this_thread::sleep_for(milliseconds{100});
            go_on.set_value();
        }};
        core->discovery().stop();
        EXPECT_EQ(core.use_count(), 1);
        core.reset();
        client.join();
    });
}

// As when an address is renewed: what one search misses does not end sessions.
TEST_F(ServiceNetwork, AnInterfaceThatIsMissingForAMomentIsNotGone) {
    give(hosts.consumer_side(), "10.99.0.1/24");
    at(hosts.consumer_side(), [&] {
        std::atomic<int> gone = 0;
        const discovery::notifications told{.interface_gone = [&](const std::string&) { ++gone; }};
        std::optional<discovery> patient{std::in_place,
                                         discovery::options{.interval = std::chrono::hours{1},
                                                            .window = milliseconds{1},
                                                            .interface_patience = std::chrono::hours{1}},
                                         told};
        const auto search = [&] { return patient->scan(milliseconds{5000}); };
        ASSERT_TRUE(search());
        ASSERT_EQ(patient->list().size(), 1U);
        ASSERT_TRUE(hosts.run(hosts.consumer_side(), {"ip", "address", "flush", "dev", "cable"}));
        ASSERT_TRUE(search());
        EXPECT_EQ(patient->list().size(), 1U);
        give(hosts.consumer_side(), "10.99.0.1/24");
        ASSERT_TRUE(search());
        EXPECT_EQ(patient->list().size(), 1U);
        EXPECT_EQ(gone, 0);
        patient.reset();

        // Nor is it left open whether it is gone until the next search is due.
        discovery finder{{.interval = std::chrono::hours{1}, .window = milliseconds{1}}, told};
        ASSERT_TRUE(finder.scan(milliseconds{5000}));
        ASSERT_TRUE(hosts.run(hosts.consumer_side(), {"ip", "address", "flush", "dev", "cable"}));
        ASSERT_TRUE(finder.scan(milliseconds{5000}));
        EXPECT_TRUE(eventually([&] { return gone == 1; }));
        EXPECT_TRUE(finder.list().empty());
    });
}

} // namespace
