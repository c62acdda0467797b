// Messages of an interface or a device that wait until their client fetches them.
#pragma once

#include "client_session.h"

#include <ipc_rpc/catalogue.h>

#include <deque>
#include <memory>
#include <mutex>
#include <vector>

namespace service {

// Thread-safe.
class message_box final {
public:
    explicit message_box(std::shared_ptr<client_session::number> raised) : number(std::move(raised)) {}

    // Raises the number. limits::most_events wait; then the oldest goes. True for the first that went since the client
    // fetched.
    bool push(ipc_rpc::event_message message);
    struct taken {
        std::vector<ipc_rpc::event_message> messages;
        uint64_t dropped = 0; // since they were fetched last
    };
    [[nodiscard]] taken take();
    [[nodiscard]] uint64_t notification() const { return number->get(); }

private:
    const std::shared_ptr<client_session::number> number;
    std::mutex mutex; // guards what follows
    std::deque<ipc_rpc::event_message> waiting;
    uint64_t dropped = 0;
};

} // namespace service
