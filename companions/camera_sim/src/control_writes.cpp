// Who may write, what may be written, and what it does.
#include "control_server.h"

#include <camera_sim/registers.h>

#include <algorithm>
#include <array>
#include <bit>

namespace camera_sim {

namespace gvcp = gige::gvcp;
namespace boot = gige::gvcp::reg;
namespace bits = gige::gvcp::bits;

namespace {

uint32_t packet_size_taken(const camera_options& options, uint32_t asked) {
    uint32_t size = std::clamp(asked, 576U, options.max_packet_size);
    const uint32_t step = options.packet_size_step;
    if (options.packet_size_rounding == size_rounding::down) size = size / step * step;
    if (options.packet_size_rounding == size_rounding::up) size = (size + step - 1) / step * step;
    return std::clamp(size, 576U, options.max_packet_size);
}

} // namespace

gige::gvcp::status control_server::write(const gige::endpoint& from, uint32_t address,
                                         std::span<const std::byte> data) {
    if (address == boot::privilege && data.size() == 4) return write_privilege(from, gige::load32(data.data()));
    if (!is_holder(from)) return status::access_denied;
    {
        const std::lock_guard guard{device.mutex};
        auto& memory = device.memory;
        if (const auto result = memory.check(address, data.size(), access::write); result != status::success)
            return result;
        const bool text = address == boot::user_name;
        for (std::size_t at = 0; !text && at < data.size(); at += 4) {
            const auto result = validate(address + static_cast<uint32_t>(at), gige::load32(&data[at]));
            if (result != status::success) return result;
        }
        std::array<std::byte, gvcp::max_body> before;
        const auto old = std::span{before}.first(data.size());
        memory.copy_out(address, old);
        memory.copy_in(address, data);
        // Looked at afterwards, as half of it may have been written.
        if (!reg::exposure_range.holds(memory.get_double(reg::exposure_time))) {
            memory.copy_in(address, old);
            return status::invalid_parameter;
        }
        update_derived(device);
    }
    for (std::size_t at = 0; at < data.size(); at += 4)
        after_write(address + static_cast<uint32_t>(at), gige::load32(&data[at]));
    return status::success;
}

gige::gvcp::status control_server::validate(uint32_t address, uint32_t value) const {
    const auto& memory = device.memory;
    const bool locked = device.acquiring;
    switch (address) {
    case reg::width:
    case reg::height: {
        if (locked) return status::access_denied;
        const bool wide = address == reg::width;
        const uint32_t limit = memory.get(wide ? reg::sensor_width : reg::sensor_height) -
                               memory.get(wide ? reg::offset_x : reg::offset_y);
        return value == 0 || value > limit || (wide && value % 8 != 0) ? status::invalid_parameter : status::success;
    }
    case reg::offset_x:
    case reg::offset_y: {
        const bool wide = address == reg::offset_x;
        const uint32_t limit =
            memory.get(wide ? reg::sensor_width : reg::sensor_height) - memory.get(wide ? reg::width : reg::height);
        return value > limit ? status::invalid_parameter : status::success;
    }
    case reg::pixel_format:
        if (locked) return status::access_denied;
        return (value >> 16 & 0xFF) == 0 ? status::invalid_parameter : status::success;
    case reg::chunk_mode:
    case reg::acquisition_mode:
    case boot::stream_configuration:
        return locked ? status::access_denied : status::success;
    case boot::heartbeat_timeout:
        return value == 0 ? status::invalid_parameter : status::success;
    case reg::frame_rate:
        return reg::frame_rate_range.holds(std::bit_cast<float>(value)) ? status::success : status::invalid_parameter;
    case reg::gamma:
        return reg::gamma_range.holds(std::bit_cast<float>(value)) ? status::success : status::invalid_parameter;
    case reg::iris:
        return value == 0 || value > reg::iris_most ? status::invalid_parameter : status::success;
    case reg::focus:
        return value > reg::focus_most ? status::invalid_parameter : status::success;
    case reg::balance_ratio:
    case reg::balance_ratio + 4:
    case reg::balance_ratio + 8:
        return reg::balance_range.holds(std::bit_cast<float>(value)) ? status::success : status::invalid_parameter;
    case reg::throughput_limit:
        return value < reg::throughput_smallest || value > memory.get(reg::link_speed) ||
                       value % reg::throughput_step != 0
                   ? status::invalid_parameter
                   : status::success;
    case boot::stream_packet_size: {
        // A change of the size in the middle of a frame would change its packets' number.
        const uint32_t before = memory.get(boot::stream_packet_size);
        return locked && (value & 0xFFFF) != (before & 0xFFFF) ? status::access_denied : status::success;
    }
    default:
        return firmware.validate(address, value);
    }
}

void control_server::after_write(uint32_t address, uint32_t value) {
    switch (address) {
    case boot::stream_packet_size: {
        {
            const std::lock_guard guard{device.mutex};
            const uint32_t size = packet_size_taken(device.options, value & 0xFFFF);
            device.memory.set(boot::stream_packet_size, (value & bits::do_not_fragment) | size);
        }
        if (value & bits::fire_test_packet) stream.fire_test_packet();
        break;
    }
    case boot::stream_port:
        if (value == 0) stream.abort();
        break;
    case boot::message_port:
        if (value == 0) messages.close();
        break;
    case boot::heartbeat_timeout: {
        const std::lock_guard guard{device.mutex};
        device.memory.set(boot::heartbeat_timeout, std::max(value, 500U));
        break;
    }
    case boot::timestamp_control: {
        const std::lock_guard guard{device.mutex};
        if (value & bits::timestamp_latch) device.memory.set64(boot::timestamp_high, device.timestamp());
        if (value & bits::timestamp_reset) device.clock_origin = device_state::steady_ns();
        device.memory.set(boot::timestamp_control, 0);
        break;
    }
    case reg::acquisition_control:
        if (value == 1) stream.start_acquisition();
        if (value == 0) stream.stop_acquisition();
        break;
    case reg::trigger_software: {
        bool software = false;
        {
            const std::lock_guard guard{device.mutex};
            software = device.memory.get(reg::trigger_source) == 0;
        }
        if (software) stream.trigger();
        break;
    }
    case reg::test_event: {
        bool wanted = false;
        {
            const std::lock_guard guard{device.mutex};
            wanted = device.memory.get(reg::event_notification) != 0;
        }
        if (!wanted) break;
        camera_event event{0x9000, 0, device.timestamp(), std::vector<std::byte>(16)};
        gige::store64(event.data.data(), event.timestamp);
        messages.send(event);
        break;
    }
    case reg::device_reset:
        begin_reboot();
        break;
    case reg::user_set_save: {
        const std::lock_guard guard{device.mutex};
        if (device.memory.get(reg::user_set_selector) == 0) break; // the default set is fixed
        saved_set.resize(reg::lut_content - reg::base);
        device.memory.copy_out(reg::base, saved_set);
        break;
    }
    case reg::user_set_load: {
        if (device.acquiring) break;
        const std::lock_guard guard{device.mutex};
        const bool saved = device.memory.get(reg::user_set_selector) != 0 && !saved_set.empty();
        device.memory.copy_in(reg::base, saved ? saved_set : default_set);
        update_derived(device);
        break;
    }
    default:
        firmware.after_write(address, value);
        break;
    }
}

gige::gvcp::status control_server::write_privilege(const gige::endpoint& from, uint32_t value) {
    constexpr uint32_t known = bits::exclusive | bits::control | bits::switchover;
    const uint32_t wanted = value & known; // the upper half is the key of a switch-over, which any value fits
    uint32_t current = 0;
    {
        const std::lock_guard guard{device.mutex};
        current = device.memory.get(boot::privilege);
    }
    const bool foreign = holder && !is_holder(from);
    if (foreign && (current & bits::switchover) == 0) return status::access_denied;
    if (foreign && (current & bits::exclusive) != 0) return status::access_denied;
    if ((wanted & (bits::exclusive | bits::control)) == 0) {
        if (foreign) return status::access_denied;
        release_control();
        return status::success;
    }
    holder = from;
    last_heard = clock::now();
    const std::lock_guard guard{device.mutex};
    device.memory.set(boot::privilege, wanted);
    device.memory.set(boot::primary_address, from.address);
    device.memory.set(boot::primary_port, from.port);
    return status::success;
}

void control_server::release_control() {
    holder.reset();
    stream.abort();
    messages.close();
    firmware.abandon();
    actions.clear();
    const std::lock_guard guard{device.mutex};
    for (const auto address :
         {boot::privilege, boot::primary_address, boot::primary_port, boot::stream_port, boot::message_port})
        device.memory.set(address, 0);
}

void control_server::begin_reboot() {
    ++device.counted.reboots;
    device.silent = true;
    release_control();
    reboot_ends = clock::now() + std::chrono::milliseconds{device.options.reboot_ms};
}

void control_server::finish_reboot() {
    reboot_ends.reset();
    firmware.restarted();
    last_acks.clear();
    late_acks.clear();
    uint32_t address = 0;
    {
        const std::lock_guard guard{device.mutex};
        auto& memory = device.memory;
        reset_registers(device, own_address, true);
        address = start_address();
        memory.set(boot::message_source_port, messages.source_port());
        memory.set(boot::stream_source_port, stream.source_port());
        device.clock_origin = device_state::steady_ns();
    }
    if (address != own_address) change_address(address);
    device.silent = false;
}

// The persistent address where that is switched on, with its network; else the one of the first start. Under the mutex.
uint32_t control_server::start_address() {
    auto& memory = device.memory;
    const uint32_t persistent = memory.get(boot::persistent_address);
    if ((memory.get(boot::ip_config_current) & bits::ip_persistent) == 0 || persistent == 0)
        return device.options.address;
    memory.set(boot::current_mask, memory.get(boot::persistent_mask));
    memory.set(boot::current_gateway, memory.get(boot::persistent_gateway));
    return persistent;
}

void control_server::change_address(uint32_t address) {
    stream.abort();
    last_acks.clear();
    if (!bind(address)) return;
    // An address this host does not have: stay reachable under the old one.
    [[maybe_unused]] const auto back = bind(own_address);
}

} // namespace camera_sim
