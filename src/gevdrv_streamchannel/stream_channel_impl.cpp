#include "stream_channel_impl.h"

#include "stream_asio_thread.h"
#include "stream_channel_packet_size_test.h"

#include <gds_helper/log.h>
#include <gds_shared/gigecam_error.h>
#include <gev_registers/registers.h>

#include <fmt/core.h>

#include <new>

namespace gev::streamchannel {

using impl::register_timeout_ms;
using reg::of_stream_channel;

namespace {

using gds_helper::log::gvsp_logger;

std::error_code not_connected() { return make_error_code(gds_shared::gigecam_errc::option_not_available); }

std::string to_text(const asio::ip::udp::endpoint& endpoint) {
    return fmt::format("{}:{}", endpoint.address().to_string(), endpoint.port());
}

} // namespace

stream_channel_impl::stream_channel_impl(const create_params& params, controlchannel::IControlChannelPort& device,
                                         GenICam::IGenICamDoc* remote_nodes)
    : port(device),
      remote_endpoint(params.remote_endpoint),
      local_address(params.local_address),
      channel_index(params.channel_index) {
    if (params.max_packet_size > 0) max_packet_size = params.max_packet_size;
    if (remote_nodes != nullptr) {
        packet_size_node = remote_nodes->find<GenICam::IInteger>("GevSCPSPacketSize");
        if (packet_size_node != nullptr &&
            !packet_size_node->is_available(GenICam::access_flags::bypass_cache).value_or(true))
            packet_size_node = nullptr;
    }
    const auto capability = port.read_reg(reg::stream_capability, 1, register_timeout_ms);
    has_source_port = capability && (*capability & bits::stream_source_port) != 0;
}

stream_channel_impl::~stream_channel_impl() { disconnect(); }

std::error_code stream_channel_impl::connect(const channel_start_params& params) {
    disconnect();
    stream_functions functions{params.deliver, {}, params.get_frame};
    if (params.send_resend) {
        functions.send_resend = [send = params.send_resend, channel = channel_index](uint64_t block_id, uint32_t first,
                                                                                     uint32_t last, bool extended) {
            send(channel, block_id, first, last, extended);
        };
    }
    // The socket must exist before the camera is told where to send, and the packet size test needs the registers.
    const asio::ip::udp::endpoint remote = stream_source();
    std::shared_ptr<impl::stream_asio_thread> opening;
    try {
        opening = std::make_shared<impl::stream_asio_thread>(impl::stream_asio_thread::create_params{
            .functions = std::move(functions), .reception_ended = params.reception_ended});
    } catch (const std::system_error& failure) { // a process without descriptors left
        return failure.code();
    }
    const auto local = opening->open_stream_socket(asio::ip::address_v4{local_address}, remote);
    if (!local) return local.error();
    try {
        if (const std::error_code error = setup_scp(*local)) return error;
        if (const std::error_code error = choose_size_and_start(*opening, *local, remote, params)) {
            static_cast<void>(close_scp()); // or the camera would send to a port that nobody has, or somebody else
            return error;
        }
    } catch (const std::bad_alloc&) {
        opening.reset();
        static_cast<void>(close_scp());
        throw;
    }
    thread = gds_helper::process_local<impl::stream_channel_thread_itf>{std::move(opening)};
    return {};
}

std::error_code stream_channel_impl::choose_size_and_start(impl::stream_channel_thread_itf& opening,
                                                           const asio::ip::udp::endpoint& local,
                                                           const asio::ip::udp::endpoint& remote,
                                                           const channel_start_params& params) {
    const auto chosen = choose_packet_size(opening, params);
    if (!chosen) return chosen.error();
    packet_size = *chosen;
    gvsp_logger().info("Opening StreamChannel chn_idx={} local_endpoint={} remote_endpoint={} max_pckt_size={} "
                       "payload_size={}",
                       channel_index, to_text(local), to_text(remote), packet_size, params.payload_size);
    return opening.start(packet_size, params.payload_size);
}

asio::ip::udp::endpoint stream_channel_impl::stream_source() {
    if (has_source_port) {
        const auto source =
            port.read_reg(of_stream_channel(reg::stream_source_port, channel_index), 1, register_timeout_ms);
        const auto source_port = static_cast<uint16_t>(source.value_or(0)); // a port has 16 bits
        if (source_port != 0) return {remote_endpoint.address(), source_port};
    }
    return remote_endpoint;
}

std::error_code stream_channel_impl::setup_scp(const asio::ip::udp::endpoint& local) {
    if (const std::error_code error = port.write_reg(of_stream_channel(reg::stream_address, channel_index),
                                                     local.address().to_v4().to_uint(), 0, register_timeout_ms)) {
        gvsp_logger().error("Failed to write the destination ip register. Error: {}", error.message());
        return error;
    }
    const std::error_code error =
        port.write_reg(of_stream_channel(reg::stream_port, channel_index), local.port(), 0, register_timeout_ms);
    if (error) {
        gvsp_logger().error("Failed to write port register.");
        static_cast<void>(close_scp()); // only the answer may have been lost
    }
    return error;
}

std::expected<uint32_t, std::error_code>
stream_channel_impl::choose_packet_size(impl::packet_size_test_socket_itf& socket, const channel_start_params& params) {
    impl::packet_size_test test{port, socket, channel_index};
    if (params.fixed_packet_size != 0) return test.set_packet_size(params.fixed_packet_size);
    if (params.preferred_packet_size > 0 && params.preferred_packet_size <= max_packet_size) {
        const auto passed = test.test_packet_size(static_cast<uint32_t>(params.preferred_packet_size), max_packet_size);
        if (passed.how == impl::packet_size_test::outcome::passed) return passed.size;
    }
    const auto range =
        packet_size_node != nullptr
            ? impl::packet_size_test::get_payload_size_range_from_genicam(*packet_size_node, max_packet_size)
            : test.range_from_register(max_packet_size);
    if (!range) return std::unexpected(range.error());
    return test.evalute_packet_size(*range);
}

void stream_channel_impl::disconnect() {
    if (!thread) return;
    if (thread.is_foreign()) return thread.reset();
    gvsp_logger().info("Closing StreamChannel chn_idx={}", channel_index);
    const bool tried = close_scp();
    thread->stop();
    thread.reset();
    if (!tried) static_cast<void>(close_scp()); // there is more memory now
}

bool stream_channel_impl::close_scp() {
    try {
        if (const std::error_code error =
                port.write_reg(of_stream_channel(reg::stream_port, channel_index), 0, 0, register_timeout_ms)) {
            gvsp_logger().warn("Failed to write port register, while trying to close stream channel #{} on the device. "
                               "Err: {}",
                               channel_index, error.message());
        }
        return true;
    } catch (const std::bad_alloc&) {
        gvsp_logger().warn("No memory to close stream channel #{} on the device.", channel_index);
        return false;
    }
}

std::error_code stream_channel_impl::flush() {
    if (!thread || thread.is_foreign()) return not_connected();
    thread->flush();
    return {};
}

std::error_code stream_channel_impl::reset_receiver() {
    if (!thread) return not_connected();
    thread->reset_receiver();
    return {};
}

std::expected<uint64_t, std::error_code> stream_channel_impl::query_packet_size(uint32_t selector) {
    if (selector == 0) return packet_size;
    if (!thread) return std::unexpected(not_connected());
    return 0;
}

std::error_code stream_channel_impl::set_resend_params(const resend_parameters& parameters) {
    if (!thread) return not_connected();
    thread->set_resend_params(parameters);
    return {};
}

std::expected<std::optional<resend_parameters>, std::error_code> stream_channel_impl::get_resend_params() {
    if (!thread) return std::unexpected(not_connected());
    return thread->get_resend_params();
}

} // namespace gev::streamchannel
