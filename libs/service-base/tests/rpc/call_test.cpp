// Calls between a real client and the real serving end, over real sockets and shared memory.
#include <impl/ipc_call_base.h>
#include <impl/shared_memory_queue.h>
#include <platform.h>

#include <ipc_rpc/catalogue.h>
#include <ipc_rpc/rpc_client.h>

#include "../../../../companions/service/rpc_server/rpc_server.h"

#include <gds_shared/gigecam_error.h>

#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <thread>

using namespace ipc_rpc;
using namespace std::chrono_literals;

namespace {

using echo = remote_function<"echo", byte_vector(byte_vector)>;
using add = remote_function<"add", std::uint64_t(std::uint64_t, std::uint32_t)>;
using refuse = remote_function<"refuse", void()>;
using make_object = remote_function<"make_object", client_object_handle()>;
using block_call = remote_function<"block_call", void()>;
using touch = remote_function<"touch", std::uint32_t()>;
using notify_me = remote_function<"notify_me", void(std::uint64_t)>;
using missing = remote_function<"missing", void()>;

struct object {
    explicit object(std::atomic<int>& count) : alive(count) { ++alive; }
    ~object() { --alive; }
    std::atomic<int>& alive;
};

template <class T>
using answer = std::expected<T, std::error_code>;

class Call : public testing::Test {
protected:
    Call() {
        char name[] = "/tmp/orv-rpc-XXXXXX";
        folder = mkdtemp(name);
        setenv("ORV_GENTL_RUNTIME_DIR", folder.c_str(), 1);
        register_error_category(gds_shared::gigecam_error_category(), category_id_gigecam);
        start_server();
    }
    ~Call() override {
        release();
        server.reset();
        std::filesystem::remove_all(folder);
    }

    void start_server() {
        auto started = service::rpc_server::start({"pipe", std::nullopt}, [this] { return make_table(); });
        ASSERT_TRUE(started) << started.error().message();
        server = std::move(*started);
    }

    object_function_table_root make_table() {
        object_function_table_root table;
        EXPECT_FALSE(
            echo::serve(table, [](rpc_call_context&, byte_vector bytes) -> answer<byte_vector> { return bytes; }));
        EXPECT_FALSE(add::serve(
            table, [](rpc_call_context&, std::uint64_t a, std::uint32_t b) -> answer<std::uint64_t> { return a + b; }));
        EXPECT_FALSE(refuse::serve(table, [](rpc_call_context&) -> answer<void> {
            return std::unexpected(make_error_code(gds_shared::gigecam_errc::busy));
        }));
        EXPECT_FALSE(block_call::serve(table, [this](rpc_call_context&) -> answer<void> {
            std::unique_lock held{mutex};
            ++blocked;
            changed.notify_all();
            changed.wait(held, [this] { return released; });
            return {};
        }));
        EXPECT_FALSE(notify_me::serve(table, [](rpc_call_context& context, std::uint64_t number) -> answer<void> {
            service::rpc_server::notifier_of(context.connection)(number);
            return {};
        }));
        EXPECT_FALSE(make_object::serve(table, [this](rpc_call_context& context) -> answer<registered_object> {
            const auto handle =
                context.connection->register_object(object_entry::owning("thing", std::make_shared<object>(alive)));
            return registered_object{*handle};
        }));
        EXPECT_FALSE(touch::serve<object>(table, "thing", [](object& self, rpc_call_context&) -> answer<std::uint32_t> {
            return static_cast<std::uint32_t>(self.alive.load());
        }));
        return table;
    }

    void release() {
        const std::lock_guard guard{mutex};
        released = true;
        changed.notify_all();
    }
    void wait_until_blocked() {
        std::unique_lock held{mutex};
        changed.wait(held, [this] { return blocked > 0; });
    }
    client_object_handle connect(client::client_instance& instance, std::function<void(std::uint64_t)> notified = {}) {
        auto connected = instance.connect("test", {"pipe", "test"}, {}, std::move(notified));
        EXPECT_TRUE(connected) << connected.error().message();
        return connected ? client_object_handle::global(*connected) : client_object_handle{};
    }

