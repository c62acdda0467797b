#include "device_data_stream.h"

#include <gevdrv_streamchannel/stream_channel_impl.h>

#include <gds_gentl_producer/error_translation.h>
#include <gds_helper/log.h>
#include <gev_registers/registers.h>
#include <ipc_rpc/catalogue.h>

#include <asio/ip/address_v4.hpp>
#include <spdlog/logger.h>

#include <new>

namespace gevdrv::gentl {

using namespace GenTL;
using namespace GenTL::Producer;
using gev::streamchannel::frame_context;
using gev::streamchannel::frame_info;
using gev::streamchannel::frame_receive_stats;
namespace frame_flags = gev::streamchannel::frame_flags;
namespace catalogue = ipc_rpc::catalogue;

namespace {

using gds_helper::log::gvsp_logger;

// Saturates: a camera may put any 64 bits into its leader.
uint64_t to_nanoseconds(uint64_t ticks, double tick_period_ns) {
    if (tick_period_ns == 1.0) return ticks;
    const double nanoseconds = static_cast<double>(ticks) * tick_period_ns;
    constexpr double first_beyond = 0x1p64;
    return nanoseconds < first_beyond ? static_cast<uint64_t>(nanoseconds) : UINT64_MAX;
}

} // namespace

device_data_stream::device_data_stream(device_instance& parent, std::string id)
    : producer_device_data_stream(parent, std::move(id)), remote_device(parent), resend(parent.resends()) {}

device_data_stream::~device_data_stream() = default;

std::expected<int64_t, std::error_code> device_data_stream::read_payload_size() const {
    auto* nodes = remote_device.remote_port().remote_document();
    auto* node = nodes == nullptr ? nullptr : nodes->find<GenICam::IInteger>("PayloadSize");
    if (node == nullptr) return std::unexpected(make_error_code(GenICam::genicam_errc::node_not_implemented));
    return node->get_val(GenICam::access_flags::bypass_cache);
}

size_t device_data_stream::payload_size() {
    const auto size = read_payload_size();
    return size && *size > 0 ? static_cast<size_t>(*size) : 0;
}

Error device_data_stream::open_stream(const ipc_rpc::client_object_handle& channel_lease) {
    skipped_frames = 0;
    resend_packets_requested = packets_expected = packets_received = packets_late = 0;
    unsent_requests = 0;
    resends_shown = false;
    const auto payload = read_payload_size();
    if (!payload || *payload <= 0 || *payload > UINT32_MAX) {
        return {GC_ERR_INVALID_PARAMETER, "Failed to read PayloadSize from device."};
    }
    const auto channel = channel_lease.invoke<catalogue::get_stream_channel_info>(0U);
    if (!channel) return gds_producer::to_gentl_error(channel.error(), "get_stream_channel_info");
    std::error_code bad_address;
    const auto device_address = asio::ip::make_address_v4(channel->host_address, bad_address);
    if (bad_address) {
        return {GC_ERR_IO, "The service named no IPv4 address of the device: '{}'.", channel->host_address};
    }
    const auto port = static_cast<uint16_t>(channel->dest_port != 0 ? channel->dest_port : gev::control_port);
    stream_channel = std::make_unique<gev::streamchannel::stream_channel_impl>(
        gev::streamchannel::stream_channel_impl::create_params{
            channel->channel_index, 0, channel->interface_ip, {device_address, port}},
        remote_device.remote_port().control_channel(), remote_device.remote_port().remote_document());

    // Before connect: frames may come as soon as it has returned, and wait for buffers until the start is through.
    read_tick_period();
    read_automatic_time();
    gev::streamchannel::channel_start_params params;
    params.deliver = [this](const frame_info& info, const frame_receive_stats& stats) { deliver(info, stats); };
    params.get_frame = [this] { return next_frame(); };
    params.reception_ended = [this](const std::string& reason) {
        remote_device.fire_error({GC_ERR_IO, "Reception of the stream ended: {}", reason});
    };
    params.payload_size = static_cast<uint32_t>(*payload);
    params.preferred_packet_size = static_cast<int32_t>(packet_size_chosen);
    if (remote_device.supports_resend()) {
        // On the receive thread, which never waits for the service: what finds no room is lost like a packet on the
        // wire.
        params.send_resend = [this, handle = channel_lease](uint32_t channel_index, uint64_t block_id, uint32_t first,
                                                            uint32_t last, bool extended) {
            const auto sent = handle.invoke<catalogue::send_resend_cmd>(channel_index, block_id, first, last, extended);
            if (sent) return;
            if (unsent_requests++ == 0) {
                gvsp_logger().warn("The service takes no resend request: {}.", sent.error().message());
            }
            stream_status_text.set("gev: resends-not-sent={}", unsent_requests);
        };
    }
    if (const std::error_code error = stream_channel->connect(params)) {
        return {GC_ERR_ACCESS_DENIED, "Failed to open stream channel to device due to err={}", error.message()};
    }
    if (const auto chosen = stream_channel->query_packet_size(0)) packet_size_chosen = static_cast<uint32_t>(*chosen);
    apply_resend_settings();
    return success();
}

void device_data_stream::read_tick_period() {
    auto& registers = remote_device.remote_port();
    const auto low = registers.read_reg(gev::reg::tick_frequency_low, 0, registers.default_timeout);
    const auto high = registers.read_reg(gev::reg::tick_frequency_high, 0, registers.default_timeout);
    if (!low || !high) {
        tick_period_ns = 1.0;
        return;
    }
    const uint64_t frequency = uint64_t{*high} << 32 | *low;
    gvsp_logger().info("Timestamp Tick Frequency Registers = {}", frequency);
    if (frequency != 0) tick_period_ns = 1e9 / static_cast<double>(frequency);
}

void device_data_stream::read_automatic_time() {
    auto* nodes = remote_device.remote_port().remote_document();
    auto* rate_node = nodes->find<GenICam::IFloat>("AcquisitionFrameRate");
    if (rate_node == nullptr) return;
    const auto rate = rate_node->get_val(GenICam::access_flags::bypass_cache);
    if (rate && *rate > 0.0) resend.automatic_time_us = static_cast<uint32_t>(std::min(1.0 / *rate * 1e6, 4e9));
}

void device_data_stream::apply_resend_settings() {
    gev::streamchannel::resend_parameters parameters;
    const uint32_t set_time = resend.time_per_frame_us;
    parameters.auto_time_per_frame = resend.auto_time_per_frame || set_time == 0;
    parameters.time_per_frame = parameters.auto_time_per_frame ? resend.automatic_time_us.load() : set_time;
    parameters.max_open_blocks = 3;
    parameters.max_retries = 3;
    parameters.resend_delay_factor = 0.5F;
    parameters.resend_enabled = resend.enable;
    static_cast<void>(stream_channel->set_resend_params(parameters));
}

void device_data_stream::close_stream() {
    if (!stream_channel) return;
    try {
        static_cast<void>(stream_channel->flush());
    } catch (const std::bad_alloc&) { // the end of the receive thread is a flush, too
    }
    stream_channel->disconnect();
    stream_channel.reset();
    if (unsent_requests != 0) gvsp_logger().warn("The service did not take {} resend requests.", unsent_requests);
}

void device_data_stream::flush_stream() {
    if (stream_channel) static_cast<void>(stream_channel->flush());
}

frame_context device_data_stream::next_frame() {
    Buffer* buffer = take_input_buffer(true);
    if (buffer == nullptr) return {};
    return {buffer, static_cast<std::byte*>(buffer->base), buffer->size};
}

void device_data_stream::deliver(const frame_info& info, const frame_receive_stats& stats) {
    if (!stream_settings().flag(gds_producer::settings_block::overlay)) {
        resends_shown = false;
    } else if (!resends_shown || stats.resend_packets_requested != resend_packets_requested) {
        overlay_status_text.set("gev: resends-requested={}", stats.resend_packets_requested);
        resends_shown = true;
    }
    if (stats.skipped_frames > skipped_frames) add_packet_loss(stats.skipped_frames - skipped_frames);
    skipped_frames = stats.skipped_frames;
    resend_packets_requested = stats.resend_packets_requested;
    packets_expected = stats.packets_expected;
    packets_received = stats.packets_received;
    packets_late = stats.packets_late;
    if (info.context.buffer == nullptr) return;
    auto& buffer = *static_cast<Buffer*>(info.context.buffer);
    if ((info.flags & frame_flags::flushed) != 0) {
        discard_buffer(buffer);
        return;
    }
    buffer.width = info.size_x;
    buffer.height = info.size_y;
    buffer.pixel_format = info.pixel_format;
    buffer.x_padding = info.padding_x;
    buffer.pixel_format_namespace = PIXELFORMAT_NAMESPACE_PFNC_32BIT;
    buffer.data_size = info.expected_payload_size;
    buffer.size_filled = info.filled_size;
    buffer.frame_id = info.block_id;
    buffer.timestamp = to_nanoseconds(info.timestamp, tick_period_ns);
    buffer.chunk_layout_id = info.chunk_layout_id;
    buffer.chunk_length = info.chunk_length;
    buffer.contains_chunk_data = (info.flags & frame_flags::has_chunk) != 0;
    buffer.fill_state = (info.flags & frame_flags::incomplete) != 0 ? FillState::incomplete : FillState::complete;
    push_async_deliver(buffer);
}

void device_data_stream::add_DeviceInstance_genicam_items(Util::GenApiInterfaceBuilder& builder) {
    producer_device_data_stream::add_DeviceInstance_genicam_items(builder);
    const std::string later = " Value is used on the next DataStream setup.";
    const auto flag = [&](std::string_view name, std::atomic<bool>& value, const char* display_name,
                          const char* tool_tip) {
        auto& node = builder.add_rw_boolean(
            name, [&value]() -> std::expected<bool, Error> { return value.load(); },
            [&value](bool new_value) {
                value = new_value;
                return success();
            },
            std::string{name} + "_Register");
        node.display_name = display_name;
        node.tool_tip = tool_tip;
        node.description = tool_tip + later;
    };
    flag("StreamPacketResendEnable", resend.enable, "Stream Packet Resend Enable",
         "Enables/Disables resend packets being sent when packets are missing from a frame in the data stream.");
    flag("StreamPacketResendAutoTimePerFrame", resend.auto_time_per_frame, "Stream Packet Resend Auto Time Per Frame",
         "Enables/Disables automatically setting 'Driver_StreamPacketResend_TimePerFrame'.");
    auto& time = builder.add_rw_integer<uint32_t>(
        "StreamPacketResendTimePerFrame",
        [this]() -> std::expected<uint32_t, Error> { return resend.time_per_frame_us.load(); },
        [this](uint32_t value) {
            resend.time_per_frame_us = value;
            return success();
        },
        "StreamPacketResendTimePerFrame_Register");
    time.display_name = "Stream Packet Resend Time Per Frame";
    time.tool_tip = "Controls the time per frame used to determine when to generate 'resend-requests' relative to the "
                    "block start time.";
    time.description = *time.tool_tip + later;
    time.unit = "us";
    time.min = int64_t{0};
    time.max = int64_t{100000000};
    builder
        .add_category("StreamPacketResendControl", {"StreamPacketResendEnable", "StreamPacketResendAutoTimePerFrame",
                                                    "StreamPacketResendTimePerFrame"})
        .display_name = "Stream Packet Resend Control";
}

void device_data_stream::add_DeviceDataStream_and_DeviceInstance_genicam_items(Util::GenApiInterfaceBuilder& builder) {
    producer_device_data_stream::add_DeviceDataStream_and_DeviceInstance_genicam_items(builder);
    const auto counter = [&](const std::string& name, std::atomic<uint64_t>& value, const char* display_name,
                             const char* tool_tip) {
        auto& node = builder.add_ro_integer<uint64_t>(
            name, [&value]() -> std::expected<uint64_t, Error> { return value.load(); }, name + "_Register");
        node.display_name = display_name;
        node.tool_tip = tool_tip;
    };
    counter("StreamResendRequestedPackets", resend_packets_requested, "Stream Resend Requested Packets",
            "Count of packets to resend requested.");
    counter("StreamExpectedPacketCount", packets_expected, "Stream Expected Packet Count",
            "Count of packets that the frames which have ended are made of.");
    counter("StreamReceivedPacketCount", packets_received, "Stream Received Packet Count",
            "Count of those packets that came before their frame ended.");
    counter("StreamLatePacketCount", packets_late, "Stream Late Packet Count",
            "Count of packets that came after their frame had ended, repeated ones with them.");
    builder.add_category("StreamStatistics", {"StreamResendRequestedPackets", "StreamExpectedPacketCount",
                                              "StreamReceivedPacketCount", "StreamLatePacketCount"});
}

} // namespace gevdrv::gentl
