// One GVSP datagram, parsed. All fields on the wire are big-endian; sizes are those of the UDP payload.
#pragma once

#include <cstddef>
#include <cstdint>

namespace gev::streamchannel::impl {

enum class gvsp_packet_kind : uint32_t {
    invalid = 0,
    status_only = 1, // a non-success status; no other field of the datagram was read
    leader = 2,
    payload = 3,
    trailer = 4,
    h264_leader = 5, // H.264 passes through the block bookkeeping; its data is dropped
    h264_payload = 6,
};

struct gvsp_parsed_packet {
    struct leader_body {
        uint64_t timestamp; // camera ticks
        uint32_t size_x, size_y, pixel_format;
        uint32_t padding_x; // bytes behind each line
    };
    struct payload_body {
        const std::byte* data; // into the datagram
        uint64_t data_size;
    };
    struct trailer_body {
        uint32_t chunk_data_payload_length, chunk_layout_id, size_y;
    };
    struct h264_leader_body {
        uint64_t timestamp;
        uint32_t packet_size;
    };
    struct h264_payload_body {
        const std::byte* data; // begins with the timestamp
        uint64_t data_size;
        uint64_t timestamp;
    };

    gvsp_packet_kind kind = gvsp_packet_kind::invalid;
    uint64_t block_id = 0;  // 16 significant bits with standard ids
    uint32_t packet_id = 0; // 24 significant bits with standard ids
    uint16_t status = 0;    // as received, the resend mark of standard ids included
    bool is_extended = false;
    bool is_resend = false; // carried along; no receiver acts on it
    union {
        const char* error_text = nullptr; // kind invalid: constant text or null
        leader_body leader;
        payload_body payload;
        trailer_body trailer;
        h264_leader_body h264_leader;
        h264_payload_body h264_payload;
    };
};

// Without state, allocation, copy of payload or log. The buffer behind the datagram must reach a few bytes past its
// end: an extended image trailer of minimum size is read one word further.
[[nodiscard]] gvsp_parsed_packet parse_gvsp_packet(const std::byte* data, size_t size) noexcept;
// For datagrams with extended ids; parse_gvsp_packet hands over to it.
[[nodiscard]] gvsp_parsed_packet parse_gvsp_ext_packet(const std::byte* data, size_t size) noexcept;

} // namespace gev::streamchannel::impl
