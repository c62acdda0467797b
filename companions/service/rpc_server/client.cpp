#include "client.h"

#include <gds_helper/log.h>
#include <gds_helper/printable.h>
#include <gds_helper/process.h>
#include <ipc_rpc/limits.h>

#include <fmt/format.h>
#include <spdlog/logger.h>

#include <cstring>

namespace service {

using namespace ipc_rpc;

namespace {

using gds_helper::log::main_logger;

} // namespace

unannounced::unannounced(std::unique_ptr<platform::named_pipe_channel> connected, const platform::object_access& access)
    : channel(std::move(connected)),
      who(channel->identity()),
      until(std::chrono::steady_clock::now() + limits::announce_time) {
    const std::string base = platform::object_name("ipc_" + platform::unique_text());
    receive = std::make_unique<shared_memory_queue>(base + "_recv", access);
    send = std::make_unique<shared_memory_queue>(base + "_send", access);
    service_announce_packet announce{
        make_header(rpc_packet_type::service_announce, 0, sizeof(service_announce_packet), 0), {}, {}};
    (base + "_send").copy(announce.to_client, announce_name_size - 1);
    (base + "_recv").copy(announce.from_client, announce_name_size - 1);
    // A client that has left is seen by its end.
    static_cast<void>(channel->send(std::as_bytes(std::span{&announce, 1})));
}

std::optional<std::string> unannounced::announced_name() {
    const auto packet = channel->receive();
    if (!packet) {
        main_logger().warn("Process {} left before it announced itself: {}", who.process_id, packet.error().message());
        return std::nullopt;
    }
    const auto announce = read_packet<client_announce_packet>(*packet);
    if (!announce || announce->header.type() != rpc_packet_type::client_announce) {
        main_logger().error("Process {} sent {} bytes that are no announcement; it is dropped.", who.process_id,
                            packet->size());
        return std::nullopt;
    }
    return std::string{announce->client_name, strnlen(announce->client_name, announce_name_size)};
}

client::client(unannounced from, const std::string& announced, object_function_table_root table,
               std::shared_ptr<byte_budget> user_bytes, const std::shared_ptr<gds_helper::log::line_budget>& user_lines,
               platform::stop_event& when_ended)
    : channel(std::move(from.channel)),
      who(from.who),
      name(gds_helper::printable(announced)),
      lines(std::make_shared<gds_helper::log::line_budget>(fmt::format("process {}", who.process_id),
                                                           limits::most_lines, user_lines)),
      ended(when_ended) {
    const gds_helper::log::counted_lines counted{lines}; // and those of its threads
    executor = make_executor_thread_pool("srv-exec-", limits::threads_per_client);
    ipc_instance::create_params params;
    params.receive = std::move(from.receive);
    params.send = std::move(from.send);
    params.table = std::move(table);
    params.executor = executor;
    params.name = "srv-ipc-";
    params.peer = fmt::format("pid {}", who.process_id);
    params.peer_user = who.user_id;
    params.at_service = true;
    params.drops_bad_packets = false;
    params.call_bytes = std::make_shared<byte_budget>(limits::most_call_bytes, std::move(user_bytes));
    // The first packet proves that the client has opened both queues.
    params.on_first_packet = [this] {
        connection->receive_side().release_names();
        connection->send_side()->release_names();
    };
    params.on_end = [this] { stop.set(); };
    connection = std::make_shared<ipc_instance>(std::move(params));
    connection->start();
    try {
        thread = std::thread{[this] { watch(); }};
    } catch (...) {
        // Its threads run already, and use this object: they end before it does.
        connection->shutdown();
        executor.reset();
        throw;
    }
    main_logger().info("Client '{}' connected.", name);
}

client::~client() {
    stop.set();
    thread.join();
}

void client::watch() {
    gds_helper::set_thread_name("srv-ipccon");
    std::optional<gds_helper::log::counted_lines> counted{lines};
    try {
        see_end();
    } catch (const std::exception& failure) {
        main_logger().critical("Client '{}': {}", name, failure.what());
    }
    // First the channel: a client that waits for an answer must not wait for functions that still run here.
    channel.reset();
    // Everything that the client held is released here, at once.
    connection->shutdown();
    executor.reset();
    connection.reset();
    // Said also when its own lines are used up, and before it how many more there were.
    lines->whole->left_out += lines->left_out.exchange(0);
    counted.reset();
    const gds_helper::log::counted_lines of_user{lines->whole};
    main_logger().info("Client '{}' left.", name);
    has_gone = true;
    ended.set();
}

void client::see_end() {
    bool has_left = false;
    const auto on_packet = [&](std::error_code error, std::span<const std::byte> packet) {
        has_left = error == std::errc::connection_aborted;
        if (!error) {
            main_logger().error("Client '{}' sent {} bytes where nothing is due; it is dropped.", name, packet.size());
        } else if (!has_left) {
            main_logger().error("Packet-receive, error-code: {}", error.message());
        }
        stop.set();
        return false;
    };
    channel->run(stop, on_packet);
    if (connection->is_open() || has_left) return;
    // One that leaves closes the channel first and its queues right behind: their end may be seen before.
    const auto packet = channel->receive();
    if (!packet && packet.error() == std::errc::connection_aborted) return;
    main_logger().warn("Client '{}' ended its queues or broke the packet format.", name);
}

} // namespace service
