#include "address_assignment.h"

#include "../gvcp/address_probe.h"
#include "../gvcp/broadcast_commands.h"
#include "../gvcp/device_control.h"
#include "../gvcp/free_address.h"

#include <gds_helper/log.h>
#include <gds_shared/gigecam_error.h>

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
constexpr std::chrono::milliseconds unanswered_time{1000}; // of one that did not even acknowledge
constexpr std::chrono::milliseconds scan_time{1000};

constexpr auto& logger = gds_helper::log::main_logger;

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

std::error_code await_arrival(service_core& core, const std::string& interface_name, uint64_t mac, uint32_t address,
                              std::chrono::milliseconds time, const std::stop_token& stop) {
    const auto give_up = clock::now() + time;
    do {
        if (stop.stop_requested()) return std::make_error_code(std::errc::operation_canceled);
        (void)core.discovery().scan(scan_time, stop);
        const auto camera = find_camera(core, interface_name, mac);
        if (camera && camera->address == address) return {};
    } while (clock::now() < give_up);
    return make_error_code(gigecam_errc::device_unreachable);
}

std::error_code move(service_core& core, const discovery::found_interface& interface, uint64_t mac, uint32_t address,
                     uint32_t mask, uint32_t gateway, const std::stop_token& stop) {
    const auto before = find_camera(core, interface.network.name, mac);
    if (before) core.discovery().may_move(before->address, address);
    auto error = gvcp_master::force_ip(interface.network, mac, address, mask, gateway, stop);
    if (address == 0) return error;
    // One that moves before it answers, or whose answer is lost, has moved all the same.
    const bool unanswered = error == make_error_code(gigecam_errc::timeout);
    if (!error || unanswered) {
        const auto time = unanswered ? unanswered_time : arrival_time;
        const auto arrived = await_arrival(core, interface.network.name, mac, address, time, stop);
        // That it did not even answer says more.
        if (!unanswered || arrived != make_error_code(gigecam_errc::device_unreachable)) error = arrived;
    }
    if (error) {
        logger().warn("Camera {:012X} did not come to {} on {}: {}", mac, gige::to_string(address),
                      interface.network.name, error.message());
        return error;
    }
    logger().info("Camera {:012X} has the address {} now.", mac, gige::to_string(address));
    return {};
}

enum class wanted { temporary, persistent, dhcp };

std::optional<wanted> parse(const std::string& name) {
    if (name == "IPConfigAssignFreeTemporaryIP") return wanted::temporary;
    if (name == "IPConfigAssignFreePersistentIP") return wanted::persistent;
    if (name == "IPConfigDHCPEnable") return wanted::dhcp;
    return std::nullopt;
}

} // namespace

std::error_code force_address(service_core& core, const std::string& interface_name, uint64_t mac, uint32_t address,
                              uint32_t mask, uint32_t gateway, const std::stop_token& stop) {
    const std::lock_guard turn{core.address_turn()};
    if (stop.stop_requested()) return std::make_error_code(std::errc::operation_canceled);
    const auto interface = find_interface(core, interface_name);
    if (!interface) return std::make_error_code(std::errc::no_such_device);
    const auto camera = find_camera(core, interface_name, mac);
    const auto& subnets = interface->network.subnets;
    const auto net = std::ranges::find_if(subnets, [&](const auto& each) { return each.contains(address); });
    if (address != 0) {
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
    }
    return move(core, *interface, mac, address, mask, gateway, stop);
}

std::error_code run_address_function(service_core& core, const std::string& interface_name,
                                     const discovery::found_device& asked_for, const std::string& name,
                                     const std::stop_token& stop) {
    const auto function = parse(name);
    if (!function) return std::make_error_code(std::errc::function_not_supported);
    // One after the other, or two searches would find the same address free.
    const std::lock_guard turn{core.address_turn()};
    if (stop.stop_requested()) return std::make_error_code(std::errc::operation_canceled);
    const auto interface = find_interface(core, interface_name);
    // Whoever had the turn before may have moved it; at its old address another one may be by now.
    const auto latest = find_camera(core, interface_name, asked_for.mac);
    if (!interface || !latest) return std::make_error_code(std::errc::no_such_device);
    const auto& camera = *latest;
    // Asked before the camera is moved: afterwards half of it would be done.
    const uint32_t needed = *function == wanted::persistent ? bits::ip_persistent
                            : *function == wanted::dhcp     ? bits::ip_dhcp
                                                            : 0;
    if ((camera.ip_config_supported & needed) != needed) return make_error_code(gigecam_errc::not_implemented);

    gvcp_master::camera_address place{camera.address, camera.mask, camera.gateway, camera.local_address};
    if (*function != wanted::dhcp || !camera.is_reachable()) {
        const auto found = gvcp_master::find_free_address(interface->network, camera.mac, camera.address,
                                                          known_addresses(core, camera.mac), stop);
        if (!found) {
            logger().warn("No free address for camera {:012X} on {}: {}", camera.mac, interface_name,
                          found.error().message());
            return found.error();
        }
        place = *found;
        if (const auto error = move(core, *interface, camera.mac, place.address, place.mask, place.gateway, stop))
            return error;
    }
    if (*function == wanted::temporary) return {};

    gvcp_master::device_control::options session;
    session.device = {place.address, gige::gvcp::port};
    session.local_address = place.local_address;
    session.stop = stop;
    const auto opened = gvcp_master::device_control::open(std::move(session));
    if (!opened) return opened.error();
    return *function == wanted::persistent
               ? (*opened)->write_persistent_ip(true, place.address, place.mask, place.gateway)
               : (*opened)->use_dhcp();
}

} // namespace service
