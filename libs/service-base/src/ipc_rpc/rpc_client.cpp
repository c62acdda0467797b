// The thread "clt-ipccon" holds the control channel open for the whole connection. After the announcements nothing
// travels there: its only job is to break when the service goes.
#include "impl/ipc_instance.h"
#include "platform.h"

#include <gds_helper/process.h>
#include <ipc_rpc/rpc_client.h>

#include <spdlog/logger.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <future>
#include <mutex>
#include <thread>

namespace ipc_rpc::client {

namespace {

using namespace std::chrono_literals;
using connect_result = std::expected<std::shared_ptr<rpc_connection_client>, std::error_code>;

constexpr auto attach_time = 2000ms;
constexpr auto connect_time = 1s;
constexpr std::size_t executor_threads = 4;
// A service that shows no sign of life this often in a row has stopped for good. By then every camera has given its
// control away, whose heartbeat runs out after three seconds as a rule. Counted in rounds and not in time: a process
// that was suspended itself has then missed one.
constexpr auto watch_interval = 1s;
constexpr int silent_rounds = 5;
constexpr auto telling_again = 10ms;

struct init_data {
    std::string client_name;
    service_id service;
    object_function_table_root table;
    std::function<void(std::uint64_t)> on_notification;
    std::shared_ptr<executor_thread_pool_interface> executor;
    std::promise<connect_result> result;
    bool answered = false; // the promise takes one value

    void answer(connect_result value) {
        if (std::exchange(answered, true)) return;
        result.set_value(std::move(value));
    }
};

std::string name_in(const char (&field)[announce_name_size]) { return {field, strnlen(field, announce_name_size)}; }

} // namespace

class client_private_instance final {
public:
    client_private_instance() : stop(std::make_shared<platform::stop_event>()) {}
    ~client_private_instance() {
        ended_here = true;
        stop->set();
        if (thread.joinable()) thread.join();
    }

    [[nodiscard]] connect_result connect(std::shared_ptr<init_data> data) {
        auto result = data->result.get_future();
        thread = std::thread{[this, data = std::move(data)] { comm_thread_main(*data); }};
        if (result.wait_for(connect_time) != std::future_status::ready) {
            return std::unexpected(std::make_error_code(std::errc::timed_out));
        }
        return result.get();
    }

private:
    void comm_thread_main(init_data& data) {
        try {
            hold_channel(data);
        } catch (const std::exception& failure) {
            ipc_logger().critical("The connection to the service ended: {}", failure.what());
            data.answer(std::unexpected(make_error_code(status::resource_exhausted)));
        }
    }

    void hold_channel(init_data& data) {
        gds_helper::set_thread_name("clt-ipccon");
        auto attached = platform::named_pipe_channel::attach_to_server(data.service.pipe_name, attach_time, *stop);
        if (!attached) {
            ipc_logger().error("Failed to connect to NamedPipe-server at id={}. Error: {}", data.service.pipe_name,
                               attached.error().message());
            return data.answer(std::unexpected(attached.error()));
        }
        platform::named_pipe_channel& channel = **attached;
        std::shared_ptr<ipc_instance> connection;
        int silent = 0;
        while (!stop->is_set() && silent < silent_rounds) {
            try {
                channel.run(
                    *stop,
                    [&](std::error_code error, std::span<const std::byte> packet) {
                        return receive_tcp_packet(data, channel, connection, error, packet);
                    },
                    watch_interval);
            } catch (const std::bad_alloc&) {
                data.answer(std::unexpected(make_error_code(status::resource_exhausted)));
                break;
            }
            if (connection) silent = connection->send_side()->peer_shows_life() ? 0 : silent + 1;
        }
        if (silent == silent_rounds) ipc_logger().error("The service does not answer; the connection is given up.");
        data.answer(std::unexpected(make_error_code(status::connection_closed)));
        attached->reset();
        if (!connection) return;
        connection->shutdown();
        // The calls that waited have ended: now whoever waits for something else is told.
        // No later number makes up for this one, so it is told when there is memory again. Devices are lost once.
        while (!ended_here && data.on_notification) {
            try {
                return data.on_notification(connection_lost);
            } catch (const std::bad_alloc&) {
                std::this_thread::sleep_for(telling_again);
            }
        }
    }

