#include "firmware_updates.h"

#include "../gvcp/device_control.h"

#include <gds_helper/log.h>
#include <gds_helper/printable.h>
#include <gds_shared/gigecam_error.h>
#include <ipc_rpc/status.h>

#include <fmt/format.h>
#include <spdlog/logger.h>

#include <algorithm>
#include <optional>
#include <utility>

namespace service {

namespace {

using clock = std::chrono::steady_clock;
using gds_shared::gigecam_errc;
using gvcp_master::discovery;

constexpr std::chrono::minutes longest_restart{2};
constexpr std::chrono::minutes longest_installation{10}; // of one that goes on behind a lost session
constexpr std::chrono::milliseconds restart_scan{500};
constexpr std::string_view no_memory = "Failed: memory"; // short enough for a string to take none for it

using gds_helper::log::main_logger;

std::optional<discovery::found_device> find_camera(const discovery& finder, uint64_t mac) {
    for (const auto& interface : finder.list())
        for (const auto& device : interface.devices)
            if (device.mac == mac) return device;
    return std::nullopt;
}

} // namespace

firmware_updates::firmware_updates(discovery& cameras, address_turns& given, std::stop_token stopping,
                                   state_function told_states)
    : finder(cameras), addresses(given), stop(std::move(stopping)), told(std::move(told_states)) {}

firmware_updates::~firmware_updates() {
    // Nobody starts one any more.
    for (auto& [mac, each] : updates)
        if (each.thread.joinable()) each.thread.join();
}

std::optional<std::string> firmware_updates::state(const std::string& interface_name, const std::string& device_id) {
    const std::lock_guard guard{mutex};
    for (const auto& [mac, each] : updates)
        if (each.device_id == device_id && each.interface_name == interface_name) return each.state;
    return std::nullopt;
}

void firmware_updates::forget(const std::string& interface_name, const std::string& device_id) {
    const std::lock_guard guard{mutex};
    for (auto& [mac, each] : updates)
        if (each.device_id == device_id && each.interface_name == interface_name && !each.running) each.state.clear();
}

void firmware_updates::tell(uint64_t mac, const std::string& text) {
    std::string interface_name;
    {
        const std::lock_guard guard{mutex};
        auto& mine = updates[mac];
        mine.state = text;
        interface_name = mine.interface_name;
    }
    if (told) told(interface_name, mac, text);
}

void firmware_updates::end(uint64_t mac, std::string_view text) noexcept {
    try {
        std::string interface_name;
        {
            const std::lock_guard guard{mutex};
            auto& mine = updates[mac];
            mine.stay.reset();
            mine.running = false; // the thread takes the lock no more
            mine.state = no_memory;
            mine.state = text;
            interface_name = mine.interface_name;
        }
        if (told) told(interface_name, mac, std::string{text});
    } catch (const std::exception&) { // who asks for the state has it all the same
    }
}

std::error_code firmware_updates::start(const std::string& interface_name, const std::string& device_id,
                                        const discovery::found_device& camera, std::span<const std::byte> bytes) {
    std::ptrdiff_t others = 0;
    std::thread before, forgotten; // of the update before, and of the oldest; they may still be telling their end
    {
        // The place is taken first: two clients may ask at the same time.
        const std::lock_guard guard{mutex};
        auto& mine = updates[camera.mac];
        if (mine.running) return make_error_code(gigecam_errc::busy);
        others = std::ranges::count_if(updates, [](const auto& each) { return each.second.running; });
        mine.interface_name = interface_name;
        mine.device_id = device_id;
        mine.state.clear();  // the end of the one before
        mine.running = true; // nothing fails from here on
        mine.number = ++asked_for;
        before.swap(mine.thread);
        if (updates.size() > most_remembered) { // few of them run
            const auto oldest = std::ranges::min_element(updates, {}, [](const auto& each) {
                return std::pair{each.second.running, each.second.number};
            });
            forgotten.swap(oldest->second.thread);
            updates.erase(oldest);
        }
    }
    for (auto* each : {&before, &forgotten})
        if (each->joinable()) each->join();
    try {
        if (others < static_cast<std::ptrdiff_t>(most_at_once)) return start_held(camera, bytes);
        end(camera.mac, fmt::format("Refused: {} updates are under way already", others));
        return make_error_code(ipc_rpc::status::resource_exhausted);
    } catch (const std::exception&) { // memory, a thread: the place must not stay taken
        end(camera.mac, "Refused: no memory or no thread for it");
        return make_error_code(ipc_rpc::status::resource_exhausted);
    }
}

std::error_code firmware_updates::start_held(const discovery::found_device& camera, std::span<const std::byte> bytes) {
    const auto refuse = [&](const std::string& why, std::error_code error) {
        const std::string text = gds_helper::printable(why, 200); // a package's own words may be among them
        main_logger().warn("Firmware for {} refused: {}", gige::to_string(camera.address), text);
        end(camera.mac, "Refused: " + text);
        return error;
    };
    const auto may_stay = [&] {
        const std::lock_guard guard{mutex};
        return static_cast<bool>(updates[camera.mac].stay.emplace(addresses, camera.mac));
    };
    if (!may_stay()) return refuse("the camera is being given an address", make_error_code(gigecam_errc::busy));
    if (!camera.is_reachable())
        return refuse("the camera cannot be reached", std::make_error_code(std::errc::host_unreachable));
    auto package = gvcp_master::read_firmware_package(bytes);
    if (!package) return refuse(package.error(), make_error_code(gigecam_errc::parsing_failed));
    if (package->model != camera.model || (!package->vendor.empty() && package->vendor != camera.vendor))
        return refuse(fmt::format("the package is for {} {}, the camera is {} {}", package->vendor, package->model,
                                  camera.vendor, camera.model),
                      make_error_code(gigecam_errc::invalid_parameter));
    gvcp_master::device_control::options session;
    session.device = {camera.address, gige::gvcp::port};
    session.mac = camera.mac;
    session.local_address = camera.local_address;
    session.access = gvcp_master::access_mode::exclusive;
    session.stop = stop;
    auto opened = gvcp_master::device_control::open(std::move(session));
    if (!opened && opened.error() == std::make_error_code(std::errc::host_unreachable))
        return refuse("another camera has its address now", opened.error());
    if (!opened) return refuse("the camera cannot be held: " + opened.error().message(), opened.error());

    main_logger().info("Firmware {} for {}: {} bytes.", gds_helper::printable(package->version),
                       gige::to_string(camera.address), package->image.size());
    tell(camera.mac, "Uploading: 0 %");
    const auto update_camera = [this, camera](std::unique_ptr<gvcp_master::device_control> device,
                                              gvcp_master::firmware_package image) {
        const uint64_t mac = camera.mac;
        const auto give_back = [&] { // before the state says that all is over
            device.reset();
            finder.control_given_back(mac);
        };
        std::string text{no_memory};
        try {
            const auto done =
                gvcp_master::write_firmware(*device, image, stop, [&](const std::string& said) { tell(mac, said); });
            give_back();
            image.image = {};
            if (done) {
                tell(mac, "Restarting");
                text = await_restart(camera, image, *done);
            } else {
                text = "Failed: " + done.error();
            }
            main_logger().info("Firmware of camera {:012X}: {}", mac, gds_helper::printable(text));
        } catch (const std::exception&) { // memory; the service has other clients
            give_back();
        }
        end(mac, text);
    };
    const std::lock_guard guard{mutex};
    updates[camera.mac].thread = std::thread{update_camera, std::move(*opened), std::move(*package)};
    return {};
}

std::string firmware_updates::await_restart(const discovery::found_device& before,
                                            const gvcp_master::firmware_package& package,
                                            gvcp_master::install_command install) {
    using gige::firmware::state;
    const std::string& version = package.version;
    const bool is_new = before.device_version != version;
    const auto at_most = clock::now() + longest_installation;
    auto give_up = clock::now() + longest_restart;
    bool seen = false;
    std::string where;
    do {
        (void)finder.scan(restart_scan, stop);
        if (stop.stop_requested()) return "Failed: the service ended before the camera was back";
        const auto camera = find_camera(finder, before.mac);
        if (!camera) continue;
        const auto now = gvcp_master::read_firmware_state(*camera, package.registers, stop);
        if (!now) {
            // Another's control or another network may keep it from answering; what it says to all is proof, too, of
            // a version that it did not have.
            if (is_new && camera->device_version == version) return fmt::format("Finished: version {}", version);
            where = camera->is_reachable()
                        ? std::string{}
                        : fmt::format("; it is at {}, where it cannot be reached", gige::to_string(camera->address));
            continue;
        }
        seen = true;
        switch (now->state) {
        case state::refused:
            return "Failed: the camera refuses the image";
        case state::installing:
            tell(before.mac, fmt::format("Installing: {} %", now->percent));
            give_up = std::min(at_most, clock::now() + longest_restart);
            break;
        case state::idle:
            if (now->version != version)
                return fmt::format("Failed: the camera has version {}, not {}", now->version, version);
            if (!is_new && install == gvcp_master::install_command::unanswered)
                return fmt::format("Failed: the camera did not say whether it installs the image; it has version {}",
                                   version);
            if (camera->device_version != version) break; // the list is to say the same
            return fmt::format("Finished: version {}", version);
        default: // it is about to restart, or still waits for us
            break;
        }
    } while (clock::now() < give_up);
    return seen ? "Failed: the camera did not restart" : "Failed: the camera did not come back" + where;
}

} // namespace service
