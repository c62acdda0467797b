// Finds the largest packet that the path from camera to host carries, by having the camera fire test packets.
#pragma once

#include "IControlChannelPort.h"
#include "stream_channel_thread_itf.h"

#include <GenICam/value_nodes.h>

namespace gev::streamchannel::impl {

inline constexpr uint32_t register_timeout_ms = 3000; // for one access of the channel to its registers

struct packet_size_range {
    int32_t min = 0;
    int32_t max = 0;
};

// The device's packet size register: every size in bytes, with IP, UDP and stream headers.
class packet_size_test final {
public:
    packet_size_test(controlchannel::IControlChannelPort& device, packet_size_test_socket_itf& test_socket,
                     uint32_t channel)
        : port(device), socket(test_socket), channel_index(channel) {}

    // The size that the device took: it may round.
    [[nodiscard]] std::expected<uint32_t, std::error_code> set_packet_size(uint32_t size);
    enum class outcome { passed, failed, left_out };
    struct tested {
        outcome how;
        uint32_t size = 0; // that the device took, of one that passed
    };
    // Whether a packet got through of the size that the device makes of this one. More than `most` fails.
    [[nodiscard]] tested test_packet_size(uint32_t size, int32_t most);
    // The largest size in the range that gets through, which the device has then; after some twenty tests at most.
    // Spelled so on purpose: a name that others know.
    [[nodiscard]] std::expected<uint32_t, std::error_code> evalute_packet_size(packet_size_range range);

    [[nodiscard]] static std::expected<packet_size_range, std::error_code>
    get_payload_size_range_from_genicam(GenICam::IInteger& node, int32_t max_allowed);
    [[nodiscard]] std::expected<packet_size_range, std::error_code> range_from_register(int32_t max_allowed);

private:
    // 0 when none got through. `most`: what the device may make of a size.
    [[nodiscard]] uint32_t search(int32_t first, packet_size_range range, int32_t most);
    // A smaller one where the device's rounding makes it more than `most` or one that is left out.
    [[nodiscard]] std::expected<uint32_t, std::error_code> set_usable_packet_size(int32_t size, int32_t most);
    [[nodiscard]] std::error_code write_packetsize_register(uint32_t size, bool fire);
    [[nodiscard]] std::expected<uint32_t, std::error_code> read_packetsize_register();
    [[nodiscard]] uint32_t register_address() const noexcept;

    controlchannel::IControlChannelPort& port;
    packet_size_test_socket_itf& socket;
    uint32_t channel_index;
};

} // namespace gev::streamchannel::impl
