#include "session.h"

#include "device_choice.h"

#include "../posix/service_place.h"
#include "../posix/this_process.h"
#include "camera_holder.h"

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
    std::vector<fs::path> candidates = own_cti_places();
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

std::vector<fs::path> own_cti_places() {
    const fs::path program = program_file();
    if (program.empty()) return {};
    return {program.parent_path().parent_path() / "lib" / cti_name, program.parent_path() / cti_name,
            (program.parent_path() / ORV_INSTALLED_CTI).lexically_normal()};
}

std::string find_cti(const common_options& options) {
    std::error_code ignored;
    if (!options.cti.empty()) {
        if (fs::is_directory(options.cti, ignored))
            throw failure(cause::no_library, fmt::format("'{}' is a folder: --cti takes the file.", options.cti));
        if (fs::exists(options.cti, ignored)) return fs::absolute(options.cti);
        throw failure(cause::no_library, fmt::format("There is no file '{}'.", options.cti));
    }
    std::string tried;
    for (const fs::path& candidate : cti_candidates()) {
        if (fs::exists(candidate, ignored)) return fs::absolute(candidate);
        tried += fmt::format("\n  {}", candidate.string());
    }
    throw failure(cause::no_library,
                  fmt::format("No {} found: give its path with --cti. Looked for:{}", cti_name, tried));
}

found_devices find_devices(const common_options& options) {
    found_devices found;
    found.lib = std::make_shared<const gentl_library>(find_cti(options));
    try {
        found.system = open_system(found.lib);
    } catch (const call_failed& failed) {
        const auto [text, remedy] = why_no_service(failed.reason);
        throw failed.explained(cause::no_service, text, remedy);
    }
    found.interfaces = list_interfaces(*found.system);
    std::string known;
    bool has_interface = false;
    for (const interface_entry& entry : found.interfaces) {
        known += fmt::format(" {}", entry.id);
        if (!options.interface.empty() && entry.id != options.interface) continue;
        has_interface = true;
        const auto interface = open_interface(found.system, entry.id);
        for (device_entry& device : list_devices(*found.lib, *interface, entry.id, options.timeout_ms)) {
            found.devices.emplace_back(std::move(device), interface);
        }
    }
    if (!options.interface.empty() && !has_interface)
        throw failure(cause::no_camera, fmt::format("There is no interface '{}'. There are:{}", options.interface,
                                                    known.empty() ? " none" : known));
    // What only an address can be: names are asked of the producer alone.
    if (options.device.find_first_of(".:") != options.device.npos) add_places(found);
    return found;
}

DEVICE_ACCESS_FLAGS access_flags_of(const std::string& word) {
    if (word == "readonly") return DEVICE_ACCESS_READONLY;
    if (word == "exclusive") return DEVICE_ACCESS_EXCLUSIVE;
    return DEVICE_ACCESS_CONTROL;
}

DEVICE_ACCESS_FLAGS reading_access(const common_options& options) {
    return options.access.empty() ? DEVICE_ACCESS_READONLY : access_flags_of(options.access);
}

std::shared_ptr<const tl_device> open_chosen(const found_devices& found, const device_entry& chosen,
                                             const std::shared_ptr<const tl_interface>& interface,
                                             DEVICE_ACCESS_FLAGS access) {
    try {
        return open_device(*found.lib, interface, chosen.id, access);
    } catch (const call_failed& failed) {
        if (failed.why() == cause::lost) throw;
        if (chosen.access_status == DEVICE_ACCESS_STATUS_NOACCESS)
            throw failed.explained(cause::failed,
                                   fmt::format("Camera '{}' cannot be reached from {}: 'orv-gentl doctor' tells what "
                                               "mends it.",
                                               chosen.id, chosen.interface_id));
        if (failed.code != GC_ERR_ACCESS_DENIED && failed.code != GC_ERR_RESOURCE_IN_USE && failed.code != GC_ERR_BUSY)
            throw;
        throw failed.explained(cause::busy, fmt::format("Camera '{}' is in use{}", chosen.id,
                                                        who_holds(*found.lib, interface, chosen.id)));
    }
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
    if (options.module == "interface" && opened.found.devices.empty() && options.device.empty()) {
        if (opened.found.interfaces.empty()) throw failure(cause::no_camera, "There is no interface.");
        const std::string id = options.interface.empty() ? opened.found.interfaces.front().id : options.interface;
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
    opened.device = open_chosen(opened.found, device, interface, access);
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
    nlohmann::json object{{"id", entry.id},
                          {"interface", entry.interface_id},
                          {"vendor", entry.vendor},
                          {"model", entry.model},
                          {"serial", entry.serial},
                          {"user_name", entry.user_name},
                          {"version", entry.version},
                          {"display_name", entry.display_name},
                          {"access", access_status_text(entry.access_status)}};
    for (const auto& [key, text] : {std::pair{"address", &entry.address},
                                    {"mask", &entry.mask},
                                    {"mac", &entry.mac},
                                    {"reachable", &entry.reachable},
                                    {"holder", &entry.holder}}) {
        if (!text->empty()) object[key] = *text;
    }
    return object;
}

} // namespace cli
