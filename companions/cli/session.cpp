#include "session.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>

namespace cli {

using namespace GenTL;
namespace fs = std::filesystem;

namespace {

constexpr const char* cti_name = "orv-gentl-gev.cti";

std::vector<fs::path> cti_candidates() {
    std::vector<fs::path> candidates;
    std::error_code ignored;
    const fs::path program = fs::read_symlink("/proc/self/exe", ignored);
    if (!program.empty()) {
        candidates.push_back(program.parent_path().parent_path() / "lib" / cti_name);
        candidates.push_back(program.parent_path() / cti_name);
    }
    if (const char* list = std::getenv("GENICAM_GENTL64_PATH")) {
        std::string_view rest = list;
        while (!rest.empty()) {
            const size_t end = std::min(rest.find(':'), rest.size());
            const fs::path entry = rest.substr(0, end);
            candidates.push_back(entry.extension() == ".cti" ? entry : entry / cti_name);
            rest.remove_prefix(std::min(end + 1, rest.size()));
        }
    }
    return candidates;
}

} // namespace

std::string find_cti(const common_options& options) {
    if (!options.cti.empty()) return options.cti;
    for (const fs::path& candidate : cti_candidates()) {
        std::error_code ignored;
        if (fs::exists(candidate, ignored)) return candidate;
    }
    throw std::runtime_error(fmt::format("No {} found: give its path with --cti.", cti_name));
}

found_devices find_devices(const common_options& options) {
    found_devices found;
    found.lib = std::make_shared<const gentl_library>(find_cti(options));
    found.system = open_system(found.lib);
    found.interfaces = list_interfaces(*found.system);
    for (const interface_entry& entry : found.interfaces) {
        if (!options.interface.empty() && entry.id != options.interface) continue;
        const auto interface = open_interface(found.system, entry.id);
        for (device_entry& device : list_devices(*found.lib, *interface, entry.id, options.timeout_ms)) {
            found.devices.emplace_back(std::move(device), interface);
        }
    }
    return found;
}

const std::pair<device_entry, std::shared_ptr<const tl_interface>>& choose_device(const found_devices& found,
                                                                                  const common_options& options) {
    std::vector<const std::pair<device_entry, std::shared_ptr<const tl_interface>>*> fitting;
    for (const auto& candidate : found.devices) {
        const device_entry& device = candidate.first;
        const bool fits = options.device.empty() || device.id == options.device || device.serial == options.device ||
                          device.user_name == options.device || device.id.find(options.device) != device.id.npos ||
                          device.display_name.find(options.device) != device.display_name.npos;
        if (fits) fitting.push_back(&candidate);
    }
    if (fitting.size() == 1) return *fitting.front();
    // An exact match wins over texts that merely hold it.
    for (const auto* candidate : fitting) {
        const device_entry& device = candidate->first;
        if (!options.device.empty() &&
            (device.id == options.device || device.serial == options.device || device.user_name == options.device)) {
            return *candidate;
        }
    }
    std::string known;
    for (const auto& candidate : found.devices) known += fmt::format("\n  {}", candidate.first.id);
    if (found.devices.empty()) known = " none";
    throw std::runtime_error(fmt::format(
        "{} for '{}'. Devices seen:{}", fitting.empty() ? "No device" : "More than one device", options.device, known));
}

DEVICE_ACCESS_FLAGS access_flags_of(const std::string& word) {
    if (word == "readonly") return DEVICE_ACCESS_READONLY;
    if (word == "exclusive") return DEVICE_ACCESS_EXCLUSIVE;
    return DEVICE_ACCESS_CONTROL;
}

std::shared_ptr<const tl_stream> open_stream(const gentl_library& lib, std::shared_ptr<const tl_device> device) {
    const std::string id = ask_text(lib, "DevGetDataStreamID", [&](INFO_DATATYPE*, void* text, size_t* size) {
        return lib.DevGetDataStreamID(device->get(), 0, static_cast<char*>(text), size);
    });
    DS_HANDLE handle = nullptr;
    lib.check("DevOpenDataStream", lib.DevOpenDataStream(device->get(), id.c_str(), &handle));
    return std::make_shared<tl_stream>(std::move(device), handle, lib.DSClose);
}

void* remote_port(const gentl_library& lib, const tl_device& device) {
    PORT_HANDLE port = nullptr;
    lib.check("DevGetPort", lib.DevGetPort(device.get(), &port));
    return port;
}

open_module open_named_module(const common_options& options, DEVICE_ACCESS_FLAGS access) {
    open_module opened;
    opened.found = find_devices(options);
    const gentl_library& lib = *opened.found.lib;
    if (options.module == "system") {
        opened.nodes = std::make_unique<node_map>(lib, opened.found.system->get());
        return opened;
    }
    if (options.module == "interface" && opened.found.devices.empty()) {
        const std::string id = options.interface.empty() && !opened.found.interfaces.empty()
                                   ? opened.found.interfaces.front().id
                                   : options.interface;
        opened.interface = open_interface(opened.found.system, id);
        opened.nodes = std::make_unique<node_map>(lib, opened.interface->get());
        return opened;
    }
    const auto& [device, interface] = choose_device(opened.found, options);
    opened.interface = interface;
    if (options.module == "interface") {
        opened.nodes = std::make_unique<node_map>(lib, interface->get());
        return opened;
    }
    opened.device = open_device(lib, interface, device.id, access);
    if (options.module == "remote") {
        opened.nodes = std::make_unique<node_map>(lib, remote_port(lib, *opened.device));
    } else if (options.module == "device") {
        opened.nodes = std::make_unique<node_map>(lib, opened.device->get());
    } else if (options.module == "stream") {
        opened.stream = open_stream(lib, opened.device);
        opened.nodes = std::make_unique<node_map>(lib, opened.stream->get());
    } else {
        throw std::runtime_error(fmt::format("There is no module '{}'.", options.module));
    }
    return opened;
}

nlohmann::json to_json(const device_entry& entry) {
    return {{"id", entry.id},
            {"interface", entry.interface_id},
            {"vendor", entry.vendor},
            {"model", entry.model},
            {"serial", entry.serial},
            {"user_name", entry.user_name},
            {"version", entry.version},
            {"display_name", entry.display_name},
            {"access", access_status_text(entry.access_status)}};
}

} // namespace cli
