#include "datagrams.h"

#include "gevdrv_streamchannel/packet_recv/gvsp_packet.h"

#include <gtest/gtest.h>

namespace gev::streamchannel::impl {
namespace {

// A datagram of `size` bytes with the given bytes set; the rest is 0.
gvsp_parsed_packet parse(size_t size, const std::vector<std::pair<size_t, int>>& bytes) {
    std::vector<std::byte> data(128);
    for (const auto& [at, value] : bytes) data[at] = static_cast<std::byte>(value);
    return parse_gvsp_packet(data.data(), size);
}

TEST(gvsp_packet, names_every_fault) {
    struct row {
        size_t size;
        std::vector<std::pair<size_t, int>> bytes;
        const char* text;
    };
    const row rows[] = {
        {7, {}, "packet-size < sizeof( PacketHeader )"},
        {8, {{0, 0x80}, {4, 3}}, "Ignore test-packet (block_id == 0)"},
        {44, {{3, 1}, {4, 1}, {7, 1}}, "Leader packet-id == 0"},
        {19, {{3, 1}, {4, 1}}, "Leader packet-size < sizeof( LeaderPacketHeader )"},
        {44, {{3, 1}, {4, 1}, {11, 6}}, "Leader payload-type unknown"},
        {39, {{3, 1}, {4, 1}, {11, 1}}, "Leader (*Payload) packet-size < sizeof( ImageLeaderPacket )"},
        {11, {{3, 1}, {4, 2}}, "Trailer packet-size < sizeof( TrailerHeader )"},
        {15, {{3, 1}, {4, 2}, {11, 1}}, "Trailer (ImagePayload) packet-size < sizeof( ImageTrailerPacket )"},
        {23,
         {{3, 1}, {4, 2}, {11, 5}},
         "Trailer (ExtendedChunkPayload) packet-size < sizeof( ExtendedChunkTrailerPacket )"},
        {15, {{3, 1}, {4, 2}, {11, 4}}, "Trailer (ChunkPayload) packet-size < sizeof( ChunkTrailerPacket )"},
        {24, {{3, 1}, {4, 2}, {11, 2}}, "Trailer payload-type unknown"},
        {24, {{4, 0x83}}, "Ignore test-packet (block_id == 0)"},
        {56, {{4, 0x81}, {15, 1}, {19, 1}}, "Leader packet-id != 0"},
        {23, {{4, 0x81}, {15, 1}}, "Leader packet-size < sizeof( ext_leader )"},
        {55, {{4, 0x81}, {15, 1}, {23, 1}}, "Leader (ImagePayload) packet-size < sizeof( image::leader )"},
        {51, {{4, 0x81}, {15, 1}, {23, 8}}, "Leader (h264Payload) packet-size < sizeof( h264::leader )"},
        {51, {{4, 0x81}, {15, 1}, {23, 6}}, "Leader (JPEGPayload) packet-size < sizeof( jpeg::leader )"},
        {56, {{4, 0x81}, {15, 1}, {23, 4}}, "Leader payload_type unknown"},
        {23, {{4, 0x82}, {15, 1}}, "Trailer packet-size < sizeof( ext_trailer )"},
        {31, {{4, 0x82}, {15, 1}, {22, 0x40}, {23, 6}}, "Trailer packet-size < sizeof( ext_trailer )"},
        {35, {{4, 0x82}, {15, 1}, {22, 0x40}, {23, 1}}, "Trailer packet-size < sizeof( ext_trailer )"},
        {36, {{4, 0x82}, {15, 1}, {23, 4}}, "Trailer payload_type unknown"},
        {27, {{4, 0x85}, {15, 1}}, "H264PayloadPacketFormat packet-size < sizeof( h264::payload )"},
        {28, {{4, 0x84}, {15, 1}}, "Unknown packet-format"},
    };
    for (const row& each : rows) {
        const gvsp_parsed_packet packet = parse(each.size, each.bytes);
        ASSERT_EQ(packet.kind, gvsp_packet_kind::invalid) << each.text;
        EXPECT_EQ(packet.block_id, 0U) << each.text;
        EXPECT_STREQ(packet.error_text, each.text);
    }
    EXPECT_STREQ(parse_gvsp_ext_packet(nullptr, 19).error_text, "Packet-size < sizeof( ext_header )");
    // No message for an unknown standard format, nor for an extended flag on a datagram too short for it.
    EXPECT_EQ(parse(20, {{3, 1}, {4, 4}}).error_text, nullptr);
    EXPECT_EQ(parse(19, {{3, 1}, {4, 0x83}}).error_text, nullptr);
}

TEST(gvsp_packet, tells_resends_from_errors) {
    const auto resent = parse(8, {{0, 1}, {3, 1}, {4, 3}});
    EXPECT_EQ(resent.kind, gvsp_packet_kind::payload);
    EXPECT_EQ(resent.payload.data_size, 0U);
    EXPECT_TRUE(resent.is_resend);
    EXPECT_EQ(resent.status, 0x0100);
    EXPECT_EQ(parse(20, {{0, 1}, {4, 0x83}, {15, 1}}).kind, gvsp_packet_kind::status_only);
    EXPECT_TRUE(parse(20, {{3, 1}, {4, 0x83}, {15, 1}}).is_resend);
    EXPECT_FALSE(parse(20, {{3, 3}, {4, 0x83}, {15, 1}}).is_resend);
    EXPECT_EQ(parse(56, {{4, 0x81}, {15, 1}, {22, 0x40}, {23, 1}}).kind, gvsp_packet_kind::leader);
    EXPECT_EQ(parse(40, {{3, 1}, {4, 1}, {11, 1}}).kind, gvsp_packet_kind::leader);
    EXPECT_EQ(parse(16, {{3, 1}, {4, 2}, {11, 1}, {15, 9}}).trailer.size_y, 0U);
}

} // namespace
} // namespace gev::streamchannel::impl
