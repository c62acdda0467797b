// Caller and callee by themselves: the packets that they write, and what they make of packets that arrive.
#include <support/hostile_packets.h>

#include <support/eventually.h>

#include <gtest/gtest.h>

#include <array>
#include <deque>
#include <future>
#include <new>

using namespace ipc_rpc;

namespace {

// Keeps every packet that is sent; any number of blocks.
class recording_channel final : public channel_interface {
public:
    std::span<std::byte> acquire_block() override {
        if (closed) return {};
        return blocks.emplace_back();
    }
    bool send_block(std::span<std::byte> block) override {
        if (closed) return false;
        packets.emplace_back(block.begin(), block.begin() + read_packet<rpc_packet_header>(block)->packet_size);
        if (on_send) on_send(packets.back());
        return true;
    }
    offered offer(std::span<const std::byte> packet) override {
        if (closed) return offered::closed;
        if (full) return offered::would_wait;
        packets.emplace_back(packet.begin(), packet.end());
        return offered::sent;
    }
    std::string_view get_name() const override { return "test"; }

    template <class Packet>
    Packet head(std::size_t index) const {
        return *read_packet<Packet>(packets.at(index));
    }

    bool closed = false;
    bool full = false;
    std::vector<std::vector<std::byte>> packets;
    std::function<void(std::span<const std::byte>)> on_send;

private:
    std::deque<std::array<std::byte, 4096>> blocks;
};

template <class Head>
std::vector<std::byte> packet(Head head, std::size_t chunk) {
    std::vector<std::byte> bytes(sizeof head + chunk, std::byte{0x11});
    head.header.packet_size = static_cast<std::uint32_t>(bytes.size());
    std::memcpy(bytes.data(), &head, sizeof head);
    return bytes;
}

std::vector<std::byte> ret_start(std::uint64_t id, std::uint64_t size, std::size_t chunk) {
    return packet(ret_start_packet{make_header(rpc_packet_type::ret_start, 0, 0, id), size}, chunk);
}
std::vector<std::byte> ret_step(std::uint64_t id, std::uint64_t offset, std::size_t chunk) {
    return packet(step_packet{make_header(rpc_packet_type::ret_step, 0, 0, id), offset}, chunk);
}
std::vector<std::byte> ret_err(std::uint64_t id, status code, std::size_t chunk) {
    return packet(ret_err_packet{make_header(rpc_packet_type::ret_err, 0, 0, id), static_cast<int>(code), 0}, chunk);
}

// Runs at once, on the thread that pushes.
struct here final : executor_thread_pool_interface {
    void push(std::function<void()> task) override {
        if (std::exchange(no_memory, false)) throw std::bad_alloc{};
        task();
    }
    bool no_memory = false; // for the next one
};

class Callee : public testing::Test {
protected:
    Callee() {
        object_function_table_root table;
        EXPECT_FALSE(table.add_global("size", [](rpc_call_context& context) {
            encode(result, std::uint64_t{context.parameters.remaining()});
            context.result = std::exchange(result, {}).buffer();
            return status::success;
        }));
        EXPECT_FALSE(table.add_global("throw", [](rpc_call_context&) -> status { throw status::bad_parameter; }));
        EXPECT_FALSE(table.add_global("memory", [](rpc_call_context&) -> status { throw std::bad_alloc{}; }));
        EXPECT_FALSE(table.add_global("large_error", [](rpc_call_context& context) {
            context.result.resize(5000);
            return status::bad_packet;
        }));
        EXPECT_FALSE(table.add_method("thing", "size", [](rpc_call_context&) { return status::success; }));
        EXPECT_EQ(table.add_method("thing", "size", [](rpc_call_context&) { return status::success; }),
                  make_error_code(status::name_already_used));
        EXPECT_EQ(table.add_global("none", nullptr), make_error_code(status::null_registration));
        sut = std::make_shared<rpc_callee_instance>(channel, std::move(table), executor);
        sut->set_connection(connection);
    }

