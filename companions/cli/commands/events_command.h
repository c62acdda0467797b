// events: a camera's events, printed as they come.
#pragma once

#include "../consumer/session.h"
#include "../consumer/setting.h"

#include <cstdint>
#include <string>
#include <vector>

namespace cli {

struct event_options {
    std::vector<std::string> notify;  // entries of EventSelector that are switched on
    std::vector<setting> set;         // before, in this order
    std::vector<std::string> execute; // commands, once everything listens
    uint64_t count = 0;               // 0: until interrupted
    int64_t wait_ms = -1;             // longest wait for the next one; below 0: for ever
    bool acquire = false;             // start the stream, for events that only frames cause
};
int show_events(const common_options& common, const event_options& options);

} // namespace cli
