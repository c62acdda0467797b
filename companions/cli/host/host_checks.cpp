#include "host_checks.h"

#include <ipc_rpc/leftovers.h>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <optional>

namespace cli {

namespace {

namespace fs = std::filesystem;

// What the library asks for each stream, and what serves a gigabit camera for the pause of a busy host: the kernel's
// usual limit holds less than 2 ms of it.
constexpr int64_t wanted_receive_buffer = 10 * 1024 * 1024;
constexpr int64_t serving_receive_buffer = 2 * 1024 * 1024;
constexpr int64_t jumbo_mtu = 9000;

std::string read_line(const fs::path& path) {
    std::ifstream file{path};
    std::string line;
    std::getline(file, line);
    return line;
}

std::optional<int64_t> read_number(const fs::path& path) {
    const std::string text = read_line(path);
    int64_t value = 0;
    const auto [end, failed] = std::from_chars(text.data(), text.data() + text.size(), value);
    return failed == std::errc{} ? std::optional{value} : std::nullopt;
}

// A command for now and the file for every start after. Not the name of the packages' file in /usr/lib/sysctl.d, which
// one of that name in /etc hides as a whole.
std::string lasting_sysctl(const std::string& name, const std::string& value) {
    return fmt::format("echo '{0} = {1}' | sudo tee -a /etc/sysctl.d/70-orv-gentl-gev.conf && sudo sysctl {0}={1}",
                       name, value);
}

void check_leftovers(std::vector<finding>& findings) {
    const std::vector<std::string> names = ipc_rpc::find_leftovers();
    const bool none = names.empty();
    findings.push_back({"leftovers of killed services", none ? grade::ok : grade::advice,
                        none ? "none" : fmt::format("{}", fmt::join(names, " ")), "none",
                        none ? "" : "they take shared memory",
                        none ? "" : "the service removes them when it starts the next time"});
}

} // namespace

void check_receive_buffer(const kernel_files& kernel, std::vector<finding>& findings) {
    const auto limit = read_number(kernel.sysctl + "/core/rmem_max");
    finding result{"largest socket receive buffer",
                   grade::ok,
                   limit ? fmt::format("{} bytes", *limit) : "unknown",
                   fmt::format("{} bytes", wanted_receive_buffer),
                   {},
                   {}};
    if (!limit || *limit < wanted_receive_buffer) {
        const bool serves = limit && *limit >= serving_receive_buffer;
        result.of = serves ? grade::advice : grade::bad;
        result.why = serves ? "it serves a camera of one gigabit per second; faster ones lose packets while this host "
                              "is busy"
                            : "packets are lost whenever this host pauses for some milliseconds";
        result.remedy = lasting_sysctl("net.core.rmem_max", "33554432");
    }
    findings.push_back(std::move(result));
}

void check_interfaces(const kernel_files& kernel, std::vector<finding>& findings) {
    std::vector<std::string> names;
    std::error_code ignored;
    for (const auto& entry : fs::directory_iterator{kernel.interfaces, ignored})
        names.push_back(entry.path().filename());
    std::ranges::sort(names);
    const std::string filters = kernel.sysctl + "/ipv4/conf/";
    const int64_t of_all = read_number(filters + "all/rp_filter").value_or(0);
    for (const std::string& name : names) {
        std::string key = name; // sysctl's word for a VLAN's interface, whose name has a point
        std::ranges::replace(key, '.', '/');
        const fs::path folder = fs::path{kernel.interfaces} / name;
        if (name == "lo" || read_line(folder / "operstate") == "down") continue;
        const auto mtu = read_number(folder / "mtu");
        if (mtu) {
            const bool jumbo = *mtu >= jumbo_mtu;
            findings.push_back(
                {"MTU of " + name, jumbo ? grade::ok : grade::advice, fmt::format("{} bytes", *mtu),
                 fmt::format("{} bytes, if card, switch and camera carry it", jumbo_mtu),
                 jumbo ? "" : "larger packets take less of the processor for the same pictures",
                 jumbo ? ""
                       : fmt::format("nmcli connection modify \"$(nmcli -g GENERAL.CONNECTION device show {0})\" "
                                     "802-3-ethernet.mtu {1}   # until the next start: sudo ip link set "
                                     "{0} mtu {1}",
                                     name, jumbo_mtu)});
        }
        const auto own = read_number(filters + name + "/rp_filter");
        if (!own) continue;
        // The kernel takes the larger of the two: 1 strict, 2 loose, 0 none.
        const int64_t active = std::max(*own, of_all);
        const bool strict = active == 1;
        findings.push_back(
            {"reverse path filter of " + name, strict ? grade::advice : grade::ok,
             fmt::format("{} (of the interface {}, of all {})", active, *own, of_all), "0 or 2",
             strict ? "strict filtering drops what cameras of other subnets answer, so they are not seen" : "",
             strict ? lasting_sysctl(fmt::format("net.ipv4.conf.{}.rp_filter", key), "2") : ""});
    }
}

void check_host(std::vector<finding>& findings) {
    const kernel_files kernel;
    attempt("largest socket receive buffer", findings, [&] { check_receive_buffer(kernel, findings); });
    attempt("leftovers of killed services", findings, [&] { check_leftovers(findings); });
    attempt("interfaces", findings, [&] { check_interfaces(kernel, findings); });
}

} // namespace cli
