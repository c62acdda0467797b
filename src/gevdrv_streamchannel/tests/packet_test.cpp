#include <gevdrv_streamchannel/packet_recv/gvsp_packet.h>
#include <support/datagrams.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

using namespace gev::streamchannel::impl;
using namespace gev::streamchannel::test;

namespace {

constexpr size_t margin = 100; // bytes behind the datagram, as every receive buffer has them

builder standard_leader(uint32_t block, uint32_t payload_type = 1, uint32_t packet = 0) {
    return standard(0, block, 1, packet)
        .u32(payload_type)
        .u64(0x1122334455667788)
        .u32(0x01080001)
        .u32(640)
        .u32(480)
        .u64(0);
}
builder extended_leader(uint64_t block, uint32_t payload_type = 1, uint32_t packet = 0) {
    return extended(0, 0, block, 1, packet)
        .u32(payload_type)
        .u64(0x1122334455667788)
        .u32(0x01080001)
        .u32(640)
        .u32(480)
        .fill(12);
}

// What is parsed points into the datagram, which lives until the next one.
gvsp_parsed_packet parse(const builder& from) {
    static builder datagram;
    datagram = from;
    const size_t size = datagram.bytes.size();
    datagram.fill(margin);
    return parse_gvsp_packet(datagram.bytes.data(), size);
}

} // namespace

TEST(Packet, FailuresHaveTheirOwnWordsInEachForm) {
    struct row {
        builder datagram;
        const char* text;
    };
    const row rows[] = {
        {builder{}.fill(7), "packet-size < sizeof( PacketHeader )"},
        {standard(0, 0, 3, 1), "Ignore test-packet (block_id == 0)"},
        {standard(0x8000, 0, 3, 1), "Ignore test-packet (block_id == 0)"},
        {standard_leader(1, 1, 5), "Leader packet-id == 0"},
        {standard_leader(1).cut(19), "Leader packet-size < sizeof( LeaderPacketHeader )"},
        {standard_leader(1, 6), "Leader payload-type unknown"},
        {standard_leader(1).cut(39), "Leader (*Payload) packet-size < sizeof( ImageLeaderPacket )"},
        {standard(0, 1, 2, 9).fill(3), "Trailer packet-size < sizeof( TrailerHeader )"},
        {standard(0, 1, 2, 9).u16(0).u16(1).fill(3),
         "Trailer (ImagePayload) packet-size < sizeof( ImageTrailerPacket )"},
        {standard(0, 1, 2, 9).u16(0).u16(4).fill(3),
         "Trailer (ChunkPayload) packet-size < sizeof( ChunkTrailerPacket )"},
        {standard(0, 1, 2, 9).u16(0).u16(5).fill(11),
         "Trailer (ExtendedChunkPayload) packet-size < sizeof( ExtendedChunkTrailerPacket )"},
        {standard(0, 1, 2, 9).u16(0).u16(2).fill(12), "Trailer payload-type unknown"},
        {standard(0, 1, 4, 9), nullptr},
        {builder{}.u16(0).u16(1).u8(0x83).fill(14), nullptr}, // 19 bytes with the flag of extended ids
        {extended(0, 0, 0, 3, 1), "Ignore test-packet (block_id == 0)"},
        {extended_leader(1, 1, 5), "Leader packet-id != 0"},
        {extended_leader(1).cut(23), "Leader packet-size < sizeof( ext_leader )"},
        {extended_leader(1).cut(55), "Leader (ImagePayload) packet-size < sizeof( image::leader )"},
        {extended_leader(1, 8).cut(51), "Leader (h264Payload) packet-size < sizeof( h264::leader )"},
        {extended_leader(1, 6).cut(51), "Leader (JPEGPayload) packet-size < sizeof( jpeg::leader )"},
        {extended_leader(1, 4), "Leader payload_type unknown"},
        {extended(0, 0, 1, 2, 9).fill(3), "Trailer packet-size < sizeof( ext_trailer )"},
        {extended(0, 0, 1, 2, 9).u16(0).u16(0x4001).fill(11), "Trailer packet-size < sizeof( ext_trailer )"},
        {extended(0, 0, 1, 2, 9).u16(0).u16(0x4006).fill(7), "Trailer packet-size < sizeof( ext_trailer )"},
        {extended(0, 0, 1, 2, 9).u16(0).u16(3).fill(12), "Trailer payload_type unknown"},
        {extended(0, 0, 1, 5, 9).fill(7), "H264PayloadPacketFormat packet-size < sizeof( h264::payload )"},
        {extended(0, 0, 1, 7, 9), "Unknown packet-format"},
    };
    for (const row& r : rows) {
        const gvsp_parsed_packet packet = parse(r.datagram);
        ASSERT_EQ(packet.kind, gvsp_packet_kind::invalid) << (r.text == nullptr ? "no text" : r.text);
        EXPECT_STREQ(packet.error_text, r.text);
        EXPECT_EQ(packet.block_id, 0U);
    }
}

TEST(Packet, StatusCountsByForm) {
    EXPECT_EQ(parse(standard(0x800C, 1, 3, 1)).kind, gvsp_packet_kind::status_only);
    const auto resent = parse(standard(0x0100, 1, 3, 1));
    EXPECT_EQ(resent.kind, gvsp_packet_kind::payload);
    EXPECT_TRUE(resent.is_resend);
    EXPECT_EQ(resent.status, 0x0100);
    EXPECT_EQ(resent.payload.data_size, 0U);
    EXPECT_EQ(parse(extended(0x0100, 0, 1, 3, 1)).kind, gvsp_packet_kind::status_only);
    EXPECT_TRUE(parse(extended(0, 1, 1, 3, 1)).is_resend);
    EXPECT_FALSE(parse(extended(0, 3, 1, 3, 1)).is_resend);
}

