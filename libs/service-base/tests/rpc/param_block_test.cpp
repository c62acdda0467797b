// The encoding of arguments and results, byte for byte, and what becomes of bytes that are not one.
#include <ipc_rpc/catalogue.h>

#include <gtest/gtest.h>

#include <random>

using namespace ipc_rpc;

namespace {

template <class T>
byte_vector encoded(const T& value) {
    param_writer out;
    encode(out, value);
    return out.buffer();
}

byte_vector bytes(std::initializer_list<int> values) {
    byte_vector result;
    for (int value : values) result.push_back(static_cast<std::byte>(value));
    return result;
}

template <class T>
bool decodes(std::span<const std::byte> block) {
    param_reader in{block};
    T value{};
    return decode(in, value);
}

device_desc some_device() {
    device_desc device;
    device.id = "id";
    device.user_defined_name = "\xFF name";
    device.extra_2 = "x";
    device.reachable_status = 2;
    device.control_state = 3;
    device.net_info = {0x0A000001, 0xFFFFFF00, 0x0A0000FE, 0, 0x112233445566};
    return device;
}

// Every proper prefix of an encoding must fail, and the whole must give all bytes up again.
template <class T>
void expect_only_whole(const T& value) {
    const byte_vector whole = encoded(value);
    for (std::size_t length = 0; length < whole.size(); ++length) {
        EXPECT_FALSE(decodes<T>(std::span{whole}.first(length))) << length << " of " << whole.size();
    }
    param_reader in{whole};
    T back{};
    ASSERT_TRUE(decode(in, back));
    EXPECT_EQ(in.remaining(), 0U);
    EXPECT_EQ(encoded(back), whole);
}

} // namespace

TEST(ParamBlock, ItemsLieAsTheContractSays) {
    EXPECT_EQ(encoded(std::uint32_t{0x01020304}), bytes({4, 3, 2, 1}));
    EXPECT_EQ(encoded(std::int64_t{-2}), bytes({0xFE, 255, 255, 255, 255, 255, 255, 255}));
    EXPECT_EQ(encoded(1.0), bytes({0, 0, 0, 0, 0, 0, 0xF0, 0x3F}));
    EXPECT_EQ(encoded(true), bytes({1}));
    EXPECT_EQ(encoded(open_access::exclusive), bytes({3, 0, 0, 0}));
    EXPECT_EQ(encoded(std::string{"ab"}), bytes({2, 0, 0, 0, 'a', 'b'}));
    EXPECT_EQ(encoded(byte_vector{}), bytes({0, 0, 0, 0}));
    EXPECT_EQ(encoded(std::vector<std::string>{"", "c"}), bytes({2, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 'c'}));
    EXPECT_EQ(encoded(std::expected<std::vector<url_info>, std::error_code>{}).size(), 12U)
        << "a zero error word, then a count of zero";
    EXPECT_EQ(encoded(std::expected<void, std::error_code>{}), byte_vector(8));
    EXPECT_EQ(encoded(interface_desc{}).size(), 3 * 4 + 224U);
    EXPECT_EQ(encoded(device_desc{}).size(), 10 * 4 + 8 + 24U);
    EXPECT_EQ(encoded(device_service_info{}).size(), 3 * 8 + 5 * 4 + 4U);
    EXPECT_EQ(encoded(url_info{}).size(), 20 + 4 + 4U);
}

TEST(ParamBlock, EveryTruncationFails) {
    expect_only_whole(some_device());
    expect_only_whole(interface_desc{"a", "b", "c", {}});
    expect_only_whole(event_message{1, 2, 3, bytes({4, 5})});
    expect_only_whole(stream_channel_info{1, 2, "host", 3, 4, 5});
    expect_only_whole(std::vector<device_desc>(3, some_device()));
    using result = std::expected<std::vector<event_message>, std::error_code>;
    expect_only_whole(result{std::vector<event_message>(2)});
    expect_only_whole(result{std::unexpected(make_error_code(status::bad_packet))});
}

TEST(ParamBlock, AFailedReadStaysWhereItWas) {
    const byte_vector short_length = bytes({1, 0, 0});
    param_reader first{short_length};
    std::string text;
    EXPECT_FALSE(decode(first, text));
    EXPECT_EQ(first.remaining(), 3U);

    const byte_vector short_body = bytes({5, 0, 0, 0, 'a'});
    param_reader second{short_body};
    EXPECT_FALSE(decode(second, text));
    EXPECT_EQ(second.remaining(), 5U);

    const byte_vector empty_then_number = bytes({0, 0, 0, 0, 7, 0, 0, 0});
    param_reader third{empty_then_number};
    std::uint32_t number = 0;
    EXPECT_TRUE(decode(third, text) && decode(third, number));
    EXPECT_EQ(number, 7U);
}

