// Names that processes share, and who may open what stands behind them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace ipc_rpc::platform {

// Who may use the objects that a service creates. With an owner it alone may, if this process may give objects away;
// otherwise this user, and members of the group if there is one.
struct object_access {
    std::optional<std::uint32_t> group;
    std::optional<std::uint32_t> owner;
};

// Object names of this platform begin with this.
[[nodiscard]] std::string object_name(const std::string& base);
// Differs for every call in every process; tells which process made it, and can't be guessed.
[[nodiscard]] std::string unique_text();

} // namespace ipc_rpc::platform
