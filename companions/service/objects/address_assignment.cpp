#include "address_assignment.h"

#include "address_turns.h"

#include "../gvcp/address_probe.h"
#include "../gvcp/broadcast_commands.h"
#include "../gvcp/control_channel.h"
#include "../gvcp/device_control.h"
#include "../gvcp/free_address.h"

#include <gds_helper/log.h>
#include <gds_shared/gigecam_error.h>
#include <gige/host_address.h>

#include <spdlog/logger.h>

#include <algorithm>
#include <array>

namespace service {

namespace {

using clock = std::chrono::steady_clock;
using gds_shared::gigecam_errc;
using gvcp_master::discovery;
namespace bits = gige::gvcp::bits;

// Cameras take their network down and up again for a new address.
constexpr std::chrono::milliseconds arrival_time{6000};
constexpr std::chrono::milliseconds scan_time{1000};
constexpr std::chrono::milliseconds question_time{1000};

using gds_helper::log::main_logger;

std::optional<discovery::found_interface> find_interface(service_core& core, const std::string& name) {
    auto list = core.discovery().list();
    const auto found = std::ranges::find_if(list, [&](const auto& each) { return each.network.name == name; });
    if (found == list.end()) return std::nullopt;
    return std::move(*found);
}

std::optional<discovery::found_device> find_camera(service_core& core, const std::string& interface_name,
                                                   uint64_t mac) {
    const auto interface = find_interface(core, interface_name);
    if (!interface) return std::nullopt;
    const auto found = std::ranges::find_if(interface->devices, [&](const auto& each) { return each.mac == mac; });
    if (found == interface->devices.end()) return std::nullopt;
    return *found;
}

// Of this host and of all cameras but one.
std::vector<uint32_t> known_addresses(service_core& core, uint64_t but_of) {
    std::vector<uint32_t> known;
    for (const auto& each : core.discovery().list()) {
        for (const auto& net : each.network.subnets) known.push_back(net.address);
        for (const auto& device : each.devices)
            if (device.mac != but_of) known.push_back(device.address);
    }
    return known;
}

std::error_code canceled() { return std::make_error_code(std::errc::operation_canceled); }

std::error_code await_arrival(service_core& core, const std::string& interface_name, uint64_t mac, uint32_t address,
                              const std::stop_token& stop) {
    const auto give_up = clock::now() + arrival_time;
    do {
        (void)core.discovery().scan(scan_time, stop);
        if (stop.stop_requested()) return canceled();
        const auto camera = find_camera(core, interface_name, mac);
        if (camera && camera->address == address && (camera->answers || !camera->is_reachable())) return {};
    } while (clock::now() < give_up);
    return make_error_code(gigecam_errc::device_unreachable);
}

// Whether anybody has control of it, here or elsewhere. A camera may not refuse to be moved under its user's hands.
bool is_controlled(service_core& core, uint64_t mac, const std::optional<discovery::found_device>& camera,
                   const std::stop_token& stop) {
    if (core.holder_of(mac, nullptr) != service_core::holder::nobody) return true;
    if (!camera) return false;                 // a client's may have left the list for a moment
    if (!camera->is_reachable()) return false; // who could speak to it from here? Others' cameras refuse by themselves
    const auto channel =
        gvcp_master::control_channel::open({camera->address, gige::gvcp::port}, {camera->local_address, 0}, {});
    if (!channel) return camera->controlled;
    const std::stop_callback on_stop{stop, [&] { (*channel)->cancel(); }};
    const auto privilege = (*channel)->read_register(gige::gvcp::reg::privilege, question_time);
    if (privilege) return (*privilege & (bits::exclusive | bits::control)) != 0;
    return privilege.error() == make_error_code(gigecam_errc::access_denied) || camera->controlled;
}

// Why it is left where it is; no error when it is not. A stay is asked about first: who opened the camera is its holder
// before that ends.
std::error_code refusal(service_core& core, uint64_t mac, const std::optional<discovery::found_device>& camera,
                        const std::stop_token& stop) {
    if (core.addresses().has_to_stay(mac)) return make_error_code(gigecam_errc::busy);
    if (is_controlled(core, mac, camera, stop)) return make_error_code(gigecam_errc::access_denied);
    return {};
}

// Null when a camera on this interface may have the address.
const char* problem_with(const gige::network_interface& through, uint32_t address, uint32_t mask, uint32_t gateway) {
    if (const char* problem = gige::host_address_problem(address, mask)) return problem;
    for (const auto& net : through.subnets) {
        if (!net.contains(address)) continue;
        if (const char* problem = gige::host_address_problem(address, net.mask)) return problem;
    }
    const bool is_gateway =
        address == gateway || std::ranges::find(through.gateways, address) != through.gateways.end();
    return is_gateway ? "it is the gateway's address" : nullptr;
}

// Asks last whether another host has opened it since the turn began; nobody of this service has.
std::error_code move(service_core& core, const discovery::found_interface& interface, uint64_t mac, uint32_t address,
                     uint32_t mask, uint32_t gateway, const std::stop_token& stop) {
    const auto before = find_camera(core, interface.network.name, mac);
    if (const auto error = refusal(core, mac, before, stop)) return error;
    if (before) core.discovery().may_move(before->address, address);
    main_logger().info("Camera {:012X} on {} is told to take {}.", mac, interface.network.name,
                       gige::to_string(address));
    auto error = gvcp_master::force_ip(interface.network, mac, address, mask, gateway, stop);
    if (address == 0) return error;
    // One that moves before it answers, or whose answer is lost, has moved all the same.
    if (!error || error == make_error_code(gigecam_errc::timeout)) {
        const auto arrived = await_arrival(core, interface.network.name, mac, address, stop);
        if (!arrived) {
            main_logger().info("Camera {:012X} has the address {} now.", mac, gige::to_string(address));
            return {};
        }
        if (!error || arrived == std::errc::operation_canceled) error = arrived;
    }
    main_logger().warn("Camera {:012X} did not come to {} on {}: {}", mac, gige::to_string(address),
                       interface.network.name, error.message());
    return error;
}

// One that nobody has, kept for the camera while the turn lasts.
std::expected<gvcp_master::camera_address, std::error_code>
choose_address(service_core& core, const discovery::found_interface& interface, const discovery::found_device& camera,
               address_turns::turn& turn, const std::stop_token& stop) {
    for (;;) {
        auto taken = known_addresses(core, camera.mac);
        const auto others = turn.taken_by_others();
        taken.insert(taken.end(), others.begin(), others.end());
        auto found = gvcp_master::find_free_address(interface.network, camera.mac, camera.address, taken, stop);
        if (!found) return found;
        if (!turn.take(found->address)) continue;
        // Another camera may have come to it since, and given up its turn.
        const auto known = known_addresses(core, camera.mac);
        if (std::ranges::find(known, found->address) == known.end()) return found;
    }
}

enum class wanted { temporary, persistent, dhcp };

std::optional<wanted> parse(const std::string& name) {
    if (name == "IPConfigAssignFreeTemporaryIP") return wanted::temporary;
    if (name == "IPConfigAssignFreePersistentIP") return wanted::persistent;
    if (name == "IPConfigDHCPEnable") return wanted::dhcp;
    return std::nullopt;
}

std::error_code write_configuration(service_core& core, wanted function, uint64_t mac,
                                    const gvcp_master::camera_address& place, const std::stop_token& stop) {
    gvcp_master::device_control::options session;
    session.device = {place.address, gige::gvcp::port};
    session.mac = mac;
    session.local_address = place.local_address;
    session.stop = stop;
    auto opened = gvcp_master::device_control::open(std::move(session));
    if (!opened) return opened.error();
    const auto error = function == wanted::persistent
                           ? (*opened)->write_persistent_ip(true, place.address, place.mask, place.gateway)
                           : (*opened)->use_dhcp();
    opened->reset();
    core.discovery().control_given_back(mac);
    return error;
}

} // namespace

std::error_code force_address(service_core& core, const std::string& interface_name, uint64_t device, uint32_t address,
                              uint32_t mask, uint32_t gateway, const std::stop_token& stop) {
    // As much as the command carries: with more, nobody would be found who holds the camera.
    const uint64_t mac = device & 0xFFFF'FFFF'FFFF;
    address_turns::turn turn{core.addresses(), mac, stop};
    if (!turn) return canceled();
    const auto interface = find_interface(core, interface_name);
    if (!interface) return std::make_error_code(std::errc::no_such_device);
    const auto camera = find_camera(core, interface_name, mac);
    if (const auto error = refusal(core, mac, camera, stop)) return error;
    if (address == 0) return move(core, *interface, mac, address, mask, gateway, stop);

    if (const char* problem = problem_with(interface->network, address, mask, gateway)) {
        main_logger().warn("Camera {:012X} is not given {} (mask {}): {}.", mac, gige::to_string(address),
                           gige::to_string(mask), problem);
        return std::make_error_code(std::errc::invalid_argument);
    }
    if (!turn.take(address)) return std::make_error_code(std::errc::address_in_use);
    const auto& subnets = interface->network.subnets;
    const auto net = std::ranges::find_if(subnets, [&](const auto& each) { return each.contains(address); });
    const auto known = known_addresses(core, mac);
    bool used = std::ranges::find(known, address) != known.end();
    const bool is_there = camera && camera->address == address && !camera->shares_address;
    if (!used && !is_there && net != subnets.end()) {
        const auto answered =
            gvcp_master::addresses_in_use(interface->network, net->address, std::array{address}, stop);
        if (!answered) return answered.error();
        used = !answered->empty();
    }
    if (used) return std::make_error_code(std::errc::address_in_use);
    return move(core, *interface, mac, address, mask, gateway, stop);
}

std::error_code run_address_function(service_core& core, const std::string& interface_name,
                                     const discovery::found_device& asked_for, const std::string& name,
                                     const std::stop_token& stop) {
    const auto function = parse(name);
    if (!function) return std::make_error_code(std::errc::function_not_supported);
    address_turns::turn turn{core.addresses(), asked_for.mac, stop};
    if (!turn) return canceled();
    const auto interface = find_interface(core, interface_name);
    // Whoever had the turn before may have moved it; at its old address another one may be by now.
    const auto latest = find_camera(core, interface_name, asked_for.mac);
    if (!interface || !latest) return std::make_error_code(std::errc::no_such_device);
    const auto& camera = *latest;
    // All that can be asked is asked before the camera is moved: afterwards half of it would be done.
    const uint32_t needed = *function == wanted::persistent ? bits::ip_persistent
                            : *function == wanted::dhcp     ? bits::ip_dhcp
                                                            : 0;
    if ((camera.ip_config_supported & needed) != needed) return make_error_code(gigecam_errc::not_implemented);
    if (const auto error = refusal(core, camera.mac, camera, stop)) return error;

    gvcp_master::camera_address place{camera.address, camera.mask, camera.gateway, camera.local_address};
    if (*function != wanted::dhcp || !camera.is_reachable()) {
        const auto found = choose_address(core, *interface, camera, turn, stop);
        if (!found) {
            main_logger().warn("No free address for camera {:012X} on {}: {}", camera.mac, interface_name,
                               found.error().message());
            return found.error();
        }
        place = *found;
        if (const auto error = move(core, *interface, camera.mac, place.address, place.mask, place.gateway, stop))
            return error;
    }
    if (*function == wanted::temporary) return {};
    return write_configuration(core, *function, camera.mac, place, stop);
}

} // namespace service
