// The service as a process of its own that dies or stops, and what nobody can look at.
#include <ipc_rpc/catalogue.h>
#include <ipc_rpc/leftovers.h>
#include <ipc_rpc/rpc_client.h>
#include <rpc_server/rpc_server.h>
#include <support/temporary_folder.h>

#include <platform.h>

#include <gtest/gtest.h>

#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <condition_variable>
#include <filesystem>
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
        if (child > 0) {
            kill(child, SIGKILL);
            waitpid(child, nullptr, 0);
        }
        close(ready[0]);
        close(ready[1]);
    }

    void await(char expected) {
        char got = 0;
        ASSERT_EQ(read(ready[0], &got, 1), 1);
        ASSERT_EQ(got, expected);
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
        EXPECT_EQ(objects_of(child), 0) << "names in the system would outlive the service";
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

    const test_support::runtime_folder folder;
    int ready[2]{};
    pid_t child = -1;
};

} // namespace

TEST_F(Processes, TheClientIsToldOnceOfAKilledService) { told_once_of(SIGKILL); }
// It keeps its socket, and takes nothing and answers nothing.
TEST_F(Processes, TheClientIsToldOnceOfAStoppedService) { told_once_of(SIGSTOP); }

TEST(Leftovers, WhoseProcessCannotBeLookedAtAreLeftAlone) {
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
    const test_support::runtime_folder folder;
    const auto listener = platform::named_pipe_listener::listen("pipe", {});
    ASSERT_TRUE(listener);
    const platform::stop_event stop;
    const auto peer = platform::named_pipe_channel::attach_to_server("pipe", 2000ms, stop);
    const auto next_peer = platform::named_pipe_channel::attach_to_server("pipe", 2000ms, stop);
    ASSERT_TRUE(peer && next_peer);
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
    // One at a time: others have their turn, however fast he comes back.
    const auto next_accepted = (*listener)->accept([](const auto&, std::error_code) {});
    EXPECT_TRUE(next_accepted && *next_accepted);
}
