// Services that listen on this host, in whatever folder and of whatever user.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace ipc_rpc {

struct listening_service {
    std::string socket;         // its path
    std::int64_t process_id{0}; // 0: of a process that may not be looked into
    std::string user;           // of the process, else of the socket's file; empty where neither can be seen
};

// Those of this network namespace whose socket's file name begins with `stem`; this process's own are left out.
[[nodiscard]] std::vector<listening_service> find_services(std::string_view stem);

// The paths of such sockets, with their inodes, in a text like /proc/net/unix.
struct listening_socket {
    std::string path;
    std::uint64_t inode{0};
};
[[nodiscard]] std::vector<listening_socket> parse_unix_sockets(std::string_view text, std::string_view stem);

// "'PATH' (pid 12 of user root)", as far as it is known.
[[nodiscard]] std::string to_text(const listening_service& service);

} // namespace ipc_rpc
