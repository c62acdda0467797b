#include "client_session.h"

namespace service {

// Both make their object first: nothing is taken that a failure would leave taken.
std::shared_ptr<client_session::number> client_session::allocate() {
    auto made = std::make_shared<number>(shared_from_this(), 0);
    const std::lock_guard guard{mutex};
    for (std::size_t i = 1; i < used.size(); ++i) {
        if (used[i]) continue;
        used[i] = true;
        made->value = i;
        return made;
    }
    return nullptr;
}

void client_session::give_back(uint64_t value) {
    const std::lock_guard guard{mutex};
    used[value] = false;
}

std::shared_ptr<client_session::device_seat> client_session::take_device_seat() {
    auto made = std::make_shared<device_seat>();
    const std::lock_guard guard{mutex};
    if (open_devices >= ipc_rpc::limits::most_open_devices) return nullptr;
    ++open_devices;
    made->session = shared_from_this();
    return made;
}

void client_session::leave_device_seat() {
    const std::lock_guard guard{mutex};
    --open_devices;
}

} // namespace service
