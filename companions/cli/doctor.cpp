#include "doctor.h"

#include "interface_session.h"

#include <ipc_rpc/leftovers.h>

#include <fmt/format.h>

#include <dlfcn.h>

#include <filesystem>
#include <fstream>
#include <functional>

namespace cli {

namespace {

constexpr int64_t wanted_receive_buffer = 10 * 1024 * 1024;

struct finding {
    std::string check;
    bool ok;
    std::string found;
    std::string advice; // a command or a sentence; empty when all is well
};

std::string read_line(const std::filesystem::path& path) {
    std::ifstream file{path};
    std::string line;
    std::getline(file, line);
    return line;
}

finding check_receive_buffer() {
    const std::string text = read_line("/proc/sys/net/core/rmem_max");
    const int64_t bytes = text.empty() ? 0 : std::stoll(text);
    finding result{"largest socket receive buffer", bytes >= wanted_receive_buffer, text + " bytes", {}};
    if (!result.ok) {
        result.advice = fmt::format("sysctl -w net.core.rmem_max={}   (streams lose packets when the host is busy)",
                                    wanted_receive_buffer);
    }
    return result;
}

std::vector<finding> check_interfaces() {
    std::vector<finding> results;
    std::error_code ignored;
    for (const auto& entry : std::filesystem::directory_iterator{"/sys/class/net", ignored}) {
        const std::string name = entry.path().filename();
        if (read_line(entry.path() / "operstate") == "down" && name != "lo") continue;
        const std::string mtu = read_line(entry.path() / "mtu");
        const bool jumbo = !mtu.empty() && std::stoll(mtu) >= 9000;
        results.push_back({"MTU of " + name, true, mtu,
                           jumbo ? ""
                                 : fmt::format("ip link set {} mtu 9000   (if card and switch carry it: fewer "
                                               "packets per frame)",
                                               name)});
        const std::string filter = read_line("/proc/sys/net/ipv4/conf/" + name + "/rp_filter");
        const bool loose = filter != "1";
        results.push_back({"reverse path filter of " + name, loose, filter,
                           loose ? ""
                                 : fmt::format("sysctl -w net.ipv4.conf.{}.rp_filter=0   (strict filtering drops "
                                               "cameras of other subnets)",
                                               name)});
    }
    return results;
}

finding check_leftovers() {
    const std::vector<std::string> names = ipc_rpc::find_leftovers();
    if (names.empty()) return {"leftovers of killed services", true, "none", {}};
    return {"leftovers of killed services", true, fmt::format("{}", fmt::join(names, " ")),
            "start the service once, it removes them: orv-gentl-gev-service"};
}

finding check_runtime_path(const std::string& cti) {
    const std::filesystem::path path = cti;
    const auto multipart = path.parent_path() / "multipart" / path.filename();
    // The plain one is refused by several consumers, which say nothing of it at their usual log level.
    const auto folder = path.parent_path();
    std::error_code ignored;
    if (!std::filesystem::exists(multipart, ignored))
        return {"library to point consumers at", true, cti, fmt::format("GENICAM_GENTL64_PATH={}", folder.string())};
    return {"library to point consumers at", true, multipart.string(),
            fmt::format("GENICAM_GENTL64_PATH={}   (or {}, without the functions for buffer parts, for a consumer that "
                        "must not see them)",
                        multipart.parent_path().string(), folder.string())};
}

// Cameras that answer and cannot be spoken to, with what mends each.
std::vector<finding> check_addresses(const found_devices& found) {
    std::vector<finding> results;
    for (const auto& [device, interface] : found.devices) {
        if (device.access_status != GenTL::DEVICE_ACCESS_STATUS_NOACCESS) continue;
        interface_session session{found.lib, interface};
        if (!session.select(device.id)) continue;
        const auto address = session.text("GevDeviceIPAddress");
        results.push_back({"address of " + device.id, false,
                           fmt::format("{} cannot be reached from {}: of another subnet, or the address of a second "
                                       "camera, too",
                                       address, device.interface_id),
                           fmt::format("orv-gentl ip temporary --device '{0}'   (until its next start; 'ip persistent' "
                                       "for good, 'force-ip --device {0} ADDRESS' for one of your choice)",
                                       device.id)});
    }
    return results;
}

} // namespace

int doctor(const common_options& common) {
    std::vector<finding> findings;
    std::string cti;
    try {
        cti = find_cti(common);
        findings.push_back(check_runtime_path(cti));
    } catch (const std::exception& failure) {
        findings.push_back({"library", false, failure.what(), "build it: cmake --build --preset release"});
    }
    findings.push_back(check_receive_buffer());
    findings.push_back(check_leftovers());
    for (finding& result : check_interfaces()) findings.push_back(std::move(result));
    if (!cti.empty()) {
        try {
            const found_devices found = find_devices(common);
            findings.push_back({"local service", true, "answers", {}});
            for (finding& result : check_addresses(found)) findings.push_back(std::move(result));
            findings.push_back({"devices", !found.devices.empty(), fmt::format("{} seen", found.devices.size()),
                                found.devices.empty() ? "check cable, power and subnet; orv-gentl-gev-service "
                                                        "--discover ADDRESS asks one address directly"
                                                      : ""});
        } catch (const call_failed& failure) {
            const bool absent = failure.call == "TLOpen";
            findings.push_back({"local service", false, failure.what(),
                                absent ? "start it: orv-gentl-gev-service" : "see the service's log"});
        } catch (const std::exception& failure) {
            findings.push_back({"library", false, failure.what(), {}});
        }
    }
    bool all_well = true;
    nlohmann::json list = nlohmann::json::array();
    for (const finding& result : findings) {
        all_well = all_well && result.ok;
        if (common.json) {
            list.push_back(
                {{"check", result.check}, {"ok", result.ok}, {"found", result.found}, {"advice", result.advice}});
        } else {
            fmt::print("{} {}: {}\n", result.ok ? "ok  " : "BAD ", result.check, result.found);
            if (!result.advice.empty()) fmt::print("       {}\n", result.advice);
        }
    }
    if (common.json) fmt::print("{}\n", nlohmann::json{{"ok", all_well}, {"checks", list}}.dump());
    return all_well ? 0 : 1;
}

} // namespace cli
