#include "rpc_server.h"

#include "client.h"

#include <gds_helper/line_budget.h>
#include <gds_helper/log.h>
#include <gds_helper/process.h>
#include <ipc_rpc/leftovers.h>
#include <ipc_rpc/limits.h>

#include <fmt/format.h>
#include <spdlog/logger.h>

#include <algorithm>
#include <list>
#include <map>
#include <thread>

namespace service {

using namespace ipc_rpc;

namespace {

using gds_helper::log::main_logger;

} // namespace

// One thread accepts, and waits for the announcements of all who have not made theirs.
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
        // All at once: each may take its time.
        for (client& entry : clients) entry.end();
        clients.clear();
    }

private:
    using clock = std::chrono::steady_clock;

    void accept_clients() {
        gds_helper::set_thread_name("srv-accept");
        const gds_helper::log::counted_lines counted{
            std::make_shared<gds_helper::log::line_budget>("those who connect", limits::most_lines_at_socket)};
        while (!stop.is_set()) {
            try {
                wait_once();
            } catch (const std::exception& failure) {
                // No memory, threads or shared memory: not now. Whoever connects is not answered meanwhile.
                main_logger().critical("Serving new clients failed: {}", failure.what());
                std::this_thread::sleep_for(std::chrono::milliseconds{100});
            }
        }
        waiting.clear();
    }

    void wait_once() {
        std::vector<std::intptr_t> handles{stop.native(), client_ended.native(), listener->native()};
        std::optional<std::chrono::milliseconds> time;
        for (const unannounced& entry : waiting) {
            handles.push_back(entry.native());
            // The first in the list has waited longest.
            if (!time) time = std::chrono::ceil<std::chrono::milliseconds>(entry.deadline() - clock::now());
        }
        const std::vector<bool> ready = platform::wait_readable(handles, time);
        client_ended.reset();
        clients.remove_if([](const client& entry) { return entry.gone(); });

        std::size_t index = 3;
        for (auto entry = waiting.begin(); entry != waiting.end(); ++index) {
            const auto here = entry++;
            if (ready[index]) {
                // Out of the list before anything can fail: it is not looked at twice.
                std::list<unannounced> one;
                one.splice(one.begin(), waiting, here);
                hear(one.front());
            } else if (clock::now() >= here->deadline()) {
                main_logger().warn("Process {} did not announce itself; it is dropped.", here->identity().process_id);
                waiting.erase(here);
            }
        }
        if (ready[2]) accept_one();
    }

    void hear(unannounced& entry) {
        if (auto name = entry.announced_name()) {
            const uint32_t user = entry.identity().user_id;
            clients.emplace_back(std::move(entry), std::move(*name), make_table(), bytes_of(user), lines_of(user),
                                 client_ended);
        }
    }

    void accept_one() {
        auto accepted = listener->accept([](const platform::peer_identity& who, std::error_code why) {
            main_logger().warn("Process {} of user {} was turned away: {}", who.process_id, who.user_id, why.message());
        });
        if (!accepted) {
            main_logger().error("Accepting clients failed: {}", accepted.error().message());
            std::this_thread::sleep_for(std::chrono::milliseconds{100});
            return;
        }
        if (!*accepted) return; // it has left, or was turned away
        const platform::peer_identity who = (*accepted)->identity();
        const auto is_theirs = [&](const auto& entry) { return entry.identity().user_id == who.user_id; };
        const std::size_t all = clients.size() + waiting.size();
        const auto theirs = static_cast<std::size_t>(std::ranges::count_if(clients, is_theirs) +
                                                     std::ranges::count_if(waiting, is_theirs));
        if (all >= limits::most_clients || theirs >= limits::most_clients_of_user) {
            main_logger().error("Process {} of user {} was turned away: {} clients are connected, {} of this user.",
                                who.process_id, who.user_id, all, theirs);
            return;
        }
        waiting.emplace_back(std::move(*accepted), platform::object_access{chosen.group, who.user_id});
    }

    // Shared by all clients of one user, and gone with the last of them.
    std::shared_ptr<byte_budget> bytes_of(uint32_t user) {
        std::erase_if(budgets, [](const auto& entry) { return entry.second.expired(); });
        auto found = budgets[user].lock();
        if (!found) budgets[user] = found = std::make_shared<byte_budget>(limits::most_call_bytes_of_user);
        return found;
    }

    // Kept: who comes and goes all the time must not begin anew each time.
    const std::shared_ptr<gds_helper::log::line_budget>& lines_of(uint32_t user) {
        auto& found = lines[user];
        if (!found)
            found = std::make_shared<gds_helper::log::line_budget>(fmt::format("user {}", user),
                                                                   limits::most_lines_of_user);
        return found;
    }

    const options chosen;
    const std::function<object_function_table_root()> make_table;
    const std::unique_ptr<platform::named_pipe_listener> listener;
    platform::stop_event stop;
    platform::stop_event client_ended;
    // The thread's, until it has ended:
    std::list<unannounced> waiting;
    std::list<client> clients;
    std::map<uint32_t, std::weak_ptr<byte_budget>> budgets;
    std::map<uint32_t, std::shared_ptr<gds_helper::log::line_budget>> lines;
    std::thread thread;
};

rpc_server::rpc_server(std::unique_ptr<impl> made) : implementation(std::move(made)) {}
rpc_server::~rpc_server() = default;

std::expected<std::unique_ptr<rpc_server>, std::error_code>
rpc_server::start(options chosen, std::function<object_function_table_root()> make_table) {
    auto listener = platform::named_pipe_listener::listen(chosen.pipe_name, {chosen.group, {}});
    if (!listener) return std::unexpected(listener.error());
    if (const std::size_t removed = remove_leftovers(); removed != 0) {
        main_logger().info("{} names of services that were killed have been removed from shared memory.", removed);
    }
    return std::unique_ptr<rpc_server>{
        new rpc_server{std::make_unique<impl>(std::move(chosen), std::move(make_table), std::move(*listener))}};
}

std::function<void(uint64_t)> rpc_server::notifier_of(const std::shared_ptr<rpc_connection_client>& connection) {
    return [weak = std::weak_ptr{std::static_pointer_cast<ipc_instance>(connection)->send_side()}](uint64_t number) {
        if (const auto live = weak.lock()) live->raise_notification(number);
    };
}

} // namespace service
