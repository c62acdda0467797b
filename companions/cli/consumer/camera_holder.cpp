#include "camera_holder.h"

#include "../posix/host_counters.h"
#include "../posix/process_list.h"
#include "bootstrap_register.h"
#include "session.h"

#include <gige/gvcp.h>

#include <fmt/format.h>

#include <filesystem>

namespace cli {

namespace {

std::string ip_text(uint32_t address) {
    return fmt::format("{}.{}.{}.{}", address >> 24, address >> 16 & 255, address >> 8 & 255, address & 255);
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
    holder.is_of_this_host = !interface_of(*address).empty();
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
    const std::string since = start_time_of(owner.process);
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
        const auto consumers = others_with_file(name);
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
