#include "plan_command.h"

#include "../cameras/camera_plan.h"
#include "../consumer/stream_buffers.h"
#include "../output/output.h"
#include "../posix/network_interface.h"

#include <options/numbers.h>

#include <algorithm>
#include <memory>
#include <set>

namespace cli {

namespace {

using namespace GenTL;

struct plan_options {
    double link_mbit = 0;  // 0: what the interface tells
    double reserve = 10;   // per cent
    double frame_rate = 0; // 0: the cameras'
    std::string by = "any";
    bool apply = false;
};

struct opened_camera {
    std::shared_ptr<const tl_device> device;
    std::unique_ptr<node_map> remote;
    camera_plan plan;
    nlohmann::json applied = nlohmann::json::array();
};

struct link_plan {
    std::string interface;
    double link = 0, usable = 0; // bytes per second
    std::string link_source;
    std::vector<opened_camera> cameras;
    nlohmann::json unreachable = nlohmann::json::array();
    link_shares shares;
    bool applied = false;

    [[nodiscard]] double needed() const {
        double sum = 0;
        for (const auto& each : cameras) sum += each.plan.cost.bytes_per_second;
        return sum;
    }
    [[nodiscard]] double sent() const {
        double sum = 0;
        for (const auto& each : cameras) sum += each.plan.sends;
        return sum;
    }
};

// The one whose cameras are meant.
std::string interface_of(const found_devices& found, const std::string& asked) {
    std::set<std::string> with_cameras;
    for (const auto& [device, interface] : found.devices) with_cameras.insert(device.interface_id);
    if (with_cameras.empty())
        throw failure(cause::no_camera, fmt::format("No camera was found{}. 'orv-gentl doctor' tells why.",
                                                    asked.empty() ? "" : fmt::format(" at '{}'", asked)));
    if (with_cameras.size() == 1) return *with_cameras.begin();
    std::string list;
    for (const std::string& each : with_cameras) list += "\n  " + each;
    throw failure(cause::ambiguous, "There are cameras at several interfaces; say which by --interface:" + list);
}

// The packet size that the library finds when a stream starts; the camera itself is not started.
uint64_t packet_size_on_path(const gentl_library& lib, const std::shared_ptr<const tl_device>& device,
                             const node_map& remote) {
    const auto stream = open_stream(lib, device);
    announce_buffers(lib, *stream, remote, 1);
    lib.check("DSStartAcquisition", lib.DSStartAcquisition(stream->get(), ACQ_START_FLAGS_DEFAULT, GENTL_INFINITE));
    const auto size = feature_number(remote, "GevSCPSPacketSize");
    lib.check("DSStopAcquisition", lib.DSStopAcquisition(stream->get(), ACQ_STOP_FLAGS_DEFAULT));
    lib.check("DSFlushQueue", lib.DSFlushQueue(stream->get(), ACQ_QUEUE_ALL_DISCARD));
    return size && *size > 0 ? static_cast<uint64_t>(*size) : 0;
}

link_plan make_plan(const common_options& common, const plan_options& options) {
    const found_devices found = find_devices(common);
    const gentl_library& lib = *found.lib;
    link_plan whole;
    whole.interface = interface_of(found, common.interface);
    double mbit = options.link_mbit;
    whole.link_source = "--link";
    if (mbit == 0) {
        const auto speed = link_speed_of(whole.interface);
        if (!speed)
            throw failure(cause::arguments,
                          fmt::format("Interface '{}' does not tell its speed: give it with --link, in Mbit/s.",
                                      whole.interface));
        mbit = static_cast<double>(*speed);
        whole.link_source = "the interface";
    }
    whole.link = mbit * 1e6 / 8;
    whole.usable = whole.link * (1 - options.reserve / 100);
    plan_wishes wishes;
    wishes.frame_rate = options.frame_rate;
    wishes.mtu = mtu_of(whole.interface).value_or(0);
    wishes.link = whole.link;
    const pacing by = options.by == "limit" ? pacing::limit : options.by == "delay" ? pacing::delay : pacing::any;

    // All are had before one is changed.
    for (const auto& [device, interface] : found.devices) {
        if (device.interface_id != whole.interface) continue;
        if (device.access_status == DEVICE_ACCESS_STATUS_NOACCESS) {
            whole.unreachable.push_back(device.id);
            continue;
        }
        opened_camera camera;
        camera.device =
            open_chosen(found, device, interface, options.apply ? DEVICE_ACCESS_CONTROL : DEVICE_ACCESS_READONLY);
        camera.remote = std::make_unique<node_map>(lib, remote_port(lib, *camera.device));
        plan_wishes its = wishes;
        if (options.apply) its.packet_size = packet_size_on_path(lib, camera.device, *camera.remote);
        camera.plan = read_camera(*camera.remote, device.id, its);
        whole.cameras.push_back(std::move(camera));
    }
    if (whole.cameras.empty())
        throw failure(cause::no_camera,
                      fmt::format("No camera of {} can be reached. 'orv-gentl doctor' tells what mends "
                                  "it.",
                                  whole.interface));
    std::vector<link_user> users;
    users.reserve(whole.cameras.size());
    for (const auto& each : whole.cameras) users.push_back({each.plan.cost.bytes_per_second, each.plan.own_link});
    whole.shares = share_link(users, whole.link, whole.usable);
    for (size_t i = 0; i < whole.cameras.size(); ++i) {
        whole.cameras[i].plan.share = whole.shares.bytes_per_second[i];
        if (whole.shares.fits)
            choose_settings(whole.cameras[i].plan, *whole.cameras[i].remote, whole.shares.limited, by);
    }
    return whole;
}

nlohmann::json to_json(const link_plan& whole) {
    nlohmann::json cameras = nlohmann::json::array();
    for (const auto& each : whole.cameras) {
        cameras.push_back(each.plan.to_json());
        cameras.back()["applied"] = each.applied;
    }
    return {{"interface", whole.interface},
            {"link_bytes_per_s", whole.link},
            {"link_source", whole.link_source},
            {"usable_bytes_per_s", whole.usable},
            {"needs_bytes_per_s", whole.needed()},
            {"fits", whole.shares.fits},
            {"limited", whole.shares.limited},
            {"applied", whole.applied},
            {"cameras", cameras},
            {"unreachable", whole.unreachable}};
}

void show(const link_plan& whole, const plan_options& options) {
    constexpr double megabyte = 1e6;
    print("{}: {:g} Mbit/s ({}) are {:.2f} MB/s; less {:g} % for resends and control {:.2f} MB/s\n", whole.interface,
          whole.link * 8 / 1e6, whole.link_source, whole.link / megabyte, options.reserve, whole.usable / megabyte);
    for (const auto& each : whole.cameras) {
        print("{}", each.plan.arithmetic());
        for (const auto& done : each.applied) {
            print("  written: {} = {}\n", done["name"].get<std::string>(), done["value"].get<std::string>());
        }
    }
    print("together the cameras need {:.2f} of {:.2f} MB/s", whole.needed() / megabyte, whole.usable / megabyte);
    if (whole.shares.fits) print(" and send {:.2f} MB/s at most", whole.sent() / megabyte);
    print("\n");
    for (const auto& id : whole.unreachable)
        print("not counted, for it cannot be reached: {}\n", id.get<std::string>());
    if (whole.shares.limited && whole.cameras.size() > 1)
        print_text(
            "Behind a switch all their bursts end in this host's one port, however fast their own links are: what "
            "each may\nsend is its share of that port.\n");
    if (!whole.shares.fits || whole.applied) return;
    for (const auto& each : whole.cameras) {
        std::string words;
        for (const setting& setting : each.plan.settings) words += fmt::format(" {}={}", setting.name, setting.value);
        if (!words.empty()) print("orv-gentl set --device {}{}\n", shell_word(each.plan.id), words);
    }
}

// What keeps the plan from holding; empty when nothing does.
std::string problem_with(const link_plan& whole) {
    if (!whole.shares.fits) {
        for (const auto& each : whole.cameras) {
            if (each.plan.cost.bytes_per_second > each.plan.own_link)
                return fmt::format("Camera '{}' needs {:.2f} MB/s, and its own link carries {:.2f}.", each.plan.id,
                                   each.plan.cost.bytes_per_second / 1e6, each.plan.own_link / 1e6);
        }
        const double part = whole.usable / whole.needed();
        std::string rates;
        for (const auto& each : whole.cameras)
            rates += fmt::format("\n  {}: {:.2f} frames per second instead of {:g}", each.plan.id,
                                 each.plan.shape.frame_rate * part, each.plan.shape.frame_rate);
        return fmt::format("It does not fit: the cameras need {:.2f} MB/s and there are {:.2f}. With {:.1f} % of their "
                           "frame rates it does:{}",
                           whole.needed() / 1e6, whole.usable / 1e6, part * 100, rates);
    }
    for (const auto& each : whole.cameras) {
        if (!each.plan.paced)
            return fmt::format("Camera '{}' cannot be kept to its share: {}.", each.plan.id, each.plan.notes.back());
        // Steps of a feature may be coarse.
        if (each.plan.highest_frame_rate() < each.plan.shape.frame_rate)
            return fmt::format(
                "Camera '{}' gets {:.2f} frames per second instead of {:g}: the steps of {} are too coarse.",
                each.plan.id, each.plan.highest_frame_rate(), each.plan.shape.frame_rate,
                each.plan.settings.back().name);
    }
    return {};
}

// Throws failure(cause::feature) at the first that does not take; what took stays, and is told.
void write(link_plan& whole) {
    for (auto& each : whole.cameras) {
        for (const setting& wanted : each.plan.settings) {
            const std::string now = apply(*each.remote, wanted);
            each.applied.push_back({{"name", wanted.name}, {"asked", wanted.value}, {"value", now}});
            if (!is_same_value(require_node(*each.remote, wanted.name), wanted.value, now))
                throw failure(cause::feature, fmt::format("Camera '{}' made {} of {}={}: its share is not kept.",
                                                          each.plan.id, now, wanted.name, wanted.value));
        }
    }
    whole.applied = true;
}

int plan(const common_options& common, const plan_options& options) {
    link_plan whole = make_plan(common, options);
    const std::string problem = problem_with(whole);
    std::exception_ptr reason;
    if (options.apply && problem.empty()) {
        try {
            write(whole);
        } catch (const failure&) {
            reason = std::current_exception();
        }
    }
    if (!problem.empty()) reason = std::make_exception_ptr(failure(cause::no, problem));
    if (!common.json) {
        show(whole, options);
        flush_output();
    }
    if (!reason) {
        if (common.json) print_json(to_json(whole));
        return 0;
    }
    try {
        std::rethrow_exception(reason);
    } catch (const failure& known) {
        return report_failure(known, common.json, to_json(whole));
    }
}

} // namespace

void add_plan_command(command_line& line) {
    auto given = std::make_shared<plan_options>();
    auto& command = line.add("plan", "Shares an interface's link among its cameras, so that none drowns another",
                             reach::search, [&line, given] { return plan(line.options, *given); });
    command.add_option("--link", given->link_mbit, "Mbit/s of the host's port (default: what the interface tells)")
        ->check(option_checks::number(1, 1e6));
    command.add_option("--reserve", given->reserve, "Per cent of it that are left for resends and control")
        ->check(option_checks::number(0, 90))
        ->capture_default_str();
    command.add_option("--rate", given->frame_rate, "Frames per second of each, for cameras that are triggered")
        ->check(option_checks::number(0.001, 1e6));
    command
        .add_option("--by", given->by,
                    "What paces the cameras: limit (DeviceLinkThroughputLimit), delay (GevSCPD) or any")
        ->check(CLI::IsMember({"any", "limit", "delay"}))
        ->capture_default_str();
    command.add_flag("--apply", given->apply,
                     "Find out the packet size that the path carries, write the settings and read them back");
    command.footer(
        "Without --apply cameras are only read, beside whoever has them. Packet size and settings are the "
        "cameras'\nuntil their next start; 'orv-gentl exec UserSetSave' keeps them. Exit code 1: it does not fit.\n"
        "Examples: orv-gentl plan --interface eth1\n"
        "          orv-gentl plan --interface eth1 --rate 25 --apply");
}

} // namespace cli
