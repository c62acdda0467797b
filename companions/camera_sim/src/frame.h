// One picture on its way: its bytes and the datagrams that carry it. Kept for resends.
#pragma once

#include <gige/gvsp.h>
#include <gige/udp_socket.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <span>
#include <vector>

namespace camera_sim {

struct frame {
    uint64_t number{};
    uint64_t block_id{};
    uint64_t timestamp{};
    bool extended{};
    bool dont_fragment{};
    uint32_t width{}, height{}, offset_x{}, offset_y{}, pixel_format{};
    uint32_t line_padding{}; // bytes behind each line
    uint32_t packet_size{};  // with IP and UDP headers
    uint32_t chunk_length{}; // bytes of all chunks, picture included; 0 without chunk data
    uint16_t chunk_payload_type{};
    gige::endpoint destination;
    std::vector<std::byte> data;
    std::atomic<uint32_t> sent_ids{}; // packets with smaller ids have had their turn

    [[nodiscard]] uint32_t payload_packets() const noexcept {
        const auto each = gige::gvsp::payload_per_packet(packet_size, extended);
        return each == 0 ? 0 : static_cast<uint32_t>((data.size() + each - 1) / each); // 0: no frame was made yet
    }
    [[nodiscard]] uint32_t trailer_id() const noexcept { return payload_packets() + 1; }
};

// Head and body of one datagram; the body points into the frame.
struct packet {
    std::array<std::byte, 64> head;
    gige::udp_socket::datagram pieces;
    [[nodiscard]] std::size_t size() const noexcept { return pieces.head.size() + pieces.body.size(); }
};

// `id` is 0 for the leader up to trailer_id(). `to` must stay where it is while its pieces are used.
void build_packet(packet& to, const frame& from, uint32_t id, bool resend);

// The answer to a request that cannot be met: a payload header without data.
void build_status(packet& to, bool extended, uint64_t block_id, uint32_t id, gige::gvcp::status result);

// The last frames of the stream, oldest first. Thread-safe.
class frame_ring {
public:
    // A frame to fill, its memory taken from one that has left the ring and nobody holds.
    [[nodiscard]] std::shared_ptr<frame> take(std::size_t capacity);
    void put(std::shared_ptr<frame> filled);
    void clear();

    struct lookup {
        std::shared_ptr<frame> found;
        gige::gvcp::status result{}; // why there is none
    };
    [[nodiscard]] lookup find(uint64_t block_id, bool extended) const;

private:
    mutable std::mutex mutex; // guards frames
    std::vector<std::shared_ptr<frame>> frames;
};

} // namespace camera_sim
