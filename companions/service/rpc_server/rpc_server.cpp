#include "rpc_server.h"

#include <gds_helper/log.h>
#include <gds_helper/process.h>
#include <impl/ipc_instance.h>
#include <platform.h>

#include <fmt/format.h>
#include <spdlog/logger.h>

#include <atomic>
#include <cstring>
#include <list>
#include <thread>

namespace service {

using namespace ipc_rpc;

namespace {

constexpr std::size_t threads_per_client = 4;
constexpr std::size_t most_clients = 64; // each costs threads and shared memory

constexpr auto& logger = gds_helper::log::main_logger;

// One client process, with the thread that sees it go.
class client final {
public:
    client(std::unique_ptr<platform::named_pipe_channel> connected, const rpc_server::options& options,
           object_function_table_root table)
        : channel(std::move(connected)), executor(make_executor_thread_pool("srv-exec-", threads_per_client)) {
        const platform::object_access access{options.group};
        const std::string base = platform::object_name("ipc_" + platform::unique_text());
        ipc_instance::create_params params;
        params.receive = std::make_unique<shared_memory_queue>(base + "_recv", access);
        params.send = std::make_unique<shared_memory_queue>(base + "_send", access);
        params.table = std::move(table);
        params.executor = executor;
        params.name = "srv-ipc-";
        params.peer = fmt::format("pid {}", channel->identity().process_id);
        params.at_service = true;
        // The first packet proves that the client has opened both queues.
        params.on_first_packet = [this] {
            connection->receive_side().release_names();
            connection->send_side().release_names();
        };
        params.on_bad_packet = [this] {
            logger().error("Client {} broke the packet format; it is dropped.", connection->get_peer_info());
            stop.set();
        };
        connection = std::make_shared<ipc_instance>(std::move(params));
        connection->start();

        service_announce_packet announce{
            make_header(rpc_packet_type::service_announce, 0, sizeof(service_announce_packet), 0), {}, {}};
        (base + "_send").copy(announce.to_client, announce_name_size - 1);
        (base + "_recv").copy(announce.from_client, announce_name_size - 1);
        if (const std::error_code error = channel->send(std::as_bytes(std::span{&announce, 1}))) {
            logger().warn("Client {} left before it was announced: {}", connection->get_peer_info(), error.message());
        }
        thread = std::thread{[this] { watch(); }};
    }

    ~client() {
        stop.set();
        if (thread.joinable()) thread.join();
    }

    [[nodiscard]] bool gone() const noexcept { return ended; }

private:
    void watch() {
        gds_helper::set_thread_name("srv-ipccon");
        channel->run(stop, [this](std::error_code error, std::span<const std::byte> packet) {
            if (error == std::errc::connection_aborted) {
                stop.set();
                return false;
            }
            if (error) {
                logger().error("Packet-receive, error-code: {}", error.message());
                stop.set();
                return false;
            }
            return receive_announce(packet);
        });
        // First the channel: a client that waits for an answer must not wait for functions that still run here.
        channel.reset();
        // Everything that the client held is released here, at once.
        connection->shutdown();
        executor.reset();
        connection.reset();
        logger().info("Client '{}' left.", name);
        ended = true;
    }

    bool receive_announce(std::span<const std::byte> packet) {
        const auto announce = read_packet<client_announce_packet>(packet);
        if (!announce || announce->header.type() != rpc_packet_type::client_announce) {
            logger().error("Client {} sent {} bytes that are no announcement; it is dropped.",
                           channel->identity().process_id, packet.size());
            stop.set();
            return false;
        }
        name = std::string{announce->client_name, strnlen(announce->client_name, announce_name_size)};
        logger().info("Client '{}' connected.", name);
        return true;
    }

    std::unique_ptr<platform::named_pipe_channel> channel;
    platform::stop_event stop;
    std::shared_ptr<executor_thread_pool_interface> executor;
    std::shared_ptr<ipc_instance> connection;
    std::string name; // the thread's
    std::atomic<bool> ended{false};
    std::thread thread;
};

} // namespace

class rpc_server::impl {
public:
    impl(options given, std::function<object_function_table_root()> table_maker,
         std::unique_ptr<platform::named_pipe_listener> opened)
        : chosen(std::move(given)),
          make_table(std::move(table_maker)),
          listener(std::move(opened)),
          thread([this] { accept_clients(); }) {}

    ~impl() {
        stop.set();
        thread.join();
    }

private:
    void accept_clients() {
        gds_helper::set_thread_name("srv-accept");
        std::list<client> clients;
        while (!stop.is_set()) {
            auto accepted = listener->accept(stop, [](const platform::peer_identity& who) {
                logger().warn("Process {} of user {} was turned away.", who.process_id, who.user_id);
            });
            clients.remove_if([](const client& entry) { return entry.gone(); });
            if (!accepted) {
                logger().error("Accepting clients failed: {}", accepted.error().message());
                std::this_thread::sleep_for(std::chrono::milliseconds{100});
                continue;
            }
            if (!*accepted) continue; // woken up
            if (clients.size() >= most_clients) {
                logger().error("Process {} was turned away: {} clients are connected.",
                               (*accepted)->identity().process_id, clients.size());
                continue;
            }
            try {
                clients.emplace_back(std::move(*accepted), chosen, make_table());
            } catch (const std::system_error& failure) {
                logger().error("No connection for a client: {}", failure.what());
            }
        }
    }

    const options chosen;
    const std::function<object_function_table_root()> make_table;
    const std::unique_ptr<platform::named_pipe_listener> listener;
    platform::stop_event stop;
    std::thread thread;
};

rpc_server::rpc_server(std::unique_ptr<impl> made) : implementation(std::move(made)) {}
rpc_server::~rpc_server() = default;

std::expected<std::unique_ptr<rpc_server>, std::error_code>
rpc_server::start(options chosen, std::function<object_function_table_root()> make_table) {
    auto listener = platform::named_pipe_listener::listen(chosen.pipe_name, {chosen.group});
    if (!listener) return std::unexpected(listener.error());
    return std::unique_ptr<rpc_server>{
        new rpc_server{std::make_unique<impl>(std::move(chosen), std::move(make_table), std::move(*listener))}};
}

std::function<void(std::uint64_t)> rpc_server::notifier_of(const std::shared_ptr<rpc_connection_client>& connection) {
    return [weak = std::weak_ptr{std::static_pointer_cast<ipc_instance>(connection)}](std::uint64_t number) {
        if (const auto live = weak.lock()) live->raise_notification(number);
    };
}

} // namespace service
