// usage: bench_rpc [calls]
// Round trips between a client and a service process over the real socket and shared memory, beside the floor: a bare
// pair of named-semaphore hand-overs between the same two processes. Prints a table of microseconds and MiB/s.
#include <ipc_rpc/catalogue.h>
#include <ipc_rpc/rpc_client.h>
#include <platform.h>
#include <rpc_server/rpc_server.h>
#include <support/temporary_folder.h>

#include <fmt/format.h>

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <vector>

namespace {

using namespace ipc_rpc;
using clock = std::chrono::steady_clock;

using read_register = remote_function<"read_reg", std::uint32_t(std::uint64_t)>;
using echo = remote_function<"echo", byte_vector(byte_vector)>;

constexpr int warm_up = 1000;

[[noreturn]] void fail(const char* what) {
    fmt::print(stderr, "bench_rpc: {}\n", what);
    std::exit(1);
}

std::unique_ptr<service::rpc_server> serve() {
    auto server = service::rpc_server::start({"bench", std::nullopt}, [] {
        object_function_table_root table;
        if (read_register::serve(
                table,
                [](rpc_call_context&, std::uint64_t address) -> std::expected<std::uint32_t, std::error_code> {
                    return static_cast<std::uint32_t>(address * 3);
                }) ||
            echo::serve(table, [](rpc_call_context&, byte_vector bytes) -> std::expected<byte_vector, std::error_code> {
                return bytes;
            })) {
            fail("a function is there twice");
        }
        return table;
    });
    if (!server) fail("no service");
    return std::move(*server);
}

// Runs `call(i)` and prints median and 99th percentile in microseconds.
template <class Call>
void report(const char* name, int calls, std::size_t bytes_each_way, Call call) {
    for (int i = 0; i < std::min(calls, warm_up); ++i) call(i);
    std::vector<double> times(static_cast<std::size_t>(calls));
    const auto start = clock::now();
    for (int i = 0; i < calls; ++i) {
        const auto before = clock::now();
        call(i);
        times[static_cast<std::size_t>(i)] = std::chrono::duration<double, std::micro>(clock::now() - before).count();
    }
    const double seconds = std::chrono::duration<double>(clock::now() - start).count();
    std::ranges::sort(times);
    fmt::print("{:<28} {:>10.1f} {:>10.1f}", name, times[times.size() / 2], times[times.size() * 99 / 100]);
    if (bytes_each_way != 0) {
        fmt::print(" {:>10.0f}", 2.0 * static_cast<double>(bytes_each_way) * calls / seconds / (1 << 20));
    }
    fmt::print("\n");
}

void wait(platform::named_semaphore& semaphore) {
    while (semaphore.wait(std::chrono::milliseconds{1000}) == platform::named_semaphore::outcome::nothing) {
    }
}

} // namespace

int main(int argc, char** argv) {
    const int calls = argc > 1 ? std::max(100, std::atoi(argv[1])) : 20000;
    const test_support::runtime_folder folder;

    const std::string base = platform::object_name("bench_" + platform::unique_text());
    auto there = platform::named_semaphore::create(base + "there", {});
    auto back = platform::named_semaphore::create(base + "back", {});
    int ready[2];
    if (pipe(ready) != 0) fail("no pipe");
    const pid_t child = fork();
    if (child == 0) {
        const int floor_calls = std::min(calls, warm_up) + calls;
        const auto server = serve();
        if (write(ready[1], "r", 1) != 1) _exit(1);
        for (int i = 0; i < floor_calls; ++i) {
            wait(there);
            back.post(1);
        }
        for (;;) pause();
    }
    char mark = 0;
    if (read(ready[0], &mark, 1) != 1) fail("the service process did not start");

    {
        client::client_instance instance;
        const auto connected = instance.connect("bench", {"bench", "bench"}, {}, {});
        if (!connected) fail("no connection");
        const auto global = client_object_handle::global(*connected);

        fmt::print("{:<28} {:>10} {:>10} {:>10}\n", "round trip", "median us", "99% us", "MiB/s");
        report("semaphores alone", calls, 0, [&](int) {
            there.post(1);
            wait(back);
        });
        report("call, one register", calls, 0, [&](int i) {
            const auto address = static_cast<std::uint64_t>(i);
            if (global.invoke<read_register>(address) != static_cast<std::uint32_t>(address * 3)) fail("wrong answer");
        });
        for (const std::size_t size : {std::size_t{512}, std::size_t{65536}, std::size_t{4} << 20}) {
            byte_vector bytes(size);
            for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<std::byte>(i * 31);
            const auto text = fmt::format("call, {} KiB each way", static_cast<double>(size) / 1024);
            report(text.c_str(),
                   static_cast<int>(std::max<std::size_t>(100, static_cast<std::size_t>(calls) * 512 / size)), size,
                   [&](int i) {
                       bytes[0] = static_cast<std::byte>(i);
                       if (global.invoke<echo>(bytes) != bytes) fail("wrong answer");
                   });
        }
    }
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
}
