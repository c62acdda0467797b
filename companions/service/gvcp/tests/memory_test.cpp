// No memory, at each place in turn where the search asks for some: it goes on, and finds what there is.
#include "../../../../libs/service-base/tests/support.h"

#include <gvcp/discovery.h>

#include <gige/gvcp.h>

#include <gtest/gtest.h>

#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<long> until_failure{-1}; // allocations of other threads that still succeed; negative: all
thread_local bool is_test_thread = false;

} // namespace

[[gnu::noinline]] void* operator new(std::size_t size) {
    if (!is_test_thread && until_failure >= 0 && until_failure-- == 0) throw std::bad_alloc{};
    if (void* memory = std::malloc(size != 0 ? size : 1)) return memory;
    throw std::bad_alloc{};
}
[[gnu::noinline]] void operator delete(void* memory) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

TEST(Memory, ItsLackEndsASearchAndNothingElse) {
    using namespace std::chrono_literals;
    namespace gvcp = gige::gvcp;
    is_test_thread = true;
    const auto pid = static_cast<uint32_t>(getpid());
    const uint32_t address = 127U << 24 | (20 + pid % 200) << 16 | (1 + pid / 200 % 250) << 8 | 1;
    auto camera = gige::udp_socket::open({address, gvcp::port});
    ASSERT_TRUE(camera);
    for (long place = 0; place < 60; ++place) {
        SCOPED_TRACE(place);
        gvcp_master::discovery finder{
            {.networks = false, .loopback = false, .addresses = {address}, .interval = 20ms, .window = 10ms}, {}};
        until_failure = place;
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
        ASSERT_TRUE(eventually_with_camera([] { return until_failure < 0; })) << "nothing asks for memory any more";
        EXPECT_TRUE(eventually_with_camera([&] {
            const auto list = finder.list();
            return list.size() == 1 && list.front().devices.size() == 1;
        }));
    }
}
