#include "impl/ipc_instance.h"

#include "impl/ipc_call_base.h"

#include <gds_helper/process.h>

namespace ipc_rpc {

namespace {

// What caller and callee send through. Holds the queue: a function that still runs may reply after the connection.
class send_channel final : public channel_interface {
public:
    send_channel(std::shared_ptr<shared_memory_queue> to, std::string channel_name)
        : queue(std::move(to)), name(std::move(channel_name)) {}
    std::span<std::byte> acquire_block() override { return queue->acquire_block(); }
    bool send_block(std::span<std::byte> block) override {
        log_packet_sent(name, block);
        return queue->send_block(block);
    }
    std::string_view get_name() const override { return name; }

private:
    const std::shared_ptr<shared_memory_queue> queue;
    const std::string name;
};

} // namespace

ipc_instance::ipc_instance(std::shared_ptr<shared_memory_queue> send, std::shared_ptr<shared_memory_queue> receive,
                           std::shared_ptr<const object_function_table_root> table,
                           std::shared_ptr<executor_thread_pool_interface> executor, const std::string& thread_prefix)
    : send_queue(std::move(send)),
      receive_queue(std::move(receive)),
      receive_name(thread_prefix + "recv"),
      channel(std::make_shared<send_channel>(send_queue, thread_prefix + "send")),
      calls(*channel),
      served(channel, std::move(table), std::move(executor)) {}

ipc_instance::~ipc_instance() { shutdown(); }

void ipc_instance::start(std::weak_ptr<rpc_connection_client> connection,
                         std::function<void(std::uint64_t)> on_notification, std::function<void()> on_bad_packet,
                         std::function<void()> on_first_packet) {
    served.bind(std::move(connection));
    receiver = std::make_unique<recv_queue_thread>(receive_queue,
                                                   recv_queue_thread::targets{calls, served, std::move(on_notification),
                                                                              std::move(on_bad_packet),
                                                                              std::move(on_first_packet)},
                                                   receive_name);
}

void ipc_instance::shutdown() {
    ended = true;
    calls.close();
    send_queue->shut();
    receive_queue->shut();
    receiver.reset();
    served.stop();
}

ipc_connection::ipc_connection(std::shared_ptr<ipc_instance> over)
    : instance(std::move(over)), owner_process(gds_helper::process_id()) {}

bool ipc_connection::is_dead() const noexcept {
    return !instance->is_open() || gds_helper::process_id() != owner_process;
}

std::expected<std::uint64_t, std::error_code> ipc_connection::register_object(object_entry object) {
    if (is_dead()) return std::unexpected(make_error_code(status::connection_closed));
    return instance->callee().register_object(std::move(object));
}

std::error_code ipc_connection::close_handle(std::uint64_t handle, std::uint32_t flags) {
    if (is_dead()) return make_error_code(status::connection_closed);
    // The last copy of a handle may go in a callback: release without waiting for what this thread would deliver.
    if (instance->is_receiving_here()) flags |= rpc_flag_no_reply;
    const status outcome = instance->caller().close_handle(handle, flags);
    return outcome == status::success ? std::error_code{} : make_error_code(outcome);
}

std::error_code ipc_connection::call(std::uint64_t handle, std::string_view function_name,
                                     std::span<const std::byte> parameters, std::vector<std::byte>* result,
                                     std::uint32_t flags) {
    if (is_dead()) return make_error_code(status::connection_closed);
    if ((flags & rpc_flag_no_reply) == 0 && instance->is_receiving_here()) {
        return std::make_error_code(std::errc::resource_deadlock_would_occur);
    }
    const status outcome = instance->caller().call(handle, function_name, parameters, result, flags);
    return outcome == status::success ? std::error_code{} : make_error_code(outcome);
}

bool ipc_connection::is_open() const { return !is_dead(); }

} // namespace ipc_rpc
