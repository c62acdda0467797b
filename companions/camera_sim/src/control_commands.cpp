// The bodies of the control commands.
#include "control_server.h"

#include <camera_sim/registers.h>

#include <algorithm>

namespace camera_sim {

namespace gvcp = gige::gvcp;

void control_server::discovery(const request&, answer& built) {
    const std::lock_guard guard{device.mutex};
    device.memory.copy_out(0, std::span{built.body}.first(gvcp::discovery_size));
    built.size = gvcp::discovery_size;
}

bool control_server::force_ip(const request& what, answer& built) {
    if (what.body.size() < gvcp::force_ip_size) {
        built.result = status::invalid_parameter;
        return true;
    }
    const uint64_t mac = static_cast<uint64_t>(gige::load16(&what.body[2])) << 32 | gige::load32(&what.body[4]);
    if (mac != mac_of(device.options)) return false;
    if (holder) {
        built.result = status::access_denied;
        return true;
    }
    uint32_t wanted = gige::load32(&what.body[20]);
    const std::lock_guard guard{device.mutex};
    auto& memory = device.memory;
    if (wanted == 0) {
        wanted = start_address();
    } else {
        memory.set(gvcp::reg::current_mask, gige::load32(&what.body[36]));
        memory.set(gvcp::reg::current_gateway, gige::load32(&what.body[52]));
    }
    if (wanted != own_address) next_address = wanted;
    return true;
}

gige::gvcp::status control_server::may_read(const gige::endpoint& from) const {
    if (!holder || *holder == from) return status::success;
    const std::lock_guard guard{device.mutex};
    return (device.memory.get(gvcp::reg::privilege) & gvcp::bits::exclusive) != 0 ? status::access_denied
                                                                                  : status::success;
}

void control_server::read_registers(const request& what, answer& built) {
    built.result = may_read(what.from);
    if (built.result == status::success && (what.body.empty() || what.body.size() % 4 != 0))
        built.result = status::invalid_parameter;
    if (built.result != status::success) return;
    const std::lock_guard guard{device.mutex};
    device.memory.set(reg::acquisition_status, device.acquiring ? 1 : 0);
    for (std::size_t at = 0; at < what.body.size(); at += 4) {
        const uint32_t address = gige::load32(&what.body[at]);
        built.result = device.memory.check(address, 4, access::read);
        if (built.result != status::success) return;
        device.memory.copy_out(address, std::span{built.body}.subspan(at, 4));
        built.size = at + 4;
    }
}

void control_server::write_registers(const request& what, answer& built) {
    if (what.body.empty() || what.body.size() % 8 != 0) {
        built.result = status::invalid_parameter;
        return;
    }
    uint16_t done = 0;
    for (std::size_t at = 0; at < what.body.size() && built.result == status::success; at += 8) {
        built.result = write(what.from, gige::load32(&what.body[at]), what.body.subspan(at + 4, 4));
        if (built.result == status::success) ++done;
    }
    built.size = 4;
    gige::store16(&built.body[0], 0);
    gige::store16(&built.body[2], done);
}

void control_server::read_memory(const request& what, answer& built) {
    built.result = may_read(what.from);
    if (built.result != status::success) return;
    if (what.body.size() < 8) {
        built.result = status::invalid_parameter;
        return;
    }
    const uint32_t address = gige::load32(&what.body[0]);
    const std::size_t count = gige::load16(&what.body[6]);
    if (count == 0 || count > gvcp::max_memory_access) {
        built.result = status::invalid_parameter;
        return;
    }
    const std::lock_guard guard{device.mutex};
    device.memory.set(reg::acquisition_status, device.acquiring ? 1 : 0);
    built.result = device.memory.check(address, count, access::read);
    if (built.result != status::success) return;
    gige::store32(&built.body[0], address);
    device.memory.copy_out(address, std::span{built.body}.subspan(4, count));
    built.size = 4 + count;
}

void control_server::write_memory(const request& what, answer& built) {
    if (what.body.size() <= 4) {
        built.result = status::invalid_parameter;
        return;
    }
    const auto data = what.body.subspan(4);
    built.result = write(what.from, gige::load32(&what.body[0]), data);
    built.size = 4;
    gige::store16(&built.body[0], 0);
    gige::store16(&built.body[2], built.result == status::success ? static_cast<uint16_t>(data.size()) : uint16_t{0});
}

void control_server::resend(const request& what) {
    resend_request wanted;
    wanted.extended = (what.header.flags & gvcp::flag::extended_ids) != 0;
    auto result = status::success;
    // Consumers ask from the control channel's port, or from that of the stream.
    if (!holder || holder->address != what.from.address) result = status::access_denied;
    if (what.body.size() < (wanted.extended ? 20U : 12U) || gige::load16(&what.body[0]) != 0)
        result = status::invalid_parameter;
    if (result != status::success) {
        ++device.counted.resends_refused;
        count_refusal(what, result);
        return;
    }
    wanted.first = gige::load32(&what.body[4]);
    wanted.last = gige::load32(&what.body[8]);
    if (wanted.extended) {
        wanted.block_id = gige::load64(&what.body[12]);
    } else {
        wanted.block_id = gige::load16(&what.body[2]);
        wanted.first &= 0xFFFFFF;
        wanted.last &= 0xFFFFFF;
    }
    stream.answer(wanted);
}

bool control_server::action(const request& what, answer& built) {
    const bool scheduled = (what.header.flags & gvcp::flag::scheduled) != 0;
    if (what.body.size() < (scheduled ? 20U : 12U)) {
        built.result = status::invalid_parameter;
        return true;
    }
    {
        const std::lock_guard guard{device.mutex};
        const auto& memory = device.memory;
        if (gige::load32(&what.body[0]) != memory.get(reg::action_device_key) ||
            gige::load32(&what.body[4]) != memory.get(reg::action_group_key) ||
            (gige::load32(&what.body[8]) & memory.get(reg::action_group_mask)) == 0)
            return false;
    }
    if (!holder) {
        built.result = status::access_denied;
        return true;
    }
    if (!scheduled) {
        run_action();
        return true;
    }
    const uint64_t at = gige::load64(&what.body[12]);
    if (at < device.timestamp()) {
        built.result = status::action_late;
        run_action();
    } else if (actions.size() >= 16) {
        built.result = status::overflow;
    } else {
        actions.push_back({at});
    }
    return true;
}

void control_server::run_action() {
    ++device.counted.actions;
    bool triggers = false;
    bool notify = false;
    {
        const std::lock_guard guard{device.mutex};
        triggers = device.memory.get(reg::trigger_source) == 1;
        notify = device.memory.get(reg::event_notification + 16) != 0;
    }
    if (triggers) stream.trigger();
    if (notify) messages.send({0x9004, 0, device.timestamp(), {}});
}

} // namespace camera_sim
