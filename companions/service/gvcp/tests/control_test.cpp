#include "test_cameras.h"

#include <camera_sim/registers.h>
#include <gvcp/message_receiver.h>

#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>

namespace {

using namespace gvcp_master;
using gds_shared::gigecam_errc;
namespace boot = gige::gvcp::reg;
namespace sim = camera_sim::reg;

TEST(GvcpControl, memory_of_any_length_and_alignment) {
    const auto cam = start(small_camera(1));
    const auto device = open(*cam);
    // A table of 1024 bytes: longer than one datagram carries.
    std::vector<std::byte> expected(1024);
    for (std::size_t i = 0; i < expected.size(); ++i) expected[i] = static_cast<std::byte>(i * 7 + (i >> 8));
    ASSERT_FALSE(device->write_memory(sim::lut_content, expected));
    struct {
        std::size_t offset, size;
    } const cases[]{{0, 1024}, {1, 1}, {3, 2}, {2, 536}, {5, 1019}, {4, 4}, {535, 3}, {0, 0}, {7, 5}};
    for (const auto& [offset, size] : cases) {
        std::vector<std::byte> got(size);
        ASSERT_FALSE(device->read_memory(sim::lut_content + offset, got)) << offset << ' ' << size;
        EXPECT_TRUE(std::equal(got.begin(), got.end(), &expected[0] + offset)) << offset << ' ' << size;
        for (auto& each : got) each ^= std::byte{0x5A};
        std::copy(got.begin(), got.end(), expected.begin() + static_cast<std::ptrdiff_t>(offset));
        ASSERT_FALSE(device->write_memory(sim::lut_content + offset, got)) << offset << ' ' << size;
        std::vector<std::byte> all(1024);
        ASSERT_FALSE(device->read_memory(sim::lut_content, all));
        EXPECT_EQ(all, expected) << offset << ' ' << size;
    }
}

TEST(GvcpControl, status_values_become_errors) {
    const auto cam = start(small_camera(1));
    const auto device = open(*cam);
    std::array<std::byte, 8> bytes{};
    EXPECT_EQ(device->read_memory(0x9000, bytes), gigecam_errc::invalid_address);
    EXPECT_EQ(device->read_memory(0x1'0000'0000, bytes), gigecam_errc::invalid_address);
    EXPECT_EQ(device->read_memory(0xFFFFFFFC, bytes), gigecam_errc::invalid_address);
    EXPECT_EQ(device->write_register(boot::mac_low, 1), gigecam_errc::write_protect);
    EXPECT_EQ(device->write_register(sim::width, 3), gigecam_errc::invalid_parameter);
    EXPECT_EQ(device->write_user_name(std::string(16, 'x')), gigecam_errc::invalid_parameter);
    EXPECT_FALSE(device->write_user_name("right"));
    EXPECT_EQ(device->read_text(boot::user_name, 16).value_or(""), "right");
}

TEST(GvcpControl, privileges) {
    const auto cam = start(small_camera(1));
    auto first = open(*cam, {.access = access_mode::control});
    const auto reader = open(*cam, {.access = access_mode::read_only});
    EXPECT_EQ(reader->read_register(sim::sensor_width).value_or(0), 320U);
    EXPECT_EQ(reader->write_register(sim::width, 160), gigecam_errc::access_denied);
    EXPECT_EQ(error_of(device_control::open({.device = first->device(), .local_address = own_address(250)})),
              gigecam_errc::access_denied);
    EXPECT_EQ(cam->peek(boot::privilege), 2U) << "the refused one must not have freed it";
    first.reset();
    EXPECT_EQ(cam->peek(boot::privilege), 0U);
    constexpr std::array wanted{std::byte{0}, std::byte{0}, std::byte{0}, std::byte{2}};
    EXPECT_EQ(reader->write_register(boot::privilege, 2), gigecam_errc::access_denied);
    EXPECT_EQ(reader->write_memory(boot::privilege, wanted), gigecam_errc::access_denied);
    EXPECT_EQ(cam->peek(boot::privilege), 0U) << "who reads would leave it held when he has gone";
    EXPECT_TRUE(open(*cam, {.access = access_mode::exclusive}));
}

// Those of the socket and of what wakes it; the one that asks has more to do than to open it.
TEST(GvcpControl, without_descriptors_an_opening_says_so) {
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "the sanitizer itself looks at exceptions through pipes";
#endif
    rlimit before{};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
    const int next = ::dup(STDERR_FILENO);
    ::close(next);
    for (const rlim_t left : {0, 1, 2}) {
        const rlimit few{static_cast<rlim_t>(next) + left, before.rlim_max};
        ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &few), 0);
        const auto opened = control_channel::open({own_address(1), gige::gvcp::port}, {own_address(250), 0}, {});
        ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &before), 0);
        EXPECT_EQ(error_of(opened), std::errc::too_many_files_open) << left;
    }
}

// As when its interface has gone for a moment: to the camera it may still be the controller.
TEST(GvcpControl, a_lost_session_gives_control_back_and_keeps_it_by_nothing) {
    const auto cam = start(small_camera(1));
    auto lost = open(*cam, {.heartbeat_timeout = milliseconds{600'000}});
    lost->give_up();
    EXPECT_EQ(lost->request_resend(0, 1, 0, 0, false), gigecam_errc::device_lost);
    const uint16_t port = lost->local().port;
    lost.reset();
    EXPECT_TRUE(eventually([&] { return cam->peek(boot::privilege) == 0; }, milliseconds{10'000}));

    lost = open(*cam, {.port = port});
    lost->give_up();
    cam->reboot();
    ASSERT_TRUE(eventually([&] { return cam->peek(boot::privilege) == 0; }));
    const auto next = open(*cam, {.port = port, .patient = true});
    lost.reset();
    EXPECT_EQ(next->read_register(boot::privilege).value_or(0), 2U) << "what has become another's is not given back";
}

TEST(GvcpControl, a_session_that_says_nothing_is_kept) {
    const auto cam = start(small_camera(1));
    const auto device = open(*cam, {.heartbeat_timeout = milliseconds{1500}});
    std::this_thread::sleep_for(milliseconds{2000});
    EXPECT_EQ(cam->stats().heartbeats_missed, 0U);
    EXPECT_EQ(cam->peek(boot::privilege), gige::gvcp::bits::control);
}

// At a rate at which hundreds pass before one is repeated.
TEST(GvcpControl, events_that_are_lost_on_the_way_come_later_and_none_comes_twice) {
    constexpr uint16_t count = 4000;
    auto options = small_camera(1);
    options.faults.event_loss = 0.2;
    const auto cam = start(options);
    const auto device = open(*cam);
    std::atomic<uint32_t> total = 0;
    std::vector<int> came(count);
    auto receiver = message_receiver::open(*device, own_address(250), [&](std::span<const std::byte> event) {
        ++came[gige::load16(&event[gige::gvcp::header_size + 16])];
        ++total;
    });
    ASSERT_TRUE(receiver) << receiver.error().message();
    for (uint16_t i = 0; i < count; ++i) {
        std::array<std::byte, 2> number;
        gige::store16(number.data(), i);
        cam->send_event(0x9ABC, number);
        ASSERT_TRUE(eventually([&] { return cam->stats().events_acknowledged + 200U > i; })) << "what a socket holds";
    }
    EXPECT_TRUE(eventually([&] { return cam->stats().events_acknowledged == count; }));
    receiver->reset();
    EXPECT_EQ(total, count);
    EXPECT_TRUE(std::ranges::all_of(came, [](int times) { return times == 1; }));
}

} // namespace