TEST(ParamBlock, CountsThatLieDoNotSizeAnything) {
    byte_vector lie = bytes({0xFF, 0xFF, 0xFF, 0xFF, 1, 2, 3, 4});
    EXPECT_FALSE(decodes<std::string>(lie));
    EXPECT_FALSE(decodes<byte_vector>(lie));
    EXPECT_FALSE(decodes<std::vector<device_desc>>(lie));
    EXPECT_FALSE(decodes<std::vector<std::uint64_t>>(lie));
}

// Any bytes decode or fail; the sanitizers see the rest.
TEST(ParamBlock, NoiseIsHarmless) {
    std::mt19937 random{20};
    for (int round = 0; round < 20000; ++round) {
        byte_vector noise(random() % 300);
        for (auto& byte : noise) byte = static_cast<std::byte>(random() % 8 == 0 ? random() : random() % 3);
        static_cast<void>(decodes<std::expected<std::vector<device_desc>, std::error_code>>(noise));
        static_cast<void>(decodes<std::expected<std::vector<event_message>, std::error_code>>(noise));
        static_cast<void>(decodes<device_service_info>(noise));
        static_cast<void>(decodes<std::error_code>(noise));
    }
}

struct error_case {
    const char* name;
    std::error_code code;
    std::uint64_t value;
    std::uint64_t category;
};

class ErrorOnTheWire : public testing::TestWithParam<error_case> {};

TEST_P(ErrorOnTheWire, HasTheNumberOfTheContractAndComesBack) {
    const auto wire = to_wire(GetParam().code);
    EXPECT_EQ(wire.value, GetParam().value);
    EXPECT_EQ(wire.category_id, GetParam().category);
    EXPECT_EQ(from_wire(wire), GetParam().code);
}

INSTANTIATE_TEST_SUITE_P(
    Table, ErrorOnTheWire,
    testing::Values(
        error_case{"closed", make_error_code(status::connection_closed), 42, 0},
        error_case{"io", make_error_code(std::errc::io_error), 5, 2},
        error_case{"memory", make_error_code(std::errc::not_enough_memory), 12, 2},
        error_case{"invalid", make_error_code(std::errc::invalid_argument), 22, 2},
        error_case{"unsupported", make_error_code(std::errc::function_not_supported), 40, 2},
        error_case{"aborted", make_error_code(std::errc::connection_aborted), 106, 2},
        error_case{"unreachable", make_error_code(std::errc::host_unreachable), 110, 2},
        error_case{"timed_out", make_error_code(std::errc::timed_out), 138, 2},
        error_case{"system", {static_cast<int>(std::errc::invalid_argument), std::system_category()}, 87, 1},
        error_case{"system_pipe", {static_cast<int>(std::errc::broken_pipe), std::system_category()}, 109, 1}),
    [](const auto& row) { return std::string{row.param.name}; });

TEST(ErrorOnTheWireTable, NumbersOfThisPlatformAloneSurviveTheJourney) {
    for (int value = 1; value < 134; ++value) {
        const std::error_code code{value, std::generic_category()};
        EXPECT_EQ(from_wire(to_wire(code)), code) << value << ' ' << code.message();
        const std::error_code system{value, std::system_category()};
        EXPECT_EQ(from_wire(to_wire(system)), system) << value;
    }
}

TEST(ErrorOnTheWireTable, UnknownCategoriesBecomeStatus7) {
    static const struct : std::error_category {
        const char* name() const noexcept override { return "nobody's"; }
        std::string message(int) const override { return {}; }
    } unknown;
    EXPECT_EQ(from_wire(to_wire({5, unknown})), make_error_code(status::unregistered_error_category));
    EXPECT_EQ(from_wire({0, 4711}), make_error_code(status::unregistered_error_category));
}

TEST(Status, HasItsTextAndCondition) {
    EXPECT_EQ(make_error_code(status::connection_closed).message(), "Connection was closed");
    EXPECT_EQ(make_error_code(status::param_block_too_large).message(),
              "A param block > 100 MiB was pushed/requested. DDOS?");
    EXPECT_STREQ(ipc_rpc_error_category().name(), "RPC Error");
    EXPECT_EQ(ipc_rpc_error_category().message(0), "Success");
    EXPECT_EQ(ipc_rpc_error_category().message(1), "unknown");
    EXPECT_EQ(make_error_code(status::connection_closed), std::errc::connection_aborted);
    EXPECT_EQ(make_error_code(status::bad_packet), std::errc::io_error);
    EXPECT_EQ(make_error_code(status::resource_exhausted), std::errc::not_enough_memory);
    EXPECT_EQ(make_error_code(status::function_not_found), std::errc::invalid_argument);
}
