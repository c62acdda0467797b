// Client and service as processes of their own: one dies, is killed, or forks.
#include <ipc_rpc/catalogue.h>
#include <ipc_rpc/leftovers.h>
#include <ipc_rpc/rpc_client.h>

#include "../../../../companions/service/rpc_server/rpc_server.h"

#include <platform.h>

#include <gtest/gtest.h>

#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <condition_variable>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <thread>

using namespace ipc_rpc;
using namespace std::chrono_literals;

namespace {

using wait_for_ever = remote_function<"wait_for_ever", void()>;
using ping = remote_function<"ping", std::uint64_t()>;

template <class T>
using answer = std::expected<T, std::error_code>;

std::unique_ptr<service::rpc_server> serve(int blocked_pipe) {
    auto server = service::rpc_server::start({"pipe", std::nullopt}, [blocked_pipe] {
        object_function_table_root table;
        EXPECT_FALSE(ping::serve(table, [](rpc_call_context&) -> answer<std::uint64_t> { return 1U; }));
        EXPECT_FALSE(wait_for_ever::serve(table, [blocked_pipe](rpc_call_context&) -> answer<void> {
            if (write(blocked_pipe, "b", 1) != 1) std::abort();
            for (;;) pause();
        }));
        return table;
    });
    return server ? std::move(*server) : nullptr;
}

int threads_of_this_process() {
    int count = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator{"/proc/self/task"}) ++count;
    return count;
}
int descriptors_of_this_process() {
    int count = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator{"/proc/self/fd"}) ++count;
    return count;
}
int mappings_of_queues() {
    std::ifstream maps{"/proc/self/maps"};
    int count = 0;
    for (std::string line; std::getline(maps, line);) count += line.find("/dev/shm/") != std::string::npos ? 1 : 0;
    return count;
}
int objects_of(pid_t process) {
    int count = 0;
    const std::string mark = "ipc_" + std::to_string(process) + "_";
    for (const auto& entry : std::filesystem::directory_iterator{"/dev/shm"}) {
        count += entry.path().filename().string().find(mark) != std::string::npos ? 1 : 0;
    }
    return count;
}

// The service runs in a child, made before this process has any other thread.
class Processes : public testing::Test {
protected:
    void SetUp() override {
        char name[] = "/tmp/orv-rpc-XXXXXX";
        folder = mkdtemp(name);
        setenv("ORV_GENTL_RUNTIME_DIR", folder.c_str(), 1);
        ASSERT_EQ(pipe(ready), 0);
        child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            const auto server = serve(ready[1]);
            if (!server || write(ready[1], "r", 1) != 1) _exit(1);
            for (;;) pause();
        }
        await('r');
    }
    void TearDown() override {
        end_service();
        close(ready[0]);
        close(ready[1]);
        std::filesystem::remove_all(folder);
    }

    void await(char expected) {
        char got = 0;
        ASSERT_EQ(read(ready[0], &got, 1), 1);
        ASSERT_EQ(got, expected);
    }
    void end_service() {
        if (child <= 0) return;
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
        child = -1;
    }
    static client_object_handle connect(client::client_instance& instance) {
        const auto connected = instance.connect("test", {"pipe", "test"}, {}, {});
        EXPECT_TRUE(connected) << connected.error().message();
        return connected ? client_object_handle::global(*connected) : client_object_handle{};
    }

    void told_once_of(int signal) {
        std::mutex mutex;
        std::condition_variable changed;
        int told = 0;
        auto instance = std::make_unique<client::client_instance>();
        const auto connected = instance->connect("test", {"pipe", "test"}, {}, [&](std::uint64_t number) {
            const std::lock_guard guard{mutex};
            told += number == client::connection_lost ? 1 : 100;
            changed.notify_all();
        });
        ASSERT_TRUE(connected);
        const auto global = client_object_handle::global(*connected);
        std::thread waiter{[&] { EXPECT_EQ(global.invoke<wait_for_ever>().error(), status::connection_closed); }};
        await('b');
        kill(child, signal);
        siginfo_t ended{}; // until then it may still answer
        ASSERT_EQ(waitid(P_PID, static_cast<id_t>(child), &ended, WEXITED | WSTOPPED | WNOWAIT), 0);
        // More calls than there are blocks: some wait for room, some for an answer.
        std::vector<std::thread> callers;
        for (int i = 0; i < 20; ++i) {
            callers.emplace_back([&] { EXPECT_EQ(global.invoke<ping>().error(), status::connection_closed); });
        }
        for (auto& caller : callers) caller.join();
        waiter.join();
        {
            std::unique_lock lock{mutex};
            EXPECT_TRUE(changed.wait_for(lock, 20s, [&] { return told != 0; }));
        }
        instance.reset(); // an end of one's own is no loss
        EXPECT_EQ(told, 1);
    }

    std::string folder;
    int ready[2]{};
    pid_t child = -1;
};

} // namespace

