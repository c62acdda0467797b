// Callbacks for the numbers that the service raises.
#pragma once

#include <gds_helper/process.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <system_error>

namespace ipc_rpc {

// Thread-safe. Callbacks of one registration never run at the same time as each other. What a callback throws is
// logged and ends that run only.
class notification_registry final {
    struct state;
    struct registration;

public:
    // Ends its registration when destroyed: then the callback is not running and will not run again, except when it
    // is destroyed by that very callback. Waits for a callback that runs, so hold no lock that the callback takes.
    class token final {
    public:
        token() = default;
        token(token&& other) noexcept = default;
        token& operator=(token&& other) noexcept;
        ~token() { reset(); }
        void reset() noexcept;
        explicit operator bool() const noexcept { return entry != nullptr; }

    private:
        friend notification_registry;
        std::weak_ptr<state> registry;
        std::shared_ptr<registration> entry;
        std::int64_t owner_process = 0;
        std::uint64_t id = 0;
    };

    // Pool threads start with start_pool(), or with the first registration that needs them.
    explicit notification_registry(std::size_t pool_threads = 2);
    // Ends the pool; tokens may outlive the registry.
    ~notification_registry();
    notification_registry(const notification_registry&) = delete;
    notification_registry& operator=(const notification_registry&) = delete;

    // So that no registration has to: it could only throw std::system_error when there is no thread to be had, this
    // tells it. Does nothing when they run.
    [[nodiscard]] std::error_code start_pool();

    // On the dispatching thread, which must not block.
    [[nodiscard]] token register_notification(std::uint64_t id, std::function<void()> callback);
    // On a pool thread, once for every notification.
    [[nodiscard]] token register_for_pool(std::uint64_t id, std::function<void()> callback);
    // On a pool thread; not queued again while it is queued and has not started.
    [[nodiscard]] token register_for_pool_unique_queued(std::uint64_t id, std::function<void()> callback);

    // A number that nobody registered is dropped. Without memory to queue a run this throws std::bad_alloc, after the
    // others of the number; the run is made up for with the number's next notification.
    void notify(std::uint64_t id);

private:
    enum class mode { direct, pool, pool_unique };
    [[nodiscard]] token add(std::uint64_t id, std::function<void()> callback, mode how);

    gds_helper::process_local<state> shared;
};

} // namespace ipc_rpc
