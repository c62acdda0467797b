#include <gevdrv_streamchannel/stream_channel_packet_size_test.h>

#include <gds_shared/gigecam_error.h>

#include <gtest/gtest.h>

#include <functional>
#include <vector>

using namespace gev::streamchannel::impl;

namespace {

// A camera whose test packets arrive up to a size, and which may round sizes.
class camera final : public gev::controlchannel::IControlChannelPort, public packet_size_test_socket_itf {
public:
    std::function<uint32_t(uint32_t)> round = [](uint32_t asked) { return asked; };
    uint32_t path = 9000;
    uint32_t size = 0;
    std::vector<uint32_t> fired;

    std::expected<uint32_t, std::error_code> read_reg(uint32_t, uint32_t, uint32_t) override {
        return size | 0x40000000;
    }
    std::error_code write_reg(uint32_t address, uint32_t value, uint32_t, uint32_t) override {
        EXPECT_EQ(address, 0x0D44U);
        EXPECT_NE(value & 0x40000000, 0U) << "never to be fragmented";
        size = round(value & 0xFFFF);
        if ((value & 0x80000000) != 0) fired.push_back(size);
        return {};
    }
    std::error_code read_mem(uint32_t, std::span<std::byte>, uint32_t, uint64_t) override { return {}; }
    std::error_code write_mem(uint32_t, std::span<const std::byte>, uint32_t, uint64_t) override { return {}; }
    std::error_code drain_socket() override { return {}; }
    std::error_code receive_packet_and_check_size(uint32_t expected) override {
        if (expected <= path) return {};
        return make_error_code(gds_shared::gigecam_errc::timeout);
    }
};

} // namespace

TEST(PacketSize, TheSearchFindsWhatThePathCarries) {
    struct row {
        packet_size_range range;
        uint32_t path;
        uint32_t lowest, highest; // of the result
        size_t most_tests;
    };
    const row rows[] = {
        {{1400, 1500}, 0, 1500, 1500, 0},    // any network carries this: no test
        {{1400, 9000}, 9000, 9000, 9000, 1}, // the largest first
        {{1400, 9000}, 1500, 1400, 1503, 20}, {{1400, 16000}, 9000, 8900, 9000, 20},
        {{1400, 9000}, 0, 1484, 1484, 20}, // nothing arrives
    };
    for (const row& r : rows) {
        camera sut;
        sut.path = r.path;
        packet_size_test test{sut, sut, 1};
        const auto result = test.evalute_packet_size(r.range);
        ASSERT_TRUE(result);
        EXPECT_GE(*result, r.lowest) << r.range.max;
        EXPECT_LE(*result, r.highest) << r.range.max;
        EXPECT_LE(sut.fired.size(), r.most_tests);
        EXPECT_EQ(sut.size, *result) << "left in the camera";
        for (const uint32_t size : sut.fired) EXPECT_FALSE(size >= 1504 && size <= 1519) << size;
    }
}

TEST(PacketSize, ARoundingCameraIsBelieved) {
    camera sut;
    sut.round = [](uint32_t asked) { return asked / 100 * 100; };
    sut.path = 4000;
    packet_size_test test{sut, sut, 1};
    const auto result = test.evalute_packet_size({1400, 9000});
    ASSERT_TRUE(result);
    EXPECT_EQ(*result % 100, 0U);
    EXPECT_LE(*result, 4000U);
    EXPECT_GE(*result, 3700U);
}

TEST(PacketSize, RangeFromTheRegisterIsBounded) {
    camera sut;
    sut.round = [](uint32_t asked) { return std::min(asked, 8228U); };
    packet_size_test test{sut, sut, 1};
    const auto range = test.range_from_register(9216);
    ASSERT_TRUE(range);
    EXPECT_EQ(range->min, 1400);
    EXPECT_EQ(range->max, 8228);
}
