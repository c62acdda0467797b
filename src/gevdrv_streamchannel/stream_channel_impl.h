// A stream channel over a camera's control: its registers, its packet size, its receive thread.
#pragma once

#include "IControlChannelPort.h"
#include "IStreamChannel.h"
#include "stream_channel_thread_itf.h"

#include <GenICam/IGenICamDoc.h>
#include <gds_helper/process.h>

#include <memory>

namespace gev::streamchannel {

class stream_channel_impl final : public IStreamChannel {
public:
    struct create_params {
        uint32_t channel_index = 0;
        int32_t max_packet_size = 0;             // bytes; 0 or below keeps the default
        uint32_t local_address = 0;              // IPv4, host order
        asio::ip::udp::endpoint remote_endpoint; // the device's control endpoint
    };

    // Port and document outlive the channel; the document may be null. Reads the device's stream capability.
    stream_channel_impl(const create_params& params, controlchannel::IControlChannelPort& device,
                        GenICam::IGenICamDoc* remote_nodes);
    ~stream_channel_impl() override;

    std::error_code connect(const channel_start_params& params) override;
    void disconnect() override;
    std::error_code flush() override;
    std::error_code reset_receiver() override;
    std::expected<uint64_t, std::error_code> query_packet_size(uint32_t selector) override;
    std::error_code set_resend_params(const resend_parameters& parameters) override;
    std::expected<std::optional<resend_parameters>, std::error_code> get_resend_params() override;
    bool is_connected() const override { return static_cast<bool>(thread); }

private:
    [[nodiscard]] asio::ip::udp::endpoint stream_source();
    [[nodiscard]] std::error_code setup_scp(const asio::ip::udp::endpoint& local);
    // False when there is no memory for it.
    [[nodiscard]] bool close_scp();
    [[nodiscard]] std::error_code choose_size_and_start(impl::stream_channel_thread_itf& opening,
                                                        const asio::ip::udp::endpoint& local,
                                                        const asio::ip::udp::endpoint& remote,
                                                        const channel_start_params& params);
    [[nodiscard]] std::expected<uint32_t, std::error_code> choose_packet_size(impl::packet_size_test_socket_itf& socket,
                                                                              const channel_start_params& params);

    controlchannel::IControlChannelPort& port;
    GenICam::IInteger* packet_size_node = nullptr;
    asio::ip::udp::endpoint remote_endpoint;
    uint32_t local_address;
    uint32_t channel_index;
    int32_t max_packet_size = 9216;
    uint32_t packet_size = 0;
    bool has_source_port = false;
    // Empty while not connected. A forked child leaves it alone: its descriptors and their readiness are the parent's.
    gds_helper::process_local<impl::stream_channel_thread_itf> thread;
};

} // namespace gev::streamchannel
