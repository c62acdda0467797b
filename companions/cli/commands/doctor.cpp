#include "doctor.h"

#include "../consumer/interface_session.h"
#include "../host/host_checks.h"
#include "../host/installation_checks.h"
#include "../output/output.h"
#include "../posix/service_place.h"
#include "../posix/service_unit.h"

#include <fmt/ranges.h>
#include <gds_shared/product_constants.h>
#include <ipc_rpc/services.h>

#include <algorithm>
#include <filesystem>

namespace cli {

namespace {

namespace fs = std::filesystem;

// Cameras that answer and cannot be spoken to, with what mends each.
void check_addresses(const found_devices& found, std::vector<finding>& findings) {
    for (const auto& entry : found.devices) {
        const auto& device = entry.first;
        if (device.access_status != GenTL::DEVICE_ACCESS_STATUS_NOACCESS) continue;
        std::string address;
        const std::string check = "address of " + device.id;
        attempt(check, findings, [&] {
            interface_session session{found.lib, entry.second};
            if (session.select(device.id)) address = session.text("GevDeviceIPAddress");
        });
        if (address.empty()) continue;
        findings.push_back(
            {check, grade::bad, fmt::format("{} cannot be reached from {}", address, device.interface_id),
             "an address of the interface's subnet that no other device has",
             "it is of another subnet, or the address of a second camera, too",
             fmt::format("orv-gentl ip temporary --device {0}   # until its next start; 'ip persistent' for good, "
                         "'force-ip --device {0} ADDRESS' for one of your choice",
                         shell_word(device.id))});
    }
}

void check_cameras(const common_options& common, std::vector<finding>& findings) {
    try {
        const found_devices found = find_devices(common);
        findings.push_back({"local service", grade::ok, "answers", "answers", {}, {}});
        check_addresses(found, findings);
        const bool any = !found.devices.empty();
        findings.push_back(
            {"devices", any ? grade::ok : grade::bad, fmt::format("{} seen", found.devices.size()), "1 at least",
             any ? "" : "no camera answered the search",
             any ? ""
             : uses_service_unit()
                 ? fmt::format("check cable, power and subnet; --discover ADDRESS asks a camera behind a "
                               "router: sudo systemctl edit {}   # its ExecStart=",
                               service_unit)
                 : "check cable, power and subnet; orv-gentl-gev-service --discover ADDRESS asks a "
                   "camera behind a router"});
    } catch (const failure& reason) {
        const bool is_library = reason.why() == cause::no_library;
        findings.push_back({is_library                          ? "library"
                            : reason.why() == cause::no_service ? "local service"
                                                                : "search",
                            grade::bad, reason.what(), "works", "without it no camera can be reached",
                            !reason.remedy().empty() ? reason.remedy()
                            : is_library             ? library_remedy()
                                                     : "see the service's log"});
    }
}

// A camera has one controller: what one service has open is in use for all others. And where none listens in this
// user's folder, one that listens elsewhere may be the one that was meant.
void check_services(std::vector<finding>& findings) {
    const std::string name = gds_shared::service_pipe_name(gds_shared::gev_product);
    const fs::path own = fs::path{service_folder()} / name;
    std::vector<std::string> others, folders; // in the latter, one of this version can be reached
    bool own_runs = false;
    for (const auto& each : ipc_rpc::find_services("orv-gentl-gev_service_pipe")) {
        const fs::path socket{each.socket};
        std::error_code closed;
        // The folder may be named by a link, or from where this program stands. Sockets themselves are not compared.
        const bool same_folder = fs::equivalent(socket.parent_path(), own.parent_path(), closed);
        if (socket == own || (socket.filename() == name && same_folder)) {
            own_runs = true;
            continue;
        }
        others.push_back(ipc_rpc::to_text(each));
        if (socket.filename() == name && fs::is_socket(socket, closed))
            folders.push_back(fmt::format("'{}'", socket.parent_path().string()));
    }
    finding result{"other services on this host", grade::ok, "none", "none", {}, {}};
    if (!others.empty()) {
        result.of = grade::advice;
        result.found = fmt::format("{}", fmt::join(others, ", "));
        result.why = "a camera that one of them has open is in use for this one";
        result.remedy = "end all but one: kill PID, or for a unit: sudo systemctl disable --now NAME";
    }
    if (!own_runs && !folders.empty()) {
        result.why = fmt::format("applications started from here look in '{}', where none listens", service_folder());
        result.remedy = "export ORV_GENTL_RUNTIME_DIR=" + folders.front();
        if (folders.size() > 1)
            result.remedy += fmt::format("   # or {}", fmt::join(folders.begin() + 1, folders.end(), ", "));
    }
    findings.push_back(std::move(result));
}

// Each line begins with a grade or, where one goes on, with a space.
std::string indented(const std::string& text) {
    std::string result;
    for (const char each : text) result += each == '\n' ? std::string{"\n         "} : std::string{each};
    return result;
}

const char* text_of(grade of) {
    switch (of) {
    case grade::ok:
        return "ok";
    case grade::advice:
        return "advice";
    case grade::bad:
        return "BAD";
    }
    return "?";
}

} // namespace

int doctor(const common_options& common) {
    std::vector<finding> findings;
    std::string cti;
    try {
        cti = find_cti(common);
        static_cast<void>(gentl_library{cti}); // a file of the name may be none, or miss functions
        findings.push_back({"library to point applications at",
                            grade::ok,
                            library_for_applications(cti).string(),
                            "a file that loads",
                            {},
                            {}});
    } catch (const std::exception& reason) {
        cti.clear();
        findings.push_back({"library", grade::bad, reason.what(), "a file that loads",
                            "without it no camera can be reached", library_remedy()});
    }
    check_installation(cti, findings);
    if (!cti.empty()) attempt("search", findings, [&] { check_cameras(common, findings); });
    attempt("other services on this host", findings, [&] { check_services(findings); });
    check_host(findings);
    const bool all_well = std::ranges::none_of(findings, [](const finding& each) { return each.of == grade::bad; });
    if (common.json) {
        nlohmann::json list = nlohmann::json::array();
        for (const finding& each : findings) {
            list.push_back({{"check", each.check},
                            {"grade", each.of == grade::bad ? "bad" : text_of(each.of)},
                            {"found", each.found},
                            {"wanted", each.wanted},
                            {"why", each.why},
                            {"remedy", each.remedy}});
        }
        print_json({{"ok", all_well}, {"checks", list}});
    } else {
        for (const finding& each : findings) {
            print("{:<6} {}: {}\n", text_of(each.of), each.check, indented(each.found));
            if (each.of != grade::ok) print("         wanted: {}; {}\n", each.wanted, each.why);
            if (!each.remedy.empty()) print("         {}\n", each.remedy);
        }
    }
    return all_well ? 0 : row_of(cause::no).exit_code;
}

} // namespace cli
