#include "command_line.h"

namespace cli {

void command_line::add_common(CLI::App& command, bool with_device) {
    command.add_flag("--json", options.json, "One JSON object on the standard output");
    command.add_option("--cti", options.cti, "The producer to load (default: beside this program)");
    command.add_option("--interface", options.interface, "Only this interface id");
    command.add_option("--timeout", options.timeout_ms, "Time for the search, milliseconds")->capture_default_str();
    if (!with_device) return;
    command.add_option("--device", options.device,
                       "Id, serial number, user name, IP or MAC address, or a part of the id");
    command
        .add_option("--access", options.access,
                    "readonly, control or exclusive (default: control, and readonly for commands that only read)")
        ->check(CLI::IsMember({"readonly", "control", "exclusive"}));
}

void command_line::add_module(CLI::App& command) {
    command.add_option("--module", options.module, "Whose features: remote, device, stream, interface or system")
        ->check(CLI::IsMember({"remote", "device", "stream", "interface", "system"}))
        ->capture_default_str();
}

CLI::App& command_line::add(const char* name, const char* help, bool with_device, std::function<int()> run) {
    CLI::App* command = app.add_subcommand(name, help);
    add_common(*command, with_device);
    command->callback([this, run = std::move(run)] { exit_code = run(); });
    return *command;
}

} // namespace cli
