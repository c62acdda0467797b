#include "discovery.h"

#include <gds_helper/printable.h>

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <utility>

namespace gvcp_master {

namespace gvcp = gige::gvcp;

namespace {

constexpr std::size_t remembered_scans = 64;
// One whose address is being renewed is missing for a moment; for sessions its end is final.
constexpr unsigned interface_misses = 2;
constexpr std::size_t most_moves = 64; // of cameras that are asked directly

std::array<std::byte, gvcp::header_size> discovery_command(uint16_t id, bool broadcast) {
    std::array<std::byte, gvcp::header_size> command;
    const uint8_t flags = gvcp::flag::acknowledge | (broadcast ? gvcp::flag::broadcast_acknowledge : 0);
    gvcp::store_command(command.data(), {flags, gvcp::command::discovery, 0, id});
    return command;
}

bool holds(const gige::network_interface& network, uint32_t address) {
    return std::ranges::any_of(network.subnets, [&](const gige::subnet& net) { return net.contains(address); });
}

bool is_loopback(uint32_t address) { return address >> 24 == 127; }

} // namespace

discovery::discovery(options options_given, notifications notified)
    : chosen{std::move(options_given)}, told{std::move(notified)}, asked_directly{chosen.addresses} {
    auto opened = gige::udp_socket::open({0, 0});
    if (!opened) throw std::system_error(opened.error(), "the socket that looks for cameras");
    socket = std::move(*opened);
    if (const auto error = socket.allow_broadcast()) throw std::system_error(error, "broadcasts");
    if (const auto error = socket.report_routes()) throw std::system_error(error, "interfaces of datagrams");
    thread = std::thread{[this] { run(); }};
}

discovery::~discovery() { stop(); }

void discovery::stop() {
    {
        const std::lock_guard guard{mutex};
        quit = true;
    }
    wakeup.wake();
    if (thread.joinable()) thread.join();
}

std::vector<discovery::found_interface> discovery::list() const {
    const std::lock_guard guard{mutex};
    std::vector<found_interface> result;
    for (const auto& each : entries) {
        found_interface found{each.network, {}};
        for (const auto& device : each.devices) found.devices.push_back(device.device);
        result.push_back(std::move(found));
    }
    return result;
}

bool discovery::scan(std::chrono::milliseconds timeout, std::stop_token stop) {
    std::unique_lock lock{mutex};
    asked = true;
    const uint64_t wanted = scans_started + 1;
    wakeup.wake();
    return scanned.wait_for(lock, std::move(stop), timeout, [&] { return scans_done >= wanted; });
}

bool discovery::wait_for_first_scan(std::chrono::milliseconds timeout, std::stop_token stop) {
    std::unique_lock lock{mutex};
    return scanned.wait_for(lock, std::move(stop), timeout, [&] { return scans_done != 0; });
}

void discovery::may_move(uint32_t from, uint32_t to) {
    const std::lock_guard guard{mutex};
    if (to == 0 || std::ranges::find(asked_directly, from) == asked_directly.end()) return;
    if (std::ranges::find(asked_directly, to) != asked_directly.end()) return;
    if (asked_directly.size() >= chosen.addresses.size() + most_moves)
        asked_directly.erase(asked_directly.begin() + static_cast<std::ptrdiff_t>(chosen.addresses.size()));
    asked_directly.push_back(to);
}

void discovery::control_given_back(uint64_t mac) {
    const std::lock_guard guard{mutex};
    for (auto& each : entries)
        for (auto& device : each.devices)
            if (device.device.mac == mac) {
                device.device.controlled = false;
                device.asked = 0;
            }
}

void discovery::say(const std::string& text) const {
    if (told.log) told.log(text);
}

uint16_t discovery::next_id() noexcept {
    if (++last_id == 0) last_id = 1;
    return last_id;
}

void discovery::run() {
    for (;;) {
        try {
            if (!search()) return;
        } catch (const std::exception&) {
            // No memory: not now. What a search did not come to is seen by the next.
            static_cast<void>(gige::wait_readable({}, clock::now() + chosen.window));
        }
    }
}

bool discovery::search() {
    {
        const std::lock_guard guard{mutex};
        if (quit) return false;
        asked = false;
        ++scans_started;
    }
    const auto began = clock::now();
    refresh_interfaces(began);
    send_probes(began);
    receive_until(began + chosen.window, false);
    {
        const std::lock_guard guard{mutex};
        if (quit) return false;
    }
    drop_silent_ones();
    mark_shared_addresses();
    tell();
    auto next = began + chosen.interval;
    {
        const std::lock_guard guard{mutex};
        scans_done = scans_started;
        // Whether it is gone is not left open until then.
        if (std::ranges::any_of(entries, [](const entry& each) { return each.misses != 0; }))
            next = std::min(next, began + chosen.interface_patience);
    }
    scanned.notify_all();
    receive_until(next, true);
    return true;
}

void discovery::refresh_interfaces(clock::time_point began) {
    auto listed = gige::enumerate_interfaces();
    if (listed.has_value() == std::exchange(lacks_interfaces, !listed))
        say(listed ? "There is a list of interfaces again."
                   : fmt::format("The list of interfaces cannot be had: {}", listed.error().message()));
    if (!listed) return; // all of them are taken to be as they were
    auto& interfaces = *listed;
    // What isn't asked as a whole is listed all the same when it may hold a camera that is asked directly.
    std::erase_if(interfaces, [&](const gige::network_interface& each) {
        const bool as_a_whole = each.loopback ? chosen.loopback : chosen.networks;
        return !as_a_whole && std::ranges::none_of(chosen.addresses, [&](uint32_t address) {
            return is_loopback(address) == each.loopback;
        });
    });
    const std::lock_guard guard{mutex};
    std::erase_if(entries,
                  [](const entry& each) { return each.network.name.empty(); }); // moved from, when memory ended
    for (std::size_t i = 0; i < entries.size(); ++i) {
        entry& before = entries[i];
        if (std::ranges::find(interfaces, before.network.name, &gige::network_interface::name) != interfaces.end()) {
            before.misses = 0;
            continue;
        }
        if (before.misses++ == 0) before.missing_since = began;
        if (before.misses >= interface_misses && began - before.missing_since >= chosen.interface_patience) continue;
        const auto place = static_cast<std::ptrdiff_t>(std::min(i, interfaces.size()));
        interfaces.insert(interfaces.begin() + place, before.network);
    }
    if (std::ranges::equal(entries, interfaces, {}, &entry::network)) return;
    interfaces_changed = true;
    std::vector<entry> fresh;
    for (auto& each : interfaces) {
        const auto before =
            std::ranges::find_if(entries, [&](const entry& old) { return old.network.name == each.name; });
        if (before == entries.end()) {
            std::string nets;
            for (const auto& net : each.subnets) nets += ' ' + gige::to_string(net.address);
            say(fmt::format("Looks for cameras on {}:{}", each.name, nets));
            fresh.push_back({std::move(each), {}});
        } else {
            fresh.push_back(std::move(*before));
            fresh.back().network = std::move(each);
            before->network.name.clear();
        }
    }
    for (const auto& each : entries) {
        if (each.network.name.empty()) continue; // moved from
        gone.push_back(each.network.name);
        say(fmt::format("Interface {} is gone, {} cameras with it.", each.network.name, each.devices.size()));
    }
    entries = std::move(fresh);
}

void discovery::send_probes(clock::time_point began) {
    const std::lock_guard guard{mutex};
    const uint16_t id = next_id();
    scan_ids.push_back(id);
    if (scan_ids.size() > remembered_scans) scan_ids.pop_front();
    // An interface that is just going down refuses; the next scan sees it gone.
    const auto ask = [&](uint32_t address, bool broadcast, const gige::udp_socket::route& by) {
        (void)socket.send({address, gvcp::port}, discovery_command(id, broadcast), by);
    };
    for (auto& each : entries) {
        const auto& network = each.network;
        for (auto& device : each.devices) {
            if (device.misses++ == 0) device.silent_since = began;
            ask_privilege(device);
        }
        if (network.loopback ? !chosen.loopback : !chosen.networks) continue;
        for (const auto& net : network.subnets) {
            const gige::udp_socket::route by{network.index, net.address};
            ask(net.broadcast(), true, by);
            if (network.loopback)
                ask(net.address, false, by);
            else
                ask(0xFFFFFFFF, true, by); // reaches cameras of foreign subnets
        }
    }
    for (const uint32_t address : asked_directly) ask(address, false, {});
}

// All cameras at once, beside the search. One that does not answer keeps what it said before. Under the mutex.
void discovery::ask_privilege(heard& device) {
    if (!device.device.reachable) return;
    device.asked = next_id();
    std::array<std::byte, gvcp::header_size + 4> command;
    gvcp::store_command(command.data(), {gvcp::flag::acknowledge, gvcp::command::read_reg, 4, device.asked});
    gige::store32(&command[gvcp::header_size], gvcp::reg::privilege);
    (void)socket.send({device.device.address, gvcp::port}, command, {0, device.device.local_address});
}

void discovery::receive_until(clock::time_point until, bool end_when_asked) {
    const std::array handles{wakeup.native(), socket.native()};
    for (;;) {
        auto wait_until = until;
        {
            const std::lock_guard guard{mutex};
            if (quit || (end_when_asked && asked)) return; // perhaps since before the wait
            if (end_when_asked && has_to_tell()) wait_until = std::min(until, may_tell);
        }
        const auto ready = gige::wait_readable(handles, wait_until);
        if (ready == 0 && wait_until == until) return;
        if (ready & 1) wakeup.drain();
        if (ready & 2) receive_all();
        if (end_when_asked) tell();        // came late, is listed at once
        if (clock::now() >= until) return; // a flood of answers must not keep the scan alive
    }
}

void discovery::receive_all() {
    constexpr int most_at_once = 256;
    std::array<std::byte, gvcp::max_datagram + 64> buffer;
    gige::endpoint from;
    gige::udp_socket::route by;
    const std::lock_guard guard{mutex};
    for (int i = 0; i < most_at_once; ++i) {
        const auto size = socket.receive(buffer, from, by);
        if (!size) return;
        const auto ack = gvcp::parse_ack(std::span{buffer}.first(*size));
        if (!ack) continue;
        const auto body = std::span{buffer}.subspan(gvcp::header_size, ack->length);
        if (ack->code == gvcp::command::discovery_ack && ack->result == gvcp::status::success) {
            if (std::ranges::find(scan_ids, ack->request_id) == scan_ids.end()) continue; // nobody asked
            if (const auto device = parse_discovery(body)) take_discovery(*device, by.interface_index, ack->request_id);
        } else if (ack->code == gvcp::command::read_reg_ack) {
            take_privilege(from, ack->request_id, *ack, body);
        }
    }
}

// The interface the answer came in by. What this host's own cameras say comes over loopback, whatever their address:
// they belong to the interface whose subnet holds it, as do those that are asked directly and routed.
discovery::entry* discovery::home_of(const device_record& device, unsigned interface_index) {
    const auto by_index = [&](const entry& each) { return each.network.index == interface_index; };
    const auto found = std::ranges::find_if(entries, by_index);
    if (is_loopback(device.address)) {
        // A broadcast also comes back to the host's own loopback cameras; they belong to loopback alone.
        return found != entries.end() && found->network.loopback ? &*found : nullptr;
    }
    if (found != entries.end() && !found->network.loopback) return &*found;
    const auto near = std::ranges::find_if(
        entries, [&](const entry& each) { return !each.network.loopback && holds(each.network, device.address); });
    return near != entries.end() ? &*near : nullptr;
}

void discovery::take_discovery(const device_record& device, unsigned interface_index, uint16_t id) {
    entry* home = home_of(device, interface_index);
    if (home == nullptr) return;
    const auto at = clock::now();
    found_device now{device};
    const auto& subnets = home->network.subnets;
    const auto net = std::ranges::find_if(subnets, [&](const auto& each) { return each.contains(device.address); });
    now.reachable = net != subnets.end() || std::ranges::find(asked_directly, device.address) != asked_directly.end();
    if (net != subnets.end()) now.local_address = net->address;

    auto known = std::ranges::find_if(home->devices, [&](const heard& each) { return each.device.mac == device.mac; });
    if (known == home->devices.end()) {
        if (home->devices.size() >= most_devices) {
            if (!std::exchange(home->full, true))
                say(fmt::format("More than {} cameras answer on {}; no more are listed.", most_devices,
                                home->network.name));
            return;
        }
        const auto place =
            std::ranges::lower_bound(home->devices, device.mac, {}, [](const heard& each) { return each.device.mac; });
        known = home->devices.insert(place, {.device = now, .there_since = at, .heard = at, .answered = id});
        home->changed = true;
        say(fmt::format("Found {} on {}{}: \"{}\" \"{}\", serial \"{}\"", gige::to_string(device.address),
                        home->network.name, now.reachable ? "" : " (unreachable: of another subnet)",
                        gds_helper::printable(device.vendor), gds_helper::printable(device.model),
                        gds_helper::printable(device.serial)));
        ask_privilege(*known);
        return;
    }
    known->misses = 0;
    known->heard = at;
    if (std::exchange(known->answered, id) == id) return;
    const bool moved = known->device.address != now.address;
    now.controlled = known->device.controlled;
    now.answers = known->device.answers && !moved;
    now.shares_address = known->device.shares_address;
    if (known->device == now) return;
    if (moved) {
        known->there_since = at;
        say(fmt::format("{} on {} has become {}", gige::to_string(known->device.address), home->network.name,
                        gige::to_string(now.address)));
    }
    known->device = now;
    home->changed = true;
    if (moved) ask_privilege(*known);
}

// A camera under exclusive access refuses even the question.
void discovery::take_privilege(const gige::endpoint& from, uint16_t id, const gvcp::ack_header& ack,
                               std::span<const std::byte> body) {
    for (auto& each : entries)
        for (auto& device : each.devices) {
            if (device.asked != id || id == 0 || device.device.address != from.address) continue;
            device.asked = 0;
            if (!std::exchange(device.device.answers, true)) each.changed = true;
            if (ack.result == gvcp::status::access_denied)
                device.device.controlled = true;
            else if (ack.result == gvcp::status::success && body.size() >= 4)
                device.device.controlled =
                    (gige::load32(body.data()) & (gvcp::bits::exclusive | gvcp::bits::control)) != 0;
        }
}

void discovery::drop_silent_ones() {
    // Half a window less: the scans' own times are not exact.
    const auto long_enough = chosen.interval * (std::max(chosen.misses, 1U) - 1) + chosen.window / 2;
    const auto now = clock::now();
    const std::lock_guard guard{mutex};
    for (auto& each : entries) {
        const auto dropped = std::erase_if(each.devices, [&](const heard& device) {
            if (device.misses < chosen.misses || now - device.silent_since < long_enough) return false;
            say(fmt::format("{} on {} does not answer any more.", gige::to_string(device.device.address),
                            each.network.name));
            return true;
        });
        if (dropped > 0) each.changed = true;
    }
}

bool discovery::has_to_tell() const {
    return interfaces_changed || !changed_with_them.empty() || std::ranges::any_of(entries, &entry::changed);
}

// One that was replaced at its address is listed for a while yet, but has not answered since the other came.
void discovery::mark_shared_addresses() {
    const std::lock_guard guard{mutex};
    for (auto& each : entries)
        for (auto& device : each.devices) {
            const bool shares = std::ranges::any_of(each.devices, [&](const heard& other) {
                return &other != &device && other.device.address == device.device.address &&
                       other.heard >= device.there_since && device.heard >= other.there_since;
            });
            if (std::exchange(device.device.shares_address, shares) == shares) continue;
            each.changed = true;
            if (shares)
                say(fmt::format("{} on {} is the address of more than one camera; \"{}\", serial \"{}\", is one.",
                                gige::to_string(device.device.address), each.network.name,
                                gds_helper::printable(device.device.model),
                                gds_helper::printable(device.device.serial)));
        }
}

void discovery::tell() {
    std::vector<std::string> changed;
    std::vector<std::string> vanished;
    bool interfaces = false;
    {
        const std::lock_guard guard{mutex};
        // What can fail comes first: then nothing is lost, and what is told twice is true.
        changed_with_them.insert(changed_with_them.end(), gone.begin(), gone.end());
        const bool tells = clock::now() >= may_tell && has_to_tell();
        if (tells) {
            for (const auto& each : entries)
                if (each.changed) changed_with_them.push_back(each.network.name);
        }
        vanished.swap(gone);
        if (tells) {
            changed.swap(changed_with_them);
            for (auto& each : entries) each.changed = false;
            interfaces = std::exchange(interfaces_changed, false);
        }
    }
    if (told.interface_gone)
        for (const auto& name : vanished) told.interface_gone(name);
    if (interfaces && told.interfaces_changed) told.interfaces_changed();
    if (told.devices_changed)
        for (const auto& name : changed) told.devices_changed(name);
    if (interfaces || !changed.empty()) may_tell = clock::now() + between_changes;
}

} // namespace gvcp_master
