// The figures of a shared link, worked out by hand.
#include <cli/cameras/link_share.h>

#include <gtest/gtest.h>

using namespace cli;

namespace {

constexpr double gigabit = 125e6;

struct cost_row {
    uint64_t payload, packet_size;
    bool extended;
    uint64_t packets, wire_per_packet;
};
constexpr cost_row costs[] = {
    {1464 * 100, 1500, false, 102, 1538}, // 1500 - 28 - 8
    {1464 * 100 + 1, 1500, false, 103, 1538},
    {1452 * 100, 1500, true, 102, 1538}, // 1500 - 28 - 20
    {5'013'504, 9000, false, 562, 9038}, // 2448 x 2048, 8964 in each
};

struct share_row {
    const char* name;
    std::vector<link_user> users;
    bool fits, limited;
    std::vector<double> shares;
};

} // namespace

TEST(LinkShare, WhatAFrameTakes) {
    for (const cost_row& row : costs) {
        const stream_cost cost = cost_of({row.payload, 10, row.packet_size, row.extended});
        EXPECT_EQ(cost.packets, row.packets) << row.payload;
        EXPECT_EQ(cost.wire_per_packet, row.wire_per_packet) << row.payload;
        EXPECT_DOUBLE_EQ(cost.bytes_per_second, static_cast<double>(10 * row.packets * row.wire_per_packet));
    }
    EXPECT_ANY_THROW((void)cost_of({100, 10, 48, true}));
}

TEST(LinkShare, EverybodyGetsTheSameMultipleOfItsNeed) {
    const share_row rows[] = {
        {"alone", {{50e6, gigabit}}, true, false, {gigabit}},
        {"alone_and_more_than_its_link", {{130e6, gigabit}}, false, false, {gigabit}},
        {"alone_without_room_for_resends", {{110e6, gigabit}}, false, false, {gigabit}},
        {"alone_on_a_faster_link", {{50e6, 10 * gigabit}}, true, true, {100e6}},
        {"two_alike", {{20e6, gigabit}, {20e6, gigabit}}, true, true, {50e6, 50e6}},
        {"one_to_three", {{10e6, gigabit}, {30e6, gigabit}}, true, true, {25e6, 75e6}},
        {"slow_links_cannot_fill_it", {{5e6, 12.5e6}, {5e6, 12.5e6}}, true, false, {12.5e6, 12.5e6}},
        {"a_slow_one_leaves_the_rest", {{10e6, 12.5e6}, {10e6, gigabit}}, true, true, {12.5e6, 87.5e6}},
        {"too_much", {{60e6, gigabit}, {60e6, gigabit}}, false, true, {50e6, 50e6}},
    };
    for (const share_row& row : rows) {
        const link_shares got = share_link(row.users, gigabit, 100e6);
        EXPECT_EQ(got.fits, row.fits) << row.name;
        EXPECT_EQ(got.limited, row.limited) << row.name;
        ASSERT_EQ(got.bytes_per_second.size(), row.shares.size()) << row.name;
        for (size_t i = 0; i < row.shares.size(); ++i)
            EXPECT_DOUBLE_EQ(got.bytes_per_second[i], row.shares[i]) << row.name << i;
    }
}

TEST(LinkShare, ValuesKeepRangeAndSteps) {
    const number_range range{100, 1000, 30}; // up to 1000 = 100 + 30 * 30
    EXPECT_EQ(range.at_most(129.9), 100);
    EXPECT_EQ(range.at_most(130), 130);
    EXPECT_EQ(range.at_most(1e18), 1000);
    EXPECT_EQ(range.at_most(99), std::nullopt);
    EXPECT_EQ(range.at_least(0), 100);
    EXPECT_EQ(range.at_least(130.5), 160);
    EXPECT_EQ(range.at_least(1001), std::nullopt);
    EXPECT_EQ((number_range{0, 995, 30}.at_least(991)), std::nullopt) << "the next step is outside";
}

TEST(LinkShare, ADelayFillsUpAPacketsTimeAtItsShare) {
    const stream_cost cost = cost_of({146'400, 10, 1462, false}); // 1500 bytes of the link: 12 us
    EXPECT_EQ(packet_delay(cost, gigabit / 2, gigabit, 1'000'000'000, {}), 12'000);
    EXPECT_EQ(packet_delay(cost, gigabit / 3, gigabit, 1'000'000'000, {}), 24'000);
    EXPECT_EQ(packet_delay(cost, gigabit / 2, gigabit, 8'000'000, {}), 96) << "ticks of 125 ns";
    EXPECT_EQ(packet_delay(cost, gigabit / 2, gigabit, 62'500, {}), 1) << "ticks of 16 us: never too short";
    EXPECT_EQ(packet_delay(cost, gigabit, gigabit, 1'000'000'000, {}), 0);
    EXPECT_EQ(packet_delay(cost, gigabit / 2, gigabit, 0, {}), std::nullopt) << "a camera without a clock";
    EXPECT_EQ(packet_delay(cost, gigabit / 2, gigabit, 1'000'000'000, {0, 11'999, 1}), std::nullopt);
    EXPECT_DOUBLE_EQ(rate_with_delay(cost, gigabit, 8'000'000, 96), gigabit / 2);
}
