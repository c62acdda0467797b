#include "service_place.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <optional>
#include <system_error>
#include <vector>

#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace cli {

namespace {

namespace fs = std::filesystem;

constexpr const char* system_folder = "/run/orv-gentl-gev";

// The library takes the first of these that is set or exists; the rest it never looks at.
struct place {
    std::string folder;
    const char* because;
};
place place_of_socket() {
    if (const char* own = std::getenv("ORV_GENTL_RUNTIME_DIR"); own != nullptr && *own != '\0')
        return {own, "$ORV_GENTL_RUNTIME_DIR"};
    std::error_code ignored;
    if (fs::is_directory(system_folder, ignored)) return {system_folder, "it exists"};
    if (const char* session = std::getenv("XDG_RUNTIME_DIR"); session != nullptr && *session == '/')
        return {session, "$XDG_RUNTIME_DIR"};
    return {fmt::format("/tmp/orv-gentl-gev-{}", geteuid()), "no other place is set"};
}

std::string user_text(uid_t user) {
    const passwd* known = getpwuid(user);
    return known == nullptr ? fmt::format("user {}", user) : fmt::format("user '{}'", known->pw_name);
}

// For somebody whom the socket's mode keeps out.
std::string way_in(const struct stat& socket) {
    const group* const members = (socket.st_mode & S_IWGRP) != 0 ? getgrgid(socket.st_gid) : nullptr;
    if (members == nullptr) return "Run as that user, or start the service with --group and join that group.";
    return fmt::format("Its group is '{0}': sudo adduser USER {0}, and log in again.", members->gr_name);
}

std::string text_of(int error) { return std::system_category().message(error); }

// 0 when somebody listens who lets this user in, else errno.
int try_connect(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) return ENAMETOOLONG;
    std::memcpy(address.sun_path, path.data(), path.size());
    const int descriptor = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    if (descriptor < 0) return errno;
    const int error = connect(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 ? 0 : errno;
    close(descriptor);
    return error;
}

// 0 when there is room for a connection's two queues and their packets, else errno.
int try_shared_memory() {
    const std::string name = fmt::format("/orv-gentl-room-{}", getpid());
    const int descriptor = shm_open(name.c_str(), O_CREAT | O_EXCL | O_RDWR | O_CLOEXEC, S_IRUSR | S_IWUSR);
    if (descriptor < 0) return errno;
    shm_unlink(name.c_str());
    const int error = posix_fallocate(descriptor, 0, 256 * 1024);
    close(descriptor);
    return error;
}

// The socket's name in the producer's text.
std::string socket_name(const std::string& reason) {
    constexpr std::string_view before = "service-pipe '";
    const size_t begin = reason.find(before);
    if (begin == reason.npos) return {};
    const size_t start = begin + before.size();
    return reason.substr(start, reason.find('\'', start) - start);
}

// Sockets of services of other versions, which this library does not speak to.
std::string other_services(const std::string& folder, const std::string& name) {
    const std::string stem = name.substr(0, name.find("_service_pipe"));
    std::string list;
    std::error_code ignored;
    for (const auto& entry : fs::directory_iterator{folder, ignored}) {
        const std::string other = entry.path().filename();
        if (other != name && other.starts_with(stem) && entry.is_socket(ignored)) list += fmt::format(" {}", other);
    }
    return list;
}

} // namespace

bool has_service_unit() {
    std::error_code ignored;
    if (!fs::exists("/run/systemd/system", ignored)) return false;
    for (const fs::path folder : {"/etc/systemd/system", "/usr/lib/systemd/system", "/lib/systemd/system"})
        if (fs::exists(folder / service_unit, ignored)) return true;
    return false;
}

std::string service_folder() { return place_of_socket().folder; }

std::string why_no_service(const std::string& reason) {
    const std::string name = socket_name(reason);
    if (name.empty()) return "The library cannot be opened.";
    const auto [folder, because] = place_of_socket();
    const std::string socket = folder + '/' + name;
    const std::string where = fmt::format("in '{}' ({})", folder, because);
    const std::string start = folder == system_folder && has_service_unit()
                                  ? fmt::format("Start it: sudo systemctl start {}", service_unit)
                                  : "Start it: orv-gentl-gev-service";
    struct stat found {};
    const int missing = lstat(socket.c_str(), &found) == 0 ? 0 : errno;
    if (missing == EACCES) {
        struct stat of_folder {};
        const bool known = stat(folder.c_str(), &of_folder) == 0;
        return fmt::format(
            "No service can be asked: its folder {} is closed to {}: {}.{} Run as that user, or join its "
            "group.",
            where, user_text(geteuid()), text_of(missing),
            known ? fmt::format(" It belongs to {}.", user_text(of_folder.st_uid)) : "");
    }
    if (missing != 0) {
        const std::string others = other_services(folder, name);
        return fmt::format("No service runs: there is no socket '{}' {}: {}.{}\n{}", name, where, text_of(missing),
                           others.empty() ? ""
                                          : fmt::format(" There are services of other versions:{}. Library and service "
                                                        "must be of one version.",
                                                        others),
                           start);
    }
    const std::string owner = user_text(found.st_uid);
    const int refused = try_connect(socket);
    if (refused == ECONNREFUSED)
        return fmt::format("No service runs: the socket {} belongs to {} and nobody listens at it: {}.\n{}", where,
                           owner, text_of(refused), start);
    if (refused == EACCES || refused == EPERM)
        return fmt::format("The service of {} does not let {} in: {}. {}", owner, user_text(geteuid()),
                           text_of(refused), way_in(found));
    if (refused != 0) return fmt::format("The service's socket {} cannot be used: {}.", where, text_of(refused));
    if (const int lacking = try_shared_memory(); lacking != 0)
        return fmt::format("Library and service talk through shared memory, and none is to be had in '/dev/shm': {}.\n"
                           "Make room there: df /dev/shm; where it is no file system in memory: "
                           "mount -t tmpfs -o mode=1777 tmpfs /dev/shm; in a container: --ipc host, or --shm-size 64m.",
                           text_of(lacking));
    return fmt::format("A service of {} listens {} and does not answer as it should: it may not let {} in, or have too "
                       "many clients; its log tells.",
                       owner, where, user_text(geteuid()));
}

} // namespace cli