TEST_F(Processes, AKilledServiceFailsEveryWaiterAndLeavesNothing) {
    const pid_t service = child;
    client::client_instance instance;
    const auto global = connect(instance);
    std::vector<std::thread> waiters;
    for (int i = 0; i < 4; ++i) {
        waiters.emplace_back(
            [&] { EXPECT_EQ(global.invoke<wait_for_ever>().error(), make_error_code(status::connection_closed)); });
        await('b');
    }
    // All four of the service's threads are taken: these wait behind them.
    for (int i = 0; i < 4; ++i) {
        waiters.emplace_back(
            [&] { EXPECT_EQ(global.invoke<ping>().error(), make_error_code(status::connection_closed)); });
    }
    end_service();
    for (auto& waiter : waiters) waiter.join();
    EXPECT_EQ(global.invoke<ping>().error(), make_error_code(status::connection_closed));
    EXPECT_EQ(objects_of(service), 0) << "names in the system outlived the service";
}

TEST_F(Processes, TheClientIsToldOnceOfAKilledService) { told_once_of(SIGKILL); }
// It keeps its socket, and takes nothing and answers nothing.
TEST_F(Processes, TheClientIsToldOnceOfAStoppedService) { told_once_of(SIGSTOP); }

TEST_F(Processes, ANewServiceTakesOverWhatAKilledOneLeft) {
    end_service();
    {
        client::client_instance instance;
        const auto refused = instance.connect("test", {"pipe", "test"}, {}, {});
        ASSERT_FALSE(refused);
        EXPECT_EQ(refused.error(), std::errc::connection_refused);
    }
    const auto server = serve(ready[1]);
    ASSERT_TRUE(server);
    client::client_instance instance;
    EXPECT_EQ(connect(instance).invoke<ping>(), 1U);
}

TEST_F(Processes, ConnectionsLeaveNoThreadDescriptorOrMapping) {
    {
        // The first of all may start what a sanitizer keeps for itself.
        client::client_instance first;
        EXPECT_EQ(connect(first).invoke<ping>(), 1U);
    }
    const int threads = threads_of_this_process();
    const int descriptors = descriptors_of_this_process();
    std::vector<std::shared_ptr<rpc_connection_client>> kept;
    for (int i = 0; i < 20; ++i) {
        client::client_instance instance;
        const auto connected = instance.connect("test", {"pipe", "test"}, {}, {});
        ASSERT_TRUE(connected);
        EXPECT_EQ(client_object_handle::global(*connected).invoke<ping>(), 1U);
        if (i == 0) kept.push_back(*connected); // an owner that is late keeps no thread
    }
    EXPECT_EQ(threads_of_this_process(), threads);
    EXPECT_EQ(descriptors_of_this_process(), descriptors);
    kept.clear();
    EXPECT_EQ(mappings_of_queues(), 0);
}