    std::string folder;
    std::mutex mutex;
    std::condition_variable changed;
    int blocked = 0;
    bool released = false;
    std::atomic<int> alive{0};
    std::unique_ptr<service::rpc_server> server;
};

} // namespace

TEST_F(Call, BlocksOfEverySizeComeBackWhole) {
    client::client_instance instance;
    const auto global = connect(instance);
    for (const std::size_t size : {0, 1, 3995, 3996, 3997, 4068, 4069, 9000, 1000000}) {
        byte_vector bytes(size);
        for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<std::byte>(i * 7);
        const auto back = global.invoke<echo>(bytes);
        ASSERT_TRUE(back) << size;
        EXPECT_EQ(*back, bytes) << size;
    }
    EXPECT_EQ(global.invoke<add>(std::uint64_t{40}, 2U), 42U);
}

TEST_F(Call, ErrorsKeepTheirCategory) {
    client::client_instance instance;
    const auto global = connect(instance);
    EXPECT_EQ(global.invoke<refuse>().error(), make_error_code(gds_shared::gigecam_errc::busy));
    EXPECT_EQ(global.invoke<missing>().error(), make_error_code(status::function_not_found));
    const client_object_handle unknown{std::weak_ptr<rpc_connection_client>{}, 77};
    EXPECT_EQ(unknown.invoke<touch>().error(), make_error_code(status::connection_closed));
}

TEST_F(Call, ManyThreadsCallAtOnce) {
    client::client_instance instance;
    const auto global = connect(instance);
    std::vector<std::thread> threads;
    for (std::uint32_t t = 0; t < 8; ++t) {
        threads.emplace_back([&, t] {
            for (std::uint64_t i = 0; i < 200; ++i) EXPECT_EQ(global.invoke<add>(i, t), i + t);
            const byte_vector large(20000, static_cast<std::byte>(t));
            for (int i = 0; i < 5; ++i) EXPECT_EQ(global.invoke<echo>(large), large);
        });
    }
    for (auto& thread : threads) thread.join();
}

TEST_F(Call, ObjectsLiveAsLongAsTheirLastHandle) {
    client::client_instance instance;
    const auto global = connect(instance);
    {
        auto first = global.invoke<make_object>();
        ASSERT_TRUE(first);
        const auto copy = *first;
        first->reset();
        EXPECT_EQ(copy.invoke<touch>(), 1U);
        EXPECT_EQ(alive, 1);
    }
    // Closing waits for the answer; the thread that served the last call may still let go of the object.
    for (int i = 0; i < 500 && alive != 0; ++i) std::this_thread::sleep_for(10ms);
    EXPECT_EQ(alive, 0);
}

TEST_F(Call, AVanishedClientReleasesWhatItHeld) {
    {
        client::client_instance instance;
        const auto global = connect(instance);
        // Kept past the connection: its release has nobody to tell.
        static std::vector<client_object_handle> kept;
        for (int i = 0; i < 3; ++i) kept.push_back(*global.invoke<make_object>());
        EXPECT_EQ(alive, 3);
    }
    for (int i = 0; i < 500 && alive != 0; ++i) std::this_thread::sleep_for(10ms);
    EXPECT_EQ(alive, 0);
    client::client_instance again;
    EXPECT_EQ(connect(again).invoke<add>(std::uint64_t{1}, 1U), 2U);
}

TEST_F(Call, TheEndOfTheServiceEndsEveryWait) {
    client::client_instance instance;
    const auto global = connect(instance);
    std::vector<std::thread> waiters;
    for (int i = 0; i < 3; ++i) {
        waiters.emplace_back(
            [&] { EXPECT_EQ(global.invoke<block_call>().error(), make_error_code(status::connection_closed)); });
    }
    wait_until_blocked();
    std::thread ending{[&] { server.reset(); }};
    for (auto& waiter : waiters) waiter.join();
    release(); // the service's own threads
    ending.join();
    EXPECT_EQ(global.invoke<add>(std::uint64_t{1}, 1U).error(), make_error_code(status::connection_closed));
}

