// The shared link alone: what its buffer holds, and that threads' timing changes nothing.
#include <camera_sim/shared_link.h>

#include <gtest/gtest.h>

#include <thread>

using camera_sim::shared_link;
using namespace std::chrono_literals;

namespace {

constexpr shared_link::time_point origin{};
const std::atomic<bool> nobody_gives_up{};

// How many of the packets each of the senders loses: packet i of sender s is due at `phase[s] + i * gap[s]`.
std::vector<int> dropped(std::vector<std::chrono::microseconds> phase, std::vector<std::chrono::microseconds> gap,
                         std::chrono::milliseconds pause, size_t pausing) {
    constexpr int packets = 300;
    shared_link link{1'000'000, 10'000}; // a packet of 1000 bytes takes 1 ms
    std::vector<int> lost(phase.size());
    for (size_t s = 0; s < phase.size(); ++s) link.promise(link.add_sender(), origin + phase[s]);
    std::vector<std::thread> threads;
    for (size_t s = 0; s < phase.size(); ++s) {
        threads.emplace_back([&, s] {
            for (int i = 0; i < packets; ++i) {
                if (s == pausing && i % 100 == 50) std::this_thread::sleep_for(pause);
                if (!link.pass(s, origin + phase[s] + i * gap[s], 1000, nobody_gives_up)) ++lost[s];
            }
            link.leave(s);
        });
    }
    for (std::thread& each : threads) each.join();
    return lost;
}

} // namespace

TEST(SharedLink, a_full_buffer_drops_and_empties_at_the_links_rate) {
    shared_link link{1'000'000, 3000};
    const size_t sender = link.add_sender();
    const auto pass = [&](std::chrono::microseconds at) {
        return link.pass(sender, origin + at, 1000, nobody_gives_up);
    };
    EXPECT_TRUE(pass(0us));
    EXPECT_TRUE(pass(0us));
    EXPECT_TRUE(pass(0us));
    EXPECT_FALSE(pass(0us));
    EXPECT_FALSE(pass(999us)) << "the first has not left";
    EXPECT_TRUE(pass(1000us));
    EXPECT_FALSE(pass(1000us));
    EXPECT_TRUE(pass(10'000us));
    EXPECT_FALSE(link.pass(sender, origin, 3001, nobody_gives_up)) << "larger than the buffer";
}

TEST(SharedLink, what_is_lost_follows_from_the_schedule_alone) {
    // Together 2.25 packets in the time of one, of which one is forwarded.
    const auto expected = dropped({0us, 100us, 200us}, {1000us, 1600us, 1600us}, 0ms, 0);
    EXPECT_GT(expected[0] + expected[1] + expected[2], 300);
    for (size_t pausing = 0; pausing < 3; ++pausing)
        EXPECT_EQ(dropped({0us, 100us, 200us}, {1000us, 1600us, 1600us}, 30ms, pausing), expected) << pausing;
    EXPECT_EQ(dropped({0us, 0us, 0us}, {3000us, 3000us, 3000us}, 5ms, 1), (std::vector{0, 0, 0}))
        << "it carries them all";
}

TEST(SharedLink, who_begins_is_waited_for_and_never_too_late) {
    shared_link link{1'000'000, 3000};
    const size_t early = link.add_sender(), newcomer = link.add_sender();
    const auto begun = link.join(newcomer);
    const std::atomic<bool> given_up{true};
    EXPECT_FALSE(link.pass(early, begun + 1h, 1000, given_up));
    link.leave(newcomer);
    EXPECT_TRUE(link.pass(early, begun + 1h, 1000, nobody_gives_up));
    EXPECT_GE(link.join(newcomer), begun + 1h) << "the link's time has passed it already";
}

TEST(SharedLink, who_gives_up_waits_for_nobody) {
    shared_link link{1'000'000, 3000};
    const size_t first = link.add_sender(), second = link.add_sender();
    link.promise(first, origin);
    const std::atomic<bool> given_up{true};
    EXPECT_FALSE(link.pass(second, origin + 1ms, 1000, given_up));
    link.leave(first);
    EXPECT_TRUE(link.pass(second, origin + 1ms, 1000, nobody_gives_up));
}
