#include "device_state.h"

#include <camera_sim/registers.h>
#include <camera_sim/zip_writer.h>
#include <gige/test_picture.h>
#include <gige/udp_socket.h>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>

namespace camera_sim {

namespace boot = gige::gvcp::reg;
namespace bits = gige::gvcp::bits;

statistics counters::snapshot() const {
    return {frames_sent,
            frames_skipped,
            packets_sent,
            packets_lost,
            packets_duplicated,
            packets_reordered,
            packets_delayed,
            packets_truncated,
            garbage_sent,
            resend_requests,
            resend_requests_lost,
            resend_packets_requested,
            packets_resent,
            resends_lost,
            resends_refused,
            requests_refused,
            frames_refused,
            bytes_sent,
            send_errors,
            test_packets,
            control_requests,
            control_writes,
            control_lost,
            control_repeated,
            pending_acks,
            heartbeats_missed,
            events_sent,
            events_acknowledged,
            actions,
            reboots,
            link_dropped};
}

std::string to_json(const statistics& s, const camera_options& options, uint32_t address) {
    const nlohmann::ordered_json line{
        {"address", gige::to_string(address)},
        {"serial", options.serial},
        {"frames_sent", s.frames_sent},
        {"frames_skipped", s.frames_skipped},
        {"packets_sent", s.packets_sent},
        {"packets_lost", s.packets_lost},
        {"packets_duplicated", s.packets_duplicated},
        {"packets_reordered", s.packets_reordered},
        {"packets_delayed", s.packets_delayed},
        {"packets_truncated", s.packets_truncated},
        {"garbage_sent", s.garbage_sent},
        {"resend_requests", s.resend_requests},
        {"resend_requests_lost", s.resend_requests_lost},
        {"resend_packets_requested", s.resend_packets_requested},
        {"packets_resent", s.packets_resent},
        {"resends_lost", s.resends_lost},
        {"resends_refused", s.resends_refused},
        {"requests_refused", s.requests_refused},
        {"frames_refused", s.frames_refused},
        {"bytes_sent", s.bytes_sent},
        {"send_errors", s.send_errors},
        {"test_packets", s.test_packets},
        {"control_requests", s.control_requests},
        {"control_writes", s.control_writes},
        {"control_lost", s.control_lost},
        {"control_repeated", s.control_repeated},
        {"pending_acks", s.pending_acks},
        {"heartbeats_missed", s.heartbeats_missed},
        {"events_sent", s.events_sent},
        {"events_acknowledged", s.events_acknowledged},
        {"actions", s.actions},
        {"reboots", s.reboots},
        {"link_dropped", s.link_dropped},
    };
    return line.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

// A locally administered address made of the IPv4 address the camera started with.
uint64_t mac_of(const camera_options& options) {
    return options.mac != 0 ? options.mac & 0xFFFF'FFFF'FFFF : 0x0200'0000'0000 | options.address;
}

void build_address_space(device_state& device, const std::string& document) {
    auto& memory = device.memory;
    memory.add_region(0, 0xA000);
    memory.allow(0x0000, 0x00F8, access::read);
    memory.allow(boot::user_name, 16, access::read_write);
    memory.allow(boot::ip_config_current, 4, access::read_write);
    memory.allow(boot::first_url, 1024, access::read);
    memory.allow(boot::interface_count, 4, access::read);
    for (const auto address : {boot::persistent_address, boot::persistent_mask, boot::persistent_gateway})
        memory.allow(address, 4, access::read_write);
    for (const auto address : {boot::message_channel_count, boot::stream_channel_count, boot::stream_capability,
                               boot::control_capability, boot::tick_frequency_high, boot::tick_frequency_low,
                               boot::timestamp_high, boot::timestamp_low, boot::primary_port, boot::primary_address})
        memory.allow(address, 4, access::read);
    for (const auto address : {boot::stream_configuration, boot::heartbeat_timeout, boot::discovery_delay,
                               boot::control_configuration, boot::privilege})
        memory.allow(address, 4, access::read_write);
    memory.allow(boot::timestamp_control, 4, access::read_write);
    for (const auto address : {boot::message_port, boot::message_address, boot::message_timeout, boot::message_retries})
        memory.allow(address, 4, access::read_write);
    memory.allow(boot::message_source_port, 4, access::read);
    for (const auto address : {boot::stream_port, boot::stream_packet_size, boot::stream_packet_delay,
                               boot::stream_address, boot::stream_channel_configuration})
        memory.allow(address, 4, access::read_write);
    memory.allow(boot::stream_channel_capability, 4, access::read);
    if (device.options.source_port) memory.allow(boot::stream_source_port, 4, access::read);

    memory.add_region(reg::base, reg::region_size);
    for (const auto address : {reg::sensor_width, reg::sensor_height, reg::payload_size, reg::acquisition_status,
                               reg::temperature, reg::temperature + 4, reg::link_speed, reg::line_status})
        memory.allow(address, 4, access::read);
    for (const auto address : {reg::width,
                               reg::height,
                               reg::offset_x,
                               reg::offset_y,
                               reg::pixel_format,
                               reg::test_pattern,
                               reg::reverse_x,
                               reg::acquisition_mode,
                               reg::acquisition_control,
                               reg::acquisition_frame_count,
                               reg::frame_rate_enable,
                               reg::frame_rate,
                               reg::exposure_auto,
                               reg::gain_auto,
                               reg::trigger_mode,
                               reg::trigger_source,
                               reg::black_level_raw,
                               reg::gamma,
                               reg::gamma_enable,
                               reg::chunk_mode,
                               reg::action_group_key,
                               reg::action_group_mask,
                               reg::user_set_selector,
                               reg::line_inverter,
                               reg::throughput_limit_mode,
                               reg::throughput_limit})
        memory.allow(address, 4, access::read_write);
    memory.allow(reg::exposure_time, 8, access::read_write);
    memory.allow(reg::gain_raw, 16, access::read_write);
    if (device.options.scene.what != scene_kind::none) memory.allow(reg::iris, 5 * 4, access::read_write);
    memory.allow(reg::chunk_enable, 4 * reg::chunks.size(), access::read_write);
    memory.allow(reg::event_notification, 4 * reg::events.size(), access::read_write);
    memory.allow(reg::lut_content, 4 * 256, access::read_write);
    for (const auto address : {reg::trigger_software, reg::test_event, reg::action_device_key, reg::device_reset,
                               reg::user_set_load, reg::user_set_save})
        memory.allow(address, 4, access::write);

    if (!device.options.document.empty()) memory.fill_gaps();
    const auto bytes = std::as_bytes(std::span{document});
    std::vector<std::byte> served{bytes.begin(), bytes.end()};
    if (device.options.zipped_document) served = zip_one_file("orv_simcam.xml", served);
    const std::size_t length = served.size();
    memory.add_region(reg::document_base, std::move(served));
    memory.set_text(boot::first_url, 512,
                    fmt::format("Local:orv_simcam_1_0_0.{};{:X};{:X}?SchemaVersion=1.1.0",
                                device.options.zipped_document ? "zip" : "xml", reg::document_base, length));
}

void reset_registers(device_state& device, uint32_t address, bool keep_persistent) {
    auto& memory = device.memory;
    const auto& options = device.options;
    const bool loopback = address >> 24 == 127;

    memory.set(boot::version, 2 << 16);
    memory.set(boot::device_mode, 0x80000001);
    const uint64_t mac = mac_of(options);
    memory.set(boot::mac_high, static_cast<uint32_t>(mac >> 32));
    memory.set(boot::mac_low, static_cast<uint32_t>(mac));
    memory.set(boot::ip_config_supported, bits::ip_persistent | bits::ip_dhcp | bits::ip_link_local);
    memory.set(boot::current_address, address);
    memory.set(boot::current_mask, loopback ? 0xFF000000 : 0xFFFFFF00);
    memory.set(boot::current_gateway, 0);
    memory.set_text(boot::vendor, 32, options.vendor);
    memory.set_text(boot::model, 32, options.model);
    memory.set_text(boot::device_version, 32, device.firmware_version);
    memory.set_text(boot::information, 48, "camera in software");
    memory.set_text(boot::serial, 16, options.serial);
    if (!keep_persistent) {
        memory.set(boot::ip_config_current, bits::ip_dhcp | bits::ip_link_local);
        memory.set_text(boot::user_name, 16, options.user_name);
        for (const auto persistent : {boot::persistent_address, boot::persistent_mask, boot::persistent_gateway})
            memory.set(persistent, 0);
    }
    memory.set(boot::interface_count, 1);
    memory.set(boot::message_channel_count, 1);
    memory.set(boot::stream_channel_count, 1);
    memory.set(boot::stream_capability, (options.source_port ? bits::stream_source_port : 0) | bits::stream_legacy_ids);
    memory.set(boot::stream_configuration, options.extended_ids ? bits::stream_extended_ids : 0);
    memory.set(boot::control_capability,
               bits::can_concatenate | bits::can_write_mem | (options.resend ? bits::can_resend : 0) | bits::can_event |
                   bits::can_event_data | bits::can_pending_ack | bits::can_action | bits::has_primary |
                   bits::can_disable_heartbeat | bits::has_serial | bits::has_user_name);
    memory.set(boot::heartbeat_timeout, 3000);
    memory.set(boot::tick_frequency_high, static_cast<uint32_t>(options.tick_frequency >> 32));
    memory.set(boot::tick_frequency_low, static_cast<uint32_t>(options.tick_frequency));
    for (const auto zero : {boot::timestamp_control, boot::timestamp_high, boot::timestamp_low, boot::discovery_delay,
                            boot::control_configuration, boot::privilege, boot::primary_port, boot::primary_address,
                            boot::message_port, boot::message_address, boot::stream_port, boot::stream_packet_delay,
                            boot::stream_address, boot::stream_channel_configuration})
        memory.set(zero, 0);
    memory.set(boot::message_timeout, 300);
    memory.set(boot::message_retries, 2);
    memory.set(boot::stream_packet_size, bits::do_not_fragment | options.packet_size);
    memory.set(boot::stream_channel_capability, 0);

    memory.set(reg::sensor_width, options.sensor_width);
    memory.set(reg::sensor_height, options.sensor_height);
    memory.set(reg::width, options.width != 0 ? options.width : options.sensor_width);
    memory.set(reg::height, options.height != 0 ? options.height : options.sensor_height);
    memory.set(reg::pixel_format, options.pixel_format);
    for (const auto zero : {reg::offset_x, reg::offset_y, reg::reverse_x, reg::acquisition_mode,
                            reg::acquisition_control, reg::acquisition_status, reg::exposure_auto, reg::gain_auto,
                            reg::trigger_mode, reg::trigger_source, reg::black_level_raw, reg::gamma_enable,
                            reg::chunk_mode, reg::action_group_key, reg::user_set_selector, reg::line_inverter})
        memory.set(zero, 0);
    memory.set(reg::test_pattern, 0);
    memory.set(reg::acquisition_frame_count, 10);
    memory.set(reg::frame_rate_enable, 1);
    memory.set_float(reg::frame_rate, static_cast<float>(options.frame_rate));
    memory.set_double(reg::exposure_time, 10000.0);
    for (uint32_t i = 0; i < 4; ++i) memory.set(reg::gain_raw + 4 * i, 0);
    memory.set_float(reg::gamma, 1.0F);
    memory.set(reg::iris, reg::iris_start);
    memory.set(reg::focus, options.scene.sharp_at);
    for (uint32_t i = 0; i < 3; ++i) memory.set_float(reg::balance_ratio + 4 * i, 1.0F);
    for (uint32_t i = 0; i < reg::chunks.size(); ++i) memory.set(reg::chunk_enable + 4 * i, 1);
    for (uint32_t i = 0; i < reg::events.size(); ++i) memory.set(reg::event_notification + 4 * i, 0);
    memory.set(reg::action_device_key, options.action_device_key);
    memory.set(reg::action_group_mask, 0xFFFFFFFF);
    memory.set_float(reg::temperature, 41.5F);
    memory.set_float(reg::temperature + 4, 36.25F);
    const auto link_speed = static_cast<uint32_t>(options.link ? options.link->bytes_per_second() : 125'000'000);
    memory.set(reg::link_speed, link_speed);
    memory.set(reg::throughput_limit_mode, 0);
    memory.set(reg::throughput_limit, link_speed / reg::throughput_step * reg::throughput_step);
    memory.set(reg::line_status, 0x5);
    for (uint32_t i = 0; i < 256; ++i) memory.set(reg::lut_content + 4 * i, i);
    update_derived(device);
}

uint32_t line_padding(const camera_options& options, uint32_t width, uint32_t height, uint32_t format) {
    const bool in_lines =
        gige::test_picture_size(width, 1, format) * height == gige::test_picture_size(width, height, format);
    return in_lines ? options.line_padding : 0;
}

void update_derived(device_state& device) {
    auto& memory = device.memory;
    const uint32_t width = memory.get(reg::width), height = memory.get(reg::height),
                   format = memory.get(reg::pixel_format);
    std::size_t size = gige::test_picture_size(width, height, format);
    size += std::size_t{height} * line_padding(device.options, width, height, format);
    if (memory.get(reg::chunk_mode) != 0) {
        constexpr std::array<std::size_t, reg::chunks.size()> sizes{8, 8, 8, 8, 4, 4, 4};
        size = (size + 3) / 4 * 4 + 8;
        for (uint32_t i = 0; i < sizes.size(); ++i)
            if (memory.get(reg::chunk_enable + 4 * i) != 0) size += sizes[i] + 8;
    }
    memory.set(reg::payload_size, static_cast<uint32_t>(size));
}

} // namespace camera_sim