    bool receive_tcp_packet(init_data& data, platform::named_pipe_channel& channel,
                            std::shared_ptr<ipc_instance>& connection, std::error_code error,
                            std::span<const std::byte> packet) {
        if (error == std::errc::connection_aborted) {
            stop->set();
            return false;
        }
        if (error) {
            ipc_logger().error("Packet-receive, error-code: {}", error.message());
            return true;
        }
        const auto header = read_packet<rpc_packet_header>(packet);
        if (!header) {
            ipc_logger().error("Packet too small: {}", packet.size());
        } else if (header->packet_size > packet.size()) {
            ipc_logger().error("Invalid packet size of {} specified for packet of {}B", header->packet_size,
                               packet.size());
        } else if (header->type() != rpc_packet_type::service_announce) {
            ipc_logger().error("Invalid packet received on tcp channel.");
        } else if (header->packet_size < sizeof(service_announce_packet)) {
            ipc_logger().error("Packet too small: {}", header->packet_size);
        } else {
            parse_service_announce(data, channel, connection, *read_packet<service_announce_packet>(packet));
        }
        return true;
    }

    void parse_service_announce(init_data& data, platform::named_pipe_channel& channel,
                                std::shared_ptr<ipc_instance>& connection, const service_announce_packet& packet) {
        if (connection) return; // one connection for the life of a channel
        const std::string from_client = name_in(packet.from_client);
        const std::string to_client = name_in(packet.to_client);
        ipc_logger().trace("Service shared memory object name base: from_client={}, to_client={}", from_client,
                           to_client);
        client_announce_packet announce{{client_announce_first_word, sizeof(client_announce_packet), 0}, {}};
        data.client_name.copy(announce.client_name, announce_name_size - 1);
        static_cast<void>(channel.send(std::as_bytes(std::span{&announce, 1})));
        try {
            ipc_instance::create_params params;
            params.send = std::make_unique<shared_memory_queue>(from_client);
            params.receive = std::make_unique<shared_memory_queue>(to_client);
            params.table = std::move(data.table);
            params.executor = data.executor;
            params.name = "clt-ipc-";
            params.on_notification = data.on_notification;
            // Nothing would come over it any more, and nobody be told.
            params.on_end = [stop_all = stop] { stop_all->set(); };
            connection = std::make_shared<ipc_instance>(std::move(params));
            connection->start();
        } catch (const std::system_error& failure) {
            connection.reset();
            return data.answer(std::unexpected(failure.code()));
        } catch (const std::bad_alloc&) {
            connection.reset();
            return data.answer(std::unexpected(make_error_code(status::resource_exhausted)));
        }
        data.answer(connection);
    }

    // Shared with this thread, the owner and the connection's receive thread; an event, because a poll waits on it.
    std::shared_ptr<platform::stop_event> stop;
    std::atomic<bool> ended_here{false}; // by the owner, not by the service
    std::thread thread;
};

client_instance::client_instance() = default;
client_instance::~client_instance() = default;

std::expected<std::shared_ptr<rpc_connection_client>, std::error_code>
client_instance::connect(const std::string& client_name, const service_id& service, object_function_table_root table,
                         std::function<void(std::uint64_t)> on_notification,
                         std::shared_ptr<executor_thread_pool_interface> executor) {
    instance.reset();
    try {
        auto data = std::make_shared<init_data>();
        data->client_name = client_name;
        data->service = service;
        data->table = std::move(table);
        data->on_notification = std::move(on_notification);
        data->executor = executor ? std::move(executor) : make_executor_thread_pool("clt-exec-", executor_threads);
        auto created = std::make_shared<client_private_instance>();
        auto result = created->connect(std::move(data));
        if (result) instance = gds_helper::process_local<client_private_instance>{std::move(created)};
        return result;
    } catch (const std::system_error& failure) {
        return std::unexpected(failure.code()); // no thread or descriptor to be had
    } catch (const std::bad_alloc&) {
        return std::unexpected(make_error_code(status::resource_exhausted));
    }
}

} // namespace ipc_rpc::client
