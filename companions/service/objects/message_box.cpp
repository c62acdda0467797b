#include "message_box.h"

#include <ipc_rpc/limits.h>

#include <iterator>
#include <utility>

namespace service {

bool message_box::push(ipc_rpc::event_message message) {
    bool first_loss = false;
    {
        const std::lock_guard guard{mutex};
        if (waiting.size() == ipc_rpc::limits::most_events) {
            waiting.pop_front();
            first_loss = dropped++ == 0;
        }
        waiting.push_back(std::move(message));
    }
    number->raise();
    return first_loss;
}

message_box::taken message_box::take() {
    const std::lock_guard guard{mutex};
    taken result;
    result.messages.assign(std::make_move_iterator(waiting.begin()), std::make_move_iterator(waiting.end()));
    waiting.clear();
    result.dropped = std::exchange(dropped, 0);
    return result;
}

} // namespace service
