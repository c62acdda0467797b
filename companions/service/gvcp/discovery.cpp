#include "discovery.h"

#include <algorithm>
#include <array>

namespace gvcp_master {

namespace gvcp = gige::gvcp;
using clock = std::chrono::steady_clock;

namespace {

constexpr std::size_t by_address = static_cast<std::size_t>(-1);
constexpr std::size_t max_probes = 31; // what one wait takes beside the waker

std::array<std::byte, gvcp::header_size> discovery_command(uint16_t id, bool broadcast) {
    std::array<std::byte, gvcp::header_size> command;
    const uint8_t flags = gvcp::flag::acknowledge | (broadcast ? gvcp::flag::broadcast_acknowledge : 0);
    gvcp::store_command(command.data(), {flags, gvcp::command::discovery, 0, id});
    return command;
}

} // namespace

discovery::discovery(options options_given, notifications notified)
    : chosen{std::move(options_given)}, told{std::move(notified)} {
    thread = std::thread{[this] { run(); }};
}

discovery::~discovery() {
    {
        const std::lock_guard guard{mutex};
        quit = true;
    }
    wakeup.wake();
    thread.join();
}

std::vector<discovery::found_interface> discovery::list() const {
    const std::lock_guard guard{mutex};
    std::vector<found_interface> result;
    for (const auto& each : entries) {
        found_interface found{each.network, {}};
        for (const auto& device : each.devices) found.devices.push_back(device.record);
        result.push_back(std::move(found));
    }
    return result;
}

bool discovery::scan(std::chrono::milliseconds timeout) {
    std::unique_lock lock{mutex};
    asked = true;
    const uint64_t wanted = scans_started + 1;
    wakeup.wake();
    return scanned.wait_for(lock, timeout, [&] { return scans_done >= wanted; });
}

void discovery::run() {
    for (;;) {
        {
            const std::lock_guard guard{mutex};
            if (quit) return;
            asked = false;
            ++scans_started;
        }
        const auto began = clock::now();
        scan_once();
        {
            const std::lock_guard guard{mutex};
            scans_done = scans_started;
            if (quit) return;
        }
        scanned.notify_all();
        for (;;) {
            {
                const std::lock_guard guard{mutex};
                if (quit || asked) break;
            }
            const std::array handles{wakeup.native()};
            if (gige::wait_readable(handles, began + chosen.interval) == 0) break;
            wakeup.drain();
        }
    }
}

std::vector<discovery::probe> discovery::send_probes(const std::vector<gige::network_interface>& interfaces) {
    std::vector<probe> probes;
    const auto ask = [&](gige::udp_socket& socket, uint32_t address, bool broadcast) {
        if (++last_id == 0) last_id = 1;
        // An interface that is just going down refuses; the next scan sees it gone.
        (void)socket.send({address, gvcp::port}, discovery_command(last_id, broadcast));
    };
    for (std::size_t i = 0; i < interfaces.size(); ++i) {
        for (const auto& net : interfaces[i].subnets) {
            if (probes.size() >= max_probes) return probes;
            auto opened = gige::udp_socket::open({net.address, 0});
            if (!opened || opened->allow_broadcast()) continue;
            ask(*opened, net.broadcast(), true);
            if (interfaces[i].loopback) {
                ask(*opened, net.address, false);
            } else if (!opened->use_interface(interfaces[i].name)) {
                // Reaches cameras of foreign subnets; only with the socket tied to the interface is it sure to leave
                // by this one.
                ask(*opened, 0xFFFFFFFF, true);
            }
            probes.push_back({std::move(*opened), i});
        }
    }
    if (!chosen.addresses.empty() && probes.size() < max_probes) {
        if (auto opened = gige::udp_socket::open({0, 0})) {
            for (const uint32_t address : chosen.addresses) ask(*opened, address, false);
            probes.push_back({std::move(*opened), by_address});
        }
    }
    return probes;
}

// A camera asked directly belongs to the interface whose subnet holds it, else to the first one that is not loopback.
void discovery::place(const device_record& device, std::size_t index, std::vector<entry>& fresh) const {
    if (fresh.empty()) return;
    if (index == by_address) {
        const auto holds = [&](const entry& each) {
            return std::ranges::any_of(each.network.subnets,
                                       [&](const gige::subnet& net) { return net.contains(device.address); });
        };
        auto found = std::ranges::find_if(fresh, holds);
        if (found == fresh.end())
            found = std::ranges::find_if(fresh, [](const entry& each) { return !each.network.loopback; });
        if (found == fresh.end()) found = fresh.begin();
        index = static_cast<std::size_t>(found - fresh.begin());
    }
    entry& home = fresh[index];
    // A broadcast also comes back to the host's own loopback cameras; they belong to loopback alone.
    if (device.address >> 24 == 127 && !home.network.loopback) return;
    heard added{device, 0};
    const auto net = std::ranges::find_if(home.network.subnets,
                                          [&](const gige::subnet& each) { return each.contains(device.address); });
    added.record.reachable = net != home.network.subnets.end() ||
                             std::ranges::find(chosen.addresses, device.address) != chosen.addresses.end();
    if (net != home.network.subnets.end()) added.record.local_address = net->address;
    const auto known =
        std::ranges::find_if(home.devices, [&](const heard& each) { return each.record.mac == device.mac; });
    if (known == home.devices.end()) home.devices.push_back(std::move(added));
}

void discovery::collect(std::vector<probe>& probes, std::vector<entry>& fresh) {
    const auto until = clock::now() + chosen.window;
    std::vector<int> handles{wakeup.native()};
    for (const auto& each : probes) handles.push_back(each.socket.native());
    std::array<std::byte, gvcp::max_datagram + 64> buffer;
    while (const auto ready = gige::wait_readable(handles, until)) {
        if (ready & 1) {
            wakeup.drain();
            const std::lock_guard guard{mutex};
            if (quit) return;
        }
        for (std::size_t i = 0; i < probes.size(); ++i) {
            if ((ready >> (i + 1) & 1) == 0) continue;
            gige::endpoint from;
            while (const auto size = probes[i].socket.receive(buffer, from)) {
                const auto ack = gvcp::parse_ack(std::span{buffer}.first(*size));
                if (!ack || ack->code != gvcp::command::discovery_ack || ack->result != gvcp::status::success) continue;
                const auto device = parse_discovery(std::span{buffer}.subspan(gvcp::header_size, ack->length));
                if (device) place(*device, probes[i].interface_index, fresh);
            }
        }
        if (clock::now() >= until) return; // a flood of answers must not keep the scan alive
    }
}

void discovery::scan_once() {
    auto interfaces = gige::enumerate_interfaces();
    // What isn't asked as a whole is listed all the same when it may hold a camera that is asked directly.
    std::erase_if(interfaces, [&](const gige::network_interface& each) {
        const bool as_a_whole = each.loopback ? chosen.loopback : chosen.networks;
        return !as_a_whole && std::ranges::none_of(chosen.addresses, [&](uint32_t address) {
            return (address >> 24 == 127) == each.loopback;
        });
    });
    std::vector<entry> fresh;
    for (const auto& each : interfaces) fresh.push_back({each, {}});
    std::vector<gige::network_interface> asked_ones = interfaces;
    for (auto& each : asked_ones)
        if (each.loopback ? !chosen.loopback : !chosen.networks) each.subnets.clear();
    auto probes = send_probes(asked_ones);
    collect(probes, fresh);
    {
        const std::lock_guard guard{mutex};
        if (quit) return;
    }
    merge(std::move(fresh));
}

void discovery::merge(std::vector<entry> fresh) {
    bool interfaces_changed = false;
    std::vector<std::string> changed;
    {
        const std::lock_guard guard{mutex};
        interfaces_changed = !std::ranges::equal(entries, fresh, {}, &entry::network, &entry::network);
        for (auto& now : fresh) {
            const auto before = std::ranges::find(
                entries, now.network.name, [](const entry& each) -> const auto& { return each.network.name; });
            std::vector<device_record> old_records;
            if (before != entries.end()) {
                for (const auto& device : before->devices) {
                    old_records.push_back(device.record);
                    const bool answered = std::ranges::any_of(
                        now.devices, [&](const heard& each) { return each.record.mac == device.record.mac; });
                    if (!answered && device.misses + 1 < chosen.misses)
                        now.devices.push_back({device.record, device.misses + 1});
                }
            }
            std::ranges::sort(now.devices, {}, [](const heard& each) { return each.record.mac; });
            if (!std::ranges::equal(now.devices, old_records, {}, &heard::record)) changed.push_back(now.network.name);
        }
        entries = std::move(fresh);
    }
    if (interfaces_changed && told.interfaces_changed) told.interfaces_changed();
    if (told.devices_changed)
        for (const auto& name : changed) told.devices_changed(name);
}

} // namespace gvcp_master
