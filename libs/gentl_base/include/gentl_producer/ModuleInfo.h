// Records of what was discovered: the library itself, its interfaces and their devices.
#pragma once

#include <gentl/GenTL.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace GenTL::Producer {

struct TransportLayerInfo {
    std::string id_prefix;
    std::string vendor;
    std::string model;
    std::string version;
    std::string tl_type;
    std::string display_name;
};

// Addresses are host-order 32-bit numbers, 192.168.0.1 being 0xC0A80001.
struct GEVSubnet {
    uint32_t ip_address = 0;
    uint32_t subnet_mask = 0;
    bool operator==(const GEVSubnet&) const = default;
};

struct InterfaceInfo {
    std::string id;
    std::string display_name;
    std::string tl_type;
    std::vector<GEVSubnet> subnets;
    std::vector<uint32_t> gateways;
    uint64_t mac_address = 0; // low 48 bits
    bool operator==(const InterfaceInfo&) const = default;
};

struct DeviceInfo {
    std::string id;
    std::string model;
    std::string vendor;
    std::string tl_type;
    std::string display_name;
    std::string serial_number; // empty when the device has none
    std::string version;       // empty when the device has none
    std::optional<std::string> user_defined_name;
    DEVICE_ACCESS_STATUS access_status = DEVICE_ACCESS_STATUS_UNKNOWN;
    uint32_t ip_address = 0;
    uint32_t subnet_mask = 0;
    uint32_t gateway = 0;
    uint64_t mac_address = 0;
    bool operator==(const DeviceInfo&) const = default;
};

} // namespace GenTL::Producer
