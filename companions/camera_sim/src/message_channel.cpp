#include "message_channel.h"

#include <algorithm>

namespace camera_sim {

namespace gvcp = gige::gvcp;

std::error_code message_channel::open(uint32_t address) {
    auto opened = gige::udp_socket::open({address, 0});
    if (!opened) return opened.error();
    socket = std::move(*opened);
    waiting.clear();
    return {};
}

gige::endpoint message_channel::destination() const {
    const std::lock_guard guard{device.mutex};
    return {device.memory.get(gvcp::reg::message_address),
            static_cast<uint16_t>(device.memory.get(gvcp::reg::message_port))};
}

void message_channel::send(const camera_event& event) {
    const auto to = destination();
    if (to.port == 0 || device.silent) return;
    bool extended = false;
    uint32_t timeout = 0;
    uint32_t retries = 0;
    double loss = 0;
    {
        const std::lock_guard guard{device.mutex};
        const auto& memory = device.memory;
        extended = (memory.get(gvcp::reg::stream_configuration) & gvcp::bits::stream_extended_ids) != 0;
        timeout = memory.get(gvcp::reg::message_timeout);
        retries = memory.get(gvcp::reg::message_retries);
        loss = device.faults.event_loss;
    }
    const bool plain = device.options.plain_events;
    const std::size_t record = extended ? 24 : 16;
    const std::size_t data = plain ? 0 : std::min(event.data.size(), gvcp::max_body - record);
    std::vector<std::byte> datagram(gvcp::header_size + record + data);
    if (++last_id == 0) last_id = 1;
    gvcp::store_command(datagram.data(), {static_cast<uint8_t>(timeout != 0 ? gvcp::flag::acknowledge : 0),
                                          plain ? gvcp::command::event : gvcp::command::event_data,
                                          static_cast<uint16_t>(record + data), last_id});
    if (extended) datagram[1] |= std::byte{gvcp::flag::extended_ids};
    std::byte* at = &datagram[gvcp::header_size];
    gige::store16(at + 2, event.id);
    if (extended) {
        gige::store16(at, static_cast<uint16_t>(record + data)); // this event's size
        gige::store64(at + 8, event.block_id);
        gige::store64(at + 16, event.timestamp);
    } else {
        gige::store16(at + 4, 0);
        gige::store16(at + 6, static_cast<uint16_t>(event.block_id));
        gige::store64(at + 8, event.timestamp);
    }
    std::copy_n(event.data.begin(), data, at + record);
    ++device.counted.events_sent;
    const bool lost = losses.happens(loss);
    const bool unsent = lost && losses.happens(0.5);
    if (!unsent && socket.send(to, datagram)) ++device.counted.send_errors;
    if (timeout == 0) return;
    const auto due = std::chrono::steady_clock::now() + std::chrono::milliseconds{timeout};
    waiting.push_back({std::move(datagram), due, retries, lost && !unsent});
}

void message_channel::receive() {
    std::array<std::byte, gvcp::max_datagram> buffer;
    gige::endpoint from;
    while (const auto size = socket.receive(buffer, from)) {
        if (device.silent) continue;
        const auto ack = gvcp::parse_ack(std::span{buffer}.first(*size));
        if (!ack || (ack->code != gvcp::command::event_ack && ack->code != gvcp::command::event_data_ack)) continue;
        const auto gone = std::erase_if(waiting, [&](unacknowledged& each) {
            return gige::load16(&each.datagram[6]) == ack->request_id && !std::exchange(each.unheard, false);
        });
        device.counted.events_acknowledged += gone;
    }
}

void message_channel::repeat_overdue() {
    if (waiting.empty()) return;
    const auto now = std::chrono::steady_clock::now();
    const auto to = destination();
    uint32_t timeout = 0;
    {
        const std::lock_guard guard{device.mutex};
        timeout = device.memory.get(gvcp::reg::message_timeout);
    }
    std::erase_if(waiting, [&](unacknowledged& each) {
        if (each.due > now) return false;
        if (each.retries_left == 0 || to.port == 0) return true;
        --each.retries_left;
        each.due = now + std::chrono::milliseconds{std::max(timeout, 1U)};
        if (!device.silent && socket.send(to, each.datagram)) ++device.counted.send_errors;
        return false;
    });
}

std::optional<std::chrono::steady_clock::time_point> message_channel::next_deadline() const {
    if (waiting.empty()) return {};
    return std::ranges::min_element(waiting, {}, &unacknowledged::due)->due;
}

} // namespace camera_sim
