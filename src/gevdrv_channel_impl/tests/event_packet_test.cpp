#include <gevdrv_channel_impl/event_packet_parser.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using gev::controlchannel::parse_single_event_cmd_packet;

std::vector<std::byte> bytes(std::initializer_list<int> values, size_t size) {
    std::vector<std::byte> packet;
    for (const int value : values) packet.push_back(static_cast<std::byte>(value));
    packet.resize(size);
    return packet;
}

// Header, then: reserved, id 0x9C43, channel 1, block 0x1234, timestamp 0x0102030405060708.
const auto standard = bytes({0x42, 0x00, 0x00, 0xC2, 0, 20, 0, 7, 0, 0, 0x9C, 0x43, 0,    1,
                             0x12, 0x34, 1,    2,    3, 4,  5, 6, 7, 8, 0xDE, 0xAD, 0xBE, 0xEF},
                            28);
// Extended: reserved, id, reserved word, block 0x1112131415161718, timestamp 0x0102030405060708.
const auto extended = bytes({0x42, 0x11, 0x00, 0xC2, 0,    24,   0,    7,    0, 0, 0x9C, 0x43, 0, 0, 0, 0,
                             0x11, 0x12, 0x13, 0x14, 0x15, 0x16, 0x17, 0x18, 1, 2, 3,    4,    5, 6, 7, 8},
                            32);

TEST(EventPacket, gives_the_fields_of_both_forms) {
    const auto plain = parse_single_event_cmd_packet(standard);
    ASSERT_TRUE(plain);
    EXPECT_EQ(plain->event_id, 0x9C43);
    EXPECT_EQ(plain->block_id, 0x1234U);
    EXPECT_EQ(plain->timestamp, 0x0102030405060708U);
    EXPECT_EQ(plain->body.data(), standard.data() + 8);
    EXPECT_EQ(plain->body.size(), 20U);

    const auto wide = parse_single_event_cmd_packet(extended);
    ASSERT_TRUE(wide);
    EXPECT_EQ(wide->event_id, 0x9C43);
    EXPECT_EQ(wide->block_id, 0x1112131415161718U);
    EXPECT_EQ(wide->timestamp, 0x0102030405060708U);
    EXPECT_EQ(wide->body.size(), 24U);
}

struct edit {
    const char* what;
    const std::vector<std::byte>* packet;
    size_t at;
    int value;
    bool parses;
};

TEST(EventPacket, refuses_what_is_no_whole_event) {
    const edit edits[] = {
        {"other key", &standard, 0, 0x41, false},
        {"no request id", &standard, 7, 0, false},
        {"EVENT command", &standard, 3, 0xC0, false},
        {"acknowledge", &standard, 3, 0xC3, false},
        {"fields only", &standard, 5, 16, true},
        {"a byte short", &standard, 5, 15, false},
        {"beyond the packet", &standard, 5, 21, false},
        {"extended, whole", &extended, 5, 24, true},
        {"extended, a byte short", &extended, 5, 23, false},
    };
    for (const auto& each : edits) {
        auto packet = *each.packet;
        packet[each.at] = static_cast<std::byte>(each.value);
        EXPECT_EQ(parse_single_event_cmd_packet(packet).has_value(), each.parses) << each.what;
    }
    for (size_t size = 0; size < 28; ++size) {
        EXPECT_FALSE(parse_single_event_cmd_packet(std::span{standard}.first(size))) << size;
    }
    for (const int length : {568, 569}) {
        auto packet = standard;
        packet.resize(600);
        packet[4] = static_cast<std::byte>(length >> 8);
        packet[5] = static_cast<std::byte>(length & 0xFF);
        EXPECT_EQ(parse_single_event_cmd_packet(packet).has_value(), length == 568) << length;
    }
}

TEST(EventPacket, made_ones_parse) {
    const auto packet = gev::controlchannel::make_event_packet(0x9001, 0x8877665544332211);
    const auto event = parse_single_event_cmd_packet(packet);
    ASSERT_TRUE(event);
    EXPECT_EQ(event->event_id, 0x9001);
    EXPECT_EQ(event->block_id, 0U);
    EXPECT_EQ(event->timestamp, 0x8877665544332211U);
    EXPECT_EQ(event->body.size(), 16U);
}

} // namespace
