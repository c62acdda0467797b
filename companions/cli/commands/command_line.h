// What all subcommands share on the command line.
#pragma once

#include "../consumer/session.h"

#include <CLI/CLI.hpp>

#include <functional>

namespace cli {

// What a subcommand reaches, each the one before it as well; it has the options for that: --json and --cti, --interface
// and --timeout, --device, --access.
enum class reach { library, search, device, opened_device };

// Where subcommands register: their callbacks set `exit_code`. Outlives the parse.
struct command_line {
    CLI::App& app;
    common_options& options;
    int exit_code = 0;

    CLI::App& add(const char* name, const char* help, reach of, std::function<int()> run);
    void add_common(CLI::App& command, reach of);
    void add_module(CLI::App& command);
};

} // namespace cli
