#include <gevdrv_streamchannel/stream_channel_packet_size_test.h>

#include <GenICam/IGenICamDoc.h>
#include <gds_shared/gigecam_error.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <stdexcept>
#include <vector>

using namespace gev::streamchannel::impl;

namespace {

enum class rounding { none, down, up };

// A camera whose test packets arrive up to a size, and which may round sizes.
class camera final : public gev::controlchannel::IControlChannelPort, public packet_size_test_socket_itf {
public:
    rounding way = rounding::none;
    uint32_t step = 1;
    uint32_t largest = 0xFFFF; // larger ones are taken as this
    uint32_t path = 9000;
    unsigned lost_packets = 0; // a bit per test packet, the first one's lowest
    uint32_t refused_above = 0xFFFF;
    uint32_t size = 0;
    std::vector<uint32_t> fired;
    size_t writes = 0;

    [[nodiscard]] uint32_t taken(uint32_t asked) const {
        return way == rounding::none ? asked : (asked + (way == rounding::up ? step - 1 : 0)) / step * step;
    }
    std::expected<uint32_t, std::error_code> read_reg(uint32_t, uint32_t, uint32_t) override {
        return size | 0x40000000;
    }
    std::error_code write_reg(uint32_t address, uint32_t value, uint32_t, uint32_t) override {
        EXPECT_EQ(address, 0x0D44U);
        EXPECT_NE(value & 0x40000000, 0U) << "never to be fragmented";
        if (++writes > 200) throw std::runtime_error("the search does not end");
        if ((value & 0xFFFF) > refused_above) return make_error_code(std::errc::io_error);
        size = std::min(taken(value & 0xFFFF), largest);
        if ((value & 0x80000000) != 0) fired.push_back(size);
        return {};
    }
    std::error_code read_mem(uint32_t, std::span<std::byte>, uint32_t, uint64_t) override { return {}; }
    std::error_code write_mem(uint32_t, std::span<const std::byte>, uint32_t, uint64_t) override { return {}; }
    std::error_code drain_socket() override { return {}; }
    std::error_code receive_packet_and_check_size(uint32_t expected) override {
        const bool lost = fired.size() <= 32 && (lost_packets >> (fired.size() - 1) & 1) != 0;
        if (expected <= path && !lost) return {};
        return make_error_code(gds_shared::gigecam_errc::timeout);
    }
};

bool excluded(uint32_t size) { return size >= 1504 && size <= 1519; }

} // namespace

TEST(PacketSize, TheSearchFindsWhatThePathCarries) {
    struct row {
        packet_size_range range;
        uint32_t path;
        uint32_t expected;
        size_t most_tests;
    };
    const row rows[] = {
        {{1400, 1500}, 0, 1500, 0},    // any network carries this: no test
        {{1400, 9000}, 9000, 9000, 1}, // the largest first, a multiple of 4 or not
        {{1400, 9014}, 9014, 9014, 1},  {{1400, 1501}, 1501, 1501, 1},   {{1400, 1501}, 1500, 1500, 8},
        {{1400, 9000}, 1500, 1500, 20}, {{1400, 16000}, 9000, 9000, 20}, {{1400, 9000}, 1403, 1400, 20}, // the smallest
        {{1400, 9000}, 0, 1484, 20},   // nothing arrives
        {{8000, 5000}, 9000, 5000, 1}, // the largest allowed is less than the camera's smallest
    };
    for (const row& r : rows) {
        SCOPED_TRACE(testing::Message() << r.range.max << " over " << r.path);
        camera sut;
        sut.path = r.path;
        packet_size_test test{sut, sut, 1};
        const auto result = test.evalute_packet_size(r.range);
        ASSERT_TRUE(result);
        EXPECT_EQ(*result, r.expected);
        EXPECT_LE(sut.fired.size(), r.most_tests);
        EXPECT_EQ(sut.size, *result) << "left in the camera";
    }
}

