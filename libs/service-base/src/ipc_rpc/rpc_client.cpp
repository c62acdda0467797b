#include <ipc_rpc/rpc_client.h>

#include "impl/ipc_call_base.h"
#include "impl/ipc_instance.h"
#include "platform.h"

#include <algorithm>
#include <chrono>
#include <future>
#include <thread>

namespace ipc_rpc::client {

namespace {

using connect_result = std::expected<std::shared_ptr<rpc_connection_client>, std::error_code>;

constexpr std::chrono::milliseconds pipe_wait{2000};
constexpr std::chrono::seconds announce_wait{1};
constexpr std::size_t own_executor_threads = 4;

template <std::size_t N>
std::string name_in(const char (&field)[N]) {
    return {field, std::find(field, field + N, '\0')};
}

} // namespace

// One connection from the attempt on. The thread "clt-ipccon" holds the control channel open; its only job after the
// handshake is to notice that the service went away. Everything below `answer` is that thread's alone.
class client_private_instance final {
public:
    client_private_instance(std::string client, service_id service, object_function_table_root table,
                            std::function<void(std::uint64_t)> notify,
                            std::shared_ptr<executor_thread_pool_interface> run_on)
        : client_name(std::move(client)),
          service_name(std::move(service)),
          functions(std::make_shared<const object_function_table_root>(std::move(table))),
          on_notification(std::move(notify)),
          executor(std::move(run_on)) {}

    ~client_private_instance() {
        stop.set();
        if (thread.joinable()) thread.join();
    }

    connect_result connect() {
        auto future = answer.get_future();
        thread = std::thread{[this] { comm_thread_main(); }};
        if (future.wait_for(announce_wait) != std::future_status::ready) {
            return std::unexpected(std::make_error_code(std::errc::timed_out));
        }
        return future.get();
    }

private:
    void comm_thread_main();
    bool receive_tcp_packet(std::error_code error, std::span<const std::byte> message);
    void parse_service_announce(const service_announce_packet& announce);
    void set_answer(connect_result result) {
        if (!std::exchange(answered, true)) answer.set_value(std::move(result));
    }

    const std::string client_name;
    const service_id service_name;
    const std::shared_ptr<const object_function_table_root> functions;
    const std::function<void(std::uint64_t)> on_notification;
    const std::shared_ptr<executor_thread_pool_interface> executor;
    platform::stop_event stop;
    std::promise<connect_result> answer;

    bool answered = false;
    std::unique_ptr<platform::named_pipe_channel> pipe;
    std::shared_ptr<ipc_instance> machinery;
    std::shared_ptr<ipc_connection> connection;

    std::thread thread;
};

void client_private_instance::comm_thread_main() {
    gds_helper::set_thread_name("clt-ipccon");
    auto attached = platform::named_pipe_channel::attach_to_server(service_name.pipe_name, pipe_wait, stop);
    if (!attached) {
        ipc_logger().error("Failed to connect to NamedPipe-server at id={}. Error: {}", service_name.pipe_name,
                           attached.error().message());
        return set_answer(std::unexpected(attached.error()));
    }
    pipe = *std::move(attached);
    pipe->run(stop, [this](std::error_code error, std::span<const std::byte> message) {
        return receive_tcp_packet(error, message);
    });
    pipe.reset();
    connection.reset();
    if (machinery) machinery->shutdown();
    machinery.reset();
    set_answer(std::unexpected(std::make_error_code(std::errc::connection_aborted)));
}

// True: keep reading.
bool client_private_instance::receive_tcp_packet(std::error_code error, std::span<const std::byte> message) {
    if (error == std::errc::connection_aborted) {
        stop.set();
        return false;
    }
    const auto header = read_head<rpc_packet_header>(message);
    if (error) {
        ipc_logger().error("Packet-receive, error-code: {}", error.message());
    } else if (!header) {
        ipc_logger().error("Packet too small: {}", message.size());
    } else if (header->packet_size > message.size()) {
        ipc_logger().error("Invalid packet size of {} specified for packet of {}B", header->packet_size,
                           message.size());
    } else if (header->type() != rpc_packet_type::service_announce) {
        ipc_logger().error("Invalid packet received on tcp channel.");
    } else if (header->packet_size < sizeof(service_announce_packet)) {
        ipc_logger().error("Packet too small: {}", header->packet_size);
    } else {
        parse_service_announce(*read_head<service_announce_packet>(message));
    }
    return true;
}

void client_private_instance::parse_service_announce(const service_announce_packet& announce) {
    const std::string from_client = name_in(announce.from_client);
    const std::string to_client = name_in(announce.to_client);
    ipc_logger().trace("Service shared memory object name base: from_client={}, to_client={}", from_client, to_client);

    client_announce_packet reply{{client_announce_first_word, sizeof(client_announce_packet), 0}, {}};
    client_name.copy(reply.client_name, announce_name_size - 1);
    static_cast<void>(pipe->send(std::as_bytes(std::span{&reply, 1})));

    // A later announce replaces the queues; whoever holds the earlier connection finds it closed.
    if (machinery) machinery->shutdown();
    try {
        machinery = std::make_shared<ipc_instance>(std::make_shared<shared_memory_queue>(from_client),
                                                   std::make_shared<shared_memory_queue>(to_client), functions,
                                                   executor, "clt-ipc-");
        connection = std::make_shared<ipc_connection>(machinery);
        machinery->start(connection, on_notification);
        set_answer(connection);
    } catch (const std::system_error& failure) {
        connection.reset();
        machinery.reset();
        ipc_logger().error("Failed to open the queues of the service: {}", failure.what());
        set_answer(std::unexpected(failure.code()));
    }
}

client_instance::client_instance() = default;
client_instance::~client_instance() = default;

connect_result client_instance::connect(const std::string& client_name, const service_id& service,
                                        object_function_table_root table,
                                        std::function<void(std::uint64_t)> on_notification,
                                        std::shared_ptr<executor_thread_pool_interface> executor) {
    instance.reset();
    try {
        if (!executor) executor = make_executor_thread_pool("clt-exec-", own_executor_threads);
        gds_helper::process_local<client_private_instance> attempt{std::make_shared<client_private_instance>(
            client_name, service, std::move(table), std::move(on_notification), std::move(executor))};
        connect_result result = attempt->connect();
        if (result) instance = std::move(attempt);
        return result;
    } catch (const std::system_error& failure) {
        return std::unexpected(failure.code()); // no thread or event to be had
    }
}

} // namespace ipc_rpc::client
