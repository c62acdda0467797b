#include "host_counters.h"

#include "process_list.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <filesystem>
#include <memory>

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <linux/ethtool.h>
#include <linux/if_link.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <netinet/in.h>
#include <pwd.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace cli {

namespace {

namespace fs = std::filesystem;

// The kernel's name of the library's receive thread: 15 bytes, all that it keeps.
constexpr std::string_view receive_thread_name = "gev::streamchan";

std::optional<uint64_t> read_number(const fs::path& path) {
    const std::string text = kernel_text(path);
    uint64_t value = 0;
    const auto [end, failed] = std::from_chars(text.data(), text.data() + text.size(), value);
    return failed == std::errc{} ? std::optional{value} : std::nullopt;
}

std::string without_newline(std::string text) {
    while (!text.empty() && text.back() == '\n') text.pop_back();
    return text;
}

bool is_number(const std::string& text) {
    return !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
}

class control_socket {
public:
    control_socket() : descriptor(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {}
    ~control_socket() {
        if (descriptor >= 0) close(descriptor);
    }
    control_socket(const control_socket&) = delete;
    control_socket& operator=(const control_socket&) = delete;
    // False where the driver does not know the command.
    bool ask(const std::string& interface, void* command) const {
        ifreq request{};
        interface.copy(request.ifr_name, IFNAMSIZ - 1);
        request.ifr_data = static_cast<char*>(command);
        return descriptor >= 0 && ioctl(descriptor, SIOCETHTOOL, &request) == 0;
    }

    [[nodiscard]] std::optional<uint64_t> mtu(const std::string& interface) const {
        ifreq request{};
        interface.copy(request.ifr_name, IFNAMSIZ - 1);
        if (descriptor < 0 || ioctl(descriptor, SIOCGIFMTU, &request) != 0) return std::nullopt;
        return static_cast<uint64_t>(request.ifr_mtu);
    }

private:
    int descriptor;
};

// The driver's own counters, where it names them.
void add_driver_counters(const control_socket& control, const std::string& interface, card_counters& into) {
    // All of them end with an array of what they ask for.
    std::vector<uint64_t> counts(sizeof(ethtool_sset_info) / 8 + 2);
    auto* const sets = reinterpret_cast<ethtool_sset_info*>(counts.data());
    sets->cmd = ETHTOOL_GSSET_INFO;
    sets->sset_mask = 1ULL << ETH_SS_STATS;
    constexpr uint32_t most = 65536;
    if (!control.ask(interface, sets) || sets->sset_mask == 0) return;
    const uint32_t count = sets->data[0];
    if (count == 0 || count > most) return;
    // The kernel fills in as many as the driver has by then: room for some that come in between.
    const size_t room = size_t{count} + 1024;
    std::vector<uint64_t> names((sizeof(ethtool_gstrings) + room * ETH_GSTRING_LEN) / 8 + 1);
    auto* const strings = reinterpret_cast<ethtool_gstrings*>(names.data());
    strings->cmd = ETHTOOL_GSTRINGS;
    strings->string_set = ETH_SS_STATS;
    strings->len = count;
    std::vector<uint64_t> numbers(sizeof(ethtool_stats) / 8 + room + 1);
    auto* const values = reinterpret_cast<ethtool_stats*>(numbers.data());
    values->cmd = ETHTOOL_GSTATS;
    values->n_stats = count;
    if (!control.ask(interface, strings) || !control.ask(interface, values)) return;
    for (uint32_t i = 0; i < std::min({count, uint32_t{strings->len}, uint32_t{values->n_stats}}); ++i) {
        const auto* const text = reinterpret_cast<const char*>(strings->data) + size_t{i} * ETH_GSTRING_LEN;
        const std::string name{text, strnlen(text, ETH_GSTRING_LEN)};
        if (tells_of_loss(name)) into.drops["driver " + name] = values->data[i];
    }
}

} // namespace

std::vector<udp_socket_row> read_udp_sockets() { return parse_udp_sockets(kernel_text("/proc/net/udp")); }
softnet_counts read_softnet() { return parse_softnet(kernel_text("/proc/net/softnet_stat")); }
std::optional<uint64_t> read_receive_buffer_limit() { return read_number("/proc/sys/net/core/rmem_max"); }

std::optional<schedule_counts> read_receive_thread(int process) {
    std::optional<schedule_counts> busiest;
    std::error_code ended;
    for (fs::directory_iterator entry{fmt::format("/proc/{}/task", process), ended}, end; !ended && entry != end;
         entry.increment(ended)) {
        const auto counts = parse_schedstat(kernel_text(entry->path() / "schedstat"));
        if (!counts) continue;
        if (without_newline(kernel_text(entry->path() / "comm")) == receive_thread_name) return counts;
        if (!busiest || counts->ran > busiest->ran) busiest = counts;
    }
    return busiest;
}

std::string interface_of(uint32_t address) {
    ifaddrs* all = nullptr;
    if (getifaddrs(&all) != 0) return {};
    const std::unique_ptr<ifaddrs, decltype(&freeifaddrs)> owner{all, freeifaddrs};
    for (const ifaddrs* each = all; each != nullptr; each = each->ifa_next) {
        if (each->ifa_addr == nullptr || each->ifa_addr->sa_family != AF_INET) continue;
        const uint32_t own = ntohl(reinterpret_cast<const sockaddr_in*>(each->ifa_addr)->sin_addr.s_addr);
        const bool loopback = own >> 24 == 127 && address >> 24 == 127; // all of it is this host's
        if (own == address || loopback) return each->ifa_name;
    }
    return {};
}

// Asked of the kernel rather than read in /sys, which shows the network namespace of whoever mounted it.
card_counters read_card(const std::string& interface) {
    card_counters card;
    if (interface.empty()) return card;
    ifaddrs* all = nullptr;
    if (getifaddrs(&all) == 0) {
        const std::unique_ptr<ifaddrs, decltype(&freeifaddrs)> owner{all, freeifaddrs};
        for (const ifaddrs* each = all; each != nullptr; each = each->ifa_next) {
            if (each->ifa_addr == nullptr || each->ifa_addr->sa_family != AF_PACKET || each->ifa_data == nullptr ||
                each->ifa_name != interface)
                continue;
            const auto& counted = *static_cast<const rtnl_link_stats*>(each->ifa_data);
            card.drops = {{"rx_dropped", counted.rx_dropped},
                          {"rx_missed_errors", counted.rx_missed_errors},
                          {"rx_fifo_errors", counted.rx_fifo_errors},
                          {"rx_over_errors", counted.rx_over_errors},
                          {"rx_crc_errors", counted.rx_crc_errors},
                          {"rx_frame_errors", counted.rx_frame_errors},
                          {"rx_length_errors", counted.rx_length_errors}};
        }
    }
    const control_socket control;
    card.mtu = control.mtu(interface);
    add_driver_counters(control, interface, card);
    ethtool_ringparam ring{};
    ring.cmd = ETHTOOL_GRINGPARAM;
    if (control.ask(interface, &ring) && ring.rx_pending != 0) {
        card.ring_size = ring.rx_pending;
        card.ring_limit = ring.rx_max_pending;
    }
    return card;
}

std::string user_name(uint32_t user) {
    const passwd* known = getpwuid(user); // NOLINT(concurrency-mt-unsafe): asked by the main thread alone
    return known == nullptr ? fmt::format("{}", user) : std::string{known->pw_name};
}

socket_owner owner_of(const udp_socket_row& row) {
    socket_owner owner{0, {}, user_name(row.user)};
    if (row.inode == 0) return owner;
    const std::string wanted = fmt::format("socket:[{}]", row.inode);
    std::error_code ignored;
    for (const auto& process : fs::directory_iterator{"/proc", ignored}) {
        const std::string pid = process.path().filename();
        if (!is_number(pid)) continue;
        std::error_code closed;
        for (fs::directory_iterator file{process.path() / "fd", closed}, end; !closed && file != end;
             file.increment(closed)) {
            std::error_code gone;
            if (fs::read_symlink(file->path(), gone) != wanted) continue;
            std::from_chars(pid.data(), pid.data() + pid.size(), owner.process);
            const fs::path program = fs::read_symlink(process.path() / "exe", gone);
            owner.name = gone ? without_newline(kernel_text(process.path() / "comm")) : program.filename().string();
            return owner;
        }
    }
    return owner;
}

} // namespace cli
