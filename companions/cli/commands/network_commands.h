// Commands for cameras as the network has them: addresses, actions, events, firmware.
#pragma once

#include "command_line.h"

#include "../consumer/session.h"
#include "../output/output.h"

#include <functional>

namespace cli {

// Adds force-ip, ip, action, events and firmware. `add_common` gives a subcommand its usual options; `result` takes the
// exit code of the one that runs. `options` and `result` must outlive the parse.
void add_network_commands(CLI::App& app, common_options& options, int& result,
                          const std::function<void(CLI::App& command, reach of)>& add_common);

} // namespace cli
