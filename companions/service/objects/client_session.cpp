#include "client_session.h"

namespace service {

std::shared_ptr<client_session::number> client_session::allocate() {
    const std::lock_guard guard{mutex};
    for (size_t i = 1; i < count; ++i) {
        if (used[i]) continue;
        used[i] = true;
        return std::make_shared<number>(shared_from_this(), i);
    }
    return nullptr;
}

void client_session::give_back(uint64_t value) {
    const std::lock_guard guard{mutex};
    used[value] = false;
}

} // namespace service
