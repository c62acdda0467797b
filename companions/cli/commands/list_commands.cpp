#include "list_commands.h"

#include "../consumer/camera_holder.h"
#include "../consumer/device_choice.h"
#include "../output/output.h"

#include <algorithm>

namespace cli {

namespace {

// Columns as wide as their longest cell; the last is not filled up.
void print_table(std::vector<std::vector<std::string>> rows) {
    std::vector<size_t> widths;
    for (auto& row : rows) {
        widths.resize(std::max(widths.size(), row.size()));
        for (std::string& cell : row) cell = printable(cell);
        for (size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], row[i].size());
    }
    for (const auto& row : rows) {
        std::string line = " ";
        for (size_t i = 0; i < row.size(); ++i)
            line += fmt::format(" {:<{}}", row[i], i + 1 < row.size() ? widths[i] : 0);
        print("{}\n", line);
    }
}

int list(const common_options& options) {
    found_devices found = find_devices(options);
    add_places(found);
    keep_meant(found, options);
    for (auto& [device, interface] : found.devices) {
        if (device.access_status != GenTL::DEVICE_ACCESS_STATUS_BUSY) continue;
        if (const auto holder = holder_of(*found.lib, interface, device.id)) device.holder = holder->text();
    }
    if (options.json) {
        nlohmann::json object{{"interfaces", nlohmann::json::array()}, {"devices", nlohmann::json::array()}};
        for (const auto& entry : found.interfaces) {
            object["interfaces"].push_back({{"id", entry.id}, {"display_name", entry.display_name}});
        }
        for (const auto& [device, interface] : found.devices) object["devices"].push_back(to_json(device));
        print_json(object);
        return 0;
    }
    for (const auto& entry : found.interfaces) {
        if (!options.interface.empty() && entry.id != options.interface) continue;
        print("{}  ({})\n", entry.id, entry.display_name);
        std::vector<std::vector<std::string>> rows{
            {"ID", "VENDOR", "MODEL", "SERIAL", "NAME", "ADDRESS", "MASK", "MAC", "REACHABLE", "ACCESS"}};
        // Last, as it is long; and only where one is known.
        const bool held =
            std::ranges::any_of(found.devices, [](const auto& each) { return !each.first.holder.empty(); });
        if (held) rows[0].push_back("HELD BY");
        for (const auto& [device, interface] : found.devices) {
            if (device.interface_id != entry.id) continue;
            rows.push_back({device.id, device.vendor, device.model, device.serial, device.user_name, device.address,
                            device.mask, device.mac, device.reachable, access_status_text(device.access_status)});
            if (held) rows.back().push_back(device.holder);
        }
        if (rows.size() > 1) print_table(std::move(rows));
    }
    if (found.devices.empty()) say("No device was found. 'orv-gentl doctor' tells why.\n");
    return 0;
}

int info(const common_options& options) {
    const found_devices found = find_devices(options);
    const gentl_library& lib = *found.lib;
    nlohmann::json object;
    for (const auto& [key, command] : {std::pair{"id", GenTL::TL_INFO_ID},
                                       {"vendor", GenTL::TL_INFO_VENDOR},
                                       {"model", GenTL::TL_INFO_MODEL},
                                       {"version", GenTL::TL_INFO_VERSION},
                                       {"tl_type", GenTL::TL_INFO_TLTYPE},
                                       {"path", GenTL::TL_INFO_PATHNAME}}) {
        object["library"][key] = ask_text(lib, "GCGetInfo", [&](GenTL::INFO_DATATYPE* type, void* text, size_t* size) {
            return lib.GCGetInfo(command, type, text, size); // NOLINT(clang-analyzer-core.NullDereference) it is loaded
        });
    }
    // One that was asked for must be there; without a name any number may be.
    if (!options.device.empty() || found.devices.size() == 1)
        object["device"] = to_json(choose_device(found, options).first);
    if (options.json) {
        print_json(object);
        return 0;
    }
    for (const auto& [group, values] : object.items()) {
        for (const auto& [key, value] : values.items())
            print("{}.{} = {}\n", group, key, printable(value.get<std::string>()));
    }
    if (found.devices.size() > 1 && options.device.empty())
        say("{} cameras are there; --device names one of them.\n", found.devices.size());
    return 0;
}

} // namespace

void add_list_commands(command_line& line) {
    line.add("list", "Interfaces and devices, with addresses and who may open them", reach::device,
             [&options = line.options] { return list(options); })
        .footer("Example: orv-gentl list --json");
    line.add("info", "The library, and a device", reach::device, [&options = line.options] { return info(options); })
        .footer("Example: orv-gentl info --device 192.168.0.10");
}

} // namespace cli
