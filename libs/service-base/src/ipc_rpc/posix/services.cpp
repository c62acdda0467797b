#include <ipc_rpc/services.h>

#include <fmt/format.h>

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <sstream>

namespace ipc_rpc {

namespace {

namespace fs = std::filesystem;

constexpr std::string_view kernel_table = "/proc/net/unix";

std::string read_file(const fs::path& path) {
    std::ifstream file{path};
    return {std::istreambuf_iterator<char>{file}, {}};
}

std::string user_name(uid_t user) {
    std::array<char, 4096> text{};
    passwd entry{};
    passwd* known = nullptr;
    if (getpwuid_r(user, &entry, text.data(), text.size(), &known) != 0 || known == nullptr)
        return fmt::format("{}", user);
    return known->pw_name;
}

std::string owner_of_file(const std::string& path) {
    struct stat found {};
    return stat(path.c_str(), &found) == 0 ? user_name(found.st_uid) : std::string{};
}

bool has_open(const fs::path& process, const std::string& descriptor) {
    std::error_code closed;
    for (fs::directory_iterator file{process / "fd", closed}, end; !closed && file != end; file.increment(closed)) {
        std::error_code gone;
        if (fs::read_symlink(file->path(), gone) == descriptor) return true;
    }
    return false;
}

std::int64_t process_with(std::uint64_t inode) {
    const std::string descriptor = fmt::format("socket:[{}]", inode);
    std::error_code ignored;
    for (const auto& entry : fs::directory_iterator{"/proc", ignored}) {
        const std::string name = entry.path().filename();
        std::int64_t process = 0;
        const auto [end, failed] = std::from_chars(name.data(), name.data() + name.size(), process);
        if (failed != std::errc{} || end != name.data() + name.size()) continue;
        if (has_open(entry.path(), descriptor)) return process;
    }
    return 0;
}

} // namespace

// Num RefCount Protocol Flags Type St Inode Path: the path is the rest of the line and may hold spaces. A socket that
// listens has the flag 0x10000.
std::vector<listening_socket> parse_unix_sockets(std::string_view text, std::string_view stem) {
    std::vector<listening_socket> sockets;
    std::istringstream lines{std::string{text}};
    for (std::string line; std::getline(lines, line);) {
        std::istringstream fields{line};
        std::string number, references, protocol, flags, type, state, path;
        std::uint64_t inode = 0;
        if (!(fields >> number >> references >> protocol >> flags >> type >> state >> inode)) continue;
        std::getline(fields >> std::ws, path);
        std::uint32_t bits = 0;
        std::from_chars(flags.data(), flags.data() + flags.size(), bits, 16);
        if ((bits & 0x10000) == 0 || !path.starts_with('/')) continue;
        const std::string_view name = std::string_view{path}.substr(path.rfind('/') + 1);
        if (name.starts_with(stem)) sockets.push_back({path, inode});
    }
    return sockets;
}

std::vector<listening_service> find_services(std::string_view stem) {
    std::vector<listening_service> services;
    for (const listening_socket& each : parse_unix_sockets(read_file(fs::path{kernel_table}), stem)) {
        listening_service service{each.path, process_with(each.inode), {}};
        if (service.process_id == getpid()) continue;
        struct stat process {};
        const bool known =
            service.process_id != 0 && stat(fmt::format("/proc/{}", service.process_id).c_str(), &process) == 0;
        service.user = known ? user_name(process.st_uid) : owner_of_file(each.path);
        services.push_back(std::move(service));
    }
    return services;
}

std::string to_text(const listening_service& service) {
    const bool has_process = service.process_id != 0, has_user = !service.user.empty();
    return fmt::format("'{}'{}{}{}{}", service.socket, has_process || has_user ? " (" : "",
                       has_process ? fmt::format("pid {}{}", service.process_id, has_user ? " of " : "") : "",
                       has_user ? fmt::format("user {}", service.user) : "", has_process || has_user ? ")" : "");
}

} // namespace ipc_rpc
