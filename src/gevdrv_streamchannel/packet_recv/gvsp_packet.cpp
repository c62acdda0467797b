// The two parsers keep vocabularies of their own: the texts name the structure that was too short, and users search
// for them.
#include "gvsp_packet.h"

namespace gev::streamchannel::impl {

namespace {

enum class packet_format : uint32_t { leader = 1, trailer = 2, payload = 3, h264_payload = 5 };

enum payload_type : uint32_t { image = 1, chunk = 4, extended_chunk = 5, jpeg = 6, h264 = 8 };
constexpr uint32_t extended_chunk_flag = 0x4000;

constexpr uint16_t resend_mark = 0x0100;
constexpr uint32_t extended_id_flag = 0x80;
constexpr size_t standard_header_size = 8;
constexpr size_t extended_header_size = 20;

uint32_t byte_at(const std::byte* p) { return std::to_integer<uint32_t>(*p); }
uint16_t be16(const std::byte* p) { return static_cast<uint16_t>(byte_at(p) << 8 | byte_at(p + 1)); }
uint32_t be24(const std::byte* p) { return byte_at(p) << 16 | byte_at(p + 1) << 8 | byte_at(p + 2); }
uint32_t be32(const std::byte* p) { return byte_at(p) << 24 | be24(p + 1); }
uint64_t be64(const std::byte* p) { return uint64_t{be32(p)} << 32 | be32(p + 4); }

// The record is filled in place and field by field: whoever waits for one field does not wait for the others.
void invalid(gvsp_parsed_packet& packet, const char* text) {
    packet = {};
    packet.error_text = text;
}

void standard_leader(gvsp_parsed_packet& packet, const std::byte* data, size_t size) {
    // The first text states the opposite of the fault; kept, for it is what people know.
    if (packet.packet_id != 0) return invalid(packet, "Leader packet-id == 0");
    if (size < 20) return invalid(packet, "Leader packet-size < sizeof( LeaderPacketHeader )");
    const uint32_t type = be16(data + 10);
    if (type != image && type != chunk && type != extended_chunk) return invalid(packet, "Leader payload-type unknown");
    if (size < 40) return invalid(packet, "Leader (*Payload) packet-size < sizeof( ImageLeaderPacket )");
    packet.kind = gvsp_packet_kind::leader;
    // The shortest leader that is taken ends before the paddings.
    const uint32_t padding_x = size < 42 ? 0 : be16(data + 40);
    packet.leader = {be64(data + 12), be32(data + 24), be32(data + 28), be32(data + 20), padding_x};
    return;
}

void standard_trailer(gvsp_parsed_packet& packet, const std::byte* data, size_t size) {
    if (size < 12) return invalid(packet, "Trailer packet-size < sizeof( TrailerHeader )");
    packet.kind = gvsp_packet_kind::trailer;
    switch (be16(data + 10)) {
    case image:
        if (size < 16) return invalid(packet, "Trailer (ImagePayload) packet-size < sizeof( ImageTrailerPacket )");
        packet.trailer = {};
        return;
    case extended_chunk:
        if (size < 24) {
            return invalid(packet, "Trailer (ExtendedChunkPayload) packet-size < sizeof( ExtendedChunkTrailerPacket )");
        }
        packet.trailer = {be32(data + 12), be32(data + 20), 0};
        return;
    case chunk:
        if (size < 16) return invalid(packet, "Trailer (ChunkPayload) packet-size < sizeof( ChunkTrailerPacket )");
        packet.trailer = {be32(data + 12), 0, 0};
        return;
    default:
        return invalid(packet, "Trailer payload-type unknown");
    }
}

void extended_leader(gvsp_parsed_packet& packet, const std::byte* data, size_t size) {
    if (packet.packet_id != 0) return invalid(packet, "Leader packet-id != 0");
    if (size < 24) return invalid(packet, "Leader packet-size < sizeof( ext_leader )");
    switch (be16(data + 22) & ~extended_chunk_flag) {
    case image:
        if (size < 56) return invalid(packet, "Leader (ImagePayload) packet-size < sizeof( image::leader )");
        packet.kind = gvsp_packet_kind::leader;
        packet.leader = {be64(data + 24), be32(data + 36), be32(data + 40), be32(data + 32), be16(data + 52)};
        return;
    case h264:
        if (size < 52) return invalid(packet, "Leader (h264Payload) packet-size < sizeof( h264::leader )");
        packet.kind = gvsp_packet_kind::h264_leader;
        packet.h264_leader = {be64(data + 24), be16(data + 34)};
        return;
    case jpeg:
        if (size < 52) return invalid(packet, "Leader (JPEGPayload) packet-size < sizeof( jpeg::leader )");
        packet.kind = gvsp_packet_kind::leader;
        packet.leader = {be64(data + 24), 0, 0, 0, 0};
        return;
    default:
        return invalid(packet, "Leader payload_type unknown");
    }
}

void extended_trailer(gvsp_parsed_packet& packet, const std::byte* data, size_t size) {
    const char* too_short = "Trailer packet-size < sizeof( ext_trailer )";
    if (size < 24) return invalid(packet, too_short);
    const uint32_t type = be16(data + 22);
    const bool has_chunk = (type & extended_chunk_flag) != 0;
    packet.kind = gvsp_packet_kind::trailer;
    packet.trailer = {};
    switch (type & ~extended_chunk_flag) {
    case h264:
    case jpeg:
        if (!has_chunk) return;
        if (size < 32) return invalid(packet, too_short);
        packet.trailer = {be32(data + 24), be32(data + 28), 0};
        return;
    case image:
        if (has_chunk && size < 36) return invalid(packet, too_short);
        packet.trailer.size_y = be32(data + 24); // may be the word behind the datagram, see the header
        if (has_chunk) {
            packet.trailer.chunk_data_payload_length = be32(data + 28);
            packet.trailer.chunk_layout_id = be32(data + 32);
        }
        return;
    default:
        return invalid(packet, "Trailer payload_type unknown");
    }
}

void parse_extended(gvsp_parsed_packet& packet, const std::byte* data, size_t size) {
    if (size < extended_header_size) return invalid(packet, "Packet-size < sizeof( ext_header )");
    packet.status = be16(data);
    packet.is_resend = be16(data + 2) == 1; // the whole word, not a bit of it
    packet.block_id = be64(data + 8);
    packet.packet_id = be32(data + 16);
    packet.is_extended = true;
    if (packet.block_id == 0) return invalid(packet, "Ignore test-packet (block_id == 0)");
    // The flags word marks a resend here, so a status of 0x0100 is an error like any other.
    if (packet.status != 0) {
        packet.kind = gvsp_packet_kind::status_only;
        return;
    }
    switch (static_cast<packet_format>(byte_at(data + 4) & 0x0F)) {
    case packet_format::leader:
        return extended_leader(packet, data, size);
    case packet_format::trailer:
        return extended_trailer(packet, data, size);
    case packet_format::payload:
        packet.kind = gvsp_packet_kind::payload;
        packet.payload = {data + extended_header_size, size - extended_header_size};
        return;
    case packet_format::h264_payload:
        if (size < 28) return invalid(packet, "H264PayloadPacketFormat packet-size < sizeof( h264::payload )");
        packet.kind = gvsp_packet_kind::h264_payload;
        packet.h264_payload = {data + extended_header_size, size - extended_header_size, be64(data + 20)};
        return;
    default:
        return invalid(packet, "Unknown packet-format");
    }
}

void parse_standard(gvsp_parsed_packet& packet, const std::byte* data, size_t size) {
    if (size < standard_header_size) return invalid(packet, "packet-size < sizeof( PacketHeader )");
    const uint32_t format = byte_at(data + 4);
    // A shorter datagram with the flag stays here, where its format matches nothing.
    if (size >= extended_header_size && (format & extended_id_flag) != 0) return parse_extended(packet, data, size);

    packet.status = be16(data);
    packet.block_id = be16(data + 2);
    packet.packet_id = be24(data + 5);
    packet.is_resend = (packet.status & resend_mark) != 0;
    if (packet.block_id == 0) return invalid(packet, "Ignore test-packet (block_id == 0)");
    if ((packet.status & ~resend_mark) != 0) {
        packet.kind = gvsp_packet_kind::status_only;
        return;
    }
    switch (static_cast<packet_format>(format)) {
    case packet_format::leader:
        return standard_leader(packet, data, size);
    case packet_format::trailer:
        return standard_trailer(packet, data, size);
    case packet_format::payload:
        packet.kind = gvsp_packet_kind::payload;
        packet.payload = {data + standard_header_size, size - standard_header_size};
        return;
    default:
        return invalid(packet, nullptr);
    }
}

} // namespace

gvsp_parsed_packet parse_gvsp_packet(const std::byte* data, size_t size) noexcept {
    gvsp_parsed_packet packet;
    parse_standard(packet, data, size);
    return packet;
}

gvsp_parsed_packet parse_gvsp_ext_packet(const std::byte* data, size_t size) noexcept {
    gvsp_parsed_packet packet;
    parse_extended(packet, data, size);
    return packet;
}

} // namespace gev::streamchannel::impl
