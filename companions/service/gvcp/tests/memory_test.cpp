// No memory, at each place in turn where the search asks for some: it goes on, and finds what there is.
#include <gvcp/discovery.h>
#include <support/eventually.h>
#include <support/failing_memory.h>
#include <support/small_camera.h>

#include <gige/gvcp.h>

#include <gtest/gtest.h>

#include <array>
#include <cstdint>

TEST(Memory, ItsLackEndsASearchAndNothingElse) {
    using namespace std::chrono_literals;
    namespace gvcp = gige::gvcp;
    const uint32_t address = camera_sim::own_address(1);
    auto camera = gige::udp_socket::open({address, gvcp::port});
    ASSERT_TRUE(camera);
    for (int place = 0; place < 60; ++place) {
        SCOPED_TRACE(place);
        gvcp_master::discovery finder{
            {.networks = false, .loopback = false, .addresses = {address}, .interval = 20ms, .window = 10ms}, {}};
        failing_memory::fail(place, failing_memory::other_threads);
        std::array<std::byte, 600> request;
        // The camera, played by this thread.
        const auto eventually_with_camera = [&](auto&& condition) {
            return test_support::eventually([&] {
                gige::endpoint from;
                while (const auto size = camera->receive(request, from)) {
                    const auto got = gvcp::parse_command(std::span{request}.first(*size));
                    if (!got || got->code != gvcp::command::discovery) continue;
                    std::array<std::byte, gvcp::header_size + gvcp::discovery_size> answer{};
                    gvcp::store_ack(answer.data(), {gvcp::status::success, gvcp::command::discovery_ack,
                                                    gvcp::discovery_size, got->request_id});
                    gige::store32(&answer[gvcp::header_size + gvcp::reg::current_address], address);
                    static_cast<void>(camera->send(from, answer));
                }
                return condition();
            });
        };
        ASSERT_TRUE(eventually_with_camera([] { return failing_memory::failures() != 0; }))
            << "nothing asks for memory any more";
        EXPECT_TRUE(eventually_with_camera([&] {
            const auto list = finder.list();
            return list.size() == 1 && list.front().devices.size() == 1;
        }));
    }
}
