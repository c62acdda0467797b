#include "network_commands.h"

#include "events_command.h"
#include "firmware_command.h"

#include "../consumer/device_choice.h"
#include "../consumer/interface_session.h"
#include "../output/output.h"

#include <gige/host_address.h>

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <options/numbers.h>

#include <algorithm>
#include <memory>

namespace cli {

namespace {

void show(const common_options& options, const nlohmann::json& place) {
    if (options.json) return print_json(place);
    const auto word = [&](const char* key) { return printable(place[key].get<std::string>()); };
    print("{:<40} {:<15} mask {:<15} gateway {:<15} {}  {}\n", word("id"), word("address"), word("mask"),
          word("gateway"), word("mac"), word("reachable"));
}

// What the camera says after it has moved. It may be listed a moment later than the call returned.
int show_moved(const common_options& options, interface_session& session) {
    session.update_list();
    if (!session.select(session.device.id))
        throw std::runtime_error("The camera was told its address and is not listed now: 'orv-gentl ip show' tells.");
    show(options, session.address());
    return 0;
}

struct chosen_address {
    uint32_t address = 0;
    uint32_t mask = 0;
    uint32_t gateway = 0;
};
// What is wrong with it for itself; null when nothing is. The service knows the networks besides.
const char* problem_with(const chosen_address& chosen) {
    if (const char* problem = gige::host_address_problem(chosen.address, chosen.mask)) return problem;
    if (chosen.gateway == 0) return nullptr;
    if (chosen.gateway == chosen.address) return "it is the gateway's address";
    if (((chosen.gateway ^ chosen.address) & chosen.mask) != 0) return "the gateway lies in another network";
    return gige::host_address_problem(chosen.gateway, chosen.mask) != nullptr ? "the gateway's address is no host's"
                                                                              : nullptr;
}

chosen_address parse(const std::string& address, const std::string& mask, const std::string& gateway) {
    const chosen_address chosen{parse_ip(address), parse_ip(mask), parse_ip(gateway)};
    if (const char* problem = problem_with(chosen))
        throw failure(cause::arguments,
                      fmt::format("{} cannot be a camera's address: {}.", ip_text(chosen.address), problem));
    return chosen;
}

// What to do about a refusal; empty where the words say it all.
std::string advice(const call_failed& failure) {
    switch (failure.code) {
    case GenTL::GC_ERR_ACCESS_DENIED:
        return "; somebody controls the camera: close it there first.";
    case GenTL::GC_ERR_BUSY:
        return "; somebody is opening the camera, or its firmware is being updated: try again when that is over.";
    case GenTL::GC_ERR_RESOURCE_IN_USE:
        return "; 'orv-gentl ip temporary' finds an address that nobody has.";
    case GenTL::GC_ERR_NOT_AVAILABLE:
        return "; no address is free in the interface's networks; 'orv-gentl force-ip' gives one of your choice.";
    case GenTL::GC_ERR_TIMEOUT:
        return "; the camera did not answer: is it still listed by 'orv-gentl ip show'?";
    default:
        return failure.reason.find("UNREACHABLE") == failure.reason.npos
                   ? ""
                   : "; the camera was told and has not been seen at the address: 'orv-gentl ip show' tells where it "
                     "is.";
    }
}

void run_address_command(const interface_session& session, const std::string& command) {
    try {
        session.run(command);
    } catch (const call_failed& failure) {
        const call_failed advised(failure.call, failure.code, failure.reason + advice(failure));
        if (failure.is_held())
            throw advised.explained(cause::busy, fmt::format("Camera '{}' is in use.", session.device.id));
        throw advised;
    }
}

void force_ip(const interface_session& session, const chosen_address& chosen) {
    session.set_number("GevDeviceForceIPAddress", chosen.address);
    session.set_number("GevDeviceForceSubnetMask", chosen.mask);
    session.set_number("GevDeviceForceGateway", chosen.gateway);
    try {
        run_address_command(session, "GevDeviceForceIP");
    } catch (const call_failed& failure) {
        if (failure.code != GenTL::GC_ERR_INVALID_VALUE) throw;
        throw call_failed(failure.call, failure.code,
                          fmt::format("{} ({}: the interface's network has it set aside, or it is the gateway's)",
                                      failure.reason, ip_text(chosen.address)));
    }
}

int force_ip(const common_options& options, const chosen_address& chosen) {
    interface_session session = interface_session::of_device(options);
    force_ip(session, chosen);
    return show_moved(options, session);
}

// An address of the user's choice, for good. First for now: the service asks whether somebody has it, and what cannot
// be reached cannot be written to.
int keep_address(const common_options& options, const chosen_address& chosen) {
    interface_session session = interface_session::of_device(options);
    force_ip(session, chosen);
    session.update_list();
    if (!session.select(session.device.id))
        throw std::runtime_error("The camera was told its address and is not listed now: 'orv-gentl ip show' tells.");
    try {
        const auto device = session.open(GenTL::DEVICE_ACCESS_CONTROL);
        const node_map remote{session.library(), remote_port(session.library(), *device)};
        for (const auto& [feature, value] : {std::pair{"GevPersistentIPAddress", chosen.address},
                                             {"GevPersistentSubnetMask", chosen.mask},
                                             {"GevPersistentDefaultGateway", chosen.gateway}})
            set_from_text(require_node(remote, feature), std::to_string(value));
        set_from_text(require_node(remote, "GevCurrentIPConfigurationPersistentIP"), "true");
    } catch (const std::exception& failure) {
        throw std::runtime_error(
            fmt::format("The camera has {} until its next start only; the persistent address was not written whole: {}",
                        ip_text(chosen.address), failure.what()));
    }
    show(options, session.address());
    return 0;
}

int assign(const common_options& options, const std::string& function) {
    interface_session session = interface_session::of_device(options);
    run_address_command(session, function);
    return show_moved(options, session);
}

// The camera's own settings, where it can be opened and has the features.
void add_settings(const found_devices& found, const std::shared_ptr<const tl_interface>& interface,
                  nlohmann::json& place) {
    try {
        const auto device =
            open_device(*found.lib, interface, place["id"].get<std::string>(), GenTL::DEVICE_ACCESS_READONLY);
        const node_map remote{*found.lib, remote_port(*found.lib, *device)};
        for (const auto& [key, feature] : {std::pair{"persistent_on", "GevCurrentIPConfigurationPersistentIP"},
                                           {"persistent_address", "GevPersistentIPAddress"},
                                           {"persistent_mask", "GevPersistentSubnetMask"},
                                           {"dhcp_on", "GevCurrentIPConfigurationDHCP"}}) {
            GenICam::INode* node = remote.document().find_node(feature);
            std::string error;
            if (node == nullptr) continue;
            if (auto value = value_text(*node, error); error.empty()) place[key] = std::move(value);
        }
    } catch (const std::exception&) {
        // In use, or of another subnet: what the network tells is shown.
    }
}

int show_addresses(const common_options& options) {
    found_devices found = find_devices(options);
    keep_meant(found, options);
    nlohmann::json all = nlohmann::json::array();
    for (const auto& [device, interface] : found.devices) {
        interface_session session{found.lib, interface};
        if (!session.select(device.id)) continue;
        nlohmann::json place = session.address();
        place["interface"] = device.interface_id;
        add_settings(found, interface, place);
        if (!options.json) {
            show(options, place);
            if (place.contains("persistent_address"))
                print("    persistent {}{}\n", place["persistent_address"].get<std::string>(),
                      place.value("persistent_on", "") == "true" ? ", used at the next start" : " (not used)");
        }
        all.push_back(std::move(place));
    }
    if (options.json) print_json({{"devices", all}});
    if (all.empty()) say("No device was found. 'orv-gentl doctor' tells why.\n");
    return 0;
}

struct action_options {
    int64_t device_key = 0;
    int64_t group_key = 0;
    int64_t group_mask = 0;
    uint64_t time = 0;
    bool scheduled = false;
};

int send_action(const common_options& options, const action_options& action) {
    const found_devices found = find_devices(options);
    if (found.interfaces.empty()) throw std::runtime_error("There is no interface to send by.");
    const bool everywhere = options.interface.empty();
    const std::string name = everywhere ? found.interfaces.front().id : options.interface;
    // One with devices is open already, and opens once.
    const auto same = [&](const auto& each) { return each.first.interface_id == name; };
    const auto opened = std::ranges::find_if(found.devices, same);
    const interface_session session{found.lib, opened != found.devices.end() ? opened->second
                                                                             : open_interface(found.system, name)};
    session.set_number("ActionDeviceKey", action.device_key);
    session.set_number("ActionGroupKey", action.group_key);
    session.set_number("ActionGroupMask", action.group_mask);
    session.set("ActionScheduledTimeEnable", action.scheduled ? "true" : "false");
    if (action.scheduled) session.set("ActionScheduledTime", std::to_string(action.time));
    session.run(everywhere ? "ActionCommandToAllInterfaces" : "ActionCommand");
    if (options.json)
        print_json({{"sent", true}, {"interface", everywhere ? "all" : name}});
    else
        print("Sent by {}.\n", everywhere ? "all interfaces" : name);
    return 0;
}

} // namespace

void add_network_commands(CLI::App& app, common_options& options, int& result,
                          const std::function<void(CLI::App& command, reach of)>& add_common) {
    struct words {
        std::string address, mask = "255.255.255.0", gateway = "0.0.0.0", package;
        action_options action;
        event_options events;
        std::vector<std::string> settings;
        int64_t longest_s = 600;
    };
    auto given = std::make_shared<words>();

    auto* force = app.add_subcommand("force-ip", "Gives a camera an address until its next start (ForceIP)");
    force->footer("Works for cameras of other subnets, which cannot be opened. Refused when somebody has the address.\n"
                  "'orv-gentl ip temporary' finds a free one by itself.\n"
                  "Example: orv-gentl force-ip 192.168.1.20 --device 02:00:7F:00:00:0A");
    add_common(*force, reach::device);
    force->add_option("address", given->address, "The new address, such as 192.168.0.10")->required();
    force->add_option("--mask", given->mask, "Subnet mask")->capture_default_str();
    force->add_option("--gateway", given->gateway, "Gateway; 0.0.0.0 for none")->capture_default_str();
    force->callback([&, given] { result = force_ip(options, parse(given->address, given->mask, given->gateway)); });

    auto* ip = app.add_subcommand("ip", "Shows and changes how cameras get their addresses");
    ip->require_subcommand(1);
    ip->footer("Examples: orv-gentl ip show\n          orv-gentl ip persistent --device SERIAL --address 192.168.1.20");
    auto* show_command = ip->add_subcommand("show", "Addresses of all cameras, also of those that cannot be opened");
    show_command->footer("Example: orv-gentl ip show --device SERIAL");
    add_common(*show_command, reach::device);
    show_command->callback([&] { result = show_addresses(options); });
    const auto function = [&](const char* name, const char* help, const char* footer, const char* feature) {
        auto* command = ip->add_subcommand(name, help);
        command->footer(footer);
        add_common(*command, reach::device);
        command->callback([&options, &result, feature] { result = assign(options, feature); });
        return command;
    };
    function("temporary", "Gives a camera a free address of this interface's network, until its next start",
             "The service picks an address that nobody answers for.\n"
             "Example: orv-gentl ip temporary --device SERIAL",
             "IPConfigAssignFreeTemporaryIP");
    auto* persistent = function("persistent", "Gives a camera an address of this interface's network for good",
                                "The camera has it at once and after every start. The service picks a free one, or "
                                "takes the one named, when nobody has it.\n"
                                "Example: orv-gentl ip persistent --device SERIAL --address 192.168.1.20",

                                "IPConfigAssignFreePersistentIP");
    auto* named = persistent->add_option("--address", given->address, "One of your choice, such as 192.168.0.10");
    persistent->add_option("--mask", given->mask, "Its subnet mask")->capture_default_str()->needs(named);
    persistent->add_option("--gateway", given->gateway, "Its gateway; 0.0.0.0 for none")
        ->capture_default_str()
        ->needs(named);
    persistent->callback([&, given, named] {
        result = named->count() == 0 ? assign(options, "IPConfigAssignFreePersistentIP")
                                     : keep_address(options, parse(given->address, given->mask, given->gateway));
    });
    function("dhcp", "Lets a camera ask a DHCP server from its next start on",
             "One that cannot be reached gets a free temporary address first.\n"
             "Example: orv-gentl ip dhcp --device SERIAL",
             "IPConfigDHCPEnable");

    auto* action = app.add_subcommand("action", "Triggers cameras by one action command");
    action->footer("Those cameras act whose device key and group key are equal and whose group mask shares a bit.\n"
                   "Without --interface it goes out by all interfaces. Cameras act only while somebody controls them.\n"
                   "Example: orv-gentl action --device-key 1 --group-key 1 --group-mask 1");
    add_common(*action, reach::search);
    constexpr int64_t largest = 0xFFFFFFFF;
    action->add_option("--device-key", given->action.device_key, "Equal to the cameras' ActionDeviceKey")
        ->required()
        ->check(option_checks::whole_number(0, largest));
    action->add_option("--group-key", given->action.group_key, "Equal to their ActionGroupKey")
        ->required()
        ->check(option_checks::whole_number(0, largest));
    action->add_option("--group-mask", given->action.group_mask, "Shares a bit with their ActionGroupMask")
        ->required()
        ->check(option_checks::whole_number(0, largest));
    auto* at = action->add_option("--at", given->action.time, "Time of the action, in ticks of the cameras' clocks")
                   ->check(option_checks::whole_number(0));
    action->callback([&, given, at] {
        given->action.scheduled = at->count() != 0;
        result = send_action(options, given->action);
    });

    auto* events = app.add_subcommand("events", "Prints a camera's events as they come");
    events->footer(
        "With the features of the event's port. 'orv-gentl get EventSelector' shows what a camera can send;\n"
        "--json prints one object for each event.\n"
        "Example: orv-gentl events --device SERIAL --notify ExposureEnd --acquire --count 10");
    add_common(*events, reach::opened_device);
    events->add_option("--notify", given->events.notify, "Switch this event on (entry of EventSelector); repeatable");
    events->add_option("--set", given->settings,
                       "NAME=VALUE or NAME[SELECTOR=CHOICE]=VALUE before the start; repeatable");
    events->add_option("--exec", given->events.execute, "Command to execute once listening; repeatable");
    events->add_flag("--acquire", given->events.acquire, "Take pictures meanwhile, for events that frames cause");
    events->add_option("--count", given->events.count, "End after so many; 0 for never")
        ->check(option_checks::whole_number(0))
        ->capture_default_str();
    events->add_option("--wait", given->events.wait_ms, "Longest wait for the next event, milliseconds; -1 for ever")
        ->check(option_checks::whole_number(-1, 1'000'000'000))
        ->capture_default_str();
    events->callback([&, given] {
        for (const std::string& text : given->settings) given->events.set.push_back(parse_setting(text));
        result = show_events(options, given->events);
    });

    auto* firmware = app.add_subcommand("firmware", "Writes a firmware package (*.fwpack) to a camera");
    firmware->footer("Checked against the camera first. The camera restarts at the end; nobody may have it open.\n"
                     "Example: orv-gentl firmware camera-1.2.fwpack --device SERIAL");
    add_common(*firmware, reach::device);
    firmware->add_option("package", given->package, "Package file")->required();
    firmware->add_option("--longest", given->longest_s, "Give up watching after so many seconds")
        ->check(option_checks::whole_number(1, 1'000'000))
        ->capture_default_str();
    firmware->callback(
        [&, given] { result = upload_firmware(options, given->package, std::chrono::seconds{given->longest_s}); });
}

} // namespace cli
