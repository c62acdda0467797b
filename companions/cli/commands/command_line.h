// What all subcommands share on the command line.
#pragma once

#include "../consumer/session.h"

#include <CLI/CLI.hpp>

#include <functional>

namespace cli {

// Where subcommands register: their callbacks set `exit_code`. Outlives the parse.
struct command_line {
    CLI::App& app;
    common_options& options;
    int exit_code = 0;

    // A subcommand with --json, --cti, --interface and --timeout, and for a device's with --device and --access.
    CLI::App& add(const char* name, const char* help, bool with_device, std::function<int()> run);
    void add_common(CLI::App& command, bool with_device);
    void add_module(CLI::App& command);
};

} // namespace cli
