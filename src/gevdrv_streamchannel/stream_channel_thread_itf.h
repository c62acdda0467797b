// The socket and the receive thread of one stream channel, as the channel uses them.
#pragma once

#include "packet_recv/gvsp_recv_interface.h"

#include <asio/ip/udp.hpp>

#include <expected>
#include <system_error>

namespace gev::streamchannel::impl {

// For the packet size test; the caller's thread, while the receive thread does not run.
class packet_size_test_socket_itf {
public:
    virtual ~packet_size_test_socket_itf() = default;
    // Discards everything that waits on the socket.
    [[nodiscard]] virtual std::error_code drain_socket() = 0;
    // Waits up to 3 ms for a datagram of at least this size, IP and UDP headers included.
    [[nodiscard]] virtual std::error_code receive_packet_and_check_size(uint32_t expected_size) = 0;
};

// "Caller" operations belong to one consumer thread at a time; the others are done by the receive thread, and those
// that wait end when the receive thread does.
class stream_channel_thread_itf : public packet_size_test_socket_itf {
public:
    // Caller. Binds to the address and an ephemeral port, opens the way through the host's firewall towards the
    // device, returns the local endpoint.
    [[nodiscard]] virtual std::expected<asio::ip::udp::endpoint, std::error_code>
    open_stream_socket(const asio::ip::address_v4& local_address, const asio::ip::udp::endpoint& remote) = 0;
    // Caller. Sizes in bytes, that of packets with IP and UDP headers.
    [[nodiscard]] virtual std::error_code start(uint32_t packet_size, uint32_t payload_size) = 0;
    // Caller. Ends all open blocks and joins the thread.
    virtual void stop() = 0;
    // Returns when all open blocks have been handed back.
    virtual void flush() = 0;
    virtual void reset_receiver() = 0;
    virtual void set_resend_params(const resend_parameters& parameters) = 0;
    // 0x80000004 of the GigECam category when the thread does not answer within two seconds.
    [[nodiscard]] virtual std::expected<std::optional<resend_parameters>, std::error_code> get_resend_params() = 0;
};

} // namespace gev::streamchannel::impl
