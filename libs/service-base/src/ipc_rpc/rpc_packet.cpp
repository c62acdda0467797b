#include <ipc_rpc/rpc_packet.h>

#include <array>

namespace ipc_rpc {

std::string_view to_text(rpc_packet_type type) noexcept {
    constexpr std::array<std::string_view, 9> names{"invalid",    "service_announce", "client_announce",
                                                    "call_close", "call_start",       "call_step",
                                                    "ret_start",  "ret_step",         "ret_err"};
    const auto index = static_cast<std::size_t>(type);
    return index < names.size() ? names[index] : names[0];
}

} // namespace ipc_rpc