TEST_F(Call, NotificationsArrive) {
    std::atomic<std::uint64_t> seen{0};
    client::client_instance instance;
    const auto global = connect(instance, [&](std::uint64_t number) { seen = number; });
    ASSERT_TRUE(global.invoke<notify_me>(std::uint64_t{300}));
    for (int i = 0; i < 500 && seen != 300; ++i) std::this_thread::sleep_for(10ms);
    EXPECT_EQ(seen, 300U);
}

TEST_F(Call, WithoutAServiceConnectFailsAtOnce) {
    server.reset();
    client::client_instance instance;
    const auto connected = instance.connect("test", {"pipe", "test"}, {}, {});
    ASSERT_FALSE(connected);
    EXPECT_EQ(connected.error(), std::errc::no_such_file_or_directory);
}

TEST_F(Call, ASecondServiceIsRefused) {
    const auto second = service::rpc_server::start({"pipe", std::nullopt}, [] { return object_function_table_root{}; });
    ASSERT_FALSE(second);
    EXPECT_EQ(second.error(), std::errc::address_in_use);
}

// A process that speaks the control channel but writes garbage: it is dropped or ignored, the others go on.
TEST_F(Call, GarbageFromOneClientDoesNotTouchAnother) {
    client::client_instance instance;
    const auto global = connect(instance);
    std::mt19937 random{11};
    for (int round = 0; round < 5; ++round) {
        const platform::stop_event stop;
        auto channel = platform::named_pipe_channel::attach_to_server("pipe", 2000ms, stop);
        ASSERT_TRUE(channel);
        std::optional<service_announce_packet> announce;
        (*channel)->run(
            stop,
            [&](std::error_code, std::span<const std::byte> packet) {
                announce = read_packet<service_announce_packet>(packet);
                return false;
            },
            200ms);
        ASSERT_TRUE(announce);
        client_announce_packet own{{client_announce_first_word, sizeof(client_announce_packet), 0}, {"garbage"}};
        ASSERT_FALSE((*channel)->send(std::as_bytes(std::span{&own, 1})));
        shared_memory_queue queue{std::string{announce->from_client}};
        // Replies are taken, or the client's own queue would fill and stop it.
        shared_memory_queue replies{std::string{announce->to_client}};
        std::thread drain{[&] {
            for (;;) {
                const auto received = replies.receive();
                if (std::holds_alternative<std::monostate>(received)) return;
                if (const auto* block = std::get_if<std::span<std::byte>>(&received)) replies.release_block(*block);
            }
        }};
        for (int i = 0; i < 200; ++i) {
            auto block = queue.acquire_block();
            if (block.empty()) break;
            for (std::byte& byte : block) byte = static_cast<std::byte>(random());
            // Near misses hurt more than noise: often a plausible type and size.
            const auto type = static_cast<rpc_packet_type>(random() % 10);
            const auto header = make_header(type, random() % 2, random() % 5000, random() % 4);
            if (random() % 4 != 0) std::memcpy(block.data(), &header, sizeof header);
            if (random() % 3 == 0) {
                const std::uint64_t size = random() % 3 == 0 ? ~std::uint64_t{0} : random() % 100000;
                std::memcpy(block.data() + sizeof header, &size, sizeof size);
                const std::uint64_t handle = 0;
                std::memcpy(block.data() + 24, &handle, sizeof handle);
                std::memcpy(block.data() + 32, "echo", 5);
            }
            static_cast<void>(queue.send_block(block));
        }
        const std::vector<std::byte> noise(100, std::byte{0x55});
        static_cast<void>((*channel)->send(noise)); // for which the client is dropped
        drain.join();
    }
    EXPECT_EQ(global.invoke<add>(std::uint64_t{1}, 1U), 2U);
}