    void call(const char* name, std::uint64_t param_size, std::size_t chunk, std::uint64_t handle = 0,
              std::uint32_t flags = 0, std::uint64_t id = 1) {
        call_start_packet start{make_header(rpc_packet_type::call_start, flags, 0, id), param_size, handle, {}};
        std::string_view{name}.copy(start.function_name, function_name_size);
        sut->receive_rpc_packet(packet(start, chunk));
    }
    void step(std::uint64_t offset, std::size_t chunk, std::uint64_t id = 1) {
        sut->receive_rpc_packet(packet(step_packet{make_header(rpc_packet_type::call_step, 0, 0, id), offset}, chunk));
    }
    status last_error() const {
        const auto head = channel.head<ret_err_packet>(channel.packets.size() - 1);
        EXPECT_EQ(head.header.type(), rpc_packet_type::ret_err);
        return static_cast<status>(head.status);
    }

    static inline param_writer result;
    recording_channel channel;
    std::shared_ptr<here> executor = std::make_shared<here>();
    std::shared_ptr<hostile::connection> connection = std::make_shared<hostile::connection>();
    std::shared_ptr<rpc_callee_instance> sut;
};

} // namespace

TEST_F(Callee, ACallWithoutMemoryForItsTurnTakesNoOthersTurn) {
    executor->no_memory = true;
    call("size", 0, 0, 0, 0, 1);
    EXPECT_EQ(last_error(), status::resource_exhausted);
    call("size", 0, 0, 0, 0, 2);
    ASSERT_EQ(channel.packets.size(), 2U);
    EXPECT_EQ(channel.head<ret_start_packet>(1).header.seq_id, 2U);
}

struct split_case {
    std::size_t size;
    std::vector<std::size_t> packets;
};

TEST(Caller, SplitsParametersByTheBlock) {
    for (const auto& [size, sizes] : {split_case{0, {96}}, split_case{4000, {4096}}, split_case{4001, {4096, 25}},
                                      split_case{4000 + 4072 + 1, {4096, 4096, 25}}}) {
        recording_channel channel;
        rpc_caller_instance sut{channel};
        const std::vector<std::byte> parameters(size, std::byte{1});
        EXPECT_EQ(sut.call(7, "name", parameters, nullptr, rpc_flag_no_reply), status::success);
        std::vector<std::size_t> sent;
        for (const auto& bytes : channel.packets) sent.push_back(bytes.size());
        EXPECT_EQ(sent, sizes) << size;
        EXPECT_EQ(channel.head<call_start_packet>(0).param_size, size);
        EXPECT_EQ(channel.head<call_start_packet>(0).object_handle, 7U);
        EXPECT_STREQ(channel.head<call_start_packet>(0).function_name, "name");
        EXPECT_EQ(channel.head<rpc_packet_header>(0).type_and_flags, 0x104U);
        if (sent.size() > 1) {
            EXPECT_EQ(channel.head<step_packet>(1).offset, 4000U);
        }
    }
}

struct reply_case {
    const char* name;
    std::vector<std::vector<std::byte>> replies; // to seq_id 1
    status outcome;
    std::size_t result_size;
};

class Reply : public testing::TestWithParam<reply_case> {};

TEST_P(Reply, EndsTheCall) {
    recording_channel channel;
    rpc_caller_instance sut{channel};
    channel.on_send = [&](std::span<const std::byte>) {
        for (const auto& reply : GetParam().replies) sut.receive_packet(reply);
    };
    std::vector<std::byte> result{std::byte{9}};
    EXPECT_EQ(sut.call(0, "f", {}, &result, 0), GetParam().outcome);
    EXPECT_EQ(result.size(), GetParam().result_size);
}

