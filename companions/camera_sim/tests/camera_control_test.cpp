#include "test_client.h"

#include "../src/document.h"
#include "../src/registers.h"

#include <pugixml.hpp>

#include <set>

namespace {

using namespace camera_sim;
using gige::gvcp::command;
using status = gige::gvcp::status;
namespace boot = gige::gvcp::reg;
namespace bits = gige::gvcp::bits;

camera_options small(uint32_t n) {
    camera_options options;
    options.address = own_address(n);
    options.sensor_width = 320;
    options.sensor_height = 240;
    options.user_name = "left";
    return options;
}

std::unique_ptr<camera> start(camera_options options) {
    auto started = camera::start(std::move(options));
    EXPECT_TRUE(started) << started.error().message();
    return std::move(*started);
}

TEST(camera_control, answers_discovery_by_unicast_and_by_broadcast) {
    const auto one = start(small(1));
    const auto two = start(small(2));
    test_client client{one->address()};
    client.send(command::discovery, {});
    const auto got = client.receive_reply();
    ASSERT_TRUE(got);
    ASSERT_EQ(got->body.size(), gige::gvcp::discovery_size);
    EXPECT_EQ(gige::load32(&got->body[boot::current_address]), one->address());
    EXPECT_STREQ(reinterpret_cast<const char*>(&got->body[boot::user_name]), "left");

    EXPECT_FALSE(client.control.allow_broadcast());
    client.send(command::discovery, {}, 0x11, 0, 0x7FFFFFFF);
    std::set<uint32_t> answered;
    while (answered.count(one->address()) + answered.count(two->address()) < 2) {
        const auto each = client.receive_reply();
        ASSERT_TRUE(each) << "only " << answered.size() << " answers";
        answered.insert(gige::load32(&each->body[boot::current_address]));
    }
}

TEST(camera_control, status_values_of_bad_requests) {
    const auto cam = start(small(1));
    test_client client{cam->address()};
    (void)client.read(0x0001, status::bad_alignment);
    (void)client.read(0x9000, status::invalid_address);
    (void)client.read(0xFFFFFFFC, status::invalid_address);
    EXPECT_EQ(client.write(boot::heartbeat_timeout, 1000), status::access_denied) << "without control";
    ASSERT_EQ(client.write(boot::privilege, bits::control), status::success);
    EXPECT_EQ(client.write(boot::mac_low, 1), status::write_protect);
    EXPECT_EQ(client.write(boot::heartbeat_timeout, 100), status::success);
    EXPECT_EQ(client.read(boot::heartbeat_timeout), 500U) << "raised to the least allowed";
    EXPECT_EQ(client.write(reg::width, 328), status::invalid_parameter);
    EXPECT_EQ(client.write(reg::width, 100), status::invalid_parameter);
    EXPECT_EQ(client.write(reg::width, 160), status::success);
    EXPECT_EQ(client.read(reg::payload_size), 160U * 240);

    client.send(command::read_mem, test_client::words({boot::vendor, 540}));
    EXPECT_EQ(client.receive_reply()->header.result, status::invalid_parameter);
    client.send(command::read_mem, test_client::words({boot::vendor, 6}));
    EXPECT_EQ(client.receive_reply()->header.result, status::bad_alignment);
    client.send(command{0x00F0}, {});
    EXPECT_EQ(client.receive_reply()->header.result, status::not_implemented);

    // Concatenated registers.
    client.send(command::read_reg, test_client::words({reg::sensor_width, reg::sensor_height}));
    const auto both = client.receive_reply();
    ASSERT_EQ(both->body.size(), 8U);
    EXPECT_EQ(gige::load32(&both->body[4]), 240U);
}

TEST(camera_control, privileges_of_two_consumers) {
    const auto cam = start(small(1));
    test_client holder{cam->address()};
    test_client other{cam->address()};
    ASSERT_EQ(holder.write(boot::privilege, bits::control), status::success);
    EXPECT_EQ(other.write(boot::privilege, bits::control), status::access_denied);
    EXPECT_EQ(other.read(boot::privilege), bits::control) << "reading stays allowed";
    ASSERT_EQ(holder.write(boot::privilege, bits::exclusive), status::success);
    (void)other.read(boot::privilege, status::access_denied);
    ASSERT_EQ(holder.write(boot::privilege, bits::control | bits::switchover), status::success);
    EXPECT_EQ(other.write(boot::privilege, bits::control), status::success) << "switch-over allowed";
    EXPECT_EQ(holder.write(reg::width, 160), status::access_denied);
    EXPECT_EQ(other.write(boot::privilege, 0), status::success);
    EXPECT_EQ(holder.write(boot::privilege, bits::exclusive), status::success);
}

TEST(camera_control, heartbeat_loss_frees_everything) {
    const auto cam = start(small(1));
    test_client client{cam->address()};
    client.open_stream(1500);
    ASSERT_EQ(client.write(boot::heartbeat_timeout, 500), status::success);
    const auto until = std::chrono::steady_clock::now() + std::chrono::seconds{10};
    while (cam->stats().heartbeats_missed == 0 && std::chrono::steady_clock::now() < until) ::usleep(10000);
    EXPECT_EQ(cam->stats().heartbeats_missed, 1U);
    EXPECT_EQ(client.read(boot::privilege), 0U);
    EXPECT_EQ(client.read(boot::stream_port), 0U);
}

TEST(camera_control, repetitions_are_answered_without_a_second_execution) {
    const auto cam = start(small(1));
    test_client client{cam->address()};
    ASSERT_EQ(client.write(boot::privilege, bits::control), status::success);
    ASSERT_EQ(client.write(reg::event_notification, 1), status::success);
    for (int i = 0; i < 2; ++i) {
        client.send(command::write_reg, test_client::words({reg::trigger_software, 1}), 1, 0x7777);
        ASSERT_TRUE(client.receive_reply());
    }
    EXPECT_EQ(cam->stats().control_repeated, 1U);
}

TEST(camera_control, pending_ack_comes_first) {
    auto options = small(1);
    options.faults.pending_every = 2;
    options.faults.pending_ms = 30;
    const auto cam = start(options);
    test_client client{cam->address()};
    (void)client.read(boot::version);
    client.send(command::read_reg, test_client::words({boot::version}));
    auto got = client.receive_reply();
    ASSERT_TRUE(got);
    EXPECT_EQ(got->header.code, command::pending_ack);
    EXPECT_GE(gige::load16(&got->body[2]), 30U);
    got = client.receive_reply();
    ASSERT_TRUE(got);
    EXPECT_EQ(got->header.code, command::read_reg_ack);
    EXPECT_EQ(got->header.request_id, client.next_id);
}

TEST(camera_control, events_are_repeated_until_acknowledged) {
    const auto cam = start(small(1));
    test_client client{cam->address()};
    ASSERT_EQ(client.write(boot::privilege, bits::control), status::success);
    ASSERT_EQ(client.write(boot::message_address, client.stream.local().address), status::success);
    ASSERT_EQ(client.write(boot::message_timeout, 50), status::success);
    ASSERT_EQ(client.write(boot::message_retries, 5), status::success);
    ASSERT_EQ(client.write(boot::message_port, client.stream.local().port), status::success);
    ASSERT_EQ(client.write(reg::event_notification, 1), status::success);
    ASSERT_EQ(client.write(reg::test_event, 1), status::success);
    const auto first = client.receive(client.stream);
    const auto again = client.receive(client.stream);
    ASSERT_TRUE(first && again);
    EXPECT_EQ(*first, *again) << "same request id";
    const auto header = gige::gvcp::parse_command(*first);
    ASSERT_TRUE(header);
    EXPECT_EQ(header->code, command::event_data);
    EXPECT_EQ(gige::load16(&(*first)[10]), 0x9000U);
    std::array<std::byte, 8> ack;
    gige::gvcp::store_ack(ack.data(), {status::success, command::event_data_ack, 0, header->request_id});
    ASSERT_FALSE(
        client.stream.send({cam->address(), static_cast<uint16_t>(client.read(boot::message_source_port))}, ack));
    const auto until = std::chrono::steady_clock::now() + std::chrono::seconds{5};
    while (cam->stats().events_acknowledged == 0 && std::chrono::steady_clock::now() < until) ::usleep(1000);
    EXPECT_EQ(cam->stats().events_acknowledged, 1U);
}

TEST(camera_control, force_ip_moves_the_camera_and_persistent_ip_survives_a_reset) {
    auto options = small(1);
    options.reboot_ms = 20;
    const auto cam = start(options);
    test_client client{cam->address()};
    std::vector<std::byte> body(gige::gvcp::force_ip_size);
    gige::store16(&body[2], static_cast<uint16_t>(cam->mac() >> 32));
    gige::store32(&body[4], static_cast<uint32_t>(cam->mac()));
    gige::store32(&body[20], own_address(9));
    gige::store32(&body[36], 0xFF000000);
    client.send(command::force_ip, body);
    ASSERT_TRUE(client.receive_reply());
    // The acknowledge leaves from the old address, in front of the change.
    for (int i = 0; i < 2000 && cam->address() != own_address(9); ++i) ::usleep(1000);
    client.camera_address = own_address(9);
    EXPECT_EQ(client.read(boot::current_address), own_address(9));

    ASSERT_EQ(client.write(boot::privilege, bits::control), status::success);
    ASSERT_EQ(client.write(boot::persistent_address, own_address(10)), status::success);
    ASSERT_EQ(client.write(boot::ip_config_current, bits::ip_persistent | bits::ip_link_local), status::success);
    ASSERT_EQ(client.write(reg::device_reset, 1), status::success);
    client.camera_address = own_address(10);
    std::optional<test_client::reply> got;
    for (int i = 0; i < 200 && !got; ++i) {
        client.send(command::read_reg, test_client::words({boot::privilege}));
        got = client.receive_reply(50);
    }
    ASSERT_TRUE(got) << "not back from the reset";
    EXPECT_EQ(gige::load32(got->body.data()), 0U);
}

TEST(camera_control, document_is_well_formed_and_its_links_resolve) {
    for (const bool zipped : {false, true}) {
        auto options = small(1);
        options.zipped_document = zipped;
        const auto cam = start(options);
        pugi::xml_document xml;
        const std::string text = cam->document();
        ASSERT_TRUE(xml.load_string(text.c_str()));
        std::set<std::string> names;
        for (const auto& found : xml.select_nodes("//*[@Name][not(self::EnumEntry)][not(self::pVariable)]"))
            EXPECT_TRUE(names.insert(found.node().attribute("Name").value()).second)
                << found.node().attribute("Name").value() << " twice";
        for (const auto& found : xml.select_nodes("//*[starts-with(local-name(), 'p')]"))
            EXPECT_TRUE(names.contains(found.node().child_value()))
                << found.node().name() << " -> " << found.node().child_value();
        // What the registers say of it.
        test_client client{cam->address()};
        client.send(command::read_mem, test_client::words({boot::first_url, 512}));
        const auto url = client.receive_reply();
        ASSERT_TRUE(url);
        const std::string said{reinterpret_cast<const char*>(&url->body[4])};
        EXPECT_TRUE(
            said.starts_with(zipped ? "Local:orv_simcam_1_0_0.zip;100000;" : "Local:orv_simcam_1_0_0.xml;100000;"))
            << said;
    }
}

} // namespace
