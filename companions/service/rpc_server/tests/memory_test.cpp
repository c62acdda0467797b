// No memory, at each place in turn where a thread of a connection asks for some: the call or the connection ends with
// an error, the process lives, and the next connection is served.
#include <ipc_rpc/catalogue.h>
#include <ipc_rpc/rpc_client.h>
#include <rpc_server/rpc_server.h>
#include <support/failing_memory.h>
#include <support/temporary_folder.h>

#include <gtest/gtest.h>

using namespace ipc_rpc;

namespace {

using echo = remote_function<"echo", byte_vector(byte_vector)>;
using make_object = remote_function<"make_object", client_object_handle()>;

object_function_table_root make_table() {
    object_function_table_root table;
    EXPECT_FALSE(
        echo::serve(table, [](rpc_call_context&, byte_vector bytes) -> std::expected<byte_vector, std::error_code> {
            return bytes;
        }));
    EXPECT_FALSE(
        make_object::serve(table, [](rpc_call_context& context) -> std::expected<registered_object, std::error_code> {
            const auto handle =
                context.connection->register_object(object_entry::owning("thing", std::make_shared<int>(1)));
            if (!handle) return std::unexpected(handle.error());
            return registered_object{*handle};
        }));
    return table;
}

bool use_once() {
    client::client_instance instance;
    const auto connected = instance.connect("test", {"pipe", "test"}, {}, {});
    if (!connected) return false;
    const auto global = client_object_handle::global(*connected);
    const byte_vector bytes(9000, std::byte{3});
    const auto back = global.invoke<echo>(bytes);
    const auto object = global.invoke<make_object>();
    return back == bytes && object;
}

} // namespace

TEST(Memory, ItsLackEndsACallOrAConnectionAndNothingElse) {
    const test_support::runtime_folder folder;
    auto server = service::rpc_server::start({"pipe", std::nullopt}, make_table);
    ASSERT_TRUE(server);
    ASSERT_TRUE(use_once());
    int failures = 0;
    int place = 0;
    constexpr int last_place = 2000;
    for (; place < last_place; ++place) {
        failing_memory::fail(place, failing_memory::other_threads);
        const bool served = use_once();
        const bool reached = failing_memory::stop() != 0;
        failures += served ? 0 : 1;
        EXPECT_TRUE(use_once()) << "after the failure at allocation " << place;
        if (served && !reached) break; // there is no such allocation any more
    }
    EXPECT_LT(place, last_place);
    EXPECT_GT(failures, 10) << "the places that were hit are used";
    server->reset();
}
