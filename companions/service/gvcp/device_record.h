// What a camera says of itself when it is discovered.
#pragma once

#include <gige/gvcp.h>

#include <optional>
#include <span>
#include <string>

namespace gvcp_master {

struct device_record {
    uint64_t mac{}; // low 48 bits
    uint32_t address{};
    uint32_t mask{};
    uint32_t gateway{};
    uint32_t version{}; // register 0x0000
    uint32_t ip_config_supported{};
    uint32_t ip_config_current{};
    std::string vendor;
    std::string model;
    std::string device_version;
    std::string information;
    std::string serial;
    std::string user_name;
    bool reachable{};         // its address lies in a subnet of the interface it was found on
    uint32_t local_address{}; // of this host, the one to talk to it from
    friend bool operator==(const device_record&, const device_record&) = default;
};

// From the body of a discovery acknowledge; nothing when it is too short. Leaves the last two members alone.
[[nodiscard]] std::optional<device_record> parse_discovery(std::span<const std::byte> body);

} // namespace gvcp_master
