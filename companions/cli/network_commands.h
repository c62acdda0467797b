// Commands for cameras as the network has them: addresses, actions, events, firmware.
#pragma once

#include "output.h"
#include "session.h"

#include <functional>

namespace CLI {
class App;
}

namespace cli {

// Adds force-ip, ip, action, events and firmware. `add_common` gives a subcommand its usual options; `result` takes the
// exit code of the one that runs. `options` and `result` must outlive the parse.
void add_network_commands(CLI::App& app, common_options& options, int& result,
                          const std::function<void(CLI::App& command, bool with_device)>& add_common);

struct event_options {
    std::vector<std::string> notify;   // entries of EventSelector that are switched on
    std::vector<std::string> settings; // FEATURE=VALUE
    std::vector<std::string> execute;  // commands, once everything listens
    uint64_t count = 0;                // 0: until interrupted
    int64_t wait_ms = -1;              // longest wait for the next one; below 0: for ever
    bool acquire = false;              // start the stream, for events that only frames cause
};
int show_events(const common_options& common, const event_options& options);

int upload_firmware(const common_options& common, const std::string& package, std::chrono::seconds longest);

} // namespace cli
