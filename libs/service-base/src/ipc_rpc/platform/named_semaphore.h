// A semaphore that processes share.
#pragma once

#include "shared_mapping.h"

#include <chrono>
#include <cstdint>
#include <string>
#include <utility>

namespace ipc_rpc::platform {

// Counting semaphore under a name. Failures throw std::system_error. Its memory is the peer's to write: nothing that
// stands there makes a wait or a post fail, hang or end the process.
class named_semaphore final {
public:
    static constexpr std::uint32_t most = 1000; // a higher count is a peer's lie

    enum class outcome { taken, nothing, broken };

    // Count 0; refused when the name exists. Owns the name until release_name or destruction.
    [[nodiscard]] static named_semaphore create(const std::string& name, const object_access& access);
    [[nodiscard]] static named_semaphore open(const std::string& name);

    // `nothing` after the time, or earlier: callers look whether they still want to wait.
    [[nodiscard]] outcome wait(std::chrono::milliseconds time) noexcept;
    // A count that can't grow any more is no error: whoever waits wakes up all the same.
    void post(unsigned count) noexcept;
    [[nodiscard]] bool is_broken() const noexcept { return memory.is_broken(); }
    void release_name() noexcept { memory.release_name(); }

private:
    explicit named_semaphore(shared_mapping mapped) noexcept : memory(std::move(mapped)) {}
    [[nodiscard]] std::uint64_t& word() const noexcept;
    [[nodiscard]] outcome try_take() noexcept;

    shared_mapping memory;
};

} // namespace ipc_rpc::platform