INSTANTIATE_TEST_SUITE_P(
    Table, Reply,
    testing::Values(reply_case{"empty", {ret_start(1, 0, 0)}, status::success, 0},
                    reply_case{"one_packet", {ret_start(1, 5, 5)}, status::success, 5},
                    reply_case{"more_chunk_than_result", {ret_start(1, 5, 9)}, status::success, 5},
                    reply_case{"steps", {ret_start(1, 9, 5), ret_step(1, 5, 4)}, status::success, 9},
                    reply_case{"step_beyond", {ret_start(1, 9, 5), ret_step(1, 5, 5)}, status::bad_packet, 9},
                    reply_case{"offset_wraps", {ret_start(1, 9, 5), ret_step(1, ~0ULL, 4)}, status::bad_packet, 9},
                    reply_case{"step_first", {ret_step(1, 0, 4)}, status::bad_packet, 0},
                    reply_case{"too_large", {ret_start(1, max_param_block + 1, 0)}, status::param_block_too_large, 0},
                    reply_case{"error", {ret_err(1, status::object_not_found, 3)}, status::object_not_found, 3},
                    reply_case{"others_first",
                               {ret_start(2, 1, 1), std::vector<std::byte>(20), ret_err(77, status::bad_packet, 0),
                                ret_start(1, 2, 2), ret_err(1, status::bad_packet, 0)},
                               status::success,
                               2}),
    [](const auto& row) { return std::string{row.param.name}; });

TEST(Caller, TheLargestResultIsAcceptedByItsFirstPacket) {
    recording_channel channel;
    rpc_caller_instance sut{channel};
    channel.on_send = [&](std::span<const std::byte>) {
        sut.receive_packet(ret_start(1, max_param_block, 10));
        sut.close();
    };
    std::vector<std::byte> result;
    EXPECT_EQ(sut.call(0, "f", {}, &result, 0), status::connection_closed) << "it waited for the rest";
    EXPECT_EQ(sut.call(0, "f", {}, &result, 0), status::connection_closed);
    EXPECT_EQ(channel.packets.size(), 1U) << "nothing is sent after the end";
}

TEST(Caller, AClosedChannelFailsTheCall) {
    recording_channel channel;
    channel.closed = true;
    rpc_caller_instance sut{channel};
    std::vector<std::byte> result;
    EXPECT_EQ(sut.call(0, "f", {}, &result, 0), status::connection_closed);
    sut.receive_packet(ret_start(1, 2, 2));
    EXPECT_TRUE(result.empty()) << "its place may be another's";
    EXPECT_EQ(sut.call(0, "f", {}, nullptr, rpc_flag_no_reply), status::connection_closed);
    EXPECT_EQ(sut.close_handle(3, 0), status::connection_closed);
}

TEST_F(Callee, AnswersWhatItCannotFind) {
    call("nothing", 0, 0);
    EXPECT_EQ(last_error(), status::function_not_found);
    call("size", 0, 0, 99);
    EXPECT_EQ(last_error(), status::object_not_found);
    const auto thing = *sut->register_object(object_entry::owning("thing", std::make_shared<int>(1)));
    call("nothing", 0, 0, thing);
    EXPECT_EQ(last_error(), status::function_not_found);
    auto passing = std::make_shared<int>(1);
    const auto observed = *sut->register_object(object_entry::observing("thing", passing));
    passing.reset();
    call("size", 0, 0, observed);
    EXPECT_EQ(last_error(), status::object_expired);
    EXPECT_EQ(sut->register_object(object_entry::observing("thing", passing)).error(),
              make_error_code(status::null_registration));
    const auto sent = channel.packets.size();
    call("nothing", 0, 0, 0, rpc_flag_no_reply);
    EXPECT_EQ(channel.packets.size(), sent) << "no reply is wanted";
}

TEST_F(Callee, RefusesStepsThatDoNotFit) {
    step(0, 10, 5);
    EXPECT_EQ(last_error(), status::unknown_transaction);
    call("size", 5000, 4000);
    step(4001, 1000);
    EXPECT_EQ(last_error(), status::bad_packet);
    step(4000, 1000);
    EXPECT_EQ(last_error(), status::unknown_transaction) << "it was dropped";
    call("size", max_param_block + 1, 10);
    EXPECT_EQ(last_error(), status::param_block_too_large);
}

