#include "test_client.h"

#include "../src/document.h"

#include <camera_sim/firmware_image.h>
#include <camera_sim/registers.h>
#include <gige/firmware.h>
#include <support/document_rules.h>
#include <support/error_of.h>
#include <support/eventually.h>

#include <zlib.h>

#include <atomic>
#include <bit>
#include <cmath>

namespace {

using namespace camera_sim;

class CameraControl : public testing::Test {
protected:
    const std::unique_ptr<camera> cam = start(small_camera(1));
    test_client client{cam->address()};
};

uint32_t sum_of(std::span<const std::byte> bytes) {
    return static_cast<uint32_t>(
        ::crc32(0, reinterpret_cast<const unsigned char*>(bytes.data()), static_cast<unsigned>(bytes.size())));
}

TEST_F(CameraControl, status_values_of_bad_requests) {
    (void)client.read(0x0001, status::bad_alignment);
    (void)client.read(0x9000, status::invalid_address);
    (void)client.read(0xFFFFFFFC, status::invalid_address);
    EXPECT_EQ(client.write(boot::heartbeat_timeout, 1000), status::access_denied) << "without control";
    ASSERT_EQ(client.write(boot::privilege, bits::control), status::success);
    EXPECT_EQ(client.write(boot::mac_low, 1), status::write_protect);
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
    // Last: a thread that stands still for as long loses control.
    EXPECT_EQ(client.write(boot::heartbeat_timeout, 100), status::success);
    EXPECT_EQ(client.read(boot::heartbeat_timeout), 500U) << "raised to the least allowed";
}

TEST_F(CameraControl, privileges_of_two_consumers) {
    test_client other{cam->address()};
    ASSERT_EQ(client.write(boot::privilege, bits::control), status::success);
    EXPECT_EQ(other.write(boot::privilege, bits::control), status::access_denied);
    EXPECT_EQ(other.read(boot::privilege), bits::control) << "reading stays allowed";
    ASSERT_NE(other.read(boot::control_capability) & bits::has_primary, 0U);
    EXPECT_EQ(other.read(boot::primary_address), client.control.local().address) << "who has it is told";
    EXPECT_EQ(other.read(boot::primary_port), client.control.local().port);
    EXPECT_EQ(client.write(boot::primary_address, 1), status::write_protect);
    ASSERT_EQ(client.write(boot::privilege, bits::exclusive), status::success);
    (void)other.read(boot::privilege, status::access_denied);
    ASSERT_EQ(client.write(boot::privilege, bits::control | bits::switchover), status::success);
    EXPECT_EQ(other.write(boot::privilege, bits::control), status::success) << "switch-over allowed";
    EXPECT_EQ(client.write(reg::width, 160), status::access_denied);
    EXPECT_EQ(client.read(boot::primary_port), other.control.local().port);
    EXPECT_EQ(other.write(boot::privilege, 0), status::success);
    EXPECT_EQ(other.read(boot::primary_address), 0U);
    EXPECT_EQ(client.write(boot::privilege, bits::exclusive), status::success);
}

TEST_F(CameraControl, heartbeat_loss_frees_everything) {
    client.open_stream(1500);
    ASSERT_EQ(client.write(boot::heartbeat_timeout, 500), status::success);
    EXPECT_TRUE(test_support::eventually([&] { return cam->stats().heartbeats_missed == 1; }));
    EXPECT_EQ(client.read(boot::privilege), 0U);
    EXPECT_EQ(client.read(boot::stream_port), 0U);
}

TEST_F(CameraControl, repetitions_are_answered_without_a_second_execution) {
    ASSERT_EQ(client.write(boot::privilege, bits::control), status::success);
    ASSERT_EQ(client.write(reg::event_notification, 1), status::success);
    for (int i = 0; i < 2; ++i) {
        client.send(command::write_reg, test_client::words({reg::trigger_software, 1}), 1, 0x7777);
        ASSERT_TRUE(client.receive_reply());
    }
    EXPECT_EQ(cam->stats().control_repeated, 1U);
}

TEST(CameraOptions, pending_ack_comes_first) {
    auto options = small_camera(1);
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

TEST(CameraOptions, an_extended_event_tells_its_size) {
    for (const bool plain : {false, true}) {
        auto options = small_camera(1);
        options.extended_ids = true;
        options.plain_events = plain;
        const auto cam = start(options);
        test_client client{cam->address()};
        ASSERT_EQ(client.write(boot::privilege, bits::control), status::success);
        ASSERT_EQ(client.write(boot::message_address, client.stream.local().address), status::success);
        ASSERT_EQ(client.write(boot::message_port, client.stream.local().port), status::success);
        cam->send_event(0x9ABC, std::array<std::byte, 5>{});
        const auto got = client.receive(client.stream);
        ASSERT_TRUE(got);
        EXPECT_EQ(gige::load16(&(*got)[8]), got->size() - gige::gvcp::header_size) << plain;
        EXPECT_EQ(gige::load16(&(*got)[10]), 0x9ABCU);
    }
}

TEST_F(CameraControl, float_registers_keep_to_the_ranges_of_the_document) {
    ASSERT_EQ(client.write(boot::privilege, bits::control), status::success);
    const auto write_double = [&](double value) {
        const auto raw = std::bit_cast<uint64_t>(value);
        client.send(command::write_mem, test_client::words({reg::exposure_time, static_cast<uint32_t>(raw >> 32),
                                                            static_cast<uint32_t>(raw)}));
        return client.receive_reply()->header.result;
    };
    for (const double value : {10.0, 1e6}) EXPECT_EQ(write_double(value), status::success) << value;
    for (const double value : {9.9, 1.1e6, 1e12, -1.0, double{NAN}, double{INFINITY}})
        EXPECT_EQ(write_double(value), status::invalid_parameter) << value;
    EXPECT_EQ(client.write(reg::exposure_time, 0x7FF00000), status::invalid_parameter) << "half of it";
    EXPECT_EQ(client.read(reg::exposure_time), std::bit_cast<uint64_t>(1e6) >> 32);
    struct {
        uint32_t address;
        float value;
        status result;
    } const cases[]{{reg::frame_rate, 0.1F, status::success},
                    {reg::frame_rate, 1e4F, status::success},
                    {reg::frame_rate, 1.1e4F, status::invalid_parameter},
                    {reg::frame_rate, 0, status::invalid_parameter},
                    {reg::gamma, 4, status::success},
                    {reg::gamma, 4.1F, status::invalid_parameter},
                    {reg::gamma, NAN, status::invalid_parameter}};
    for (const auto& [address, value, result] : cases)
        EXPECT_EQ(client.write(address, std::bit_cast<uint32_t>(value)), result) << std::hex << address << ' ' << value;
}

TEST(CameraOptions, refusals_are_counted_and_said_and_resends_may_come_from_the_stream_socket) {
    auto options = small_camera(1);
    std::atomic<int> said = 0;
    options.log = [&](const std::string&) { ++said; };
    const auto cam = start(options);
    test_client client{cam->address()};
    const auto ask = [&](const gige::udp_socket& from) {
        std::vector<std::byte> datagram(8);
        gige::gvcp::store_command(datagram.data(), {0, command::packet_resend, 12, ++client.next_id});
        const auto body = test_client::words({1, 1, 2});
        datagram.insert(datagram.end(), body.begin(), body.end());
        EXPECT_FALSE(from.send({cam->address(), gige::gvcp::port}, datagram));
        (void)client.read(boot::version); // it has seen both
    };
    client.send(command::action, test_client::words({1, 0, 1}),
                0);     // other cameras' key; a test beside may broadcast it
    ask(client.stream); // nobody has control
    EXPECT_EQ(cam->stats().resends_refused, 1U);
    EXPECT_EQ(cam->stats().requests_refused, 1U);
    client.open_stream(1500);
    const auto stranger = gige::udp_socket::open({own_address(251), 0});
    ask(*stranger);
    EXPECT_EQ(cam->stats().requests_refused, 2U);
    ask(client.stream);
    EXPECT_EQ(cam->stats().requests_refused, 2U) << "of the holder's host";
    EXPECT_EQ(cam->stats().resend_requests, 1U);
    EXPECT_EQ(client.write(reg::width, 3), status::invalid_parameter);
    EXPECT_EQ(cam->stats().requests_refused, 3U);
    EXPECT_EQ(said, 3);
}

TEST_F(CameraControl, an_address_has_one_camera_and_options_have_ranges) {
    EXPECT_EQ(test_support::error_of(camera::start(small_camera(1))), std::errc::address_in_use);
    auto options = small_camera(2);
    options.width = 12;
    EXPECT_EQ(camera::problem_with(options), "the width is 12; it must be a multiple of 8");
    options.width = 328;
    EXPECT_EQ(camera::problem_with(options), "the width is 328; it must be 0 to 320");
    EXPECT_EQ(camera::start(options).error(), std::errc::invalid_argument);
}

TEST_F(CameraControl, the_discovery_delay_holds_back_the_answer_to_a_search) {
    ASSERT_EQ(client.write(boot::privilege, bits::control), status::success);
    ASSERT_EQ(client.write(boot::discovery_delay, 400), status::success);
    // At random within the time: of several searches one is overtaken by what is asked behind it.
    int overtaken = 0;
    for (int i = 0; i < 5; ++i) {
        client.send(command::discovery, {});
        const auto id = client.next_id;
        client.send(command::read_reg, test_client::words({boot::version}));
        const auto first = client.receive_reply();
        const auto second = client.receive_reply();
        ASSERT_TRUE(first && second);
        overtaken += second->header.request_id == id ? 1 : 0;
    }
    EXPECT_GT(overtaken, 0);
}

TEST(CameraOptions, document_keeps_the_rules_of_the_standard) {
    for (const bool zipped : {false, true}) {
        auto options = small_camera(1);
        options.zipped_document = zipped;
        const auto cam = start(options);
        EXPECT_EQ(document_rules::broken(cam->document()), std::vector<std::string>{});
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

// The image of another model, one that is not what its checksum says, and one that broke off.
TEST_F(CameraControl, firmware_that_is_not_its_own_or_not_whole_is_not_taken) {
    namespace fw = gige::firmware;
    const auto put = [&](std::span<const std::byte> image) {
        for (std::size_t at = 0; at < image.size(); at += 4) // whole words
            EXPECT_EQ(client.write(reg::firmware_region + static_cast<uint32_t>(at), gige::load32(&image[at])),
                      status::success);
    };
    const auto state = [&] { return fw::state_of(client.read(reg::firmware_control + fw::progress)); };
    EXPECT_EQ(client.write(boot::privilege, bits::control), status::success);
    EXPECT_EQ(client.write(reg::firmware_region, 0), status::access_denied) << "nothing has begun";
    EXPECT_EQ(client.write(reg::firmware_control + fw::length, reg::firmware_region_size + 4),
              status::invalid_parameter);
    const auto begin = [&](uint32_t length, uint32_t sum) {
        EXPECT_EQ(client.write(reg::firmware_control + fw::length, length), status::success);
        EXPECT_EQ(client.write(reg::firmware_control + fw::checksum, sum), status::success);
        EXPECT_EQ(client.write(reg::firmware_control + fw::command, fw::begin), status::success);
        EXPECT_EQ(state(), fw::state::receiving);
    };
    constexpr uint32_t size = 64;
    for (const char* model : {"Other", "SimCam"}) {
        const auto image = make_firmware_image({model, "2"}, size);
        const bool sound = model == std::string{"Other"}; // but for its model
        begin(size, sound ? sum_of(image) : sum_of(image) + 1);
        put(image);
        EXPECT_EQ(client.write(reg::firmware_control + fw::command, fw::install), status::success);
        EXPECT_EQ(state(), fw::state::refused) << model;
    }
    begin(size, 0);
    EXPECT_EQ(client.write(boot::privilege, 0), status::success);
    EXPECT_EQ(state(), fw::state::idle) << "whoever held it has gone";
    EXPECT_EQ(cam->stats().reboots, 0U);
}

} // namespace
