#include "port_memory.h"

#include <fmt/format.h>

#include <filesystem>
#include <fstream>
#include <new>

namespace service {

std::string port_memory::file_of(uint64_t mac) const { return fmt::format("{}/control-{:012X}", folder, mac); }

uint16_t port_memory::port_of(uint64_t mac) const {
    if (folder.empty()) return 0;
    unsigned port = 0;
    std::ifstream{file_of(mac)} >> port;
    return port <= 0xFFFF ? static_cast<uint16_t>(port) : uint16_t{0};
}

void port_memory::note(uint64_t mac, uint16_t port, const void* session) {
    if (folder.empty()) return;
    const std::lock_guard guard{mutex};
    noted_by[mac] = session;
    std::ofstream{file_of(mac)} << port << '\n';
}

void port_memory::forget(uint64_t mac, const void* session) noexcept {
    const std::lock_guard guard{mutex};
    const auto found = noted_by.find(mac);
    if (found == noted_by.end() || found->second != session) return;
    noted_by.erase(found);
    try {
        std::error_code ignored;
        std::filesystem::remove(file_of(mac), ignored);
    } catch (const std::bad_alloc&) { // as a failure of the disk
    }
}

} // namespace service