// Whatever the camera makes of a size and the line of a packet: few tests, none in the band that is left out or larger
// than allowed, and what stays in the camera is the largest size that came through. Without losses nothing larger would
// have.
TEST(PacketSize, TheSearchEndsForEveryCamera) {
    size_t searches = 0;
    for (const int32_t max :
         {1400, 1500, 1501, 1503, 1504, 1512, 1519, 1520, 1530, 1604, 1640, 1799, 4000, 8998, 9014, 9216, 31999}) {
        for (const uint32_t step : {1U, 2U, 4U, 8U, 16U, 32U, 100U, 256U, 1000U}) {
            for (const rounding way : {rounding::none, rounding::down, rounding::up}) {
                for (const uint32_t path : {0U, 1400U, 1500U, 1503U, 1510U, 1521U, 1600U, 3999U, 9000U, 65535U}) {
                    for (const unsigned lost : {0U, 1U, 2U, 0x15555U, 0x2AAAAU, 0xFFFF0U}) {
                        SCOPED_TRACE(testing::Message() << max << " step " << step << " way " << static_cast<int>(way)
                                                        << " path " << path << " lost " << lost);
                        camera sut;
                        sut.way = way;
                        sut.step = step;
                        sut.path = path;
                        sut.lost_packets = lost;
                        packet_size_test test{sut, sut, 1};
                        const auto result = test.evalute_packet_size({1400, max});
                        ASSERT_TRUE(result);
                        ++searches;
                        EXPECT_LE(sut.fired.size(), 20U);
                        EXPECT_LE(*result, static_cast<uint32_t>(max));
                        EXPECT_LE(sut.writes, 64U);
                        EXPECT_EQ(sut.size, *result);
                        uint32_t best = 0;
                        bool carried = false;
                        for (size_t i = 0; i < sut.fired.size(); ++i) {
                            const uint32_t size = sut.fired[i];
                            EXPECT_FALSE(excluded(size)) << size;
                            if (size > path || (i < 32 && (lost >> i & 1) != 0)) continue;
                            best = std::max(best, size);
                            carried = true;
                        }
                        EXPECT_TRUE(!carried || *result == best) << *result << " and not " << best;
                        EXPECT_FALSE(excluded(*result));
                        if (lost != 0 || max <= 1500) continue; // what any network carries is not tested
                        for (int32_t size = static_cast<int32_t>(std::max(best, 1400U)) / 4 * 4; size <= max;
                             size += 4) {
                            const uint32_t larger = sut.taken(static_cast<uint32_t>(size));
                            const bool to_be_found = larger > best && larger <= path &&
                                                     larger <= static_cast<uint32_t>(max) && !excluded(larger) &&
                                                     !excluded(static_cast<uint32_t>(size));
                            EXPECT_FALSE(to_be_found) << size << " would have been taken as " << larger;
                        }
                    }
                }
            }
        }
    }
    EXPECT_GT(searches, 10'000U);
}

// The register that refuses sizes makes them sizes that fail; only the last setting's error is the search's.
TEST(PacketSize, SizesThatTheCameraRefusesAreSizesThatFail) {
    for (const auto& [refused_above, expected] : {std::pair{4000U, 4000U}, {1483U, 0U}, {1399U, 0U}}) {
        camera sut;
        sut.refused_above = refused_above;
        sut.path = refused_above < 1484 ? 0 : 9014;
        packet_size_test test{sut, sut, 1};
        const auto result = test.evalute_packet_size({1400, 9014});
        EXPECT_EQ(result.value_or(0), expected);
        EXPECT_LE(sut.writes, 40U);
    }
}

TEST(PacketSize, RangeFromTheRegisterIsBounded) {
    camera sut;
    sut.largest = 8228;
    packet_size_test test{sut, sut, 1};
    const auto range = test.range_from_register(9216);
    ASSERT_TRUE(range);
    EXPECT_EQ(range->min, 1400);
    EXPECT_EQ(range->max, 8228);
}

// A camera's limits change with its link and its mode: those that it had when somebody read them last say nothing.
TEST(PacketSize, RangeFromTheDocumentIsTheCamerasPresentOne) {
    const auto document = GenICam::create_document(std::string_view{
        "<R><Integer Name='GevSCPSPacketSize'><Value>1500</Value><pMin>Least</pMin><pMax>Most</pMax></Integer>"
        "<IntReg Name='Least'><Address>0</Address><Length>4</Length><pPort>Device</pPort></IntReg>"
        "<IntReg Name='Most'><Address>4</Address><Length>4</Length><pPort>Device</pPort></IntReg>"
        "<Port Name='Device'/></R>"});
    ASSERT_TRUE(document);
    std::array<std::byte, 8> memory{};
    ASSERT_FALSE(document->find<GenICam::IPort>("Device")->bind(std::span{memory}, 0));
    auto* const node = document->find<GenICam::IInteger>("GevSCPSPacketSize");
    ASSERT_NE(node, nullptr);
    const auto limits = [&](uint8_t least, uint8_t most) { // in steps of 256
        memory[2] = std::byte{least};
        memory[6] = std::byte{most};
        const auto range = packet_size_test::get_payload_size_range_from_genicam(*node, 16000);
        return range ? std::pair{range->min, range->max} : std::pair{0, 0};
    };
    EXPECT_EQ(limits(6, 32), std::pair(1536, 8192));
    EXPECT_EQ(limits(7, 16), std::pair(1792, 4096));
}
