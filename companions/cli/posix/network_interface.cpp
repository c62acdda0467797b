#include "network_interface.h"

#include <filesystem>
#include <fstream>

namespace cli {

namespace {

// The kernel answers -1 for an unknown speed, or refuses to be read.
std::optional<uint64_t> number_of(const std::string& interface, const char* file) {
    // A name of another producer may be any text.
    if (interface.empty() || interface.find('/') != interface.npos || interface.starts_with('.')) return std::nullopt;
    std::ifstream stream{std::filesystem::path{"/sys/class/net"} / interface / file};
    int64_t value = 0;
    return stream >> value && value > 0 ? std::optional{static_cast<uint64_t>(value)} : std::nullopt;
}

} // namespace

std::optional<uint64_t> link_speed_of(const std::string& interface) { return number_of(interface, "speed"); }
std::optional<uint64_t> mtu_of(const std::string& interface) { return number_of(interface, "mtu"); }

} // namespace cli
