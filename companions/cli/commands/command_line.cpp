#include "command_line.h"

#include <options/numbers.h>

namespace cli {

void command_line::add_common(CLI::App& command, reach of) {
    command.add_flag("--json", options.json, "One JSON object on the standard output");
    command.add_option("--cti", options.cti, "The producer to load (default: beside this program)");
    if (of == reach::library) return;
    command.add_option("--interface", options.interface, "Only this interface id");
    command.add_option("--timeout", options.timeout_ms, "Time for the search, milliseconds")
        ->check(option_checks::whole_number(0, 3'600'000))
        ->capture_default_str();
    if (of == reach::search) return;
    command.add_option("--device", options.device,
                       "Id, serial number, user name, IP or MAC address, or a part of the id");
    if (of == reach::device) return;
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

CLI::App& command_line::add(const char* name, const char* help, reach of, std::function<int()> run) {
    CLI::App* command = app.add_subcommand(name, help);
    add_common(*command, of);
    command->callback([this, run = std::move(run)] { exit_code = run(); });
    return *command;
}

} // namespace cli