TEST_F(Callee, BoundsWhatIsStillArriving) {
    for (std::uint64_t id = 1; id <= 129; ++id) call("size", 5000, 100, 0, 0, id);
    EXPECT_TRUE(channel.packets.empty());
    call("size", 5000, 100, 0, 0, 130); // evicts 1 to 64, without a reply
    EXPECT_TRUE(channel.packets.empty());
    step(100, 10, 64);
    EXPECT_EQ(last_error(), status::unknown_transaction);
    const auto sent = channel.packets.size();
    step(100, 10, 65);
    EXPECT_EQ(channel.packets.size(), sent) << "still there";
}

TEST_F(Callee, FunctionsThatFailAreAnswered) {
    call("throw", 0, 0);
    EXPECT_EQ(last_error(), status::bad_parameter);
    call("memory", 0, 0);
    EXPECT_EQ(last_error(), status::resource_exhausted);
    call("large_error", 0, 0);
    EXPECT_EQ(last_error(), status::bad_packet);
    EXPECT_EQ(channel.packets.back().size(), sizeof(ret_err_packet)) << "the payload is left out";
}

TEST_F(Callee, ClosesHandlesOnce) {
    auto held = std::make_shared<int>(1);
    const std::weak_ptr<int> watch = held;
    const auto handle = *sut->register_object(object_entry::owning("thing", std::move(held)));
    channel.on_send = [&](std::span<const std::byte>) {
        EXPECT_LE(watch.use_count(), 1) << "an answered call holds it";
    };
    call("size", 0, 0, handle);
    const auto close = packet(call_close_packet{make_header(rpc_packet_type::call_close, 0, 0, 1), handle}, 0);
    sut->receive_rpc_packet(close);
    EXPECT_TRUE(watch.expired());
    EXPECT_EQ(channel.head<rpc_packet_header>(1).type(), rpc_packet_type::ret_start);
    sut->receive_rpc_packet(close);
    EXPECT_EQ(last_error(), status::object_not_found);
}

TEST_F(Callee, StopReleasesEverything) {
    auto held = std::make_shared<int>(1);
    const std::weak_ptr<int> watch = held;
    auto entry = object_entry::owning("thing", std::move(held));
    bool told_alive = false;
    entry.on_end = [&] { told_alive = !watch.expired(); };
    const auto handle = sut->register_object(std::move(entry));
    ASSERT_TRUE(handle);
    call("size", 5000, 100, *handle); // the rest never comes
    sut->stop();
    EXPECT_TRUE(told_alive) << "what waits for a camera has to end first";
    EXPECT_TRUE(watch.expired());
    call("size", 0, 0);
    EXPECT_TRUE(channel.packets.empty());
}

// Each waits for the others, as that of a camera that is gone does for its answer.
TEST_F(Callee, ObjectsEndSideBySide) {
    static constexpr int count = 3;
    struct patient {
        std::atomic<int>& ends;
        explicit patient(std::atomic<int>& counted) : ends(counted) {}
        ~patient() {
            ++ends;
            EXPECT_TRUE(test_support::eventually([&] { return ends == count; }, std::chrono::seconds{10}));
        }
    };
    std::atomic<int> idle = 0;
    std::atomic<int> called = 0;
    for (std::uint64_t i = 0; i < count; ++i) {
        EXPECT_TRUE(sut->register_object(object_entry::owning("thing", std::make_shared<patient>(idle))));
        const auto handle = sut->register_object(object_entry::owning("thing", std::make_shared<patient>(called)));
        call("size", 5000, 100, *handle, 0, i + 1); // the rest never comes
    }
    sut->release();
    EXPECT_EQ(idle, count);
    EXPECT_EQ(called, 0);
    sut->stop();
    EXPECT_EQ(called, count);
}

TEST(Executor, ATaskWithoutMemoryEndsAlone) {
    std::promise<void> next;
    const auto pool = make_executor_thread_pool("test-", 1);
    pool->push([] { throw std::bad_alloc{}; });
    pool->push([&] { next.set_value(); });
    EXPECT_EQ(next.get_future().wait_for(std::chrono::seconds{20}), std::future_status::ready);
}
