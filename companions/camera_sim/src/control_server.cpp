// The thread, the sockets and what arrives on them. The commands' bodies are in control_commands.cpp, the effects of
// register writes in control_writes.cpp.
#include "control_server.h"

#include "../posix/interface_address.h"

#include <camera_sim/registers.h>
#include <gige/network.h>

#include <fmt/format.h>

#include <algorithm>

namespace camera_sim {

namespace gvcp = gige::gvcp;

control_server::control_server(device_state& shared, stream_sender& sender)
    : device{shared},
      stream{sender},
      messages{shared},
      firmware{shared},
      control_dice{shared.options.faults.seed * 31 + 7} {}

control_server::~control_server() {
    {
        const std::lock_guard guard{queue_mutex};
        quit = true;
    }
    wakeup.wake();
    if (thread.joinable()) thread.join();
}

std::error_code control_server::bind(uint32_t address) {
    // Alone: a second camera on the address would take the first one's requests.
    const bool moves = !unicast.is_open() || address != own_address;
    if (moves && !device.options.interface.empty()) {
        uint32_t mask = 0;
        {
            const std::lock_guard guard{device.mutex};
            mask = device.memory.get(gvcp::reg::current_mask);
        }
        if (const auto error = posix::set_interface_address(device.options.interface, address, mask)) return error;
    }
    auto opened = moves ? gige::udp_socket::open({address, device.options.port}) : std::move(unicast);
    if (!opened) return opened.error();
    if (const auto error = opened->allow_broadcast()) return error;
    if (const auto error = stream.open(address)) return error;
    if (const auto error = messages.open(address)) return error;
    unicast = std::move(*opened);

    // Discovery may come as a limited or as a subnet's broadcast. Where such a socket is refused, unicast remains.
    broadcasts.clear();
    std::vector<uint32_t> wanted{0xFFFFFFFF};
    for (const auto& each : gige::enumerate_interfaces().value_or(std::vector<gige::network_interface>{}))
        for (const auto& net : each.subnets)
            if (net.contains(address) && net.mask != 0xFFFFFFFF) wanted.push_back(net.broadcast());
    for (const uint32_t each : wanted)
        if (auto extra = gige::udp_socket::open({each, device.options.port}, gige::udp_socket::sharing::shared))
            broadcasts.push_back(std::move(*extra));

    own_address = address;
    const std::lock_guard guard{device.mutex};
    auto& memory = device.memory;
    memory.set(gvcp::reg::current_address, address);
    memory.set(gvcp::reg::message_source_port, messages.source_port());
    memory.set(gvcp::reg::stream_source_port, stream.source_port());
    return {};
}

std::error_code control_server::start(uint32_t address) {
    if (const auto error = bind(address)) return error;
    default_set.resize(reg::lut_content - reg::base);
    {
        const std::lock_guard guard{device.mutex};
        firmware.add_registers();
        device.memory.copy_out(reg::base, default_set);
    }
    thread = std::thread{[this] { run(); }};
    return {};
}

void control_server::queue_event(camera_event event) {
    {
        const std::lock_guard guard{queue_mutex};
        queued_events.push_back(std::move(event));
    }
    wakeup.wake();
}

void control_server::ask_reboot() {
    {
        const std::lock_guard guard{queue_mutex};
        reboot_asked = true;
    }
    wakeup.wake();
}

void control_server::ask_reseed() {
    {
        const std::lock_guard guard{queue_mutex};
        reseed_asked = true;
    }
    wakeup.wake();
}

void control_server::end_silence_in(std::chrono::milliseconds wait) {
    {
        const std::lock_guard guard{queue_mutex};
        silence_ends = clock::now() + wait;
    }
    wakeup.wake();
}

void control_server::run() {
    std::vector<camera_event> events;
    for (;;) {
        std::vector<int> handles{wakeup.native(), unicast.native(), messages.native()};
        for (const auto& each : broadcasts) handles.push_back(each.native());
        const uint32_t ready = gige::wait_readable(handles, next_deadline());
        if (ready & 1) {
            wakeup.drain();
            bool reboot = false;
            bool reseed = false;
            {
                const std::lock_guard guard{queue_mutex};
                if (quit) return;
                events.swap(queued_events);
                reboot = std::exchange(reboot_asked, false);
                reseed = std::exchange(reseed_asked, false);
            }
            for (const auto& each : events) messages.send(each);
            events.clear();
            if (reseed) {
                const std::lock_guard guard{device.mutex};
                control_dice = dice{device.faults.seed * 31 + 7};
                stream.reseed(device.faults.seed);
            }
            if (reboot) begin_reboot();
        }
        if (ready & 2) receive_all(unicast, false);
        if (ready & 4) messages.receive();
        for (std::size_t i = 0; i < broadcasts.size(); ++i)
            if (ready >> (3 + i) & 1) receive_all(broadcasts[i], true);
        work_deadlines();
        if (next_address) change_address(*std::exchange(next_address, {}));
    }
}

void control_server::receive_all(const gige::udp_socket& socket, bool broadcast) {
    std::array<std::byte, gvcp::max_datagram + 64> buffer;
    for (;;) {
        request what;
        const auto size = socket.receive(buffer, what.from);
        if (!size) return;
        if (device.silent || device.deaf) continue;
        // Broadcasts of the real network reach a loopback camera's sockets, too; it is not there for them.
        if (own_address >> 24 == 127 && what.from.address >> 24 != 127) continue;
        const auto header = gvcp::parse_command(std::span{buffer}.first(*size));
        if (!header) continue;
        what.header = *header;
        what.body = std::span{buffer}.subspan(gvcp::header_size, header->length);
        const bool may_be_broadcast = header->code == gvcp::command::discovery ||
                                      header->code == gvcp::command::force_ip || header->code == gvcp::command::action;
        if (broadcast && !may_be_broadcast) continue;
        ++device.counted.control_requests;
        handle(what);
        if (next_address) return; // the sockets are about to change
    }
}

void control_server::handle(const request& what) {
    using enum gvcp::command;
    if (is_holder(what.from)) last_heard = clock::now();

    double loss = 0;
    {
        const std::lock_guard guard{device.mutex};
        loss = device.faults.control_loss;
    }
    const bool lost = control_dice.happens(loss);
    const bool lost_on_the_way = lost && control_dice.happens(0.5);
    if (lost) ++device.counted.control_lost;
    if (lost_on_the_way) return;

    // A repetition gets the same acknowledge, without the work being done twice.
    const bool wants_ack = (what.header.flags & gvcp::flag::acknowledge) != 0;
    const auto pending = std::ranges::find_if(late_acks, [&](const late_ack& each) {
        return each.to == what.from && each.request_id == what.header.request_id;
    });
    if (pending != late_acks.end()) return;
    if (const auto last = last_acks.find(what.from); last != last_acks.end() && what.header.code != discovery &&
                                                     last->second.request_id == what.header.request_id &&
                                                     last->second.code == what.header.code) {
        ++device.counted.control_repeated;
        if (wants_ack && !lost && unicast.send(what.from, last->second.datagram)) ++device.counted.send_errors;
        return;
    }

    answer built;
    built.code = static_cast<gvcp::command>(static_cast<uint16_t>(what.header.code) + 1);
    switch (what.header.code) {
    case gvcp::command::discovery:
        this->discovery(what, built);
        break;
    case gvcp::command::force_ip:
        if (!this->force_ip(what, built)) return;
        break;
    case packet_resend:
        resend(what);
        return;
    case read_reg:
        read_registers(what, built);
        break;
    case write_reg:
        ++device.counted.control_writes;
        write_registers(what, built);
        break;
    case read_mem:
        read_memory(what, built);
        break;
    case write_mem:
        ++device.counted.control_writes;
        write_memory(what, built);
        break;
    case gvcp::command::action:
        if (!this->action(what, built)) return;
        break;
    default:
        built.result = status::not_implemented;
        break;
    }
    reply(what, built, !lost);
}

void control_server::reply(const request& what, const answer& built, bool deliver) {
    std::vector<std::byte> datagram(gvcp::header_size + built.size);
    gvcp::store_ack(datagram.data(),
                    {built.result, built.code, static_cast<uint16_t>(built.size), what.header.request_id});
    std::copy_n(built.body.begin(), built.size, &datagram[gvcp::header_size]);
    const bool wants_ack = (what.header.flags & gvcp::flag::acknowledge) != 0;
    if (built.result != status::success) count_refusal(what, built.result);

    uint32_t every = 0;
    uint32_t wait = 0;
    uint32_t discovery_delay = 0;
    {
        const std::lock_guard guard{device.mutex};
        every = device.faults.pending_every;
        wait = device.faults.pending_ms;
        discovery_delay = device.memory.get(gvcp::reg::discovery_delay);
    }
    const auto to = destination_of(what);
    const bool is_discovery = what.header.code == gvcp::command::discovery;
    if (deliver && wants_ack && is_discovery && discovery_delay != 0) {
        // At random within the time, so that many cameras do not answer at once.
        const auto delay = std::chrono::milliseconds{control_dice.below(uint64_t{discovery_delay} + 1)};
        send_later(clock::now() + delay, to, std::move(datagram), what.header.request_id);
        return;
    }
    if (deliver && wants_ack && every != 0 && !is_discovery && ++acks_built % every == 0) {
        std::array<std::byte, 12> announce{};
        gvcp::store_ack(announce.data(), {status::success, gvcp::command::pending_ack, 4, what.header.request_id});
        gige::store16(&announce[10], static_cast<uint16_t>(std::min(wait + 500U, 65535U)));
        ++device.counted.pending_acks;
        if (unicast.send(what.from, announce)) ++device.counted.send_errors;
        send_later(clock::now() + std::chrono::milliseconds{wait}, what.from, std::move(datagram),
                   what.header.request_id);
        return;
    }
    if (deliver && wants_ack && unicast.send(to, datagram)) ++device.counted.send_errors;
    if (is_discovery) return;
    if (last_acks.size() > 64) last_acks.clear(); // consumers that went away
    last_acks[what.from] = {what.header.request_id, what.header.code, std::move(datagram)};
}

void control_server::send_later(clock::time_point due, const gige::endpoint& to, std::vector<std::byte> datagram,
                                uint16_t id) {
    const auto place = std::ranges::upper_bound(late_acks, due, {}, &late_ack::due);
    late_acks.insert(place, {due, to, std::move(datagram), id});
}

void control_server::count_refusal(const request& what, status result) {
    ++device.counted.requests_refused;
    if (!device.options.log) return;
    device.options.log(fmt::format("{} refused command 0x{:04X} of {}: status 0x{:04X}", gige::to_string(own_address),
                                   static_cast<uint16_t>(what.header.code), gige::to_string(what.from),
                                   static_cast<uint16_t>(result)));
}

// Whoever asks from another subnet can be reached by broadcast alone.
gige::endpoint control_server::destination_of(const request& what) const {
    const bool may_be_broadcast =
        what.header.code == gvcp::command::discovery || what.header.code == gvcp::command::force_ip;
    if (!may_be_broadcast || (what.header.flags & gvcp::flag::broadcast_acknowledge) == 0) return what.from;
    const std::lock_guard guard{device.mutex};
    const uint32_t mask = device.memory.get(gvcp::reg::current_mask);
    return ((what.from.address ^ own_address) & mask) == 0 ? what.from : gige::endpoint{0xFFFFFFFF, what.from.port};
}

std::optional<control_server::clock::time_point> control_server::next_deadline() const {
    std::optional<clock::time_point> first = messages.next_deadline();
    const auto consider = [&](clock::time_point at) {
        if (!first || at < *first) first = at;
    };
    if (!late_acks.empty()) consider(late_acks.front().due);
    if (reboot_ends) consider(*reboot_ends);
    if (const auto step = firmware.next_deadline()) consider(*step);
    {
        const std::lock_guard guard{queue_mutex};
        if (silence_ends) consider(*silence_ends);
    }
    const uint64_t now_ticks = device.timestamp();
    for (const auto& each : actions)
        consider(clock::now() + device.time_of(each.at > now_ticks ? each.at - now_ticks : 0));
    if (holder && !device.deaf) {
        const std::lock_guard guard{device.mutex};
        if ((device.memory.get(gvcp::reg::control_configuration) & gvcp::bits::heartbeat_disabled) == 0)
            consider(last_heard + std::chrono::milliseconds{device.memory.get(gvcp::reg::heartbeat_timeout)});
    }
    return first;
}

void control_server::work_deadlines() {
    const auto now = clock::now();
    while (!late_acks.empty() && late_acks.front().due <= now) {
        const auto& each = late_acks.front();
        if (!device.silent && unicast.send(each.to, each.datagram)) ++device.counted.send_errors;
        late_acks.pop_front();
    }
    messages.repeat_overdue();
    const uint64_t ticks = device.timestamp();
    const auto due = std::erase_if(actions, [&](const scheduled_action& each) { return each.at <= ticks; });
    for (std::size_t i = 0; i < due; ++i) run_action();
    if (firmware.work_deadline()) begin_reboot();
    if (reboot_ends && *reboot_ends <= now) finish_reboot();
    {
        const std::lock_guard guard{queue_mutex};
        if (silence_ends && *silence_ends <= now) {
            silence_ends.reset();
            device.silent = false;
        }
    }
    if (holder && !device.deaf) {
        bool expired = false;
        {
            const std::lock_guard guard{device.mutex};
            const auto& memory = device.memory;
            expired = (memory.get(gvcp::reg::control_configuration) & gvcp::bits::heartbeat_disabled) == 0 &&
                      now >= last_heard + std::chrono::milliseconds{memory.get(gvcp::reg::heartbeat_timeout)};
        }
        if (expired) {
            ++device.counted.heartbeats_missed;
            release_control();
        }
    }
}

} // namespace camera_sim
