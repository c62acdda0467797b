// An event that ends a wait.
#pragma once

#include <cstdint>

namespace ipc_rpc::platform {

// Manual-reset event that a control channel's wait ends on. Any thread may set it.
class stop_event final {
public:
    // Throws std::system_error ("Failed to create semaphore") when the system has no event left.
    stop_event();
    ~stop_event();
    stop_event(const stop_event&) = delete;
    stop_event& operator=(const stop_event&) = delete;

    void set() noexcept;
    void reset() noexcept;
    [[nodiscard]] bool is_set() const noexcept;
    [[nodiscard]] std::intptr_t native() const noexcept { return handle; }

private:
    std::intptr_t handle;
};

} // namespace ipc_rpc::platform
