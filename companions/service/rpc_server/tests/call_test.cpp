// Calls between a real client and the real serving end, over real sockets and shared memory.
#include <ipc_rpc/catalogue.h>
#include <ipc_rpc/rpc_client.h>
#include <rpc_server/rpc_server.h>
#include <support/eventually.h>
#include <support/temporary_folder.h>

#include <gds_shared/gigecam_error.h>

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <mutex>
#include <optional>
#include <thread>

using namespace ipc_rpc;

namespace {

using echo = remote_function<"echo", byte_vector(byte_vector)>;
using add = remote_function<"add", std::uint64_t(std::uint64_t, std::uint32_t)>;
using refuse = remote_function<"refuse", void()>;
using make_object = remote_function<"make_object", client_object_handle()>;
using touch = remote_function<"touch", std::uint32_t()>;
using watch = remote_function<"watch", void()>;

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
        register_error_category(gds_shared::gigecam_error_category(), category_id_gigecam);
        auto started = service::rpc_server::start({"pipe", std::nullopt}, [this] { return make_table(); });
        EXPECT_TRUE(started) << started.error().message();
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
        EXPECT_FALSE(make_object::serve(table, [this](rpc_call_context& context) -> answer<registered_object> {
            const auto handle =
                context.connection->register_object(object_entry::owning("thing", std::make_shared<object>(alive)));
            return registered_object{*handle};
        }));
        EXPECT_FALSE(touch::serve<object>(table, "thing", [](object& self, rpc_call_context&) -> answer<std::uint32_t> {
            return static_cast<std::uint32_t>(self.alive.load());
        }));
        // The table ends with its connection.
        const std::shared_ptr<void> end{nullptr, [this](void*) { ended_on = std::this_thread::get_id(); }};
        EXPECT_FALSE(watch::serve(table, [this, end](rpc_call_context& context) -> answer<void> {
            const std::lock_guard guard{notifier_mutex};
            notifier = service::rpc_server::notifier_of(context.connection);
            return {};
        }));
        return table;
    }

    static client_object_handle connect(client::client_instance& instance) {
        auto connected = instance.connect("test", {"pipe", "test"}, {}, {});
        EXPECT_TRUE(connected) << connected.error().message();
        return connected ? client_object_handle::global(*connected) : client_object_handle{};
    }

    const test_support::runtime_folder folder;
    std::atomic<int> alive{0};
    std::atomic<std::thread::id> ended_on{}; // the last connection
    std::mutex notifier_mutex;
    std::function<void(std::uint64_t)> notifier;
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
    EXPECT_EQ(alive, 0) << "closing waits for the answer";
}

// Ending a connection waits for its threads, which may wait for what the raising one holds.
TEST_F(Call, WhoRaisesNumbersEndsNoConnection) {
    for (int round = 0; round < 20; ++round) {
        ended_on = std::thread::id{};
        std::optional<client::client_instance> instance{std::in_place};
        {
            const auto global = connect(*instance);
            ASSERT_TRUE(global.invoke<watch>());
        }
        std::jthread raising{[this](const std::stop_token& stop) {
            std::unique_lock guard{notifier_mutex};
            const auto raise = std::exchange(notifier, nullptr);
            guard.unlock();
            while (!stop.stop_requested()) raise(3);
        }};
        const auto raiser = raising.get_id();
        instance.reset();
        EXPECT_TRUE(test_support::eventually([&] { return ended_on.load() != std::thread::id{}; }));
        ASSERT_NE(ended_on.load(), raiser) << "in round " << round;
    }
}
