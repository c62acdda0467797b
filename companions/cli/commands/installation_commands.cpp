#include "installation_commands.h"

#include "../cameras/grabber.h"
#include "../host/installation_checks.h"
#include "../output/output.h"
#include "../posix/child_process.h"
#include "../posix/interruption.h"
#include "../posix/this_process.h"

#include <fmt/format.h>
#include <gds_shared/product_constants.h>

#include <array>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string_view>

namespace cli {

namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;

constexpr const char* variable = "GENICAM_GENTL64_PATH";

// Between double quotes, where a backslash takes the meaning of those.
std::string quoted(const std::string& text, std::string_view special) {
    std::string safe = "\"";
    for (const char each : text) {
        if (special.contains(each)) safe += '\\';
        safe += each;
    }
    return safe + '"';
}

// The line that makes one kind of place find the library: `folder` is its folder, `file` its path.
struct situation {
    const char* option;
    const char* help;
    std::string (*line)(const std::string& folder, const std::string& file);
};
constexpr std::array situations{
    situation{"sh", "For a shell, or /etc/profile.d",
              [](const std::string& folder, const std::string&) {
                  // A folder that is named twice is loaded twice by some applications.
                  const std::string word = quoted(folder, "\\\"$`");
                  return fmt::format("case \":${{{0}:-}}:\" in *:{1}:*) ;; "
                                     "*) export {0}=\"${{{0}:+${0}:}}\"{1} ;; esac",
                                     variable, word);
              }},
    situation{"systemd", "For the [Service] section of a unit",
              [](const std::string& folder, const std::string&) {
                  std::string assignment; // '%' begins a specifier
                  for (const char each : fmt::format("{}={}", variable, folder))
                      assignment += each == '%' ? std::string{"%%"} : std::string{each};
                  return "Environment=" + quoted(assignment, "\\\"");
              }},
    situation{"docker", "For a Dockerfile",
              [](const std::string& folder, const std::string&) {
                  return fmt::format("ENV {}={}", variable, quoted(folder, "\\\"$"));
              }},
    situation{"python", "For Python with harvesters, which does not read the variable",
              [](const std::string&, const std::string& file) {
                  return fmt::format("h.add_file({})", quoted(file, "\\\""));
              }},
};

int print_environment(const common_options& common, const std::string& wanted) {
    const fs::path file = library_for_applications(find_cti(common));
    const std::string folder = file.parent_path();
    nlohmann::json object{{"variable", variable}, {"library", file.string()}, {"folder", folder}};
    std::string text;
    for (const situation& each : situations) {
        object[each.option] = each.line(folder, file);
        if (wanted == each.option) text = each.line(folder, file);
    }
    if (common.json) {
        print_json(object);
    } else {
        print_text(text + '\n'); // a path is what bytes it is
    }
    return 0;
}

struct test_folder {
    const fs::path path;
    test_folder() : path(make()) {}
    test_folder(const test_folder&) = delete;
    test_folder& operator=(const test_folder&) = delete;
    ~test_folder() {
        std::error_code ignored;
        fs::remove_all(path, ignored);
    }

private:
    static fs::path make() {
        const char* named = std::getenv("TMPDIR");
        fs::path within = named != nullptr && *named != '\0' ? named : "/tmp";
        const std::string stem = "orv-gentl-self-test-";
        constexpr size_t most = 107; // of a socket's path: sun_path without its end
        const std::string socket = gds_shared::service_pipe_name(gds_shared::gev_product);
        if ((within / (stem + "XXXXXX") / socket).native().size() > most) within = "/tmp";
        return make_folder(within, stem);
    }
};

std::string program_beside(const char* name) {
    std::error_code ignored;
    const fs::path found = program_file().parent_path() / name;
    if (!fs::exists(found, ignored))
        throw failure(cause::failed, fmt::format("There is no '{}': it belongs beside orv-gentl.", found.string()));
    return found;
}

void wait_until_ready(child_process& child, const char* what) {
    constexpr milliseconds longest{6000};
    if (child.wait_for_output("ready", longest)) return;
    throw failure(cause::failed,
                  fmt::format("The {} does not start: {}", what,
                              !child.output().empty() ? child.output()
                              : child.has_ended()     ? "it ended without a word."
                                                  : fmt::format("it said nothing in {} s.", longest.count() / 1000)));
}

// Camera, service and library as processes and sockets of this user's own, without a network and beside whatever runs.
int self_test(const common_options& common) {
    watch_for_interruption();
    const auto step = [&](const std::string& text) {
        if (!common.json) print("{}\n", text);
        flush_output();
    };
    const test_folder folder;
    const std::string address = fmt::format("127.{}.{}.10", 100 + process_id() % 100, process_id() / 100 % 250);
    set_variable("ORV_GENTL_RUNTIME_DIR", folder.path);

    // Slow, as a frame has three frame times to be mended in: busy machines stand still for longer than fast ones
    // leave.
    child_process camera{{program_beside("orv-gev-camera-sim"), "--address", address, "--width", "640", "--height",
                          "480", "--frame-rate", "10", "--quiet"}};
    wait_until_ready(camera, "simulated camera");
    step("ok  simulated camera");
    child_process service{{program_beside("orv-gentl-gev-service"), "--no-networks", "--discover", address}};
    wait_until_ready(service, "service");
    step("ok  service");
    common_options options = common;
    options.device = address;
    grab_options wanted;
    wanted.frames = 30;
    wanted.verify = true;
    wanted.quiet = true;
    const std::string library = find_cti(common);
    grabber run{options, wanted};
    step(fmt::format("ok  library {}", library));
    run.run();
    if (common.json) {
        nlohmann::json object = run.result();
        object["library"] = library;
        print_json(object);
    } else {
        print("ok  {} frames, every byte right\n", wanted.frames);
    }
    return 0;
}

} // namespace

void add_installation_commands(command_line& line) {
    auto wanted = std::make_shared<std::string>("sh");
    auto& env = line.add("env", "The line that makes applications find the library", reach::library,
                         [&line, wanted] { return print_environment(line.options, *wanted); });
    std::vector<CLI::Option*> before;
    for (const situation& each : situations) {
        auto* flag = env.add_flag_callback(
            fmt::format("--{}", each.option), [wanted, &each] { *wanted = each.option; }, each.help);
        for (CLI::Option* other : before) flag->excludes(other);
        before.push_back(flag);
    }
    env.footer("Example: eval \"$(orv-gentl env --sh)\"");
    line.add("self-test", "Proves an installation without a camera, in a few seconds", reach::library,
             [&line] { return self_test(line.options); })
        .footer(
            "Starts a simulated camera and a service of its own on loopback and grabs 30 frames, every byte compared.\n"
            "Example: orv-gentl self-test");
}

} // namespace cli
