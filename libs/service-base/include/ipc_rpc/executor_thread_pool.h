// Where function bodies run.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>

namespace ipc_rpc {

class executor_thread_pool_interface {
public:
    virtual ~executor_thread_pool_interface() = default;
    // Never blocks on a running task. Thread-safe.
    virtual void push(std::function<void()> task) = 0;
};

// A fixed number of threads named `name_prefix` plus their index. Destruction drops what has not started and waits
// for what runs, unless it happens on one of its own threads.
[[nodiscard]] std::shared_ptr<executor_thread_pool_interface> make_executor_thread_pool(const std::string& name_prefix,
                                                                                        std::size_t threads);

} // namespace ipc_rpc