TEST(Packet, BodiesAreReadFromTheirPlaces) {
    const auto leader = parse(standard_leader(7).cut(40));
    ASSERT_EQ(leader.kind, gvsp_packet_kind::leader);
    EXPECT_EQ(leader.block_id, 7U);
    EXPECT_EQ(leader.leader.timestamp, 0x1122334455667788U);
    EXPECT_EQ(leader.leader.size_x, 640U);
    EXPECT_EQ(leader.leader.size_y, 480U);
    EXPECT_EQ(leader.leader.pixel_format, 0x01080001U);

    const auto wide = parse(extended_leader(0x100000002, 0x4001).cut(56));
    ASSERT_EQ(wide.kind, gvsp_packet_kind::leader);
    EXPECT_EQ(wide.block_id, 0x100000002U);
    EXPECT_TRUE(wide.is_extended);
    EXPECT_EQ(wide.leader.size_y, 480U);
    EXPECT_EQ(parse(extended_leader(1, 6)).leader.size_x, 0U) << "JPEG has no size there";

    EXPECT_EQ(leader.leader.padding_x, 0U) << "it ends before";
    EXPECT_EQ(parse(standard_leader(7).u16(9).u16(0)).leader.padding_x, 9U);
    const auto padded = extended(0, 0, 1, 1, 0).u32(1).u64(0).u32(0x01080001).u32(640).u32(480).u64(0).u16(5).u16(0);
    EXPECT_EQ(parse(padded).leader.padding_x, 5U);

    const auto chunks = parse(standard(0, 1, 2, 9).u16(0).u16(5).u32(100).u32(0).u32(77));
    ASSERT_EQ(chunks.kind, gvsp_packet_kind::trailer);
    EXPECT_EQ(chunks.trailer.chunk_data_payload_length, 100U);
    EXPECT_EQ(chunks.trailer.chunk_layout_id, 77U);
    EXPECT_EQ(parse(standard(0, 1, 2, 9).u16(0).u16(1).u32(480)).trailer.size_y, 0U) << "not read in this form";
    const auto trailer = parse(extended(0, 0, 1, 2, 9).u16(0).u16(0x4001).u32(480).u32(100).u32(77));
    EXPECT_EQ(trailer.trailer.size_y, 480U);
    EXPECT_EQ(trailer.trailer.chunk_data_payload_length, 100U);
    EXPECT_EQ(trailer.trailer.chunk_layout_id, 77U);
    EXPECT_EQ(parse(extended(0, 0, 1, 2, 9).u16(0).u16(1)).kind, gvsp_packet_kind::trailer) << "minimum size";

    const auto payload = parse(standard(0, 1, 3, 0xABCDEF).fill(10, 5));
    EXPECT_EQ(payload.packet_id, 0xABCDEFU);
    EXPECT_EQ(payload.payload.data_size, 10U);
    EXPECT_EQ(*payload.payload.data, std::byte{5});
    const auto video = parse(extended(0, 0, 1, 5, 9).u64(42).fill(4));
    ASSERT_EQ(video.kind, gvsp_packet_kind::h264_payload);
    EXPECT_EQ(video.h264_payload.timestamp, 42U);
    EXPECT_EQ(video.h264_payload.data_size, 12U);
}

// Every length a datagram can have, with headers at random. Behind the datagram is one word, then the end of the
// memory.
TEST(Packet, EveryLengthStaysInside) {
    constexpr size_t longest = 65507;
    datagram memory(longest + 4);
    std::mt19937 random{3};
    const auto any = [&](uint32_t bound) { return static_cast<uint32_t>(random() % bound); };
    uint32_t seen[7] = {};
    for (size_t size = 0; size <= longest; ++size) {
        std::byte* data = memory.data() + longest - size;
        for (int round = size < 80 ? 400 : 4; round > 0; --round) { // short ones decide more
            const uint32_t status = any(8) == 0 ? any(65536) : 0;
            const datagram head = any(2) == 0
                                      ? standard(status, any(4), any(8), any(2) * any(1 << 24)).u32(any(8)).bytes
                                      : extended(status, any(4), any(4), any(8), any(2) * any(1 << 24))
                                            .u32(any(2) * 0x4000 + any(9))
                                            .bytes;
            std::copy_n(head.begin(), std::min(size, head.size()), data);
            const auto packet = parse_gvsp_packet(data, size);
            ++seen[static_cast<size_t>(packet.kind)];
            const size_t header_size = packet.is_extended ? 20 : 8;
            if (packet.kind == gvsp_packet_kind::payload || packet.kind == gvsp_packet_kind::h264_payload) {
                ASSERT_EQ(packet.payload.data, data + header_size); // of both kinds, which begin alike
                ASSERT_EQ(packet.payload.data_size, size - header_size);
            }
            ASSERT_EQ(packet.block_id != 0, packet.kind != gvsp_packet_kind::invalid);
        }
    }
    for (const uint32_t count : seen) EXPECT_GT(count, 100U);
}
