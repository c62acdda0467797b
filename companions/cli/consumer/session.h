// What every command needs first: the library, and the device that the user meant.
#pragma once

#include "gentl_library.h"
#include "node_map.h"

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace cli {

struct common_options {
    std::string cti;       // empty: beside this program, then $GENICAM_GENTL64_PATH
    std::string device;    // id, serial number, user-defined name, IP or MAC address; empty: the only one
    std::string interface; // id; empty: all
    std::string module = "remote";
    std::string access; // empty: what the command needs, see access_flags_of and reading_access
    uint64_t timeout_ms = 1000;
    bool json = false;
};

// Where the library lies that came with this program, first choice first, whether or not there is a file. They follow
// from the program's own place: nothing that a caller of it sets leads there.
[[nodiscard]] std::vector<std::filesystem::path> own_cti_places();
[[nodiscard]] std::string find_cti(const common_options& options);

struct found_devices {
    std::shared_ptr<const gentl_library> lib;
    std::shared_ptr<const tl_system> system;
    std::vector<interface_entry> interfaces;
    std::vector<std::pair<device_entry, std::shared_ptr<const tl_interface>>> devices;
};
// Throws failure(cause::no_service) with what is known of why, and cause::no_camera for an interface that is not there.
[[nodiscard]] found_devices find_devices(const common_options& options);

// The port of the module that `options.module` names, with everything open that it needs.
struct open_module {
    found_devices found;
    std::shared_ptr<const tl_interface> interface;
    std::shared_ptr<const tl_device> device;
    std::shared_ptr<const tl_stream> stream;
    std::unique_ptr<node_map> nodes;
};
[[nodiscard]] open_module open_named_module(const common_options& options, GenTL::DEVICE_ACCESS_FLAGS access);
// Control when nothing is said.
[[nodiscard]] GenTL::DEVICE_ACCESS_FLAGS access_flags_of(const std::string& word);
// Read only when nothing is said: a look at a camera takes it from nobody, and works beside who has it.
[[nodiscard]] GenTL::DEVICE_ACCESS_FLAGS reading_access(const common_options& options);
// As open_device; a failure says who holds the camera, or why it cannot be reached.
[[nodiscard]] std::shared_ptr<const tl_device> open_chosen(const found_devices& found, const device_entry& chosen,
                                                           const std::shared_ptr<const tl_interface>& interface,
                                                           GenTL::DEVICE_ACCESS_FLAGS access);
[[nodiscard]] std::shared_ptr<const tl_stream> open_stream(const gentl_library& lib,
                                                           std::shared_ptr<const tl_device> device);
[[nodiscard]] void* remote_port(const gentl_library& lib, const tl_device& device);

[[nodiscard]] nlohmann::json to_json(const device_entry& entry);

} // namespace cli
