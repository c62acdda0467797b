#include "camera_holder.h"

#include "../consumer/session.h"
#include "host_counters.h"
#include "path_probe.h"

#include <gige/gvcp.h>

#include <fmt/format.h>

#include <array>
#include <charconv>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <sstream>

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <netinet/in.h>
#include <unistd.h>

namespace cli {

namespace {

std::string ip_text(uint32_t address) {
    return fmt::format("{}.{}.{}.{}", address >> 24, address >> 16 & 255, address >> 8 & 255, address & 255);
}

bool is_of_this_host(uint32_t address) {
    if (address >> 24 == 127) return true;
    ifaddrs* all = nullptr;
    if (getifaddrs(&all) != 0) return false;
    bool found = false;
    for (const ifaddrs* each = all; each != nullptr && !found; each = each->ifa_next) {
        if (each->ifa_addr == nullptr || each->ifa_addr->sa_family != AF_INET) continue;
        found = ntohl(reinterpret_cast<const sockaddr_in*>(each->ifa_addr)->sin_addr.s_addr) == address;
    }
    freeifaddrs(all);
    return found;
}

std::string read_text(const std::string& path) {
    std::ifstream file{path};
    return {std::istreambuf_iterator<char>{file}, {}};
}

// "14:02:11" of today or with the date; empty when unknown.
std::string start_time_of(const std::string& pid) {
    const std::string stat = read_text("/proc/" + pid + "/stat");
    const size_t after_name = stat.rfind(')');
    const std::string boot = read_text("/proc/stat");
    const size_t at = boot.find("btime ");
    if (after_name == stat.npos || at == boot.npos) return {};
    std::istringstream rest{stat.substr(after_name + 1)};
    std::string word;
    for (int field = 3; field <= 22 && rest >> word; ++field) {
    } // the 22nd is the start, in ticks since the boot
    int64_t ticks = 0, booted = 0;
    std::from_chars(word.data(), word.data() + word.size(), ticks);
    std::from_chars(boot.data() + at + 6, boot.data() + boot.size(), booted);
    const std::time_t start = booted + ticks / sysconf(_SC_CLK_TCK);
    std::tm local{};
    char text[32] = {};
    localtime_r(&start, &local);
    std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &local);
    return text;
}

// Processes, this one not among them, that have a file of the library's name loaded and may be looked into.
std::vector<std::string> other_consumers(const std::string& library_name) {
    std::vector<std::string> lines;
    std::error_code ignored;
    for (const auto& entry : std::filesystem::directory_iterator{"/proc", ignored}) {
        const std::string pid = entry.path().filename();
        if (pid.find_first_not_of("0123456789") != pid.npos || pid == std::to_string(getpid())) continue;
        if (read_text("/proc/" + pid + "/maps").find('/' + library_name + '\n') == std::string::npos) continue;
        std::string name = read_text("/proc/" + pid + "/comm");
        if (!name.empty()) name.pop_back();
        const std::string since = start_time_of(pid);
        lines.push_back(fmt::format("{} (pid {}{})", name, pid, since.empty() ? "" : ", running since " + since));
    }
    return lines;
}

} // namespace

std::string camera_holder::text() const {
    std::string text = fmt::format("{}{}{}", is_of_this_host ? "this host, " : "", address,
                                   port == 0 ? "" : fmt::format(" port {}", port));
    if (!process.empty()) text += ", " + process;
    return text;
}

std::optional<camera_holder> holder_of(const gentl_library& lib, void* port) {
    namespace reg = gige::gvcp::reg;
    // A camera without these registers may answer anything at their place.
    const auto capability = read_register(lib, port, reg::control_capability);
    if (!capability || (*capability & gige::gvcp::bits::has_primary) == 0) return std::nullopt;
    const auto address = read_register(lib, port, reg::primary_address);
    if (!address || *address == 0) return std::nullopt;
    camera_holder holder;
    holder.address = ip_text(*address);
    holder.is_of_this_host = is_of_this_host(*address);
    holder.port = static_cast<uint16_t>(read_register(lib, port, reg::primary_port).value_or(0));
    if (!holder.is_of_this_host || holder.port == 0) return holder;
    const auto sockets = read_udp_sockets();
    const udp_socket_row* const row = find_socket(sockets, *address, holder.port);
    if (row == nullptr) return holder;
    const socket_owner owner = owner_of(*row);
    if (owner.process == 0) {
        holder.process = fmt::format("a process of user {}", owner.user);
        return holder;
    }
    const std::string since = start_time_of(std::to_string(owner.process));
    holder.process = fmt::format("{} (pid {}, user {}{})", owner.name, owner.process, owner.user,
                                 since.empty() ? "" : ", running since " + since);
    return holder;
}

std::optional<camera_holder> holder_of(const gentl_library& lib, const std::shared_ptr<const tl_interface>& interface,
                                       const std::string& device_id) {
    try {
        const auto device = open_device(lib, interface, device_id, GenTL::DEVICE_ACCESS_READONLY);
        return holder_of(lib, remote_port(lib, *device));
    } catch (const failure&) {
        return std::nullopt; // held by one who lets nobody read
    }
}

std::string who_holds(const gentl_library& lib, const std::shared_ptr<const tl_interface>& interface,
                      const std::string& device_id) {
    std::string by;
    bool is_ours = true; // unless the camera tells otherwise
    bool readable = false;
    try {
        const auto device = open_device(lib, interface, device_id, GenTL::DEVICE_ACCESS_READONLY);
        readable = true;
        if (const auto holder = holder_of(lib, remote_port(lib, *device))) {
            by = " by " + holder->text();
            is_ours = holder->is_of_this_host;
        }
    } catch (const failure&) {
        // Held by one who lets nobody read.
    }
    if (is_ours) {
        const std::string name =
            std::filesystem::path{ask_text(lib, "GCGetInfo", [&](auto* type, void* text, size_t* size) {
                return lib.GCGetInfo(GenTL::TL_INFO_PATHNAME, type, text, size);
            })}.filename();
        const auto consumers = other_consumers(name);
        if (!consumers.empty()) {
            by += "; with the library loaded on this host:";
            for (const std::string& line : consumers) by += ' ' + line;
        } else if (by.empty()) {
            by = ", by no process of this host that can be seen";
        }
    }
    return by + (readable ? ". 'get', 'features' and 'describe' work beside it." : ".");
}

} // namespace cli
