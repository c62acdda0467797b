// orv-gentl-gev-service: the local service that the library talks to.
#include "objects/function_table.h"
#include "posix/accounts.h"
#include "posix/bus_guard.h"
#include "posix/descriptor_limit.h"
#include "posix/service_manager.h"
#include "posix/termination.h"
#include "rpc_server/rpc_server.h"

#include <GenICam/error.h>
#include <gds_helper/log.h>
#include <gds_shared/gigecam_error.h>
#include <gds_shared/log_init.h>
#include <gds_shared/product_constants.h>
#include <gds_shared/prop_store_init.h>
#include <ipc_rpc/limits.h>
#include <ipc_rpc/services.h>
#include <ipc_rpc/status.h>
#include <loaded_file/loaded_file.h>
#include <options/numbers.h>
#include <posix/runtime_directory.h>

#include <CLI/CLI.hpp>
#include <asio/ip/address_v4.hpp>
#include <fmt/format.h>
#include <spdlog/logger.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <thread>

namespace {

// From the signal to the end of the process; a camera that does not answer is left to its heartbeat.
constexpr std::chrono::milliseconds end_time{1500};

constexpr int wrong_arguments = 3; // as the other programs'

struct program_options {
    bool loopback = false;
    bool no_networks = false;
    std::vector<std::string> discover;
    std::string group;
    int log_level = -1;
    unsigned heartbeat_ms = 0;
    unsigned scan_interval_ms = 250;
    std::string document_folder;
    bool document_http = false;
    bool image_features = true;
};

// On standard error, which may take nothing: that is no reason to end.
void say(std::string_view text) noexcept {
    std::fprintf(stderr, "orv-gentl-gev-service: %.*s\n", static_cast<int>(text.size()), text.data());
}

service::service_core::options core_options(const program_options& given) {
    service::service_core::options options;
    options.discovery.networks = !given.no_networks;
    options.discovery.loopback = given.loopback;
    options.discovery.interval = std::chrono::milliseconds{given.scan_interval_ms};
    for (const std::string& address : given.discover) {
        options.discovery.addresses.push_back(asio::ip::make_address_v4(address).to_uint());
    }
    options.heartbeat_timeout = std::chrono::milliseconds{given.heartbeat_ms};
    if (!given.document_folder.empty())
        options.documents.file_folder = std::filesystem::canonical(given.document_folder);
    options.documents.http = given.document_http;
    options.image_features = given.image_features;
    if (!given.group.empty()) {
        options.group = service::group_named(given.group);
        if (!options.group) throw std::runtime_error(fmt::format("There is no group '{}'.", given.group));
    }
    return options;
}

// Any version's: each takes cameras away from the others.
constexpr std::string_view pipe_stem = "orv-gentl-gev_service_pipe";

[[noreturn]] void refuse_second(const std::string& socket) {
    std::string who = fmt::format("'{}'", socket);
    for (const auto& each : ipc_rpc::find_services(pipe_stem)) {
        if (each.socket == socket) who = ipc_rpc::to_text(each);
    }
    throw std::runtime_error(
        fmt::format("Another orv-gentl-gev-service is running already: it listens at {}. End it ('systemctl stop "
                    "orv-gentl-gev.socket orv-gentl-gev.service' where one is installed), or give this one and its "
                    "applications another folder by ORV_GENTL_RUNTIME_DIR.",
                    who));
}

// A camera has one controller, whichever service that belongs to.
void tell_of_others(const std::string& own_socket) {
    for (const auto& each : ipc_rpc::find_services(pipe_stem)) {
        if (each.socket == own_socket) continue;
        const std::string text =
            fmt::format("Another service listens at {}: a camera that one of the two has open is in "
                        "use for the other.",
                        ipc_rpc::to_text(each));
        gds_helper::log::main_logger().warn("{}", text);
        say(text);
    }
}

std::filesystem::path program_folder() {
    static const char within = 0;
    return std::filesystem::path{loaded_file::path_of(&within)}.parent_path();
}

int serve(const program_options& given) {
    const auto& product = gds_shared::gev_product;
    ipc_rpc::register_error_category(gds_shared::gigecam_error_category(), ipc_rpc::category_id_gigecam);
    ipc_rpc::register_error_category(GenICam::genicam_category(), ipc_rpc::category_id_genicam);
    gds_helper::log::log_control logging{std::string{product.producer_name}, std::string{product.service_short_name}};
    logging.set_header(fmt::format("srv: {} {}", product.producer_name, product.version_text));
    const auto apply_log_options = [&] {
        if (given.log_level < 0) return;
        logging.enable_console(true);
        logging.set_level(given.log_level);
    };
    apply_log_options(); // for what is wrong with the settings
    gds_shared::settings_report report;
    const auto settings = gds_shared::make_property_chain(product, program_folder(), report);
    gds_shared::log_init(*settings, logging, true);
    apply_log_options();
    // Whatever the level: who asked for the file would look for it in vain, and the settings may be what sets the
    // level.
    for (const std::string& problem : report.problems) say(problem + '.');
    if (const auto& problem = logging.file_problem(); !problem.empty()) say(problem);

    // Before any thread: they all leave the signals to the wait below.
    const service::termination end;
    service::install_bus_guard();
    const std::size_t wanted = ipc_rpc::limits::most_descriptors;
    if (const std::size_t most = service::raise_descriptor_limit(wanted); most < wanted)
        gds_helper::log::main_logger().warn("Only {} files may be open at a time, by a hard limit that is the "
                                            "administrator's: many clients and cameras can take more, up to {}.",
                                            most, wanted);

    auto options = core_options(given);
    options.settings = settings;
    const auto directory = ipc_rpc::platform::runtime_directory(true);
    if (!directory)
        throw std::runtime_error(fmt::format("There is no runtime folder to use: {}", directory.error().message()));
    // An account without rights in the sockets' folder has one of its own from the service manager.
    const char* own_folder = std::getenv("RUNTIME_DIRECTORY");
    options.port_folder = own_folder != nullptr && *own_folder == '/' ? own_folder : directory->path;
    const auto core = std::make_shared<service::service_core>(std::move(options));
    const service::rpc_server::options server_options{gds_shared::service_pipe_name(product), core->settings().group};
    auto server = service::rpc_server::start(
        server_options, [core] { return service::make_function_table(core, service::rpc_server::notifier_of); });
    if (!server) {
        if (server.error() == std::errc::address_in_use) {
            refuse_second(fmt::format("{}/{}", directory->path, server_options.pipe_name));
        }
        if (server.error() == std::errc::invalid_argument) {
            throw std::runtime_error(fmt::format("The socket that the service manager handed over does not listen at "
                                                 "'{}/{}': it may be of another version's unit.",
                                                 directory->path, server_options.pipe_name));
        }
        std::error_code ignored;
        const bool foreign = server.error() == std::errc::permission_denied;
        const bool missing = !std::filesystem::is_directory(directory->path, ignored);
        throw std::runtime_error(fmt::format(
            "Cannot listen at '{}/{}': {}{}", directory->path, server_options.pipe_name, server.error().message(),
            foreign   ? ". A service of your own needs a folder of its own: set ORV_GENTL_RUNTIME_DIR, for it "
                        "and for the applications that are to use it."
            : missing ? fmt::format(". There is no folder '{0}': mkdir -m 700 '{0}', or set ORV_GENTL_RUNTIME_DIR to "
                                    "one that is there, for the service and for the applications that are to use it.",
                                    directory->path)
                      : ""));
    }
    tell_of_others(fmt::format("{}/{}", directory->path, server_options.pipe_name));
    // The first scan is over when we say so, so that a consumer that waited for the line finds what is there.
    std::jthread first_scan{[&] {
        static_cast<void>(core->discovery().scan(std::chrono::seconds{2}, core->stop_token()));
        if (core->stop_token().stop_requested()) return;
        service::tell_service_manager("READY=1");
        // It may take nothing, which is no reason to end either.
        std::printf("ready %s/%s\n", directory->path.c_str(), server_options.pipe_name.c_str());
        std::fflush(stdout);
    }};
    end.wait();
    service::tell_service_manager("STOPPING=1");
    service::termination::end_within(end_time);
    core->stop(); // calls that wait for a camera end now
    server->reset();
    // Its thread may be the last that holds what a client had, and with it the core, which it must not end.
    core->discovery().stop();
    first_scan.join(); // last: its output may take nothing
    return 0;
}

int run(int argc, char** argv) {
    CLI::App app{"The local service of orv-gentl-gev: finds GigE Vision cameras and owns their control channels. Runs "
                 "in the foreground; prints 'ready' when consumers may connect; ends with SIGINT, SIGTERM or SIGHUP."};
    program_options given;
    app.add_flag("--loopback", given.loopback, "Look for cameras on the loopback interface");
    app.add_flag("--no-networks", given.no_networks, "Do not look for cameras on the network interfaces");
    app.add_option("--discover", given.discover, "Ask this address directly; may be repeated")->check(CLI::ValidIPV4);
    app.add_option("--group", given.group, "Let members of this group connect, besides root and this user");
    app.add_option("--log-level", given.log_level,
                   "Log to the console: 0 trace, 1 debug, 2 info, 3 warn, 4 error, "
                   "5 critical, 6 off")
        ->check(option_checks::whole_number(0, 6));
    const auto heartbeat_range = [](const std::string& text) -> std::string {
        unsigned value = 0;
        if (CLI::detail::lexical_cast(text, value) && (value == 0 || (value >= 500 && value <= 3'600'000))) return {};
        return fmt::format("'{}' is no heartbeat time-out: 0, or 500 to 3600000 ms (cameras need not take less)", text);
    };
    app.add_option("--heartbeat", given.heartbeat_ms, "Heartbeat time-out of cameras, ms; 0 leaves their own")
        ->check(heartbeat_range)
        ->capture_default_str();
    app.add_option("--document-folder", given.document_folder,
                   "Cameras may name documents in this folder ('file:' URLs); without it they may name no file")
        ->check(CLI::ExistingDirectory);
    app.add_flag("--document-http", given.document_http,
                 "Cameras may name documents on their own web server ('http:' URLs with their own address)");
    app.add_flag_callback(
        "--no-image-features", [&given] { given.image_features = false; },
        "Serve the cameras' documents as they are, without the category of software image processing");
    app.add_option("--scan-interval", given.scan_interval_ms, "Time between searches for cameras, ms")
        ->check(option_checks::whole_number(50, 3'600'000))
        ->capture_default_str();
    app.set_version_flag("--version", fmt::format("orv-gentl-gev-service {}", gds_shared::gev_product.version_text));
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) { // help and version, too
        return app.exit(error) == 0 ? 0 : wrong_arguments;
    }
    return serve(given);
}

} // namespace

int main(int argc, char** argv) {
    try {
        return run(argc, argv);
    } catch (const std::exception& failure) {
        say(failure.what());
        return 1;
    }
}