TEST_F(Processes, AForkedChildNeitherHangsNorDisturbsItsParent) {
    auto instance = std::make_unique<client::client_instance>();
    auto global = connect(*instance);
    std::thread waiter{
        [&] { EXPECT_EQ(global.invoke<wait_for_ever>().error(), make_error_code(status::connection_closed)); }};
    await('b');
    const pid_t forked = fork();
    ASSERT_GE(forked, 0);
    if (forked == 0) {
        alarm(20); // a hang is a failure, not a wait for ever
        const bool refused = global.invoke<ping>().error() == make_error_code(status::connection_closed);
        global.reset();
        instance.reset();
        _exit(refused ? 0 : 2);
    }
    int outcome = 0;
    ASSERT_EQ(waitpid(forked, &outcome, 0), forked);
    EXPECT_TRUE(WIFEXITED(outcome) && WEXITSTATUS(outcome) == 0) << outcome;
    EXPECT_EQ(global.invoke<ping>(), 1U) << "the parent's connection lives on";
    instance.reset();
    waiter.join();
}

TEST_F(Processes, AKilledClientIsForgottenWhileAnotherIsServed) {
    int told[2];
    ASSERT_EQ(pipe(told), 0);
    const pid_t other = fork();
    if (other == 0) {
        client::client_instance own;
        const bool connected = connect(own).invoke<ping>() == 1U;
        if (write(told[1], connected ? "c" : "x", 1) != 1) _exit(1);
        for (;;) pause();
    }
    close(told[1]);
    client::client_instance instance;
    const auto global = connect(instance);
    char got = 0;
    ASSERT_EQ(read(told[0], &got, 1), 1);
    EXPECT_EQ(got, 'c');
    kill(other, SIGKILL);
    waitpid(other, nullptr, 0);
    for (int i = 0; i < 100; ++i) EXPECT_EQ(global.invoke<ping>(), 1U);
    close(told[0]);
}

TEST(Leftovers, WhoseProcessCannotBeLookedAtAreLeftAlone) {
    if (!std::string{ORV_SANITIZED}.empty()) GTEST_SKIP() << "a sanitizer opens pipes to look at memory";
    const std::string name = ipc_rpc::platform::object_name("settings-" + ipc_rpc::platform::unique_text());
    const auto mapping = ipc_rpc::platform::shared_mapping::create(name, 4096, {});
    const pid_t child = fork();
    if (child == 0) {
        // One descriptor is left: enough to list the names, not to read about a process.
        const int next = dup(STDERR_FILENO);
        close(next);
        const rlimit few{static_cast<rlim_t>(next) + 1, static_cast<rlim_t>(next) + 1};
        if (setrlimit(RLIMIT_NOFILE, &few) != 0) _exit(2);
        for (const std::string& found : find_leftovers()) {
            if ("/" + found == name) _exit(1);
        }
        _exit(0);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
}

// Whoever inherits a client's socket would keep its cameras, were its process not watched.
TEST(Listener, TurnsAwayWhomItCannotWatch) {
    char name[] = "/tmp/orv-rpc-XXXXXX";
    const std::string folder = mkdtemp(name);
    setenv("ORV_GENTL_RUNTIME_DIR", folder.c_str(), 1);
    const auto listener = platform::named_pipe_listener::listen("pipe", {});
    ASSERT_TRUE(listener);
    const platform::stop_event stop;
    const auto peer = platform::named_pipe_channel::attach_to_server("pipe", 2000ms, stop);
    ASSERT_TRUE(peer);
    rlimit before{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    const int next = dup(STDERR_FILENO);
    close(next);
    // One descriptor is left: enough for the connection, not to watch.
    const rlimit few{static_cast<rlim_t>(next) + 1, before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
    std::error_code refused;
    const auto accepted = (*listener)->accept([&](const auto&, std::error_code why) { refused = why; });
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
    EXPECT_FALSE(accepted && *accepted);
    EXPECT_EQ(refused, std::errc::too_many_files_open);
    EXPECT_EQ((*peer)->receive().error(), std::errc::connection_aborted);
    std::filesystem::remove_all(folder);
}
